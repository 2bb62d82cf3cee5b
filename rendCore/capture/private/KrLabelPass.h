#pragma once

#include <rendCore/model/KrLabelTable.h>
#include <rendCore/model/private/KrLabelCamera.h>

#include <osg/FrameBufferObject>
#include <osg/Matrixd>
#include <osg/Program>
#include <osg/Scissor>
#include <osg/StateSet>
#include <osg/observer_ptr>
#include <osg/ref_ptr>
#include <osgUtil/CullVisitor>
#include <osgUtil/RenderStage>
#include <osgUtil/StateGraph>

#include <cstdint>
#include <vector>

namespace osgViewer
{
class Viewer;
}

/// Draws what the robots of a viewer's scene are in place of what they look like, into a target of its own: labels (or
/// bits), normals, depth. Aids, markers, clouds and a client's own nodes are left out.
///
/// Between the frames of the viewer, its context current. The GL objects go with the camera's context, which knows of
/// them by a callback that draws nothing, or with the pass. For use inside the library.
class KrLabelPass : public osg::Camera::DrawCallback
{
public:
    /// What is in a pixel of the target besides depth.
    enum class Content
    {
        Labels,  ///< one number: the label
        Normals, ///< two: label and normal, see KrPixelConversion::toNormals
        Bits     ///< four, of 32 bits: one for each of 128 parts that covers the pixel, whatever is before it
    };
    struct Request
    {
        Content content = Content::Labels;
        KrLabelTable::Level level = KrLabelTable::Level::Link;
        std::uint32_t firstBit = 1; ///< the label of the first bit
    };
    /// Where a camera of the viewer draws, pixels of the target.
    struct Area
    {
        int x;
        int y;
        int width;
        int height;
    };
    /// A rectangle of the target to be drawn, for a picture of less: nothing of the others is touched.
    struct View
    {
        osg::Camera* camera;
        Area area;
        osg::Matrixd projection; ///< the result: with the planes near and far that were fitted to what was drawn
        osg::Matrixd worldToEye; ///< the result: the camera's when it was drawn
    };

    KrLabelPass();

    using osg::Camera::DrawCallback::operator();
    void operator()(osg::RenderInfo&) const override {}
    /// Whoever has the pass calls this when it is no longer needed: a camera may hold it longer.
    void detach();

    /// Draws the views into a cleared target of that size, which stays bound for reading until `end`.
    /// @param scissor  of the target, that alone is drawn and cleared; null for all of it
    /// @return null, or why it cannot be, as the end of a sentence; then nothing is bound
    const char* draw(osgViewer::Viewer& viewer, int width, int height, const Request& request, std::vector<View>& views,
                     const Area* scissor = nullptr);
    /// Of the target that is bound, into `out`: as many numbers a pixel as the content has, row 0 at the bottom.
    static void readPixels(const osg::State& state, const Area& area, Content content, std::uint32_t* out);
    /// Depths as 32-bit fixed point numbers, row 0 at the bottom.
    static void readDepths(const osg::State& state, const Area& area, std::uint32_t* out);
    // The same without seeing to how pixels are packed, for a buffer that is bound: `out` is an offset into it.
    static void askForPixels(const Area& area, Content content, void* out);
    static void askForDepths(const Area& area, void* out);
    /// Binds the framebuffer that the viewer's context had.
    void end(osgViewer::Viewer& viewer);

    /// Of the target's depths.
    static constexpr unsigned int kDepthBits = 24;

    void releaseGLObjects(osg::State* state) const override;

protected:
    ~KrLabelPass() override;

private:
    void attach(osg::Camera& camera);
    void releaseOwnObjects(osg::State* state) const;
    static const char* whyImpossible(const osg::State& state);
    const char* prepare(osg::State& state, int width, int height, Content content);
    void cull(osgViewer::Viewer& viewer, const Request& request, View& view, bool isCut);

    osg::observer_ptr<osg::Camera> m_owner; ///< the main camera, which this is a callback of
    osg::ref_ptr<KrLabelCamera> m_camera;
    osg::ref_ptr<osgUtil::CullVisitor> m_visitor;
    osg::ref_ptr<osgUtil::StateGraph> m_graph;
    osg::ref_ptr<osgUtil::RenderStage> m_stage;
    osg::ref_ptr<osg::RefMatrix> m_projection;
    osg::ref_ptr<osg::RefMatrix> m_view;
    osg::ref_ptr<osg::Viewport> m_viewport;
    osg::ref_ptr<osg::FrameBufferObject> m_target; ///< null before the first pass
    int m_width = 0;
    int m_height = 0;
    Content m_content = Content::Labels; ///< of the target
    osg::ref_ptr<osg::Scissor> m_scissor;
    osg::ref_ptr<osg::StateSet> m_cut; ///< where less than the target is drawn
    osg::ref_ptr<osg::StateSet> m_labelStates;
    osg::ref_ptr<osg::StateSet> m_normalStates;
    osg::ref_ptr<osg::StateSet> m_bitStates;
};
