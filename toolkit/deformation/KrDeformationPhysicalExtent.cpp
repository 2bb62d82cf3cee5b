#include <toolkit/deformation/KrDeformationPhysicalExtent.h>

#include <toolkit/deformation/private/KrMeshPlaneCut.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/foundation/KrPrint.h>
#include <toolkit/xml/KrXmlReader.h>

#include <boost/make_shared.hpp>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <iterator>
#include <limits>
#include <map>
#include <unordered_map>
#include <utility>

namespace
{

/// Weighted normals shorter than this are of no use: every triangle around is a line, or they cancel.
constexpr double kNoNormal = 1e-12;

void warn(const char* method, const std::string& reason)
{
    Kr::Print::instance()->write(Kr::Print::Warning, "KrDeformationPhysicalExtent::%s - %s; nothing is changed.\n",
                                 method, reason.c_str());
}

bool areFinite(const std::vector<KrVector>& vectors)
{
    return std::all_of(vectors.begin(), vectors.end(), [](const KrVector& vector) { return vector.isFinite(); });
}

/// Every edge point comes after what it follows, or is its own (`mayNameItself`) and lies between its ends.
bool areEdgePoints(const KrXmlVectorType<KrEdgePoint>& points, std::size_t first, bool mayNameItself)
{
    std::size_t number = first;
    for (const KrEdgePoint& point : points) {
        const bool isOwn = mayNameItself && point.a() == number && point.b() == number;
        if (!isOwn && (point.a() >= number || point.b() >= number)) {
            return false;
        }
        // Written so that NaN fails too.
        if (!(point.t() >= 0.0 && point.t() <= 1.0)) {
            return false;
        }
        ++number;
    }
    return true;
}

bool areTriangles(const KrXmlVectorType<KrDeformationGroup>& groups, std::size_t numVertices, std::uint64_t numNormals,
                  std::size_t numTextureCoordinates)
{
    const auto isIn = [&](const KrTriangle& triangle) {
        for (unsigned int i = 0; i < 3; ++i) {
            if (triangle.vertex(i) >= numVertices || triangle.normal(i) >= numNormals ||
                (numTextureCoordinates != 0 && triangle.textureCoordinate(i) >= numTextureCoordinates)) {
                return false;
            }
        }
        return true;
    };
    return std::all_of(groups.begin(), groups.end(), [&](const KrDeformationGroup& group) {
        return std::all_of(group.triangles().begin(), group.triangles().end(), isIn);
    });
}

/// At least 1: the highest number of a piece and one.
template <typename Groups>
std::uint64_t numPiecesOf(const Groups& groups)
{
    std::uint64_t number = 1;
    for (const KrDeformationGroup& group : groups) {
        number = std::max(number, std::uint64_t(group.piece()) + 1);
    }
    return number;
}

KrVector between(const std::vector<KrVector>& list, const KrEdgePoint& point)
{
    return list[point.a()] * (1.0 - point.t()) + list[point.b()] * point.t();
}

/// Numbers, from 0 and in order of appearance, the pairs of vertex and point or normal that it is asked for.
class PairNumbers
{
public:
    std::uint32_t numberOf(std::uint32_t first, std::uint32_t second)
    {
        const std::uint64_t key = std::uint64_t(first) << 32 | second;
        return m_numbers.try_emplace(key, static_cast<std::uint32_t>(m_numbers.size())).first->second;
    }
    std::uint32_t count() const { return static_cast<std::uint32_t>(m_numbers.size()); }

private:
    std::unordered_map<std::uint64_t, std::uint32_t> m_numbers; // only looked up: its order does not matter
};

/// Puts the pieces of a deforming mesh, each where it is, into the lists of one plain mesh.
class MeshCollector
{
public:
    MeshCollector(const KrDeformationPhysicalExtent& extent)
        : m_extent(extent)
    {
    }
    void add(const KrDeformationGroup& group);

    KrXmlVectorVector vertices;
    KrXmlVectorVector normals;
    KrXmlVectorType<KrTriPhysicalExtent::Group> groups;

private:
    const KrDeformationPhysicalExtent& m_extent;
    PairNumbers m_vertexNumbers;
    PairNumbers m_normalNumbers;
};

void MeshCollector::add(const KrDeformationGroup& group)
{
    const KrCoordinateSystemTransformation& offset = m_extent.pieceOffset(group.piece());
    std::vector<KrTriangle> triangles = group.triangles();
    for (KrTriangle& triangle : triangles) {
        for (unsigned int i = 0; i < 3; ++i) {
            const std::uint32_t vertex = m_vertexNumbers.numberOf(group.piece(), triangle.vertex(i));
            if (vertex == vertices.size()) {
                vertices.push_back(offset.transformPoint(m_extent.points()[triangle.vertex(i)]));
            }
            const std::uint32_t normal = m_normalNumbers.numberOf(group.piece(), triangle.normal(i));
            if (normal == normals.size()) {
                normals.push_back(offset.transformDirection(m_extent.normals()[triangle.normal(i)]));
            }
            triangle.setCorner(i, vertex, normal, triangle.textureCoordinate(i));
        }
    }
    groups.push_back(KrTriPhysicalExtent::Group(KrXmlBasicType<std::string>(group.name()),
                                                KrXmlVectorType<KrTriangle>(std::move(triangles))));
}

} // namespace

/// Never given twice, unlike an address. Extents may be read on several threads.
std::uint64_t KrDeformationPhysicalExtent::Counter::nextSerial()
{
    static std::atomic<std::uint64_t> last{0};
    return ++last;
}

KrDeformationPhysicalExtent::KrDeformationPhysicalExtent()
{
    m_pieces.resize(1);
}

void KrDeformationPhysicalExtent::setMesh(const KrTriPhysicalExtent& mesh, Smoothing smoothing)
{
    // Held while it is read: a placed mesh has another for its mesh form.
    const boost::shared_ptr<const KrTriPhysicalExtent> placed = mesh.triExtent();
    m_vertices = placed->vertices();
    m_textureCoordinates = placed->textureCoordinates();
    m_materialMap = placed->materialMap();
    m_meshGroups.clear();
    for (const KrTriPhysicalExtent::Group& group : placed->groups()) {
        m_meshGroups.push_back(KrDeformationGroup(group.first(), 0));
        m_meshGroups.back().triangles() = group.second().values();
        for (KrTriangle& triangle : m_meshGroups.back().triangles()) {
            for (unsigned int i = 0; i < 3 && smoothing == Smoothing::Smooth; ++i) {
                triangle.setCorner(i, triangle.vertex(i), 0, triangle.textureCoordinate(i));
            }
        }
    }
    numberNormals();
    m_poses.clear();
    m_cutVertices.clear();
    m_cutNormals.clear();
    m_cutGroups.clear();
    m_pieces.clear();
    m_pieces.resize(1);
    m_strokes.clear();
    ++m_revision.value.strokes;
    noteCut();
}

/// Gives every pair of vertex and normal a normal of its own. What is numbered so already stays as it is.
void KrDeformationPhysicalExtent::numberNormals()
{
    PairNumbers numbers;
    for (KrDeformationGroup& group : m_meshGroups) {
        for (KrTriangle& triangle : group.triangles()) {
            for (unsigned int i = 0; i < 3; ++i) {
                triangle.setCorner(i, triangle.vertex(i), numbers.numberOf(triangle.vertex(i), triangle.normal(i)),
                                   triangle.textureCoordinate(i));
            }
        }
    }
    m_numMeshNormals = numbers.count();
}

void KrDeformationPhysicalExtent::setMaterial(const std::string& groupName, const KrDataMap& material)
{
    m_materialMap.set(groupName, material);
    noteCut();
}

bool KrDeformationPhysicalExtent::checkVertices(const char* method, const std::vector<KrVector>& vertices) const
{
    if (vertices.size() != m_vertices.size()) {
        warn(method, std::to_string(vertices.size()) + " vertices for a mesh of " + std::to_string(m_vertices.size()));
        return false;
    }
    if (!areFinite(vertices)) {
        warn(method, "a vertex is not finite");
        return false;
    }
    return true;
}

bool KrDeformationPhysicalExtent::setVertices(const std::vector<KrVector>& vertices)
{
    if (!checkVertices("setVertices", vertices)) {
        return false;
    }
    std::copy(vertices.begin(), vertices.end(), m_vertices.begin());
    m_isUpToDate = false;
    noteMoved();
    return true;
}

bool KrDeformationPhysicalExtent::setPose(const std::string& name, const std::vector<KrVector>& vertices)
{
    if (!checkVertices("setPose", vertices)) {
        return false;
    }
    KrDeformationPose pose(name, KrXmlVectorVector(vertices));
    const unsigned int index = poseIndex(name);
    if (index < m_poses.size()) {
        pose.setWeight(m_poses[index].weight());
        pose.setJoint(m_poses[index].joint(), m_poses[index].jointPosition());
        m_poses[index] = pose;
    } else {
        m_poses.push_back(pose);
    }
    m_isUpToDate = false;
    noteMoved();
    return true;
}

unsigned int KrDeformationPhysicalExtent::poseIndex(const std::string& name) const
{
    const auto found =
        std::find_if(m_poses.begin(), m_poses.end(), [&](const auto& pose) { return pose.name() == name; });
    return static_cast<unsigned int>(found - m_poses.begin());
}

bool KrDeformationPhysicalExtent::setWeight(unsigned int pose, double weight)
{
    if (pose >= m_poses.size() || !std::isfinite(weight)) {
        warn("setWeight", "weight " + std::to_string(weight) + " for pose " + std::to_string(pose) + " of " +
                              std::to_string(m_poses.size()));
        return false;
    }
    if (weight != m_poses[pose].weight()) {
        m_poses[pose].setWeight(weight);
        m_isUpToDate = false;
        noteMoved();
    }
    return true;
}

bool KrDeformationPhysicalExtent::setPoseJoint(unsigned int pose, const std::string& joint, double position)
{
    if (pose >= m_poses.size() || !std::isfinite(position)) {
        warn("setPoseJoint", "joint position " + std::to_string(position) + " for pose " + std::to_string(pose) +
                                 " of " + std::to_string(m_poses.size()));
        return false;
    }
    m_poses[pose].setJoint(joint, position);
    return true;
}

bool KrDeformationPhysicalExtent::cutByPlane(unsigned int piece, const KrVector& point, const KrVector& normal,
                                             const std::string& capName)
{
    const std::string problem = tryCut(piece, point, normal, capName);
    if (!problem.empty()) {
        warn("cutByPlane", problem);
    }
    return problem.empty();
}

/// Why there is no such cut; empty when it has been made.
std::string KrDeformationPhysicalExtent::tryCut(unsigned int piece, const KrVector& point, const KrVector& normal,
                                                const std::string& capName)
{
    KrVector direction = normal;
    if (piece >= m_pieces.size() || !point.isFinite() || !normal.isFinite() || direction.normalize() <= 0.0) {
        return "piece " + std::to_string(piece) + " of " + std::to_string(m_pieces.size()) +
               ", or a plane that is none";
    }
    const KrCoordinateSystemTransformation ownerToPiece = pieceToOwner(piece).inverse();
    KrMeshPlaneCut::Mesh mesh{m_vertices.size(),
                              m_numMeshNormals,
                              m_cutVertices.values(),
                              m_cutNormals.values(),
                              m_textureCoordinates.values(),
                              groups()};
    KrMeshPlaneCut cut(mesh, points(), ownerToPiece.transformPoint(point), ownerToPiece.transformDirection(direction));
    if (!cut.separate(piece, m_pieces.size())) {
        return "piece " + std::to_string(piece) + " is all on one side of the plane";
    }
    if (!capName.empty()) {
        cut.cap(capName);
    }
    m_cutVertices.values() = std::move(mesh.cutVertices);
    m_cutNormals.values() = std::move(mesh.cutNormals);
    m_textureCoordinates.values() = std::move(mesh.textureCoordinates);
    m_cutGroups.values() = std::move(mesh.groups);
    m_pieces.push_back(KrCoordinateSystemTransformation(m_pieces[piece]));
    noteCut();
    return std::string();
}

bool KrDeformationPhysicalExtent::cutAlongTriangles(const std::vector<std::uint32_t>& triangles)
{
    const std::vector<std::uint32_t> chosen = [&] {
        std::vector<std::uint32_t> sorted = triangles;
        std::sort(sorted.begin(), sorted.end());
        sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
        return sorted;
    }();
    std::vector<KrDeformationGroup> rest;
    std::vector<KrDeformationGroup> taken;
    std::size_t numTaken = 0;
    std::uint32_t number = 0;
    std::uint32_t piece = m_pieces.size();
    for (const KrDeformationGroup& group : groups()) {
        KrDeformationGroup stays(group.name(), group.piece(), group.isCap());
        KrDeformationGroup goes(group.name(), m_pieces.size(), group.isCap());
        for (const KrTriangle& triangle : group.triangles()) {
            const bool isTaken = numTaken < chosen.size() && chosen[numTaken] == number++;
            numTaken += isTaken ? 1 : 0;
            (isTaken ? goes : stays).triangles().push_back(triangle);
        }
        if (!stays.triangles().empty()) {
            rest.push_back(stays);
        }
        if (!goes.triangles().empty()) {
            if (piece != m_pieces.size() && piece != group.piece()) {
                warn("cutAlongTriangles", "the triangles are of several pieces");
                return false;
            }
            piece = group.piece();
            taken.push_back(goes);
        }
    }
    const bool isRestLeft =
        std::any_of(rest.begin(), rest.end(), [piece](const auto& group) { return group.piece() == piece; });
    if (numTaken != chosen.size() || taken.empty() || !isRestLeft) {
        warn("cutAlongTriangles", std::to_string(chosen.size()) + " triangles, " + std::to_string(numTaken) +
                                      " of which exist, do not part a piece");
        return false;
    }
    rest.insert(rest.end(), taken.begin(), taken.end());
    m_cutGroups.values() = std::move(rest);
    m_pieces.push_back(KrCoordinateSystemTransformation(m_pieces[piece]));
    noteCut();
    return true;
}

void KrDeformationPhysicalExtent::clearCuts()
{
    if (m_cutGroups.empty()) {
        return;
    }
    // Cuts only append: what no uncut triangle uses is theirs.
    std::uint32_t numOwn = 0;
    for (const KrDeformationGroup& group : m_meshGroups) {
        for (const KrTriangle& triangle : group.triangles()) {
            for (unsigned int i = 0; i < 3; ++i) {
                numOwn = std::max(numOwn, triangle.textureCoordinate(i) + 1);
            }
        }
    }
    m_textureCoordinates.resize(std::min(numOwn, m_textureCoordinates.size()));
    m_cutVertices.clear();
    m_cutNormals.clear();
    m_cutGroups.clear();
    m_pieces.resize(static_cast<unsigned int>(numPiecesOf(m_meshGroups)));
    noteCut();
}

bool KrDeformationPhysicalExtent::addStroke(const KrSurfaceStroke& stroke)
{
    const std::string problem = stroke.problem();
    if (!problem.empty()) {
        warn("addStroke", problem);
        return false;
    }
    m_strokes.push_back(stroke);
    ++m_revision.value.strokes;
    touch();
    return true;
}

void KrDeformationPhysicalExtent::clearStrokes()
{
    m_strokes.clear();
    ++m_revision.value.strokes;
    touch();
}

bool KrDeformationPhysicalExtent::setPieceOffset(unsigned int piece, const KrCoordinateSystemTransformation& offset)
{
    if (piece >= m_pieces.size() || !offset.isPose()) {
        warn("setPieceOffset", "piece " + std::to_string(piece) + " of " + std::to_string(m_pieces.size()) +
                                   ", or an offset that is not finite or whose rotation is none");
        return false;
    }
    m_pieces[piece] = offset;
    noteMoved();
    return true;
}

void KrDeformationPhysicalExtent::noteMoved()
{
    ++m_revision.value.vertices;
    touch();
}

void KrDeformationPhysicalExtent::noteCut()
{
    ++m_revision.value.cut;
    m_isUpToDate = false;
    noteMoved();
}

unsigned int KrDeformationPhysicalExtent::changesSince(const Revision& seen) const
{
    if (seen.extent != m_revision.value.extent) {
        return VerticesMoved | CutChanged | StrokesChanged;
    }
    const unsigned int moved = seen.vertices != m_revision.value.vertices ? VerticesMoved : NothingChanged;
    const unsigned int cut = seen.cut != m_revision.value.cut ? CutChanged : NothingChanged;
    const unsigned int strokes = seen.strokes != m_revision.value.strokes ? StrokesChanged : NothingChanged;
    return moved | cut | strokes;
}

const std::vector<KrDeformationGroup>& KrDeformationPhysicalExtent::groups() const
{
    return m_cutGroups.empty() ? m_meshGroups.values() : m_cutGroups.values();
}

const std::vector<KrVector>& KrDeformationPhysicalExtent::points() const
{
    KrDeformationPhysicalExtent::recompute();
    return m_points;
}

const std::vector<KrVector>& KrDeformationPhysicalExtent::normals() const
{
    KrDeformationPhysicalExtent::recompute();
    return m_normals;
}

void KrDeformationPhysicalExtent::recompute() const
{
    if (!m_isUpToDate) {
        blendPoints();
        computeNormals();
        m_isUpToDate = true;
    }
}

void KrDeformationPhysicalExtent::blendPoints() const
{
    m_points.resize(std::size_t(m_vertices.size()) + m_cutVertices.size());
    double neutralWeight = 1.0;
    for (const KrDeformationPose& pose : m_poses) {
        neutralWeight -= pose.weight();
    }
    for (unsigned int i = 0; i < m_vertices.size(); ++i) {
        m_points[i] = m_vertices[i] * neutralWeight;
    }
    for (const KrDeformationPose& pose : m_poses) {
        const double weight = pose.weight();
        for (std::size_t i = 0; i < pose.vertices().size() && weight != 0.0; ++i) {
            m_points[i] += pose.vertices()[i] * weight;
        }
    }
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

void KrDeformationPhysicalExtent::computeNormals() const
{
    m_normals.resize(std::size_t(m_numMeshNormals) + m_cutNormals.size());
    std::fill(m_normals.begin(), m_normals.end(), KrVector());
    for (const KrDeformationGroup& group : m_meshGroups) {
        addCornerNormals(group);
    }
    for (const KrDeformationGroup& group : m_cutGroups) {
        if (group.isCap()) {
            addCornerNormals(group);
        }
    }
    const auto settle = [](KrVector& normal) {
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
    const auto mesh = boost::make_shared<KrTriPhysicalExtent>();
    mesh->setMesh(std::move(collector.vertices), std::move(collector.normals),
                  KrXmlVectorType<KrPlanarVector>(m_textureCoordinates), std::move(collector.groups), "deformed mesh");
    mesh->setMaterialMap(m_materialMap);
    return mesh;
}

KrXmlToken KrDeformationPhysicalExtent::token() const
{
    return {KrXmlNamespace::core(), "deformation"};
}

void KrDeformationPhysicalExtent::registerComponents()
{
    KrBasePhysicalExtent::registerComponents();
    registerComponent({KrXmlNamespace::core(), "vertices"}, m_vertices);
    registerComponent({KrXmlNamespace::core(), "textureCoordinates"}, m_textureCoordinates, Presence::Optional);
    registerComponent({KrXmlNamespace::core(), "groups"}, m_meshGroups);
    registerComponent({KrXmlNamespace::core(), "materialMap"}, m_materialMap, Presence::Optional);
    registerComponent({KrXmlNamespace::core(), "poses"}, m_poses, Presence::Optional);
    registerComponent({KrXmlNamespace::core(), "pieceOffsets"}, m_pieces, Presence::Optional);
    registerComponent({KrXmlNamespace::core(), "cutVertices"}, m_cutVertices, Presence::Optional);
    registerComponent({KrXmlNamespace::core(), "cutNormals"}, m_cutNormals, Presence::Optional);
    registerComponent({KrXmlNamespace::core(), "cutGroups"}, m_cutGroups, Presence::Optional);
    registerComponent({KrXmlNamespace::core(), "cuts"}, m_cutsToMake, Presence::Optional);
    registerComponent({KrXmlNamespace::core(), "strokes"}, m_strokes, Presence::Optional);
}

/// Why what was read is no mesh, but for its cuts; empty when it is one.
std::string KrDeformationPhysicalExtent::problem() const
{
    if (!areFinite(vertices()) || !std::all_of(m_textureCoordinates.begin(), m_textureCoordinates.end(), [](auto uv) {
            return std::isfinite(uv.u()) && std::isfinite(uv.v());
        })) {
        return "a vertex or texture coordinate is not finite";
    }
    // The numbers of normals say which corners share one: any will do.
    if (!areTriangles(m_meshGroups, m_vertices.size(), std::numeric_limits<std::uint64_t>::max(),
                      m_textureCoordinates.size())) {
        return "a triangle uses a vertex or texture coordinate that is not there";
    }
    for (const KrDeformationPose& pose : m_poses) {
        if (pose.vertices().size() != m_vertices.size() || !areFinite(pose.vertices()) ||
            !std::isfinite(pose.weight()) || !std::isfinite(pose.jointPosition())) {
            return "pose \"" + pose.name() + "\" does not fit the mesh";
        }
    }
    for (const KrSurfaceStroke& stroke : m_strokes) {
        const std::string wrong = stroke.problem();
        if (!wrong.empty()) {
            return wrong;
        }
    }
    return std::string();
}

/// The same of its cuts, when all else is well.
std::string KrDeformationPhysicalExtent::cutProblem() const
{
    if (!areEdgePoints(m_cutVertices, m_vertices.size(), false) ||
        !areEdgePoints(m_cutNormals, m_numMeshNormals, true)) {
        return "what a cut made is not on an edge of what was before it";
    }
    if (!areTriangles(m_cutGroups, std::size_t(m_vertices.size()) + m_cutVertices.size(),
                      std::size_t(m_numMeshNormals) + m_cutNormals.size(), m_textureCoordinates.size())) {
        return "a triangle of a cut uses what is not there";
    }
    // The mesh comes back when the cuts are taken away.
    const std::uint64_t numPieces = std::max(numPiecesOf(m_meshGroups), numPiecesOf(m_cutGroups));
    return numPieces <= m_pieces.size() ? std::string() : "a group is of a piece without an offset";
}

/// Makes the cuts that a document asks for, before its offsets part the pieces. Why one cannot be made; empty when all
/// were.
std::string KrDeformationPhysicalExtent::makeReadCuts()
{
    if (m_cutsToMake.empty()) {
        return std::string();
    }
    const KrXmlVectorType<KrPlaneCut> cuts = m_cutsToMake;
    const KrXmlVectorType<KrCoordinateSystemTransformation> offsets = m_pieces;
    const auto numBefore = static_cast<std::uint32_t>(numPiecesOf(groups()));
    m_cutsToMake.clear();
    m_pieces.clear();
    m_pieces.resize(numBefore);
    for (const KrPlaneCut& cut : cuts) {
        const std::string wrong = tryCut(cut.piece(), cut.point(), cut.normal(), cut.cap());
        if (!wrong.empty()) {
            return wrong;
        }
    }
    if (offsets.size() > m_pieces.size()) {
        return std::to_string(offsets.size()) + " offsets for " + std::to_string(m_pieces.size()) + " pieces";
    }
    for (unsigned int i = 0; i < m_pieces.size(); ++i) {
        // As when a piece is cut while the program runs: the new one is where the old one is.
        m_pieces[i] = i < offsets.size() ? offsets[i] : m_pieces[cuts[i - numBefore].piece()];
    }
    noteCut();
    return std::string();
}

bool KrDeformationPhysicalExtent::completeRead(KrXmlReader& reader)
{
    if (!KrBasePhysicalExtent::completeRead(reader)) {
        return false;
    }
    const std::string wrong = problem();
    if (!wrong.empty()) {
        return reader.fail("%s", wrong.c_str());
    }
    numberNormals();
    ++m_revision.value.strokes;
    noteCut();
    std::string wrongCut = cutProblem();
    wrongCut = wrongCut.empty() ? makeReadCuts() : wrongCut;
    return wrongCut.empty() || reader.fail("%s", wrongCut.c_str());
}
