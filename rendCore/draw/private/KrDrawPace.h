#pragma once

#include <osg/GLExtensions>
#include <osg/Referenced>
#include <osg/ref_ptr>

#include <array>
#include <cstddef>

/// Keeps a driver that draws with the processor from putting off much work, which costs memory.
///
/// Such a driver sorts triangles into tiles of the picture and fills these later, several hundred bytes for each
/// triangle on the way. Handed over in portions, of which few are on their way at a time, they need memory for these
/// only, and filling begins with the first. A graphics card is given commands, not triangles, and needs none of this.
///
/// One for each context, by `osg::State::get`, with which it goes. The context is current in every call.
class KrDrawPace : public osg::Referenced
{
public:
    /// Corners of triangles in a portion: few, so that filling keeps up with what is handed over and little is left to
    /// be filled at the end of a frame; a quarter of them costs two per cent more.
    static constexpr std::size_t kPortion = 12288;
    /// Portions on their way, at the most.
    static constexpr std::size_t kMostPortions = 4;

    /// As `osg::State::get` asks for; the number of the context is not needed.
    explicit KrDrawPace(unsigned int /*contextID*/) {}

    /// After a call that draws so many corners of triangles.
    void handOver(const osg::GLExtensions& gl, std::size_t numCorners);
    /// Waits for nothing any more, and leaves nothing behind in the context, which may be a client's.
    void release();

protected:
    /// What has not been released goes with the context.
    ~KrDrawPace() override = default;

private:
    void endPortion(const osg::GLExtensions& gl);

    std::size_t m_numCorners = 0;               ///< of the portion at hand
    osg::ref_ptr<const osg::GLExtensions> m_gl; ///< that made the portions; null before the first one
    std::array<GLsync, kMostPortions> m_portions = {};
    std::size_t m_oldest = 0; ///< of the portions; null before there are so many
};
