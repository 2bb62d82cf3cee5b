#include <tests/support/Schema.h>
#include <tests/toolkit/xml/KrXmlTestTypes.h>

#include <gtest/gtest.h>

#include <limits>

namespace
{

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
