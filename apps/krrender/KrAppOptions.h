#pragma once

#include "KrAppRangeMap.h"

#include <import/KrImportOptions.h>
#include <picture/KrAids.h>
#include <rendCore/capture/KrFrameCapture.h>
#include <rendCore/capture/KrFrameDescription.h>
#include <rendCore/model/KrLabelTable.h>
#include <rendCore/window/KrCameraIntrinsics.h>
#include <toolkit/math/KrColor.h>
#include <toolkit/math/KrVector.h>
#include <toolkit/visualization/KrPovParameters.h>

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace CLI
{
class App;
}

/// What the command line asks for.
struct KrAppOptions
{
    /// The largest width and height that are looked at; a driver may draw less.
    static constexpr unsigned long kLargestSize = 32768;
    static constexpr double kLeastFramesPerSecond = 0.1;
    static constexpr double kMostFramesPerSecond = 1000.0;

    std::string robot; ///< URDF or native system file

    // What comes out; an empty path is not asked for, "-" is standard output.
    std::string output;
    std::string depth; ///< metres or millimetres
    KrDepthCapture::Kind depthKind = KrDepthCapture::Kind::Planar;
    std::string depthPreview;  ///< a grey picture
    std::string labels;        ///< which part each pixel shows
    std::string labelsPreview; ///< the same in colours
    KrLabelTable::Level labelLevel = KrLabelTable::Level::Link;
    std::string normals; ///< of the surfaces
    KrFrameCapture::NormalFrame normalFrame = KrFrameCapture::NormalFrame::Optical;
    KrAppRangeMap rangeMap;
    std::optional<std::pair<unsigned int, unsigned int>> pick; ///< a pixel, from the upper left corner, to be told of
    std::string report;
    std::string convert;
    bool sidecar = false;    ///< a description beside each picture
    std::string sidecarPath; ///< of the only picture's, where it is not to be beside it
    bool info = false;
    bool doctor = false;
    bool selfTest = false;
    std::string selfTestFolder; ///< empty for that of krAppSelfTest
    bool view = false;          ///< in a window on the screen

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
    std::vector<std::string> views;    ///< names of KrViewSide, each a tile of the picture; empty for one view
    std::string camera;                ///< description of a picture: where its camera stood and what it was
    std::optional<KrCameraIntrinsics> intrinsics;
    std::optional<KrPovParameters> pov; ///< of `camera`
    bool isSizeGiven = false;

    KrAids aids;

    // The pose.
    std::vector<std::pair<std::string, std::string>> joints; ///< name and value as they were typed, in that order
    std::string state;
    std::string trajectory;
    std::optional<double> framesPerSecond; ///< at which the states of a motion follow each other

    KrImportOptions import; ///< with a cache, unless it is not wanted
    bool exact = false;     ///< every triangle is drawn
    bool strict = false;
    bool quiet = false;

    /// Whether standard output is one of the files, so that nothing else may be told there.
    bool isStandardOutputTaken() const;
    /// The pictures that are asked for: files, or patterns for their names.
    std::vector<std::string> pictures() const;
    bool drawsPictures() const { return !pictures().empty(); }
    bool drawsLabels() const { return !labels.empty() || !labelsPreview.empty(); }

    double verticalFieldOfView() const; ///< rad
    /// Of the automatic point of view.
    KrVector towardsEye() const;
    /// The error that meshes may show, drawn pixels.
    float levelOfDetail() const { return exact ? 0.0f : 0.5f; }

    /// Where the description of `picture` is written: beside it as `picture`.json, or as --sidecar has it.
    std::string sidecarOf(const std::string& picture) const;
    /// Stands where the camera of another picture, that of --camera, stood, with its size and intrinsics where the
    /// command line has none. Throws KrAppFailure (CouldNot) when it tells no intrinsics, or too large a picture.
    void standAs(const KrFrameDescription& frame);

    /// Reads the command line.
    /// @return false when the program is done (help, version); their text has been printed then
    /// Throws KrAppFailure (WrongUsage).
    bool parse(int argc, const char* const* argv);
    /// Shows `reader` every option with its names, group and words, for the length of the call.
    static void describe(const std::function<void(const CLI::App&)>& reader);
};
