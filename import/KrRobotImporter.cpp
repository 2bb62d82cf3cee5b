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

/// Touches `system` only when all has gone well: on failure the caller's one stays as it was.
bool readRobot(const std::string& path, const KrImportOptions& options, KrStatedSystem& system, KrImportReport& report,
               std::string& why)
{
    KrRobotDescription description;
    // The repair comes before anything is built: the builder counts on one tree with names that differ.
    if (!KrUrdfReader::read(path, {options.maxRobotBytes, options.maxLinks}, description, report, why) ||
        !KrRobotRepair::run(description, {options.maxLinks, options.maxChain}, report, why)) {
        return false;
    }
    // Files are found from the description's place, whatever the current folder is.
    KrPathResolver resolver(path, options.packagePaths, options.useRosPackagePath);
    KrIndividualManipulator manipulator;
    // Building cannot fail: a mesh that is missing or bad costs itself only, and is in the report.
    KrMeshLoader::Options loading;
    loading.limits = {options.maxMeshBytes, options.maxTriangles};
    loading.preparation = options.preparation;
    loading.cacheFolder = options.cacheFolder;
    loading.maxCacheBytes = options.useCache ? options.maxCacheBytes : 0;
    KrRobotBuilder::build(description, resolver, loading, manipulator, report);
    KrManipulatorSystem manipulators;
    manipulators.manipulators().push_back(manipulator);
    system = KrStatedSystem(manipulators);
    return true;
}

} // namespace

bool KrRobotImporter::readFile(const std::string& path, const KrImportOptions& options, KrStatedSystem& system,
                               KrImportReport& report)
{
    // A report is of one import: what a call before has left would count twice.
    report = KrImportReport();
    report.setFile(path);
    std::string why;
    bool ok = false;
    // The libraries throw, and memory may run out; no exception leaves the importer.
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
