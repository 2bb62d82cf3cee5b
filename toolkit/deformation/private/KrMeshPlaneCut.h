#pragma once

#include <toolkit/deformation/KrDeformationGroup.h>
#include <toolkit/deformation/KrEdgePoint.h>
#include <toolkit/math/KrPlanarVector.h>
#include <toolkit/math/KrVector.h>

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// Cuts one piece of a mesh with a plane.
///
/// What is cut is a list of triangle groups and the lists that they number into. A cut only appends to the latter:
/// an edge that the plane crosses gets one new vertex, and its corners one new normal and texture coordinate each, so
/// that surfaces stay closed along the cut.
class KrMeshPlaneCut
{
public:
    struct Mesh
    {
        std::uint32_t numVertices = 0; ///< before the first of cutVertices
        std::uint32_t numNormals = 0;  ///< before the first of cutNormals
        std::vector<KrEdgePoint> cutVertices;
        std::vector<KrEdgePoint> cutNormals;            ///< one that names itself is the normal of a cap
        std::vector<KrPlanarVector> textureCoordinates; ///< may be empty
        std::vector<KrDeformationGroup> groups;
    };

    /// @param mesh    changed by the operations below; borrowed
    /// @param points  where the vertices of `mesh` are now, cut ones included
    /// @param origin, normal  the plane, in the frame of `points`; `normal` has length 1
    KrMeshPlaneCut(Mesh& mesh, const std::vector<KrVector>& points, const KrVector& origin, const KrVector& normal);

    /// Gives what of `piece` is above the plane (where the normal points) to `newPiece`; a triangle in the plane goes
    /// with the side whose surface it is, which its normal points away from. False, with `mesh` then of no further use,
    /// when one side has nothing but such triangles.
    bool separate(std::uint32_t piece, std::uint32_t newPiece);
    /// Closes both sides of the separated pieces with flat triangles, groups named `name`: sections of any shape, rings
    /// too. False, and nothing done, unless the section is made of closed outlines that neither touch nor cross.
    bool cap(const std::string& name);

private:
    struct Corner
    {
        std::uint32_t vertex = 0;
        std::uint32_t normal = 0;
        std::uint32_t textureCoordinate = 0;
    };
    using Polygon = std::vector<Corner>;
    using PlaceKey = std::array<std::int64_t, 3>;
    struct RimEdge
    {
        Corner from;
        PlaceKey to = {};
    };

    double distance(const Corner& corner) const { return m_distances[corner.vertex]; }
    void splitTriangle(const KrTriangle& triangle, std::vector<KrTriangle>& below, std::vector<KrTriangle>& above);
    bool facesUpwards(const KrTriangle& triangle) const;
    Corner crossing(const Corner& one, const Corner& other);
    std::uint32_t vertexBetween(std::uint32_t low, std::uint32_t high, double t);
    std::uint32_t normalBetween(std::uint32_t low, std::uint32_t high, std::uint32_t vertex, double t);
    std::uint32_t textureCoordinateBetween(std::uint32_t low, std::uint32_t high, std::uint32_t vertex, double t);
    void noteRim(const Polygon& below);
    PlaceKey placeOf(std::uint32_t vertex) const;
    bool takeLoop(Polygon& loop);
    bool triangulate(const std::vector<Polygon>& loops, Polygon& triangles) const;
    void addCap(const Polygon& triangles, const std::string& name, std::uint32_t piece, bool isBelow);

    Mesh& m_mesh;
    std::vector<KrVector> m_points;
    std::vector<double> m_distances; ///< of each point from the plane, exactly 0 on it
    KrVector m_normal;
    double m_size = 0.0; ///< the largest coordinate
    std::uint32_t m_piece = 0;
    std::uint32_t m_newPiece = 0;
    bool m_isAnyBelow = false;
    bool m_isAnyAbove = false;
    using Key = std::array<std::uint32_t, 3>;
    std::map<Key, std::uint32_t> m_newVertices, m_newNormals, m_newTextureCoordinates;
    /// The edges of the lower side that lie in the plane, by where they begin.
    std::multimap<PlaceKey, RimEdge> m_rim;
};
