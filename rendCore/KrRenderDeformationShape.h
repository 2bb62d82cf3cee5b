#pragma once

#include <rendCore/KrRenderShape.h>

/// A render shape whose vertices follow a changing extent. Its geometry is drawn without display lists.
class KrRenderDeformationShape : public KrRenderShape
{
public:
    KrRenderDeformationShape(const KrBasePhysicalExtent* extent, const KrMaterialMap& materialMap);

    /// Takes over vertices and normals of the extent's mesh form, in place while the groups keep their triangle
    /// counts, else with new drawables. A null extent and one without a mesh form change nothing.
    void update(KrBasePhysicalExtent* extent) override;
    /// Gives every colour and material that alpha (clamped to [0, 1], 1 being opaque; NaN is ignored) and draws below
    /// 1 blended. Kept through later updates.
    void updateAlpha(float alpha) override;

protected:
    ~KrRenderDeformationShape() override;

private:
    void prepareDrawables();
    bool hasGroupsOf(const KrTriPhysicalExtent& mesh) const;
    void applyAlpha();

    KrMaterialMap m_materialMap;
    float m_alpha = -1.0f; ///< below 0 before the first updateAlpha: the materials' own
};
