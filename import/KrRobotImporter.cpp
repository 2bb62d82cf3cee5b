#include <import/KrRobotImporter.h>

#include <import/description/KrRobotBuilder.h>
#include <import/description/KrRobotRepair.h>
#include <import/files/KrPathResolver.h>
#include <import/urdf/KrUrdfReader.h>

#include <toolkit/foundation/KrPrint.h>
#include <toolkit/foundation/private/KrText.h>
#include <toolkit/system/KrStatedSystem.h>

#include <exception>
#include <filesystem>
#include <utility>

namespace
{

constexpr std::size_t kMaxPath = 1000; // in a message, bytes

/// Cannot fail: a mesh that is missing or bad costs itself only, and is in the report.
void buildRobot(const KrRobotDescription& description, const KrImportOptions& options, KrStatedSystem& system,
                KrImportReport& report)
{
    // Files are found from the description's place, whatever the current folder is.
    KrPathResolver resolver(description.files.front(), options.packagePaths, options.useRosPackagePath);
    KrMeshLoader::Options loading;
    loading.limits = {options.maxMeshBytes, options.maxTriangles};
    loading.preparation = options.preparation;
    loading.cacheFolder = options.cacheFolder;
    loading.maxCacheBytes = options.useCache ? options.maxCacheBytes : 0;
    KrIndividualManipulator manipulator;
    KrRobotBuilder::build(description, resolver, loading, manipulator, report);
    KrManipulatorSystem manipulators;
    manipulators.manipulators().push_back(std::move(manipulator));
    system = KrStatedSystem(manipulators);
}

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
    buildRobot(description, options, system, report);
    return true;
}

/// As a robot of one link: meshes are found, read, limited and shared in one way.
bool readSingleMesh(const std::string& path, const KrImportOptions& options, KrStatedSystem& system,
                    KrImportReport& report, std::string& why)
{
    const std::filesystem::path file = std::filesystem::absolute(path);
    std::error_code error;
    if (!std::filesystem::exists(file, error)) {
        why = "there is no such file";
        return false;
    }
    KrRobotDescription::Shape shape;
    shape.label = "visual 1";
    shape.geometry.form = KrRobotDescription::Geometry::Form::Mesh;
    shape.geometry.uri = file.string();
    KrRobotDescription::Link link;
    link.name = KrText::oneLine(file.stem().string());
    link.visuals.push_back(shape);
    KrRobotDescription description;
    description.files = {path};
    description.name = link.name;
    description.links.push_back(link);
    report.setRobot(link.name);

    KrStatedSystem read;
    buildRobot(description, options, read, report);
    // A stand-in is of use in a robot; alone it would pass for the mesh.
    if (report.counts().missingMeshes > 0 || report.counts().triangles == 0) {
        why = report.warnings().empty() ? "it holds no triangle" : report.warnings().front().text;
        return false;
    }
    system = read;
    return true;
}

using Reader = bool(const std::string&, const KrImportOptions&, KrStatedSystem&, KrImportReport&, std::string&);

/// @param what  is in the file
bool readInto(KrStatedSystem& system, Reader& reader, const char* method, const char* what, const std::string& path,
              const KrImportOptions& options, KrImportReport& report)
{
    // A report is of one import: what a call before has left would count twice.
    report = KrImportReport();
    report.setFile(path);
    std::string why;
    bool ok = false;
    // The libraries throw, and memory may run out; no exception leaves the importer.
    try {
        ok = reader(path, options, system, report, why);
    } catch (const std::exception& exception) {
        why = exception.what();
    }
    if (!ok) {
        Kr::Print::instance()->write(Kr::Print::Warning, "KrRobotImporter::%s - no %s in %s: %s.\n", method, what,
                                     KrText::oneLine(path, kMaxPath).c_str(), KrText::oneLine(why, kMaxPath).c_str());
    }
    return ok;
}

} // namespace

bool KrRobotImporter::readFile(const std::string& path, const KrImportOptions& options, KrStatedSystem& system,
                               KrImportReport& report)
{
    return readInto(system, readRobot, "readFile", "robot", path, options, report);
}

bool KrRobotImporter::readMesh(const std::string& path, const KrImportOptions& options, KrStatedSystem& system,
                               KrImportReport& report)
{
    return readInto(system, readSingleMesh, "readMesh", "mesh", path, options, report);
}
