#include <toolkit/extent/private/KrIndexedMesh.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/extent/private/KrClosedSurface.h>
#include <toolkit/extent/private/KrMeshLevels.h>
#include <toolkit/extent/private/KrTriangleOrder.h>
#include <toolkit/extent/private/KrVertexTable.h>
#include <toolkit/math/KrCoordinateSystemTransformation.h>

#include <meshoptimizer.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace
{

using TriangleList = KrXmlVectorType<KrTriangle>;

/// Position and normal.
constexpr std::size_t kVertexWidth = 6;

/// Makes level 0 of a mesh, step by step.
class LevelZero
{
public:
    explicit LevelZero(const KrTriPhysicalExtent& mesh)
        : m_mesh(mesh)
        , m_hasTextureCoordinates(!mesh.textureCoordinates().empty())
        , m_width(m_hasTextureCoordinates ? kVertexWidth + 2 : kVertexWidth)
        , m_vertices(m_width)
    {
    }

    KrIndexedMesh run();

private:
    bool isInRange(const TriangleList& triangles) const;
    void addGroup(const TriangleList& triangles);
    std::uint32_t vertexOf(const KrTriangle& triangle, unsigned int corner);
    std::vector<std::uint32_t> positionsOfCorners(KrVertexTable& positions) const;
    void orderVertices();

    const KrTriPhysicalExtent& m_mesh;
    bool m_hasTextureCoordinates;
    std::size_t m_width; ///< floats of a vertex in the table: with its texture coordinates behind it
    KrVertexTable m_vertices;
    KrIndexedMesh m_result;
};

KrIndexedMesh LevelZero::run()
{
    m_result.levels.resize(1);
    m_result.indices.reserve(3 * m_mesh.numTriangles());
    for (const KrTriPhysicalExtent::Group& group : m_mesh.groups()) {
        addGroup(group.second());
    }
    KrVertexTable positions(3);
    const std::vector<std::uint32_t> corners = positionsOfCorners(positions);
    m_result.isClosed = KrClosedSurface::isClosed(positions.rows(), corners);
    orderVertices();
    return std::move(m_result);
}

// Checked on entry to the mesh; a list of indices that is none draws nothing, as the shape's own way does.
bool LevelZero::isInRange(const TriangleList& triangles) const
{
    const std::size_t numVertices = m_mesh.vertices().size();
    const std::size_t numNormals = m_mesh.normals().size();
    const std::size_t numCoordinates = m_mesh.textureCoordinates().size();
    return std::all_of(triangles.begin(), triangles.end(), [&](const KrTriangle& triangle) {
        for (unsigned int corner = 0; corner < 3; ++corner) {
            if (triangle.vertex(corner) >= numVertices || triangle.normal(corner) >= numNormals ||
                (m_hasTextureCoordinates && triangle.textureCoordinate(corner) >= numCoordinates)) {
                return false;
            }
        }
        return true;
    });
}

void LevelZero::addGroup(const TriangleList& triangles)
{
    KrIndexedMesh::Range range;
    range.first = static_cast<std::uint32_t>(m_result.indices.size());
    if (isInRange(triangles)) {
        for (const KrTriangle& triangle : triangles) {
            for (unsigned int corner = 0; corner < 3; ++corner) {
                m_result.indices.push_back(vertexOf(triangle, corner));
            }
        }
    }
    range.count = static_cast<std::uint32_t>(m_result.indices.size()) - range.first;
    m_result.levels[0].groups.push_back(range);
}

// By the values: exporters write a vertex, and even more so a normal, once for each triangle that has it.
std::uint32_t LevelZero::vertexOf(const KrTriangle& triangle, unsigned int corner)
{
    const KrVector& position = m_mesh.vertices()[triangle.vertex(corner)];
    const KrVector& normal = m_mesh.normals()[triangle.normal(corner)];
    std::array<float, kVertexWidth + 2> row = {static_cast<float>(position.x()), static_cast<float>(position.y()),
                                               static_cast<float>(position.z()), static_cast<float>(normal.x()),
                                               static_cast<float>(normal.y()),   static_cast<float>(normal.z())};
    if (m_hasTextureCoordinates) {
        const KrPlanarVector& uv = m_mesh.textureCoordinates()[triangle.textureCoordinate(corner)];
        row[kVertexWidth] = static_cast<float>(uv.u());
        row[kVertexWidth + 1] = static_cast<float>(uv.v());
    }
    return m_vertices.number(row.data());
}

/// For each index the number of its vertex's position.
std::vector<std::uint32_t> LevelZero::positionsOfCorners(KrVertexTable& positions) const
{
    std::vector<std::uint32_t> positionOfVertex(m_vertices.size());
    for (std::size_t i = 0; i < positionOfVertex.size(); ++i) {
        const float* const vertex = &m_vertices.rows()[i * m_width];
        // Adding 0 makes 0 of -0, which is the same place.
        const float position[3] = {vertex[0] + 0.0f, vertex[1] + 0.0f, vertex[2] + 0.0f};
        positionOfVertex[i] = positions.number(position);
    }
    std::vector<std::uint32_t> corners(m_result.indices.size());
    std::transform(m_result.indices.begin(), m_result.indices.end(), corners.begin(),
                   [&positionOfVertex](std::uint32_t index) { return positionOfVertex[index]; });
    return corners;
}

// As the indices come to them first, so that they are read from front to back.
void LevelZero::orderVertices()
{
    const std::size_t count = m_vertices.size();
    std::vector<std::uint32_t> remap(count);
    meshopt_optimizeVertexFetchRemap(remap.data(), m_result.indices.data(), m_result.indices.size(), count);
    meshopt_remapIndexBuffer(m_result.indices.data(), m_result.indices.data(), m_result.indices.size(), remap.data());
    m_result.vertices.resize(kVertexWidth * count);
    m_result.textureCoordinates.resize(m_hasTextureCoordinates ? 2 * count : 0);
    for (std::size_t i = 0; i < count; ++i) {
        const float* const row = &m_vertices.rows()[i * m_width];
        std::copy_n(row, kVertexWidth, &m_result.vertices[kVertexWidth * remap[i]]);
        if (m_hasTextureCoordinates) {
            std::copy_n(row + kVertexWidth, 2, &m_result.textureCoordinates[std::size_t{2} * remap[i]]);
        }
    }
}

bool areFinite(const std::vector<float>& numbers)
{
    return std::all_of(numbers.begin(), numbers.end(), [](float number) { return std::isfinite(number); });
}

} // namespace

std::shared_ptr<const KrIndexedMesh> KrIndexedMesh::make(const KrTriPhysicalExtent& mesh)
{
    return std::make_shared<const KrIndexedMesh>(LevelZero(mesh).run());
}

std::shared_ptr<const KrIndexedMesh> KrIndexedMesh::withLevels(const KrIndexedMesh& mesh)
{
    auto result = std::make_shared<KrIndexedMesh>(KrMeshLevels::make(mesh));
    // For all who allow any error: level 0 once more, as a vertex cache likes it.
    KrVertexTable positions(3);
    std::vector<std::uint32_t> positionOf(mesh.numVertices());
    for (std::size_t i = 0; i < positionOf.size(); ++i) {
        positionOf[i] = positions.number(&mesh.vertices[kVertexWidth * i]);
    }
    Level ordered = result->levels[0];
    for (Range& group : ordered.groups) {
        const std::vector<std::uint32_t> given(result->indices.begin() + group.first,
                                               result->indices.begin() + group.first + group.count);
        std::vector<std::uint32_t> corners(given.size());
        std::transform(given.begin(), given.end(), corners.begin(),
                       [&positionOf](std::uint32_t index) { return positionOf[index]; });
        group.first = static_cast<std::uint32_t>(result->indices.size());
        result->indices.insert(result->indices.end(), given.begin(), given.end());
        KrTriangleOrder::optimize(result->indices.data() + group.first, corners.data(), corners.size());
    }
    result->levels.insert(result->levels.begin() + 1, ordered);
    return result;
}

std::shared_ptr<const KrIndexedMesh> KrIndexedMesh::moved(const KrIndexedMesh& mesh, const KrTriPhysicalExtent& moved,
                                                          const KrCoordinateSystemTransformation& pose)
{
    auto result = std::make_shared<KrIndexedMesh>(mesh);
    std::vector<bool> isSet(mesh.numVertices(), false);
    for (std::size_t group = 0; group < mesh.levels[0].groups.size(); ++group) {
        const TriangleList& triangles = moved.groups()[static_cast<unsigned int>(group)].second();
        const Range& range = mesh.levels[0].groups[group];
        for (std::uint32_t i = 0; i < range.count; ++i) {
            const KrTriangle& triangle = triangles[i / 3];
            // Level 0 has the corners in their order. From the lists, so that the floats are those of their numbers.
            const KrVector& position = moved.vertices()[triangle.vertex(i % 3)];
            const KrVector& normal = moved.normals()[triangle.normal(i % 3)];
            const float corner[kVertexWidth] = {static_cast<float>(position.x()), static_cast<float>(position.y()),
                                                static_cast<float>(position.z()), static_cast<float>(normal.x()),
                                                static_cast<float>(normal.y()),   static_cast<float>(normal.z())};
            const std::uint32_t index = mesh.indices[range.first + i];
            float* const vertex = &result->vertices[kVertexWidth * index];
            if (isSet[index] && std::memcmp(vertex, corner, sizeof corner) != 0) {
                return nullptr;
            }
            std::copy_n(corner, kVertexWidth, vertex);
            isSet[index] = true;
        }
    }
    // Vertices of coarser levels stand for nothing in the lists.
    for (std::size_t i = 0; i < isSet.size(); ++i) {
        if (!isSet[i]) {
            const float* const before = &mesh.vertices[kVertexWidth * i];
            const KrVector position = pose.transformPoint(KrVector(before[0], before[1], before[2]));
            const KrVector normal = pose.transformDirection(KrVector(before[3], before[4], before[5]));
            const double numbers[kVertexWidth] = {position.x(), position.y(), position.z(),
                                                  normal.x(),   normal.y(),   normal.z()};
            std::transform(numbers, numbers + kVertexWidth, &result->vertices[kVertexWidth * i],
                           [](double number) { return static_cast<float>(number); });
        }
    }
    return result;
}

bool KrIndexedMesh::hasLevelZeroOf(const KrIndexedMesh& other) const
{
    if (this == &other) {
        return true;
    }
    const auto isStart = [](const auto& a, const auto& b) {
        return std::equal(a.begin(), a.begin() + std::min(a.size(), b.size()), b.begin());
    };
    const auto isSameRange = [&](const Range& mine, const Range& others) {
        return mine.count == others.count &&
               std::equal(indices.begin() + mine.first, indices.begin() + mine.first + mine.count,
                          other.indices.begin() + others.first);
    };
    return isStart(vertices, other.vertices) && isStart(textureCoordinates, other.textureCoordinates) &&
           textureCoordinates.empty() == other.textureCoordinates.empty() &&
           std::equal(levels[0].groups.begin(), levels[0].groups.end(), other.levels[0].groups.begin(),
                      other.levels[0].groups.end(), isSameRange);
}

bool KrIndexedMesh::isConsistent() const
{
    const std::size_t count = numVertices();
    if (vertices.size() != kVertexWidth * count ||
        (!textureCoordinates.empty() && textureCoordinates.size() != 2 * count) || !areFinite(vertices) ||
        !areFinite(textureCoordinates) || levels.empty() || levels[0].error != 0.0f) {
        return false;
    }
    float error = 0.0f;
    for (const Level& level : levels) {
        // Written so that NaN fails too.
        if (!(level.error >= error) || !std::isfinite(level.error) || level.groups.size() != levels[0].groups.size()) {
            return false;
        }
        error = level.error;
        for (const Range& group : level.groups) {
            if (group.count % 3 != 0 || group.first > indices.size() || group.count > indices.size() - group.first) {
                return false;
            }
        }
    }
    return std::all_of(indices.begin(), indices.end(), [count](std::uint32_t index) { return index < count; });
}
