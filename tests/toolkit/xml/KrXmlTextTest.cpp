#include <toolkit/xml/KrXmlText.h>

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstring>
#include <limits>

namespace
{

template <typename T>
T thereAndBack(T value)
{
    std::string text;
    KrXmlText::append(text, value);
    std::string_view rest = text;
    T result{};
    EXPECT_TRUE(KrXmlText::take(rest, result)) << text;
    EXPECT_TRUE(rest.empty()) << text;
    return result;
}

template <typename T>
bool isTaken(const char* text)
{
    std::string_view rest = text;
    T value{};
    return KrXmlText::take(rest, value) && KrXmlText::atEnd(rest);
}

} // namespace

TEST(KrXmlText, RealsComeBackBitForBit)
{
    // In a locale with a decimal comma, where there is one.
    std::setlocale(LC_NUMERIC, "de_DE.UTF-8");
    using Limits = std::numeric_limits<double>;
    for (const double value : {0.1, -0.0, 1.0 / 3.0, Limits::max(), Limits::lowest(), Limits::min(),
                               Limits::denorm_min(), Limits::infinity(), -Limits::infinity(), 1e22, 123456789.0}) {
        const double back = thereAndBack(value);
        EXPECT_EQ(std::memcmp(&back, &value, sizeof value), 0) << value;
    }
    EXPECT_TRUE(std::isnan(thereAndBack(-Limits::quiet_NaN())));
    EXPECT_EQ(thereAndBack(0.1f), 0.1f);
    std::string text;
    KrXmlText::append(text, 0.1f);
    EXPECT_EQ(text, "0.1");
    std::setlocale(LC_NUMERIC, "C");
}

TEST(KrXmlText, WholeNumbersKeepToTheirRange)
{
    EXPECT_EQ(thereAndBack(std::numeric_limits<int>::min()), std::numeric_limits<int>::min());
    EXPECT_EQ(thereAndBack(std::numeric_limits<unsigned int>::max()), std::numeric_limits<unsigned int>::max());
    EXPECT_EQ(thereAndBack(static_cast<unsigned char>(65)), 65);
    EXPECT_FALSE(isTaken<int>("2147483648"));
    EXPECT_FALSE(isTaken<unsigned int>("-1"));
    EXPECT_FALSE(isTaken<unsigned char>("256"));
    EXPECT_FALSE(isTaken<double>("1e400"));
    EXPECT_FALSE(isTaken<float>("1e39"));
}

TEST(KrXmlText, WhatIsNoNumberIsRefused)
{
    for (const char* text : {"", "  ", "abc", "0x10", "1.5x", "1,5", "nan(1)", "1 2", "--1", "1e", "."}) {
        EXPECT_FALSE(isTaken<double>(text)) << text;
    }
    for (const char* text : {"", "1.0", "1e3", "ten"}) {
        EXPECT_FALSE(isTaken<int>(text)) << text;
    }
    for (const char* text : {"", "yes", "TRUE", "2"}) {
        EXPECT_FALSE(isTaken<bool>(text)) << text;
    }
    EXPECT_TRUE(isTaken<double>("\t\r\n 1.5 \n"));
    // As in an XML schema: one plus sign, and zero for what is smaller than a number can be.
    for (const char* text : {"+1", "+.5e+2", "1e-400", "-0.000001e-500"}) {
        EXPECT_TRUE(isTaken<double>(text)) << text;
    }
    EXPECT_TRUE(isTaken<int>("+1") && isTaken<unsigned int>("+1"));
    for (const char* text : {"+", "++1", "+-1", "-+1", "+nan(1)", "+1e400"}) {
        EXPECT_FALSE(isTaken<double>(text)) << text;
    }
    EXPECT_FALSE(isTaken<int>("+-1") || isTaken<int>("+99999999999"));
    double tiny = 1.0;
    std::string_view text = "1e-400";
    EXPECT_TRUE(KrXmlText::take(text, tiny));
    EXPECT_EQ(tiny, 0.0);
}
