#include "KrBenchRobot.h"

#include "KrBenchMade.h"

#include <import/KrRobotImporter.h>
#include <toolkit/foundation/KrPrint.h>
#include <toolkit/foundation/KrReason.h>
#include <toolkit/system/KrVisualizableStatedSystem.h>

#include <filesystem>

namespace
{

/// Reads whichever of the native systems the file holds.
bool readNative(const std::string& path, KrStatedSystem& system)
{
    KrVisualizableStatedSystem visualizable;
    KrManipulatorSystem bare;
    if (visualizable.readFile(path)) {
        system = visualizable.statedSystem();
    } else if (bare.readFile(path)) {
        system = KrStatedSystem(bare);
    } else {
        return system.readFile(path);
    }
    return true;
}

} // namespace

KrBenchRobot::KrBenchRobot(const std::string& path, const std::vector<std::string>& packagePaths)
    : name(std::filesystem::path(path).stem().string())
{
    constexpr char kMade[] = "made:";
    if (path.rfind(kMade, 0) == 0) {
        name = path.substr(sizeof kMade - 1);
        system = KrStatedSystem(KrBenchMade::robot(name));
        return;
    }
    // One reason is told, that of the last attempt.
    const Kr::Print::Sink before = Kr::Print::instance()->setSink([](Kr::Print::Type, const std::string&) {});
    const KrReason reason;
    // By the name's ending, as this is no door for files of strangers.
    bool isRead = false;
    if (std::filesystem::path(path).extension() == ".xml") {
        isRead = readNative(path, system);
    } else {
        KrImportOptions options;
        options.packagePaths = packagePaths;
        KrImportReport report;
        isRead = KrRobotImporter::readFile(path, options, system, report);
        name = isRead ? report.robot() : name;
    }
    Kr::Print::instance()->setSink(before);
    if (!isRead) {
        throw KrBenchFailure(reason.text(path + " cannot be read"));
    }
}
