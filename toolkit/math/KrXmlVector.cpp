#include <toolkit/math/KrXmlVector.h>

#include <toolkit/xml/KrXmlReader.h>
#include <toolkit/xml/KrXmlSchema.h>
#include <toolkit/xml/KrXmlWriter.h>

bool KrXmlVector::xmlInit()
{
    m_value = KrVector();
    return true;
}

bool KrXmlVector::read(KrXmlReader& reader)
{
    std::string content;
    if (!reader.text(content)) {
        return false;
    }
    std::string_view rest = content;
    // Assigned only when all three are there: a refused text leaves the value as it was.
    KrVector value;
    // Finiteness is for the object that the vector belongs to: some have a meaning for infinity.
    if (!KrXmlPlain<KrVector>::take(rest, value) || !KrXmlText::atEnd(rest)) {
        return reader.fail("\"%.80s\" are not three numbers", content.c_str());
    }
    m_value = value;
    return true;
}

bool KrXmlVector::write(KrXmlWriter& writer) const
{
    std::string text;
    KrXmlPlain<KrVector>::append(text, m_value);
    return writer.text(text);
}

KrXmlToken KrXmlVector::token() const
{
    return {KrXmlNamespace::core(), "vector"};
}

void KrXmlVector::writeSchemaContent(KrXmlSchema& schema) const
{
    // A list has no length in the schema; that there are three is checked by `read`.
    schema.list(KrXmlSchema::TextType::Real);
}
