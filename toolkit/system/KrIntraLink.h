#pragma once

#include <toolkit/math/KrCoordinateSystemTransformation.h>
#include <toolkit/math/KrXmlVector.h>
#include <toolkit/system/KrShape.h>
#include <toolkit/xml/KrXmlBasicType.h>
#include <toolkit/xml/KrXmlCompoundType.h>

#include <string>

class KrIndividualManipulator;
class KrManipulatorActiveState;

/// An extra body between two links of a manipulator: a piston rod, a cable guide, a spring.
///
/// Its frame has its origin at the start point and its x axis towards the end point; the z axis lies as close to the
/// start link's z axis as that allows (to its y axis where the two are parallel). Where the points meet, the axes are
/// the start link's. The empty link name is the base.
class KrIntraLink : public KrXmlObjectOf<KrIntraLink, KrXmlCompoundType>
{
public:
    /// Between the origins of two links without names.
    KrIntraLink();
    KrIntraLink(const KrIntraLink& other);
    KrIntraLink(KrIntraLink&& other) noexcept;
    KrIntraLink& operator=(const KrIntraLink& other);
    KrIntraLink& operator=(KrIntraLink&& other) noexcept;
    ~KrIntraLink() override;
    /// Between a point of each of two links, m, in the links' frames; without a shape.
    KrIntraLink(const std::string& startLink, const KrVector& startPoint, const std::string& endLink,
                const KrVector& endPoint);

    /// The names of the links at its ends.
    const std::string& startLink() const { return m_startLink.value(); }
    const std::string& endLink() const { return m_endLink.value(); }
    const KrVector& startPoint() const { return m_startPoint; } ///< start link's frame, m
    const KrVector& endPoint() const { return m_endPoint; }     ///< end link's frame, m

    /// Null when the intra-link has none.
    const KrShape* shape() const { return m_shape.get(); }
    void setShape(const boost::shared_ptr<KrShape>& shape) { m_shape.set(shape); }

    /// Intra-link frame to manipulator frame. The identity when a link of that name does not exist
    /// or the state has no position for a joint on the way to it.
    KrCoordinateSystemTransformation placement(const KrManipulatorActiveState& state,
                                               const KrIndividualManipulator& manipulator) const;

    KrXmlToken token() const override;
    void registerComponents() override;

protected:
    bool validate(KrXmlRefusal& refusal) const override;

private:
    KrXmlBasicType<std::string> m_startLink;
    KrXmlVector m_startPoint;
    KrXmlBasicType<std::string> m_endLink;
    KrXmlVector m_endPoint;
    KrXmlPointerType<KrShape> m_shape;
};

/// The intra-links of a manipulator.
class KrIntraLinkDescription : public KrXmlObjectOf<KrIntraLinkDescription, KrXmlCompoundType>
{
public:
    /// Without any intra-link.
    KrIntraLinkDescription();
    KrIntraLinkDescription(const KrIntraLinkDescription& other);
    KrIntraLinkDescription(KrIntraLinkDescription&& other) noexcept;
    KrIntraLinkDescription& operator=(const KrIntraLinkDescription& other);
    KrIntraLinkDescription& operator=(KrIntraLinkDescription&& other) noexcept;
    ~KrIntraLinkDescription() override;

    /// The number of intra-links.
    unsigned int count() const { return m_intraLinks.size(); }
    /// Not checked: `i` is below count().
    const KrIntraLink& intraLink(unsigned int i) const { return m_intraLinks[i]; }
    void addIntraLink(const KrIntraLink& intraLink) { m_intraLinks.push_back(intraLink); }

    KrXmlToken token() const override;
    void registerComponents() override;

private:
    KrXmlVectorType<KrIntraLink> m_intraLinks;
};

// Compiled once, in the library.
extern template class KrXmlObjectOf<KrIntraLink, KrXmlCompoundType>;
extern template class KrXmlObjectOf<KrXmlVectorType<KrIntraLink>, KrXmlObject>;
extern template class KrXmlVectorType<KrIntraLink>;
extern template class KrXmlObjectOf<KrIntraLinkDescription, KrXmlCompoundType>;
