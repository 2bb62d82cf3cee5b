#include <rendCore/appearance/KrSGTexture.h>

#include <tests/support/MessageRecorder.h>

#include <toolkit/context/KrWindowImpl.h>
#include <toolkit/image/KrImage.h>
#include <toolkit/window/KrWindow.h>

#include <osg/Image>
#include <osg/TexEnv>
#include <osg/Texture2D>
#include <osg/TextureRectangle>

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace
{

/// A context that is none: enough for windows to tell which of them is current.
class NoContext : public KrWindowImpl
{
public:
    const char* kind() const override { return "none"; }
    bool open(const Settings&, KrWindowImpl*, KrWindowReport&) override { return m_open = true; }
    bool isOpen() const override { return m_open; }
    void close() override { m_open = false; }
    bool makeCurrent() override { return m_open; }
    void releaseCurrent() override {}
    bool isCurrent() const override { return m_open; }
    void swapBuffers() override {}
    bool setSize(unsigned int, unsigned int) override { return true; }
    bool setPosition(int, int) override { return true; }
    bool setHidden(bool) override { return true; }
    bool setTopMost(bool) override { return true; }
    bool setTitle(const std::string&) override { return true; }
    bool isStereoSupported() const override { return false; }
    unsigned int defaultFramebuffer() const override { return 0; }
    void size(unsigned int& width, unsigned int& height) const override { width = height = 1; }

private:
    bool m_open = false;
};

/// Shares its context, or says so.
class SharingWindow : public KrWindow
{
public:
    std::vector<KrWindow*> getShare() const override { return partners; }
    std::vector<KrWindow*> partners;
};

class KrSGTextureTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_picture = writePicture("picture.png", 3, 5);
        for (KrWindow* window : {&m_one, &m_two}) {
            window->setImpl(std::make_unique<NoContext>());
            ASSERT_TRUE(window->init());
        }
        ASSERT_TRUE(m_one.makeCurrent());
    }
    void TearDown() override
    {
        m_one.partners.clear();
        KrSGTexture::removeTexturesFromContext(&m_one);
        KrSGTexture::removeTexturesFromContext(&m_two);
        KrSGTexture::removeTexturesFromContext(nullptr);
    }

    /// An RGB picture whose bytes count up.
    static std::string writePicture(const std::string& name, unsigned int width, unsigned int height)
    {
        KrImage image;
        image.allocate(3, 0, width, height);
        for (std::size_t i = 0; i < image.sizeInBytes(); ++i) {
            image.data()[i] = static_cast<unsigned char>(i);
        }
        const std::string path = testing::TempDir() + std::to_string(getpid()) + name;
        EXPECT_TRUE(image.writeFile(path, KrImage::BottomRowFirst));
        return path;
    }
    static bool load(KrSGTexture& texture, const std::string& path, const KrTextureParameters& parameters = {})
    {
        return texture.loadFromFile(path, parameters, KrImage::BottomRowFirst);
    }

    SharingWindow m_one, m_two;
    std::string m_picture;
    MessageRecorder m_messages;
};

} // namespace

TEST_F(KrSGTextureTest, KeepsThePixelsOfAPictureOfAnySize)
{
    KrSGTexture texture;
    ASSERT_TRUE(load(texture, m_picture));
    EXPECT_EQ(texture.width(), 3u);
    EXPECT_EQ(texture.height(), 5u);
    const osg::Texture& scene = *texture.getTexture();
    EXPECT_FALSE(scene.getResizeNonPowerOfTwoHint());
    EXPECT_EQ(scene.getTextureWidth(), 3);
    const osg::Image& image = *scene.getImage(0);
    EXPECT_EQ(image.getPacking(), 1u);
    EXPECT_EQ(image.data(1, 2)[1], 9 * 2 + 3 + 1) << "rows without padding, the bottom one first";

    const osg::StateSet& state = *texture.getState();
    EXPECT_EQ(state.getTextureMode(0, GL_TEXTURE_2D), unsigned(osg::StateAttribute::ON));
    EXPECT_EQ(state.getTextureAttribute(0, osg::StateAttribute::TEXTURE), &scene);
}

TEST_F(KrSGTextureTest, LoadsAFileOncePerWindow)
{
    KrSGTexture first, second, elsewhere;
    ASSERT_TRUE(load(first, m_picture));
    std::remove(m_picture.c_str());
    KrTextureParameters nearest;
    nearest.setMagFilter(GL_NEAREST);
    ASSERT_TRUE(load(second, m_picture, nearest)) << "from the cache";
    EXPECT_EQ(second.getTexture(), first.getTexture());
    EXPECT_NE(second.getState(), first.getState());
    EXPECT_EQ(second.width(), 3u);
    EXPECT_NE(first.getTexture()->getImage(0)->data(), nullptr);
    EXPECT_EQ(first.getTexture()->getFilter(osg::Texture::MAG_FILTER), osg::Texture::NEAREST)
        << "the last load's parameters";

    ASSERT_TRUE(m_two.makeCurrent());
    EXPECT_FALSE(load(elsewhere, m_picture)) << "another window reads the file again";
    EXPECT_EQ(elsewhere.getTexture(), nullptr);
    ASSERT_TRUE(m_one.makeCurrent());
    EXPECT_TRUE(load(elsewhere, m_picture)) << "a failure leaves the cache alone";
}

TEST_F(KrSGTextureTest, AnotherFileDoesNotOverwriteASharedTexture)
{
    const std::string other = writePicture("other.png", 2, 2);
    KrSGTexture texture, sharer;
    ASSERT_TRUE(load(texture, m_picture));
    ASSERT_TRUE(load(sharer, m_picture));
    ASSERT_TRUE(load(texture, other));
    EXPECT_NE(texture.getTexture(), sharer.getTexture());
    EXPECT_EQ(sharer.getTexture()->getImage(0)->s(), 3);

    EXPECT_FALSE(load(texture, other + ".missing"));
    EXPECT_EQ(texture.getTexture()->getImage(0)->s(), 2) << "a failed load changes nothing";
    EXPECT_EQ(texture.width(), 2u);
}

TEST_F(KrSGTextureTest, ForgetsTheTexturesOfAWindowUnlessItSharesItsContext)
{
    KrSGTexture texture;
    ASSERT_TRUE(load(texture, m_picture));
    const osg::observer_ptr<osg::Texture> observed(texture.getTexture());
    texture = KrSGTexture();

    m_one.partners = {&m_two};
    KrSGTexture::removeTexturesFromContext(&m_one);
    EXPECT_TRUE(observed.valid());
    m_one.partners.clear();
    KrSGTexture::removeTexturesFromContext(&m_two);
    EXPECT_TRUE(observed.valid());
    KrSGTexture::removeTexturesFromContext(&m_one);
    EXPECT_FALSE(observed.valid());
}

TEST_F(KrSGTextureTest, LoadsWithoutACurrentWindow)
{
    m_one.closeWindow();
    m_two.closeWindow();
    ASSERT_EQ(KrWindow::getWindow(), nullptr);
    KrSGTexture first, second;
    EXPECT_TRUE(load(first, m_picture));
    EXPECT_TRUE(load(second, m_picture));
    EXPECT_EQ(first.getTexture(), second.getTexture());
    KrSGTexture::removeTexturesFromContext(nullptr);
}

TEST_F(KrSGTextureTest, RefusesOtherTextureTypes)
{
    KrTextureParameters parameters;
    parameters.setTextureType(GL_TEXTURE_3D);
    KrSGTexture texture;
    EXPECT_FALSE(load(texture, m_picture, parameters));
    EXPECT_EQ(m_messages.count(Kr::Print::Warning, "Invalid texture type\n"), 1u);
    EXPECT_EQ(texture.getState(), nullptr);

    parameters.setTextureType(GL_TEXTURE_RECTANGLE);
    EXPECT_TRUE(load(texture, m_picture, parameters)) << "a refusal does not enter the cache";
    ASSERT_NE(dynamic_cast<osg::TextureRectangle*>(texture.getTexture()), nullptr);
    EXPECT_EQ(texture.getTexture()->getTextureHeight(), 5);
}

TEST_F(KrSGTextureTest, SizeZeroKeepsBytesAndClearsFloats)
{
    const std::vector<unsigned char> pixels{10, 20, 30};
    KrTextureParameters parameters;
    parameters.setApplyType(GL_DECAL);
    KrSGTexture bytes;
    ASSERT_TRUE(bytes.loadShell(1, 1, parameters));
    EXPECT_EQ(bytes.getTexture()->getImage(0)->data(), nullptr);
    ASSERT_TRUE(bytes.load(pixels.data(), 3));
    const osg::ref_ptr<osg::StateSet> before = bytes.getState();
    ASSERT_TRUE(bytes.load(nullptr, 0));
    EXPECT_EQ(bytes.getTexture()->getImage(0)->data()[2], 30);
    EXPECT_NE(bytes.getState(), before.get());
    const auto* const environment =
        dynamic_cast<osg::TexEnv*>(bytes.getState()->getTextureAttribute(0, osg::StateAttribute::TEXENV));
    ASSERT_NE(environment, nullptr);
    EXPECT_EQ(environment->getMode(), osg::TexEnv::DECAL);

    KrSGTexture floats;
    floats.setFloat(true);
    ASSERT_TRUE(floats.loadShell(1, 1, parameters));
    ASSERT_TRUE(floats.load(pixels.data(), 3));
    const osg::Image& image = *floats.getTexture()->getImage(0);
    EXPECT_EQ(image.getDataType(), unsigned(GL_FLOAT));
    EXPECT_EQ(reinterpret_cast<const float*>(image.data())[1], 20.0f);
    EXPECT_EQ(floats.getTexture()->getInternalFormatMode(), osg::Texture::USE_USER_DEFINED_FORMAT);
    ASSERT_TRUE(floats.load(nullptr, 0));
    EXPECT_EQ(image.data(), nullptr);
}

TEST_F(KrSGTextureTest, TooFewBytesAreFilledUp)
{
    const unsigned char pixel[3] = {1, 2, 3};
    for (const bool isFloat : {false, true}) {
        KrSGTexture texture;
        texture.setFloat(isFloat);
        ASSERT_TRUE(texture.loadShell(64, 64, KrTextureParameters()));
        ASSERT_TRUE(texture.load(pixel, 3));
        const osg::Image& image = *texture.getTexture()->getImage(0);
        EXPECT_EQ(image.data()[image.getTotalSizeInBytes() - 1], 0);
    }
}

TEST_F(KrSGTextureTest, AGiganticTextureIsRefused)
{
    const unsigned char pixel[3] = {1, 2, 3};
    KrSGTexture texture;
    ASSERT_TRUE(texture.loadShell(0x7fffff00u / 3, 0x7fffffff, KrTextureParameters()));
    EXPECT_FALSE(texture.load(pixel, 3));
    EXPECT_EQ(m_messages.count(), 1u);
}

TEST_F(KrSGTextureTest, CopiesShareWhatTheyShow)
{
    KrSGTexture texture;
    ASSERT_TRUE(load(texture, m_picture));
    const KrSGTexture copy(texture);
    EXPECT_TRUE(copy == texture);
    KrSGTexture assigned;
    EXPECT_FALSE(assigned == texture);
    assigned = texture;
    EXPECT_TRUE(assigned == texture);

    assigned.setWidth(30);
    assigned.setHeight(50);
    EXPECT_EQ(texture.getTexture()->getTextureWidth(), 30);
    EXPECT_EQ(texture.getTexture()->getTextureHeight(), 50);
    assigned.load(nullptr, 0);
    EXPECT_FALSE(assigned == texture) << "a state set of its own";
    KrSGTexture().setWidth(3); // nothing to size
}
