#include "KrAppDoctor.h"

#include "KrAppVideo.h"

#include <osg/Version>
#include <toolkit/window/KrEglWindowImpl.h>
#include <toolkit/window/KrGlxWindowImpl.h>
#include <toolkit/window/KrWindow.h>

#include <cstdlib>
#include <memory>

namespace
{

void tryBackEnd(std::string& text, const char* name, std::unique_ptr<KrWindowImpl> impl)
{
    KrWindow window;
    window.setHideWindow(true);
    window.setWindowSize(64, 64);
    window.setImpl(std::move(impl));
    const bool ok = window.init();
    text += "== " + std::string(name) + (ok ? ": works\n" : ": does not work\n") + window.report().text() + "\n";
    window.closeWindow();
}

std::string environmentText(const char* name)
{
    const char* const value = std::getenv(name);
    return value && *value ? value : "(not set)";
}

} // namespace

bool krAppDoctor(std::string& text)
{
    text += std::string("krrender ") + KR_VERSION + ", OpenSceneGraph " + osgGetVersion() + "\n";
    text += "DISPLAY " + environmentText("DISPLAY") + ", KR_WINDOW " + environmentText("KR_WINDOW") + "\n\n";
    tryBackEnd(text, "EGL (no display needed)", std::make_unique<KrEglWindowImpl>());
    tryBackEnd(text, "GLX (X11 display)", std::make_unique<KrGlxWindowImpl>());

    KrWindow window;
    window.setHideWindow(true);
    const bool ok = window.init();
    text += "== What a picture is drawn with\n" + window.report().text() + "\n";
    const std::string ffmpeg = KrAppVideo::program();
    text += "videos: " + (ffmpeg.empty() ? "no ffmpeg program (Debian package ffmpeg)" : ffmpeg) + "\n";
    text += ok ? "pictures: can be drawn\n" : "pictures: cannot be drawn\n";
    return ok;
}
