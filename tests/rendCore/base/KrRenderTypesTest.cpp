#include <rendCore/base/KrRenderTypes.h>

#include <rendCore/base/KrTransformation.h>

#include <toolkit/math/KrColor.h>
#include <toolkit/math/KrOrientation.h>
#include <toolkit/math/KrVector.h>

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <string>

namespace
{

template <typename T>
std::string text(const T& value, int precision = 6)
{
    std::ostringstream stream;
    stream << std::setprecision(precision);
    ::operator<<(stream, value);
    return stream.str();
}

/// Notes the order in which its channels are read.
class WatchedColor : public KrColor
{
public:
    using KrColor::KrColor;
    double red() const override { return note('r', 0.1); }
    double green() const override { return note('g', 0.2); }
    double blue() const override { return note('b', 0.3); }
    double alpha() const override { return note('a', 0.4); }
    mutable std::string order;

private:
    double note(char channel, double value) const
    {
        order += channel;
        return value;
    }
};

} // namespace

TEST(KrRenderTypes, ColoursAreReadOnceAlphaFirst)
{
    const WatchedColor color;
    const osg::Vec4d converted = KrRenderTypes::ec2osg(color);
    EXPECT_EQ(color.order, "abgr");
    EXPECT_TRUE(converted == osg::Vec4d(0.1, 0.2, 0.3, 0.4));
}

TEST(KrRenderTypes, OnlyTheWayBackNormalisesQuaternions)
{
    KrOrientation orientation;
    KrRenderTypes::osg2ec(osg::Quat(0.0, 0.0, 0.0, 2.0), orientation);
    EXPECT_EQ(orientation[3], 1.0);
    EXPECT_EQ(KrRenderTypes::ec2osg(orientation).length(), 1.0);

    const osg::Quat quat = KrRenderTypes::ec2osg(KrOrientation(1.0, 2.0, 3.0, 4.0));
    EXPECT_EQ(quat.x(), 1.0);
    EXPECT_EQ(quat.z(), 3.0);
    EXPECT_EQ(quat.w(), 4.0);
}

TEST(KrRenderTypes, VectorsAndTransformationsComeBackExactly)
{
    const KrVector vector(0.1, -2e300, 3e-300);
    EXPECT_TRUE(KrRenderTypes::osg2ec(KrRenderTypes::ec2osg(vector)) == vector);

    KrTransformation transformation;
    double entries[16];
    for (int i = 0; i < 16; ++i) {
        entries[i] = 0.1 * i;
    }
    transformation.assign(entries);
    const osg::Matrixd matrix = KrRenderTypes::ec2osg(transformation);
    EXPECT_EQ(matrix(3, 1), entries[13]) << "the order of the scene graph's storage";
    KrTransformation back;
    KrRenderTypes::osg2ec(matrix, back);
    EXPECT_TRUE(back == transformation);

    transformation.identity();
    transformation.setTranslate(KrVector(1.0, 2.0, 3.0));
    EXPECT_TRUE(KrRenderTypes::ec2osg(transformation).getTrans() == osg::Vec3d(1.0, 2.0, 3.0));
}

TEST(KrRenderTypes, TextFormsAreBare)
{
    EXPECT_EQ(text(osg::Quat()), "0, 0, 0, 1");
    EXPECT_EQ(text(osg::Vec3f(1.5f, -2.0f, 0.0f)), "1.5, -2, 0");
    EXPECT_EQ(text(osg::Matrixd::identity()), "Quat(0, 0, 0, 1), trans(0, 0, 0)");
}

TEST(KrRenderTypes, MatricesShowTheirTranslationInSinglePrecision)
{
    const std::string shown = text(osg::Matrixd::translate(0.1, 0.0, 0.0), 12);
    EXPECT_NE(shown.find("trans(0.10000000149, 0, 0)"), std::string::npos) << shown;
    EXPECT_EQ(text(osg::Quat(0.1, 0.0, 0.0, 1.0), 12), "0.1, 0, 0, 1");
}
