#pragma once

#include <import/description/KrRobotDescription.h>
#include <import/mesh/KrMeshLoader.h>
#include <import/report/KrImportReport.h>

class KrIndividualManipulator;
class KrPathResolver;

/// Makes a manipulator from a repaired robot description.
class KrRobotBuilder
{
public:
    /// @param description  as KrRobotRepair leaves it
    /// @param resolver     finds its meshes and textures
    /// @param loading      how its mesh files are read
    /// @param manipulator  becomes the robot: its base is the link without a parent
    /// @param report       gets the counts, the meshes and what is wrong with them
    static void build(const KrRobotDescription& description, KrPathResolver& resolver,
                      const KrMeshLoader::Options& loading, KrIndividualManipulator& manipulator,
                      KrImportReport& report);
};
