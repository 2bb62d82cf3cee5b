#include <toolkit/extent/KrEnclosingShapes.h>

#include <toolkit/extent/KrBoxPhysicalExtent.h>
#include <toolkit/extent/KrCapsulePhysicalExtent.h>
#include <toolkit/extent/KrSpherePhysicalExtent.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/extent/private/KrConvexHull.h>
#include <toolkit/extent/private/KrPrimitiveMesh.h>
#include <toolkit/math/KrAngle.h>
#include <toolkit/math/KrColor.h>

#include <Eigen/Eigenvalues>

#include <boost/make_shared.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace
{

using ExtentPointer = boost::shared_ptr<KrBasePhysicalExtent>;
using Axes = std::array<KrVector, 3>;

using Kr::Angle::kPi;
/// Added to every size, as a part of the diagonal, so that rounding puts no point outside; a flat mesh gets a body.
constexpr double kSlack = 0.5 * KrEnclosingShapes::kTolerance;

/// A ball fits into the triangles of a ball that is so much larger: 1 / cos(pi / 32)^2, their edges spanning angles of
/// pi / 16.
constexpr double kCircumscribed = 1.0098;

boost::shared_ptr<KrTriPhysicalExtent> trianglesAround(const KrBoxPhysicalExtent& box)
{
    return KrPrimitiveMesh::box(box.size(), KrEnclosingShapes::materialName());
}
boost::shared_ptr<KrTriPhysicalExtent> trianglesAround(const KrSpherePhysicalExtent& sphere)
{
    const double radius = kCircumscribed * sphere.radius();
    return KrPrimitiveMesh::ellipsoid(KrVector(radius, radius, radius), KrEnclosingShapes::materialName());
}
boost::shared_ptr<KrTriPhysicalExtent> trianglesAround(const KrCapsulePhysicalExtent& capsule)
{
    return KrPrimitiveMesh::capsule(kCircumscribed * capsule.radius(), capsule.length(),
                                    KrEnclosingShapes::materialName());
}

/// A solid whose triangles enclose what it encloses, and have the look of what is computed.
/// Looks like the solid in documents and to users; only its triangles are larger.
template <typename Solid>
class Enclosing : public Solid
{
public:
    using Solid::Solid;
    KrXmlObject* clone() const override { return new Enclosing(*this); }

protected:
    boost::shared_ptr<KrTriPhysicalExtent> makeTriangles() const override
    {
        const boost::shared_ptr<KrTriPhysicalExtent> mesh = trianglesAround(*this);
        if (mesh) {
            mesh->setMaterial(KrEnclosingShapes::materialName(), KrEnclosingShapes::look());
        }
        return mesh;
    }
};

/// A box along any three axes at right angles, as it is fitted to points.
struct OrientedBox
{
    Axes axes = {KrVector(1, 0, 0), KrVector(0, 1, 0), KrVector(0, 0, 1)};
    double low[3];
    double high[3];

    void fit(const std::vector<KrVector>& points)
    {
        // Empty at first: the first point sets both ends.
        std::fill(low, low + 3, std::numeric_limits<double>::infinity());
        std::fill(high, high + 3, -std::numeric_limits<double>::infinity());
        for (const KrVector& point : points) {
            for (unsigned int i = 0; i < 3; ++i) {
                const double along = point.dot(axes[i]);
                low[i] = std::min(low[i], along);
                high[i] = std::max(high[i], along);
            }
        }
    }
    double size(unsigned int i) const { return high[i] - low[i]; }
    double diagonal() const { return KrVector(size(0), size(1), size(2)).length(); }
    // What boxes are compared by.
    double volume() const { return size(0) * size(1) * size(2); }
    KrVector center() const
    {
        return axes[0] * (0.5 * (low[0] + high[0])) + axes[1] * (0.5 * (low[1] + high[1])) +
               axes[2] * (0.5 * (low[2] + high[2]));
    }
    // Of equal ones the first, so that the same mesh always gives the same shape.
    unsigned int longest() const
    {
        return size(0) >= size(1) ? (size(0) >= size(2) ? 0u : 2u) : (size(1) >= size(2) ? 1u : 2u);
    }
};

/// Makes `axes` the columns of the rotation, `center` the translation.
KrCoordinateSystemTransformation pose(const Axes& axes, const KrVector& center)
{
    KrCoordinateSystemTransformation result;
    result.setRotation({axes[0].x(), axes[1].x(), axes[2].x(), axes[0].y(), axes[1].y(), axes[2].y(), axes[0].z(),
                        axes[1].z(), axes[2].z()});
    result.setTranslation(center);
    return result;
}

// The slack is added at both ends.
ExtentPointer boxOf(const OrientedBox& fitted, double slack)
{
    const auto box = boost::make_shared<Enclosing<KrBoxPhysicalExtent>>(
        KrVector(fitted.size(0) + 2.0 * slack, fitted.size(1) + 2.0 * slack, fitted.size(2) + 2.0 * slack));
    box->setPlacement(pose(fitted.axes, fitted.center()));
    return box;
}

/// The principal axes of the surface: eigenvectors of its covariance, each triangle weighted with its area.
///
/// A triangle of area A and corners a, b, c with the centroid g has the second moment
/// A / 12 (a a' + b b' + c c' + 9 g g').
/// @param scale  makes the mesh about one unit large: moments grow with the fourth power of it
Axes principalAxes(const KrTriPhysicalExtent& mesh, const KrVector& origin, double scale)
{
    const auto eigen = [&](std::uint32_t index) {
        const KrVector p = (mesh.vertices()[index] - origin) * scale;
        return Eigen::Vector3d(p.x(), p.y(), p.z());
    };
    Eigen::Matrix3d moment = Eigen::Matrix3d::Zero();
    Eigen::Vector3d first = Eigen::Vector3d::Zero();
    double area = 0.0;
    for (const KrTriPhysicalExtent::Group& group : mesh.groups()) {
        for (const KrTriangle& triangle : group.second()) {
            const Eigen::Vector3d a = eigen(triangle.vertex(0));
            const Eigen::Vector3d b = eigen(triangle.vertex(1));
            const Eigen::Vector3d c = eigen(triangle.vertex(2));
            const Eigen::Vector3d g = (a + b + c) / 3.0;
            const double weight = 0.5 * (b - a).cross(c - a).norm();
            moment +=
                weight / 12.0 * (a * a.transpose() + b * b.transpose() + c * c.transpose() + 9.0 * g * g.transpose());
            first += weight * g;
            area += weight;
        }
    }
    // A mesh of lines alone has no area; then any axes will do.
    if (area > 0.0) {
        moment -= first * first.transpose() / area;
    }
    const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> solver(moment);
    const Eigen::Matrix3d& v = solver.eigenvectors();
    const KrVector x(v(0, 0), v(1, 0), v(2, 0));
    const KrVector y(v(0, 1), v(1, 1), v(2, 1));
    // The third one from the others: eigenvectors may be left-handed.
    return {x, y, x.cross(y)};
}

/// A ball about the outermost points in 13 directions, grown until it holds the others.
///
/// The directions are Larsson's ("Fast and tight fitting bounding spheres", 2008); the centre of their ball comes from
/// Badoiu and Clarkson's iteration: step i moves it a (i + 1)-th of the way to the farthest point.
/// Not the smallest ball, but close to it, in two passes over the points.
ExtentPointer sphereOf(const std::vector<KrVector>& points, const KrVector& start, double slack)
{
    constexpr unsigned int kNumDirections = 13;
    static const KrVector directions[kNumDirections] = {{1, 0, 0},  {0, 1, 0},   {0, 0, 1}, {1, 1, 1},  {1, 1, -1},
                                                        {1, -1, 1}, {1, -1, -1}, {1, 1, 0}, {1, -1, 0}, {1, 0, 1},
                                                        {1, 0, -1}, {0, 1, 1},   {0, 1, -1}};
    std::array<KrVector, 2 * kNumDirections> outermost;
    double least[kNumDirections];
    double most[kNumDirections];
    for (unsigned int i = 0; i < kNumDirections; ++i) {
        least[i] = std::numeric_limits<double>::infinity();
        most[i] = -least[i];
    }
    for (const KrVector& point : points) {
        for (unsigned int i = 0; i < kNumDirections; ++i) {
            const double along = point.dot(directions[i]);
            if (along < least[i]) {
                least[i] = along;
                outermost[2 * i] = point;
            }
            if (along > most[i]) {
                most[i] = along;
                outermost[2 * i + 1] = point;
            }
        }
    }

    KrVector center = start;
    constexpr unsigned int kSteps = 100;
    for (unsigned int step = 1; step <= kSteps; ++step) {
        const KrVector* farthest = &outermost[0];
        double mostSquared = -1.0;
        for (const KrVector& point : outermost) {
            const KrVector offset = point - center;
            const double squared = offset.dot(offset);
            if (squared > mostSquared) {
                mostSquared = squared;
                farthest = &point;
            }
        }
        center += (*farthest - center) * (1.0 / (step + 1));
    }
    double radius = 0.0;
    for (const KrVector& point : outermost) {
        radius = std::max(radius, (point - center).length());
    }
    for (const KrVector& point : points) { // Ritter's step: half way towards a point that is outside
        const KrVector offset = point - center;
        if (offset.dot(offset) > radius * radius) {
            const double distance = offset.length();
            const double grown = 0.5 * (radius + distance);
            center += offset * ((distance - grown) / distance);
            radius = grown;
        }
    }
    const auto sphere = boost::make_shared<Enclosing<KrSpherePhysicalExtent>>(radius + slack);
    KrCoordinateSystemTransformation placement;
    placement.setTranslation(center);
    sphere->setPlacement(placement);
    return sphere;
}

/// Along one direction; about the line through a point.
struct Capsule
{
    double radius = 0.0;
    double low = 0.0; ///< ends of the cylinder along the line, from the point
    double high = 0.0;

    /// A point at `t` along the line and `r` from it is inside when t - s <= high and t + s >= low, where
    /// s = sqrt(radius^2 - r^2) is the half length of a half ball's chord.
    void fit(const std::vector<KrVector>& points, const KrVector& center, const KrVector& axis)
    {
        const auto squaredDistance = [&](const KrVector& offset, double t) {
            return std::max(0.0, offset.dot(offset) - t * t);
        };
        double squaredRadius = 0.0;
        for (const KrVector& point : points) {
            const KrVector offset = point - center;
            squaredRadius = std::max(squaredRadius, squaredDistance(offset, offset.dot(axis)));
        }
        radius = std::sqrt(squaredRadius);
        low = std::numeric_limits<double>::infinity();
        high = -low;
        for (const KrVector& point : points) {
            const KrVector offset = point - center;
            const double t = offset.dot(axis);
            const double s = std::sqrt(std::max(0.0, squaredRadius - squaredDistance(offset, t)));
            low = std::min(low, t + s);
            high = std::max(high, t - s);
        }
        // The half balls meet: what is between them is no cylinder.
        if (high < low) { // one ball is enough
            low = high = 0.5 * (low + high);
        }
    }
    double volume() const { return kPi * radius * radius * (high - low + 4.0 / 3.0 * radius); }
};

/// The smaller of the best box and a capsule along that box's longest edge.
ExtentPointer capsuleOrBoxOf(const std::vector<KrVector>& points, const KrTriPhysicalExtent& mesh,
                             const OrientedBox& aligned, double slack)
{
    OrientedBox best;
    best.axes = principalAxes(mesh, aligned.center(), 1.0 / aligned.diagonal());
    best.fit(points);
    if (!(best.volume() < aligned.volume())) { // NaN, too
        best = aligned;
    }
    const unsigned int along = best.longest();
    const KrVector& axis = best.axes[along];
    Capsule capsule;
    capsule.fit(points, best.center(), axis);
    if (!(capsule.volume() < best.volume())) {
        return boxOf(best, slack);
    }
    const auto result =
        boost::make_shared<Enclosing<KrCapsulePhysicalExtent>>(capsule.radius + slack, capsule.high - capsule.low);
    // A capsule lies along its own z axis; the cyclic order keeps the axes right-handed.
    result->setPlacement(pose({best.axes[(along + 1) % 3], best.axes[(along + 2) % 3], axis},
                              best.center() + axis * (0.5 * (capsule.low + capsule.high))));
    return result;
}

// A single point, or none, has nothing to enclose.
bool hasSolids(const std::vector<KrVector>& points, const OrientedBox& aligned)
{
    const double diagonal = points.empty() ? 0.0 : aligned.diagonal();
    return diagonal > 0.0 && std::isfinite(diagonal);
}

// Coarsest first, as levels of detail are numbered.
std::vector<ExtentPointer> makeSimple(const std::vector<KrVector>& points, const KrTriPhysicalExtent& mesh)
{
    OrientedBox aligned;
    aligned.fit(points);
    if (!hasSolids(points, aligned)) {
        return {};
    }
    const double slack = kSlack * aligned.diagonal();
    std::vector<ExtentPointer> result = {boxOf(aligned, slack), sphereOf(points, aligned.center(), slack),
                                         capsuleOrBoxOf(points, mesh, aligned, slack)};
    for (const ExtentPointer& extent : result) {
        extent->setMaterialName(KrEnclosingShapes::materialName());
    }
    return result;
}

} // namespace

const char* KrEnclosingShapes::materialName()
{
    return "boundingVolume";
}

// A translucent orange, through which the enclosed shape is seen.
const KrDataMap& KrEnclosingShapes::look()
{
    static const KrDataMap s_look = KrDataMap::material(KrColor(0.95, 0.55, 0.1, 0.3));
    return s_look;
}

// Each once, in the order of the mesh.
std::vector<KrVector> KrEnclosingShapes::corners(const KrTriPhysicalExtent& mesh)
{
    // Vertices that no triangle uses are not seen and would only make the shapes larger.
    std::vector<bool> isUsed(mesh.vertices().size(), false);
    for (const KrTriPhysicalExtent::Group& group : mesh.groups()) {
        for (const KrTriangle& triangle : group.second()) {
            for (unsigned int corner = 0; corner < 3; ++corner) {
                isUsed[triangle.vertex(corner)] = true;
            }
        }
    }
    std::vector<KrVector> points;
    points.reserve(mesh.vertices().size());
    for (unsigned int i = 0; i < mesh.vertices().size(); ++i) {
        if (isUsed[i]) {
            points.push_back(mesh.vertices()[i]);
        }
    }
    return points;
}

bool KrEnclosingShapes::findBox(const KrTriPhysicalExtent& mesh, KrVector& low, KrVector& high)
{
    OrientedBox box;
    const std::vector<KrVector> points = corners(mesh);
    box.fit(points);
    if (!hasSolids(points, box)) {
        return false;
    }
    low = {box.low[0], box.low[1], box.low[2]};
    high = {box.high[0], box.high[1], box.high[2]};
    return true;
}

std::vector<boost::shared_ptr<KrBasePhysicalExtent>> KrEnclosingShapes::simple(const KrTriPhysicalExtent& mesh)
{
    return makeSimple(corners(mesh), mesh);
}

std::vector<boost::shared_ptr<KrBasePhysicalExtent>> KrEnclosingShapes::all(const KrTriPhysicalExtent& mesh)
{
    const std::vector<KrVector> points = corners(mesh);
    std::vector<ExtentPointer> result = makeSimple(points, mesh);
    if (!result.empty()) {
        if (const boost::shared_ptr<KrTriPhysicalExtent> hull = KrConvexHull::make(points, materialName())) {
            hull->setMaterial(materialName(), look());
            result.push_back(hull);
        }
    }
    return result;
}
