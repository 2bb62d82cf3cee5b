#include <import/KrRobotImporter.h>

#include <import/urdf/KrUrdfMender.h>
#include <import/urdf/KrUrdfReader.h>

#include <toolkit/foundation/KrPrint.h>
#include <toolkit/foundation/private/KrText.h>
#include <toolkit/system/KrStatedSystem.h>

#include <exception>

namespace
{

constexpr std::size_t kMaxPath = 1000; // in a message, bytes

bool readRobot(const std::string& path, const KrImportOptions& options, KrStatedSystem& system, KrImportReport& report,
               std::string& why)
{
    KrUrdfMender::Mended mended;
    KrIndividualManipulator manipulator;
    if (!KrUrdfMender::mend(path, options, mended, report, why) ||
        !KrUrdfReader::read(mended, path, options, manipulator, report, why)) {
        return false;
    }
    KrManipulatorSystem manipulators;
    manipulators.manipulators().push_back(manipulator);
    system = KrStatedSystem(manipulators);
    return true;
}

} // namespace

bool KrRobotImporter::readFile(const std::string& path, const KrImportOptions& options, KrStatedSystem& system,
                               KrImportReport& report)
{
    report = KrImportReport();
    report.setFile(path);
    std::string why;
    bool ok = false;
    try {
        ok = readRobot(path, options, system, report, why);
    } catch (const std::exception& exception) {
        why = exception.what();
    }
    if (!ok) {
        Kr::Print::instance()->write(Kr::Print::Warning, "KrRobotImporter::readFile - no robot in %s: %s.\n",
                                     KrText::oneLine(path, kMaxPath).c_str(), KrText::oneLine(why, kMaxPath).c_str());
    }
    return ok;
}
