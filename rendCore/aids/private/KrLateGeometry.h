#pragma once

#include <rendCore/base/private/KrArrayPool.h>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/ref_ptr>

#include <boost/shared_ptr.hpp>

#include <functional>
#include <memory>

class KrBasePhysicalExtent;

/// A group of an aid whose corners are made when it is first seen: most scenes never show their aids.
///
/// Look, bounds and place in the scene are those of the whole geometry from the beginning; until then its arrays are
/// empty. "Seen" is by a cull traversal, or by whoever asks for triangles or attributes by a functor, as picking does.
class KrLateGeometry : public osg::Geometry
{
public:
    /// When the corners of an aid are made.
    enum class Corners
    {
        Now,
        WhenSeen
    };

    /// Gives what is drawn, when it is to be drawn; null for nothing.
    using Source = std::function<boost::shared_ptr<const KrBasePhysicalExtent>()>;

    /// A geode with a late geometry for every one of `whole`, which are the groups of `extent` in their order.
    static osg::ref_ptr<osg::Geode> geodeFor(const osg::Geode& whole,
                                             const boost::shared_ptr<const KrBasePhysicalExtent>& extent,
                                             const std::shared_ptr<KrArrayPool>& arrays);

    /// @param look    colours and state set, which are shared
    /// @param box     of the whole; one that is not valid costs making the corners when somebody asks for it
    /// @param source  called once
    /// @param group   number of the group in the mesh form of the source's extent
    /// @param arrays  not null; corners of alike geometries are kept once
    KrLateGeometry(const osg::Geometry& look, const osg::BoundingBox& box, Source source, unsigned int group,
                   std::shared_ptr<KrArrayPool> arrays);

    /// Makes the corners, unless they are there.
    void fill();

    // A copy is an ordinary geometry, and whole.
    osg::Object* clone(const osg::CopyOp& copyOp) const override;
    // Each fills it, but for visitors that do not cull.
    void accept(osg::NodeVisitor& visitor) override;
    void accept(osg::Drawable::AttributeFunctor& functor) override;
    void accept(osg::Drawable::ConstAttributeFunctor& functor) const override;
    void accept(osg::PrimitiveFunctor& functor) const override;
    void accept(osg::PrimitiveIndexFunctor& functor) const override;
    osg::BoundingBox computeBoundingBox() const override;

private:
    void fillAnyway() const;

    osg::BoundingBox m_box;
    Source m_source; ///< empty when it is filled
    unsigned int m_group;
    std::shared_ptr<KrArrayPool> m_arrays;
};
