// Draws a robot with an installed krRendCore, without a display:  consumer ROBOT PICTURE
#include <import/KrRobotImporter.h>
#include <rendCore/system/KrRenderWindow.h>

#include <toolkit/system/KrVisualizableStatedSystem.h>

#include <cstdio>
#include <string>

/// Reads a native system file (.xml), which says how it wants to be shown, or a URDF.
static bool readRobot(const std::string& path, KrVisualizableStatedSystem& robot)
{
    if (path.size() > 4 && path.compare(path.size() - 4, 4, ".xml") == 0) {
        return robot.readFile(path);
    }
    KrImportReport report;
    return KrRobotImporter::readFile(path, KrImportOptions(), robot.statedSystem(), report);
}

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s ROBOT PICTURE\n", argv[0]);
        return 2;
    }
    KrVisualizableStatedSystem robot;
    KrRenderWindow window;
    window.setWindowSize(640, 480);
    if (!readRobot(argv[1], robot) || !window.setVisualizableStatedSystem(robot)) {
        return 1;
    }
    window.setState(robot.statedSystem().systemState());

    KrImage image;
    const bool drawn = window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor) &&
                       image.writeFile(argv[2], KrImage::BottomRowFirst);
    return drawn ? 0 : 1;
}
