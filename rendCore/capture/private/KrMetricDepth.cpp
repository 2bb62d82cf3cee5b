#include <rendCore/capture/private/KrMetricDepth.h>

#include <rendCore/base/private/KrPixelConversion.h>

#include <algorithm>
#include <cmath>

namespace
{

constexpr double kSinglePrecision = 1.0 / 16777216.0; // 2^-24: half a step of a float just above 1
constexpr double kDriverSteps = 12.0;                 // of it, lost in transforming and interpolating a depth

/// Depth to clip coordinates, as precise as the driver is given them.
KrPixelConversion::DepthTerms termsOf(const osg::Matrixd& projection)
{
    const auto single = [&projection](int row, int column) {
        return double{static_cast<float>(projection(row, column))};
    };
    return {single(2, 2), single(3, 2), single(2, 3), single(3, 3)};
}

/// The slopes of the rays through a perspective picture's pixels, to the right and up for each metre of depth. Borrows
/// the projection.
struct RaySlopes
{
    RaySlopes(const osg::Matrixd& projection, unsigned int width, unsigned int height)
        : p(projection)
        , determinant(p(0, 0) * p(1, 1) - p(0, 1) * p(1, 0))
        , xStep(2.0 / width)
        , yStep(2.0 / height)
    {
    }
    /// Rows and columns by themselves: the picture's sides are the eye's, as in every camera that is not composed.
    bool isSeparate() const { return p(0, 1) == 0.0 && p(1, 0) == 0.0; }
    /// Of the middle of a pixel. Where it is separate the row does not matter, or the column.
    double right(unsigned int column, unsigned int row) const
    {
        return (x(column) * p(1, 1) - y(row) * p(1, 0)) / determinant;
    }
    double up(unsigned int column, unsigned int row) const
    {
        return (y(row) * p(0, 0) - x(column) * p(0, 1)) / determinant;
    }

    // x' = x p00 + y p10 + z p20 and w' = z p23, for z = -1, in [-1, 1] over the picture.
    double x(unsigned int column) const { return -((column + 0.5) * xStep - 1.0) * p(2, 3) + p(2, 0); }
    double y(unsigned int row) const { return -((row + 0.5) * yStep - 1.0) * p(2, 3) + p(2, 1); }

    const osg::Matrixd& p;
    double determinant;
    double xStep;
    double yStep;
};

} // namespace

bool KrMetricDepth::isSupported(const osg::Matrixd& p)
{
    // Exact comparisons: these are zeros that nothing was added to, in every projection that
    // is built and not composed.
    const bool isSeparate = p(0, 2) == 0.0 && p(1, 2) == 0.0 && p(0, 3) == 0.0 && p(1, 3) == 0.0;
    const bool isCentral = p(3, 0) == 0.0 && p(3, 1) == 0.0 && p(3, 3) == 0.0;
    // The last two: depth can be told from z' / w', and x and y from x' and y'.
    return isSeparate && (isCentral || p(2, 3) == 0.0) && p(2, 2) * p(3, 3) != p(3, 2) * p(2, 3) &&
           p(0, 0) * p(1, 1) != p(0, 1) * p(1, 0);
}

void KrMetricDepth::convert(const Picture& picture, const std::uint32_t* values, float* bottom, std::ptrdiff_t step)
{
    const KrPixelConversion::DepthBits kind = {picture.bits};
    const KrPixelConversion::DepthTerms terms = termsOf(picture.projection);
    const RaySlopes rays(picture.projection, picture.width, picture.height);
    // Parallel rays have p(2, 3) = 0 and are as long as they are deep.
    const bool isSlanted = picture.kind == KrDepthCapture::Kind::Euclidean && picture.projection(2, 3) != 0.0;
    const bool isSeparate = rays.isSeparate();
    if (isSlanted) {
        m_raySquares.resize(picture.width);
    }
    for (unsigned int row = 0; row < picture.height; ++row) {
        // The length's square is 1 + right^2 + up^2: the first two once, where all rows have them alike.
        for (unsigned int column = 0; isSlanted && (row == 0 || !isSeparate) && column < picture.width; ++column) {
            const double right = rays.right(column, row);
            const double up = isSeparate ? 0.0 : rays.up(column, row);
            m_raySquares[column] = 1.0 + right * right + up * up;
        }
        const double up = isSlanted && isSeparate ? rays.up(0, row) : 0.0;
        KrPixelConversion::toMetres(values + std::size_t(row) * picture.width, picture.width, kind, terms,
                                    picture.background, isSlanted ? m_raySquares.data() : nullptr, up * up,
                                    bottom + static_cast<std::ptrdiff_t>(row) * step);
    }
}

double KrMetricDepth::errorBound(double depth, const Picture& picture, double levelOfDetail)
{
    if (picture.bits == 0) {
        return std::numeric_limits<double>::infinity();
    }
    const osg::Matrixd& projection = picture.projection;
    const KrPixelConversion::DepthTerms terms = termsOf(projection);
    const double w = terms.d - terms.c * depth;
    // How far the depth moves for the whole range of the depth buffer, at this depth's rate.
    const double rate = 2.0 * w * w / std::abs(terms.a * terms.d - terms.b * terms.c);
    // Of simplified meshes: what a pixel is wide at this depth, or anywhere where rays are parallel.
    const double pixels =
        0.5 * std::max(picture.width * std::abs(projection(0, 0)), picture.height * std::abs(projection(1, 1)));
    const double width = levelOfDetail > 0.0 ? (projection(3, 3) == 0.0 ? std::abs(depth) : 1.0) / pixels : 0.0;
    return levelOfDetail * width +
           rate * (0.5 * std::ldexp(1.0, -static_cast<int>(picture.bits)) + kDriverSteps * kSinglePrecision) +
           std::abs(depth) * kSinglePrecision;
}
