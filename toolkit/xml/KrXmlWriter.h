#pragma once

#include <toolkit/xml/KrXmlRefusal.h>
#include <toolkit/xml/KrXmlToken.h>

#include <memory>
#include <ostream>
#include <string>
#include <string_view>

/// Writes one XML document, indented (at the first levels), UTF-8. Not copyable.
class KrXmlWriter : public KrXmlRefusal
{
public:
    /// @param stream  outlives the writer
    explicit KrXmlWriter(std::ostream& stream);
    ~KrXmlWriter();
    KrXmlWriter(const KrXmlWriter&) = delete;
    KrXmlWriter& operator=(const KrXmlWriter&) = delete;

    /// Each is false when the document cannot be written, now or before; the reason has been told once.
    bool beginElement(const KrXmlToken& token);
    /// Only right after beginElement.
    bool attribute(const char* name, std::string_view value);
    bool text(std::string_view value);
    /// A text of any bytes: one that XML cannot hold is written with the attribute encoding="percent".
    bool string(std::string_view value);
    bool endElement();
    /// Ends the document; false when anything could not be written.
    bool finish();
    bool failed() const override;
    /// True when the document itself is impossible (an object that no reader would take, characters that XML does not
    /// know, deeper than a reader goes); one message has told why. When only the stream failed, whoever owns it tells.
    bool isRefused() const;

    /// Counts a reference to `object`, before anything is written; true for the first one.
    bool countShared(const void* object);
    /// True when `object` was not counted exactly once: it may be referred to again, and wants an id.
    bool isShared(const void* object) const;

    /// Whether what a pointer refers to is being written: no reader can make an object that holds itself.
    bool isOpen(const void* object) const;
    void setOpen(const void* object, bool isOpen);

    /// The id under which `object` was written before; the empty string, and a new id kept for it, when it was not.
    std::string sharedId(const void* object);
    /// The id kept for `object`.
    std::string idOf(const void* object) const;

protected:
    void refuse(const char* reason) override;

private:
    struct Private;
    std::unique_ptr<Private> m_private;
};
