#include <toolkit/extent/private/KrMeshPlaces.h>

#include <toolkit/extent/private/KrFloat3.h>
#include <toolkit/extent/private/KrIndexedMesh.h>
#include <toolkit/foundation/private/KrRowTable.h>

#include <array>
#include <cstring>

KrMeshPlaces::KrMeshPlaces(const KrIndexedMesh& mesh)
{
    KrRowTable<std::array<float, 6>> places;
    KrRowTable<KrFloat3> positionTable;
    const std::vector<KrIndexedMesh::Range>& ranges = mesh.levels[0].groups;
    // By vertex, and the group for which that holds: most corners have a vertex that was there before.
    constexpr std::uint32_t kNone = 0xffffffffu;
    std::vector<std::uint32_t> placeOf(mesh.numVertices()), groupOf(mesh.numVertices(), kNone);
    std::size_t numCorners = 0;
    for (const KrIndexedMesh::Range& range : ranges) {
        numCorners += range.count;
    }
    corners.reserve(numCorners);
    vertices.reserve(numCorners);
    for (std::uint32_t group = 0; group < ranges.size(); ++group) {
        for (std::uint32_t i = ranges[group].first; i < ranges[group].first + ranges[group].count; ++i) {
            const std::uint32_t vertex = mesh.indices[i];
            vertices.push_back(vertex);
            if (groupOf[vertex] == group) {
                corners.push_back(placeOf[vertex]);
                continue;
            }
            const float* const p = &mesh.vertices[std::size_t{6} * vertex];
            // Adding 0 makes 0 of -0, which is the same place. The group's number goes by its bits.
            std::array<float, 6> row = {p[0] + 0.0f, p[1] + 0.0f, p[2] + 0.0f};
            std::memcpy(&row[3], &group, sizeof group);
            if (!mesh.textureCoordinates.empty()) {
                row[4] = mesh.textureCoordinates[std::size_t{2} * vertex];
                row[5] = mesh.textureCoordinates[std::size_t{2} * vertex + 1];
            }
            const std::uint32_t place = places.number(row);
            if (place == groups.size()) {
                groups.push_back(group);
                spots.push_back(positionTable.number({row[0], row[1], row[2]}));
                positions.insert(positions.end(), row.begin(), row.begin() + 3);
            }
            groupOf[vertex] = group;
            placeOf[vertex] = place;
            corners.push_back(place);
        }
    }
    numSpots = static_cast<std::uint32_t>(positionTable.size());
}
