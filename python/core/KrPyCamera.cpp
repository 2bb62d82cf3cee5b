#include "KrPyCamera.h"

#include "KrPyFailure.h"
#include "KrPySystem.h"

#include <rendCore/capture/KrOpticalFrame.h>
#include <toolkit/foundation/KrReason.h>

#include <cmath>

namespace
{

[[noreturn]] void refuse(const std::string& sentence)
{
    throw KrPyFailure(KrPyFailure::Kind::Argument, sentence);
}

/// Written so that NaN fails, too.
void checkFieldOfView(double angle)
{
    if (!(angle > 0.0 && angle < Kr::Angle::kPi)) {
        refuse("the field of view is an angle between 0 and pi, not " + std::to_string(angle));
    }
}

} // namespace

KrPyCamera KrPyCamera::fit(const KrPySystem& system, const std::vector<KrPyPose>& poses, const KrFraming::Shown& shown,
                           double azimuth, double elevation, double fieldOfView, double aspectRatio)
{
    checkFieldOfView(fieldOfView);
    if (!std::isfinite(azimuth) || !std::isfinite(elevation)) {
        refuse("azimuth and elevation are finite angles");
    }
    KrFraming framing(KrFraming::towardsEye(azimuth, elevation), KrVector(0.0, 0.0, 1.0), fieldOfView, aspectRatio);
    framing.setShown(shown);
    KrPyPoser poser(system);
    for (const KrPyPose& pose : poses) {
        framing.add(system.ofThread().manipulatorSystem(), poser.state(pose));
    }
    KrPyCamera camera;
    camera.pov = framing.pov();
    return camera;
}

KrPyCamera KrPyCamera::lookAt(const KrVector& eye, const KrVector& target, const KrVector& up, double fieldOfView)
{
    checkFieldOfView(fieldOfView);
    const KrReason said;
    KrPyCamera camera;
    // Made upright by the same rule as a camera that is fitted, where one looks along `up`, for one.
    const KrVector towardsEye = eye - target;
    if (!(towardsEye.length() > 0.0) || !(up.length() > 0.0) || !std::isfinite(towardsEye.length() + up.length())) {
        refuse("eye and target are two places, and up is a direction; all numbers are finite");
    }
    const KrVector upright = KrFraming(towardsEye, up, fieldOfView, 1.0).pov().up();
    if (!camera.pov.setEyepoint(eye) || !camera.pov.setCenterOfInterest(target) || !camera.pov.setUp(upright) ||
        !camera.pov.setFieldOfView(fieldOfView)) {
        refuse(said.text("there is no such camera"));
    }
    return camera;
}

KrPyCamera KrPyCamera::pinhole(const KrCameraIntrinsics& intrinsics,
                               const KrCoordinateSystemTransformation& opticalToWorld)
{
    // What an orbiting camera would turn about; the picture does not depend on it.
    constexpr double kDistance = 1.0;
    const KrReason said;
    KrPyCamera camera;
    if (!intrinsics.isValid()) {
        refuse("K holds no camera: focal lengths are above 0, and all numbers finite");
    }
    if (!KrOpticalFrame::toPov(opticalToWorld, kDistance, camera.pov)) {
        refuse(said.text("T_world_camera is no pose"));
    }
    camera.intrinsics = intrinsics;
    return camera;
}
