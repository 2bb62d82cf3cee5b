#include <toolkit/extent/KrTriPhysicalExtent.h>

#include <toolkit/extent/private/KrIndexedMesh.h>
#include <toolkit/extent/private/KrKnownMesh.h>
#include <toolkit/foundation/KrNullDeleter.h>
#include <toolkit/foundation/KrPrint.h>
#include <toolkit/xml/KrXmlReader.h>

#include <boost/make_shared.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

namespace
{

using Group = KrTriPhysicalExtent::Group;

/// Normals further from length 1 than this are scaled; those of single precision are left as they are.
constexpr double kLengthTolerance = 1e-6;
/// A triangle is flat below this sine of its angle.
constexpr double kSineTolerance = 1e-12;

/// Whether each of the list's numbers can be drawn, which is done with single precision; NaN cannot.
bool areDrawable(const KrXmlVectorVector& vectors)
{
    constexpr double kMost = std::numeric_limits<float>::max();
    bool areGood = true;
    // To the end: a loop without a way out is several times as fast.
    for (const KrVector& v : vectors) {
        areGood &= std::abs(v.x()) <= kMost;
        areGood &= std::abs(v.y()) <= kMost;
        areGood &= std::abs(v.z()) <= kMost;
    }
    return areGood;
}

/// Whether all lengths are surely within the tolerance: by their squares, whose distance from 1 is twice as large.
bool areOfUnitLength(const KrXmlVectorVector& vectors)
{
    bool areGood = true;
    for (const KrVector& v : vectors) {
        areGood &= std::abs(v.dot(v) - 1.0) <= kLengthTolerance;
    }
    return areGood;
}

bool areFinite(const KrXmlVectorType<KrPlanarVector>& coordinates)
{
    return std::all_of(coordinates.begin(), coordinates.end(),
                       [](const KrPlanarVector& uv) { return std::isfinite(uv.u()) && std::isfinite(uv.v()); });
}

/// Checks the lists of a mesh and completes its normals, in one pass over each list.
class MeshCheck
{
public:
    MeshCheck(const KrXmlVectorVector& vertices, KrXmlVectorVector& normals,
              const KrXmlVectorType<KrPlanarVector>& textureCoordinates, KrXmlVectorType<Group>& groups)
        : m_vertices(vertices)
        , m_normals(normals)
        , m_textureCoordinates(textureCoordinates)
        , m_groups(groups)
        , m_areNormalsGiven(!normals.empty())
    {
    }

    /// False when the mesh is no mesh: `problem` says why, and the lists are then of no further use.
    bool run();
    const std::string& problem() const { return m_problem; }

private:
    bool isWhole() const;
    bool areTrianglesWhole() const;
    bool checkNumbers();
    bool checkTriangle(const KrTriangle& triangle);
    bool checkIndex(const char* what, std::uint32_t index, std::size_t count);
    bool completeTriangle(KrTriangle& triangle);
    bool needsNormal(const KrTriangle& triangle, unsigned int corner) const;
    bool flatNormal(const KrTriangle& triangle, KrVector& normal) const;
    void scaleNormals();

    const KrXmlVectorVector& m_vertices;
    KrXmlVectorVector& m_normals;
    const KrXmlVectorType<KrPlanarVector>& m_textureCoordinates;
    KrXmlVectorType<Group>& m_groups;
    bool m_areNormalsGiven;
    bool m_areNormalsWhole = false; ///< none of them is without direction
    std::size_t m_triangle = 0;     ///< number in the mesh of the triangle in hand
    std::string m_problem;
};

/// Whether nothing is wrong, and nothing to be completed: so are the meshes of the importer and its cache, and those
/// that other meshes are copied into.
bool MeshCheck::isWhole() const
{
    return m_areNormalsGiven && areDrawable(m_vertices) && areOfUnitLength(m_normals) &&
           areFinite(m_textureCoordinates) && areTrianglesWhole();
}

bool MeshCheck::areTrianglesWhole() const
{
    std::uint32_t last[3] = {};
    bool isAny = false;
    for (const Group& group : m_groups) {
        for (const KrTriangle& triangle : group.second()) {
            for (unsigned int corner = 0; corner < 3; ++corner) {
                last[0] = std::max(last[0], triangle.vertex(corner));
                last[1] = std::max(last[1], triangle.normal(corner));
                last[2] = std::max(last[2], triangle.textureCoordinate(corner));
            }
        }
        isAny = isAny || !group.second().empty();
    }
    // Without texture coordinates their indices are 0, as they are to be.
    const std::size_t numCoordinates = std::max<std::size_t>(m_textureCoordinates.size(), 1);
    return !isAny || (last[0] < m_vertices.size() && last[1] < m_normals.size() && last[2] < numCoordinates);
}

// In this order: numbers are finite before they are used, and indices are there before they are followed.
bool MeshCheck::run()
{
    if (isWhole()) {
        return true;
    }
    // Copies, since the check completes the lists that it is given.
    if (!checkNumbers()) {
        return false;
    }
    // After the numbers are known to be finite, and before a triangle asks for a normal.
    scaleNormals();
    // Most meshes have all their normals: one look at each normal is less than three at each triangle.
    m_areNormalsWhole =
        m_areNormalsGiven && std::find(m_normals.begin(), m_normals.end(), KrVector()) == m_normals.end();
    for (Group& group : m_groups) {
        std::vector<KrTriangle>& triangles = group.second().values();
        std::size_t kept = 0;
        for (KrTriangle& triangle : triangles) {
            if (!checkTriangle(triangle)) {
                return false;
            }
            if (completeTriangle(triangle)) {
                // Kept triangles move up in place; those that are left out have no area and would not be seen.
                triangles[kept++] = triangle;
            }
            ++m_triangle;
        }
        triangles.resize(kept);
    }
    return true;
}

/// Pictures are drawn with single precision.
bool isTooFar(const KrVector& v)
{
    return std::max({std::abs(v.x()), std::abs(v.y()), std::abs(v.z())}) > std::numeric_limits<float>::max();
}

// Every number of the lists, whether a triangle uses it or not: they are all handed to OpenGL.
bool MeshCheck::checkNumbers()
{
    // By the number in the list, so that the message finds the place in a file.
    const auto checkVectors = [this](const char* what, const KrXmlVectorVector& vectors) {
        const auto bad =
            std::find_if(vectors.begin(), vectors.end(), [](const KrVector& vector) { return !vector.isFinite(); });
        if (bad != vectors.end()) {
            m_problem = what + (" " + std::to_string(bad - vectors.begin())) + " is not finite";
        }
        return bad == vectors.end();
    };
    if (!checkVectors("vertex", m_vertices) || !checkVectors("normal", m_normals)) {
        return false;
    }
    const auto far = std::find_if(m_vertices.begin(), m_vertices.end(), isTooFar);
    if (far != m_vertices.end()) {
        m_problem = "vertex " + std::to_string(far - m_vertices.begin()) + " is too far away to be drawn";
        return false;
    }
    const auto bad = std::find_if(m_textureCoordinates.begin(), m_textureCoordinates.end(),
                                  [](const auto& uv) { return !std::isfinite(uv.u()) || !std::isfinite(uv.v()); });
    if (bad != m_textureCoordinates.end()) {
        m_problem = "texture coordinate " + std::to_string(bad - m_textureCoordinates.begin()) + " is not finite";
        return false;
    }
    return true;
}

void MeshCheck::scaleNormals()
{
    for (KrVector& normal : m_normals) {
        // What is within the tolerance is written and read back unchanged.
        if (std::abs(normal.length() - 1.0) > kLengthTolerance) {
            normal.normalize();
        }
    }
}

// The first wrong number ends the check, so that there is one message.
bool MeshCheck::checkIndex(const char* what, std::uint32_t index, std::size_t count)
{
    if (index >= count) {
        m_problem = "triangle " + std::to_string(m_triangle) + " uses " + what + " " + std::to_string(index) + " of " +
                    std::to_string(count);
    }
    return index < count;
}

bool MeshCheck::checkTriangle(const KrTriangle& triangle)
{
    const auto isGood = [&](unsigned int corner) {
        return triangle.vertex(corner) < m_vertices.size() &&
               (!m_areNormalsGiven || triangle.normal(corner) < m_normals.size()) &&
               (m_textureCoordinates.empty() || triangle.textureCoordinate(corner) < m_textureCoordinates.size());
    };
    if (isGood(0) && isGood(1) && isGood(2)) {
        return true;
    }
    // Once more, for the words.
    for (unsigned int corner = 0; corner < 3; ++corner) {
        if (!checkIndex("vertex", triangle.vertex(corner), m_vertices.size()) ||
            // Numbers of lists that are not there mean nothing.
            (m_areNormalsGiven && !checkIndex("normal", triangle.normal(corner), m_normals.size())) ||
            (!m_textureCoordinates.empty() &&
             !checkIndex("texture coordinate", triangle.textureCoordinate(corner), m_textureCoordinates.size()))) {
            return false;
        }
    }
    return true;
}

// Of a corner: without any normals in the mesh, or with one that has no direction.
bool MeshCheck::needsNormal(const KrTriangle& triangle, unsigned int corner) const
{
    // A normal of length 0 is one that is missing.
    return !m_areNormalsGiven || m_normals[triangle.normal(corner)] == KrVector();
}

/// False for a triangle whose corners lie on a line.
bool MeshCheck::flatNormal(const KrTriangle& triangle, KrVector& normal) const
{
    // Sides are made equally long first, so that the sine tells the shape of a triangle and not its size.
    KrVector first = m_vertices[triangle.vertex(1)] - m_vertices[triangle.vertex(0)];
    KrVector second = m_vertices[triangle.vertex(2)] - m_vertices[triangle.vertex(0)];
    first.normalize();
    second.normalize();
    normal = first.cross(second);
    // Written so that NaN fails too.
    return normal.normalize() > kSineTolerance;
}

/// Gives every corner what it lacks; false when the triangle is to be left out.
bool MeshCheck::completeTriangle(KrTriangle& triangle)
{
    if (m_areNormalsWhole && !m_textureCoordinates.empty()) {
        return true;
    }
    const bool isLacking =
        !m_areNormalsWhole && (needsNormal(triangle, 0) || needsNormal(triangle, 1) || needsNormal(triangle, 2));
    // The next number: a triangle gets one normal for all corners that lack one.
    const std::uint32_t computed = m_normals.size();
    if (isLacking) {
        KrVector normal;
        // A triangle that is a line is left out only where it needs a normal; with normals of its own it does no harm.
        if (!flatNormal(triangle, normal)) {
            return false;
        }
        m_normals.push_back(normal);
    }
    for (unsigned int corner = 0; corner < 3; ++corner) {
        const bool isComputed = isLacking && needsNormal(triangle, corner);
        triangle.setCorner(corner, triangle.vertex(corner), isComputed ? computed : triangle.normal(corner),
                           m_textureCoordinates.empty() ? 0 : triangle.textureCoordinate(corner));
    }
    return true;
}

} // namespace

bool KrKnownMesh::areNumbersWhole() const
{
    return areDrawable(vertices) && areOfUnitLength(normals) && areFinite(textureCoordinates);
}

void KrKnownMesh::moveTo(KrTriPhysicalExtent& mesh, const std::shared_ptr<const KrIndexedMesh>& indexedMesh)
{
    mesh.m_lists = KrTriPhysicalExtent::SharedLists(KrTriPhysicalExtent::Lists{
        std::move(vertices), std::move(normals), std::move(textureCoordinates), std::move(groups)});
    mesh.m_indexedMesh.set(indexedMesh);
    mesh.touch();
}

void KrKnownMesh::moveLater(std::function<KrTriPhysicalExtent()> make, KrTriPhysicalExtent& mesh)
{
    mesh.m_lists = KrTriPhysicalExtent::SharedLists(std::move(make));
    mesh.m_indexedMesh.set(nullptr);
    mesh.touch();
}

KrTriPhysicalExtent::SharedLists::SharedLists(Lists&& lists)
{
    m_kept->lists = std::move(lists);
}

KrTriPhysicalExtent::SharedLists::SharedLists(std::function<KrTriPhysicalExtent()> make)
{
    m_kept->make = std::move(make);
    m_kept->isMade = false;
}

// Under the lock: a second thread waits for the first one's.
void KrTriPhysicalExtent::SharedLists::make() const
{
    const std::lock_guard<std::mutex> lock(m_kept->mutex);
    if (m_kept->make) {
        // A mesh that nobody else has.
        m_kept->lists = std::move(m_kept->make().m_lists.own());
        m_kept->make = nullptr;
        m_kept->isMade.store(true, std::memory_order_release);
    }
}

// Of the groups as they are, without the triangles that were left out.
std::size_t KrTriPhysicalExtent::numTriangles() const
{
    std::size_t count = 0;
    for (const Group& group : groups()) {
        count += group.second().size();
    }
    return count;
}

unsigned int KrTriPhysicalExtent::numGroupNames() const
{
    return groups().size();
}

// Empty beyond the last one.
std::string KrTriPhysicalExtent::groupName(unsigned int i) const
{
    return i < groups().size() ? groups()[i].first().value() : std::string();
}

// A material for a group that is not there yet is kept for it.
void KrTriPhysicalExtent::setMaterial(const std::string& groupName, const KrDataMap& material)
{
    m_materialMap.set(groupName, material);
    touch();
}

void KrTriPhysicalExtent::setMaterialMap(const KrMaterialMap& materials)
{
    m_materialMap = materials;
    touch();
}

bool KrTriPhysicalExtent::setMesh(const KrXmlVectorVector& vertices, const KrXmlVectorVector& normals,
                                  const KrXmlVectorType<KrPlanarVector>& textureCoordinates,
                                  const KrXmlVectorType<Group>& groups, const std::string& name)
{
    return setMesh(KrXmlVectorVector(vertices), KrXmlVectorVector(normals),
                   KrXmlVectorType<KrPlanarVector>(textureCoordinates), KrXmlVectorType<Group>(groups), name);
}

bool KrTriPhysicalExtent::setMesh(KrXmlVectorVector&& vertices, KrXmlVectorVector&& normals,
                                  KrXmlVectorType<KrPlanarVector>&& textureCoordinates, KrXmlVectorType<Group>&& groups,
                                  const std::string& name)
{
    MeshCheck check(vertices, normals, textureCoordinates, groups);
    if (!check.run()) {
        Kr::Print::instance()->write(Kr::Print::Warning,
                                     "KrTriPhysicalExtent::setMesh - %s: %s; the mesh is left out.\n", name.c_str(),
                                     check.problem().c_str());
        return false;
    }
    m_lists =
        SharedLists(Lists{std::move(vertices), std::move(normals), std::move(textureCoordinates), std::move(groups)});
    m_indexedMesh.set(nullptr);
    touch();
    return true;
}

boost::shared_ptr<const KrTriPhysicalExtent> KrTriPhysicalExtent::triExtent() const
{
    // Its own mesh form, where nothing has to be moved. Not owned: the extent may live on the stack.
    if (placement().isIdentity()) {
        return boost::shared_ptr<const KrTriPhysicalExtent>(this, KrNullDeleter());
    }
    return KrBasePhysicalExtent::triExtent();
}

boost::shared_ptr<KrTriPhysicalExtent>
// The checks of setMesh are not repeated: a pose makes no bad mesh of a good one.
KrTriPhysicalExtent::transformed(const KrCoordinateSystemTransformation& pose) const
{
    const auto result = boost::make_shared<KrTriPhysicalExtent>();
    // A copy without a placement: the triangles are where the placement puts them.
    result->m_materialName = m_materialName;
    result->m_materialMap = m_materialMap;
    Lists& moved = result->m_lists.own();
    moved = m_lists.get();
    for (KrVector& vertex : moved.vertices) {
        vertex = pose.transformPoint(vertex);
    }
    for (KrVector& normal : moved.normals) {
        normal = pose.transformDirection(normal);
    }
    // What was prepared here, or read from a cache, is not made once more.
    if (const std::shared_ptr<const KrIndexedMesh> indexed = m_indexedMesh.made()) {
        result->m_indexedMesh.set(KrIndexedMesh::moved(*indexed, *result, pose));
    }
    return result;
}

std::shared_ptr<const KrIndexedMesh> KrTriPhysicalExtent::indexedMesh() const
{
    return m_indexedMesh.get(*this);
}

std::shared_ptr<const KrIndexedMesh> KrTriPhysicalExtent::indexedMeshWithLevels() const
{
    return m_indexedMesh.getWithLevels(*this);
}

// No message: whoever has a form that does not fit goes without it.
bool KrTriPhysicalExtent::setIndexedMesh(const std::shared_ptr<const KrIndexedMesh>& indexedMesh)
{
    if (indexedMesh) {
        const bool isFitting =
            indexedMesh->isConsistent() &&
            std::equal(groups().begin(), groups().end(), indexedMesh->levels[0].groups.begin(),
                       indexedMesh->levels[0].groups.end(), [](const Group& group, const KrIndexedMesh::Range& range) {
                           return range.count == std::uint64_t{3} * group.second().size();
                       });
        if (!isFitting) {
            return false;
        }
    }
    m_indexedMesh.set(indexedMesh);
    return true;
}

// A copy has the same lists. It has a lock of its own, though.
KrTriPhysicalExtent::KeptIndexedMesh::KeptIndexedMesh(const KeptIndexedMesh& other)
{
    const std::lock_guard<std::mutex> lock(other.m_mutex);
    m_mesh = other.m_mesh;
}

KrTriPhysicalExtent::KeptIndexedMesh& KrTriPhysicalExtent::KeptIndexedMesh::operator=(const KeptIndexedMesh& other)
{
    // By way of a copy: never both locks at once.
    set(KeptIndexedMesh(other).m_mesh);
    return *this;
}

// Made under the lock: a second thread waits for the first one's instead of making its own.
std::shared_ptr<const KrIndexedMesh> KrTriPhysicalExtent::KeptIndexedMesh::get(const KrTriPhysicalExtent& mesh)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_mesh) {
        m_mesh = KrIndexedMesh::make(mesh);
    }
    return m_mesh;
}

// Levels take long: only those who want levels wait.
std::shared_ptr<const KrIndexedMesh>
KrTriPhysicalExtent::KeptIndexedMesh::getWithLevels(const KrTriPhysicalExtent& mesh)
{
    const std::lock_guard<std::mutex> lock(m_levelsMutex);
    const std::shared_ptr<const KrIndexedMesh> without = get(mesh);
    if (without->areLevelsMade) {
        return without;
    }
    const std::shared_ptr<const KrIndexedMesh> result = KrIndexedMesh::withLevels(*without);
    set(result);
    return result;
}

std::shared_ptr<const KrIndexedMesh> KrTriPhysicalExtent::KeptIndexedMesh::made() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_mesh;
}

void KrTriPhysicalExtent::KeptIndexedMesh::set(const std::shared_ptr<const KrIndexedMesh>& indexedMesh)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_mesh = indexedMesh;
}

bool KrTriPhysicalExtent::read(KrXmlReader& reader)
{
    // What is read in place goes into the lists, which are not to be a copy's as well. Another mesh is read into a new
    // object, whose lists are taken over.
    if (reader.isScratch()) {
        m_lists = SharedLists();
    }
    return KrBasePhysicalExtent::read(reader);
}

KrXmlToken KrTriPhysicalExtent::token() const
{
    return {KrXmlNamespace::core(), "mesh"};
}

void KrTriPhysicalExtent::registerComponents()
{
    KrBasePhysicalExtent::registerComponents();
    // Made, if they are not: they are looked at next.
    m_lists.get();
    Lists& lists = m_lists.own();
    registerComponent({KrXmlNamespace::core(), "vertices"}, lists.vertices);
    registerComponent({KrXmlNamespace::core(), "normals"}, lists.normals, Presence::Optional);
    registerComponent({KrXmlNamespace::core(), "textureCoordinates"}, lists.textureCoordinates, Presence::Optional);
    registerComponent({KrXmlNamespace::core(), "groups"}, lists.groups);
    registerComponent({KrXmlNamespace::core(), "materialMap"}, m_materialMap, Presence::Optional);
}

// The lists stand in the object already; a refused document throws the object away.
bool KrTriPhysicalExtent::completeRead(KrXmlReader& reader)
{
    m_indexedMesh.set(nullptr);
    Lists& lists = m_lists.own();
    MeshCheck check(lists.vertices, lists.normals, lists.textureCoordinates, lists.groups);
    // The base class first: it marks the extent as changed, whatever the check finds.
    return KrBasePhysicalExtent::completeRead(reader) && (check.run() || reader.fail("%s", check.problem().c_str()));
}

boost::shared_ptr<KrTriPhysicalExtent> KrTriPhysicalExtent::makeTriangles() const
{
    // By way of the identity, as a copy: the result has no placement of its own.
    return transformed(KrCoordinateSystemTransformation());
}

boost::shared_ptr<const KrTriPhysicalExtent> KrTriPhysicalExtent::makePlacedTriangles() const
{
    return transformed(placement());
}
