#pragma once

#include <osg/BlendFunc>
#include <osg/CullFace>
#include <osg/Depth>
#include <osg/Drawable>
#include <osg/Matrixd>
#include <osg/Texture2D>
#include <osg/Uniform>
#include <osg/buffered_value>
#include <osg/ref_ptr>

#include <mutex>

/// Draws a plume's box over what stands in the framebuffer, each ray ending at the solid in front of it.
///
/// Belongs to one box, whose front faces look inwards and which is drawn with the plume program and after the solids.
/// Hands the depth that was drawn so far to the program as a texture, draws the inner faces without a depth test, so
/// that the eye may be inside, and blends by premultiplied alpha. The plume writes no depth. Where depth cannot be
/// copied (a framebuffer object with several samples a pixel, one without depth), the box is depth-tested instead: a
/// solid in front of its far faces then hides the plume. What it changes of OpenGL's state it tells the osg::State.
/// The first draw warns of a field with more cells along an axis than a texture of its context may have.
class KrPlumeDrawCallback : public osg::Drawable::DrawCallback
{
public:
    /// @param placement  frame of the box to that of its node; a rigid motion
    explicit KrPlumeDrawCallback(const osg::Matrixd& placement);

    void drawImplementation(osg::RenderInfo& renderInfo, const osg::Drawable* drawable) const override;

protected:
    ~KrPlumeDrawCallback() override = default;

private:
    /// The framebuffer's part that is drawn to, pixels.
    struct Area
    {
        int x = 0;
        int y = 0;
        int width = 0;
        int height = 0;
    };
    void checkSize(const osg::State& state) const;
    void drawBox(osg::RenderInfo& renderInfo, const osg::Drawable& box) const;
    bool copyDepth(osg::State& state, const Area& area) const;
    osg::Texture2D& depthTexture(unsigned int contextId, const Area& area) const;
    void setUniforms(const osg::State& state, const Area& area, bool hasDepth) const;

    osg::Matrixd m_placement;
    bool m_isPlaced = false; ///< not at the identity
    osg::ref_ptr<osg::BlendFunc> m_blending;
    osg::ref_ptr<osg::CullFace> m_culling;
    osg::ref_ptr<osg::Depth> m_depthWriting; ///< none
    osg::ref_ptr<osg::Uniform> m_depthUnit;
    osg::ref_ptr<osg::Uniform> m_depthArea;
    osg::ref_ptr<osg::Uniform> m_alpha;
    /// One a context, as large as the largest area drawn there so far.
    mutable osg::buffered_object<osg::ref_ptr<osg::Texture2D>> m_depths;
    mutable std::once_flag m_sizeCheck;
};
