#pragma once

#include <toolkit/deformation/KrDeformationGroup.h>
#include <toolkit/deformation/KrDeformationPose.h>
#include <toolkit/deformation/KrEdgePoint.h>
#include <toolkit/deformation/KrPlaneCut.h>
#include <toolkit/deformation/KrSurfaceStroke.h>
#include <toolkit/extent/KrBasePhysicalExtent.h>
#include <toolkit/material/KrMaterialMap.h>
#include <toolkit/math/KrPlanarVector.h>
#include <toolkit/math/KrXmlVectorVector.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// A triangle mesh whose vertices move, and that can be cut into pieces which then move apart.
///
/// The vertices are set whole or blended from poses: v = neutral + sum of w_k (pose_k - neutral). A cut divides the
/// triangles into pieces; each has an offset, a pose of its own within the extent's frame. Vertices that a
/// cut makes lie on edges of the mesh and follow their ends, so that neutral vertices and poses keep
/// the mesh's own numbering, however often it is cut. Normals are smooth and follow the uncut mesh: a cut shows
/// no seam until its pieces part. Strokes of paint lie in its texture and go wherever the surface goes. Vertices in
/// metres, in the extent's frame.
class KrDeformationPhysicalExtent : public KrXmlObjectOf<KrDeformationPhysicalExtent, KrBasePhysicalExtent>
{
public:
    /// What changed; bits to be combined.
    enum Change : unsigned int
    {
        NothingChanged = 0x0,
        VerticesMoved = 0x1, ///< vertices, weights or offsets: same triangles, other places
        CutChanged = 0x2,    ///< other groups, triangles or materials; places too
        StrokesChanged = 0x4 ///< more strokes of paint, or none
    };
    /// Counts the changes of one extent. Every onlooker keeps the one it saw last.
    struct Revision
    {
        std::uint64_t extent = 0; ///< whose: from 1, another for every extent and copy of the process
        std::uint32_t vertices = 0;
        std::uint32_t cut = 0;
        std::uint32_t strokes = 0;
    };
    enum class Smoothing
    {
        AsGiven, ///< corners that share vertex and normal in the given mesh share one here: sharp edges stay sharp
        Smooth   ///< all corners of a vertex share one normal
    };

    /// Without a mesh: one piece that has no triangles. See `setMesh`.
    KrDeformationPhysicalExtent();

    /// Takes over a mesh (placed as it is), its groups and materials. Poses, cuts, offsets and strokes go.
    void setMesh(const KrTriPhysicalExtent& mesh, Smoothing smoothing = Smoothing::AsGiven);
    /// Look of the groups of that name, asked before the manipulator's material map.
    void setMaterial(const std::string& groupName, const KrDataMap& material);

    /// The neutral vertices. Does not allocate.
    /// @return false, after one message, and no change unless there are as many as before, all finite
    bool setVertices(const std::vector<KrVector>& vertices);
    const std::vector<KrVector>& vertices() const { return m_vertices.values(); }

    /// Adds a pose with weight 0, or replaces the one of that name and keeps its weight and joint.
    /// @return as setVertices
    bool setPose(const std::string& name, const std::vector<KrVector>& vertices);
    unsigned int numPoses() const { return m_poses.size(); }
    const KrDeformationPose& pose(unsigned int i) const { return m_poses[i]; }
    /// The number of the pose of that name; numPoses() when there is none. Does not allocate.
    unsigned int poseIndex(const std::string& name) const;
    /// Does not allocate. False, after one message, and no change without such a pose or with a weight that is not
    /// finite.
    bool setWeight(unsigned int pose, double weight);
    /// Lets a pose follow a joint: it is whole where the joint is at `position` (rad or m). KrPoseDriver sets the
    /// weights. An empty name ends that. False, after one message, and no change without such a pose or with a
    /// position that is not finite.
    bool setPoseJoint(unsigned int pose, const std::string& joint, double position);

    /// Cuts a piece, as it is seen now, with a plane: what is on the side that `normal` points to becomes a new piece,
    /// number numPieces() - 1, with the same offset. A group that the plane crosses becomes two of the same name.
    /// @param point, normal  the plane in the owner's frame, m; `normal` of any length but zero
    /// @param capName  unless empty: both sides are closed with flat groups of this name where the section consists of
    ///                 closed outlines of any shape, rings too, that neither touch nor cross (else it stays open)
    /// @return false, after one message, and no change for a plane that is none, an unknown piece, and a plane that
    ///         leaves all of it on one side
    bool cutByPlane(unsigned int piece, const KrVector& point, const KrVector& normal,
                    const std::string& capName = std::string());
    /// Cuts out triangles along their edges: they become a new piece, number numPieces() - 1, with the same offset.
    /// @param triangles  their numbers, counted through all groups() in order; all of one piece
    /// @return false, after one message, and no change when the triangles do not exist, are of several pieces, or are
    ///         none or all of theirs
    bool cutAlongTriangles(const std::vector<std::uint32_t>& triangles);

    /// Makes the mesh whole again; it has the offset of piece 0. Nothing for a mesh without cuts.
    void clearCuts();

    /// Paints on the surface, over what was painted before; caps take no paint. Drawn where the mesh has texture
    /// coordinates. False, after one message, and no change for a stroke that can draw nothing.
    bool addStroke(const KrSurfaceStroke& stroke);
    void clearStrokes();
    const std::vector<KrSurfaceStroke>& strokes() const { return m_strokes.values(); }

    /// At least 1.
    unsigned int numPieces() const { return m_pieces.size(); }
    const KrCoordinateSystemTransformation& pieceOffset(unsigned int piece) const { return m_pieces[piece]; }
    /// Moves a piece rigidly: piece frame to extent frame. Does not allocate. False, after one message, and no change
    /// for an unknown piece or an offset that is not finite.
    bool setPieceOffset(unsigned int piece, const KrCoordinateSystemTransformation& offset);
    /// From the frame of points() and normals() to the owner's frame: placement and offset.
    KrCoordinateSystemTransformation pieceToOwner(unsigned int piece) const { return placement() * m_pieces[piece]; }

    /// To be kept by who draws the mesh, and handed to changesSince.
    Revision revision() const { return m_revision.value; }
    /// What changed since `seen`, as bits of Change: all when that was of another extent, or of none. The placement is
    /// not counted.
    unsigned int changesSince(const Revision& seen) const;

    /// The triangles as they are drawn: each corner numbers into points(), normals() and textureCoordinates().
    const std::vector<KrDeformationGroup>& groups() const;
    /// All vertices as they are now, those of cuts included, before the offset of their piece. Borrowed until the next
    /// change.
    const std::vector<KrVector>& points() const;
    /// Unit normals as they are now, those of cuts included, before the offset of their piece. Borrowed until the next
    /// change.
    const std::vector<KrVector>& normals() const;
    /// Empty for a mesh without texture coordinates.
    const std::vector<KrPlanarVector>& textureCoordinates() const { return m_textureCoordinates.values(); }

    unsigned int numGroupNames() const override;
    std::string groupName(unsigned int i) const override;
    /// Brings points and normals up to date, in place. The mesh form waits until it is asked for.
    void recompute() const override;

    KrXmlToken token() const override;
    void registerComponents() override;

protected:
    bool completeRead(KrXmlReader& reader) override;
    boost::shared_ptr<KrTriPhysicalExtent> makeTriangles() const override;

private:
    /// A copy counts for itself; being assigned to is a change.
    struct Counter
    {
        Counter() { value.extent = nextSerial(); }
        Counter(const Counter&)
            : Counter()
        {
        }
        Counter& operator=(const Counter&)
        {
            ++value.vertices;
            ++value.cut;
            ++value.strokes;
            return *this;
        }
        static std::uint64_t nextSerial();
        Revision value;
    };

    void noteMoved();
    void noteCut();
    void numberNormals();
    bool checkVertices(const char* method, const std::vector<KrVector>& vertices) const;
    std::string problem() const;
    std::string cutProblem() const;
    std::string tryCut(unsigned int piece, const KrVector& point, const KrVector& normal, const std::string& capName);
    std::string makeReadCuts();
    void blendPoints() const;
    void computeNormals() const;
    void addCornerNormals(const KrDeformationGroup& group) const;

    KrXmlVectorVector m_vertices;
    KrXmlVectorType<KrPlanarVector> m_textureCoordinates;
    KrXmlVectorType<KrDeformationGroup> m_meshGroups; ///< uncut
    KrMaterialMap m_materialMap;
    KrXmlVectorType<KrDeformationPose> m_poses;
    KrXmlVectorType<KrCoordinateSystemTransformation> m_pieces;
    KrXmlVectorType<KrEdgePoint> m_cutVertices;      ///< numbered on from m_vertices
    KrXmlVectorType<KrEdgePoint> m_cutNormals;       ///< numbered on from the normals of m_meshGroups
    KrXmlVectorType<KrDeformationGroup> m_cutGroups; ///< empty while uncut
    KrXmlVectorType<KrPlaneCut> m_cutsToMake;        ///< empty but while a document is read
    KrXmlVectorType<KrSurfaceStroke> m_strokes;

    std::uint32_t m_numMeshNormals = 0;
    Counter m_revision;
    mutable std::vector<KrVector> m_points;
    mutable std::vector<KrVector> m_normals;
    mutable bool m_isUpToDate = false;
};
