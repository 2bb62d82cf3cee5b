#include <rendCore/base/KrRenderTypes.h>

#include <rendCore/base/KrTransformation.h>

#include <toolkit/math/KrColor.h>
#include <toolkit/math/KrOrientation.h>
#include <toolkit/math/KrVector.h>

#include <algorithm>
#include <ostream>

osg::Vec4d KrRenderTypes::ec2osg(const KrColor& color)
{
    // Kept: each channel is read once, alpha first. The accessors are virtual: a client's own colours see these calls.
    const double alpha = color.alpha();
    const double blue = color.blue();
    const double green = color.green();
    const double red = color.red();
    return {red, green, blue, alpha};
}

// Kept, in all of these: plain copies, NaN too. What goes over and comes back is the same to the last bit, as the
// centre of interest that an input handler is asked for.
osg::Vec3d KrRenderTypes::ec2osg(const KrVector& vector)
{
    return {vector.x(), vector.y(), vector.z()};
}

void KrRenderTypes::ec2osg(const KrVector& vector, osg::Vec3d& out)
{
    out.set(vector.x(), vector.y(), vector.z());
}

KrVector KrRenderTypes::osg2ec(const osg::Vec3d& vector)
{
    return KrVector(vector.x(), vector.y(), vector.z());
}

void KrRenderTypes::osg2ec(const osg::Vec3d& vector, KrVector& out)
{
    out.set(vector.x(), vector.y(), vector.z());
}

osg::Quat KrRenderTypes::ec2osg(const KrOrientation& orientation)
{
    // The same order on both sides, the scalar last.
    return {orientation[0], orientation[1], orientation[2], orientation[3]};
}

void KrRenderTypes::osg2ec(const osg::Quat& quat, KrOrientation& out)
{
    for (unsigned int i = 0; i < 4; ++i) {
        out[i] = quat[i];
    }
    // Kept: only this direction normalises. Clients get unit orientations, and the scene the numbers that clients gave.
    out.normalize();
}

osg::Matrixd KrRenderTypes::ec2osg(const KrTransformation& transformation)
{
    KrTransformation copy(transformation); // getEntry is not const
    // The 16 numbers as they lie: one side reads them by columns for column vectors, the
    // other by rows for row vectors.
    return osg::Matrixd(copy.getEntry());
}

void KrRenderTypes::osg2ec(const osg::Matrixd& matrix, KrTransformation& out)
{
    // `assign` is virtual and takes what it may change: it gets a copy.
    double entries[16];
    std::copy_n(matrix.ptr(), 16, entries);
    out.assign(entries);
}

std::ostream& operator<<(std::ostream& stream, const osg::Quat& quat)
{
    return stream << quat.x() << ", " << quat.y() << ", " << quat.z() << ", " << quat.w();
}

std::ostream& operator<<(std::ostream& stream, const osg::Vec3f& vector)
{
    return stream << vector.x() << ", " << vector.y() << ", " << vector.z();
}

// For messages and logs: no scale, no shear, so nothing can be read back from it.
std::ostream& operator<<(std::ostream& stream, const osg::Matrixd& matrix)
{
    // Kept: the translation passes through single precision, which shows in logs of a high precision: 0.1 is
    // 0.10000000149 there.
    const osg::Vec3f translation(matrix.getTrans());
    return stream << "Quat(" << matrix.getRotate() << "), trans(" << translation << ")";
}
