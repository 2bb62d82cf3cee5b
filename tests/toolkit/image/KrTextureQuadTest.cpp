#include <toolkit/image/KrTexture.h>
#include <toolkit/window/KrWindow.h>

#include <GL/gl.h>
#include <gtest/gtest.h>

#include <array>

namespace
{

using Pixel = std::array<unsigned char, 3>;

constexpr Pixel kRed = {255, 0, 0};
constexpr Pixel kGreen = {0, 255, 0};
constexpr Pixel kBlue = {0, 0, 255};
constexpr Pixel kWhite = {255, 255, 255};
constexpr Pixel kBlack = {0, 0, 0};
constexpr unsigned int kWidth = 64;
constexpr unsigned int kHeight = 32;

/// A 2 x 2 texture, lower row first, without blending between its pixels; bound to the active unit and switched on.
class QuarterTexture
{
public:
    explicit QuarterTexture(const std::array<Pixel, 4>& quarters)
    {
        glGenTextures(1, &m_name);
        glBindTexture(GL_TEXTURE_2D, m_name);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
        glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGB, 2, 2, 0, GL_RGB, GL_UNSIGNED_BYTE, quarters.data());
        glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE);
        glEnable(GL_TEXTURE_2D);
    }
    ~QuarterTexture() { glDeleteTextures(1, &m_name); }
    QuarterTexture(const QuarterTexture&) = delete;
    QuarterTexture& operator=(const QuarterTexture&) = delete;

private:
    GLuint m_name = 0;
};

class KrTextureQuadTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_window.setWindowSize(kWidth, kHeight);
        if (!m_window.init()) {
            GTEST_SKIP() << "no OpenGL context";
        }
        ASSERT_TRUE(m_window.makeCurrent());
        glViewport(0, 0, kWidth, kHeight);
        glClearColor(0.0f, 0.0f, 0.0f, 1.0f);
        glClear(GL_COLOR_BUFFER_BIT);
        glDisable(GL_LIGHTING);
        glDisable(GL_DEPTH_TEST);
        glColor3f(1.0f, 1.0f, 1.0f);
        // Matrices that would move the quadrilateral far away, were they used.
        for (const GLenum matrix : {GL_PROJECTION, GL_MODELVIEW}) {
            glMatrixMode(matrix);
            glTranslated(5.0, 0.0, 0.0);
        }
        glMatrixMode(GL_TEXTURE);
    }
    void TearDown() override
    {
        if (!m_window.isInitialized()) {
            return;
        }
        GLint mode = 0;
        glGetIntegerv(GL_MATRIX_MODE, &mode);
        EXPECT_EQ(mode, GL_TEXTURE);
        for (const GLenum matrix : {GL_PROJECTION_MATRIX, GL_MODELVIEW_MATRIX}) {
            GLdouble entries[16];
            glGetDoublev(matrix, entries);
            EXPECT_EQ(entries[12], 5.0);
        }
        EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
    }

    /// The pixel in the middle of a quarter of the picture.
    static Pixel middle(unsigned int column, unsigned int row)
    {
        Pixel pixel = {};
        glPixelStorei(GL_PACK_ALIGNMENT, 1);
        glReadPixels(static_cast<GLint>(kWidth / 4 + column * kWidth / 2),
                     static_cast<GLint>(kHeight / 4 + row * kHeight / 2), 1, 1, GL_RGB, GL_UNSIGNED_BYTE, pixel.data());
        return pixel;
    }

    KrWindow m_window;
};

} // namespace

TEST_F(KrTextureQuadTest, FillsTheViewportUprightAndUnmirrored)
{
    const QuarterTexture quarters({kRed, kGreen, kBlue, kWhite});
    KrTexture texture;
    texture.drawScreenAlignedQuad();
    EXPECT_EQ(middle(0, 0), kRed);
    EXPECT_EQ(middle(1, 0), kGreen);
    EXPECT_EQ(middle(0, 1), kBlue);
    EXPECT_EQ(middle(1, 1), kWhite);
}

TEST_F(KrTextureQuadTest, GivesTwoTextureUnitsTheSameCoordinates)
{
    const QuarterTexture quarters({kRed, kGreen, kBlue, kWhite});
    glActiveTexture(GL_TEXTURE1);
    const QuarterTexture mask({kBlack, kWhite, kWhite, kBlue});
    KrTexture texture;
    texture.drawMultiTextureScreenAlignedQuad();
    EXPECT_EQ(middle(0, 0), kBlack);
    EXPECT_EQ(middle(1, 0), kGreen);
    EXPECT_EQ(middle(0, 1), kBlue);
    EXPECT_EQ(middle(1, 1), kBlue);
    glDisable(GL_TEXTURE_2D);
    glActiveTexture(GL_TEXTURE0);
}
