#include <toolkit/deformation/KrDeformationPhysicalExtent.h>

#include <toolkit/deformation/private/KrDeformationChecks.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/foundation/private/KrRowTable.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <map>
#include <utility>

using namespace KrDeformationChecks;

/// Never given twice, unlike an address. Extents may be read on several threads.
std::uint64_t KrDeformationPhysicalExtent::Counter::nextSerial()
{
    static std::atomic<std::uint64_t> last{0};
    return ++last;
}

KrDeformationPhysicalExtent::KrDeformationPhysicalExtent()
{
    // A mesh that is not cut is one piece.
    m_pieces.resize(1);
}

// A copy of the lists: the mesh stays the caller's.
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
                // Without their own normals all corners of a vertex get the same number, and so share one.
                triangle.setCorner(i, triangle.vertex(i), 0, triangle.textureCoordinate(i));
            }
        }
    }
    // The numbers say from now on which corners share a normal; values are computed from the triangles.
    numberNormals();
    // Everything else belongs to the mesh that was.
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
    KrRowTable<std::array<std::uint32_t, 2>> pairs;
    for (KrDeformationGroup& group : m_meshGroups) {
        for (KrTriangle& triangle : group.triangles()) {
            for (unsigned int i = 0; i < 3; ++i) {
                triangle.setCorner(i, triangle.vertex(i), pairs.number({triangle.vertex(i), triangle.normal(i)}),
                                   triangle.textureCoordinate(i));
            }
        }
    }
    m_numMeshNormals = static_cast<std::uint32_t>(pairs.size());
}

// Counts as a cut: groups and what they look like are built together by who draws them.
void KrDeformationPhysicalExtent::setMaterial(const std::string& groupName, const KrDataMap& material)
{
    m_materialMap.set(groupName, material);
    noteCut();
}

// For meshes and poses alike; `method` names the one that is called.
bool KrDeformationPhysicalExtent::checkVertices(const char* method, const std::vector<KrVector>& vertices) const
{
    // Poses and vertices are blended number by number, so there must be as many.
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
    // The numbers of cuts and poses stay valid: only places change.
    std::copy(vertices.begin(), vertices.end(), m_vertices.begin());
    m_isUpToDate = false;
    noteMoved();
    return true;
}

// By name, so that a program can set its poses again without counting them.
bool KrDeformationPhysicalExtent::setPose(const std::string& name, const std::vector<KrVector>& vertices)
{
    if (!checkVertices("setPose", vertices)) {
        return false;
    }
    KrDeformationPose pose(name, KrXmlVectorVector(vertices));
    const unsigned int index = poseIndex(name);
    if (index < m_poses.size()) {
        // A pose that is set again keeps what it follows.
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
    // The number of poses for a name that none has.
    return static_cast<unsigned int>(found - m_poses.begin());
}

// Any finite weight: poses may be exaggerated, or turned round.
bool KrDeformationPhysicalExtent::setWeight(unsigned int pose, double weight)
{
    if (pose >= m_poses.size() || !std::isfinite(weight)) {
        warn("setWeight", "weight " + std::to_string(weight) + " for pose " + std::to_string(pose) + " of " +
                              std::to_string(m_poses.size()));
        return false;
    }
    // Poses that follow a joint are set in every frame; what stays the same costs nothing.
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
    // The mesh stays as it is until the joint moves.
    m_poses[pose].setJoint(joint, position);
    return true;
}

// Strokes are kept in order, since later paint covers earlier paint.
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

// Pieces move as rigid bodies after a cut.
bool KrDeformationPhysicalExtent::setPieceOffset(unsigned int piece, const KrCoordinateSystemTransformation& offset)
{
    if (piece >= m_pieces.size() || !offset.isPose()) {
        warn("setPieceOffset", "piece " + std::to_string(piece) + " of " + std::to_string(m_pieces.size()) +
                                   ", or an offset that is not finite or whose rotation is none");
        return false;
    }
    m_pieces[piece] = offset;
    // Offsets do not change the points of the pieces, only where they are.
    noteMoved();
    return true;
}

// This count says what has changed, the base class's that something has.
void KrDeformationPhysicalExtent::noteMoved()
{
    ++m_revision.value.vertices;
    touch();
}

void KrDeformationPhysicalExtent::noteCut()
{
    // A cut makes new vertices as well.
    ++m_revision.value.cut;
    m_isUpToDate = false;
    noteMoved();
}

unsigned int KrDeformationPhysicalExtent::changesSince(const Revision& seen) const
{
    // An address may be another extent's by now, a serial number is not.
    if (seen.extent != m_revision.value.extent) {
        return VerticesMoved | CutChanged | StrokesChanged;
    }
    const unsigned int moved = seen.vertices != m_revision.value.vertices ? VerticesMoved : NothingChanged;
    const unsigned int cut = seen.cut != m_revision.value.cut ? CutChanged : NothingChanged;
    const unsigned int strokes = seen.strokes != m_revision.value.strokes ? StrokesChanged : NothingChanged;
    return moved | cut | strokes;
}
