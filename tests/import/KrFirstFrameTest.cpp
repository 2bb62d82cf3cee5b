// The first frame after every opening is the frame that follows it, whatever is shown.

#include <rendCore/plume/KrToolkitFolders.h>
#include <rendCore/system/KrMultiRenderWindow.h>

#include <tests/support/DrawableFiles.h>

#include <gtest/gtest.h>

#include <osg/BoundingSphere>
#include <osg/GL>
#include <osg/Group>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace
{

namespace fs = std::filesystem;
using Pixels = std::vector<unsigned char>;

constexpr unsigned int kAids = KrRenderTypes::LinkAxes | KrRenderTypes::BoundingVolumes | KrRenderTypes::MassProperties;

/// The documents of the samples, and robot descriptions of several makers, which may stand beside the project.
std::vector<std::string> files()
{
    std::vector<std::string> found;
    const fs::path source(KR_SOURCE_DIR);
    for (const fs::path& folder : {source / "samples", source.parent_path() / "shared" / "robots"}) {
        std::error_code none;
        for (const auto& entry : fs::recursive_directory_iterator(folder, none)) {
            const std::string kind = entry.path().extension().string();
            if (kind == ".urdf" || (kind == ".xml" && entry.path().parent_path() == source / "samples")) {
                found.push_back(entry.path().string());
            }
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

struct Look
{
    unsigned int mask;
    double fade; ///< opacity of what is not selected; below 0 nothing is
};

KrShapeStateCacheKey aShape(const KrStatedSystem& system)
{
    for (std::uint32_t link = 0; link < 100; ++link) {
        const KrShapeStateCacheKey key(0, link, 0);
        if (system.shapeByKey(key) != nullptr) {
            return key;
        }
    }
    return KrShapeStateCacheKey(0, KrShapeStateCacheKey::kBaseLink, 0);
}

Pixels bytesOf(const KrImage& image)
{
    return {image.data(), image.data() + image.sizeInBytes()};
}

/// A single window or one of two views, opened for every picture.
class KrFirstFrame : public testing::TestWithParam<std::tuple<std::string, bool>>
{
protected:
    void SetUp() override
    {
        KrToolkitFolders::setDefault();
        ASSERT_TRUE(DrawableFiles::read(std::get<0>(GetParam()), system));
        const bool isMulti = std::get<1>(GetParam());
        window = isMulti ? std::make_unique<KrMultiRenderWindow>(96, 128, 2) : std::make_unique<KrRenderWindow>();
        if (isMulti) {
            // The second view shows the scene moved a little.
            KrXmlVectorType<KrCoordinateSystemTransformation> frames;
            frames.resize(2);
            frames[1].setTranslation(KrVector(0.1, 0.0, 0.0));
            static_cast<KrMultiRenderWindow&>(*window).setCoords(frames, KrMultiRenderWindow::ObjectFrames);
        } else {
            window->setWindowSize(128, 96);
        }
    }
    bool open()
    {
        window->closeWindow();
        system.clearSelection();
        if (!window->init()) {
            return false;
        }
        window->setStatedSystem(system);
        const osg::BoundingSphere bound = window->getNode()->getBound();
        const osg::Vec3d eye = bound.center() + osg::Vec3d(1.0, -1.4, 0.8) * bound.radius();
        KrPovParameters pov;
        pov.setCenterOfInterest(KrVector(bound.center().x(), bound.center().y(), bound.center().z()));
        pov.setEyepoint(KrVector(eye.x(), eye.y(), eye.z()));
        window->setPovParameters(pov);
        return true;
    }
    void show(const Look& look)
    {
        window->setDisplayMask(look.mask, true, false);
        if (look.fade >= 0.0) {
            ASSERT_TRUE(system.setTransparency(look.fade) && system.selectShape(aShape(system)));
        }
    }
    Pixels picture()
    {
        KrImage image;
        auto* const views = dynamic_cast<KrMultiRenderWindow*>(window.get());
        EXPECT_TRUE(views ? views->captureWindow(image, KrSGWindow::CaptureColor)
                          : window->renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor));
        return bytesOf(image);
    }

    KrStatedSystem system;
    std::unique_ptr<KrRenderWindow> window;
};

std::size_t differing(const Pixels& a, const Pixels& b)
{
    std::size_t count = a.size() == b.size() ? 0 : a.size() + b.size();
    for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
        count += a[i] != b[i] ? 1 : 0;
    }
    return count;
}

} // namespace

TEST_P(KrFirstFrame, IsTheOneThatFollows)
{
    // Several views are drawn by the same means: half of the looks will do.
    std::vector<Look> looks = {{kAids, -1.0}, {0, 0.3}, {0, -1.0}, {kAids, 1.0}};
    looks.resize(std::get<1>(GetParam()) ? 2 : 4);
    for (const Look& look : looks) {
        SCOPED_TRACE(testing::Message() << "aids " << look.mask << ", fade " << look.fade);
        if (!open()) {
            GTEST_SKIP() << window->report().text();
        }
        show(look);
        const Pixels first = picture();
        EXPECT_EQ(differing(picture(), first), 0u) << "the second frame";
        // The same, asked for once the scene has been drawn without.
        ASSERT_TRUE(open());
        picture();
        show(look);
        EXPECT_EQ(differing(picture(), first), 0u) << "asked for after a frame";
        EXPECT_EQ(differing(picture(), first), 0u) << "the frame after that";
        window->makeCurrent();
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    }
}

INSTANTIATE_TEST_SUITE_P(All, KrFirstFrame, testing::Combine(testing::ValuesIn(files()), testing::Bool()),
                         [](const auto& file) {
                             std::string name = fs::path(std::get<0>(file.param)).filename().string();
                             std::replace_if(
                                 name.begin(), name.end(), [](char c) { return !std::isalnum(c); }, '_');
                             return name + (std::get<1>(file.param) ? "InTwoViews" : "");
                         });
