#include <rendCore/plume/KrRenderGridPhysicalExtent.h>

#include <tests/support/MessageRecorder.h>
#include <tests/support/SceneSamples.h>

#include <osg/Geometry>
#include <osg/Image>
#include <osg/Program>
#include <osg/Texture3D>
#include <osg/Uniform>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>

namespace
{

using namespace SceneSamples;

/// 3 x 5 x 7 cells whose values are their numbers, in a box whose z extent is 0.
KrGridPhysicalExtent flatGrid()
{
    KrGridPhysicalExtent grid;
    std::vector<double> values(3 * 5 * 7);
    for (std::size_t i = 0; i < values.size(); ++i) {
        values[i] = static_cast<double>(i);
    }
    EXPECT_TRUE(grid.setGrid(KrVector(-1.0, 0.0, 2.0), KrVector(1.0, 0.5, 2.0), 3, 5, 7, values));
    grid.setDataScale(0.1);
    grid.setInflection(KrVector(0.1, 0.2, 0.3));
    return grid;
}

osg::Vec3 vec3Uniform(const osg::StateSet& state, const char* name)
{
    osg::Vec3 value;
    const osg::Uniform* uniform = state.getUniform(name);
    EXPECT_TRUE(uniform != nullptr && uniform->get(value)) << name;
    return value;
}

// The folder has no shaders, so that the search path of this process never leads to any.
class KrRenderGridPhysicalExtentTest : public testing::Test
{
protected:
    void SetUp() override { setenv("KR_TOOLKITS", "no such folder", 1); }
};

} // namespace

TEST_F(KrRenderGridPhysicalExtentTest, ShadersThatCannotBeReadAreReportedAndTheNodeIsBuilt)
{
    const KrGridPhysicalExtent grid = flatGrid();
    MessageRecorder messages;
    const osg::ref_ptr<osg::Geode> geode = KrRenderGridPhysicalExtent::init(&grid);
    ASSERT_TRUE(geode);
    EXPECT_EQ(messages.all(), "KrRenderGridPhysicalExtent - unable to load vertex shader.\n"
                              "KrRenderGridPhysicalExtent - unable to load fragment shader.\n");
    EXPECT_EQ(messages.count(Kr::Print::Warning, "KrRenderGridPhysicalExtent - unable to load vertex shader.\n"), 1u);
    const auto* program =
        dynamic_cast<const osg::Program*>(geode->getStateSet()->getAttribute(osg::StateAttribute::PROGRAM));
    ASSERT_NE(program, nullptr);
    EXPECT_EQ(program->getName(), "Ray Casting");
    EXPECT_EQ(program->getNumShaders(), 0u);
}

TEST_F(KrRenderGridPhysicalExtentTest, HandsTheFieldToTheShadersUnresampled)
{
    const KrGridPhysicalExtent grid = flatGrid();
    MessageRecorder messages;
    const osg::ref_ptr<osg::Geode> geode = KrRenderGridPhysicalExtent::init(&grid);
    ASSERT_TRUE(geode);
    const osg::StateSet& state = *geode->getStateSet();
    const auto* texture =
        dynamic_cast<const osg::Texture3D*>(state.getTextureAttribute(0, osg::StateAttribute::TEXTURE));
    ASSERT_NE(texture, nullptr);
    EXPECT_FALSE(texture->getResizeNonPowerOfTwoHint());
    EXPECT_EQ(texture->getInternalFormat(), 0x881B);
    const osg::Image& image = *texture->getImage();
    EXPECT_EQ(image.s(), 3);
    EXPECT_EQ(image.t(), 5);
    EXPECT_EQ(image.r(), 7);
    // The cell (1, 2, 3) has number 1 + 3 (2 + 5 * 3).
    EXPECT_FLOAT_EQ(*reinterpret_cast<const float*>(image.data(1, 2, 3)), 5.2f);

    EXPECT_EQ(vec3Uniform(state, "texSize"), osg::Vec3(3.0f, 5.0f, 7.0f));
    EXPECT_EQ(vec3Uniform(state, "scaleFactor"), osg::Vec3(2.0f, 0.5f, 0.0f));
    EXPECT_EQ(vec3Uniform(state, "inflection"), osg::Vec3(0.1f, 0.2f, 0.3f));
    int unit = -1;
    EXPECT_TRUE(state.getUniform("texture1")->get(unit));
    EXPECT_EQ(unit, 1);
    EXPECT_EQ(state.getUniform("texture0")->getType(), osg::Uniform::SAMPLER_3D);
    EXPECT_EQ(state.getUniform("texture1")->getType(), osg::Uniform::SAMPLER_1D);
    float factor = 0.0f;
    EXPECT_TRUE(state.getUniform("lutFactor")->get(factor));
    EXPECT_EQ(factor, 100.0f);
    EXPECT_EQ(state.getTextureMode(0, GL_TEXTURE_3D), osg::StateAttribute::ON);
    EXPECT_EQ(state.getTextureMode(1, GL_TEXTURE_1D), osg::StateAttribute::INHERIT);
}

TEST_F(KrRenderGridPhysicalExtentTest, TheBoxIsClosedAndItsFacesLookInwards)
{
    const KrGridPhysicalExtent grid = flatGrid();
    MessageRecorder messages;
    const osg::ref_ptr<osg::Geode> geode = KrRenderGridPhysicalExtent::init(&grid);
    ASSERT_TRUE(geode);
    const osg::Geometry* box = geode->getDrawable(0)->asGeometry();
    const auto& vertices = dynamic_cast<const osg::Vec3Array&>(*box->getVertexArray());
    const auto& coordinates = dynamic_cast<const osg::Vec3Array&>(*box->getTexCoordArray(0));
    ASSERT_EQ(vertices.size(), 24u);
    ASSERT_EQ(coordinates.size(), 24u);
    const osg::Vec3 middle(0.5f, 0.5f, 0.5f);
    osg::Vec3 area;
    for (std::size_t face = 0; face < 24; face += 4) {
        const osg::Vec3 normal =
            (coordinates[face + 1] - coordinates[face]) ^ (coordinates[face + 2] - coordinates[face]);
        EXPECT_GT(normal * (middle - coordinates[face]), 0.0f) << "face " << face / 4;
        area += normal;
    }
    EXPECT_EQ(area, osg::Vec3()); // opposite faces cancel
    for (std::size_t i = 0; i < 24; ++i) {
        EXPECT_EQ(vertices[i], osg::Vec3(coordinates[i].x() * 2.0f - 1.0f, coordinates[i].y() * 0.5f, 2.0f));
    }
}

TEST_F(KrRenderGridPhysicalExtentTest, WithoutAFolderOfShadersThereIsNoNode)
{
    EXPECT_EQ(KrRenderGridPhysicalExtent::init(nullptr), nullptr);
    unsetenv("KR_TOOLKITS");
    const KrGridPhysicalExtent grid = flatGrid();
    MessageRecorder messages;
    EXPECT_EQ(KrRenderGridPhysicalExtent::init(&grid), nullptr);
    EXPECT_EQ(messages.count(Kr::Print::Warning, "No KR_TOOLKITS defined\n"), 1u);
    EXPECT_EQ(messages.count(), 1u);
}

TEST_F(KrRenderGridPhysicalExtentTest, ANeverSetGridHarmsNothing)
{
    const KrGridPhysicalExtent grid;
    MessageRecorder messages;
    const osg::ref_ptr<osg::Geode> geode = KrRenderGridPhysicalExtent::init(&grid);
    ASSERT_TRUE(geode);
    EXPECT_EQ(vec3Uniform(*geode->getStateSet(), "texSize"), osg::Vec3());
}

TEST_F(KrRenderGridPhysicalExtentTest, ScaledValuesThatTheTextureCannotHoldAreToldOnce)
{
    for (const double scale : {65504.0, 65504.1, -65504.1}) {
        KrGridPhysicalExtent grid;
        ASSERT_TRUE(grid.setGrid(KrVector(), KrVector(1.0, 1.0, 1.0), 2, 2, 1, {0.0, 1.0, 0.5, 1.0}));
        grid.setDataScale(scale);
        MessageRecorder messages;
        const osg::ref_ptr<osg::Geode> geode = KrRenderGridPhysicalExtent::init(&grid);
        // Two are about the shaders.
        EXPECT_EQ(messages.count(), scale == 65504.0 ? 2u : 3u) << messages.all();
        EXPECT_EQ(messages.all().find("value 1 ") != std::string::npos, scale != 65504.0) << messages.all();
    }
}

TEST_F(KrRenderGridPhysicalExtentTest, LookupColoursAreTruncatedAndWrap)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    KrXmlVectorVector colors;
    colors.push_back(KrVector(1.0, 0.5, 0.0));
    colors.push_back(KrVector(2.0, -0.01, nan));
    colors.push_back(KrVector(1e300, -1e300, 1.0));
    const osg::ref_ptr<osg::Texture1D> texture = KrRenderGridPhysicalExtent::createLUTTexture(colors);
    const osg::Image& image = *texture->getImage();
    ASSERT_EQ(image.s(), 3);
    const std::vector<int> texels(image.data(), image.data() + 9);
    // 2 * 255 = 510 = 0x1fe; -2.55 becomes -2, whose low byte is 254.
    EXPECT_EQ(texels, (std::vector<int>{255, 127, 0, 254, 254, 0, 0, 0, 255}));

    const osg::ref_ptr<osg::Texture1D> black = KrRenderGridPhysicalExtent::createLUTTexture(KrXmlVectorVector());
    ASSERT_EQ(black->getImage()->s(), 256);
    EXPECT_EQ(std::vector<int>(black->getImage()->data(), black->getImage()->data() + 768), std::vector<int>(768, 0));
}
