#pragma once

#include <toolkit/xml/KrXmlObject.h>

#include <gtest/gtest.h>

#include <libxml/parser.h>
#include <libxml/xmlschemas.h>

#include <memory>
#include <sstream>
#include <string>

/// The schema of an object, ready to judge documents.
class Schema
{
public:
    explicit Schema(const KrXmlObject& object)
    {
        std::ostringstream stream;
        EXPECT_TRUE(object.writeSchema(stream));
        m_text = stream.str();
        const std::unique_ptr<xmlSchemaParserCtxt, decltype(&xmlSchemaFreeParserCtxt)> parser(
            xmlSchemaNewMemParserCtxt(m_text.data(), static_cast<int>(m_text.size())), &xmlSchemaFreeParserCtxt);
        m_schema.reset(xmlSchemaParse(parser.get()));
    }

    bool isValid() const { return m_schema != nullptr; }
    const std::string& text() const { return m_text; }
    /// @param reason  the first thing that is wrong, if wanted
    bool accepts(const std::string& text, std::string* reason = nullptr) const
    {
        const std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> document(
            xmlReadMemory(text.data(), static_cast<int>(text.size()), "test.xml", nullptr,
                          XML_PARSE_NONET | XML_PARSE_HUGE),
            &xmlFreeDoc);
        const std::unique_ptr<xmlSchemaValidCtxt, decltype(&xmlSchemaFreeValidCtxt)> validator(
            xmlSchemaNewValidCtxt(m_schema.get()), &xmlSchemaFreeValidCtxt);
        xmlSchemaSetValidStructuredErrors(validator.get(), note, reason);
        return document && xmlSchemaValidateDoc(validator.get(), document.get()) == 0;
    }

private:
    static void note(void* reason, xmlErrorPtr error)
    {
        auto* const text = static_cast<std::string*>(reason);
        if (text && text->empty()) {
            *text = "line " + std::to_string(error->line) + ": " + error->message;
        }
    }
    struct Deleter
    {
        void operator()(xmlSchema* schema) const { xmlSchemaFree(schema); }
    };
    std::string m_text;
    std::unique_ptr<xmlSchema, Deleter> m_schema;
};
