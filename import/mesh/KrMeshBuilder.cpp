#include <import/mesh/KrMeshBuilder.h>

#include <import/mesh/KrMeshNormals.h>
#include <import/mesh/KrVectorIndex.h>

#include <toolkit/extent/KrBoxPhysicalExtent.h>
#include <toolkit/extent/KrCylinderPhysicalExtent.h>
#include <toolkit/extent/KrSpherePhysicalExtent.h>
#include <toolkit/extent/private/KrKnownMesh.h>
#include <toolkit/foundation/KrReason.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <utility>

namespace
{

/// A group that is being filled; its triangles have our indices.
struct Group
{
    std::string name;
    const KrDataMap* look = nullptr;
    std::vector<KrTriangle> triangles;
};

/// Each axis by itself, as descriptions scale meshes.
KrVector scaled(const KrVector& v, const KrVector& scale)
{
    return {v.x() * scale.x(), v.y() * scale.y(), v.z() * scale.z()};
}

/// Each of them once, though every triangle around it asks for it. Empty for a scale of 1.
std::vector<KrVector> scaledVertices(const std::vector<KrVector>& vertices, const KrVector& scale)
{
    std::vector<KrVector> list;
    if (!(scale == KrVector(1.0, 1.0, 1.0))) {
        list.reserve(vertices.size());
        std::transform(vertices.begin(), vertices.end(), std::back_inserter(list),
                       [&scale](const KrVector& vertex) { return scaled(vertex, scale); });
    }
    return list;
}

/// Pictures are drawn with single precision.
bool isTooFar(const KrVector& v)
{
    return std::max({std::abs(v.x()), std::abs(v.y()), std::abs(v.z())}) > std::numeric_limits<float>::max();
}

class Builder
{
public:
    /// @param own  the same data, whose triangles may be taken; or null
    Builder(const KrMeshData& data, KrMeshData* own, const KrMeshBuilder::Options& options)
        : m_data(data)
        , m_own(own)
        , m_options(options)
        , m_isMirrored(options.scale.x() * options.scale.y() * options.scale.z() < 0.0)
        , m_scaled(scaledVertices(data.vertices, options.scale))
        , m_source(m_scaled.empty() ? data.vertices : m_scaled)
        , m_vertexMap(data.vertices.size(), KrMeshData::noNormal)
        , m_normalMap(data.normals.size(), KrMeshData::noNormal)
    {
    }

    KrMeshBuilder::Result run();

private:
    Group& groupFor(const KrMeshData::Group& source);
    std::string ownName(const std::string& name) const;
    void addTriangles(std::size_t number);
    bool takeTriangle(const KrTriangle& source, KrTriangle& triangle);
    std::uint32_t vertexIndex(std::uint32_t source);
    std::uint32_t normalIndex(std::uint32_t source);
    bool usesTexture() const;

    const KrMeshData& m_data;
    KrMeshData* m_own;
    const KrMeshBuilder::Options& m_options;
    bool m_isMirrored;
    std::vector<KrVector> m_scaled;         ///< the file's vertices; empty without a scale
    const std::vector<KrVector>& m_source;  ///< of the two lists of the file's vertices the one to take
    std::vector<std::uint32_t> m_vertexMap; ///< ours by the file's
    std::vector<std::uint32_t> m_normalMap;
    std::vector<KrVector> m_vertices;
    KrVectorIndex m_normals;
    std::vector<Group> m_groups;
    KrMeshBuilder::Result m_result;
};

KrMeshBuilder::Result Builder::run()
{
    m_vertices.reserve(m_data.vertices.size());
    m_normals.reserve(m_data.normals.size());
    for (std::size_t i = 0; i < m_data.groups.size(); ++i) {
        addTriangles(i);
    }
    // All groups together: an edge between two materials may be smooth.
    std::vector<std::vector<KrTriangle>*> lists;
    for (Group& group : m_groups) {
        // Counted without the degenerate ones: it is what a picture shows.
        lists.push_back(&group.triangles);
        m_result.triangles += group.triangles.size();
    }
    // No reason is given: that a file holds nothing is told by who asked for it.
    if (m_result.triangles == 0) {
        return m_result;
    }
    if (std::any_of(m_vertices.begin(), m_vertices.end(), isTooFar)) {
        m_result.why = "its vertices are too far away to be drawn";
        return m_result;
    }
    // After the scale: angles between triangles change with one that differs by axis.
    std::vector<KrVector> normals = m_normals.take();
    KrMeshNormals::fill(m_vertices, lists, KrMeshData::noNormal, m_options.numThreads, normals);

    boost::shared_ptr<KrTriPhysicalExtent> extent(new KrTriPhysicalExtent);
    KrXmlVectorType<KrTriPhysicalExtent::Group> groups;
    for (Group& group : m_groups) {
        // A group whose triangles were all degenerate leaves no trace, nor does its look.
        if (group.triangles.empty()) {
            continue;
        }
        if (group.look) {
            extent->setMaterial(group.name, *group.look);
        }
        groups.push_back({group.name, KrXmlVectorType<KrTriangle>(std::move(group.triangles))});
    }
    std::vector<KrPlanarVector> coordinates;
    if (usesTexture()) {
        // The corners of triangles without coordinates have index 0: it names the first one, whatever it is.
        coordinates = m_data.textureCoordinates;
    }
    const KrReason reason;
    if (extent->setMesh(KrXmlVectorVector(std::move(m_vertices)), KrXmlVectorVector(std::move(normals)),
                        KrXmlVectorType<KrPlanarVector>(std::move(coordinates)), std::move(groups), m_options.name)) {
        m_result.extent = extent;
    } else {
        m_result.why = reason.text("its numbers are no mesh");
    }
    return m_result;
}

Group& Builder::groupFor(const KrMeshData::Group& source)
{
    // The mesh's own look wins over the material of the description. Without looks all triangles become one group.
    const bool hasLook = source.hasLook && m_options.useLooks;
    const std::string name = hasLook ? ownName(source.name) : m_options.material;
    const auto isSame = [&name](const Group& group) { return group.name == name; };
    auto place = std::find_if(m_groups.begin(), m_groups.end(), isSame);
    if (place == m_groups.end()) {
        m_groups.push_back({name, hasLook ? &source.look : nullptr, {}});
        place = m_groups.end() - 1;
    }
    return *place;
}

/// The name of a look of the mesh's own, never that of the robot description's material.
std::string Builder::ownName(const std::string& name) const
{
    std::string own = name;
    const auto isTaken = [&own](const KrMeshData::Group& group) { return group.hasLook && group.name == own; };
    // Groups are kept apart by their names alone.
    while (own == m_options.material ||
           (own != name && std::any_of(m_data.groups.begin(), m_data.groups.end(), isTaken))) {
        own += " of the mesh";
    }
    return own;
}

/// Those of a group of the file.
void Builder::addTriangles(std::size_t number)
{
    const KrMeshData::Group& source = m_data.groups[number];
    std::vector<KrTriangle>& triangles = groupFor(source).triangles;
    std::size_t kept = triangles.size();
    const std::size_t count = source.triangles.size();
    const KrTriangle* from = source.triangles.data();
    if (m_own && kept == 0) {
        // In place: what is kept moves up over what has been looked at, and takes no memory.
        triangles = std::move(m_own->groups[number].triangles);
        from = triangles.data();
    } else {
        triangles.resize(kept + count);
    }
    for (std::size_t i = 0; i < count; ++i) {
        kept += takeTriangle(from[i], triangles[kept]) ? 1 : 0;
    }
    triangles.resize(kept);
}

/// @param source    may be the same as `triangle`
/// @param triangle  with our indices; as it was when the triangle is left out
bool Builder::takeTriangle(const KrTriangle& source, KrTriangle& triangle)
{
    // Judged behind the scale, which may flatten what was good.
    if (KrMeshNormals::isDegenerate(m_source[source.vertex(0)], m_source[source.vertex(1)],
                                    m_source[source.vertex(2)])) {
        ++m_result.degenerate;
        return false;
    }
    KrTriangle taken;
    for (unsigned int corner = 0; corner < 3; ++corner) {
        // A mirrored triangle is seen from behind unless its corners are taken backwards.
        const unsigned int from = m_isMirrored ? 2 - corner : corner;
        taken.setCorner(corner, vertexIndex(source.vertex(from)), normalIndex(source.normal(from)),
                        source.textureCoordinate(from));
    }
    triangle = taken;
    return true;
}

std::uint32_t Builder::vertexIndex(std::uint32_t source)
{
    std::uint32_t& index = m_vertexMap[source];
    // Only vertices that a triangle uses come in: others would count in the extent's bounds.
    if (index == KrMeshData::noNormal) {
        index = static_cast<std::uint32_t>(m_vertices.size());
        m_vertices.push_back(m_source[source]);
    }
    return index;
}

std::uint32_t Builder::normalIndex(std::uint32_t source)
{
    if (source == KrMeshData::noNormal) {
        return source;
    }
    std::uint32_t& index = m_normalMap[source];
    if (index == KrMeshData::noNormal) {
        // Normals turn with the inverse transposed scale, mirrored ones too: what points outwards still does.
        const KrVector& scale = m_options.scale;
        KrVector normal = scaled(m_data.normals[source], {1.0 / scale.x(), 1.0 / scale.y(), 1.0 / scale.z()});
        // A normal that is no good stays unset: the triangles give one.
        if (normal.isFinite() && normal.normalize() > 0.0) {
            index = m_normals.add(normal);
        }
    }
    return index;
}

bool Builder::usesTexture() const
{
    // Without an image coordinates are memory for nothing.
    std::string image;
    return m_options.materialHasTexture || std::any_of(m_groups.begin(), m_groups.end(), [&image](const Group& group) {
               return group.look && group.look->string("krTextureFilename", image);
           });
}

using Parts = std::vector<boost::shared_ptr<KrBasePhysicalExtent>>;

/// One mesh of one group out of the placed surfaces of several extents.
KrKnownMesh joined(const Parts& parts, const std::string& material)
{
    KrKnownMesh lists;
    std::vector<KrTriangle> triangles;
    for (const boost::shared_ptr<KrBasePhysicalExtent>& part : parts) {
        // Tessellated where the part is a primitive.
        const boost::shared_ptr<const KrTriPhysicalExtent> mesh = part->triExtent();
        if (!mesh) {
            continue;
        }
        // Most volumes have one part; of several the list grows as it likes.
        if (triangles.empty()) {
            triangles.reserve(mesh->numTriangles());
        }
        // The part's indices move behind those of the parts before it.
        const std::uint32_t firstVertex = lists.vertices.size();
        const std::uint32_t firstNormal = lists.normals.size();
        lists.vertices.values().insert(lists.vertices.end(), mesh->vertices().begin(), mesh->vertices().end());
        lists.normals.values().insert(lists.normals.end(), mesh->normals().begin(), mesh->normals().end());
        const std::size_t first = triangles.size();
        for (const KrTriPhysicalExtent::Group& group : mesh->groups()) {
            triangles.insert(triangles.end(), group.second().begin(), group.second().end());
        }
        // Without texture coordinates: a volume has one plain look.
        const bool isMoved = firstVertex > 0 || firstNormal > 0 || !mesh->textureCoordinates().empty();
        for (std::size_t i = first; i < triangles.size() && isMoved; ++i) {
            for (unsigned int k = 0; k < 3; ++k) {
                triangles[i].setCorner(k, firstVertex + triangles[i].vertex(k), firstNormal + triangles[i].normal(k),
                                       0);
            }
        }
    }
    lists.groups.push_back({material, KrXmlVectorType<KrTriangle>(std::move(triangles))});
    return lists;
}

/// Moves the lists into a mesh; false, after one message, where a placement has moved them too far away to be drawn.
bool moveInto(KrTriPhysicalExtent& mesh, KrKnownMesh&& lists, const std::string& name)
{
    // The triangles of the parts are good.
    if (lists.areNumbersWhole()) {
        lists.moveTo(mesh, nullptr);
        return true;
    }
    return mesh.setMesh(std::move(lists.vertices), std::move(lists.normals), {}, std::move(lists.groups), name);
}

/// Whether the surface is surely near enough to be drawn, wherever its placement turns it.
bool isNear(const KrBasePhysicalExtent& part)
{
    constexpr double kNear = 1e30;
    const auto isSmall = [](const KrVector& v) {
        return std::abs(v.x()) < kNear && std::abs(v.y()) < kNear && std::abs(v.z()) < kNear;
    };
    const auto hasSmallVertices = [&isSmall](const KrTriPhysicalExtent* mesh) {
        return !mesh || std::all_of(mesh->vertices().begin(), mesh->vertices().end(), isSmall);
    };
    if (!isSmall(part.placement().translation())) {
        return false;
    }
    // Without a placed copy of a mesh, which is as long as the mesh, and without the surfaces of most primitives.
    if (const auto* const mesh = dynamic_cast<const KrTriPhysicalExtent*>(&part)) {
        return hasSmallVertices(mesh);
    }
    if (const auto* const box = dynamic_cast<const KrBoxPhysicalExtent*>(&part)) {
        return isSmall(box->size());
    }
    if (const auto* const sphere = dynamic_cast<const KrSpherePhysicalExtent*>(&part)) {
        return sphere->radius() < kNear;
    }
    if (const auto* const cylinder = dynamic_cast<const KrCylinderPhysicalExtent*>(&part)) {
        return cylinder->radius() < kNear && cylinder->length() < kNear;
    }
    return hasSmallVertices(part.triExtent().get());
}

} // namespace

KrMeshBuilder::Result KrMeshBuilder::build(const KrMeshData& data, const Options& options)
{
    return Builder(data, nullptr, options).run();
}

KrMeshBuilder::Result KrMeshBuilder::build(KrMeshData&& data, const Options& options)
{
    return Builder(data, &data, options).run();
}

boost::shared_ptr<KrTriPhysicalExtent>
KrMeshBuilder::merge(const std::vector<boost::shared_ptr<KrBasePhysicalExtent>>& parts, const std::string& material)
{
    boost::shared_ptr<KrTriPhysicalExtent> merged(new KrTriPhysicalExtent);
    if (!std::all_of(parts.begin(), parts.end(), [](const auto& part) { return isNear(*part); })) {
        return moveInto(*merged, joined(parts, material), material) ? merged : nullptr;
    }
    // Few look at a volume, so its lists, as long as those of what it encloses, wait for who does. Until then it holds
    // copies: they stay as they are now whatever becomes of the parts.
    Parts copies;
    for (const boost::shared_ptr<KrBasePhysicalExtent>& part : parts) {
        copies.emplace_back(dynamic_cast<KrBasePhysicalExtent*>(part->clone()));
    }
    const auto make = [copies = std::move(copies), material] {
        KrTriPhysicalExtent mesh;
        moveInto(mesh, joined(copies, material), material);
        return mesh;
    };
    KrKnownMesh::moveLater(make, *merged);
    return merged;
}
