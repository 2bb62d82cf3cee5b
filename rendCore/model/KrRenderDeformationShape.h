#pragma once

#include <rendCore/model/KrRenderShape.h>

#include <toolkit/deformation/KrDeformationPhysicalExtent.h>

#include <cstdint>
#include <vector>

class KrMarkingCallback;
class KrTextureMarker;

/// A render shape whose vertices follow a changing extent. Its geometry is drawn without display lists.
///
/// A KrDeformationPhysicalExtent is drawn with indexed triangles from its flat lists: a frame in which only vertices
/// moved changes the arrays in place and allocates nothing. Any other extent is followed through its mesh form. Only
/// drawables and their state sets are made anew when a cut changes, and groups have their texture coordinates on unit
/// 0. The extent's strokes are painted with the shape's KrTextureMarker, which takes unit 0 of the geode's own state
/// set; but for that the latter is left alone. A cap shows no texture but its material's own.
class KrRenderDeformationShape : public KrRenderShape
{
public:
    /// Draws `extent` (null: nothing, after one message) as it is now.
    /// @param materialMap  by group name; copied, for cuts that make new groups
    KrRenderDeformationShape(const KrBasePhysicalExtent* extent, const KrMaterialMap& materialMap);

    /// Takes over vertices and normals of the extent: in place while the groups keep their triangles (of an extent that
    /// is known by its mesh form only: their triangle counts), else with new drawables. A null extent and one without a
    /// mesh form change nothing; nor, after one message, does a KrDeformationPhysicalExtent while one of its vertices
    /// is farther away than 1e18 m.
    void update(KrBasePhysicalExtent* extent) override;
    /// Gives every colour and material that alpha (clamped to [0, 1], 1 being opaque; NaN is ignored) and draws below
    /// 1 blended. Kept through later updates.
    void updateAlpha(float alpha) override;

    /// Checks this object, and draws and judges in windows of its own, see KrSelfTest. False, after one message, when
    /// something is wrong.
    bool selfTest() const;

    /// What paints the extent's strokes; null before the first one. Borrowed.
    KrMarkingCallback* painter() const;
    /// Goes on with the marks of a shape that drew the same extent and is gone.
    /// @param painter  that shape's; may be null
    void takeMarks(KrTextureMarker& marker, KrMarkingCallback* painter);

protected:
    ~KrRenderDeformationShape() override;

private:
    class Painter;

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
    bool checkRange(const KrDeformationPhysicalExtent& extent);
    void remember(const KrDeformationPhysicalExtent& extent);
    void indexGroups(const KrDeformationPhysicalExtent& extent);
    void fillGroups(const KrDeformationPhysicalExtent& extent);
    void paint(const std::vector<KrSurfaceStroke>& strokes);
    bool hasGroupsOf(const KrTriPhysicalExtent& mesh) const;
    void applyAlpha();

    KrMaterialMap m_materialMap;
    std::vector<GroupSource> m_sources;
    osg::ref_ptr<Painter> m_painter;                  ///< null before the first stroke
    KrDeformationPhysicalExtent::Revision m_revision; ///< drawn last; of no extent when it was not of that class
    KrCoordinateSystemTransformation m_placement;
    bool m_isOutOfRange = false;
    float m_alpha = -1.0f; ///< below 0 before the first updateAlpha: the materials' own
};
