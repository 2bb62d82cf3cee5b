#include <rendCore/system/private/KrViewPlacement.h>

#include <rendCore/base/KrRenderTypes.h>

#include <toolkit/math/KrCoordinateSystemTransformation.h>
#include <toolkit/math/KrVector.h>

#include <cmath>

namespace
{

/// Up for a line of sight (length 1) that the wanted up is parallel to.
osg::Vec3d otherUp(const osg::Vec3d& look)
{
    // z where the view is not along it, else y: one of the two is far from parallel.
    return std::abs(look.z()) < 0.9 ? osg::Vec3d(0.0, 0.0, 1.0) : osg::Vec3d(0.0, 1.0, 0.0);
}

} // namespace

osg::Matrixd KrViewPlacement::worldToFrame(const KrCoordinateSystemTransformation& frameToWorld)
{
    osg::Matrixd matrix;
    frameToWorld.inverse().assign16(matrix.ptr());
    return matrix;
}

bool KrViewPlacement::lookAt(const KrVector& from, const KrVector& to, const KrVector& upward,
                             osg::Matrixd& worldToCamera)
{
    const osg::Vec3d eye = KrRenderTypes::ec2osg(from);
    osg::Vec3d look = KrRenderTypes::ec2osg(to) - eye;
    osg::Vec3d up = KrRenderTypes::ec2osg(upward);
    up.normalize();
    const double distance = look.normalize();
    // Eye and centre in one place look nowhere; the matrix stays as it is.
    if (!(distance > 0.0) || !std::isfinite(distance)) {
        return false;
    }
    constexpr double kParallel = 1e-9; // rad
    // Written so that NaN is replaced as well; an up of no length gives 0.
    if (!((look ^ up).length() > kParallel)) {
        up = otherUp(look);
    }
    // A metre ahead, however far the centre is.
    worldToCamera = osg::Matrixd::lookAt(eye, eye + look, up);
    return true;
}

osg::Matrixd KrViewPlacement::projection(double fieldOfView, unsigned int width, unsigned int height, double near,
                                         double far)
{
    // As the main camera's, but for the size of the picture.
    const double top = std::tan(0.5 * fieldOfView) * near;
    const double right = top * width / height;
    return osg::Matrixd::frustum(-right, right, -top, top, near, far);
}
