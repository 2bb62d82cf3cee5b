#include "KrAppDoctor.h"

#include "KrAppVideo.h"

#include <osg/Version>
#include <toolkit/window/KrEglWindowImpl.h>
#include <toolkit/window/KrGlxWindowImpl.h>
#include <toolkit/window/KrWindow.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace
{

void tryBackEnd(const char* name, std::unique_ptr<KrWindowImpl> impl)
{
    KrWindow window;
    window.setHideWindow(true);
    window.setWindowSize(64, 64);
    window.setImpl(std::move(impl));
    const bool ok = window.init();
    std::printf("== %s: %s\n%s\n", name, ok ? "works" : "does not work", window.report().text().c_str());
    window.closeWindow();
}

const char* environmentText(const char* name)
{
    const char* const value = std::getenv(name);
    return value && *value ? value : "(not set)";
}

} // namespace

bool krAppDoctor()
{
    std::printf("krrender %s, OpenSceneGraph %s\n", KR_VERSION, osgGetVersion());
    std::printf("DISPLAY %s, KR_WINDOW %s\n\n", environmentText("DISPLAY"), environmentText("KR_WINDOW"));
    tryBackEnd("EGL (no display needed)", std::make_unique<KrEglWindowImpl>());
    tryBackEnd("GLX (X11 display)", std::make_unique<KrGlxWindowImpl>());

    KrWindow window;
    window.setHideWindow(true);
    const bool ok = window.init();
    std::printf("== What a picture is drawn with\n%s\n", window.report().text().c_str());
    const std::string ffmpeg = KrAppVideo::program();
    std::printf("videos: %s\n", ffmpeg.empty() ? "no ffmpeg program (Debian package ffmpeg)" : ffmpeg.c_str());
    std::printf("pictures: %s\n", ok ? "can be drawn" : "cannot be drawn");
    return ok;
}
