#pragma once

#include <osg/Matrixd>
#include <osg/Vec2d>
#include <osg/Vec3d>

/// A pinhole camera without distortion, in pixels of one picture.
///
/// Picture coordinates (u, v): the origin is the outer corner of the upper left pixel, u runs to the right, v down;
/// pixel (column, row), row 0 at the top, has its centre at (column + 0.5, row + 0.5). Optical camera axes: x right, y
/// down, z forward. A point (x, y, z) in them is seen at
///
///     u = fx x / z + cx        v = fy y / z + cy
///
/// The principal point (cx, cy) may lie anywhere, outside the picture, too; the middle is (width / 2, height / 2).
/// Programs that put pixel centres at whole numbers use a cx and a cy that are smaller by 0.5.
struct KrCameraIntrinsics
{
    unsigned int width = 0; ///< pixels
    unsigned int height = 0;
    double fx = 0.0; ///< focal lengths, pixels
    double fy = 0.0;
    double cx = 0.0; ///< principal point, pixels
    double cy = 0.0;

    /// The camera of a full vertical angle of view, rad, in (0, pi): square pixels, principal point in the middle.
    static KrCameraIntrinsics fromFieldOfView(double fieldOfView, unsigned int width, unsigned int height);
    /// The camera that `projection` is for a picture of `width` x `height` pixels. Exact but for rounding.
    /// @return false, and `out` as it was, for a projection that is not perspective or is sheared
    static bool fromProjection(const osg::Matrixd& projection, unsigned int width, unsigned int height,
                               KrCameraIntrinsics& out);

    /// Whether there is such a camera: a size, focal lengths above 0, all numbers finite and of a size that OpenGL's
    /// single precision holds.
    bool isValid() const;

    /// The OpenGL projection: eye axes x right, y up, z backward, to a clip space that the viewport spreads over the
    /// whole picture.
    ///
    ///     2 fx / w      0       1 - 2 cx / w       0
    ///        0      2 fy / h    2 cy / h - 1       0
    ///        0          0       (n + f) / (n - f)  2 n f / (n - f)
    ///        0          0          -1              0
    ///
    /// for column vectors (osg::Matrixd holds the transposed one); glFrustum's matrix (OpenGL 2.1, section 2.11.2) with
    /// left = -n cx / fx, right = n (w - cx) / fx, bottom = -n (h - cy) / fy, top = n cy / fy.
    ///
    /// @param near, far  distances of the clipping planes, m, 0 < near < far
    osg::Matrixd projection(double near, double far) const;

    /// The same camera for a picture of another size that shows the same: every number is scaled, each direction by
    /// itself.
    KrCameraIntrinsics scaledTo(unsigned int newWidth, unsigned int newHeight) const;

    /// Where a point in optical camera axes is seen, pixels. Only what is in front of the camera (z > 0) is seen.
    osg::Vec2d project(const osg::Vec3d& point) const
    {
        return {fx * point.x() / point.z() + cx, fy * point.y() / point.z() + cy};
    }

    /// Full vertical angle of view, rad; of a camera whose principal point is in the middle of that of
    /// `fromFieldOfView`.
    double fieldOfView() const;
};

/// Whether every number is the same.
bool operator==(const KrCameraIntrinsics& a, const KrCameraIntrinsics& b);
inline bool operator!=(const KrCameraIntrinsics& a, const KrCameraIntrinsics& b)
{
    return !(a == b);
}
