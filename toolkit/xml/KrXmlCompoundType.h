#pragma once

#include <toolkit/xml/KrXmlObject.h>

#include <vector>

/// An XML object made of components, each a member that is itself a KrXmlObject.
///
/// A subclass overrides `registerComponents` and calls `registerComponent` for
/// each member, in the order in which the child elements are written. Reading
/// (components in any order), writing, comparing and schema writing follow from that. An element that
/// no component claims is an error; a required component that is missing is one, too.
class KrXmlCompoundType : public KrXmlObject
{
public:
    KrXmlCompoundType() = default;
    /// Registrations are an object's own: they point at its members and are never copied.
    KrXmlCompoundType(const KrXmlCompoundType& other) noexcept;
    KrXmlCompoundType& operator=(const KrXmlCompoundType& other);

    bool xmlInit() override;
    bool read(KrXmlReader& reader) override;
    bool write(KrXmlWriter& writer) const override;
    void writeSchemaContent(KrXmlSchema& schema) const override;

    /// Registers the members; called once per object, on first use.
    virtual void registerComponents() = 0;

    /// True when both have components of the same tokens and equal values.
    bool operator==(const KrXmlCompoundType& other) const;
    bool operator!=(const KrXmlCompoundType& other) const { return !(*this == other); }

protected:
    enum class Presence
    {
        Required, ///< reading fails without it
        Optional  ///< may be absent: the member then has its default value
    };
    /// @param member  lives as long as this object (it is a part of it)
    void registerComponent(const KrXmlToken& token, KrXmlObject& member, Presence presence = Presence::Required);
    /// Completes what follows from the components that were read; false, after reader.fail, when it cannot.
    virtual bool completeRead(KrXmlReader& reader);
    /// Says whether what was read makes sense as a whole; prints the reason through reader.fail when not.
    virtual bool validate(KrXmlReader& reader) const;

private:
    struct Component
    {
        KrXmlToken token;
        KrXmlObject* member = nullptr;
        Presence presence = Presence::Required;
    };
    const std::vector<Component>& components() const;
    bool readInPlace(KrXmlReader& reader);
    bool readComponents(KrXmlReader& reader, std::vector<bool>& seen);
    bool settleAbsent(KrXmlReader& reader, const std::vector<bool>& seen);
    mutable std::vector<Component> m_components;
};
