#include <tests/support/MessageRecorder.h>
#include <toolkit/math/KrAngle.h>
#include <toolkit/visualization/KrVisualizationParameters.h>

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace
{

void expectNear(const KrVector& actual, const KrVector& expected)
{
    EXPECT_NEAR(actual.x(), expected.x(), 1e-12);
    EXPECT_NEAR(actual.y(), expected.y(), 1e-12);
    EXPECT_NEAR(actual.z(), expected.z(), 1e-12);
}

bool readFrom(KrXmlObject& object, const std::string& content)
{
    const KrXmlToken token = object.token();
    const std::string text = "<" + token.name + " xmlns=\"" + token.uri + "\">" + content + "</" + token.name + ">";
    return object.readBuffer(text.data(), text.size());
}

/// Every text is refused with one message, and `object` stays what it was.
template <typename T, std::size_t N>
void expectRefused(T object, const char* const (&contents)[N])
{
    const T before = object;
    MessageRecorder messages;
    for (const char* const content : contents) {
        EXPECT_FALSE(readFrom(object, content)) << content;
        EXPECT_EQ(messages.take(), 1u) << content;
        EXPECT_TRUE(object == before) << content;
    }
}

} // namespace

TEST(KrPovParameters, AViewLooksAlongItsNegativeZAxisWithYUp)
{
    // A camera at (1 2 3) that looks along the world's y axis with z up.
    KrCoordinateSystemTransformation view;
    view.setAxisAngle(KrVector(1.0, 0.0, 0.0), Kr::Angle::kPi / 2.0);
    view.setTranslation(KrVector(1.0, 2.0, 3.0));
    KrPovParameters pov;
    pov.setFieldOfView(1.0);
    pov.setFromViewTransformationAndDistance(view, 5.0);
    expectNear(pov.eyepoint(), KrVector(1.0, 2.0, 3.0));
    expectNear(pov.centerOfInterest(), KrVector(1.0, 7.0, 3.0));
    expectNear(pov.up(), KrVector(0.0, 0.0, 1.0));
    EXPECT_NEAR(pov.viewingDistance(), 5.0, 1e-12);
    EXPECT_EQ(pov.fieldOfView(), 1.0);
}

TEST(KrVisualizationParameters, ViewsThatShowNothingAreRefused)
{
    KrPovParameters pov;
    pov.setFieldOfView(1.25);
    expectRefused(pov, {"<fieldOfView>0</fieldOfView>", "<fieldOfView>3.1416</fieldOfView>",
                        "<fieldOfView>nan</fieldOfView>", "<up>0 0 0</up>", "<eyepoint>0 0 0</eyepoint>",
                        "<eyepoint>1 inf 0</eyepoint>", "<up>nan 0 1</up>", "<down>0 0 -1</down>"});
    KrRenderParameters render;
    render.setNearClipping(0.25);
    expectRefused(render, {"<nearClipping>0</nearClipping>", "<nearClipping>-1</nearClipping>",
                           "<nearClipping>100</nearClipping>", "<farClipping>inf</farClipping>",
                           "<nearClipping>nan</nearClipping>", "<farClipping>nan</farClipping>"});
    KrLight light;
    light.setSpotExponent(2.0);
    expectRefused(light, {"<position>nan 0 0</position>", "<spotCutoff>-1</spotCutoff>",
                          "<linearAttenuation>inf</linearAttenuation>", "<on>perhaps</on>"});
    KrGUIObjectParameters gui;
    gui.setAxisScale(3.0);
    const KrGUIObjectParameters before = gui;
    {
        MessageRecorder messages;
        for (const double scale : {-1.0, std::nan(""), HUGE_VAL}) {
            gui.setAxisScale(scale);
            gui.setGlobalAxisScale(scale);
            gui.setCenterOfInterestScale(scale);
        }
        EXPECT_EQ(messages.count(), 9u);
    }
    EXPECT_TRUE(gui == before);
    expectRefused(gui, {"<axisScale>-1</axisScale>", "<centerOfInterestScale>nan</centerOfInterestScale>"});
}

TEST(KrVisualizationParameters, WhatAFileLeavesOutIsAsInANewObject)
{
    KrVisualizationParameters parameters;
    KrRenderParameters render;
    render.setFarClipping(7.0);
    parameters.setRenderParameters(render);
    ASSERT_TRUE(readFrom(parameters, "<povParameters><fieldOfView>3</fieldOfView></povParameters>"
                                     "<lightParameters><lights><light/><light><on>false</on></light></lights>"
                                     "</lightParameters>"));
    EXPECT_EQ(parameters.povParameters().fieldOfView(), 3.0);
    EXPECT_TRUE(parameters.renderParameters() == KrRenderParameters());
    ASSERT_EQ(parameters.lightParameters().lights().size(), 2u);
    EXPECT_TRUE(parameters.lightParameters().lights()[0] == KrLight());
    EXPECT_FALSE(parameters.lightParameters().lights()[1].isOn());
    EXPECT_TRUE(parameters.selfTest());
}
