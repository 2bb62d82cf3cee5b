#include <toolkit/foundation/KrGL.h>

#include <GL/gl.h>

#include <cstdint>

unsigned int KrGL::powerOf2(unsigned int value)
{
    // 2^31 is the greatest power that fits; larger values get it too, instead of an endless loop.
    constexpr std::uint32_t kHighest = 0x80000000u;
    std::uint32_t power = 1;
    while (power < value && power < kHighest) {
        power <<= 1;
    }
    return power;
}

unsigned int KrGL::pixelFormat(unsigned int channels)
{
    // The formats of 1 and 2 channels are those of the fixed pipeline: grey, and grey with alpha.
    switch (channels) {
    case 1:
        return GL_LUMINANCE;
    case 2:
        return GL_LUMINANCE_ALPHA;
    case 3:
        return GL_RGB;
    default:
        return GL_RGBA;
    }
}
