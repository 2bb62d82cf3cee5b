#pragma once

#include <import/description/KrRobotDescription.h>
#include <import/report/KrImportReport.h>

#include <cstddef>
#include <cstdint>
#include <string>

/// Reads URDF files.
///
/// Forgiving: what cannot be read is left out with a warning of the report, elements and attributes that URDF does not
/// know are passed over, and an origin, an axis or an inertia that is absent has the format's default. Of several
/// elements where one is meant the first counts. Elements of other name spaces are not looked into.
class KrUrdfReader
{
public:
    struct Limits
    {
        std::uint64_t maxBytes = 0; ///< of the file
        std::size_t maxLinks = 0;   ///< and joints
    };

    /// @param path         a file or a pipe
    /// @param description  written on success only: links have names that differ, joints have both ends
    /// @param why          on failure one clause that says what is wrong, with the line where there is one
    /// @return false when there is no robot in the file, or a larger one than the limits allow
    static bool read(const std::string& path, const Limits& limits, KrRobotDescription& description,
                     KrImportReport& report, std::string& why);
};
