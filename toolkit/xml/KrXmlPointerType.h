#pragma once

#include <toolkit/xml/KrXmlObject.h>
#include <toolkit/xml/KrXmlReader.h>
#include <toolkit/xml/KrXmlSchema.h>
#include <toolkit/xml/KrXmlWriter.h>

#include <boost/shared_ptr.hpp>

/// A shared object of a class derived from `Base`, or none.
///
/// The child element names the class: `static Base* Base::newFromToken(const KrXmlToken&)` makes a new
/// object for a token, or gives null. An object that several pointers of a document share is written once, with an
/// "id" attribute, and as an element with a "ref" attribute afterwards; reading shares it again.
/// Copies share the object; comparing compares what is pointed to. None is written as an empty element.
template <typename Base>
class KrXmlPointerType : public KrXmlObjectOf<KrXmlPointerType<Base>, KrXmlObject>
{
public:
    KrXmlPointerType() = default; ///< none
    /// Shares `object`, which may be null.
    explicit KrXmlPointerType(boost::shared_ptr<Base> object)
        : m_object(std::move(object))
    {
    }

    /// The object; null for none. `get` lends it, `pointer` shares it.
    Base* get() const { return m_object.get(); }
    const boost::shared_ptr<Base>& pointer() const { return m_object; }
    void set(const boost::shared_ptr<Base>& object) { m_object = object; }

    bool xmlInit() override
    {
        m_object.reset();
        return true;
    }
    bool read(KrXmlReader& reader) override;
    bool write(KrXmlWriter& writer) const override;
    KrXmlToken token() const override { return {KrXmlNamespace::core(), "item"}; }
    void writeSchemaContent(KrXmlSchema& schema) const override { schema.oneOfAnyClass(); }
    void countShared(KrXmlWriter& writer) const override
    {
        if (m_object && writer.countShared(m_object.get())) {
            m_object->countShared(writer);
        }
    }

    friend bool operator==(const KrXmlPointerType& a, const KrXmlPointerType& b)
    {
        return a.m_object == b.m_object || (a.m_object && b.m_object && a.m_object->equality(b.m_object.get()));
    }
    friend bool operator!=(const KrXmlPointerType& a, const KrXmlPointerType& b) { return !(a == b); }

private:
    boost::shared_ptr<Base> m_object;
};

template <typename Base>
bool KrXmlPointerType<Base>::read(KrXmlReader& reader)
{
    boost::shared_ptr<Base> object;
    const KrXmlReader::Scratch scratch(reader);
    reader.enter();
    while (reader.nextChild()) {
        if (object) {
            return reader.fail("one object is expected here, not several");
        }
        std::string id;
        if (reader.attribute("ref", id)) {
            object = boost::dynamic_pointer_cast<Base>(reader.shared(id));
            if (!object) {
                return reader.fail("\"ref\" names \"%.40s\", which stands nowhere before it", id.c_str());
            }
            if (!reader.skip()) {
                return false;
            }
            continue;
        }
        object.reset(Base::newFromToken(reader.element()));
        if (!object) {
            return reader.fail("an object of this kind is not known here");
        }
        const bool kept = reader.attribute("id", id);
        if (kept && reader.shared(id)) {
            return reader.fail("id \"%.40s\" stands twice in this document", id.c_str());
        }
        if (!object->read(reader)) {
            return false;
        }
        if (kept) {
            reader.keepShared(id, object);
        }
    }
    if (reader.failed()) {
        return false;
    }
    m_object = object;
    return true;
}

template <typename Base>
bool KrXmlPointerType<Base>::write(KrXmlWriter& writer) const
{
    if (!m_object) {
        return true;
    }
    if (writer.isOpen(m_object.get())) {
        return writer.fail("an object holds itself");
    }
    if (!writer.beginElement(m_object->token())) {
        return false;
    }
    // What the document refers to once needs no id, whoever else holds it.
    if (writer.isShared(m_object.get())) {
        const std::string before = writer.sharedId(m_object.get());
        if (!before.empty()) {
            return writer.attribute("ref", before) && writer.endElement();
        }
        if (!writer.attribute("id", writer.idOf(m_object.get()))) {
            return false;
        }
    }
    const void* const object = m_object.get();
    writer.setOpen(object, true);
    const bool isWritten = m_object->write(writer) && writer.endElement();
    writer.setOpen(object, false);
    return isWritten;
}
