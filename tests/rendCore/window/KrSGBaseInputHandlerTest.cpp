#include <rendCore/window/KrSGBaseInputHandler.h>
#include <rendCore/window/KrSGWindow.h>

#include <osg/Geode>
#include <osg/ShapeDrawable>
#include <osgGA/GUIActionAdapter>
#include <osgGA/GUIEventAdapter>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace
{

class NoAction : public osgGA::GUIActionAdapter
{
public:
    void requestRedraw() override {}
    void requestContinuousUpdate(bool) override {}
    void requestWarpPointer(float, float) override {}
};

KrPovParameters pov(const KrVector& eye, const KrVector& centre, const KrVector& up)
{
    KrPovParameters result;
    result.setEyepoint(eye);
    result.setCenterOfInterest(centre);
    result.setUp(up);
    return result;
}

TEST(KrSGBaseInputHandler, LooksFromTheEyeAtTheCentre)
{
    const osg::ref_ptr<KrSGBaseInputHandler> handler = new KrSGBaseInputHandler(nullptr);
    EXPECT_STREQ(handler->className(), "KrSBBaseInputHandler");
    handler->setPovParameters(pov({0, 0, 10}, {0, 0, 0}, {0, 1, 0}));
    const osg::Matrixd view = handler->getInverseMatrix();
    for (int r = 0; r < 4; ++r) {
        for (int c = 0; c < 4; ++c) {
            EXPECT_NEAR(view(r, c), r == 3 && c == 2 ? -10.0 : r == c ? 1.0 : 0.0, 1e-6) << r << ',' << c;
        }
    }

    // From +x, z up: the camera sees +y to the right and +z upwards.
    handler->setPovParameters(pov({5, 1, 2}, {1, 1, 2}, {0, 0, 1}));
    const osg::Vec3d inCamera = osg::Vec3d(1.0, 4.0, 3.0) * handler->getInverseMatrix();
    EXPECT_NEAR(inCamera.x(), 3.0, 1e-6);
    EXPECT_NEAR(inCamera.y(), 1.0, 1e-6);
    EXPECT_NEAR(inCamera.z(), -4.0, 1e-6);
}

TEST(KrSGBaseInputHandler, ReadsBackWhatItWasGiven)
{
    const osg::ref_ptr<KrSGBaseInputHandler> handler = new KrSGBaseInputHandler(nullptr);
    handler->setPovParameters(pov({3, -2, 1.5}, {0.5, 0.25, 1}, {0, 0, 1}));
    const osg::Matrixd before = handler->getMatrix();
    handler->setByMatrix(before);
    EXPECT_LT((handler->getMatrix().getTrans() - before.getTrans()).length(), 1e-6);
    handler->setByInverseMatrix(osg::Matrixd::inverse(before));
    KrPovParameters out;
    handler->getPovParameters(out);
    EXPECT_LT((out.eyepoint() - KrVector(3, -2, 1.5)).length(), 1e-5);
    EXPECT_LT((out.centerOfInterest() - KrVector(0.5, 0.25, 1)).length(), 1e-5);
}

TEST(KrSGBaseInputHandler, RoundsSideUpAndEyeToSinglePrecision)
{
    const osg::ref_ptr<KrSGBaseInputHandler> handler = new KrSGBaseInputHandler(nullptr);
    handler->setPovParameters(pov({3.1, -2.2, 1.5}, {0.1, 0.25, 1.3}, {0, 0.1, 1}));
    KrPovParameters out;
    handler->getPovParameters(out);
    EXPECT_EQ(out.centerOfInterest(), KrVector(0.1, 0.25, 1.3)) << "the centre is not rounded";
    for (const double coordinate : {out.eyepoint().x(), out.eyepoint().y(), out.eyepoint().z()}) {
        EXPECT_EQ(coordinate, static_cast<double>(static_cast<float>(coordinate)));
    }
    // Against the same in double precision: off by some 2^-24, not less.
    const osg::Matrixd precise =
        osg::Matrixd::lookAt(osg::Vec3d(3.1, -2.2, 1.5), osg::Vec3d(0.1, 0.25, 1.3), osg::Vec3d(0.0, 0.1, 1.0));
    const osg::Matrixd rounded = handler->getInverseMatrix();
    double difference = 0.0;
    for (int i = 0; i < 12; ++i) {
        difference = std::max(difference, std::abs(rounded.ptr()[i] - precise.ptr()[i]));
    }
    EXPECT_GT(difference, 2e-9);
    EXPECT_LT(difference, 2e-7);
}

TEST(KrSGBaseInputHandler, HasNoNumbersForImpossibleViewsButNoNaNEither)
{
    const osg::ref_ptr<KrSGBaseInputHandler> handler = new KrSGBaseInputHandler(nullptr);
    for (const KrPovParameters& bad : {pov({1, 1, 1}, {1, 1, 1}, {0, 0, 1}), pov({0, 0, 5}, {0, 0, 0}, {0, 0, 1})}) {
        handler->setPovParameters(bad);
        EXPECT_FALSE(handler->getInverseMatrix().isNaN());
    }
}

TEST(KrSGBaseInputHandler, GoesHomeWithItsWindowAndOutlivesIt)
{
    auto window = std::make_unique<KrSGWindow>();
    window->setPovParameters(pov({7, 0, 0}, {1, 0, 0}, {0, 0, 1}));
    const osg::ref_ptr<KrSGBaseInputHandler> handler = new KrSGBaseInputHandler(window.get());
    window->setPovParameters(pov({0, 9, 0}, {0, 0, 0}, {0, 0, 1}));
    const osg::ref_ptr<osgGA::GUIEventAdapter> event = new osgGA::GUIEventAdapter;
    NoAction action;
    handler->home(*event, action);
    EXPECT_EQ(window->getPovParameters().eyepoint(), KrVector(7, 0, 0));
    EXPECT_NEAR(handler->getMatrix().getTrans().x(), 7.0, 1e-6);

    window->setInputHandler(handler);
    window.reset();
    handler->home(*event, action); // the window is gone: nothing happens
}

TEST(KrSGBaseInputHandler, MeasuresItsNode)
{
    const osg::ref_ptr<KrSGBaseInputHandler> handler = new KrSGBaseInputHandler(nullptr);
    EXPECT_EQ(handler->modelSize(), 0.009999999776482582);
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(new osg::ShapeDrawable(new osg::Box(osg::Vec3(5.0f, 0.0f, 0.0f), 2.0f, 4.0f, 4.0f)));
    handler->setNode(geode);
    EXPECT_NEAR(handler->modelSize(), 3.0, 1e-6); // half the diagonal: 1, 2, 2
    handler->setNode(nullptr);
    EXPECT_NEAR(handler->modelSize(), 3.0, 1e-6);
}

} // namespace
