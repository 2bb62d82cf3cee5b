// What parts a deforming mesh, of KrDeformationPhysicalExtent.

#include <toolkit/deformation/KrDeformationPhysicalExtent.h>

#include <toolkit/deformation/private/KrDeformationChecks.h>
#include <toolkit/deformation/private/KrMeshPlaneCut.h>

#include <algorithm>
#include <utility>

using namespace KrDeformationChecks;

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
    // Cuts are made in the frame of the vertices, where pieces still lie in each other's place.
    const KrCoordinateSystemTransformation ownerToPiece = pieceToOwner(piece).inverse();
    // On copies: a cut that fails leaves the mesh as it was.
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
    // A surface that is open has no cap; the cut is made all the same.
    if (!capName.empty()) {
        cut.cap(capName);
    }
    m_cutVertices.values() = std::move(mesh.cutVertices);
    m_cutNormals.values() = std::move(mesh.cutNormals);
    m_textureCoordinates.values() = std::move(mesh.textureCoordinates);
    m_cutGroups.values() = std::move(mesh.groups);
    // The new piece starts where the old one is.
    m_pieces.push_back(KrCoordinateSystemTransformation(m_pieces[piece]));
    noteCut();
    return std::string();
}

// No triangle is parted: the edges between chosen ones and others become the cut.
bool KrDeformationPhysicalExtent::cutAlongTriangles(const std::vector<std::uint32_t>& triangles)
{
    // Sorted, so that one walk over all triangles finds them; a triangle that is named twice counts once.
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
            // Triangles are numbered through all groups, in their order.
            const bool isTaken = numTaken < chosen.size() && chosen[numTaken] == number++;
            numTaken += isTaken ? 1 : 0;
            (isTaken ? goes : stays).triangles().push_back(triangle);
        }
        if (!stays.triangles().empty()) {
            rest.push_back(stays);
        }
        if (!goes.triangles().empty()) {
            // A cut parts one piece: with parts of two, neither would be clear.
            if (piece != m_pieces.size() && piece != group.piece()) {
                warn("cutAlongTriangles", "the triangles are of several pieces");
                return false;
            }
            piece = group.piece();
            taken.push_back(goes);
        }
    }
    // Taking a whole piece would part nothing.
    const bool isRestLeft =
        std::any_of(rest.begin(), rest.end(), [piece](const auto& group) { return group.piece() == piece; });
    if (numTaken != chosen.size() || taken.empty() || !isRestLeft) {
        warn("cutAlongTriangles", std::to_string(chosen.size()) + " triangles, " + std::to_string(numTaken) +
                                      " of which exist, do not part a piece");
        return false;
    }
    // Behind the others, so that the numbers of the rest change as little as can be.
    rest.insert(rest.end(), taken.begin(), taken.end());
    m_cutGroups.values() = std::move(rest);
    m_pieces.push_back(KrCoordinateSystemTransformation(m_pieces[piece]));
    noteCut();
    return true;
}

// Poses, weights and strokes stay.
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
    // The mesh itself may have come in several pieces.
    m_pieces.resize(static_cast<unsigned int>(numPiecesOf(m_meshGroups)));
    noteCut();
}
