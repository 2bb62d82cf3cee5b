#pragma once

#include <dataset/KrDatasetInfo.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

class KrFileReplacement;
class KrTriPhysicalExtent;

/// The surface of a labelled part as one rigid body in the frame of its link: positions in mm, as BOP has its models.
/// What bends is in its shape at rest.
class KrPartModel
{
public:
    /// Whether the part keeps its shape whatever the joints do: false for a manipulator that has links to move.
    static bool isRigid(const KrDatasetInfo& info, const KrDatasetPart& part);

    /// Of a rigid part. Empty where it has no surface.
    KrPartModel(const KrDatasetInfo& info, const KrDatasetPart& part);

    bool isEmpty() const { return m_indices.empty(); }
    /// The corner of the box along the link's axes that has the smallest coordinates, and the box's size, mm.
    const std::array<float, 3>& low() const { return m_low; }
    std::array<double, 3> size() const;
    /// The largest distance between two vertices, mm. Exact.
    double diameter() const;
    /// Appends a PLY file (ASCII): vertices with unit normals, triangles. False when that fails; the file knows why.
    bool writePly(KrFileReplacement& file) const;

private:
    /// @param surface  in the frame of the link, m
    void add(const KrTriPhysicalExtent& surface);

    std::vector<float> m_vertices;        ///< six numbers each: position, mm, and unit normal
    std::vector<std::uint32_t> m_indices; ///< three a triangle
    std::array<float, 3> m_low = {};
    std::array<float, 3> m_high = {};
};
