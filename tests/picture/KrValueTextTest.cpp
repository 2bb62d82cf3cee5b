#include <picture/KrValueText.h>

#include <gtest/gtest.h>

using namespace KrValueText;

TEST(KrValueText, ReadsPositionsWithTheirUnits)
{
    double value = 0.0;
    Unit unit = Unit::Plain;
    ASSERT_TRUE(position("-0.25", value, unit));
    EXPECT_EQ(value, -0.25);
    EXPECT_EQ(unit, Unit::Plain);
    ASSERT_TRUE(position("90deg", value, unit));
    EXPECT_NEAR(value, 1.57079632679489662, 1e-15);
    EXPECT_EQ(unit, Unit::Angle);
    ASSERT_TRUE(position(" 20 mm", value, unit));
    EXPECT_NEAR(value, 0.02, 1e-15);
    EXPECT_EQ(unit, Unit::Length);
    ASSERT_TRUE(position("1e-2m", value, unit));
    EXPECT_EQ(value, 0.01);
    ASSERT_TRUE(position("+.5", value, unit));
    EXPECT_EQ(value, 0.5);
}

TEST(KrValueText, RefusesWhatIsNoNumberAndKeepsTheOldValue)
{
    double value = 7.0;
    Unit unit = Unit::Length;
    for (const char* text :
         {"", "deg", "1.0.0", "0x", "one", "1 2", "nan", "inf", "1e999", "5feet", "1,5", "+-1", "++1", "+", "+ 1"}) {
        EXPECT_FALSE(position(text, value, unit)) << text;
        EXPECT_FALSE(number(text, value)) << text;
    }
    KrVector vectorValue(1, 2, 3);
    for (const char* text : {"", "1,2", "1,2,3,4", "1,,3", "1;2;3"}) {
        EXPECT_FALSE(vector(text, vectorValue)) << text;
    }
    unsigned long width = 5;
    unsigned long height = 6;
    for (const char* text : {"", "640", "640x", "x480", "640x480x3", "-640x480", "6.4x4.8", "99999999999999999999x1"}) {
        EXPECT_FALSE(size(text, width, height)) << text;
    }
    KrColor colorValue;
    for (const char* text : {"", "#12", "#12345g", "#1234567", "1,2,3", "chartreuse!", "-0.1,0,0"}) {
        EXPECT_FALSE(color(text, colorValue)) << text;
    }
    EXPECT_EQ(value, 7.0);
    EXPECT_EQ(vectorValue.z(), 3.0);
    EXPECT_EQ(width + height, 11u);
    EXPECT_EQ(colorValue, KrColor());
}

TEST(KrValueText, ReadsColoursInEveryForm)
{
    KrColor a, b, c;
    ASSERT_TRUE(color("#f80", a));
    ASSERT_TRUE(color("#FF8800", b));
    EXPECT_EQ(a, b);
    EXPECT_NEAR(a.green(), 0x88 / 255.0, 1e-12);
    ASSERT_TRUE(color("0, 0.5, 1", c));
    EXPECT_EQ(c, KrColor(0.0, 0.5, 1.0));
    ASSERT_TRUE(color("Orange", c));
    EXPECT_NEAR(c.green(), 165.0 / 255.0, 1e-12);
}

TEST(KrValueText, SuggestsNamesThatResembleTheOneTyped)
{
    const std::vector<std::string> joints = {"shoulder_pan", "shoulder_lift", "elbow", "wrist_1"};
    EXPECT_EQ(nearest("sholder_pan", joints).front(), "shoulder_pan");
    EXPECT_EQ(nearest("Elbow", joints), std::vector<std::string>{"elbow"});
    EXPECT_EQ(nearest("ebow", joints), std::vector<std::string>{"elbow"});
    EXPECT_EQ(nearest("shoulder", joints).size(), 2u);
    EXPECT_TRUE(nearest("gripper_left", {"elbow", "x"}).empty());
}
