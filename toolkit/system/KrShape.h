#pragma once

#include <toolkit/extent/KrBasePhysicalExtent.h>
#include <toolkit/math/KrVector.h>
#include <toolkit/xml/KrXmlBasicType.h>
#include <toolkit/xml/KrXmlPointerType.h>
#include <toolkit/xml/KrXmlVectorType.h>

#include <boost/shared_ptr.hpp>

#include <vector>

/// One visible body of a link: a physical extent and the simpler shapes that enclose it.
///
/// Copies share the extent; links that share an extent share what is drawn.
class KrShape : public KrXmlObjectOf<KrShape, KrXmlCompoundType>
{
public:
    KrShape() = default;
    KrShape(const KrShape& other) = default;
    KrShape(KrShape&& other) noexcept = default;
    KrShape& operator=(const KrShape& other) = default;
    KrShape& operator=(KrShape&& other) noexcept = default;
    /// However long a chain of enclosing shapes was made: without recursion, as comparing.
    ~KrShape() override;
    explicit KrShape(const boost::shared_ptr<KrBasePhysicalExtent>& extent);

    /// Null when the shape has none.
    const KrBasePhysicalExtent* physicalExtent() const { return m_extent.get(); }
    /// The extent to update: it is held by pointer, so that a const shape can be told of changes to it.
    KrBasePhysicalExtent* mutablePhysicalExtent() const { return m_extent.get(); }
    /// To share it; several shapes may.
    const boost::shared_ptr<KrBasePhysicalExtent>& extentPointer() const { return m_extent.pointer(); }
    void setPhysicalExtent(const boost::shared_ptr<KrBasePhysicalExtent>& extent);

    /// The shape's number in its link; KrManipulatorLink::addShape sets it.
    unsigned int number() const { return m_number; }
    void setNumber(unsigned int number) { m_number = number; }

    /// Appends a shape that encloses this one (the description's collision geometry, say), finer than those before it
    /// and than the three simple solids that every shape with a surface has. It stands in for the convex hull. This
    /// shape itself ends the list for those who draw it. Nothing for null; false, after one message, and no change for
    /// another shape that has such volumes of its own.
    bool addBoundingVolume(const boost::shared_ptr<KrShape>& volume);
    /// Fills `list` with the enclosing shapes from `level` on, coarsest first.
    ///
    /// Level 1 is the box along the axes of the owner's frame, 2 a sphere, 3 a capsule or oriented box, whichever is
    /// smaller, and 4 the first of the shapes that were added, or the convex hull, where the surface has one. A shape
    /// without a surface has those that were added only. What is computed encloses the triangle form
    /// (KrEnclosingShapes), is made on first use and kept: the list's shapes are borrowed from this object and from its
    /// copies, until the extent is changed and asked about again. Not for several threads at once.
    void boundingVolumes(std::vector<const KrShape*>& list, unsigned int level) const;

    /// How many of those are computed, without computing them: 0, 3 or (with the hull) 4, the first ones of the list.
    /// @param low, high  opposite corners of the box about the surface; unchanged for 0
    unsigned int numComputedVolumes(KrVector& low, KrVector& high) const;
    /// Fills `list` with the others, which were added.
    void addedVolumes(std::vector<const KrShape*>& list) const;

    /// A new shape for a shape's XML token, null for any other. The caller owns it.
    static KrShape* newFromToken(const KrXmlToken& token);
    KrXmlToken token() const override;
    void registerComponents() override;
    bool operator==(const KrShape& other) const;

private:
    struct Computed;
    const Computed& computed() const;
    bool needsHull() const;

    KrXmlPointerType<KrBasePhysicalExtent> m_extent;
    KrXmlBasicType<unsigned int> m_number = 0u;
    KrXmlVectorType<KrXmlPointerType<KrShape>> m_boundingVolumes;
    mutable boost::shared_ptr<const Computed> m_computed; ///< not written
};
