#pragma once

#include <toolkit/extent/KrTriangle.h>
#include <toolkit/xml/KrXmlBasicType.h>
#include <toolkit/xml/KrXmlCompoundType.h>
#include <toolkit/xml/KrXmlVectorType.h>

#include <string>

/// Triangles of a deforming mesh that have one material and belong to one piece.
class KrDeformationGroup : public KrXmlObjectOf<KrDeformationGroup, KrXmlCompoundType>
{
public:
    KrDeformationGroup() = default;
    /// A group without triangles. `piece` is the piece of the mesh that it belongs to, `isCap` whether it closes a cut.
    KrDeformationGroup(const std::string& name, std::uint32_t piece, bool isCap = false);

    /// The material's name; groups that a cut has parted keep the same.
    const std::string& name() const { return m_name.value(); }
    std::uint32_t piece() const { return m_piece; }
    /// True for what closes a cut: it is flat, and shaded so.
    bool isCap() const { return m_isCap; }
    const std::vector<KrTriangle>& triangles() const { return m_triangles.values(); }
    std::vector<KrTriangle>& triangles() { return m_triangles.values(); }

    KrXmlToken token() const override;
    void registerComponents() override;

private:
    KrXmlBasicType<std::string> m_name;
    KrXmlBasicType<unsigned int> m_piece = 0u;
    KrXmlBasicType<bool> m_isCap = false;
    KrXmlVectorType<KrTriangle> m_triangles;
};
