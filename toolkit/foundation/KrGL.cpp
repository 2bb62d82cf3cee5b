#include <toolkit/foundation/KrGL.h>

#include <cstdint>

unsigned int KrGL::powerOf2(unsigned int value)
{
    constexpr std::uint32_t kHighest = 0x80000000u;
    std::uint32_t power = 1;
    while (power < value && power < kHighest) {
        power <<= 1;
    }
    return power;
}
