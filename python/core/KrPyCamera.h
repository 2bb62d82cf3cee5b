#pragma once

#include "KrPyPose.h"

#include <picture/KrFraming.h>
#include <rendCore/window/KrCameraIntrinsics.h>
#include <toolkit/visualization/KrPovParameters.h>

#include <optional>

class KrPySystem;

/// A camera for pictures of one size.
struct KrPyCamera
{
    KrPovParameters pov;
    std::optional<KrCameraIntrinsics> intrinsics; ///< of a picture of that size; none: the point of view's angle

    /// From a direction, so near that every pose of `poses` fits the picture; the system's own where there is none.
    /// Throws KrPyFailure (Argument).
    /// @param azimuth, elevation  of the eye, about z from +x and above the horizon, rad
    /// @param fieldOfView         full vertical angle, rad
    static KrPyCamera fit(const KrPySystem& system, const std::vector<KrPyPose>& poses, const KrFraming::Shown& shown,
                          double azimuth, double elevation, double fieldOfView, double aspectRatio);
    /// From an eye point. Throws KrPyFailure (Argument).
    static KrPyCamera lookAt(const KrVector& eye, const KrVector& target, const KrVector& up, double fieldOfView);
    /// From numbers. Throws KrPyFailure (Argument).
    /// @param opticalToWorld  the camera's pose: x right, y down, z forward
    static KrPyCamera pinhole(const KrCameraIntrinsics& intrinsics,
                              const KrCoordinateSystemTransformation& opticalToWorld);
};
