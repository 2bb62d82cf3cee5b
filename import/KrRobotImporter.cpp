#include <import/KrRobotImporter.h>

#include <import/KrUrdfMender.h>
#include <import/KrUrdfReader.h>

#include <toolkit/foundation/KrPrint.h>
#include <toolkit/system/KrStatedSystem.h>

#include <exception>

namespace
{

bool readRobot(const std::string& path, const KrImportOptions& options, KrStatedSystem& system, KrImportReport& report,
               std::string& why)
{
    KrUrdfMender::Mended mended;
    KrIndividualManipulator manipulator;
    if (!KrUrdfMender::mend(path, mended, report, why) ||
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
                                     path.c_str(), why.c_str());
    }
    return ok;
}
