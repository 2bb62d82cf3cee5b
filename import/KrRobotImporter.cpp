#include <import/KrRobotImporter.h>

#include <import/description/KrRobotBuilder.h>
#include <import/description/KrRobotRepair.h>
#include <import/files/KrPathResolver.h>
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
    KrRobotDescription description;
    if (!KrUrdfReader::read(path, {options.maxRobotBytes, options.maxLinks}, description, report, why) ||
        !KrRobotRepair::run(description, {options.maxLinks, options.maxChain}, report, why)) {
        return false;
    }
    KrPathResolver resolver(path, options.packagePaths, options.useRosPackagePath);
    KrIndividualManipulator manipulator;
    KrRobotBuilder::build(description, resolver, {options.maxMeshBytes, options.maxTriangles}, manipulator, report);
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
