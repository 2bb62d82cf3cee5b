#include <toolkit/extent/KrBoxPhysicalExtent.h>
#include <toolkit/extent/KrSpherePhysicalExtent.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/extent/private/KrEqualPositions.h>
#include <toolkit/extent/private/KrFloat3.h>
#include <toolkit/extent/private/KrIndexedMesh.h>
#include <toolkit/foundation/private/KrRowTable.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <map>
#include <random>
#include <thread>

namespace
{

using Mesh = KrTriPhysicalExtent;
using Groups = KrXmlVectorType<Mesh::Group>;
using Triangles = std::vector<KrTriangle>;
Mesh::Group group(const std::string& name, const Triangles& triangles)
{
    return Mesh::Group(name, KrXmlVectorType<KrTriangle>(triangles));
}

/// Three corners of position, normal and texture coordinate.
using Drawn = std::array<float, 24>;

/// The triangles of a group as single numbers, taken from the lists of the mesh.
std::vector<Drawn> given(const Mesh& mesh, unsigned int group)
{
    std::vector<Drawn> result;
    for (const KrTriangle& triangle : mesh.groups()[group].second()) {
        Drawn drawn = {};
        for (unsigned int k = 0; k < 3; ++k) {
            const KrVector& v = mesh.vertices()[triangle.vertex(k)];
            const KrVector& n = mesh.normals()[triangle.normal(k)];
            const double numbers[6] = {v.x(), v.y(), v.z(), n.x(), n.y(), n.z()};
            std::transform(numbers, numbers + 6, &drawn[8 * k], [](double d) { return static_cast<float>(d); });
            if (!mesh.textureCoordinates().empty()) {
                const KrPlanarVector& uv = mesh.textureCoordinates()[triangle.textureCoordinate(k)];
                drawn[8 * k + 6] = static_cast<float>(uv.u());
                drawn[8 * k + 7] = static_cast<float>(uv.v());
            }
        }
        result.push_back(drawn);
    }
    return result;
}

/// The same, by way of the indices.
std::vector<Drawn> drawn(const KrIndexedMesh& mesh, unsigned int group, unsigned int level = 0)
{
    const KrIndexedMesh::Range& range = mesh.levels[level].groups[group];
    std::vector<Drawn> result(range.count / 3);
    for (std::size_t i = 0; i < 3 * result.size(); ++i) {
        const std::uint32_t index = mesh.indices[range.first + i];
        float* const corner = &result[i / 3][8 * (i % 3)];
        std::copy_n(&mesh.vertices[6 * index], 6, corner);
        if (!mesh.textureCoordinates.empty()) {
            std::copy_n(&mesh.textureCoordinates[2 * index], 2, corner + 6);
        }
    }
    return result;
}

template <typename T>
std::vector<T> sorted(std::vector<T> values)
{
    std::sort(values.begin(), values.end());
    return values;
}

/// A grid of `side` squares in a saddle, with normals and texture coordinates; the first half and the rest are groups.
Mesh saddle(int side)
{
    KrXmlVectorVector vertices, normals;
    KrXmlVectorType<KrPlanarVector> coordinates;
    Triangles triangles;
    for (int y = 0; y <= side; ++y) {
        for (int x = 0; x <= side; ++x) {
            const std::uint32_t i = vertices.size();
            vertices.push_back({0.1 * x, 0.1 * y, 0.003 * x * y});
            normals.push_back(KrVector(-0.03 * y, -0.03 * x, 1));
            coordinates.push_back({0.3 * x, 0.7 * y});
            if (x < side && y < side) {
                triangles.push_back(KrTriangle(i, i + 1, i + side + 2));
                triangles.push_back(KrTriangle(i, i + side + 2, i + side + 1));
            }
        }
    }
    const auto half = triangles.begin() + static_cast<std::ptrdiff_t>(triangles.size() / 2);
    Groups groups;
    groups.push_back(group("first", Triangles(triangles.begin(), half)));
    groups.push_back(group("none", {}));
    groups.push_back(group("rest", Triangles(half, triangles.end())));
    Mesh mesh;
    EXPECT_TRUE(mesh.setMesh(vertices, normals, coordinates, groups));
    return mesh;
}

/// Flat triangles among numbered positions.
struct Solid
{
    std::vector<KrVector> vertices;
    Triangles triangles;

    /// An axis-aligned cube, faces outwards.
    Solid& addCube(const KrVector& low, double side, bool isInsideOut = false)
    {
        const std::uint32_t base = vertices.size();
        for (unsigned int i = 0; i < 8; ++i) {
            vertices.push_back(low + KrVector(side * (i & 1), side * (i >> 1 & 1), side * (i >> 2)));
        }
        for (const auto& f : {std::array<std::uint32_t, 4>{0, 2, 3, 1},
                              {4, 5, 7, 6},
                              {0, 1, 5, 4},
                              {2, 6, 7, 3},
                              {0, 4, 6, 2},
                              {1, 3, 7, 5}}) {
            for (const KrTriangle& t : {KrTriangle(f[0], f[1], f[2]), KrTriangle(f[0], f[2], f[3])}) {
                const std::uint32_t b = base + t.vertex(1), c = base + t.vertex(2);
                triangles.push_back(KrTriangle(base + t.vertex(0), isInsideOut ? c : b, isInsideOut ? b : c));
            }
        }
        return *this;
    }

    std::shared_ptr<const KrIndexedMesh> indexed() const
    {
        Mesh mesh;
        Groups groups;
        // In two groups: whether a mesh is closed is a matter of all of them.
        const auto half = triangles.begin() + static_cast<std::ptrdiff_t>(triangles.size() / 2);
        groups.push_back(group("a", Triangles(triangles.begin(), half)));
        groups.push_back(group("b", Triangles(half, triangles.end())));
        EXPECT_TRUE(mesh.setMesh(KrXmlVectorVector(vertices), {}, {}, groups));
        return mesh.indexedMesh();
    }
    bool isClosed() const { return indexed()->isClosed; }
};

Solid cube(double side = 1.0)
{
    return Solid().addCube({0, 0, 0}, side);
}

} // namespace

TEST(KrIndexedMesh, CornersThatAreAlikeShareAVertex)
{
    // Sharp edges: four corners for each of six faces.
    EXPECT_EQ(cube().indexed()->numVertices(), 24u);
    const KrSpherePhysicalExtent sphere(0.5);
    const auto ball = sphere.triExtent();
    ASSERT_TRUE(ball);
    // A closed surface has half as many positions as triangles; the seam of the texture has a few more.
    EXPECT_LT(ball->indexedMesh()->numVertices(), 0.6 * ball->numTriangles());
    EXPECT_TRUE(ball->indexedMesh()->isConsistent());

    const Mesh empty;
    EXPECT_EQ(empty.indexedMesh()->levels.size(), 1u);
    EXPECT_TRUE(empty.indexedMesh()->isConsistent());
    EXPECT_FALSE(empty.indexedMesh()->isClosed);
}

TEST(KrIndexedMesh, GroupsKeepTheirTrianglesCornerByCorner)
{
    const Mesh mesh = saddle(40);
    const std::shared_ptr<const KrIndexedMesh> indexed = mesh.indexedMesh();
    EXPECT_EQ(indexed->numVertices(), 41u * 41u);
    ASSERT_EQ(indexed->levels[0].groups.size(), 3u);
    EXPECT_EQ(indexed->levels[0].groups[1].count, 0u);
    for (const unsigned int group : {0u, 2u}) {
        EXPECT_EQ(drawn(*indexed, group), given(mesh, group));
    }
    // The first index is the first vertex, and none comes before all lower ones have.
    std::uint32_t next = 0;
    for (const std::uint32_t index : indexed->indices) {
        ASSERT_LE(index, next);
        next = std::max(next, index + 1);
    }
}

TEST(KrIndexedMesh, EveryVertexIsThereOnceInTheOrderOfTheCorners)
{
    std::mt19937 random(11);
    const auto below = [&random](std::size_t count) { return static_cast<std::uint32_t>(random() % count); };
    // Few numbers, so that much is equal; -0 is another vertex than 0. Many normals at some positions.
    const auto number = [&below] { return std::array<double, 5>{-0.0, 0.0, 0.25, -1.0, 3.0}[below(5)]; };
    const std::array<std::size_t, 3> sizes[] = {{10, 2, 0}, {60, 300, 0}, {20000, 40, 9}, {200, 0, 30}};
    for (const auto& [numPositions, numNormals, numCoordinates] : sizes) {
        KrXmlVectorVector positions, normals;
        KrXmlVectorType<KrPlanarVector> coordinates;
        for (std::size_t i = 0; i < numPositions; ++i) {
            positions.push_back({number(), number(), numPositions > 1000 ? 0.001 * below(9000) : number()});
        }
        for (std::size_t i = 0; i < numNormals; ++i) {
            normals.push_back(KrVector(number(), 0.01 * below(100), 1.0));
        }
        for (std::size_t i = 0; i < numCoordinates; ++i) {
            coordinates.push_back({number(), number()});
        }
        Groups groups;
        for (const std::string name : {"a", "b"}) {
            Triangles triangles(10000);
            for (KrTriangle& triangle : triangles) {
                for (unsigned int k = 0; k < 3; ++k) {
                    triangle.setCorner(k, below(numPositions), below(std::max<std::size_t>(numNormals, 1)),
                                       below(std::max<std::size_t>(numCoordinates, 1)));
                }
            }
            groups.push_back(group(name, triangles));
        }
        Mesh mesh;
        ASSERT_TRUE(mesh.setMesh(positions, normals, coordinates, groups));
        const std::shared_ptr<const KrIndexedMesh> indexed = mesh.indexedMesh();
        ASSERT_TRUE(indexed->isConsistent());
        std::map<std::vector<std::uint32_t>, std::uint32_t> known;
        std::vector<std::uint32_t> expected;
        for (const unsigned int g : {0u, 1u}) {
            const std::vector<Drawn> triangles = given(mesh, g);
            ASSERT_EQ(drawn(*indexed, g), triangles);
            for (std::size_t i = 0; i < 3 * triangles.size(); ++i) {
                std::vector<std::uint32_t> bits(8);
                std::memcpy(bits.data(), &triangles[i / 3][8 * (i % 3)], 8 * sizeof(float));
                expected.push_back(known.emplace(bits, static_cast<std::uint32_t>(known.size())).first->second);
            }
        }
        EXPECT_EQ(indexed->indices, expected) << numPositions << " positions";
        EXPECT_EQ(indexed->numVertices(), known.size());
    }
}

TEST(KrIndexedMesh, PlacesThatNoHashTellsApartAreToldApart)
{
    KrXmlVectorVector positions;
    std::mt19937 random(5);
    while (positions.size() < 2000) {
        const auto x = static_cast<float>(random() % 100000), y = static_cast<float>(random() % 100000);
        if ((KrRowTable<KrFloat3>::hash({x, y, 1.0f}) & 0xfff) == 0) {
            positions.push_back({x, y, 1.0});
        }
    }
    for (unsigned int i = 0; i < 100; ++i) {
        positions.push_back(positions[7 * i]);
    }
    const std::vector<std::uint32_t> firstOf = KrEqualPositions::firstOf(positions);
    std::map<std::pair<double, double>, std::uint32_t> known;
    ASSERT_EQ(firstOf.size(), positions.size());
    for (unsigned int i = 0; i < positions.size(); ++i) {
        EXPECT_EQ(firstOf[i], known.emplace(std::make_pair(positions[i].x(), positions[i].y()), i).first->second);
    }
}

TEST(KrIndexedMesh, FacesThatCoverEachOtherKeepTheirOrder)
{
    Mesh mesh = saddle(40);
    Triangles doubled = mesh.groups()[0].second().values();
    KrTriangle back = doubled[7];
    back.setCorner(1, doubled[7].vertex(2), 0, 0);
    back.setCorner(2, doubled[7].vertex(1), 0, 0);
    doubled.push_back(back);
    Groups groups = mesh.groups();
    groups[0] = group("first", doubled);
    ASSERT_TRUE(mesh.setMesh(mesh.vertices(), mesh.normals(), mesh.textureCoordinates(), groups));

    const std::shared_ptr<const KrIndexedMesh> indexed = mesh.indexedMeshWithLevels();
    EXPECT_EQ(drawn(*indexed, 0, 1), given(mesh, 0));
    EXPECT_NE(drawn(*indexed, 2, 1), given(mesh, 2)) << "the other group has none";
    EXPECT_EQ(sorted(drawn(*indexed, 2, 1)), sorted(given(mesh, 2)));
}

TEST(KrIndexedMesh, APlacedMeshKeepsWhatWasPrepared)
{
    Mesh mesh = saddle(40);
    const std::shared_ptr<const KrIndexedMesh> before = mesh.indexedMeshWithLevels();
    KrCoordinateSystemTransformation pose;
    pose.setTranslation({1.0, 2.0, 3.0});
    pose.setAxisAngle({0.0, 0.6, 0.8}, 0.7);
    ASSERT_TRUE(mesh.setPlacement(pose));
    const boost::shared_ptr<const KrTriPhysicalExtent> placed = mesh.triExtent();
    ASSERT_NE(placed.get(), &mesh);
    const std::shared_ptr<const KrIndexedMesh> after = placed->indexedMesh();
    EXPECT_TRUE(after->areLevelsMade);
    EXPECT_TRUE(after->isConsistent());
    EXPECT_EQ(after->indices, before->indices);
    EXPECT_EQ(drawn(*after, 0), given(*placed, 0)) << "to the last bit";
    EXPECT_EQ(drawn(*after, 2), given(*placed, 2));
    for (std::size_t i = 0; i < after->vertices.size(); i += 6) {
        const float* const vertex = &before->vertices[i];
        const KrVector there = pose.transformPoint({vertex[0], vertex[1], vertex[2]});
        EXPECT_NEAR(after->vertices[i], there.x(), 1e-6) << "of all levels";
    }
}

TEST(KrIndexedMesh, SolidsAreClosed)
{
    EXPECT_TRUE(cube().isClosed());
    EXPECT_TRUE(KrBoxPhysicalExtent(KrVector(1, 2, 3)).triExtent()->indexedMesh()->isClosed);
    EXPECT_TRUE(cube().addCube({5, 0, 0}, 0.01).isClosed()) << "two bodies";
    EXPECT_TRUE(cube().addCube({1, 1, 0}, 1).isClosed()) << "two bodies that share an edge";
    EXPECT_TRUE(cube().addCube({0.5, 0.5, 0.5}, 1).isClosed()) << "two bodies, one in the other in part";
    EXPECT_TRUE(cube(3).addCube({1, 1, 1}, 1, true).isClosed()) << "a hollow";
    EXPECT_TRUE(cube(5).addCube({1, 1, 1}, 3, true).addCube({2, 2, 2}, 1).isClosed()) << "a body in a hollow";
    Solid line = cube();
    line.triangles.push_back(KrTriangle(0, 1, 0));
    EXPECT_TRUE(line.isClosed()) << "a triangle without an area";
    // The last corner of the cube lies in the origin.
    Solid zero = Solid().addCube({-1, -1, -1}, 1);
    zero.vertices.push_back({-0.0, 0.0, -0.0});
    const auto there = std::find_if(zero.triangles.begin(), zero.triangles.end(),
                                    [](const KrTriangle& triangle) { return triangle.vertex(2) == 7; });
    ASSERT_NE(there, zero.triangles.end());
    *there = KrTriangle(there->vertex(0), there->vertex(1), 8);
    EXPECT_TRUE(zero.isClosed()) << "-0 is the same place as 0";
}

TEST(KrIndexedMesh, WhatMayShowABackIsNotClosed)
{
    Solid open = cube();
    open.triangles.pop_back();
    EXPECT_FALSE(open.isClosed()) << "a hole";
    Solid flipped = cube();
    flipped.triangles[3] =
        KrTriangle(flipped.triangles[3].vertex(0), flipped.triangles[3].vertex(2), flipped.triangles[3].vertex(1));
    EXPECT_FALSE(flipped.isClosed()) << "a face the wrong way round";
    EXPECT_FALSE(Solid().addCube({0, 0, 0}, 1, true).isClosed()) << "inside out";
    EXPECT_FALSE(cube().addCube({5, 0, 0}, 1, true).isClosed()) << "one of two inside out";
    EXPECT_FALSE(cube().addCube({1, 1, 0}, 0.5, true).isClosed()) << "inside out, in touch with the other's edge";
    EXPECT_FALSE(cube(3).addCube({2, 1, 1}, 2, true).isClosed()) << "a hollow that sticks out";
    EXPECT_FALSE(cube().addCube({0, 0, 0}, 1, true).isClosed()) << "faces doubled, one for each side";

    Solid sheet;
    sheet.vertices = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    sheet.triangles = {KrTriangle(0, 1, 2), KrTriangle(0, 2, 1)};
    EXPECT_FALSE(sheet.isClosed()) << "it encloses nothing";
}

TEST(KrIndexedMesh, IsKeptUntilTheMeshChanges)
{
    Mesh mesh = saddle(10);
    std::shared_ptr<const KrIndexedMesh> seen[4];
    std::vector<std::thread> threads;
    for (auto& slot : seen) {
        threads.emplace_back([&slot, &mesh] { slot = mesh.indexedMesh(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const auto& slot : seen) {
        EXPECT_EQ(slot, seen[0]) << "made once";
    }
    mesh.setMaterialMap({});
    const Mesh copy = mesh;
    EXPECT_EQ(copy.indexedMesh(), seen[0]);

    const Mesh other = saddle(3);
    EXPECT_FALSE(mesh.setIndexedMesh(other.indexedMesh()));
    EXPECT_EQ(mesh.indexedMesh(), seen[0]);
    ASSERT_TRUE(mesh.setMesh(other.vertices(), other.normals(), other.textureCoordinates(), other.groups()));
    EXPECT_EQ(mesh.indexedMesh()->numVertices(), 16u);
    EXPECT_TRUE(mesh.setIndexedMesh(other.indexedMesh()));
    EXPECT_EQ(mesh.indexedMesh(), other.indexedMesh());
    mesh = copy;
    EXPECT_EQ(mesh.indexedMesh(), seen[0]);
}

TEST(KrIndexedMesh, DataThatDoNotFitAreSeen)
{
    const std::shared_ptr<const KrIndexedMesh> good = saddle(4).indexedMesh();
    ASSERT_TRUE(good->isConsistent());
    const auto isConsistentAfter = [&good](const auto& change) {
        KrIndexedMesh mesh = *good;
        change(mesh);
        return mesh.isConsistent();
    };
    EXPECT_FALSE(isConsistentAfter([](KrIndexedMesh& m) { m.indices[5] = 25; }));
    EXPECT_FALSE(isConsistentAfter([](KrIndexedMesh& m) { m.vertices.pop_back(); }));
    EXPECT_FALSE(isConsistentAfter([](KrIndexedMesh& m) { m.vertices[7] = INFINITY; }));
    EXPECT_FALSE(isConsistentAfter([](KrIndexedMesh& m) { m.textureCoordinates.resize(2); }));
    EXPECT_FALSE(isConsistentAfter([](KrIndexedMesh& m) { m.levels.clear(); }));
    EXPECT_FALSE(isConsistentAfter([](KrIndexedMesh& m) { m.levels[0].groups[2].count += 3; }));
    EXPECT_FALSE(isConsistentAfter([](KrIndexedMesh& m) { m.levels[0].groups[0].count -= 1; }));
    EXPECT_FALSE(isConsistentAfter([](KrIndexedMesh& m) { m.levels[0].groups[2] = {0xfffffffd, 6}; }));
    EXPECT_FALSE(isConsistentAfter([](KrIndexedMesh& m) { m.levels[0].error = 0.1f; }));
    EXPECT_FALSE(isConsistentAfter([](KrIndexedMesh& m) {
        m.levels.push_back(m.levels[0]);
        m.levels[1].groups.pop_back();
    }));
    EXPECT_FALSE(isConsistentAfter([](KrIndexedMesh& m) {
        m.levels.push_back(m.levels[0]);
        m.levels[1].error = NAN;
    }));
    const auto isConsistentWithLevel = [&](bool hasOwnIndices) {
        return isConsistentAfter([hasOwnIndices](KrIndexedMesh& m) {
            KrIndexedMesh::Level level = m.levels[0];
            const auto count = static_cast<std::uint32_t>(m.indices.size());
            for (KrIndexedMesh::Range& group : level.groups) {
                group.first += hasOwnIndices ? count : 0;
            }
            m.indices.resize(hasOwnIndices ? 2 * count : count);
            m.levels.push_back(level);
        });
    };
    EXPECT_TRUE(isConsistentWithLevel(true));
    EXPECT_FALSE(isConsistentWithLevel(false)) << "a file could have the same triangles drawn a million times";
    EXPECT_FALSE(isConsistentAfter([](KrIndexedMesh& m) { m.levels[0].change = 0.1f; }));
    for (const float change : {NAN, INFINITY, -0.1f}) {
        EXPECT_FALSE(isConsistentAfter([change](KrIndexedMesh& m) {
            m.levels.push_back(m.levels[0]);
            m.levels[1].change = change;
        }));
    }
}
