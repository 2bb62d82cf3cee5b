#include <rendCore/base/private/KrPixelConversion.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace
{

// In pixels. What a robot leaves free of a picture is seen before anything is computed, and what is computed on the way
// stays in the first cache.
constexpr std::size_t kBlock = 64;

#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
constexpr bool kIsLittleEndian = true;
#else
constexpr bool kIsLittleEndian = false;
#endif

/// Exactly. There is no vector instruction for it in the oldest processors of this kind: the number becomes the low
/// digits of 2^52, which is subtracted again.
double toDouble(std::uint32_t number)
{
    const std::uint64_t bits = 0x4330000000000000u | number;
    double value = 0.0;
    std::memcpy(&value, &bits, sizeof value);
    return value - 4503599627370496.0;
}

/// number / (2^bits - 1), as a division rounds it, without one: 1 / (2^n - 1) = 2^-n + 1 / (2^n (2^n - 1)). The first
/// product is exact, and the second is so small that its rounding does not reach the sum's: tried with every number of
/// 16, 24 and 32 bits.
struct Fraction
{
    explicit Fraction(KrPixelConversion::DepthBits kind)
        : main(std::ldexp(1.0, -static_cast<int>(kind.bits)))
        , rest(main / toDouble(kind.farthest()))
    {
    }
    double of(double number) const { return number * main + number * rest; }

    double main;
    double rest;
};

bool areAllFarthest(const std::uint32_t* depths, std::size_t count, unsigned int unused, std::uint32_t farthest)
{
    std::uint32_t difference = 0;
    for (std::size_t i = 0; i < count; ++i) {
        difference |= (depths[i] >> unused) ^ farthest;
    }
    return difference == 0;
}

} // namespace

void KrPixelConversion::toRgb(const unsigned char* rgba, std::size_t count, unsigned char* rgb)
{
    std::size_t i = 0;
    if (kIsLittleEndian) {
        // Two pixels at a time; two bytes more are written than there are, which the next ones overwrite.
        for (; i + 4 <= count; i += 2) {
            std::uint64_t pixels = 0;
            std::memcpy(&pixels, rgba + 4 * i, 8);
            const std::uint64_t packed = (pixels & 0xFFFFFFu) | ((pixels >> 8) & 0xFFFFFF000000u);
            std::memcpy(rgb + 3 * i, &packed, 8);
        }
    }
    for (; i < count; ++i) {
        std::memcpy(rgb + 3 * i, rgba + 4 * i, 3);
    }
}

void KrPixelConversion::toFractions(const std::uint32_t* depths, std::size_t count, DepthBits kind, float* fractions)
{
    const unsigned int unused = 32 - kind.bits;
    const Fraction fraction(kind);
    for (std::size_t i = 0; i < count; ++i) {
        fractions[i] = static_cast<float>(fraction.of(toDouble(depths[i] >> unused)));
    }
}

void KrPixelConversion::toMetres(const std::uint32_t* depths, std::size_t count, DepthBits kind,
                                 const DepthTerms& terms, float background, const double* squares, double rowSquare,
                                 float* metres)
{
    const unsigned int unused = 32 - kind.bits;
    const std::uint32_t farthest = kind.farthest();
    const Fraction fraction(kind);
    const DepthTerms t = terms; // not read again for every pixel
    double values[kBlock];
    for (std::size_t first = 0; first < count; first += kBlock) {
        const std::size_t size = std::min(kBlock, count - first);
        const std::uint32_t* const in = depths + first;
        float* const out = metres + first;
        if (areAllFarthest(in, size, unused, farthest)) {
            std::fill_n(out, size, background);
            continue;
        }
        for (std::size_t i = 0; i < size; ++i) {
            const double e = 2.0 * fraction.of(toDouble(in[i] >> unused)) - 1.0;
            values[i] = (t.b - t.d * e) / (t.a - t.c * e);
        }
        if (squares) {
            for (std::size_t i = 0; i < size; ++i) {
                values[i] *= std::sqrt(squares[first + i] + rowSquare);
            }
        }
        for (std::size_t i = 0; i < size; ++i) {
            const float value = static_cast<float>(values[i]);
            out[i] = in[i] >> unused == farthest ? background : value;
        }
    }
}

void KrPixelConversion::toLabels(const std::uint32_t* pixels, std::size_t count, std::uint32_t* labels)
{
    for (std::size_t i = 0; i < count; ++i) {
        labels[i] = pixels[2 * i] & kLargestLabel;
    }
}

void KrPixelConversion::toNormals(const std::uint32_t* pixels, std::size_t count, const TowardsEye& eye,
                                  const float rotation[9], float* normals)
{
    float m[9];
    std::copy_n(rotation, 9, m); // which writing normals cannot change
    const TowardsEye e = eye;
    for (std::size_t begin = 0; begin < count; begin += kBlock) {
        const std::size_t size = std::min(kBlock, count - begin);
        const std::uint32_t* const block = pixels + 2 * begin;
        float* const out = normals + 3 * begin;
        std::uint32_t any = 0;
        for (std::size_t i = 0; i < size; ++i) {
            any |= block[2 * i];
        }
        if (any == 0) {
            std::fill_n(out, 3 * size, 0.0f);
            continue;
        }
        float x[kBlock];
        float y[kBlock];
        float z[kBlock];
        for (std::size_t i = 0; i < size; ++i) {
            const std::uint32_t low = block[2 * i];
            const std::uint32_t high = block[2 * i + 1];
            const float column = static_cast<float>(static_cast<std::int32_t>(begin + i));
            const float ex = e.first[0] + column * e.step[0];
            const float ey = e.first[1] + column * e.step[1];
            const float ez = e.first[2] + column * e.step[2];
            float nx = static_cast<float>(static_cast<std::int32_t>(high & 0x7FFFu) - 16384);
            float ny = static_cast<float>(static_cast<std::int32_t>(high >> 15 & 0x7FFFu) - 16384);
            float nz = static_cast<float>(static_cast<std::int32_t>(low >> 19 | high >> 30 << 13) - 16384);
            const float square = nx * nx + ny * ny + nz * nz;
            // A surface without normals looks to the eye.
            const bool isNone = square < 1.0f;
            nx = isNone ? ex : nx;
            ny = isNone ? ey : ny;
            nz = isNone ? ez : nz;
            const float length = std::sqrt(nx * nx + ny * ny + nz * nz);
            const float turn = nx * ex + ny * ey + nz * ez < 0.0f ? -1.0f : 1.0f;
            const float scale = (low & kLargestLabel) == 0 ? 0.0f : turn / length;
            x[i] = nx * scale;
            y[i] = ny * scale;
            z[i] = nz * scale;
        }
        for (std::size_t i = 0; i < size; ++i) {
            for (std::size_t j = 0; j < 3; ++j) {
                out[3 * i + j] = x[i] * m[j] + y[i] * m[3 + j] + z[i] * m[6 + j];
            }
        }
    }
}

KrPixelConversion::DepthRange KrPixelConversion::rangeOf(const std::uint32_t* depths, std::size_t count,
                                                         std::uint32_t far)
{
    std::uint32_t least = far;
    std::uint32_t largest = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t depth = depths[i];
        // `far` itself is never below what this began with.
        least = depth < least ? depth : least;
        // As a mask: compilers make a jump of a choice, and jumps are no vectors.
        const std::uint32_t drawn = depth & (0u - static_cast<std::uint32_t>(depth != far));
        largest = drawn > largest ? drawn : largest;
    }
    return {least, largest};
}

void KrPixelConversion::toGrey(const std::uint32_t* depths, std::size_t count, std::uint32_t far,
                               const DepthRange& range, unsigned char* grey)
{
    // Where every drawn depth is the same, 0 / 0 would be no number, whose byte is 0.
    const std::uint32_t least = range.least;
    const std::uint32_t span = range.largest - least;
    if (span == 0) {
        std::fill_n(grey, count, static_cast<unsigned char>(0));
        return;
    }
    const double divisor = toDouble(span);
    std::int32_t values[kBlock];
    for (std::size_t first = 0; first < count; first += kBlock) {
        const std::size_t size = std::min(kBlock, count - first);
        const std::uint32_t* const in = depths + first;
        if (areAllFarthest(in, size, 0, far)) {
            std::fill_n(grey + first, size, static_cast<unsigned char>(0));
            continue;
        }
        for (std::size_t i = 0; i < size; ++i) {
            // Only `far`, which does not stay, may be beyond 256: an integer has to hold it all the same.
            const double value = toDouble(in[i] - least) / divisor * 256.0;
            values[i] = static_cast<std::int32_t>(std::min(value, 256.0));
        }
        for (std::size_t i = 0; i < size; ++i) {
            grey[first + i] = in[i] == far ? 0 : static_cast<unsigned char>(values[i]);
        }
    }
}
