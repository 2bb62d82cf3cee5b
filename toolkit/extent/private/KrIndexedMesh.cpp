#include <toolkit/extent/private/KrIndexedMesh.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/extent/private/KrClosedSurface.h>
#include <toolkit/extent/private/KrEqualPositions.h>
#include <toolkit/extent/private/KrFloat3.h>
#include <toolkit/extent/private/KrMeshLevels.h>
#include <toolkit/extent/private/KrTriangleOrder.h>
#include <toolkit/foundation/private/KrRowTable.h>
#include <toolkit/math/KrCoordinateSystemTransformation.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <map>
#include <tuple>

namespace
{

using TriangleList = KrXmlVectorType<KrTriangle>;

/// Position and normal.
constexpr std::size_t kVertexWidth = 6;
constexpr std::uint32_t kNone = 0xffffffffu;
/// At one position, one after the other: more are looked up in a tree. Ordinary meshes have one to six.
constexpr unsigned int kMostInChain = 16;

/// A vertex as it is drawn: with its texture coordinates behind it, or zeros.
using Row = std::array<float, kVertexWidth + 2>;

/// Makes level 0 of a mesh, step by step.
///
/// Equal positions are found first, then vertices among the few that stand at one position. Vertices are numbered as
/// the indices come to them first, so that they are read from front to back.
class LevelZero
{
public:
    explicit LevelZero(const KrTriPhysicalExtent& mesh)
        : m_mesh(mesh)
        , m_hasTextureCoordinates(!mesh.textureCoordinates().empty())
    {
    }

    KrIndexedMesh run();

private:
    /// Of the first position of the list in that place.
    struct Place
    {
        std::uint32_t newest = kNone; ///< of the vertices there
        std::uint32_t number = kNone; ///< of the place, from 0 on as the indices come to them
    };
    /// Of a vertex: the indices of the corner that it was made for, and the next older vertex of its place.
    struct Origin
    {
        std::uint32_t position, normal, textureCoordinate;
        std::uint32_t older;
    };

    bool isClosed() const;
    bool isInRange(const TriangleList& triangles) const;
    void addGroup(const TriangleList& triangles);
    std::uint32_t vertexOf(const Origin& corner);
    std::uint32_t crowdedVertexOf(const Row& row, const Place& place);
    Row rowOf(const Origin& corner) const;
    bool isVertex(std::uint32_t vertex, const Row& row) const;
    std::uint32_t addVertex(const Origin& corner, const Row& row, const Place& place);

    const KrTriPhysicalExtent& m_mesh;
    bool m_hasTextureCoordinates;
    std::vector<std::uint32_t> m_firstOf;                                           ///< by position of the mesh
    std::vector<Place> m_places;                                                    ///< by position of the mesh
    std::vector<Origin> m_origins;                                                  ///< by vertex
    std::map<std::array<std::uint32_t, kVertexWidth + 2>, std::uint32_t> m_crowded; ///< vertices by their bits
    std::vector<std::uint32_t> m_placeOf;                                           ///< by vertex, the number
    std::vector<float> m_positions;                                                 ///< by number of the place
    KrIndexedMesh m_result;
};

KrIndexedMesh LevelZero::run()
{
    const std::size_t numCorners = 3 * m_mesh.numTriangles();
    const std::size_t numVertices =
        std::min<std::size_t>(numCorners, std::max(m_mesh.vertices().size(), m_mesh.normals().size()));
    m_result.levels.resize(1);
    m_result.indices.reserve(numCorners);
    m_result.vertices.reserve(kVertexWidth * numVertices);
    m_origins.reserve(numVertices);
    m_placeOf.reserve(numVertices);
    m_firstOf = KrEqualPositions::firstOf(m_mesh.vertices());
    m_places.resize(m_firstOf.size());
    for (const KrTriPhysicalExtent::Group& group : m_mesh.groups()) {
        addGroup(group.second());
    }
    // With their memory, which `= {}` would keep.
    m_firstOf = std::vector<std::uint32_t>();
    m_places = std::vector<Place>();
    m_origins = std::vector<Origin>();
    // These live as long as the mesh.
    m_result.vertices.shrink_to_fit();
    m_result.textureCoordinates.shrink_to_fit();
    m_result.isClosed = isClosed();
    return std::move(m_result);
}

bool LevelZero::isClosed() const
{
    // Places and vertices are numbered in the same order: where there are as many, the numbers are the same.
    if (m_positions.size() == 3 * m_placeOf.size()) {
        return KrClosedSurface::isClosed(m_positions, m_result.indices);
    }
    std::vector<std::uint32_t> corners(m_result.indices.size());
    std::transform(m_result.indices.begin(), m_result.indices.end(), corners.begin(),
                   [this](std::uint32_t index) { return m_placeOf[index]; });
    return KrClosedSurface::isClosed(m_positions, corners);
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
            for (unsigned int k = 0; k < 3; ++k) {
                const Origin corner = {triangle.vertex(k), triangle.normal(k),
                                       m_hasTextureCoordinates ? triangle.textureCoordinate(k) : 0, kNone};
                m_result.indices.push_back(vertexOf(corner));
            }
        }
    }
    range.count = static_cast<std::uint32_t>(m_result.indices.size()) - range.first;
    m_result.levels[0].groups.push_back(range);
}

// By the values: exporters write a vertex, and even more so a normal, once for each triangle that has it.
std::uint32_t LevelZero::vertexOf(const Origin& corner)
{
    Place& place = m_places[m_firstOf[corner.position]];
    // Most often by the same indices, which are looked at first: that needs none of the lists.
    for (std::uint32_t vertex = place.newest; vertex != kNone; vertex = m_origins[vertex].older) {
        const Origin& origin = m_origins[vertex];
        if (origin.position == corner.position && origin.normal == corner.normal &&
            origin.textureCoordinate == corner.textureCoordinate) {
            return vertex;
        }
    }
    const Row row = rowOf(corner);
    unsigned int length = 0;
    for (std::uint32_t vertex = place.newest; vertex != kNone; vertex = m_origins[vertex].older, ++length) {
        if (isVertex(vertex, row)) {
            return vertex;
        }
    }
    if (length == kMostInChain) {
        return crowdedVertexOf(row, place);
    }
    if (place.number == kNone) {
        place.number = static_cast<std::uint32_t>(m_positions.size() / 3);
        // Adding 0 makes 0 of -0, which is the same place.
        for (std::size_t i = 0; i < 3; ++i) {
            m_positions.push_back(row[i] + 0.0f);
        }
    }
    const std::uint32_t vertex = addVertex(corner, row, place);
    m_origins[vertex].older = place.newest;
    place.newest = vertex;
    return vertex;
}

/// Of a place with more vertices than a chain holds, among those that it does not hold.
std::uint32_t LevelZero::crowdedVertexOf(const Row& row, const Place& place)
{
    std::array<std::uint32_t, std::tuple_size<Row>::value> bits = {};
    std::memcpy(bits.data(), row.data(), sizeof bits);
    const auto [known, isNew] = m_crowded.emplace(bits, kNone);
    if (isNew) {
        known->second = addVertex({kNone, kNone, kNone, kNone}, row, place);
    }
    return known->second;
}

Row LevelZero::rowOf(const Origin& corner) const
{
    const KrVector& position = m_mesh.vertices()[corner.position];
    const KrVector& normal = m_mesh.normals()[corner.normal];
    Row row = {static_cast<float>(position.x()), static_cast<float>(position.y()), static_cast<float>(position.z()),
               static_cast<float>(normal.x()),   static_cast<float>(normal.y()),   static_cast<float>(normal.z())};
    if (m_hasTextureCoordinates) {
        const KrPlanarVector& uv = m_mesh.textureCoordinates()[corner.textureCoordinate];
        row[kVertexWidth] = static_cast<float>(uv.u());
        row[kVertexWidth + 1] = static_cast<float>(uv.v());
    }
    return row;
}

bool LevelZero::isVertex(std::uint32_t vertex, const Row& row) const
{
    return std::memcmp(&m_result.vertices[kVertexWidth * vertex], row.data(), kVertexWidth * sizeof(float)) == 0 &&
           (!m_hasTextureCoordinates || std::memcmp(&m_result.textureCoordinates[std::size_t{2} * vertex],
                                                    &row[kVertexWidth], 2 * sizeof(float)) == 0);
}

std::uint32_t LevelZero::addVertex(const Origin& corner, const Row& row, const Place& place)
{
    m_origins.push_back(corner);
    m_placeOf.push_back(place.number);
    // One by one, which for so few is faster than as a range.
    for (std::size_t i = 0; i < kVertexWidth; ++i) {
        m_result.vertices.push_back(row[i]);
    }
    if (m_hasTextureCoordinates) {
        m_result.textureCoordinates.insert(m_result.textureCoordinates.end(), row.begin() + kVertexWidth, row.end());
    }
    return static_cast<std::uint32_t>(m_origins.size() - 1);
}

/// From number `first` on.
bool areFinite(const std::vector<float>& numbers, std::size_t first)
{
    return std::all_of(numbers.begin() + static_cast<std::ptrdiff_t>(first), numbers.end(),
                       [](float number) { return std::isfinite(number); });
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
    KrRowTable<KrFloat3> positions;
    std::vector<std::uint32_t> positionOf(mesh.numVertices());
    for (std::size_t i = 0; i < positionOf.size(); ++i) {
        const float* const p = &mesh.vertices[kVertexWidth * i];
        positionOf[i] = positions.number({p[0], p[1], p[2]});
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

bool KrIndexedMesh::isConsistent(std::size_t numKnown) const
{
    const std::size_t count = numVertices();
    if (vertices.size() != kVertexWidth * count ||
        (!textureCoordinates.empty() && textureCoordinates.size() != 2 * count) ||
        !areFinite(vertices, kVertexWidth * std::min(numKnown, count)) || !areFinite(textureCoordinates, 0) ||
        levels.empty() || levels[0].error != 0.0f || levels[0].change != 0.0f) {
        return false;
    }
    float error = 0.0f;
    float change = 0.0f;
    std::uint64_t numUsed = 0;
    for (const Level& level : levels) {
        // Written so that NaN fails too.
        if (!(level.error >= error) || !std::isfinite(level.error) || !(level.change >= change) ||
            !std::isfinite(level.change) || level.groups.size() != levels[0].groups.size()) {
            return false;
        }
        error = level.error;
        change = level.change;
        for (const Range& group : level.groups) {
            if (group.count % 3 != 0 || group.first > indices.size() || group.count > indices.size() - group.first) {
                return false;
            }
            numUsed += group.count;
        }
    }
    // Ranges that lie over one another would take more memory and time, where they are drawn, than there are indices.
    if (numUsed > indices.size()) {
        return false;
    }
    return std::all_of(indices.begin(), indices.end(), [count](std::uint32_t index) { return index < count; });
}
