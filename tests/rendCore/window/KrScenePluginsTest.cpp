#include <rendCore/window/KrSGWindow.h>

#include <tests/support/Folder.h>

#include <gtest/gtest.h>
#include <osgDB/Registry>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace fs = std::filesystem;

TEST(KrScenePlugins, OverlayTextLoadsNoneFromTheCurrentFolder)
{
    KrSGWindow window;
    window.setHideWindow(true);
    window.setWindowSize(64, 48);
    if (!window.init()) {
        GTEST_SKIP() << window.report().text();
    }
    const Folder folder;
    const fs::path before = fs::current_path();
    fs::current_path(folder.path(""));
    // Where the library looks first by itself: once for the font, once for the shaders that draw it.
    const std::string name = osgDB::Registry::instance()->createLibraryNameForExtension("ttf");
    fs::create_directories(fs::path(name).parent_path());
    for (const std::string extension : {"ttf", "glsl", "vert", "frag"}) {
        fs::copy_file(KR_CANARY_PLUGIN, osgDB::Registry::instance()->createLibraryNameForExtension(extension),
                      fs::copy_options::overwrite_existing);
    }
    ASSERT_EQ(setenv("KR_CANARY", folder.path("canary").c_str(), 1), 0);

    window.setOverlayText("HHHHH", 0, 40, KrColor(1.0, 0.0, 0.0));
    window.setBackgroundColor(KrColor(0.0, 0.0, 0.0));
    ASSERT_TRUE(window.renderScene(false));
    EXPECT_FALSE(fs::exists(folder.path("canary")));
    unsigned char pixels[64 * 48 * 4] = {};
    glReadPixels(0, 0, 64, 48, GL_RGBA, GL_UNSIGNED_BYTE, pixels);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    std::size_t red = 0;
    for (std::size_t i = 0; i < sizeof pixels; i += 4) {
        red += pixels[i] > 128 ? 1 : 0;
    }
    EXPECT_GT(red, 100u); // the text is drawn all the same
    // The system's own plugins are still found.
    EXPECT_NE(osgDB::Registry::instance()->getReaderWriterForExtension("ttf"), nullptr);
    EXPECT_FALSE(fs::exists(folder.path("canary")));
    fs::current_path(before);
}
