// Its components, and the checks of what was read, of KrDeformationPhysicalExtent.

#include <toolkit/deformation/KrDeformationPhysicalExtent.h>

#include <toolkit/deformation/private/KrDeformationChecks.h>
#include <toolkit/xml/KrXmlReader.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <utility>

using namespace KrDeformationChecks;

namespace
{

/// Every edge point comes after what it follows, or is its own (`mayNameItself`) and lies between its ends.
/// In this order every point can be computed from those before it, without a circle.
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

// Texture coordinates may be missing as a whole; then their numbers mean nothing.
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

} // namespace

KrXmlToken KrDeformationPhysicalExtent::token() const
{
    return {KrXmlNamespace::core(), "deformation"};
}

// What was computed (points, normals, the plain mesh) is no part of a document.
void KrDeformationPhysicalExtent::registerComponents()
{
    // The parts that all extents have come first.
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
    // Cuts that a person writes: they are made once, on reading, and written as what they have made.
    registerComponent({KrXmlNamespace::core(), "cuts"}, m_cutsToMake, Presence::Optional);
    registerComponent({KrXmlNamespace::core(), "strokes"}, m_strokes, Presence::Optional);
}

/// Why what was read is no mesh, but for its cuts; empty when it is one.
std::string KrDeformationPhysicalExtent::problem() const
{
    // Everything that is drawn is finite, so that no frame has to ask.
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
    // A pose has a place for every vertex.
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
    // Taken out first: the cuts work on the members.
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
        // Offsets of new pieces may be left out.
        m_pieces[i] = i < offsets.size() ? offsets[i] : m_pieces[cuts[i - numBefore].piece()];
    }
    noteCut();
    return std::string();
}

// Refusals name the reason; the object that is being read is thrown away.
bool KrDeformationPhysicalExtent::completeRead(KrXmlReader& reader)
{
    if (!KrBasePhysicalExtent::completeRead(reader)) {
        return false;
    }
    const std::string wrong = problem();
    if (!wrong.empty()) {
        return reader.fail("%s", wrong.c_str());
    }
    // After the check of the groups, and before that of the cuts, whose normals continue the numbering.
    numberNormals();
    ++m_revision.value.strokes;
    noteCut();
    // The cuts of a document come last: they need a mesh that is whole.
    std::string wrongCut = cutProblem();
    wrongCut = wrongCut.empty() ? makeReadCuts() : wrongCut;
    return wrongCut.empty() || reader.fail("%s", wrongCut.c_str());
}
