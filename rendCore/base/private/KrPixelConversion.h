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

/// The first of the `words` numbers of each of `count` pixels.
void toLabels(const std::uint32_t* pixels, std::size_t count, std::size_t words, std::uint32_t* labels);

/// Unit vectors of pixels of two numbers: the first is 0 where there is none, the second has two numbers u and v of 16
/// bits, u in the lower ones. x = (u - 32768) / 32767 and y likewise are a place on an octahedron |x| + |y| + |z| = 1
/// whose half of negative z is folded out: there x and y are (1 - |y|) sign(x) and (1 - |x|) sign(y). The result is
/// within 5e-5 rad, and is multiplied, as a row vector, by a rotation of 3 x 3. 0, 0, 0 where there is none.
void toNormals(const std::uint32_t* pixels, std::size_t count, const float rotation[9], float* normals);

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
