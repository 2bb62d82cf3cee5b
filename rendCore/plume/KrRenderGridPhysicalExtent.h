#pragma once

#include <toolkit/grid/KrGridPhysicalExtent.h>
#include <toolkit/math/KrXmlVectorVector.h>

#include <osg/Geode>
#include <osg/Texture1D>

/// Turns a scalar field on a grid into a node that is drawn by ray casting on the graphics processor.
///
/// The node's box blends over what was drawn before it and ends its rays at the solids among that
/// (KrPlumeDrawCallback). The node itself asks for no order: `drawAfterSolids` does.
///
/// The shaders are the files "krPlumeShader.vert" and "krPlumeShader.frag" in the folder
/// software/render/src/rendCore below the one that the environment variable KR_TOOLKITS names. Static operations only.
class KrRenderGridPhysicalExtent
{
public:
    /// A box that covers the grid, with its textures, uniforms and program. Its vertices are in the grid's own frame;
    /// it is drawn, and bounded, at the grid's placement. A shader file that cannot be read costs one message and that
    /// shader, scaled values beyond 65504, which the texture holds as infinite ones, one message.
    /// @param grid  read during the call only; may be null
    /// @return a new node without references, which the caller takes; null for a null grid and, after one message, when
    ///         KR_TOOLKITS is not set
    static osg::Geode* init(const KrGridPhysicalExtent* grid);

    /// Has the boxes of `plume`, a node from `init` or a shallow copy of one, drawn after all solids, in order of
    /// distance with what else is transparent. The boxes' own state sets carry it, not the node's.
    static void drawAfterSolids(osg::Geode& plume);

    /// One texel (RGB, a byte each) for each colour of `lut`; 256 black ones when it is empty. A component is
    /// multiplied by 255 and truncated; its low byte is kept.
    /// @return a new texture without references, which the caller takes
    static osg::Texture1D* createLUTTexture(const KrXmlVectorVector& lut);

    /// Draws and judges in windows of its own, see KrSelfTest. False, after one message, when something is wrong.
    static bool selfTest();
};
