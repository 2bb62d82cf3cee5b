// Draws a robot with an installed krRendCore, without a display:  consumer ROBOT PICTURE [LINK]
#include <import/KrRobotImporter.h>
#include <picture/KrPictureScene.h>

#include <toolkit/system/KrVisualizableStatedSystem.h>

#include <cstdio>
#include <string>

/// Reads a native system file (.xml) or a URDF.
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
    if (argc != 3 && argc != 4) {
        std::fprintf(stderr, "usage: %s ROBOT PICTURE [LINK]\n", argv[0]);
        return 2;
    }
    KrVisualizableStatedSystem robot;
    if (!readRobot(argv[1], robot)) {
        return 1;
    }
    KrStatedSystem& system = robot.statedSystem();
    // Manipulator 0: a URDF has one.
    if (argc == 4 && system.selectLink(0, argv[3]) != KrStatedSystem::LinkAnswer::Done) {
        return 1;
    }
    KrPictureScene scene;
    KrImage picture;
    std::string reason;
    // Four drawn pixels for each one, which smooths edges. `reason` says what failed.
    if (!scene.open(640, 480, 4, reason) || !scene.show(system, reason) ||
        !scene.draw(system.systemState(), picture, reason)) {
        std::fprintf(stderr, "%s: %s\n", argv[0], reason.c_str());
        return 1;
    }
    // Pictures in memory begin with the lowest row.
    return picture.writeFile(argv[2], KrImage::BottomRowFirst) ? 0 : 1;
}
