#pragma once

#include <toolkit/xml/KrXmlRefusal.h>
#include <toolkit/xml/KrXmlToken.h>

#include <boost/shared_ptr.hpp>

#include <cstddef>
#include <istream>
#include <memory>
#include <string>

class KrXmlObject;

/// Walks an XML document for the objects that read themselves from it.
///
/// Nothing outside the document is loaded: no network, no external entities,
/// no document types. The one exception is a document read from a file, whose
/// grid values may stand in another file that an attribute `file` names;
/// streams, buffers and sockets never open one. Depth is limited to Kr::Limits::kElementDepth elements. Not copyable.
///
/// The pattern of a reader of children:
/// @code
///     reader.enter();
///     while (reader.nextChild()) { ... something that consumes the child ... }
///     return !reader.failed();
/// @endcode
class KrXmlReader : public KrXmlRefusal
{
public:
    /// A reader of nothing, until one of the four opens a document; of one document at a time.
    KrXmlReader();
    ~KrXmlReader();
    KrXmlReader(const KrXmlReader&) = delete;
    KrXmlReader& operator=(const KrXmlReader&) = delete;

    /// Each opens a document and stands on its root element; false, after one message, when it cannot.
    bool openFile(const std::string& path);
    bool openStream(std::istream& stream, const std::string& name);
    bool openBuffer(const char* data, std::size_t size, const std::string& name);
    bool openDescriptor(int descriptor, const std::string& name);

    /// Where the document came from, as in messages.
    const std::string& documentName() const;
    /// The folder of the document with a slash at its end; empty when it is not a file.
    const std::string& documentFolder() const;

    /// The element on which the reader stands.
    const KrXmlToken& element() const;
    /// The value of an attribute (without namespace) of that element; false when it has none.
    bool attribute(const char* name, std::string& value) const;

    /// Begins to walk the children of the current element.
    void enter();
    /// On to the next child element; false at the end of the entered element and after a failure.
    bool nextChild();
    /// The text of the current element, which must have no children; consumes the element.
    bool text(std::string& out);
    /// The same, of an element that KrXmlWriter::string has written.
    bool string(std::string& out);
    /// Consumes the current element whatever it holds.
    bool skip();
    /// Reads to the end of the document: false when something other than comments follows the root.
    bool finish();

    bool failed() const override;

    /// While one of these lives, what is read is thrown away should reading fail: objects may then be
    /// changed in place instead of through a copy.
    class Scratch
    {
    public:
        /// From here on, until it goes. `reader` outlives it.
        explicit Scratch(KrXmlReader& reader);
        ~Scratch();
        Scratch(const Scratch&) = delete;
        Scratch& operator=(const Scratch&) = delete;

    private:
        KrXmlReader& m_reader;
    };
    bool isScratch() const;

    /// Objects that are written once and referred to afterwards, by the text of their id.
    void keepShared(const std::string& id, const boost::shared_ptr<KrXmlObject>& object);
    boost::shared_ptr<KrXmlObject> shared(const std::string& id) const;

protected:
    void refuse(const char* reason) override;

private:
    struct Private;
    std::unique_ptr<Private> m_private;
};
