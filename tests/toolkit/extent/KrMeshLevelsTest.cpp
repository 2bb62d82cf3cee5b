#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/extent/private/KrClosedSurface.h>
#include <toolkit/extent/private/KrFloat3.h>
#include <toolkit/extent/private/KrIndexedMesh.h>
#include <toolkit/extent/private/KrLevelPictures.h>
#include <toolkit/foundation/private/KrRowTable.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>

namespace
{

using Mesh = KrTriPhysicalExtent;

/// A closed surface of revolution about z: `profile` gives radius, height and the outward normal's part along each at 0
/// (bottom) to 1 (top); the radius is 0 at both ends.
struct Turned
{
    struct Outline
    {
        double radius, height, normalRadius, normalHeight;
    };
    std::function<Outline(double)> profile;
    int rows = 64;
    int columns = 96;
    bool isFlat = false;     ///< every triangle with a normal of its own
    bool isTextured = false; ///< u around, with a seam, v along the profile
    int numGroups = 1;       ///< sectors
    int numSpecks = 0;       ///< tiny tetrahedra beside it

    Mesh mesh() const
    {
        KrXmlVectorVector vertices, normals;
        KrXmlVectorType<KrPlanarVector> coordinates;
        std::vector<std::vector<KrTriangle>> triangles(static_cast<std::size_t>(numGroups));
        const auto index = [this](int row, int column) {
            return static_cast<std::uint32_t>(row * (columns + 1) + column);
        };
        for (int row = 0; row <= rows; ++row) {
            const Outline outline = profile(double(row) / rows);
            const bool isPole = row == 0 || row == rows;
            for (int column = 0; column <= columns; ++column) {
                const double angle = 2.0 * std::acos(-1.0) * (column % columns) / columns;
                const double r = isPole ? 0.0 : outline.radius;
                vertices.push_back({r * std::cos(angle), r * std::sin(angle), outline.height});
                normals.push_back({outline.normalRadius * std::cos(angle), outline.normalRadius * std::sin(angle),
                                   outline.normalHeight});
                coordinates.push_back({double(column) / columns, double(row) / rows});
                if (row == rows || column == columns) {
                    continue;
                }
                const std::uint32_t a = index(row, column), b = index(row, column + 1);
                const std::uint32_t c = index(row + 1, column + 1), d = index(row + 1, column);
                std::vector<KrTriangle>& group = triangles[static_cast<std::size_t>(column * numGroups / columns)];
                if (row != 0) {
                    group.push_back(KrTriangle(a, b, c));
                }
                if (row + 1 != rows) {
                    group.push_back(KrTriangle(a, c, d));
                }
            }
        }
        for (int i = 0; i < numSpecks; ++i) {
            const auto at = static_cast<std::uint32_t>(vertices.size());
            const KrVector place(2.0 + 0.1 * i, 0.0, 0.0);
            for (const KrVector& corner :
                 {KrVector(0, 0, 0), KrVector(1, 0, 0), KrVector(0, 1, 0), KrVector(0, 0, 1)}) {
                vertices.push_back(place + 0.005 * corner);
                normals.push_back({0, 0, 1});
                coordinates.push_back({0, 0});
            }
            for (const KrTriangle& t :
                 {KrTriangle(0, 2, 1), KrTriangle(0, 1, 3), KrTriangle(0, 3, 2), KrTriangle(1, 2, 3)}) {
                triangles[0].push_back(KrTriangle(at + t.vertex(0), at + t.vertex(1), at + t.vertex(2)));
            }
        }
        KrXmlVectorType<Mesh::Group> groups;
        for (const std::vector<KrTriangle>& group : triangles) {
            groups.push_back(Mesh::Group(std::string("group"), KrXmlVectorType<KrTriangle>(group)));
        }
        Mesh result;
        EXPECT_TRUE(result.setMesh(vertices, isFlat ? KrXmlVectorVector() : normals,
                                   isTextured ? coordinates : KrXmlVectorType<KrPlanarVector>(), groups));
        return result;
    }
};

/// A ball with bumps, 0.5 m in radius.
Turned bumpy()
{
    Turned result;
    result.profile = [](double t) {
        const double angle = std::acos(-1.0) * t;
        const double radius = 0.5 + 0.02 * std::cos(12 * angle);
        const double slope = -0.24 * std::sin(12 * angle);
        const double s = std::sin(angle), c = -std::cos(angle);
        // Across the tangent (r' s + r c', ...) of the curve r(angle) (sin, -cos).
        return Turned::Outline{radius * s, radius * c, radius * s - slope * std::cos(angle), radius * c - slope * s};
    };
    return result;
}

/// A disc 1 m in radius and 0.2 m high, its edges rounded by 5 mm.
Turned disc()
{
    Turned result;
    result.rows = 40;
    result.profile = [](double t) -> Turned::Outline {
        const double top = t > 0.5 ? 1.0 : -1.0;
        const double along = 1.0 - std::abs(2.0 * t - 1.0); // 0 at the poles, 1 in the middle
        if (along < 0.5) {
            return {along / 0.5 * 0.995, top * 0.1, 0.0, top};
        }
        const double angle = std::min(1.0, (along - 0.5) / 0.4) * 0.5 * std::acos(-1.0);
        const double height = along > 0.9 ? 0.095 * (1.0 - along) / 0.1 : 0.095 + 0.005 * std::cos(angle);
        return {0.995 + 0.005 * std::sin(angle), top * height, std::sin(angle), top * std::cos(angle)};
    };
    return result;
}

std::size_t numTriangles(const KrIndexedMesh::Level& level)
{
    std::size_t count = 0;
    for (const KrIndexedMesh::Range& group : level.groups) {
        count += group.count / 3;
    }
    return count;
}

std::vector<std::uint32_t> indicesOf(const KrIndexedMesh& mesh, const KrIndexedMesh::Level& level)
{
    std::vector<std::uint32_t> result;
    for (const KrIndexedMesh::Range& group : level.groups) {
        result.insert(result.end(), mesh.indices.begin() + group.first,
                      mesh.indices.begin() + group.first + group.count);
    }
    return result;
}

const float* vertexOf(const KrIndexedMesh& mesh, std::uint32_t index)
{
    return &mesh.vertices[std::size_t{6} * index];
}

/// Whether a level encloses bodies, by the positions of its corners.
bool isClosed(const KrIndexedMesh& mesh, const KrIndexedMesh::Level& level)
{
    KrRowTable<KrFloat3> places;
    std::vector<float> positions;
    std::vector<std::uint32_t> corners;
    for (const std::uint32_t index : indicesOf(mesh, level)) {
        const float* const p = vertexOf(mesh, index);
        // -0 is the same place as 0.
        corners.push_back(places.number({p[0] + 0.0f, p[1] + 0.0f, p[2] + 0.0f}));
    }
    for (const KrFloat3& place : places.rows()) {
        positions.insert(positions.end(), place.begin(), place.end());
    }
    return KrClosedSurface::isClosed(positions, corners);
}

/// Distance of a point from a triangle in the plain way: to the plane where the foot lies inside, else to the edges.
double distance(const KrVector& p, const KrVector (&t)[3])
{
    const KrVector normal = (t[1] - t[0]).cross(t[2] - t[0]);
    bool isInside = normal.length() > 0.0;
    double nearest = (p - t[0]).length();
    for (int k = 0; k < 3; ++k) {
        const KrVector edge = t[(k + 1) % 3] - t[k];
        const KrVector from = p - t[k];
        isInside = isInside && normal.dot(edge.cross(from)) >= 0.0;
        const double square = edge.dot(edge);
        const double share = square > 0.0 ? std::clamp(from.dot(edge) / square, 0.0, 1.0) : 0.0;
        nearest = std::min(nearest, (from - share * edge).length());
    }
    return isInside ? std::min(nearest, std::abs(normal.dot(p - t[0])) / normal.length()) : nearest;
}

/// Distances of the middles of some of one level's triangles from another level, m.
std::vector<double> distances(const KrIndexedMesh& mesh, const KrIndexedMesh::Level& from,
                              const KrIndexedMesh::Level& to)
{
    const auto at = [&mesh](std::uint32_t index) {
        const float* const p = vertexOf(mesh, index);
        return KrVector(p[0], p[1], p[2]);
    };
    const std::vector<std::uint32_t> a = indicesOf(mesh, from), b = indicesOf(mesh, to);
    const std::size_t step = 3 * std::max<std::size_t>(1, a.size() / 3 / 150);
    std::vector<double> result;
    for (std::size_t i = 0; i < a.size(); i += step) {
        const KrVector p = (1.0 / 3.0) * (at(a[i]) + at(a[i + 1]) + at(a[i + 2]));
        double nearest = INFINITY;
        for (std::size_t k = 0; k < b.size(); k += 3) {
            nearest = std::min(nearest, distance(p, {at(b[k]), at(b[k + 1]), at(b[k + 2])}));
        }
        result.push_back(nearest);
    }
    return result;
}

} // namespace

TEST(KrMeshLevels, EachHasFarFewerTrianglesAndLevelZeroStays)
{
    for (const bool isFlat : {false, true}) {
        Turned ball = bumpy();
        ball.isFlat = isFlat;
        const Mesh mesh = ball.mesh();
        const std::shared_ptr<const KrIndexedMesh> plain = mesh.indexedMesh();
        const std::shared_ptr<const KrIndexedMesh> made = mesh.indexedMeshWithLevels();
        ASSERT_TRUE(made->isConsistent());
        ASSERT_GT(made->levels.size(), 4u) << "flat " << isFlat;
        EXPECT_TRUE(std::equal(plain->indices.begin(), plain->indices.end(), made->indices.begin()));
        EXPECT_TRUE(std::equal(plain->vertices.begin(), plain->vertices.end(), made->vertices.begin()));
        EXPECT_EQ(numTriangles(made->levels[1]), numTriangles(made->levels[0])) << "in another order";
        EXPECT_EQ(made->levels[1].error, 0.0f);
        for (std::size_t i = 2; i < made->levels.size(); ++i) {
            EXPECT_LE(numTriangles(made->levels[i]), 0.9 * numTriangles(made->levels[i - 1]));
            EXPECT_GE(made->levels[i].error, made->levels[i - 1].error);
            EXPECT_GE(made->levels[i].change, made->levels[i - 1].change);
            EXPECT_GT(made->levels[i].error + made->levels[i].change,
                      made->levels[i - 1].error + made->levels[i - 1].change);
        }
        EXPECT_LT(numTriangles(made->levels.back()), 200u);
        // Bumps of 20 mm: an eighth of the triangles shows them well.
        EXPECT_LT(made->levels[4].error, 0.01f) << "flat " << isFlat;

        // Kept, and the same the next time.
        EXPECT_EQ(mesh.indexedMesh(), made);
        EXPECT_EQ(mesh.indexedMeshWithLevels(), made);
        const std::shared_ptr<const KrIndexedMesh> again = KrIndexedMesh::withLevels(*plain);
        EXPECT_EQ(again->indices, made->indices);
        EXPECT_EQ(again->vertices, made->vertices);
    }
}

TEST(KrMeshLevels, LieWithinTheirErrorOfLevelZero)
{
    for (const bool isFlat : {false, true}) {
        Turned body = isFlat ? bumpy() : disc();
        body.isFlat = isFlat;
        body.rows = 24;
        body.columns = 36;
        const std::shared_ptr<const KrIndexedMesh> mesh = body.mesh().indexedMeshWithLevels();
        for (std::size_t i = 2; i < mesh->levels.size(); ++i) {
            std::vector<double> all = distances(*mesh, mesh->levels[0], mesh->levels[i]);
            const std::vector<double> back = distances(*mesh, mesh->levels[i], mesh->levels[0]);
            all.insert(all.end(), back.begin(), back.end());
            std::sort(all.begin(), all.end());
            // Single spots between the points of the measurement may lie farther off.
            EXPECT_LE(all[all.size() * 99 / 100], mesh->levels[i].error) << "level " << i << " flat " << isFlat;
            EXPECT_LE(all.back(), 2.0 * mesh->levels[i].error) << "level " << i << " flat " << isFlat;
            // An error far too large would pass all that.
            EXPECT_GE(all.back(), 0.2 * mesh->levels[i].error) << "level " << i << " flat " << isFlat;
        }
    }
}

TEST(KrMeshLevels, RoundBodiesAreNeitherSmallerNorLarger)
{
    Turned ball;
    ball.profile = [](double t) {
        const double angle = std::acos(-1.0) * t;
        return Turned::Outline{0.5 * std::sin(angle), -0.5 * std::cos(angle), std::sin(angle), -std::cos(angle)};
    };
    const std::shared_ptr<const KrIndexedMesh> mesh = ball.mesh().indexedMeshWithLevels();
    // By signed volumes of the tetrahedra from the middle.
    const auto volume = [&mesh](const KrIndexedMesh::Level& level) {
        const std::vector<std::uint32_t> indices = indicesOf(*mesh, level);
        double sum = 0.0;
        for (std::size_t i = 0; i < indices.size(); i += 3) {
            const float* const b = vertexOf(*mesh, indices[i + 1]);
            const float* const c = vertexOf(*mesh, indices[i + 2]);
            sum += double{dot(vertexOf(*mesh, indices[i]), cross({b[0], b[1], b[2]}, {c[0], c[1], c[2]}).data())} / 6.0;
        }
        return sum;
    };
    ASSERT_GT(mesh->levels.size(), 5u);
    for (std::size_t i = 4; i < mesh->levels.size(); ++i) {
        // With corners on the ball n triangles lack at least 7 / n of it.
        const double missing = 1.0 - volume(mesh->levels[i]) / volume(mesh->levels[0]);
        EXPECT_LT(std::abs(missing), 2.0 / static_cast<double>(numTriangles(mesh->levels[i]))) << i;
    }
}

TEST(KrMeshLevels, ChangesOfPicturesAreThoseOfTheirArea)
{
    // A square of two triangles, and what takes its place.
    const std::vector<float> square = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 0, 0, 1, 1, 0, 0, 1, 0};
    const auto normals = [](double angle) {
        std::vector<float> result;
        for (int i = 0; i < 6; ++i) {
            result.insert(result.end(),
                          {0.0f, static_cast<float>(std::sin(angle)), static_cast<float>(std::cos(angle))});
        }
        return result;
    };
    const std::vector<float> up = normals(0.0);
    const std::vector<std::uint32_t> groups = {0, 0}, mixed = {0, 1};
    const KrLevelPictures pictures({square, up, groups}, false);
    EXPECT_EQ(pictures.changed({square, up, groups}), 0.0f);
    EXPECT_NEAR(pictures.changed({square, up, mixed}), 0.5f, 0.03f);
    const std::vector<float> half(square.begin(), square.begin() + 9), halfUp(up.begin(), up.begin() + 9);
    EXPECT_NEAR(pictures.changed({half, halfUp, {0}}), 0.5f, 0.03f);
    const float little = pictures.changed({square, normals(0.02), groups});
    EXPECT_GT(little, 0.002f) << "a mean difference, though no point differs visibly";
    EXPECT_LT(little, 0.05f);
    EXPECT_GT(pictures.changed({square, normals(1.0), groups}), 0.5f);
}

TEST(KrMeshLevels, ClosedMeshesStayClosedAcrossGroupsAndSeams)
{
    Turned body = bumpy();
    body.numGroups = 3;
    body.isTextured = true;
    const std::shared_ptr<const KrIndexedMesh> mesh = body.mesh().indexedMeshWithLevels();
    ASSERT_TRUE(mesh->isClosed);
    ASSERT_GT(mesh->levels.size(), 3u);
    for (const KrIndexedMesh::Level& level : mesh->levels) {
        EXPECT_TRUE(isClosed(*mesh, level)) << numTriangles(level);
        for (const KrIndexedMesh::Range& group : level.groups) {
            EXPECT_NEAR(group.count / 3.0 / numTriangles(level), 1.0 / 3.0, 0.1) << "a group keeps its share";
        }
        for (const std::uint32_t index : indicesOf(*mesh, level)) {
            const float* const p = vertexOf(*mesh, index);
            const float* const uv = &mesh->textureCoordinates[std::size_t{2} * index];
            // Corners move, but a picture on the ball hardly does. At the poles it has no direction.
            const double distance = std::sqrt(dot(p, p));
            const double turn = uv[0] - std::atan2(p[1], p[0]) / (2.0 * std::acos(-1.0));
            EXPECT_NEAR(uv[1], std::acos(-p[2] / distance) / std::acos(-1.0), 0.02);
            if (std::hypot(p[0], p[1]) > 0.1) {
                EXPECT_NEAR(turn, std::round(turn), 0.02);
            }
        }
    }
}

TEST(KrMeshLevels, FlatFacesAreNotShadedByTheirRoundedEdges)
{
    const std::shared_ptr<const KrIndexedMesh> mesh = disc().mesh().indexedMeshWithLevels();
    std::size_t numSeen = 0;
    // Levels that change pictures more than that are for errors of more than a pixel.
    for (std::size_t i = 2; i < mesh->levels.size() && mesh->levels[i].change < 0.03f; ++i, ++numSeen) {
        const std::vector<std::uint32_t> indices = indicesOf(*mesh, mesh->levels[i]);
        double area = 0.0, wrong = 0.0;
        for (std::size_t t = 0; t < indices.size(); t += 3) {
            const float* const p[3] = {vertexOf(*mesh, indices[t]), vertexOf(*mesh, indices[t + 1]),
                                       vertexOf(*mesh, indices[t + 2])};
            KrFloat3 face = faceNormal(p[0], p[1], p[2]);
            const float twice = normalize(face);
            KrFloat3 shading = {};
            for (unsigned int axis = 0; axis < 3; ++axis) {
                shading[axis] = p[0][3 + axis] + p[1][3 + axis] + p[2][3 + axis];
            }
            normalize(shading);
            if (std::abs(face[2]) > 0.999f) {
                area += twice;
                wrong += dot(face.data(), shading.data()) < 0.999f ? twice : 0.0;
            }
        }
        EXPECT_NEAR(area, 4.0 * std::acos(-1.0), 0.4) << "top and bottom, both twice";
        // 2.6 degrees: the picture's brightness changes by a hundredth or two. Which edges go depends on the last bits
        // of numbers, which 32-bit processors keep more of.
        EXPECT_LT(wrong, 0.03 * area) << "level " << i;
    }
    EXPECT_GT(numSeen, 1u);
}

TEST(KrMeshLevels, SpecksVanishAndOddMeshesHaveNoLevels)
{
    Turned body = bumpy();
    body.numSpecks = 30;
    const std::shared_ptr<const KrIndexedMesh> mesh = body.mesh().indexedMeshWithLevels();
    EXPECT_LT(numTriangles(mesh->levels.back()), 120u) << "120 of the specks alone";
    const KrIndexedMesh::Level& fine = mesh->levels[2];
    ASSERT_LT(fine.error, 0.005f);
    const std::vector<std::uint32_t> indices = indicesOf(*mesh, fine);
    EXPECT_EQ(std::count_if(indices.begin(), indices.end(),
                            [&mesh](std::uint32_t index) { return vertexOf(*mesh, index)[0] > 1.0f; }),
              3 * 4 * 30)
        << "as long as they can be seen";

    // A fan: the time for its neighbours would grow with the square of its size.
    KrXmlVectorVector rim;
    rim.push_back({0, 0, 0});
    std::vector<KrTriangle> blades;
    for (std::uint32_t i = 0; i < 100000; ++i) {
        rim.push_back({std::cos(6e-5 * i), std::sin(6e-5 * i), 1.0});
        blades.push_back(KrTriangle(0, i, i + 1));
    }
    rim.push_back({1, 0, 0});
    Mesh fan;
    const Mesh::Group group(std::string("fan"), KrXmlVectorType<KrTriangle>(blades));
    ASSERT_TRUE(fan.setMesh(rim, {}, {}, KrXmlVectorType<Mesh::Group>({group})));
    EXPECT_EQ(fan.indexedMeshWithLevels()->levels.size(), 2u) << "both of all triangles";

    // Numbers whose squares are no floats, or 0, and a mesh of one point.
    for (const double size : {1e30, 1e-30, 0.0}) {
        Turned odd = bumpy();
        const auto profile = odd.profile;
        odd.profile = [profile, size](double t) {
            Turned::Outline outline = profile(t);
            outline.radius *= size;
            outline.height *= size;
            return outline;
        };
        const std::shared_ptr<const KrIndexedMesh> made = odd.mesh().indexedMeshWithLevels();
        EXPECT_TRUE(made->isConsistent());
        EXPECT_EQ(made->levels.size(), 2u) << size;
    }
}
