#pragma once

#include <rendCore/KrRenderShape.h>

#include <toolkit/geometry/KrDeformationPhysicalExtent.h>

#include <cstddef>
#include <cstdint>
#include <vector>

/// A render shape whose vertices follow a changing extent. Its geometry is drawn without display lists.
///
/// A KrDeformationPhysicalExtent is drawn with indexed triangles from its flat lists: a frame in which only vertices
/// moved changes the arrays in place and allocates nothing. Any other extent is followed through its mesh form. Only
/// drawables and their state sets are made anew when a cut changes; the geode's own state set is left alone, and groups
/// have their texture coordinates on unit 0. The extent's strokes are painted with the shape's KrTextureMarker; a cap
/// shows no texture but its material's own.
class KrRenderDeformationShape : public KrRenderShape
{
public:
    KrRenderDeformationShape(const KrBasePhysicalExtent* extent, const KrMaterialMap& materialMap);

    /// Takes over vertices and normals of the extent: in place while the groups keep their triangles (of an extent that
    /// is known by its mesh form only: their triangle counts), else with new drawables. A null extent and one without a
    /// mesh form change nothing.
    void update(KrBasePhysicalExtent* extent) override;
    /// Gives every colour and material that alpha (clamped to [0, 1], 1 being opaque; NaN is ignored) and draws below
    /// 1 blended. Kept through later updates.
    void updateAlpha(float alpha) override;

protected:
    ~KrRenderDeformationShape() override;

private:
    /// What one drawable takes from the extent: vertex k of its arrays is point `points[k]` with normal `normals[k]`.
    struct GroupSource
    {
        std::uint32_t piece = 0;
        bool isCap = false;
        std::vector<std::uint32_t> points;
        std::vector<std::uint32_t> normals;
    };

    void prepareDrawables();
    void rebuild(const KrTriPhysicalExtent& mesh);
    void follow(const KrDeformationPhysicalExtent& extent);
    unsigned int changesOf(const KrDeformationPhysicalExtent& extent) const;
    void remember(const KrDeformationPhysicalExtent& extent);
    void indexGroups(const KrDeformationPhysicalExtent& extent);
    void fillGroups(const KrDeformationPhysicalExtent& extent);
    void paint(const KrDeformationPhysicalExtent& extent);
    bool hasGroupsOf(const KrTriPhysicalExtent& mesh) const;
    void applyAlpha();

    KrMaterialMap m_materialMap;
    std::vector<GroupSource> m_sources;
    std::vector<KrSurfaceStroke> m_strokes; ///< painted so far
    /// The extent drawn last, only compared; null when it was not of that class.
    const KrDeformationPhysicalExtent* m_extent = nullptr;
    KrDeformationPhysicalExtent::Revision m_revision;
    KrCoordinateSystemTransformation m_placement;
    std::size_t m_numPoints = 0;
    std::size_t m_numNormals = 0;
    unsigned int m_numPieces = 0;
    float m_alpha = -1.0f; ///< below 0 before the first updateAlpha: the materials' own
};
