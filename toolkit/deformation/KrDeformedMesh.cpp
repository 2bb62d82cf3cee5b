// The mesh as its poses and cuts make it, of KrDeformationPhysicalExtent.

#include <toolkit/deformation/KrDeformationPhysicalExtent.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/foundation/private/KrRowTable.h>

#include <boost/make_shared.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace
{

/// Weighted normals shorter than this are of no use: every triangle around is a line, or they cancel.
constexpr double kNoNormal = 1e-12;

KrVector between(const std::vector<KrVector>& list, const KrEdgePoint& point)
{
    return list[point.a()] * (1.0 - point.t()) + list[point.b()] * point.t();
}

/// Puts the pieces of a deforming mesh, each where it is, into the lists of one plain mesh.
class MeshCollector
{
public:
    explicit MeshCollector(const KrDeformationPhysicalExtent& extent)
        : m_extent(extent)
    {
    }
    void add(const KrDeformationGroup& group);

    KrXmlVectorVector vertices;
    KrXmlVectorVector normals;
    KrXmlVectorType<KrTriPhysicalExtent::Group> groups;

private:
    const KrDeformationPhysicalExtent& m_extent;
    KrRowTable<std::array<std::uint32_t, 2>> m_vertexNumbers; ///< of piece and point
    KrRowTable<std::array<std::uint32_t, 2>> m_normalNumbers; ///< of piece and normal
};

void MeshCollector::add(const KrDeformationGroup& group)
{
    const KrCoordinateSystemTransformation& offset = m_extent.pieceOffset(group.piece());
    std::vector<KrTriangle> triangles = group.triangles();
    for (KrTriangle& triangle : triangles) {
        for (unsigned int i = 0; i < 3; ++i) {
            // A vertex that two pieces share is in two places, so the pair is what counts.
            const std::uint32_t vertex = m_vertexNumbers.number({group.piece(), triangle.vertex(i)});
            if (vertex == vertices.size()) {
                vertices.push_back(offset.transformPoint(m_extent.points()[triangle.vertex(i)]));
            }
            const std::uint32_t normal = m_normalNumbers.number({group.piece(), triangle.normal(i)});
            if (normal == normals.size()) {
                normals.push_back(offset.transformDirection(m_extent.normals()[triangle.normal(i)]));
            }
            // Texture coordinates do not move and are shared as they are.
            triangle.setCorner(i, vertex, normal, triangle.textureCoordinate(i));
        }
    }
    groups.push_back(KrTriPhysicalExtent::Group(KrXmlBasicType<std::string>(group.name()),
                                                KrXmlVectorType<KrTriangle>(std::move(triangles))));
}

} // namespace

const std::vector<KrDeformationGroup>& KrDeformationPhysicalExtent::groups() const
{
    return m_cutGroups.empty() ? m_meshGroups.values() : m_cutGroups.values();
}

const std::vector<KrVector>& KrDeformationPhysicalExtent::points() const
{
    // Not by the virtual function: a derived class may have more to do than the lists that are asked for here.
    KrDeformationPhysicalExtent::recompute();
    return m_points;
}

const std::vector<KrVector>& KrDeformationPhysicalExtent::normals() const
{
    KrDeformationPhysicalExtent::recompute();
    return m_normals;
}

// Once for any number of changes since it was last asked for.
void KrDeformationPhysicalExtent::recompute() const
{
    if (!m_isUpToDate) {
        blendPoints();
        computeNormals();
        m_isUpToDate = true;
    }
}

// Each vertex is the weighted sum of its places in the neutral mesh and in the poses.
void KrDeformationPhysicalExtent::blendPoints() const
{
    // The vector keeps its memory: this runs in every frame in which a pose moves.
    m_points.resize(std::size_t(m_vertices.size()) + m_cutVertices.size());
    // Weights add up to 1 with the neutral mesh's, which may be below 0 when poses are exaggerated.
    double neutralWeight = 1.0;
    for (const KrDeformationPose& pose : m_poses) {
        neutralWeight -= pose.weight();
    }
    for (unsigned int i = 0; i < m_vertices.size(); ++i) {
        m_points[i] = m_vertices[i] * neutralWeight;
    }
    for (const KrDeformationPose& pose : m_poses) {
        const double weight = pose.weight();
        // Most poses have no weight most of the time.
        for (std::size_t i = 0; i < pose.vertices().size() && weight != 0.0; ++i) {
            m_points[i] += pose.vertices()[i] * weight;
        }
    }
    // Points of cuts follow the vertices, which stand by now; each comes after what it follows.
    std::size_t next = m_vertices.size();
    for (const KrEdgePoint& point : m_cutVertices) {
        m_points[next++] = between(m_points, point);
    }
}

/// Adds to the normal of each corner its triangle's, weighted by sine of the angle over the lengths of the edges: exact
/// on a sphere, and without trigonometry (N. Max, "Weights for computing vertex normals from facet normals", Journal of
/// Graphics Tools 4(2), 1999).
void KrDeformationPhysicalExtent::addCornerNormals(const KrDeformationGroup& group) const
{
    for (const KrTriangle& triangle : group.triangles()) {
        const KrVector& a = m_points[triangle.vertex(0)];
        const KrVector& b = m_points[triangle.vertex(1)];
        const KrVector& c = m_points[triangle.vertex(2)];
        const KrVector ab = b - a;
        const KrVector bc = c - b;
        const KrVector ca = a - c;
        const double ab2 = ab.dot(ab);
        const double bc2 = bc.dot(bc);
        const double ca2 = ca.dot(ca);
        const KrVector normal = ab.cross(bc);
        // A triangle that has shrunk to a line has no say.
        if (!(normal.dot(normal) > kNoNormal * kNoNormal * ab2 * bc2) || !(ca2 > 0.0)) {
            continue;
        }
        m_normals[triangle.normal(0)] += normal * (1.0 / (ab2 * ca2));
        m_normals[triangle.normal(1)] += normal * (1.0 / (ab2 * bc2));
        m_normals[triangle.normal(2)] += normal * (1.0 / (bc2 * ca2));
    }
}

// Of the whole triangles, as if nothing were cut, so that a cut leaves no seam in the shading.
void KrDeformationPhysicalExtent::computeNormals() const
{
    m_normals.resize(std::size_t(m_numMeshNormals) + m_cutNormals.size());
    std::fill(m_normals.begin(), m_normals.end(), KrVector());
    for (const KrDeformationGroup& group : m_meshGroups) {
        addCornerNormals(group);
    }
    // Parts of cut triangles take the normals of the whole ones; caps were no part of the mesh.
    for (const KrDeformationGroup& group : m_cutGroups) {
        if (group.isCap()) {
            addCornerNormals(group);
        }
    }
    const auto settle = [](KrVector& normal) {
        // A vertex without a triangle that counts has no direction; any will do, since nothing is drawn there.
        if (!(normal.normalize() > 0.0)) {
            normal.set(0.0, 0.0, 1.0);
        }
    };
    for (std::uint32_t i = 0; i < m_numMeshNormals; ++i) {
        settle(m_normals[i]);
    }
    std::size_t next = m_numMeshNormals;
    for (const KrEdgePoint& point : m_cutNormals) {
        // The normal of a cap names itself: its triangles have given it its value.
        if (point.a() != next) {
            m_normals[next] = between(m_normals, point);
        }
        settle(m_normals[next++]);
    }
}

unsigned int KrDeformationPhysicalExtent::numGroupNames() const
{
    return static_cast<unsigned int>(groups().size());
}

std::string KrDeformationPhysicalExtent::groupName(unsigned int i) const
{
    return i < groups().size() ? groups()[i].name() : std::string();
}

boost::shared_ptr<KrTriPhysicalExtent> KrDeformationPhysicalExtent::makeTriangles() const
{
    MeshCollector collector(*this);
    for (const KrDeformationGroup& group : groups()) {
        collector.add(group);
    }
    // Extents that do not deform are what the rest of the system asks for: one plain mesh.
    const auto mesh = boost::make_shared<KrTriPhysicalExtent>();
    mesh->setMesh(std::move(collector.vertices), std::move(collector.normals),
                  KrXmlVectorType<KrPlanarVector>(m_textureCoordinates), std::move(collector.groups), "deformed mesh");
    mesh->setMaterialMap(m_materialMap);
    return mesh;
}
