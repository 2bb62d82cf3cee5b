#include <toolkit/math/KrColor.h>

#include <toolkit/xml/KrXmlReader.h>
#include <toolkit/xml/KrXmlSchema.h>
#include <toolkit/xml/KrXmlText.h>
#include <toolkit/xml/KrXmlWriter.h>

#include <algorithm>
#include <iterator>

// Number by number, without a tolerance.
bool operator==(const KrColor& a, const KrColor& b)
{
    return std::equal(std::begin(a.m_channels), std::end(a.m_channels), std::begin(b.m_channels));
}

bool KrColor::xmlInit()
{
    *this = KrColor();
    return true;
}

// From 0 to 1: numbers up to 255, as other programs write them, are refused rather than clamped.
bool KrColor::read(KrXmlReader& reader)
{
    std::string content;
    if (!reader.text(content)) {
        return false;
    }
    std::string_view rest = content;
    // Three numbers are a colour without transparency.
    double channels[4] = {0.0, 0.0, 0.0, 1.0};
    std::size_t count = 0;
    while (!KrXmlText::atEnd(rest) && count < 4) {
        // Written so that NaN fails too.
        if (!KrXmlText::take(rest, channels[count]) || !(channels[count] >= 0.0 && channels[count] <= 1.0)) {
            return reader.fail("\"%.80s\": a colour has numbers from 0 to 1", content.c_str());
        }
        ++count;
    }
    if (count < 3 || !KrXmlText::atEnd(rest)) {
        return reader.fail("\"%.80s\": a colour has three or four numbers", content.c_str());
    }
    // Assigned last, so that a refused text leaves the colour as it was.
    std::copy(std::begin(channels), std::end(channels), std::begin(m_channels));
    return true;
}

// Always all four channels.
bool KrColor::write(KrXmlWriter& writer) const
{
    std::string text;
    // Refused here as well: a file that could not be read back would lose the object.
    for (const double channel : m_channels) {
        // Written so that NaN fails too.
        if (!(channel >= 0.0 && channel <= 1.0)) {
            return writer.fail("%g: a colour has numbers from 0 to 1", channel);
        }
        text += text.empty() ? "" : " ";
        KrXmlText::append(text, channel);
    }
    return writer.text(text);
}

KrXmlToken KrColor::token() const
{
    return {KrXmlNamespace::core(), "color"};
}

void KrColor::writeSchemaContent(KrXmlSchema& schema) const
{
    // The schema has the type of the numbers; their count and range are checked by `read` alone.
    schema.list(KrXmlSchema::TextType::Real);
}
