#pragma once

#include <array>
#include <cstddef>

namespace osg
{
class GLExtensions;
}

/// While it lives, pixels pass between the current context and memory as they are: rows follow one another without
/// gaps, bytes keep their order, values their scale. When it goes, all is as it was before.
///
/// A client's callback may have left anything set: a skipped row alone would let the driver write behind the memory
/// that it is given. Everything that moves pixels stands inside one of these. For use inside the library.
class KrPixelTransferGuard
{
public:
    /// Binds a buffer that pixels are packed into, or none, and puts the one before back.
    class PackBuffer
    {
    public:
        /// @param buffer  0: pixels go into memory
        PackBuffer(const osg::GLExtensions& gl, unsigned int buffer);
        ~PackBuffer();
        PackBuffer(const PackBuffer&) = delete;
        PackBuffer& operator=(const PackBuffer&) = delete;

    private:
        const osg::GLExtensions& m_gl;
        unsigned int m_buffer;
        unsigned int m_before = 0;
    };

    /// @param gl          of the current context
    /// @param alignment   of the rows' beginnings, bytes: 1, 2, 4 or 8
    /// @param packBuffer  what is read goes into it; 0: into memory
    explicit KrPixelTransferGuard(const osg::GLExtensions& gl, int alignment = 1, unsigned int packBuffer = 0);
    ~KrPixelTransferGuard();
    /// Has textures read from the memory that they are given, as in a new context. The scene graph sees to alignment
    /// and row length alone; it is for the beginning of a frame, and puts nothing back.
    static void resetUnpacking(const osg::GLExtensions& gl);
    KrPixelTransferGuard(const KrPixelTransferGuard&) = delete;
    KrPixelTransferGuard& operator=(const KrPixelTransferGuard&) = delete;

private:
    static constexpr std::size_t kNumStores = 16;
    static constexpr std::size_t kNumTransfers = 11;

    const osg::GLExtensions& m_gl;
    PackBuffer m_packBuffer;
    unsigned int m_unpackBuffer = 0;
    std::array<int, kNumStores> m_stores{};
    std::array<float, kNumTransfers> m_transfers{};
    int m_alignment;
};
