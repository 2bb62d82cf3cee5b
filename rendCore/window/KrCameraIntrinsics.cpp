#include <rendCore/window/KrCameraIntrinsics.h>

#include <cmath>

namespace
{

/// Single precision holds a number of this size, and its inverse.
constexpr double kLargestNumber = 1e30;

// Written so that NaN fails too.
bool isModest(double value)
{
    return std::abs(value) < kLargestNumber;
}

bool isPositiveAndModest(double value)
{
    return isModest(value) && value > 1.0 / kLargestNumber;
}

} // namespace

KrCameraIntrinsics KrCameraIntrinsics::fromFieldOfView(double fieldOfView, unsigned int width, unsigned int height)
{
    // Pixels are square and the axis goes through the middle: half the height is seen under half the angle.
    const double focal = 0.5 * height / std::tan(0.5 * fieldOfView);
    return {width, height, focal, focal, 0.5 * width, 0.5 * height};
}

bool KrCameraIntrinsics::fromProjection(const osg::Matrixd& projection, unsigned int width, unsigned int height,
                                        KrCameraIntrinsics& out)
{
    const osg::Matrixd& p = projection;
    // The four numbers tell a camera that does not mix x with y and whose rays leave one point.
    const bool isSheared = p(0, 1) != 0.0 || p(1, 0) != 0.0 || p(3, 0) != 0.0 || p(3, 1) != 0.0;
    const bool isPerspective = p(0, 3) == 0.0 && p(1, 3) == 0.0 && p(2, 3) == -1.0 && p(3, 3) == 0.0;
    if (isSheared || !isPerspective) {
        return false;
    }
    const KrCameraIntrinsics found = {
        width,
        height,
        0.5 * width * p(0, 0),
        0.5 * height * p(1, 1),
        0.5 * width * (1.0 - p(2, 0)),
        0.5 * height * (1.0 + p(2, 1)),
    };
    if (!found.isValid()) {
        return false;
    }
    out = found;
    return true;
}

bool KrCameraIntrinsics::isValid() const
{
    return width > 0 && height > 0 && isPositiveAndModest(fx) && isPositiveAndModest(fy) && isModest(cx) &&
           isModest(cy);
}

osg::Matrixd KrCameraIntrinsics::projection(double near, double far) const
{
    const double w = width;
    const double h = height;
    const double depth = near - far;
    // The transposed matrix: scene graph matrices multiply row vectors.
    return osg::Matrixd(2.0 * fx / w, 0.0, 0.0, 0.0,                                        //
                        0.0, 2.0 * fy / h, 0.0, 0.0,                                        //
                        1.0 - 2.0 * cx / w, 2.0 * cy / h - 1.0, (near + far) / depth, -1.0, //
                        0.0, 0.0, 2.0 * near * far / depth, 0.0);
}

KrCameraIntrinsics KrCameraIntrinsics::scaledTo(unsigned int newWidth, unsigned int newHeight) const
{
    // Each direction has its own scale: pixels may become oblong.
    const double x = static_cast<double>(newWidth) / width;
    const double y = static_cast<double>(newHeight) / height;
    return {newWidth, newHeight, fx * x, fy * y, cx * x, cy * y};
}

double KrCameraIntrinsics::fieldOfView() const
{
    // Of a camera whose axis goes through the middle.
    return 2.0 * std::atan(0.5 * height / fy);
}

bool operator==(const KrCameraIntrinsics& a, const KrCameraIntrinsics& b)
{
    return a.width == b.width && a.height == b.height && a.fx == b.fx && a.fy == b.fy && a.cx == b.cx && a.cy == b.cy;
}
