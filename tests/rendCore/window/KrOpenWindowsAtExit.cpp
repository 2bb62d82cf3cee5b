// Ends with windows that are still open, one of them static, one never deleted, frames on their way in both. A program
// of its own: what counts is that it ends in order and without a word.

#include <rendCore/capture/KrFrameStream.h>
#include <rendCore/system/KrRenderWindow.h>

#include <tests/support/Systems.h>

#include <cstdio>

namespace
{

KrStatedSystem s_system{Systems::twoBoxes()};
KrRenderWindow s_static;
KrRenderWindow* s_neverDeleted = nullptr;

bool openAndDraw(KrRenderWindow& window)
{
    window.setHideWindow(true);
    window.setWindowSize(64, 48);
    if (!window.init()) {
        return false;
    }
    window.setStatedSystem(s_system);
    window.setDrawCallback(new KrFrameStream(KrFrameStream::Content::Color));
    return window.renderScene(true) && window.renderScene(true);
}

} // namespace

int main()
{
    // The message of a window that does not open counts as a failure, too.
    s_neverDeleted = new KrRenderWindow;
    return openAndDraw(s_static) && openAndDraw(*s_neverDeleted) ? 0 : 1;
}
