#include <rendCore/draw/private/KrFacePlanes.h>

#include <osg/BoundingBox>

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace
{

/// How far a corner of a triangle may come to lie from its longest side by rounding, pixels: drivers round to 1/256 or
/// finer, which moves each of them by up to 1/362; with as much once more for their arithmetic.
constexpr double kRounding = 1.0 / 90.0;

double lengthOfColumn(const osg::Matrixd& matrix, int column)
{
    return osg::Vec3d(matrix(0, column), matrix(1, column), matrix(2, column)).length();
}

} // namespace

template <typename Index>
KrFacePlanes::KrFacePlanes(const osg::Vec3* vertices, const Index* indices, std::size_t count)
    : m_count(count)
    , m_blocks((count / 3 + kBlock - 1) / kBlock, Block())
{
    osg::BoundingBoxd box;
    std::for_each(indices, indices + count, [&](Index index) { box.expandBy(osg::Vec3d(vertices[index])); });
    m_center = box.center();
    m_radius = box.radius();
    for (std::size_t t = 0; t < count / 3; ++t) {
        const osg::Vec3d a = osg::Vec3d(vertices[indices[3 * t]]) - m_center;
        const osg::Vec3d b = osg::Vec3d(vertices[indices[3 * t + 1]]) - m_center;
        const osg::Vec3d c = osg::Vec3d(vertices[indices[3 * t + 2]]) - m_center;
        const double longest = std::sqrt(std::max({(b - a).length2(), (c - b).length2(), (a - c).length2()}));
        // Without an area a triangle is neither, and taken along.
        const osg::Vec3d normal = longest > 0.0 ? ((b - a) ^ (c - a)) / longest : osg::Vec3d();
        Block& block = m_blocks[t / kBlock];
        block.x[t % kBlock] = static_cast<float>(normal.x());
        block.y[t % kBlock] = static_cast<float>(normal.y());
        block.z[t % kBlock] = static_cast<float>(normal.z());
        block.offset[t % kBlock] = static_cast<float>(-(normal * a));
        m_highest = std::max(m_highest, normal.length());
    }
}

/// The area of a triangle in the window has the sign of the determinant of its corners' clip coordinates x, y and w.
/// By the formula of Cauchy and Binet that is the product of the triangle's plane with what three columns of the matrix
/// have in common: an eye, or the direction towards one, mirrored or not.
/// @return false where no triangle is wide enough to be a back for sure
bool KrFacePlanes::look(const osg::Matrixd& toClip, double width, double height, Eye& eye) const
{
    const osg::Matrixd m = osg::Matrixd::translate(m_center) * toClip;
    const auto minor = [&m](int a, int b, int c) {
        return m(a, 0) * (m(b, 1) * m(c, 3) - m(b, 3) * m(c, 1)) - m(a, 1) * (m(b, 0) * m(c, 3) - m(b, 3) * m(c, 0)) +
               m(a, 3) * (m(b, 0) * m(c, 1) - m(b, 1) * m(c, 0));
    };
    const osg::Vec3d direction(minor(1, 2, 3), -minor(0, 2, 3), minor(0, 1, 3));
    const double offset = -minor(0, 1, 2);
    // The most pixels that a metre has at w = 1, within the window, and the largest w.
    const double depthSlope = lengthOfColumn(m, 3);
    const double pixels =
        0.5 * std::hypot(width * (lengthOfColumn(m, 0) + depthSlope), height * (lengthOfColumn(m, 1) + depthSlope));
    const double farthest = std::abs(m(3, 3)) + depthSlope * m_radius;
    const double limit = kRounding * pixels * farthest * farthest / (0.25 * width * height);
    const double largest = m_highest * (direction.length() + std::abs(offset) * m_radius);
    // Written so that it holds for NaN as well.
    if (!(limit < largest) || !std::isfinite(largest)) {
        return false;
    }
    // A common factor changes no sign, and keeps single precision from its ends.
    const double scale =
        1.0 / std::max({std::abs(direction.x()), std::abs(direction.y()), std::abs(direction.z()), std::abs(offset)});
    eye = {static_cast<float>(scale * direction.x()), static_cast<float>(scale * direction.y()),
           static_cast<float>(scale * direction.z()), static_cast<float>(scale * offset),
           static_cast<float>(-scale * limit)};
    return true;
}

template <typename Index>
std::size_t KrFacePlanes::copyFronts(const Index* indices, const osg::Matrixd& toClip, double width, double height,
                                     Index* fronts) const
{
    Eye eye = {};
    if (!look(toClip, width, height, eye)) {
        return m_count;
    }
    Index* end = fronts;
    const Index* const last = indices + m_count / 3 * 3;
    for (const Block& block : m_blocks) {
        float sides[kBlock];
        for (std::size_t i = 0; i < kBlock; ++i) {
            sides[i] = block.x[i] * eye.x + block.y[i] * eye.y + block.z[i] * eye.z + block.offset[i] * eye.offset;
        }
        const auto count = std::min(kBlock, static_cast<std::size_t>(last - indices) / 3);
        // Without a branch, which nobody could foresee.
        for (std::size_t i = 0; i < count; ++i, indices += 3) {
            std::copy_n(indices, 3, end);
            end += sides[i] < eye.limit ? 0 : 3;
        }
    }
    return static_cast<std::size_t>(end - fronts);
}

template KrFacePlanes::KrFacePlanes(const osg::Vec3*, const std::uint16_t*, std::size_t);
template KrFacePlanes::KrFacePlanes(const osg::Vec3*, const std::uint32_t*, std::size_t);
template std::size_t KrFacePlanes::copyFronts(const std::uint16_t*, const osg::Matrixd&, double, double,
                                              std::uint16_t*) const;
template std::size_t KrFacePlanes::copyFronts(const std::uint32_t*, const osg::Matrixd&, double, double,
                                              std::uint32_t*) const;
