#pragma once

#include <toolkit/math/KrXmlVector.h>
#include <toolkit/xml/KrXmlBasicType.h>
#include <toolkit/xml/KrXmlCompoundType.h>

#include <cstdint>
#include <string>

/// A cut that a document asks for: made when a deforming mesh is read (KrDeformationPhysicalExtent::cutByPlane).
class KrPlaneCut : public KrXmlObjectOf<KrPlaneCut, KrXmlCompoundType>
{
public:
    /// Which piece is cut, 0 for the whole mesh.
    std::uint32_t piece() const { return m_piece; }
    /// The plane, in the owner's frame; the normal points to what becomes the new piece.
    const KrVector& point() const { return m_point; }
    const KrVector& normal() const { return m_normal; }
    /// The group that closes both sides; empty for sections that stay open.
    const std::string& cap() const { return m_cap.value(); }

    KrXmlToken token() const override;
    void registerComponents() override;

private:
    KrXmlBasicType<unsigned int> m_piece = 0u;
    KrXmlVector m_point;
    KrXmlVector m_normal = KrVector(0.0, 0.0, 1.0);
    KrXmlBasicType<std::string> m_cap;
};
