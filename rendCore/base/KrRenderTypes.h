#pragma once

#include <osg/Matrixd>
#include <osg/Quat>
#include <osg/Vec3d>
#include <osg/Vec3f>
#include <osg/Vec4d>

#include <iosfwd>

class KrColor;
class KrOrientation;
class KrTransformation;
class KrVector;

/// Conversions between the toolkit's value types ("ec") and the scene graph's ("osg"), and the bit masks that the
/// render core shares. All are plain copies, without a change of unit or axis.
class KrRenderTypes
{
public:
    /// Bits of a render shape's attribute word.
    enum Attributes : unsigned int
    {
        NoDisplayList = 0x1, ///< the geometry changes: no display lists
        Unfaded = 0x2        ///< cleared on a shape that selection draws faded
    };

    /// Node masks, and bits of a window's display masks.
    enum DisplayAttributes : unsigned int
    {
        SceneContent = 0x1,
        BoundingVolumes = 0x2,
        LinkAxes = 0x4,
        MassProperties = 0x8,
        CollisionShapes = 0x10,
        GlobalAxisMarker = 0x1000,
        CenterOfInterestMarker = 0x2000
    };

    KrRenderTypes() = delete;

    static osg::Vec4d ec2osg(const KrColor& color); ///< red, green, blue, alpha
    /// x, y, z; what is not finite stays so.
    static osg::Vec3d ec2osg(const KrVector& vector);
    static void ec2osg(const KrVector& vector, osg::Vec3d& out);
    static KrVector osg2ec(const osg::Vec3d& vector);
    static void osg2ec(const osg::Vec3d& vector, KrVector& out);
    /// Component by component (x, y, z, w), not normalised.
    static osg::Quat ec2osg(const KrOrientation& orientation);
    /// Component by component, then normalised.
    static void osg2ec(const osg::Quat& quat, KrOrientation& out);
    static osg::Matrixd ec2osg(const KrTransformation& transformation);
    static void osg2ec(const osg::Matrixd& matrix, KrTransformation& out);

    /// Round trips. False, after one message, when something is wrong.
    static bool selfTest();
};

// Text forms for diagnostics. Not to be included together with <osg/io_utils>, which declares the same operators.

/// "x, y, z, w"
std::ostream& operator<<(std::ostream& stream, const osg::Quat& quat);
/// "x, y, z"
std::ostream& operator<<(std::ostream& stream, const osg::Vec3f& vector);
/// "Quat(x, y, z, w), trans(x, y, z)", the translation in single precision; scale and shear are not shown.
std::ostream& operator<<(std::ostream& stream, const osg::Matrixd& matrix);
