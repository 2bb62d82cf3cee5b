#pragma once

#include <toolkit/xml/KrXmlObject.h>

#include <vector>

class KrXmlRefusal;

/// An XML object made of components, each a member that is itself a KrXmlObject.
///
/// A subclass overrides `registerComponents` and calls `registerComponent` for
/// each member, in the order in which the child elements are written. Reading
/// (components in any order), writing, comparing and schema writing follow from that. An element that
/// no component claims is an error; a required component that is missing is one, too.
///
/// Objects of one class that hang under each other (links) are a component of their own kind, `registerChildren`: they
/// are read, written and compared without recursion, however deep they go. Everything else is nested at most
/// Kr::Limits::kNestedObjects deep.
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
    void countShared(KrXmlWriter& writer) const override;

    /// Registers the members; called whenever they are looked at, so it does nothing else.
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
    /// @param list  a KrXmlVectorType of objects of this class, which `child` and `appendChild` reach; at most one
    void registerChildren(const KrXmlToken& token, KrXmlObject& list);
    /// Null beyond the last one.
    virtual const KrXmlCompoundType* child(unsigned int i) const;
    /// A new last child, borrowed until the next one; null for a class without children.
    virtual KrXmlCompoundType* appendChild();
    /// Completes what follows from the components that were read; false, after reader.fail, when it cannot.
    virtual bool completeRead(KrXmlReader& reader);
    /// Says whether the components make sense as a whole; prints the reason through refusal.fail when not. Asked when
    /// the object has been read and before it is written: what is written can be read.
    virtual bool validate(KrXmlRefusal& refusal) const;

private:
    struct Component
    {
        KrXmlToken token;
        KrXmlObject* member = nullptr;
        Presence presence = Presence::Required;
        bool areChildren = false;
    };
    using Components = std::vector<Component>;
    struct Reading;
    struct Writing;
    Components components() const;
    static void add(const Component& component);
    bool readInPlace(KrXmlReader& reader);
    bool settleAbsent(KrXmlReader& reader, const Reading& reading);
    static bool isEqualButForChildren(const KrXmlCompoundType& a, const KrXmlCompoundType& b);
};
