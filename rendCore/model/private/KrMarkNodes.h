#pragma once

#include <rendCore/model/KrTextureMarker.h>

#include <osg/Camera>
#include <osg/Geode>
#include <osg/Group>
#include <osg/Program>
#include <osg/Uniform>

/// The nodes that draw one mark each, in a camera that looks at the texture from (0, 0) to (1, 1). For use inside the
/// library.
namespace KrMarkNodes
{

constexpr unsigned int kTextureUnit = 0;

// What surrounds a shape, the look of a selected one for instance, is not to reach its marks.
constexpr osg::StateAttribute::GLModeValue kOnHere =
    osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE | osg::StateAttribute::PROTECTED;
constexpr osg::StateAttribute::GLModeValue kOffHere =
    osg::StateAttribute::OFF | osg::StateAttribute::OVERRIDE | osg::StateAttribute::PROTECTED;

/// One brush stroke along the points from `begin` to before `end`, of which there are some.
/// Throws std::bad_alloc when there is no memory for them.
osg::ref_ptr<osg::Node> stroke(const osg::Vec2* begin, const osg::Vec2* end, const KrTextureMarker::Brush& brush,
                               osg::Program* program);
/// A picture laid down. @param picture  held
osg::ref_ptr<osg::Node> stamp(osg::Image* picture, const KrTextureMarker::Placement& placement, osg::Program* program);
/// A camera of its own that draws into textures, whatever the camera around it does.
osg::ref_ptr<osg::Camera> textureCamera(const char* name, int width, int height);

} // namespace KrMarkNodes

/// A projector: one pass for the depths it sees, one over the unrolled surface.
class KrMarkProjection : public osg::Group
{
public:
    /// @param picture  null for a round spot of `brush`
    /// @param view     world to projector
    KrMarkProjection(osg::Geode& shape, osg::Image* picture, const KrTextureMarker::Brush& brush,
                     const osg::Matrixd& view, const osg::Matrixd& projection, osg::Program* program);

    /// Marks another shape from now on; observed.
    void setShape(osg::Geode& shape);
    /// Where the shape stands in the frame in which the mark is drawn.
    void setLocalToWorld(const osg::Matrixd& localToWorld);

private:
    class Surface;

    osg::ref_ptr<osg::Camera> m_depthCamera;
    osg::ref_ptr<Surface> m_seen;   ///< for the depths
    osg::ref_ptr<Surface> m_marked; ///< unrolled
    osg::ref_ptr<osg::Uniform> m_localToClip;
    osg::Matrixd m_view;
};
