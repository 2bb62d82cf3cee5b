#include <import/mesh/KrMeshNormals.h>

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace
{

constexpr std::uint32_t kMissing = UINT32_MAX;

struct Mesh
{
    std::vector<KrVector> vertices;
    std::vector<KrTriangle> triangles;

    void add(std::uint32_t a, std::uint32_t b, std::uint32_t c)
    {
        KrTriangle& triangle = triangles.emplace_back();
        const std::uint32_t corners[3] = {a, b, c};
        for (unsigned int k = 0; k < 3; ++k) {
            triangle.setCorner(k, corners[k], kMissing, 0);
        }
    }
    KrVector at(std::size_t triangle, unsigned int corner) const
    {
        return vertices[triangles[triangle].vertex(corner % 3)];
    }
    KrVector normal(std::size_t triangle) const
    {
        KrVector normal =
            (at(triangle, 1) - at(triangle, 0)).cross(at(triangle, 2) - at(triangle, 0)); // of edges of 1 to 10
        normal.normalize();
        return normal;
    }
};

/// Rough ground of more vertices than one part has, and cones of few and of very many triangles, one with an odd side.
Mesh roughMesh()
{
    Mesh mesh;
    std::mt19937 random(7);
    std::uniform_real_distribution<double> height(0.0, 0.7);
    constexpr std::uint32_t side = 70;
    for (std::uint32_t i = 0; i < side * side; ++i) {
        const double steepness = i / side / static_cast<double>(side);
        mesh.vertices.emplace_back(i % side, i / side, steepness * height(random));
    }
    for (std::uint32_t i = 0; i + side < side * side; ++i) {
        if ((i + 1) % side != 0) {
            mesh.add(i, i + 1, i + side);
            mesh.add(i + 1, i + side + 1, i + side);
        }
    }
    for (const std::uint32_t count : {3, 12, 64, 65, 200, 201}) {
        const auto tip = static_cast<std::uint32_t>(mesh.vertices.size());
        mesh.vertices.emplace_back(0.0, 0.0, 10.5);
        for (std::uint32_t i = 0; i < count; ++i) {
            const double angle = 6.283185307179586 * i / count;
            mesh.vertices.emplace_back(std::cos(angle), std::sin(angle), i == 0 ? 10.6 : 10.0 + 0.01 * (i % 7));
        }
        for (std::uint32_t i = 0; i < count; ++i) {
            mesh.add(tip, tip + 1 + i, tip + 1 + (i + 1) % count);
        }
    }
    return mesh;
}

/// By the words of the header: each corner on its own, with the functions of the library.
std::vector<KrVector> expectedNormals(const Mesh& mesh)
{
    std::vector<std::vector<std::pair<std::size_t, unsigned int>>> around(mesh.vertices.size());
    for (std::size_t t = 0; t < mesh.triangles.size(); ++t) {
        for (unsigned int k = 0; k < 3; ++k) {
            around[mesh.triangles[t].vertex(k)].emplace_back(t, k);
        }
    }
    std::vector<KrVector> normals;
    for (std::size_t t = 0; t < mesh.triangles.size(); ++t) {
        for (unsigned int k = 0; k < 3; ++k) {
            const auto& others = around[mesh.triangles[t].vertex(k)];
            KrVector sum = others.size() > 200 ? mesh.normal(t) : KrVector();
            for (const auto& [other, corner] : others) {
                const KrVector u = mesh.at(other, corner + 1) - mesh.at(other, corner);
                const KrVector v = mesh.at(other, corner + 2) - mesh.at(other, corner);
                const bool isBlended =
                    std::acos(std::min(mesh.normal(t).dot(mesh.normal(other)), 1.0)) < KrMeshNormals::creaseAngle;
                if (others.size() <= 200 && isBlended) {
                    sum += mesh.normal(other) * std::acos(u.dot(v) / (u.length() * v.length()));
                }
            }
            sum.normalize();
            normals.push_back(sum);
        }
    }
    return normals;
}

} // namespace

TEST(KrMeshNormals, AreThoseOfTheWordsForAnySizeAndAnyNumberOfThreads)
{
    const Mesh mesh = roughMesh();
    const std::vector<KrVector> expected = expectedNormals(mesh);
    // In lengths whose fourth powers are beyond the numbers, too.
    for (const double scale : {1.0, 1e-200, 1e200}) {
        std::vector<KrVector> vertices = mesh.vertices;
        for (KrVector& vertex : vertices) {
            vertex *= scale;
        }
        std::vector<KrVector> first;
        for (const std::size_t numThreads : {1, 2, 7}) {
            // Two lists: an edge between them may be smooth. The last triangle has normals of its own.
            std::vector<KrTriangle> lists[2];
            lists[0].assign(mesh.triangles.begin(), mesh.triangles.begin() + 5000);
            lists[1].assign(mesh.triangles.begin() + 5000, mesh.triangles.end());
            std::vector<KrVector> normals = {{0.6, 0.0, 0.8}};
            KrTriangle& last = lists[1].back();
            for (unsigned int k = 0; k < 3; ++k) {
                last.setCorner(k, last.vertex(k), 0, 9);
            }
            KrMeshNormals::fill(vertices, {&lists[0], &lists[1]}, kMissing, numThreads, normals);
            std::vector<KrVector> found;
            for (const std::vector<KrTriangle>& list : lists) {
                for (const KrTriangle& triangle : list) {
                    for (unsigned int k = 0; k < 3; ++k) {
                        found.push_back(normals.at(triangle.normal(k)));
                    }
                }
            }
            double worst = 0.0;
            for (std::size_t i = 0; i + 3 < found.size(); ++i) {
                worst = std::max(worst, (found[i] - expected[i]).length());
            }
            EXPECT_LT(worst, 2e-7) << scale;
            EXPECT_EQ(found.back(), KrVector(0.6, 0.0, 0.8));
            first = first.empty() ? found : first;
            EXPECT_TRUE(found == first) << numThreads << " threads";
        }
    }
}

TEST(KrMeshNormals, FlatTrianglesAreDegenerateInAnySize)
{
    for (const double scale : {1.0, 1e-200, 1e200}) {
        const auto isDegenerate = [scale](double height) {
            return KrMeshNormals::isDegenerate({}, {scale, 0.0, 0.0}, {0.5 * scale, height * scale, 0.0});
        };
        EXPECT_FALSE(isDegenerate(2e-10)) << scale;
        EXPECT_TRUE(isDegenerate(0.5e-10)) << scale;
    }
    for (const double odd : {0.0, static_cast<double>(NAN), static_cast<double>(INFINITY)}) {
        EXPECT_TRUE(KrMeshNormals::isDegenerate({}, {odd, 0.0, 0.0}, {0.0, odd, 0.0})) << odd;
        EXPECT_TRUE(KrMeshNormals::isDegenerate({}, {1.0, 0.0, 0.0}, {odd, odd, 0.0})) << odd;
    }
}
