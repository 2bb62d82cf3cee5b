#include <rendCore/capture/KrOpticalFrame.h>

#include <toolkit/foundation/KrPrint.h>

#include <cmath>

osg::Matrixd KrOpticalFrame::otherConvention(const osg::Matrixd& view)
{
    // A half turn about x: y and z of the eye's axes change their signs. It is its own inverse.
    osg::Matrixd other = view;
    for (int row = 0; row < 4; ++row) {
        // Row vectors: the columns are the axes of the eye.
        other(row, 1) = -view(row, 1);
        other(row, 2) = -view(row, 2);
    }
    return other;
}

bool KrOpticalFrame::toPov(const KrCoordinateSystemTransformation& opticalToWorld, double distance,
                           KrPovParameters& pov)
{
    // Written so that NaN fails, too.
    if (!opticalToWorld.isFinite() || !std::isfinite(distance) || !(distance > 0.0)) {
        const KrVector& eye = opticalToWorld.translation();
        Kr::Print::instance()->write(
            Kr::Print::Warning,
            "KrOpticalFrame::toPov - no point of view: camera at (%g, %g, %g), centre of interest %g m away.\n",
            eye.x(), eye.y(), eye.z(), distance);
        return false;
    }
    const KrVector& eye = opticalToWorld.translation();
    // The field of view is no part of a pose and stays.
    pov.setEyepoint(eye);
    pov.setCenterOfInterest(eye + opticalToWorld.transformDirection(KrVector(0.0, 0.0, distance)));
    pov.setUp(opticalToWorld.transformDirection(KrVector(0.0, -1.0, 0.0)));
    return true;
}
