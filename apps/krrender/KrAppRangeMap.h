#pragma once

#include <toolkit/system/KrStatedSystem.h>
#include <toolkit/visualization/KrPovParameters.h>

#include <string>
#include <vector>

class KrAppMessages;

/// A range map that is asked for: distances on a regular grid, seen by an orthographic camera.
struct KrAppRangeMap
{
    std::string path; ///< .npy or .csv, "-" for .csv; empty when none is asked for
    unsigned int width = 0;
    unsigned int height = 0;
    double xSize = 0.0; ///< m, to the right
    double ySize = 0.0; ///< m, upwards
    double distance = 0.0;

    /// Reads the words FILE WIDTHxHEIGHT XSIZExYSIZE DISTANCE. Throws KrAppFailure (WrongUsage).
    void parse(const std::vector<std::string>& words);
    /// Draws the map of `system` in its present state and writes it, the top row first: 64-bit floats, or numbers with
    /// commas between them. Metres from the eye's plane; where nothing is hit the value is `distance`.
    /// @param pov  where the camera stands; the map's middle is its centre of interest
    /// Throws KrAppFailure (CouldNot).
    void write(const KrStatedSystem& system, const KrPovParameters& pov, const KrAppMessages& messages) const;
};
