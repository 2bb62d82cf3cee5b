#pragma once

#include <toolkit/xml/KrXmlToken.h>

#include <memory>
#include <ostream>
#include <string>
#include <string_view>

/// Writes one XML document, indented, UTF-8. Not copyable.
class KrXmlWriter
{
public:
    explicit KrXmlWriter(std::ostream& stream);
    ~KrXmlWriter();
    KrXmlWriter(const KrXmlWriter&) = delete;
    KrXmlWriter& operator=(const KrXmlWriter&) = delete;

    bool beginElement(const KrXmlToken& token);
    /// Only right after beginElement.
    bool attribute(const char* name, std::string_view value);
    bool text(std::string_view value);
    bool endElement();
    /// Ends the document; false when anything could not be written.
    bool finish();
    /// True when the document itself is impossible (characters that XML does not know, deeper than a reader goes);
    /// one message has told why. When only the stream failed, whoever owns it tells.
    bool isRefused() const;

    /// The id under which `object` was written before; the empty string, and a new id kept for it, when it was not.
    std::string sharedId(const void* object);
    /// The id kept for `object`.
    std::string idOf(const void* object) const;

private:
    struct Private;
    std::unique_ptr<Private> m_private;
};
