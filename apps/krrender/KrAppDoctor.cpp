#include "KrAppDoctor.h"

#include "KrAppMessages.h"
#include "KrAppVideo.h"

#include <picture/KrLighting.h>
#include <picture/KrPictureScene.h>
#include <toolkit/context/KrEglWindowImpl.h>
#include <toolkit/context/KrGlxWindowImpl.h>
#include <toolkit/extent/KrBoxPhysicalExtent.h>
#include <toolkit/system/KrStatedSystem.h>
#include <toolkit/visualization/KrVisualizationParameters.h>
#include <toolkit/window/KrWindow.h>

#include <osg/Version>

#include <cstdlib>
#include <memory>
#include <string>

namespace
{

/// One way by itself. It may fail; what the window noted on the way is the answer.
void tryBackEnd(std::string& text, const char* name, std::unique_ptr<KrWindowImpl> impl)
{
    KrWindow window;
    window.setHideWindow(true);
    window.setWindowSize(64, 64);
    window.setImpl(std::move(impl));
    const bool ok = window.init();
    text += "== " + std::string(name) + (ok ? ": works\n" : ": does not work\n") + window.report().text() + "\n";
    // Closed before the next way is tried.
    window.closeWindow();
}

std::string environmentText(const char* name)
{
    const char* const value = std::getenv(name);
    // Set to nothing means the same as not set.
    return value && *value ? value : "(not set)";
}

/// Draws a grey box before blue. @return what is wrong; empty when it looks as it should
std::string drawBox()
{
    // Keeps the libraries' messages from the standard error; the reason has what matters.
    KrAppMessages messages;
    constexpr unsigned int kSize = 64; // pixels
    KrIndividualManipulator box("box");
    box.addShape(boost::shared_ptr<KrBasePhysicalExtent>(new KrBoxPhysicalExtent(KrVector(1.0, 1.0, 1.0))));
    // The whole way, from a system to pixels: contexts that open need not draw.
    KrManipulatorSystem manipulators;
    manipulators.manipulators().push_back(box);
    KrStatedSystem system(manipulators);

    KrVisualizationParameters parameters;
    KrPovParameters pov;
    pov.setEyepoint({3.0, -2.0, 2.0});
    pov.setCenterOfInterest({0.0, 0.0, 0.0});
    parameters.setPovParameters(pov);
    parameters.setLightParameters(KrLighting::threeLamps(pov));
    KrRenderParameters render;
    render.setBackgroundColor(KrColor(0.0, 0.0, 1.0));
    parameters.setRenderParameters(render);

    KrPictureScene scene;
    KrImage picture;
    std::string reason;
    if (!scene.open(kSize, kSize, 1, reason) || !scene.show(system, parameters, reason)) {
        return reason;
    }
    scene.window().setAmbientLight(KrLighting::ambientLight());
    if (!scene.draw(system.systemState(), picture, reason)) {
        return reason;
    }
    const unsigned char* const corner = picture.data();
    const unsigned char* const middle = picture.data() + 3 * std::size_t(kSize / 2 * kSize + kSize / 2);
    // Wide, because drivers round and light differently: what is told apart are blue and grey.
    const bool isBlue = corner[0] < 5 && corner[1] < 5 && corner[2] > 250;
    const bool isGrey = middle[0] > 30 && middle[1] > 30 && middle[0] + 30 > middle[2];
    return isBlue && isGrey ? "" : "the driver draws a box before blue as something else";
}

} // namespace

bool krAppDoctor(std::string& text)
{
    text += std::string("krrender ") + KR_VERSION + ", OpenSceneGraph " + osgGetVersion() + "\n";
    text += "DISPLAY " + environmentText("DISPLAY") + ", KR_WINDOW " + environmentText("KR_WINDOW") +
            ", LP_NUM_THREADS " + environmentText("LP_NUM_THREADS") + "\n\n";
    tryBackEnd(text, "EGL (no display needed)", std::make_unique<KrEglWindowImpl>());
    tryBackEnd(text, "GLX (X11 display)", std::make_unique<KrGlxWindowImpl>());

    KrWindow window;
    window.setHideWindow(true);
    // The way that a picture takes: the first that works.
    window.init();
    text += "== What a picture is drawn with\n" + window.report().text() + "\n";
    window.closeWindow();
    // No OpenGL, but the other thing that a machine may lack.
    const std::string ffmpeg = KrAppVideo::program();
    text += "videos: " + (ffmpeg.empty() ? "no ffmpeg program (Debian package ffmpeg)" : ffmpeg) + "\n";
    const std::string wrong = drawBox();
    text += "pictures: " + (wrong.empty() ? "can be drawn" : "cannot be drawn: " + wrong) + "\n";
    return wrong.empty();
}
