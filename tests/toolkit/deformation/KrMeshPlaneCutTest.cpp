#include <toolkit/deformation/private/KrMeshPlaneCut.h>

#include <gtest/gtest.h>

namespace
{

using Mesh = KrMeshPlaneCut::Mesh;

KrTriangle triangle(std::uint32_t a, std::uint32_t b, std::uint32_t c)
{
    KrTriangle result;
    result.setCorner(0, a, a, a);
    result.setCorner(1, b, b, b);
    result.setCorner(2, c, c, c);
    return result;
}

/// Every vertex with a normal and a texture coordinate of its own.
Mesh meshOf(const std::vector<KrVector>& points, const std::vector<KrTriangle>& triangles)
{
    Mesh mesh;
    mesh.numVertices = static_cast<std::uint32_t>(points.size());
    mesh.numNormals = mesh.numVertices;
    for (const KrVector& point : points) {
        mesh.textureCoordinates.push_back(KrPlanarVector(point.x(), point.z()));
    }
    mesh.groups.push_back(KrDeformationGroup("skin", 0));
    mesh.groups.back().triangles() = triangles;
    return mesh;
}

std::size_t numTriangles(const Mesh& mesh, std::uint32_t piece)
{
    std::size_t number = 0;
    for (const KrDeformationGroup& group : mesh.groups) {
        number += group.piece() == piece ? group.triangles().size() : 0;
    }
    return number;
}

const KrVector kUp(0.0, 0.0, 1.0);

/// In the plane y = 0; m.
const std::vector<KrVector> kSquare = {KrVector(0.0, 0.0, 0.0), KrVector(4.0, 0.0, 0.0), KrVector(4.0, 0.0, 4.0),
                                       KrVector(0.0, 0.0, 4.0)};

} // namespace

TEST(KrMeshPlaneCut, SplitsEveryEdgeOnceAndInterpolatesWhatIsThere)
{
    Mesh mesh = meshOf(kSquare, {triangle(0, 1, 2), triangle(0, 2, 3)});
    KrMeshPlaneCut cut(mesh, kSquare, KrVector(0.0, 0.0, 1.0), kUp);
    ASSERT_TRUE(cut.separate(0, 1));

    // Three edges cross z = 1: both sides and the diagonal, which the triangles share.
    ASSERT_EQ(mesh.cutVertices.size(), 3u);
    EXPECT_EQ(mesh.cutNormals.size(), 3u);
    ASSERT_EQ(mesh.textureCoordinates.size(), 7u);
    for (std::size_t i = 0; i < 3; ++i) {
        const KrEdgePoint& point = mesh.cutVertices[i];
        const double t = point.t();
        EXPECT_NEAR(kSquare[point.a()].z() * (1.0 - t) + kSquare[point.b()].z() * t, 1.0, 1e-12);
        EXPECT_NEAR(mesh.textureCoordinates[4 + i].v(), 1.0, 1e-12);
    }
    // Each triangle becomes a triangle on one side and a quadrangle, of two, on the other.
    EXPECT_EQ(numTriangles(mesh, 0), 3u);
    EXPECT_EQ(numTriangles(mesh, 1), 3u);
}

TEST(KrMeshPlaneCut, AVertexOnThePlaneIsNotSplit)
{
    // The plane x = z is the diagonal: nothing is crossed, and each triangle goes to one side as it is.
    Mesh mesh = meshOf(kSquare, {triangle(0, 1, 2), triangle(0, 2, 3)});
    KrVector normal(-1.0, 0.0, 1.0);
    normal.normalize();
    KrMeshPlaneCut cut(mesh, kSquare, KrVector(), normal);
    ASSERT_TRUE(cut.separate(0, 1));
    EXPECT_TRUE(mesh.cutVertices.empty());
    EXPECT_EQ(numTriangles(mesh, 0), 1u);
    EXPECT_EQ(numTriangles(mesh, 1), 1u);
}

TEST(KrMeshPlaneCut, RefusesAPlaneThatHasEverythingOnOneSide)
{
    for (const double height : {-1.0, 0.0, 4.0, 5.0}) {
        Mesh mesh = meshOf(kSquare, {triangle(0, 1, 2), triangle(0, 2, 3)});
        EXPECT_FALSE(KrMeshPlaneCut(mesh, kSquare, KrVector(0.0, 0.0, height), kUp).separate(0, 1)) << height;
    }
}

TEST(KrMeshPlaneCut, LeavesOtherPiecesAlone)
{
    Mesh mesh = meshOf(kSquare, {triangle(0, 1, 2)});
    mesh.groups.push_back(KrDeformationGroup("skin", 7));
    mesh.groups.back().triangles() = {triangle(0, 2, 3)};
    ASSERT_TRUE(KrMeshPlaneCut(mesh, kSquare, KrVector(0.0, 0.0, 1.0), kUp).separate(0, 8));
    EXPECT_EQ(numTriangles(mesh, 7), 1u);
    EXPECT_EQ(mesh.cutVertices.size(), 2u);
}

TEST(KrMeshPlaneCut, CapsClosedSectionsWithTrianglesThatFaceOutwards)
{
    // A tetrahedron, its faces seen counter-clockwise from outside, cut below its tip.
    const std::vector<KrVector> points = {KrVector(0.0, 0.0, 0.0), KrVector(3.0, 0.0, 0.0), KrVector(0.0, 3.0, 0.0),
                                          KrVector(0.0, 0.0, 3.0)};
    Mesh mesh = meshOf(points, {triangle(0, 2, 1), triangle(0, 1, 3), triangle(1, 2, 3), triangle(2, 0, 3)});
    KrMeshPlaneCut cut(mesh, points, KrVector(0.0, 0.0, 1.0), kUp);
    ASSERT_TRUE(cut.separate(0, 1));
    ASSERT_TRUE(cut.cap("section"));

    const auto place = [&](std::uint32_t vertex) {
        if (vertex < points.size()) {
            return points[vertex];
        }
        const KrEdgePoint& point = mesh.cutVertices[vertex - points.size()];
        return points[point.a()] * (1.0 - point.t()) + points[point.b()] * point.t();
    };
    std::size_t numCaps = 0;
    for (const KrDeformationGroup& group : mesh.groups) {
        if (!group.isCap()) {
            continue;
        }
        ++numCaps;
        EXPECT_EQ(group.name(), "section");
        double area = 0.0;
        for (const KrTriangle& t : group.triangles()) {
            const KrVector a = place(t.vertex(0));
            area += 0.5 * (place(t.vertex(1)) - a).cross(place(t.vertex(2)) - a).z();
        }
        // The section is a right triangle of legs 2; the lower piece is closed upwards, the upper one downwards.
        EXPECT_NEAR(area, group.piece() == 0 ? 2.0 : -2.0, 1e-12);
    }
    EXPECT_EQ(numCaps, 2u);
}

TEST(KrMeshPlaneCut, LeavesOpenSectionsOpen)
{
    Mesh mesh = meshOf(kSquare, {triangle(0, 1, 2), triangle(0, 2, 3)});
    KrMeshPlaneCut cut(mesh, kSquare, KrVector(0.0, 0.0, 1.0), kUp);
    ASSERT_TRUE(cut.separate(0, 1));
    const std::size_t numGroups = mesh.groups.size();
    EXPECT_FALSE(cut.cap("section"));
    EXPECT_EQ(mesh.groups.size(), numGroups);
}
