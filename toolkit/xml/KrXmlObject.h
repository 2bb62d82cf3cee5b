#pragma once

#include <toolkit/xml/KrXmlToken.h>

#include <iosfwd>
#include <string>

class KrXmlReader;
class KrXmlSchema;
class KrXmlWriter;

/// Anything that can be written as an XML element and read back.
///
/// `read` and `write` deal with the inside of an element whose tags the caller
/// handles; the file, stream, buffer and socket operations deal with a whole
/// document whose root is `token()`. Reading is all or nothing: when it fails, one message
/// with file, line and element has been printed and the object holds its old value.
class KrXmlObject
{
public:
    virtual ~KrXmlObject();

    /// A copy on the heap; the caller owns it.
    virtual KrXmlObject* clone() const = 0;
    /// Writes the object to a buffer, reads it back and compares.
    virtual bool selfTest() const;
    /// Back to the value of a new object. False when the class cannot.
    virtual bool xmlInit();
    /// Reads the element on which `reader` stands, to its end.
    virtual bool read(KrXmlReader& reader) = 0;
    /// Writes what stands between the tags of the element that `writer` has open.
    virtual bool write(KrXmlWriter& writer) const = 0;
    /// True when `other` is of the same class and has the same value; false for null.
    virtual bool equality(const KrXmlObject* other) const = 0;
    /// A new object of this class with its default value; the caller owns it.
    virtual KrXmlObject* newObject() const = 0;
    /// Takes the value of `other`; false, and no change, when it is of another class.
    virtual bool assign(const KrXmlObject& other) = 0;
    /// The element that stands for an object of this class on its own.
    virtual KrXmlToken token() const = 0;

    /// Limits of a document and of its parts: Kr::Limits.
    bool readFile(const std::string& path);
    /// Writes to a file beside `path` first: `path` is either complete or as it was.
    bool writeFile(const std::string& path) const;
    /// @param name  used for the stream in messages
    bool readStream(std::istream& stream, const std::string& name = "stream");
    bool writeStream(std::ostream& stream) const;
    bool readBuffer(const char* data, std::size_t size, const std::string& name = "buffer");
    bool writeBuffer(std::string& out) const;
    /// Reads to the end of what the peer sends; the descriptor stays open and the caller's.
    bool readSocket(int descriptor);
    bool writeSocket(int descriptor) const;

    /// Writes an XML schema (XSD 1.0) that documents of this class meet.
    bool writeSchema(std::ostream& stream) const;
    /// Describes the inside of the element for writeSchema.
    virtual void writeSchemaContent(KrXmlSchema& schema) const;
    /// Counts in `writer` what pointers inside of this object refer to: KrXmlWriter::countShared. A class that holds
    /// other objects passes it on to them.
    virtual void countShared(KrXmlWriter& writer) const;

protected:
    KrXmlObject() = default;
    KrXmlObject(const KrXmlObject&) = default;
    KrXmlObject& operator=(const KrXmlObject&) = default;
};

/// Supplies clone, newObject, equality and assign from the copy operations and operator== of `Derived`.
///
/// `class KrLight : public KrXmlObjectOf<KrLight, KrXmlCompoundType>`
template <typename Derived, typename Base>
class KrXmlObjectOf : public Base
{
public:
    using Base::Base;
    KrXmlObject* clone() const override { return new Derived(static_cast<const Derived&>(*this)); }
    KrXmlObject* newObject() const override { return new Derived(); }
    bool equality(const KrXmlObject* other) const override
    {
        const auto* same = dynamic_cast<const Derived*>(other);
        return same != nullptr && static_cast<const Derived&>(*this) == *same;
    }
    bool assign(const KrXmlObject& other) override
    {
        const auto* same = dynamic_cast<const Derived*>(&other);
        if (same != nullptr) {
            static_cast<Derived&>(*this) = *same;
        }
        return same != nullptr;
    }
};
