#pragma once

#include <osg/Camera>
#include <osg/FrameStamp>
#include <osg/Group>
#include <osg/NodeVisitor>
#include <osg/Program>
#include <osg/Texture2D>

#include <vector>

namespace osgUtil
{
class CullVisitor;
} // namespace osgUtil

class KrMarkPainter;

/// One frame among those of all viewers.
class KrMarkFrame
{
public:
    KrMarkFrame() = default;
    /// The frame that `visitor` belongs to.
    explicit KrMarkFrame(const osg::NodeVisitor& visitor)
        : m_stamp(visitor.getFrameStamp())
        , m_number(m_stamp ? m_stamp->getFrameNumber() : visitor.getTraversalNumber())
        , m_isAny(true)
    {
    }
    /// The same number of the same viewer; two that are no frame are equal.
    bool operator==(const KrMarkFrame& other) const
    {
        return m_isAny == other.m_isAny && m_stamp == other.m_stamp && m_number == other.m_number;
    }
    /// Not equal.
    bool operator!=(const KrMarkFrame& other) const { return !(*this == other); }

private:
    osg::ref_ptr<const osg::FrameStamp> m_stamp; ///< held, lest a later viewer's has the same address
    unsigned int m_number = 0;
    bool m_isAny = false;
};

/// The texture of a marked shape. Its GL objects go together with those of the camera that draws into it, which is not
/// in the scene.
class KrMarkTexture : public osg::Texture2D
{
public:
    /// @param image  what it starts with, and what frames are read back into; held
    explicit KrMarkTexture(osg::Image* image)
        : osg::Texture2D(image)
    {
        setResizeNonPowerOfTwoHint(false);
        setUnRefImageDataAfterApply(false);
        setInternalFormat(GL_RGBA8);
    }

    /// A picture of that size: RGBA bytes, their values undefined. Throws std::bad_alloc when there is no memory.
    static osg::ref_ptr<osg::Image> newPicture(unsigned int width, unsigned int height);
    /// `source` brought to the size and form of `target`, which is such a picture.
    static void resample(const osg::Image& source, osg::Image& target);

    /// Whose GL objects go with this one's; borrowed, null for none.
    void setPainter(const KrMarkPainter* painter) { m_painter = painter; }
    void releaseGLObjects(osg::State* state) const override;

protected:
    ~KrMarkTexture() override = default;

private:
    const KrMarkPainter* m_painter = nullptr; ///< null once the marker is gone
    mutable bool m_isReleasing = false;
};

/// Draws marks into a texture. For use inside the library, as are the two above.
class KrMarkPainter : public osg::Referenced
{
public:
    /// @param texture  what is drawn into; held
    explicit KrMarkPainter(KrMarkTexture& texture);

    /// The programs of the three kinds of marks; borrowed from this object.
    osg::Program* strokeProgram() const { return m_strokeProgram; }
    osg::Program* stampProgram() const { return m_stampProgram; }
    osg::Program* projectionProgram() const { return m_projectionProgram; }

    /// Puts `marks` before the frame that `visitor` culls; the list is empty afterwards.
    void draw(std::vector<osg::ref_ptr<osg::Node>>& marks, osgUtil::CullVisitor& visitor);
    /// Drops what a frame before that of `visitor` has drawn.
    void tidy(const osg::NodeVisitor& visitor)
    {
        // A shape with two parents is met twice. The scene graph holds no reference to cameras that it has yet to draw.
        if (m_batch->getNumChildren() != 0 && m_drawnFrame != KrMarkFrame(visitor)) {
            m_batch->removeChildren(0, m_batch->getNumChildren());
        }
    }
    /// Of camera, framebuffer object and programs.
    void releaseGLObjects(osg::State* state) const;

protected:
    ~KrMarkPainter() override = default;

private:
    class UploadCallback;
    class ReadBackCallback;

    void setStates(osg::StateSet& states) const;

    osg::ref_ptr<osg::Camera> m_camera;
    osg::ref_ptr<osg::Group> m_batch;
    KrMarkFrame m_drawnFrame;
    osg::ref_ptr<osg::Program> m_strokeProgram;
    osg::ref_ptr<osg::Program> m_stampProgram;
    osg::ref_ptr<osg::Program> m_projectionProgram;
};
