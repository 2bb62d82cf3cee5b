#include <rendCore/capture/KrRenderCaptureManager.h>
#include <rendCore/system/KrRenderWindow.h>

#include <tests/support/MessageRecorder.h>
#include <tests/support/Systems.h>

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace
{

class KrRenderCaptureManagerTest : public testing::Test
{
protected:
    void SetUp() override
    {
        window.setWindowSize(64, 48);
        window.setBackgroundColor(KrColor(0.0, 0.0, 1.0));
        window.setStatedSystem(system);
        if (!window.init()) {
            GTEST_SKIP() << window.report().text();
        }
        manager->callbackFunction = [this](const osg::Image* image) { frames.push_back(image); };
        window.setDrawCallback(manager);
    }
    static bool isBlue(const osg::Image& image, unsigned int column, unsigned int row)
    {
        const unsigned char* const pixel = image.data(column, row);
        return pixel[0] == 0 && pixel[1] == 0 && pixel[2] == 255;
    }

    KrStatedSystem system{Systems::twoBoxes()};
    KrRenderWindow window;
    const osg::ref_ptr<KrRenderCaptureManager> manager = new KrRenderCaptureManager;
    std::vector<const osg::Image*> frames;
};

TEST_F(KrRenderCaptureManagerTest, HandsOutEveryFrameAsItIsWhileSizesAgree)
{
    manager->setCaptureSize(640, 0);                                 // both become "the window's"
    manager->setFrameRate(std::numeric_limits<float>::denorm_min()); // a period beyond the clock's range
    ASSERT_TRUE(window.renderScene(true));
    ASSERT_TRUE(window.renderScene(true));
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[0], frames[1]);
    EXPECT_EQ(manager->getCapturedImage().get(), frames[0]);
    EXPECT_EQ(frames[0]->s(), 64);
    EXPECT_TRUE(isBlue(*frames[0], 2, 2));
    EXPECT_FALSE(isBlue(*frames[0], 32, 24));
    EXPECT_TRUE(manager->selfTest());
}

TEST_F(KrRenderCaptureManagerTest, ScalesAndSuspends)
{
    MessageRecorder messages;
    manager->setCaptureSize(32, 36);
    ASSERT_TRUE(window.renderScene(true));
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0]->s(), 32);
    EXPECT_EQ(frames[0]->t(), 36);
    EXPECT_TRUE(isBlue(*frames[0], 1, 1));
    EXPECT_FALSE(isBlue(*frames[0], 16, 18));
    const unsigned char* const storage = frames[0]->data();
    ASSERT_TRUE(window.renderScene(true));
    EXPECT_EQ(frames[1]->data(), storage) << "no new image a frame";
    manager->setMode(KrRenderCaptureManager::Suspended);
    ASSERT_TRUE(window.renderScene(true));
    EXPECT_EQ(frames.size(), 2u);
    manager->setMode(KrRenderCaptureManager::Capture);
    manager->setCaptureSize(64, 48);
    ASSERT_TRUE(window.renderScene(true));
    EXPECT_EQ(frames[2]->s(), 64) << "the window's own image again";
    EXPECT_EQ(messages.all(), "");
    window.makeCurrent();
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

} // namespace
