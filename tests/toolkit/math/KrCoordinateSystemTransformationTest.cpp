#include <tests/support/MessageRecorder.h>

#include <toolkit/material/KrDataMap.h>
#include <toolkit/math/KrAngle.h>
#include <toolkit/math/KrColor.h>
#include <toolkit/math/KrCoordinateSystemTransformation.h>
#include <toolkit/math/KrPixel.h>
#include <toolkit/math/KrXmlVector.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace
{

using Kr::Angle::kPi;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

using Pose = KrCoordinateSystemTransformation;

void expectNear(const KrVector& a, const KrVector& b)
{
    EXPECT_LT((a - b).length(), 1e-12) << "(" << a.x() << ", " << a.y() << ", " << a.z() << ") is not (" << b.x()
                                       << ", " << b.y() << ", " << b.z() << ")";
}

Pose somePose()
{
    Pose pose;
    pose.setRollPitchYaw(0.3, -1.1, 2.9);
    pose.setTranslation({0.1, -2.0, 1.0 / 3.0});
    return pose;
}

bool readText(KrXmlObject& object, const std::string& inside)
{
    const std::string name = object.token().name;
    const std::string text = "<" + name + " xmlns=\"" + KrXmlNamespace::core() + "\">" + inside + "</" + name + ">";
    return object.readBuffer(text.data(), text.size(), "test.xml");
}

} // namespace

TEST(KrCoordinateSystemTransformation, TurnsAndMovesAsWorkedOutByHand)
{
    Pose pose;
    EXPECT_TRUE(pose.isIdentity());
    // A quarter turn about z takes x to y.
    pose.setAxisAngle({0.0, 0.0, 5.0}, kPi / 2.0);
    pose.setTranslation({10.0, 20.0, 30.0});
    expectNear(pose.transformPoint({1.0, 0.0, 0.0}), {10.0, 21.0, 30.0});
    expectNear(pose.transformDirection({0.0, 1.0, 0.0}), {-1.0, 0.0, 0.0});
    EXPECT_FALSE(pose.isIdentity());

    // First about x, then y, then z, the axes standing still: x goes down, is not moved by the roll.
    pose.setRollPitchYaw(kPi / 2.0, kPi / 2.0, 0.0);
    expectNear(pose.transformDirection({1.0, 0.0, 0.0}), {0.0, 0.0, -1.0});
    expectNear(pose.transformDirection({0.0, 1.0, 0.0}), {1.0, 0.0, 0.0});
    EXPECT_EQ(pose.translation(), KrVector(10.0, 20.0, 30.0));

    pose.setAxisAngle({0.0, 0.0, 0.0}, 1.0);
    expectNear(pose.transformDirection({1.0, 2.0, 3.0}), {1.0, 2.0, 3.0});
}

TEST(KrCoordinateSystemTransformation, ProductsAndInversesAgreeWithPoints)
{
    Pose quarter;
    quarter.setAxisAngle({1.0, 0.0, 0.0}, kPi / 2.0);
    quarter.setTranslation({0.0, 0.0, 1.0});
    const Pose pose = somePose();
    const KrVector p(0.5, -0.25, 4.0);
    expectNear((pose * quarter).transformPoint(p), pose.transformPoint(quarter.transformPoint(p)));
    expectNear((quarter * pose).transformPoint(p), quarter.transformPoint(pose.transformPoint(p)));
    expectNear(pose.inverse().transformPoint(pose.transformPoint(p)), p);
}

TEST(KrCoordinateSystemTransformation, SixteenEntriesAreForRowVectors)
{
    Pose pose;
    pose.setAxisAngle({0.0, 0.0, 1.0}, kPi / 2.0);
    pose.setTranslation({7.0, 8.0, 9.0});
    double m[16];
    pose.assign16(m);
    const double expected[16] = {0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 7, 8, 9, 1};
    for (int i = 0; i < 16; ++i) {
        EXPECT_NEAR(m[i], expected[i], 1e-15) << i;
    }
    Pose back;
    EXPECT_TRUE(back.setFrom16(m));
    EXPECT_EQ(back, pose);

    // A mirror, a scale, a shear and what is no number are refused.
    for (const auto& [index, value] :
         {std::pair(10, -1.0), std::pair(10, 2.0), std::pair(8, 0.1), std::pair(0, kNaN), std::pair(13, kNaN)}) {
        double bad[16];
        pose.assign16(bad);
        bad[index] = value;
        EXPECT_FALSE(back.setFrom16(bad)) << index;
        EXPECT_EQ(back, pose);
    }
}

TEST(KrCoordinateSystemTransformation, OrientationsGoBothWays)
{
    // Half turns have no w to divide by.
    for (const KrVector& axis : {KrVector(1, 0, 0), KrVector(0, 1, 0), KrVector(0, 0, 1), KrVector(1, -2, 3)}) {
        for (const double angle : {0.0, 1e-9, 1.0, kPi, -2.5}) {
            Pose pose;
            pose.setAxisAngle(axis, angle);
            Pose back;
            KrOrientation q = pose.orientation();
            for (unsigned int i = 0; i < 4; ++i) {
                q[i] *= -3.0;
            }
            back.setOrientation(q);
            const KrVector p(0.3, 0.4, 0.5);
            expectNear(back.transformPoint(p), pose.transformPoint(p));
        }
    }
    Pose pose;
    pose.setOrientation(KrOrientation(0.0, 0.0, std::sin(kPi / 4.0), std::cos(kPi / 4.0)));
    expectNear(pose.transformDirection({1.0, 0.0, 0.0}), {0.0, 1.0, 0.0});
    pose.setOrientation(KrOrientation(0.0, 0.0, 0.0, 0.0));
    EXPECT_TRUE(pose.isIdentity());
}

TEST(KrCoordinateSystemTransformation, XmlIsExactAndReadable)
{
    Pose copy;
    const Pose pose = somePose();
    std::string text;
    ASSERT_TRUE(pose.writeBuffer(text));
    ASSERT_TRUE(copy.readBuffer(text.data(), text.size()));
    EXPECT_EQ(copy, pose);
    EXPECT_TRUE(Pose().selfTest());

    EXPECT_TRUE(readText(copy, "<translation>1 2 3</translation><rollPitchYaw>0 0 1.5707963267948966</rollPitchYaw>"));
    expectNear(copy.transformPoint({1.0, 0.0, 0.0}), {1.0, 3.0, 3.0});
    EXPECT_TRUE(readText(copy, ""));
    EXPECT_TRUE(copy.isIdentity());
}

TEST(KrCoordinateSystemTransformation, BadXmlGivesOneMessageAndNoChange)
{
    const char* const bad[] = {"<translation>1 2</translation>",
                               "<translation>1 2 3 4</translation>",
                               "<translation>1 2 nan</translation>",
                               "<translation>1 2 3</translation><translation>1 2 3</translation>",
                               "<rotation>1 0 0 0 1 0 0 0 -1</rotation>",
                               "<rotation>1 0 0 0 1 0 0 0 1.1</rotation>",
                               "<rotation>1 0 0 0</rotation>",
                               "<rotation>1 0 0 0 1 0 0 0 1</rotation><rollPitchYaw>0 0 0</rollPitchYaw>",
                               "<scale>1</scale>",
                               "1 2 3"};
    for (const char* const inside : bad) {
        MessageRecorder messages;
        Pose pose = somePose();
        EXPECT_FALSE(readText(pose, inside)) << inside;
        EXPECT_EQ(pose, somePose()) << inside;
        EXPECT_EQ(messages.only().find("KrXmlReader - test.xml, line 1, element \""), 0u) << messages.only();
    }
}

TEST(KrGeometryValues, KeepToTheirRangesInXml)
{
    MessageRecorder messages;
    KrColor color(0.1, 0.2, 0.3, 0.4);
    EXPECT_TRUE(color.selfTest());
    for (const char* const bad : {"1 1", "1 1 1 1 1", "1 1 1.5", "nan 0 0", "-0.1 0 0", "red"}) {
        EXPECT_FALSE(readText(color, bad)) << bad;
    }
    EXPECT_EQ(color, KrColor(0.1, 0.2, 0.3, 0.4));
    EXPECT_TRUE(readText(color, "1 0 0"));
    EXPECT_EQ(color, KrColor(1.0, 0.0, 0.0, 1.0));

    KrPixel pixel(3, 4);
    EXPECT_TRUE(pixel.selfTest());
    for (const char* const bad : {"1", "1 -1", "1 2 3", "1.5 2"}) {
        EXPECT_FALSE(readText(pixel, bad)) << bad;
    }
    EXPECT_EQ(pixel, KrPixel(3, 4));

    KrXmlVector vector(KrVector(0.1, 1e300, -0.0));
    EXPECT_TRUE(vector.selfTest());
    EXPECT_FALSE(readText(vector, "1 2"));
    EXPECT_EQ(vector.value().x(), 0.1);
    EXPECT_EQ(messages.count(), 11u);
}

TEST(KrDataMap, LooksUpByKeyAndType)
{
    KrDataMap map = KrDataMap::material(KrColor(0.1, 0.2, 0.3, 0.4));
    double number = -1.0;
    bool truth = false;
    std::string text;
    EXPECT_TRUE(map.real("krDiffuseBlue", number));
    EXPECT_EQ(number, 0.3);
    EXPECT_TRUE(map.real("krSpecularAlpha", number));
    EXPECT_EQ(number, 0.4);
    EXPECT_FALSE(map.string("krDiffuseBlue", text));
    map.setString("krTextureFilename", "a&b.png");
    map.setBoolean("krRenderBothSides", true);
    EXPECT_FALSE(map.real("krTextureFilename", number));
    EXPECT_EQ(number, 0.4);
    EXPECT_TRUE(map.boolean("krRenderBothSides", truth));
    EXPECT_TRUE(truth);
    EXPECT_TRUE(map.selfTest());

    MessageRecorder messages;
    const KrDataMap before = map;
    for (const char* const bad : {"<real>1</real>", "<real key=\"a\">x</real>", "<color key=\"a\">1 1 1</color>",
                                  "<real key=\"a\">1</real><string key=\"a\">1</string>"}) {
        EXPECT_FALSE(readText(map, bad)) << bad;
    }
    EXPECT_TRUE(map == before);
    EXPECT_EQ(messages.count(), 4u);
}
