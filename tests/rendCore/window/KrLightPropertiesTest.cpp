#include <rendCore/window/KrLightProperties.h>

#include <toolkit/math/KrAngle.h>
#include <toolkit/visualization/KrLight.h>

#include <gtest/gtest.h>

#include <osg/LightSource>
#include <osg/StateAttribute>

namespace
{

KrLight spotLight()
{
    KrLight light;
    light.setOn(true);
    light.setPositional(true);
    light.setPosition(KrVector(0.1, 2.0, 3.0));
    light.setDiffuse(KrColor(0.2, 0.4, 0.6, 0.8));
    light.setSpotCutoff(0.5 * Kr::Angle::kPi);
    light.setSpotExponent(2.0);
    light.setQuadraticAttenuation(0.25);
    return light;
}

osg::StateAttribute::GLModeValue modeOf(const osg::LightSource& source, int number)
{
    return source.getStateSet()->getMode(GL_LIGHT0 + static_cast<unsigned int>(number));
}

} // namespace

TEST(KrLightProperties, ADisabledLightMakesNothing)
{
    KrLightProperties light;
    EXPECT_EQ(light.setGL(), nullptr);
    EXPECT_EQ(light.lightSource(), nullptr);
    EXPECT_EQ(light.diffuse()[0], 0.7f);
    EXPECT_TRUE(light.isDirty());
}

TEST(KrLightProperties, GivesItsLightSourceOnceAndRefreshesItInPlace)
{
    KrLightProperties light;
    light.setLightPara(spotLight(), 3);
    const osg::ref_ptr<osg::LightSource> source = light.setGL();
    ASSERT_TRUE(source);
    EXPECT_EQ(light.setGL(), nullptr);

    const osg::Light* const made = source->getLight();
    EXPECT_EQ(made->getLightNum(), 3);
    EXPECT_TRUE(made->getPosition() == osg::Vec4(0.1f, 2.0f, 3.0f, 1.0f));
    EXPECT_TRUE(made->getDiffuse() == osg::Vec4(0.2f, 0.4f, 0.6f, 0.8f));
    EXPECT_EQ(made->getSpotExponent(), 2.0f);
    EXPECT_EQ(made->getQuadraticAttenuation(), 0.25f);
    EXPECT_EQ(light.spotCutoff(), 90.0f);
    EXPECT_EQ(made->getSpotCutoff(), osg::ref_ptr<osg::Light>(new osg::Light)->getSpotCutoff())
        << "the cutoff stays the scene graph's";
    EXPECT_EQ(modeOf(*source, 3), unsigned(osg::StateAttribute::ON));

    KrLight directional = spotLight();
    directional.setPositional(false);
    light.setLightPara(directional, 3);
    EXPECT_EQ(light.setGL(), nullptr);
    EXPECT_EQ(source->getLight(), made);
    EXPECT_EQ(made->getPosition().w(), 0.0f);
}

TEST(KrLightProperties, SwitchesOffByModeAndMaskAndOnAgain)
{
    KrLightProperties light;
    KrLight values = spotLight();
    light.setLightPara(values, 0);
    const osg::ref_ptr<osg::LightSource> source = light.setGL();

    values.setOn(false);
    light.setLightPara(values, 0);
    EXPECT_EQ(light.setGL(), nullptr);
    EXPECT_EQ(light.lightSource(), source.get());
    EXPECT_EQ(modeOf(*source, 0), unsigned(osg::StateAttribute::OFF));
    EXPECT_EQ(source->getNodeMask(), 0u) << "its mode alone leaves it shining";
    EXPECT_TRUE(light.isDirty());

    values.setOn(true);
    light.setLightPara(values, 0);
    light.setGL();
    EXPECT_EQ(modeOf(*source, 0), unsigned(osg::StateAttribute::ON));
    EXPECT_EQ(source->getNodeMask(), 0xffffffffu);
}

TEST(KrLightProperties, MasksOutNumbersThatOpenGLLacks)
{
    for (const unsigned int number : {8u, 0xffffffffu}) {
        KrLightProperties light;
        light.setLightPara(spotLight(), number);
        const osg::ref_ptr<osg::LightSource> source = light.setGL();
        ASSERT_TRUE(source);
        EXPECT_EQ(source->getNodeMask(), 0u) << number;
    }
}

TEST(KrLightProperties, ALightSourceThatDiedIsMadeAnew)
{
    KrLightProperties light;
    light.setLightPara(spotLight(), 1);
    osg::ref_ptr<osg::LightSource> source = light.setGL();
    source = nullptr; // the scene's root goes
    EXPECT_EQ(light.lightSource(), nullptr);
    EXPECT_EQ(light.light(), nullptr);

    light.setLightPara(spotLight(), 1);
    source = light.setGL();
    ASSERT_TRUE(source);
    EXPECT_EQ(source->getLight(), light.light());

    // Only the light was replaced, by the application: the light source stays.
    source->setLight(new osg::Light);
    light.setLightPara(spotLight(), 1);
    EXPECT_EQ(light.setGL(), nullptr);
    EXPECT_EQ(source->getLight(), light.light());
    EXPECT_EQ(light.light()->getLightNum(), 1);
}

TEST(KrLightProperties, OnlyALightAtTheEyeFollowsIt)
{
    const double eye[3] = {4.0, 5.0, 6.1};
    KrLight values = spotLight();
    values.setPositional(false);
    KrLightProperties fixed;
    fixed.setLightPara(values, 0);
    fixed.setAtEye(eye);
    EXPECT_EQ(fixed.position()[1], 2.0f);
    EXPECT_EQ(fixed.position()[3], 0.0f);

    values.setAtEye(true);
    values.setPosition(KrVector(4.0, 5.0, 6.1));
    KrLightProperties follower;
    follower.setLightPara(values, 0);
    const osg::ref_ptr<osg::LightSource> source = follower.setGL();
    follower.setAtEye(eye);
    EXPECT_FALSE(follower.isDirty()) << "already there, in single precision";
    EXPECT_EQ(follower.position()[3], 1.0f);

    const double farther[3] = {4.0, 5.0, 7.0};
    follower.setAtEye(farther);
    EXPECT_TRUE(follower.isDirty());
    follower.setGL();
    EXPECT_EQ(source->getLight()->getPosition().z(), 7.0f);
}

TEST(KrLightProperties, EqualityLooksAtSceneObjectsAndTheDirtyFlag)
{
    KrLightProperties one, two;
    one.setLightPara(spotLight(), 0);
    two.setLightPara(spotLight(), 0);
    EXPECT_TRUE(one == two);

    const osg::ref_ptr<osg::LightSource> source = one.setGL();
    EXPECT_FALSE(one == two);
    KrLightProperties copy(one);
    EXPECT_TRUE(copy == one);
    one.setLightPara(spotLight(), 0);
    EXPECT_FALSE(copy == one) << "dirty";
}

TEST(KrLightProperties, SelfTestPasses)
{
    EXPECT_TRUE(KrLightProperties().selfTest());
}
