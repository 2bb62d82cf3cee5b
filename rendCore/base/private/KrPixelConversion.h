#pragma once

#include <cstddef>
#include <cstdint>

/// What drivers hand out becomes what callers are told to get: loops over all pixels of a picture, written so that
/// compilers make vector instructions of them. Inputs and outputs do not overlap. For use inside the library.
namespace KrPixelConversion
{

/// Leaves the opacity out of `count` pixels of four bytes.
void toRgb(const unsigned char* rgba, std::size_t count, unsigned char* rgb);

/// Depths of `bits` bits, 1 to 32, in the leading bits of 32: the driver fills the others as it likes, with zeros or by
/// repeating them. All ones is the far plane.
struct DepthBits
{
    unsigned int bits;

    std::uint32_t farthest() const { return 0xFFFFFFFFu >> (32 - bits); }
};

/// Depths as numbers: 0 at the near plane, 1 at the far plane.
void toFractions(const std::uint32_t* depths, std::size_t count, DepthBits kind, float* fractions);

/// From window depth to metres: with e = 2 d - 1 of a depth d in [0, 1] the depth is (b - d e) / (a - c e), for a
/// projection z' = a z + b, w' = c z + d (OpenGL 2.1, sections 2.11.1 and 2.11.2).
struct DepthTerms
{
    double a;
    double b;
    double c;
    double d;
};

/// A row of `count` depths in metres, `background` at the far plane. Where `squares` is not null each is multiplied by
/// the length of its ray for a metre of depth, sqrt(squares[i] + rowSquare).
void toMetres(const std::uint32_t* depths, std::size_t count, DepthBits kind, const DepthTerms& terms, float background,
              const double* squares, double rowSquare, float* metres);

/// Pixels of labels and normals are two numbers, of 64 bits in all, the lowest first: 19 of a label, 0 where nothing
/// is; 13 of z, the lower ones; 15 of x; 15 of y; 2 of z, the upper ones. Each of the three is 16384 + 16383 c of a
/// component c of a vector that need not be of length 1: it was interpolated between such. Its direction is within 6e-5
/// rad where the length is at least a half.
constexpr std::uint32_t kLargestLabel = (1u << 19) - 1;

/// The labels of those.
void toLabels(const std::uint32_t* pixels, std::size_t count, std::uint32_t* labels);

/// A row of pixels as the eye sees it: where the eye is from the first one, in any length, and what changes from one
/// pixel to the next.
struct TowardsEye
{
    float first[3];
    float step[3];
};
/// The unit vectors of those, turned to the eye, as row vectors times a rotation of 3 x 3; 0, 0, 0 where nothing is.
void toNormals(const std::uint32_t* pixels, std::size_t count, const TowardsEye& eye, const float rotation[9],
               float* normals);

/// Of depths other than `far`: the least and the largest; `far` and 0 where there is none.
struct DepthRange
{
    std::uint32_t least;
    std::uint32_t largest;
};
DepthRange rangeOf(const std::uint32_t* depths, std::size_t count, std::uint32_t far);

/// Bytes from 0 at the least depth to 255 just before the largest one, which becomes 0 as `far` does.
void toGrey(const std::uint32_t* depths, std::size_t count, std::uint32_t far, const DepthRange& range,
            unsigned char* grey);

} // namespace KrPixelConversion
