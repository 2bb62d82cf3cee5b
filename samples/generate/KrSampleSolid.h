#pragma once

#include <toolkit/math/KrCoordinateSystemTransformation.h>
#include <toolkit/math/KrPlanarVector.h>
#include <toolkit/math/KrVector.h>

#include <array>
#include <vector>

/// A point of a planar curve and the curve's outward normals before and after it; they differ at a sharp corner.
struct KrSampleCurvePoint
{
    double x = 0.0, y = 0.0;
    double inX = 0.0, inY = 0.0;
    double outX = 0.0, outY = 0.0;
};

/// A planar curve with exact normals, m. Closed curves run counter-clockwise; open ones have their outside on the
/// right.
using KrSampleCurve = std::vector<KrSampleCurvePoint>;

namespace KrSampleCurves
{

/// A corner of a polygon; `radius` rounds it.
struct Corner
{
    double x = 0.0, y = 0.0, radius = 0.0;
};

/// A polygon (closed) or polyline with rounded corners, `arcSteps` edges in each quarter turn of a rounding.
KrSampleCurve rounded(const std::vector<Corner>& corners, bool isClosed, unsigned int arcSteps = 4);
/// A rectangle about the origin.
KrSampleCurve rectangle(double width, double height, double radius, unsigned int arcSteps = 4);
/// Two circles, the first about the origin and the second at (length, 0), and the tangents that join them.
KrSampleCurve belt(double firstRadius, double secondRadius, double length, unsigned int steps = 28);
KrSampleCurve circle(double radius, unsigned int steps);

} // namespace KrSampleCurves

/// A closed body as a list of triangles, each corner with position, normal and texture coordinate. Metres.
class KrSampleSolid
{
public:
    struct Corner
    {
        KrVector position;
        KrVector normal;
        KrPlanarVector texture;
    };
    using Triangle = std::array<Corner, 3>;

    const std::vector<Triangle>& triangles() const { return m_triangles; }
    bool empty() const { return m_triangles.empty(); }
    void add(const KrSampleSolid& other);

    // Each moves the solid and returns it.
    KrSampleSolid& moved(double x, double y, double z);
    /// Fixed-axis roll, pitch, yaw, degrees.
    KrSampleSolid& turned(double roll, double pitch, double yaw);
    KrSampleSolid& scaled(double x, double y, double z);
    /// y becomes -y; the surface stays right side out.
    KrSampleSolid& mirrored();
    /// Texture coordinates from positions: `metres` to one width of the picture, seen along the axis that each triangle
    /// faces most.
    KrSampleSolid& boxMapped(double metres);
    /// Texture coordinates (x, y) / (width, depth) from the lower left corner of the solid seen from above.
    KrSampleSolid& topMapped(double width, double depth);

    /// The curve (x: distance from the axis, y: height) turned about the z axis. u runs once around, v from 0 to 1.
    static KrSampleSolid lathe(const KrSampleCurve& profile, unsigned int segments = 40);
    /// The closed outline drawn out from z = 0 to z = height, its edges rounded by `bevel`.
    static KrSampleSolid extrude(const KrSampleCurve& outline, double height, double bevel,
                                 unsigned int bevelSteps = 3);
    /// A cylinder on the xy plane, rim radius `rounding`.
    static KrSampleSolid cylinder(double radius, double height, double rounding = 0.0, unsigned int segments = 40);
    /// Between two radii on the xy plane.
    static KrSampleSolid ring(double inner, double outer, double height, double rounding, unsigned int segments = 40);
    static KrSampleSolid ball(double radius, unsigned int segments = 28);
    /// A box about the origin, its vertical edges rounded by `radius` and the others by `bevel`.
    static KrSampleSolid roundedBox(double x, double y, double z, double radius, double bevel);
    /// A round tube along a path through `points` (a smooth curve through them), closed at its ends.
    static KrSampleSolid tube(const std::vector<KrVector>& points, double radius, unsigned int segments = 12,
                              unsigned int stepsPerSpan = 6);

    /// A cross-section of a loft: a superellipse of half axes a, b and an exponent (2: ellipse, larger: boxier), in the
    /// yz plane at `x`, its centre at (y, z).
    struct Section
    {
        double x = 0.0, a = 0.0, b = 0.0, exponent = 2.0, y = 0.0, z = 0.0;
    };
    /// A smooth skin through sections ordered by x, with flat ends.
    static KrSampleSolid loft(const std::vector<Section>& sections, unsigned int segments = 36,
                              unsigned int stepsPerSpan = 4);
    /// `count` bolt heads around the z axis, standing on the xy plane.
    static KrSampleSolid boltCircle(unsigned int count, double circleRadius, double headRadius, double headHeight);

private:
    void addTriangle(const Corner& a, const Corner& b, const Corner& c);
    void addQuad(const Corner& a, const Corner& b, const Corner& c, const Corner& d);
    void addCap(const std::vector<KrVector>& outline, const KrVector& normal);
    template <typename Position, typename Direction>
    void map(Position&& position, Direction&& direction);

    std::vector<Triangle> m_triangles;
};
