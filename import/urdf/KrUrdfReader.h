#pragma once

#include <import/KrImportOptions.h>
#include <import/report/KrImportReport.h>
#include <import/urdf/KrUrdfMender.h>

#include <string>

class KrIndividualManipulator;

/// Makes a manipulator from a mended robot description.
class KrUrdfReader
{
public:
    /// @param path         the description's own path: meshes and textures are found from it
    /// @param manipulator  the robot: its base is the root link
    /// @param why          on failure one clause that says what is wrong
    static bool read(const KrUrdfMender::Mended& mended, const std::string& path, const KrImportOptions& options,
                     KrIndividualManipulator& manipulator, KrImportReport& report, std::string& why);

    /// The material of the shape that stands in for a missing mesh.
    static const char* standInMaterial() { return "missing mesh"; }
    /// The material of collision geometry, in the manipulator's data maps.
    static const char* collisionMaterial() { return "collision"; }
};
