#include "KrMeshFuzz.h"

#include <import/KrRobotImporter.h>
#include <toolkit/system/KrStatedSystem.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const KrMeshFuzzFolder folder;
    folder.write("a.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
    KrStatedSystem system;
    KrImportReport report;
    const std::string path = folder.write("robot.urdf", fuzzText(data, size));
    if (!KrRobotImporter::readFile(path, fuzzOptions(), system, report)) {
        return 0;
    }
    // What came in can be written, told and copied.
    std::string text;
    const KrStatedSystem copy = system;
    if (!copy.writeBuffer(text) || report.text().empty() || report.json().empty()) {
        std::abort();
    }
    return 0;
}
