#pragma once

#include <toolkit/math/KrCoordinateSystemTransformation.h>
#include <toolkit/xml/KrXmlBasicType.h>
#include <toolkit/xml/KrXmlCompoundType.h>

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>

#include <cstdint>
#include <string>

class KrRenderShape;
class KrTriPhysicalExtent;

/// What a shape fills in space, in the frame of the shape's owner (a link's DH frame), with a placement of its own.
///
/// Units are metres. The mesh form is made on first use and kept until the extent changes; not for
/// several threads at once. Copies share the mesh form, not the render-shape handle.
class KrBasePhysicalExtent : public KrXmlCompoundType
{
public:
    KrBasePhysicalExtent() = default;
    KrBasePhysicalExtent(const KrBasePhysicalExtent& other);
    KrBasePhysicalExtent& operator=(const KrBasePhysicalExtent& other);

    /// Extent frame to owner's frame.
    const KrCoordinateSystemTransformation& placement() const { return m_placement; }
    /// Marks the extent changed. False, after one message, and no change for what is no pose.
    bool setPlacement(const KrCoordinateSystemTransformation& placement);

    /// The surface as triangles in the owner's frame (placement applied); null for an extent without a surface.
    /// What it points to lives at least as long as this extent is neither changed nor destroyed.
    virtual boost::shared_ptr<const KrTriPhysicalExtent> triExtent() const;

    /// The groups whose names `groupName` can tell: for a primitive 1.
    virtual unsigned int numGroupNames() const;
    /// The material name of group `i`; the empty string when there is none.
    virtual std::string groupName(unsigned int i) const;
    /// The material name of a primitive's only group. Empty by default.
    void setMaterialName(const std::string& name);

    /// Set by every change to the extent; being looked at resets it, hence const.
    bool isChanged() const { return m_changed; }
    void setChanged(bool changed) const { m_changed = changed; }
    /// Counts the changes, for those who keep what they derived from the extent.
    std::uint32_t revision() const { return m_revision; }
    /// Brings everything derived from the extent's own values (the mesh form) up to date.
    virtual void recompute() const;

    /// The scene's shape that draws this extent, if one is alive. Kept here so that links that share an extent share
    /// it.
    const boost::weak_ptr<KrRenderShape>& renderShape() const { return m_renderShape; }
    void setRenderShape(const boost::weak_ptr<KrRenderShape>& shape) const { m_renderShape = shape; }

    /// A new extent for its XML token (sphere, box, ...); null when there is none of that name. The caller owns it.
    /// Knows the kinds of all rooms, hence defined above them (system/private/KrExtentTable.cpp).
    static KrBasePhysicalExtent* newFromToken(const KrXmlToken& token);

    void registerComponents() override;
    /// Whether all components are equal; the revision is not compared.
    bool operator==(const KrBasePhysicalExtent& other) const { return KrXmlCompoundType::operator==(other); }

protected:
    /// Makes the surface in the extent's own frame; null when it has none.
    virtual boost::shared_ptr<KrTriPhysicalExtent> makeTriangles() const = 0;
    /// The same in the owner's frame, placement applied.
    virtual boost::shared_ptr<const KrTriPhysicalExtent> makePlacedTriangles() const;
    /// Drops the mesh form and marks the extent changed.
    void touch();
    /// For constructors: the sizes, or zeros (no surface) after one message when one is negative or not finite.
    static KrVector checkedSizes(const char* method, const KrVector& sizes);
    /// For validate: refuses a length that is negative or not finite.
    static bool checkLength(KrXmlRefusal& refusal, const char* what, double length);
    bool completeRead(KrXmlReader& reader) override;

    KrCoordinateSystemTransformation m_placement;
    KrXmlBasicType<std::string> m_materialName;

private:
    mutable boost::shared_ptr<const KrTriPhysicalExtent> m_triExtent;
    mutable boost::weak_ptr<KrRenderShape> m_renderShape;
    mutable bool m_changed = false;
    std::uint32_t m_revision = 0;
};
