#include <tests/toolkit/xml/KrXmlTestTypes.h>

#include <gtest/gtest.h>

#include <libxml/parser.h>
#include <libxml/xmlschemas.h>

#include <limits>
#include <memory>
#include <sstream>

namespace
{

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
    bool accepts(const std::string& text) const
    {
        const std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> document(
            xmlReadMemory(text.data(), static_cast<int>(text.size()), "test.xml", nullptr, XML_PARSE_NONET),
            &xmlFreeDoc);
        const std::unique_ptr<xmlSchemaValidCtxt, decltype(&xmlSchemaFreeValidCtxt)> validator(
            xmlSchemaNewValidCtxt(m_schema.get()), &xmlSchemaFreeValidCtxt);
        xmlSchemaSetValidErrors(validator.get(), ignore, ignore, nullptr);
        return document && xmlSchemaValidateDoc(validator.get(), document.get()) == 0;
    }

private:
    static void ignore(void*, const char*, ...) {}
    struct Deleter
    {
        void operator()(xmlSchema* schema) const { xmlSchemaFree(schema); }
    };
    std::string m_text;
    std::unique_ptr<xmlSchema, Deleter> m_schema;
};

std::string written(const KrXmlObject& object)
{
    std::string text;
    EXPECT_TRUE(object.writeBuffer(text));
    return text;
}

std::string sample(const std::string& inside)
{
    return "<sample xmlns=\"" + KrXmlNamespace::core() + "\">" + inside + "</sample>";
}

} // namespace

TEST(KrXmlSchema, AcceptsWhatIsWritten)
{
    Sample full = Sample::full();
    full.numbers.push_back(std::numeric_limits<double>::infinity());
    full.numbers.push_back(std::numeric_limits<double>::quiet_NaN());
    const Schema schema(full);
    ASSERT_TRUE(schema.isValid()) << schema.text();
    EXPECT_TRUE(schema.accepts(written(full))) << schema.text() << written(full);
    EXPECT_TRUE(schema.accepts(written(Sample())));

    Mixed mixed;
    mixed.inner = full;
    const Schema mixedSchema(mixed);
    ASSERT_TRUE(mixedSchema.isValid()) << mixedSchema.text();
    EXPECT_TRUE(mixedSchema.accepts(written(mixed))) << mixedSchema.text() << written(mixed);

    const KrXmlVectorType<KrXmlVectorType<int>> lists({KrXmlVectorType<int>({1, 2}), KrXmlVectorType<int>()});
    const Schema listSchema(lists);
    ASSERT_TRUE(listSchema.isValid()) << listSchema.text();
    EXPECT_TRUE(listSchema.accepts(written(lists)));
}

TEST(KrXmlSchema, JudgesAsTheReaderDoes)
{
    const Schema schema((Sample()));
    ASSERT_TRUE(schema.isValid());
    EXPECT_TRUE(schema.accepts(sample("<count>1</count><name>x</name>")));
    EXPECT_FALSE(schema.accepts(sample("<name>x</name>")));
    EXPECT_FALSE(schema.accepts(sample("<name>x</name><count>1</count><count>1</count>")));
    EXPECT_FALSE(schema.accepts(sample("<name>x</name><count>1</count><other/>")));
    EXPECT_FALSE(schema.accepts(sample("<name>x</name><count>many</count>")));
    EXPECT_FALSE(schema.accepts(sample("<name>x</name><count>1</count><numbers>1 x</numbers>")));
    EXPECT_FALSE(schema.accepts(sample("<name>x</name><count>1</count><bytes>256</bytes>")));
    // Deep inside, in a class that contains itself.
    const std::string inner = "<children><sample><name>x</name><count>1</count></sample></children>";
    EXPECT_TRUE(schema.accepts(sample("<name>x</name><count>1</count>" + inner)));
    EXPECT_FALSE(
        schema.accepts(sample("<name>x</name><count>1</count><children><sample><name>x</name></sample></children>")));
}
