#include <toolkit/math/KrPixel.h>

#include <toolkit/xml/KrXmlReader.h>
#include <toolkit/xml/KrXmlSchema.h>
#include <toolkit/xml/KrXmlText.h>
#include <toolkit/xml/KrXmlWriter.h>

bool KrPixel::xmlInit()
{
    *this = KrPixel();
    return true;
}

bool KrPixel::read(KrXmlReader& reader)
{
    std::string content;
    if (!reader.text(content)) {
        return false;
    }
    // Both numbers are read before one is assigned: a refused text leaves the pixel as it was.
    std::string_view rest = content;
    unsigned int x = 0;
    unsigned int y = 0;
    // Whole numbers from 0: nothing lies left of the first column or above the first row.
    if (!KrXmlText::take(rest, x) || !KrXmlText::take(rest, y) || !KrXmlText::atEnd(rest)) {
        return reader.fail("\"%.80s\" are not two whole numbers of pixels", content.c_str());
    }
    m_x = x;
    m_y = y;
    return true;
}

bool KrPixel::write(KrXmlWriter& writer) const
{
    // Two numbers with a blank between them, as a list of the schema.
    std::string text;
    KrXmlText::append(text, m_x);
    text += ' ';
    KrXmlText::append(text, m_y);
    return writer.text(text);
}

KrXmlToken KrPixel::token() const
{
    return {KrXmlNamespace::core(), "pixel"};
}

void KrPixel::writeSchemaContent(KrXmlSchema& schema) const
{
    schema.list(KrXmlSchema::TextType::UnsignedInt);
}
