#pragma once

#include <import/KrImportOptions.h>
#include <import/report/KrImportReport.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

/// Turns a robot description as people write it into one that a strict reader accepts.
///
/// Everything left out, filled in or changed is a warning of the report. The result holds what a picture needs:
/// links with inertia, visuals and collisions, joints with origin, axis, limits and mimic rule, materials. Visuals and
/// collisions are named after their place in the description ("visual 1"), materials have names of their own.
class KrUrdfMender
{
public:
    struct Mended
    {
        std::string text;                              ///< a whole URDF document
        std::map<std::string, std::size_t> jointOrder; ///< place of a joint in the description, by name
        /// Shapes that URDF readers know as cylinders: link name and element ("collision 2").
        std::vector<std::pair<std::string, std::string>> capsules;
    };

    /// @param mended  written on success only
    /// @param why     on failure one clause that says what is wrong, with the line where there is one
    /// @return false when there is no robot in the file
    static bool mend(const std::string& path, const KrImportOptions& options, Mended& mended, KrImportReport& report,
                     std::string& why);
};
