#include <rendCore/system/KrRenderWindowParameters.h>

#include <toolkit/visualization/KrLight.h>

#include <tests/support/MessageRecorder.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace
{

TEST(KrRenderWindowParameters, ReadsBackWhatItWritesInTheStatedOrder)
{
    KrRenderWindowParameters parameters = KrRenderWindowParameters::testObject();
    parameters.setWidth(640);
    parameters.setUpperLeftCorner(KrPixel(3, 4));
    std::string text;
    ASSERT_TRUE(parameters.writeBuffer(text));
    std::size_t last = 0;
    for (const char* name : {"<renderWindowParameters", "<width", "<height", "<upperLeftCorner", "<numberChannels",
                             "<backgroundColor", "<usePBuffering"}) {
        const std::size_t at = text.find(name);
        ASSERT_NE(at, std::string::npos) << name;
        EXPECT_GE(at, last) << name;
        last = at;
    }
    KrRenderWindowParameters back;
    ASSERT_TRUE(back.readBuffer(text.data(), text.size()));
    EXPECT_EQ(back, parameters);
    EXPECT_TRUE(parameters.selfTest());
}

TEST(KrRenderWindowParameters, ComparesEveryMember)
{
    const KrRenderWindowParameters null = KrRenderWindowParameters::nullObject();
    EXPECT_EQ(null, KrRenderWindowParameters());
    EXPECT_NE(null, KrRenderWindowParameters::testObject()) << "three components against none";
    const KrLight other;
    EXPECT_FALSE(null.equality(&other));
    EXPECT_FALSE(null.equality(nullptr));
    const std::unique_ptr<KrXmlObject> copy(null.clone());
    EXPECT_TRUE(null.equality(copy.get()));
    // The pbuffer flag is reached through XML only.
    std::string text;
    ASSERT_TRUE(null.writeBuffer(text));
    text.replace(text.find("false"), 5, "true");
    KrRenderWindowParameters buffering;
    ASSERT_TRUE(buffering.readBuffer(text.data(), text.size()));
    EXPECT_NE(buffering, null);
}

} // namespace
