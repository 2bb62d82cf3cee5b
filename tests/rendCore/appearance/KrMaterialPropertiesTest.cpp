#include <rendCore/appearance/KrMaterialProperties.h>

#include <tests/support/MessageRecorder.h>

#include <toolkit/image/KrImage.h>
#include <toolkit/material/KrDataMap.h>

#include <osg/Material>
#include <osg/StateSet>
#include <osg/TexEnv>
#include <osg/Texture>

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <limits>
#include <string>

namespace
{

osg::ref_ptr<osg::StateSet> stateOf(const KrMaterialProperties& material)
{
    osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    material.setState(state);
    return state;
}

const osg::Material* materialIn(const osg::StateSet& state)
{
    return dynamic_cast<const osg::Material*>(state.getAttribute(osg::StateAttribute::MATERIAL));
}

KrDataMap diffuseMap(double red, double green, double blue, double alpha)
{
    KrDataMap map;
    map.setReal("krDiffuseRed", red);
    map.setReal("krDiffuseGreen", green);
    map.setReal("krDiffuseBlue", blue);
    map.setReal("krDiffuseAlpha", alpha);
    return map;
}

class TexturedMaterial : public testing::Test
{
protected:
    TexturedMaterial()
    {
        KrImage image;
        image.allocate(4, 200, 2, 2);
        image.writeFile(m_path, KrImage::BottomRowFirst);
        m_map.setString("krTextureFilename", m_path);
    }
    ~TexturedMaterial() override
    {
        KrSGTexture::removeTexturesFromContext(nullptr);
        std::remove(m_path.c_str());
    }

    const std::string m_path = testing::TempDir() + std::to_string(getpid()) + "material.png";
    KrDataMap m_map;
};

} // namespace

TEST(KrMaterialProperties, ADiffuseColourAloneDecidesTransparencyButDefinesNoMaterial)
{
    KrMaterialProperties material;
    material.load(diffuseMap(0.1, 0.2, 0.3, 0.5));
    osg::Vec4f diffuse;
    material.getDiffuseColor(diffuse);
    EXPECT_TRUE(diffuse == osg::Vec4f(0.1f, 0.2f, 0.3f, 0.5f));
    const osg::ref_ptr<osg::StateSet> state = stateOf(material);
    EXPECT_EQ(state->getRenderingHint(), int(osg::StateSet::TRANSPARENT_BIN));
    EXPECT_EQ(state->getMode(GL_BLEND), unsigned(osg::StateAttribute::ON));
    EXPECT_EQ(materialIn(*state), nullptr);
    EXPECT_EQ(state->getMode(GL_LIGHTING), unsigned(osg::StateAttribute::INHERIT));
}

TEST(KrMaterialProperties, OneAndNotANumberAreOpaque)
{
    for (const double alpha : {1.0, std::numeric_limits<double>::quiet_NaN()}) {
        KrMaterialProperties material;
        material.load(diffuseMap(1.0, 1.0, 1.0, alpha));
        EXPECT_EQ(stateOf(material)->getMode(GL_BLEND), unsigned(osg::StateAttribute::INHERIT)) << alpha;
    }
}

TEST(KrMaterialProperties, AnyKeyButDiffuseDefinesAMaterial)
{
    for (const char* key : {"krShininess", "krAmbientAlpha", "krSpecularBlue", "krEmissionRed"}) {
        KrDataMap map;
        map.setReal(key, 0.5);
        KrMaterialProperties material;
        material.load(map);
        const osg::ref_ptr<osg::StateSet> state = stateOf(material);
        const osg::Material* const made = materialIn(*state);
        ASSERT_NE(made, nullptr) << key;
        EXPECT_EQ(made->getName(), "krMaterial");
        EXPECT_TRUE(made->getDiffuse(osg::Material::FRONT) == osg::Vec4(0.0f, 0.0f, 0.0f, 1.0f));
        EXPECT_EQ(made->getColorMode(), osg::Material::OFF);
        EXPECT_EQ(state->getMode(GL_LIGHTING), unsigned(osg::StateAttribute::ON));
    }
}

TEST(KrMaterialProperties, EachColourArrivesWhereItBelongs)
{
    KrDataMap map = diffuseMap(0.2, 0.0, 0.0, 0.9);
    map.setReal("krAmbientRed", 0.1);
    map.setReal("krSpecularGreen", 0.3);
    map.setReal("krEmissionBlue", 0.4);
    map.setReal("krShininess", 17.0);
    map.setBoolean("krRenderBothSides", true);
    KrMaterialProperties material;
    material.load(map);
    const osg::ref_ptr<osg::StateSet> state = stateOf(material);
    const osg::Material& made = *materialIn(*state);
    for (const osg::Material::Face face : {osg::Material::FRONT, osg::Material::BACK}) {
        EXPECT_TRUE(made.getAmbient(face) == osg::Vec4(0.1f, 0.0f, 0.0f, 1.0f));
        EXPECT_TRUE(made.getDiffuse(face) == osg::Vec4(0.2f, 0.0f, 0.0f, 0.9f));
        EXPECT_TRUE(made.getSpecular(face) == osg::Vec4(0.0f, 0.3f, 0.0f, 1.0f));
        EXPECT_TRUE(made.getEmission(face) == osg::Vec4(0.0f, 0.0f, 0.4f, 1.0f));
        EXPECT_EQ(made.getShininess(face), 17.0f);
    }
    EXPECT_EQ(state->getMode(GL_CULL_FACE), unsigned(osg::StateAttribute::OFF));
}

TEST(KrMaterialProperties, SetRoundsAndALaterLoadTakesTheMaterialAway)
{
    KrMaterialProperties rounded, exact;
    rounded.set(0.1, 0.2, 0.3);
    exact.set(double(0.1f), double(0.2f), double(0.3f));
    EXPECT_TRUE(rounded == exact);
    EXPECT_NE(materialIn(*stateOf(rounded)), nullptr);

    rounded.load(KrDataMap());
    EXPECT_EQ(materialIn(*stateOf(rounded)), nullptr);
    osg::Vec4f diffuse;
    rounded.getDiffuseColor(diffuse);
    EXPECT_EQ(diffuse.r(), 0.1f) << "missing keys keep their values";
}

TEST(KrMaterialProperties, ComparesEveryValueExactly)
{
    EXPECT_TRUE(KrMaterialProperties().selfTest());
    KrMaterialProperties material, other;
    material.load(diffuseMap(0.1, 0.2, 0.3, std::numeric_limits<double>::quiet_NaN()));
    EXPECT_FALSE(material == material);

    material = KrMaterialProperties();
    material.setRenderBothSides(true);
    EXPECT_FALSE(material == other);
    other = material;
    EXPECT_TRUE(material == other);
    EXPECT_TRUE(other.renderBothSides());
}

TEST_F(TexturedMaterial, MergesItsTextureIntoTheStateSet)
{
    m_map.setString("krTextureMinFilter", "GL_LINEAR_MIPMAP_LINEAR");
    m_map.setString("krTextureMagFilter", "GL_NEAREST");
    KrMaterialProperties material;
    material.load(m_map);
    const osg::ref_ptr<osg::StateSet> state = stateOf(material);
    const auto* const texture =
        dynamic_cast<const osg::Texture*>(state->getTextureAttribute(0, osg::StateAttribute::TEXTURE));
    ASSERT_NE(texture, nullptr);
    EXPECT_EQ(texture, material.getTexture().getTexture());
    EXPECT_EQ(state->getTextureMode(0, GL_TEXTURE_2D), unsigned(osg::StateAttribute::ON));
    EXPECT_EQ(texture->getFilter(osg::Texture::MIN_FILTER), osg::Texture::LINEAR);
    EXPECT_EQ(texture->getFilter(osg::Texture::MAG_FILTER), osg::Texture::NEAREST);

    KrMaterialProperties copy(material);
    EXPECT_TRUE(copy == material);
    copy.setTexture(KrSGTexture());
    EXPECT_FALSE(copy == material);
}

TEST_F(TexturedMaterial, UnknownEnvironmentModesAreDecals)
{
    const struct
    {
        const char* word;
        osg::TexEnv::Mode mode;
    } cases[] = {{"GL_REPLACE", osg::TexEnv::REPLACE}, {"GL_MODULATE", osg::TexEnv::MODULATE},
                 {"GL_ADD", osg::TexEnv::ADD},         {"GL_BLEND", osg::TexEnv::BLEND},
                 {"modulate", osg::TexEnv::DECAL},     {nullptr, osg::TexEnv::MODULATE}};
    for (const auto& entry : cases) {
        if (entry.word != nullptr) {
            m_map.setString("krTextureEnvironmentMode", entry.word);
        } else {
            m_map.erase("krTextureEnvironmentMode");
        }
        KrMaterialProperties material;
        material.load(m_map);
        const auto* const environment = dynamic_cast<const osg::TexEnv*>(
            material.getTexture().getState()->getTextureAttribute(0, osg::StateAttribute::TEXENV));
        EXPECT_EQ(environment->getMode(), entry.mode) << (entry.word ? entry.word : "absent");
    }
}

TEST_F(TexturedMaterial, AMissingPictureCostsOnlyTheTexture)
{
    m_map = diffuseMap(0.1, 0.2, 0.3, 1.0);
    m_map.setString("krTextureFilename", m_path + ".missing");
    m_map.setReal("krAmbientRed", 0.5);
    MessageRecorder messages;
    KrMaterialProperties material;
    material.load(m_map);
    const osg::ref_ptr<osg::StateSet> state = stateOf(material);
    EXPECT_EQ(messages.count(), 1u) << "the toolkit's, naming the file";
    EXPECT_EQ(state->getTextureAttribute(0, osg::StateAttribute::TEXTURE), nullptr);
    EXPECT_NE(materialIn(*state), nullptr);
}
