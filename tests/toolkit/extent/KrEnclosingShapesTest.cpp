#include <toolkit/extent/KrEnclosingShapes.h>

#include <toolkit/extent/KrBoxPhysicalExtent.h>
#include <toolkit/extent/KrCapsulePhysicalExtent.h>
#include <toolkit/extent/KrCylinderPhysicalExtent.h>
#include <toolkit/extent/KrSpherePhysicalExtent.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/extent/private/KrConvexHull.h>
#include <toolkit/math/KrAngle.h>
#include <toolkit/system/KrShape.h>

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace
{

KrTriPhysicalExtent meshOf(const std::vector<KrVector>& points)
{
    KrXmlVectorType<KrTriPhysicalExtent::Group> groups;
    groups.push_back({std::string("all"), KrXmlVectorType<KrTriangle>()});
    for (std::uint32_t i = 0; i + 2 < points.size(); ++i) {
        groups[0].second().push_back(KrTriangle(i, i + 1, i + 2));
    }
    KrTriPhysicalExtent mesh;
    const KrXmlVectorVector normal(std::vector<KrVector>{{0.0, 0.0, 1.0}});
    for (KrTriangle& triangle : groups[0].second()) {
        for (unsigned int k = 0; k < 3; ++k) {
            triangle.setCorner(k, triangle.vertex(k), 0, 0);
        }
    }
    EXPECT_TRUE(mesh.setMesh(KrXmlVectorVector(points), normal, {}, groups));
    return mesh;
}

/// How far the point sticks out, m; negative inside.
double outside(const KrBasePhysicalExtent& extent, const KrVector& world)
{
    const KrVector p = extent.placement().inverse().transformPoint(world);
    if (const auto* box = dynamic_cast<const KrBoxPhysicalExtent*>(&extent)) {
        const KrVector half = box->size() * 0.5;
        return std::max({std::abs(p.x()) - half.x(), std::abs(p.y()) - half.y(), std::abs(p.z()) - half.z()});
    }
    if (const auto* sphere = dynamic_cast<const KrSpherePhysicalExtent*>(&extent)) {
        return p.length() - sphere->radius();
    }
    if (const auto* capsule = dynamic_cast<const KrCapsulePhysicalExtent*>(&extent)) {
        const double half = 0.5 * capsule->length();
        const KrVector nearest(0.0, 0.0, std::max(-half, std::min(half, p.z())));
        return (p - nearest).length() - capsule->radius();
    }
    const auto& mesh = dynamic_cast<const KrTriPhysicalExtent&>(extent);
    double most = -std::numeric_limits<double>::infinity();
    for (const KrTriangle& t : mesh.groups()[0].second()) {
        const KrVector corner = mesh.vertices()[t.vertex(0)];
        KrVector normal = (mesh.vertices()[t.vertex(1)] - corner).cross(mesh.vertices()[t.vertex(2)] - corner);
        normal.normalize();
        most = std::max(most, normal.dot(p - corner));
    }
    return most;
}

/// How far the points reach beyond the vertices of a mesh, m, seen from the middle in the direction of each of them.
///
/// A point beyond the sharp rim of a thin hull is far outside, and yet hardly above the plane of any of its faces.
double beyond(const KrTriPhysicalExtent& mesh, const std::vector<KrVector>& points)
{
    const auto farthest = [](const std::vector<KrVector>& vertices, const KrVector& direction) {
        double most = -std::numeric_limits<double>::infinity();
        for (const KrVector& vertex : vertices) {
            most = std::max(most, vertex.dot(direction));
        }
        return most;
    };
    KrVector middle;
    for (const KrVector& point : points) {
        middle += point * (1.0 / static_cast<double>(points.size()));
    }
    double most = 0.0;
    for (const KrVector& point : points) {
        KrVector direction = point - middle;
        direction.normalize();
        most = std::max(most, point.dot(direction) - farthest(mesh.vertices().values(), direction));
    }
    return most;
}

void expectEnclosed(const std::vector<KrVector>& points, const char* what)
{
    const KrTriPhysicalExtent mesh = meshOf(points);
    const auto shapes = KrEnclosingShapes::all(mesh);
    ASSERT_EQ(shapes.size(), 4u) << what;
    const auto& box = dynamic_cast<const KrBoxPhysicalExtent&>(*shapes[0]);
    const double tolerance = KrEnclosingShapes::kTolerance * box.size().length();
    for (const auto& shape : shapes) {
        double most = -1.0;
        for (const KrVector& point : points) {
            most = std::max(most, outside(*shape, point));
        }
        EXPECT_LE(most, tolerance) << what << " " << shape->token().name;
        EXPECT_EQ(shape->groupName(0), "boundingVolume");
        const boost::shared_ptr<const KrTriPhysicalExtent> triangles = shape->triExtent();
        ASSERT_TRUE(triangles) << what << " " << shape->token().name;
        for (const KrVector& point : points) {
            most = std::max(most, outside(*triangles, point));
        }
        EXPECT_LE(most, tolerance) << "drawn " << what << " " << shape->token().name;
    }
    EXPECT_LE(beyond(*shapes[3]->triExtent(), points), tolerance) << what;
}

std::vector<KrVector> transformed(std::vector<KrVector> points)
{
    KrCoordinateSystemTransformation pose;
    pose.setAxisAngle({1.0, 2.0, 3.0}, 0.7);
    pose.setTranslation({5.0, -3.0, 40.0});
    for (KrVector& point : points) {
        point = pose.transformPoint(point);
    }
    return points;
}

std::vector<KrVector> grid(unsigned int nx, unsigned int ny, unsigned int nz)
{
    std::vector<KrVector> points;
    for (unsigned int i = 0; i < nx * ny * nz; ++i) {
        points.emplace_back(i % nx, i / nx % ny, i / (nx * ny));
    }
    return points;
}

/// On the unit circle.
std::vector<KrVector> disc(unsigned int count)
{
    std::vector<KrVector> points;
    for (unsigned int i = 0; i < count; ++i) {
        const double angle = 2.0 * Kr::Angle::kPi * i / count;
        points.emplace_back(std::cos(angle), std::sin(angle), 0.0);
    }
    return points;
}

/// Spread over the unit ball's surface along a spiral.
std::vector<KrVector> ball(unsigned int count)
{
    std::vector<KrVector> points;
    for (unsigned int i = 0; i < count; ++i) {
        const double z = 1.0 - (2.0 * i + 1.0) / count;
        const double r = std::sqrt(1.0 - z * z);
        points.emplace_back(r * std::cos(2.4 * i), r * std::sin(2.4 * i), z);
    }
    return points;
}

} // namespace

TEST(KrEnclosingShapes, EveryCornerIsInsideEachOfThem)
{
    expectEnclosed(grid(5, 6, 7), "grid"); // many points in a plane and on a line
    expectEnclosed(transformed(grid(9, 3, 2)), "turned grid");
    expectEnclosed(transformed(grid(6, 6, 1)), "plane");
    expectEnclosed(transformed(grid(7, 1, 1)), "line");
    expectEnclosed(ball(300), "ball");
    expectEnclosed(transformed(ball(5000)), "ball with too many corners for a hull");
    expectEnclosed(KrCylinderPhysicalExtent(0.3, 4.0).triExtent()->vertices().values(), "cylinder");
    std::vector<KrVector> twice = transformed(grid(3, 3, 3));
    twice.insert(twice.end(), twice.begin(), twice.end());
    expectEnclosed(std::vector<KrVector>(twice), "each point twice");
    std::vector<KrVector> tiny = ball(100);
    for (KrVector& point : tiny) {
        point = point * 1e-5 + KrVector(0.5, 0.5, 0.5);
    }
    expectEnclosed(tiny, "tiny and far away");
    std::vector<KrVector> wire;
    for (const KrVector& point : ball(200)) {
        wire.push_back(point * 3e-5);
        wire.push_back(point * 3e-5 + KrVector(1.0, 0.0, 0.0));
    }
    expectEnclosed(wire, "wire with round ends");
    expectEnclosed(disc(1000), "disc");
    std::vector<KrVector> huge = grid(5, 2, 3);
    for (KrVector& point : huge) {
        point *= 1e37;
    }
    expectEnclosed(huge, "huge");
}

// What a library of hulls calls an error, and would print.
TEST(KrEnclosingShapes, SetsWithoutABodyHaveAHullAndNothingIsPrinted)
{
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    expectEnclosed({{0, 0, 0}, {1, 2, 3}, {0, 0, 0}}, "two points");
    expectEnclosed({{0, 0, 0}, {1, 2, 3}, {1, 0, 0}}, "three points");
    expectEnclosed(transformed({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}}), "four points in a plane");
    expectEnclosed(transformed({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 1e-7}}), "almost flat");
    expectEnclosed(transformed({{0, 0, 0}, {1, 0, 0}, {1, 1e-7, 0}, {0.5, 0, 1e-6}}), "almost straight");
    std::vector<KrVector> points = transformed(grid(40, 40, 1));
    for (std::size_t i = 0; i < points.size(); ++i) {
        points[i] += KrVector(0.0, 0.0, 1e-13 * static_cast<double>(i % 7)); // as rounding makes it
    }
    expectEnclosed(points, "plane with noise");
    points = ball(400);
    points.resize(200);
    for (const double scale : {1e-9, 1.0, 1e-9, 1e-3}) { // one within the other
        for (std::size_t i = 0; i < 200; ++i) {
            points.push_back(points[i] * scale + KrVector(scale, 0.0, 0.0));
        }
    }
    expectEnclosed(points, "several sizes");
    EXPECT_EQ(testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr(), "");
}

TEST(KrEnclosingShapes, AreTight)
{
    const auto ofBall = KrEnclosingShapes::all(meshOf(ball(2000)));
    EXPECT_NEAR(dynamic_cast<const KrSpherePhysicalExtent&>(*ofBall[1]).radius(), 1.0, 0.02);

    // A turned box of 8 x 2 x 1 has an oriented box of the same size; the longest diagonal is the sphere's diameter.
    KrBoxPhysicalExtent turnedBox(KrVector(8.0, 2.0, 1.0));
    KrCoordinateSystemTransformation turned;
    turned.setAxisAngle({1.0, 2.0, 3.0}, 0.7);
    turnedBox.setPlacement(turned);
    const auto ofBox = KrEnclosingShapes::all(*turnedBox.triExtent());
    const auto* oriented = dynamic_cast<const KrBoxPhysicalExtent*>(ofBox[2].get());
    EXPECT_NEAR(dynamic_cast<const KrSpherePhysicalExtent&>(*ofBox[1]).radius(), 0.5 * std::sqrt(69.0), 0.1);
    ASSERT_NE(oriented, nullptr);
    EXPECT_LT(oriented->size().x() * oriented->size().y() * oriented->size().z(), 16.001);

    // Long and round: the capsule is smaller than any box.
    const auto ofRod = KrEnclosingShapes::all(*KrCapsulePhysicalExtent(0.1, 3.0).triExtent());
    const auto* capsule = dynamic_cast<const KrCapsulePhysicalExtent*>(ofRod[2].get());
    ASSERT_NE(capsule, nullptr);
    EXPECT_NEAR(capsule->radius(), 0.1, 1e-3);
    EXPECT_NEAR(capsule->length(), 3.0, 1e-2);

    // Of more corners than a hull has: 250 on a circle lack 1 - cos(pi / 250), less than a thousandth, between them.
    const auto ofDisc = KrConvexHull::make(disc(1000), "disc");
    ASSERT_TRUE(ofDisc);
    for (const KrVector& vertex : ofDisc->vertices().values()) {
        EXPECT_LT(std::hypot(vertex.x(), vertex.y()), 1.001);
        EXPECT_LT(std::abs(vertex.z()), 1e-6);
    }
}

TEST(KrEnclosingShapes, NothingEnclosesNothing)
{
    EXPECT_TRUE(KrEnclosingShapes::all(KrTriPhysicalExtent()).empty());
    EXPECT_TRUE(KrEnclosingShapes::all(meshOf(std::vector<KrVector>(4, KrVector(1, 2, 3)))).empty());
    EXPECT_FALSE(KrConvexHull::make({}, "none"));
    EXPECT_FALSE(KrConvexHull::make({{0, 0, 0}, {1, 0, 0}, {0, NAN, 0}}, "nan"));
}

TEST(KrShape, TellsHowManyEnclosingShapesItWouldCompute)
{
    const auto box = boost::make_shared<KrBoxPhysicalExtent>(KrVector(1.0, 2.0, 3.0));
    const auto flat = boost::make_shared<KrTriPhysicalExtent>(meshOf({{0, 0, 1}, {1, 0, 1}, {0, 1, 1}, {1, 1, 1}}));
    const auto line = boost::make_shared<KrTriPhysicalExtent>(meshOf({{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {5, 0, 0}}));
    const auto point = boost::make_shared<KrTriPhysicalExtent>(meshOf(std::vector<KrVector>(4, KrVector(1, 2, 3))));
    const auto none = boost::make_shared<KrTriPhysicalExtent>();
    std::vector<const KrShape*> list;
    for (const boost::shared_ptr<KrBasePhysicalExtent>& extent :
         std::initializer_list<boost::shared_ptr<KrBasePhysicalExtent>>{box, flat, line, point, none, nullptr}) {
        KrShape shape(extent);
        KrVector low, high;
        const unsigned int alone = shape.numComputedVolumes(low, high);
        shape.boundingVolumes(list, 1);
        EXPECT_EQ(list.size(), alone);
        shape.addBoundingVolume(boost::make_shared<KrShape>(box));
        const unsigned int besides = shape.numComputedVolumes(low, high);
        shape.boundingVolumes(list, 1);
        EXPECT_EQ(list.size(), besides + 1);
        const KrShape* const added = list.back();
        shape.addedVolumes(list);
        EXPECT_EQ(list, std::vector<const KrShape*>{added});
        if (extent == box) {
            EXPECT_EQ(high, KrVector(0.5, 1.0, 1.5));
            EXPECT_EQ(low, -high);
        }
    }
}

TEST(KrShape, EnclosingShapesFollowTheExtent)
{
    const auto extent = boost::make_shared<KrBoxPhysicalExtent>(KrVector(1.0, 2.0, 3.0));
    KrShape shape(extent);
    std::vector<const KrShape*> first, second;
    shape.boundingVolumes(first, 1);
    ASSERT_EQ(first.size(), 4u);
    shape.boundingVolumes(second, 1);
    EXPECT_EQ(first, second); // kept
    KrCoordinateSystemTransformation away;
    away.setTranslation({10.0, 0.0, 0.0});
    extent->setPlacement(away);
    shape.boundingVolumes(second, 1);
    EXPECT_NEAR(second[0]->physicalExtent()->placement().translation().x(), 10.0, 1e-12);
    shape.setPhysicalExtent(boost::make_shared<KrBoxPhysicalExtent>(KrVector(1.0, 1.0, 1.0)));
    shape.boundingVolumes(second, 1);
    EXPECT_NEAR(second[0]->physicalExtent()->placement().translation().x(), 0.0, 1e-12);
    // The description's own geometry stands in for the hull.
    shape.addBoundingVolume(boost::make_shared<KrShape>(extent));
    shape.boundingVolumes(second, 4);
    ASSERT_EQ(second.size(), 1u);
    EXPECT_EQ(second[0]->physicalExtent(), extent.get());
}
