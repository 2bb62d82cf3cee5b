#pragma once

#include "KrAppAids.h"

#include <toolkit/geometry/KrColor.h>
#include <toolkit/geometry/KrVector.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

/// What the command line asks for.
struct KrAppOptions
{
    /// The largest width and height that are looked at; a driver may draw less.
    static constexpr unsigned long kLargestSize = 32768;

    std::string robot; ///< URDF or native system file

    // What comes out; an empty path is not asked for.
    std::string output;
    std::string depth;
    std::string report;
    std::string convert;
    bool info = false;
    bool doctor = false;

    // The picture.
    unsigned int width = 1280; ///< pixels
    unsigned int height = 960;
    unsigned int samples = 4; ///< drawn pixels for each pixel of the picture: 1, 4, 9 or 16
    std::optional<KrColor> background;

    // The camera.
    std::optional<KrVector> eye; ///< world frame, m
    std::optional<KrVector> lookAt;
    std::optional<KrVector> up;
    std::optional<double> fieldOfView; ///< full vertical angle, rad
    double azimuth = 0.0;              ///< of the eye about z from +x, rad, for the automatic point of view
    double elevation = 0.0;            ///< of the eye above the horizon, rad
    bool useFileView = false;          ///< point of view, lights and background of the native file

    KrAppAids aids;

    // The pose.
    std::vector<std::pair<std::string, std::string>> joints; ///< name and value as they were typed, in that order
    std::string state;
    std::string trajectory;
    double framesPerSecond = 30.0;

    std::vector<std::string> packagePaths;
    bool strict = false;
    bool quiet = false;

    bool drawsPictures() const { return !output.empty() || !depth.empty(); }

    /// Reads the command line.
    /// @return false when the program is done (help, version); their text has been printed then
    /// Throws KrAppFailure (WrongUsage).
    bool parse(int argc, const char* const* argv);
};
