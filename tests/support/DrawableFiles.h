#pragma once

#include <import/KrRobotImporter.h>
#include <toolkit/system/KrVisualizableStatedSystem.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

/// What there is to draw, for tests of every robot at hand.
namespace DrawableFiles
{

/// Systems of the folder of samples, and robot descriptions below another folder, where that is there.
inline std::vector<std::string> all(const std::string& samples, const std::string& robots)
{
    std::vector<std::string> found;
    for (const char* const sample :
         {"industrial_arm.urdf", "textured_rover.xml", "dual_arm_base.xml", "hose.xml", "plume.xml"}) {
        found.push_back(samples + "/" + sample);
    }
    std::error_code error;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(robots, error)) {
        if (entry.path().extension() == ".urdf") {
            found.push_back(entry.path().string());
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

/// One of them.
inline bool read(const std::string& file, KrStatedSystem& system)
{
    if (std::filesystem::path(file).extension() == ".urdf") {
        KrImportReport report;
        return KrRobotImporter::readFile(file, KrImportOptions(), system, report);
    }
    KrVisualizableStatedSystem native;
    if (!native.readFile(file)) {
        return false;
    }
    system = native.statedSystem();
    return true;
}

} // namespace DrawableFiles
