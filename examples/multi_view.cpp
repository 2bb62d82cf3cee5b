// Draws a system file from four sides, in one window:  multi_view SYSTEM.xml PICTURE
#include <picture/KrFraming.h>
#include <picture/KrLighting.h>
#include <picture/KrTiles.h>
#include <rendCore/system/KrMultiRenderWindow.h>

#include <toolkit/system/KrVisualizableStatedSystem.h>

#include <cstdio>

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s SYSTEM.xml PICTURE\n", argv[0]);
        return 2;
    }
    KrVisualizableStatedSystem system;
    if (!system.readFile(argv[1])) {
        return 1;
    }
    constexpr unsigned int width = 320; // of one view, pixels; the picture has twice as many
    constexpr unsigned int height = 240;
    KrXmlVectorType<KrPovParameters> views;
    for (const char* const name : {"front", "side", "top", "perspective"}) {
        KrViewSide side;
        // One of KrViewSide::names(), so it is found.
        KrViewSide::find(name, side);
        KrFraming framing(side.towardsEye, side.up, KrFraming::kFieldOfView, double(width) / height);
        framing.add(system.statedSystem().manipulatorSystem(), system.statedSystem().systemState());
        views.push_back(framing.pov());
    }

    KrMultiRenderWindow window;
    window.setNumColumnsHint(2);
    window.setWindowParams(width, height, views.size());
    window.setVisualizableStatedSystem(system);
    window.setState(system.statedSystem().systemState());
    window.setPovParametersVector(views);
    window.setPovParameters(views[3]); // the window's own, for the lamps, which all views share
    KrLighting::light(window);
    window.setPovParameters(views[0]); // view 0 shows it

    KrImage image;
    const bool drawn =
        window.captureWindow(image, KrSGWindow::CaptureColor) && image.writeFile(argv[2], KrImage::BottomRowFirst);
    return drawn ? 0 : 1;
}
