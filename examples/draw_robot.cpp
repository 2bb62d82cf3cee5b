// Draws a robot description, framed and lit, a link set off from the others:  draw_robot URDF PICTURE [LINK]
#include <import/KrRobotImporter.h>
#include <picture/KrPictureScene.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv)
{
    if (argc != 3 && argc != 4) {
        std::fprintf(stderr, "usage: %s URDF PICTURE [LINK]\n", argv[0]);
        return 2;
    }
    KrStatedSystem system;
    KrImportReport report;
    const bool read = KrRobotImporter::readFile(argv[1], KrImportOptions(), system, report);
    // What was found, mended and missed, also when there is no robot in the end.
    std::printf("%s", report.text().c_str());
    // Manipulator 0: a URDF has one.
    if (!read || (argc == 4 && system.selectLink(0, argv[3]) != KrStatedSystem::LinkAnswer::Done)) {
        return 1;
    }

    KrPictureScene scene;
    KrImage picture;
    std::string reason;
    // Four drawn pixels for each one, which smooths edges. `reason` says what failed.
    if (!scene.open(800, 600, 4, reason) || !scene.show(system, reason) ||
        !scene.draw(system.systemState(), picture, reason)) {
        std::fprintf(stderr, "%s: %s\n", argv[0], reason.c_str());
        return 1;
    }
    // Pictures in memory begin with the lowest row.
    return picture.writeFile(argv[2], KrImage::BottomRowFirst) ? 0 : 1;
}
