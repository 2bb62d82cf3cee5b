#include "KrSampleSolid.h"

#include <algorithm>
#include <cmath>

namespace
{

constexpr double kPi = 3.14159265358979323846;

double radians(double degrees)
{
    return degrees * kPi / 180.0;
}

KrVector unit(KrVector v)
{
    v.normalize();
    return v;
}

double cross2(double ax, double ay, double bx, double by)
{
    return ax * by - ay * bx;
}

/// As many edges for a quarter turn of a rounding as its size deserves; exact normals make up for few.
unsigned int arcStepsFor(double radius, unsigned int wanted)
{
    const unsigned int deserved = radius < 0.0045 ? 1 : radius < 0.016 ? 2 : radius < 0.04 ? 3 : 8;
    return std::min(wanted, deserved);
}

/// As many divisions of a circle as its size deserves.
unsigned int segmentsFor(double radius, unsigned int wanted)
{
    return std::min(wanted, 10 + 2 * static_cast<unsigned int>(radius * 130.0));
}

/// A point with one normal.
KrSampleCurvePoint smoothPoint(double x, double y, double nx, double ny)
{
    return {x, y, nx, ny, nx, ny};
}

struct Edge
{
    double x = 0.0, y = 0.0, length = 0.0; ///< unit direction, length
};

Edge edgeBetween(const KrSampleCurves::Corner& a, const KrSampleCurves::Corner& b)
{
    const double x = b.x - a.x;
    const double y = b.y - a.y;
    const double length = std::hypot(x, y);
    return {x / length, y / length, length};
}

/// The corner with its rounding, between the edge that leads to it and the one that leaves it.
void appendCorner(KrSampleCurve& curve, const KrSampleCurves::Corner& corner, const Edge& in, const Edge& out,
                  unsigned int arcSteps)
{
    const double turn = std::atan2(cross2(in.x, in.y, out.x, out.y), in.x * out.x + in.y * out.y);
    if (corner.radius <= 0.0 || std::abs(turn) < 1e-9) {
        curve.push_back({corner.x, corner.y, in.y, -in.x, out.y, -out.x});
        return;
    }
    // The arc begins where the tangent from the corner touches the circle.
    const double tangent = corner.radius * std::tan(0.5 * std::abs(turn));
    const double side = turn > 0.0 ? 1.0 : -1.0; // left turn: the centre is on the left
    const double startX = corner.x - in.x * tangent;
    const double startY = corner.y - in.y * tangent;
    const double centerX = startX - side * in.y * corner.radius;
    const double centerY = startY + side * in.x * corner.radius;
    const unsigned int quarterSteps = arcStepsFor(corner.radius, arcSteps);
    const auto steps =
        static_cast<unsigned int>(std::max(1.0, std::ceil(quarterSteps * std::abs(turn) / (0.5 * kPi) - 1e-9)));
    for (unsigned int i = 0; i <= steps; ++i) {
        const double angle = turn * i / steps;
        const double nx = in.y * std::cos(angle) + in.x * std::sin(angle);
        const double ny = -in.x * std::cos(angle) + in.y * std::sin(angle);
        curve.push_back(smoothPoint(centerX + side * nx * corner.radius, centerY + side * ny * corner.radius, nx, ny));
    }
}

bool isInside(const KrVector& p, const KrVector& a, const KrVector& b, const KrVector& c)
{
    const auto side = [&p](const KrVector& from, const KrVector& to) {
        return cross2(to.x() - from.x(), to.y() - from.y(), p.x() - from.x(), p.y() - from.y());
    };
    return side(a, b) > 0.0 && side(b, c) > 0.0 && side(c, a) > 0.0;
}

bool isEar(const std::vector<KrVector>& points, const std::vector<std::size_t>& ring, std::size_t at)
{
    const std::size_t n = ring.size();
    const KrVector& a = points[ring[(at + n - 1) % n]];
    const KrVector& b = points[ring[at]];
    const KrVector& c = points[ring[(at + 1) % n]];
    if (cross2(b.x() - a.x(), b.y() - a.y(), c.x() - b.x(), c.y() - b.y()) <= 0.0) {
        return false;
    }
    return std::none_of(ring.begin(), ring.end(), [&](std::size_t i) { return isInside(points[i], a, b, c); });
}

/// Triangles of a simple polygon that runs counter-clockwise in its xy plane, by clipping ears.
std::vector<std::array<std::size_t, 3>> triangulate(const std::vector<KrVector>& points)
{
    std::vector<std::size_t> ring(points.size());
    for (std::size_t i = 0; i < ring.size(); ++i) {
        ring[i] = i;
    }
    std::vector<std::array<std::size_t, 3>> triangles;
    std::size_t at = 0;
    for (std::size_t misses = 0; ring.size() > 2 && misses < ring.size();) {
        at %= ring.size();
        if (!isEar(points, ring, at)) {
            ++at;
            ++misses;
            continue;
        }
        const std::size_t n = ring.size();
        triangles.push_back({ring[(at + n - 1) % n], ring[at], ring[(at + 1) % n]});
        ring.erase(ring.begin() + static_cast<std::ptrdiff_t>(at));
        // Going on two corners further spreads the triangles instead of fanning them.
        at += 1;
        misses = 0;
    }
    return triangles;
}

/// Catmull-Rom through the points, `steps` pieces in each span.
std::vector<KrVector> smoothPath(const std::vector<KrVector>& points, unsigned int steps)
{
    std::vector<KrVector> path;
    const std::size_t last = points.size() - 1;
    for (std::size_t i = 0; i < last; ++i) {
        const KrVector& b = points[i];
        const KrVector& c = points[i + 1];
        const KrVector a = i == 0 ? b + (b - c) : points[i - 1];
        const KrVector d = i + 1 == last ? c + (c - b) : points[i + 2];
        for (unsigned int k = 0; k < steps; ++k) {
            const double t = static_cast<double>(k) / steps;
            path.push_back(0.5 * (2.0 * b + t * (c - a) + (t * t) * (2.0 * a - 5.0 * b + 4.0 * c - d) +
                                  (t * t * t) * (3.0 * b - a - 3.0 * c + d)));
        }
    }
    path.push_back(points.back());
    return path;
}

double superellipse(double value, double exponent)
{
    return std::copysign(std::pow(std::abs(value), 2.0 / exponent), value);
}

/// Between b and c, a and d being their neighbours: a curve without kinks or overshoot through all of them (monotone
/// cubic Hermite).
KrSampleSolid::Section between(const KrSampleSolid::Section& a, const KrSampleSolid::Section& b,
                               const KrSampleSolid::Section& c, const KrSampleSolid::Section& d, double t)
{
    // Tangents follow the sections' distances: close sections do not make the skin swing.
    const auto mix = [&](double KrSampleSolid::Section::*part) {
        const auto slope = [part](const KrSampleSolid::Section& from, const KrSampleSolid::Section& to) {
            return to.x > from.x ? (to.*part - from.*part) / (to.x - from.x) : 0.0;
        };
        const double span = c.x - b.x;
        const double here = slope(b, c);
        // Where the value turns round, the tangent is level (no overshoot).
        const auto tangent = [](double left, double right) {
            return left * right <= 0.0 ? 0.0 : 2.0 * left * right / (left + right);
        };
        const double m0 = (a.x < b.x ? tangent(slope(a, b), here) : here) * span;
        const double m1 = (c.x < d.x ? tangent(here, slope(c, d)) : here) * span;
        const double t2 = t * t;
        const double t3 = t2 * t;
        return (2.0 * t3 - 3.0 * t2 + 1.0) * b.*part + (t3 - 2.0 * t2 + t) * m0 + (3.0 * t2 - 2.0 * t3) * c.*part +
               (t3 - t2) * m1;
    };
    using Section = KrSampleSolid::Section;
    return {b.x + (c.x - b.x) * t,   mix(&Section::a), mix(&Section::b),
            mix(&Section::exponent), mix(&Section::y), mix(&Section::z)};
}

} // namespace

KrSampleCurve KrSampleCurves::rounded(const std::vector<Corner>& corners, bool isClosed, unsigned int arcSteps)
{
    KrSampleCurve curve;
    const std::size_t n = corners.size();
    for (std::size_t i = 0; i < n; ++i) {
        const bool isEnd = !isClosed && (i == 0 || i + 1 == n);
        const Edge in = edgeBetween(isEnd && i == 0 ? corners[i] : corners[(i + n - 1) % n],
                                    isEnd && i == 0 ? corners[i + 1] : corners[i]);
        const Edge out = edgeBetween(isEnd && i != 0 ? corners[i - 1] : corners[i],
                                     isEnd && i != 0 ? corners[i] : corners[(i + 1) % n]);
        appendCorner(curve, corners[i], in, out, arcSteps);
    }
    return curve;
}

KrSampleCurve KrSampleCurves::rectangle(double width, double height, double radius, unsigned int arcSteps)
{
    const double x = 0.5 * width;
    const double y = 0.5 * height;
    return rounded({{x, -y, radius}, {x, y, radius}, {-x, y, radius}, {-x, -y, radius}}, true, arcSteps);
}

KrSampleCurve KrSampleCurves::belt(double firstRadius, double secondRadius, double length, unsigned int steps)
{
    // The tangents meet both circles under this angle from the line of centres.
    const double angle = std::acos((firstRadius - secondRadius) / length);
    KrSampleCurve curve;
    for (unsigned int i = 0; i <= steps; ++i) {
        const double a = -angle + 2.0 * angle * i / steps;
        curve.push_back(
            smoothPoint(length + secondRadius * std::cos(a), secondRadius * std::sin(a), std::cos(a), std::sin(a)));
    }
    for (unsigned int i = 0; i <= steps; ++i) {
        const double a = angle + 2.0 * (kPi - angle) * i / steps;
        curve.push_back(smoothPoint(firstRadius * std::cos(a), firstRadius * std::sin(a), std::cos(a), std::sin(a)));
    }
    return curve;
}

KrSampleCurve KrSampleCurves::circle(double radius, unsigned int steps)
{
    KrSampleCurve curve;
    for (unsigned int i = 0; i < steps; ++i) {
        const double a = 2.0 * kPi * i / steps;
        curve.push_back(smoothPoint(radius * std::cos(a), radius * std::sin(a), std::cos(a), std::sin(a)));
    }
    return curve;
}

void KrSampleSolid::add(const KrSampleSolid& other)
{
    m_triangles.insert(m_triangles.end(), other.m_triangles.begin(), other.m_triangles.end());
}

template <typename Position, typename Direction>
void KrSampleSolid::map(Position&& position, Direction&& direction)
{
    for (Triangle& triangle : m_triangles) {
        for (Corner& corner : triangle) {
            corner.position = position(corner.position);
            corner.normal = direction(corner.normal);
        }
    }
}

KrSampleSolid& KrSampleSolid::moved(double x, double y, double z)
{
    const KrVector by(x, y, z);
    map([&by](const KrVector& p) { return p + by; }, [](const KrVector& n) { return n; });
    return *this;
}

KrSampleSolid& KrSampleSolid::turned(double roll, double pitch, double yaw)
{
    KrCoordinateSystemTransformation turn;
    turn.setRollPitchYaw(radians(roll), radians(pitch), radians(yaw));
    const auto apply = [&turn](const KrVector& v) { return turn.transformDirection(v); };
    map(apply, apply);
    return *this;
}

KrSampleSolid& KrSampleSolid::scaled(double x, double y, double z)
{
    map([=](const KrVector& p) { return KrVector(p.x() * x, p.y() * y, p.z() * z); },
        [=](const KrVector& n) {
            return unit({n.x() / x, n.y() / y, n.z() / z});
        });
    return *this;
}

KrSampleSolid& KrSampleSolid::mirrored()
{
    const auto flip = [](const KrVector& v) { return KrVector(v.x(), -v.y(), v.z()); };
    map(flip, flip);
    for (Triangle& triangle : m_triangles) {
        std::swap(triangle[1], triangle[2]);
    }
    return *this;
}

KrSampleSolid& KrSampleSolid::boxMapped(double metres)
{
    for (Triangle& triangle : m_triangles) {
        const KrVector face =
            (triangle[1].position - triangle[0].position).cross(triangle[2].position - triangle[0].position);
        const double x = std::abs(face.x());
        const double y = std::abs(face.y());
        const double z = std::abs(face.z());
        for (Corner& corner : triangle) {
            const KrVector p = corner.position * (1.0 / metres);
            corner.texture = z >= x && z >= y ? KrPlanarVector(p.x(), p.y())
                             : x >= y         ? KrPlanarVector(p.y(), p.z())
                                              : KrPlanarVector(p.x(), p.z());
        }
    }
    return *this;
}

KrSampleSolid& KrSampleSolid::topMapped(double width, double depth)
{
    KrVector low(1e9, 1e9, 0.0);
    for (const Triangle& triangle : m_triangles) {
        for (const Corner& corner : triangle) {
            low.set(std::min(low.x(), corner.position.x()), std::min(low.y(), corner.position.y()), 0.0);
        }
    }
    for (Triangle& triangle : m_triangles) {
        for (Corner& corner : triangle) {
            corner.texture =
                KrPlanarVector((corner.position.x() - low.x()) / width, (corner.position.y() - low.y()) / depth);
        }
    }
    return *this;
}

void KrSampleSolid::addTriangle(const Corner& a, const Corner& b, const Corner& c)
{
    const KrVector area = (b.position - a.position).cross(c.position - a.position);
    if (area.length() > 1e-12) {
        m_triangles.push_back({a, b, c});
    }
}

void KrSampleSolid::addQuad(const Corner& a, const Corner& b, const Corner& c, const Corner& d)
{
    addTriangle(a, b, c);
    addTriangle(a, c, d);
}

/// The outline runs counter-clockwise seen from above and lies in a plane of equal z; `normal` is +z or -z.
void KrSampleSolid::addCap(const std::vector<KrVector>& outline, const KrVector& normal)
{
    for (const auto& [a, b, c] : triangulate(outline)) {
        const auto corner = [&](std::size_t i) { return Corner{outline[i], normal, {}}; };
        if (normal.z() > 0.0) {
            addTriangle(corner(a), corner(b), corner(c));
        } else {
            addTriangle(corner(a), corner(c), corner(b));
        }
    }
}

KrSampleSolid KrSampleSolid::lathe(const KrSampleCurve& profile, unsigned int segments)
{
    KrSampleSolid solid;
    double whole = 0.0;
    double largest = 0.0;
    for (const KrSampleCurvePoint& point : profile) {
        largest = std::max(largest, point.x);
    }
    segments = segmentsFor(largest, segments);
    std::vector<double> along(1, 0.0);
    for (std::size_t i = 1; i < profile.size(); ++i) {
        whole += std::hypot(profile[i].x - profile[i - 1].x, profile[i].y - profile[i - 1].y);
        along.push_back(whole);
    }
    const auto corner = [&](std::size_t i, unsigned int k, bool isOut) {
        const KrSampleCurvePoint& p = profile[i];
        const double a = 2.0 * kPi * k / segments;
        const double nx = isOut ? p.outX : p.inX;
        const double ny = isOut ? p.outY : p.inY;
        return Corner{{p.x * std::cos(a), p.x * std::sin(a), p.y},
                      {nx * std::cos(a), nx * std::sin(a), ny},
                      {static_cast<double>(k) / segments, along[i] / whole}};
    };
    for (std::size_t i = 0; i + 1 < profile.size(); ++i) {
        for (unsigned int k = 0; k < segments; ++k) {
            solid.addQuad(corner(i, k, true), corner(i, k + 1, true), corner(i + 1, k + 1, false),
                          corner(i + 1, k, false));
        }
    }
    return solid;
}

KrSampleSolid KrSampleSolid::extrude(const KrSampleCurve& outline, double height, double bevel, unsigned int bevelSteps)
{
    // Rings from below: (inset, z, tilt of the normal). A quarter circle rounds each edge.
    struct Ring
    {
        double inset, z, level, tilt;
    };
    std::vector<Ring> rings;
    bevelSteps = bevel > 0.0 ? arcStepsFor(bevel, bevelSteps) : 0;
    for (unsigned int i = 0; i <= bevelSteps; ++i) {
        const double a = bevelSteps == 0 ? 0.0 : -0.5 * kPi * (bevelSteps - i) / bevelSteps;
        rings.push_back({bevel * (1.0 - std::cos(a)), bevel * (1.0 + std::sin(a)), std::cos(a), std::sin(a)});
    }
    for (unsigned int i = 0; i <= bevelSteps; ++i) {
        const double a = bevelSteps == 0 ? 0.0 : 0.5 * kPi * i / bevelSteps;
        rings.push_back({bevel * (1.0 - std::cos(a)), height - bevel * (1.0 - std::sin(a)), std::cos(a), std::sin(a)});
    }

    const auto position = [](const KrSampleCurvePoint& p, const Ring& ring) {
        KrVector n = unit({p.inX + p.outX, p.inY + p.outY, 0.0});
        // At a sharp corner the inset goes along the mitre.
        const double mitre = std::max(0.3, n.x() * p.inX + n.y() * p.inY);
        return KrVector(p.x - n.x() * ring.inset / mitre, p.y - n.y() * ring.inset / mitre, ring.z);
    };
    const auto corner = [&position](const KrSampleCurvePoint& p, const Ring& ring, bool isOut) {
        const double nx = isOut ? p.outX : p.inX;
        const double ny = isOut ? p.outY : p.inY;
        return Corner{position(p, ring), {nx * ring.level, ny * ring.level, ring.tilt}, {}};
    };

    KrSampleSolid solid;
    const std::size_t n = outline.size();
    for (std::size_t r = 0; r + 1 < rings.size(); ++r) {
        for (std::size_t i = 0; i < n; ++i) {
            const KrSampleCurvePoint& a = outline[i];
            const KrSampleCurvePoint& b = outline[(i + 1) % n];
            solid.addQuad(corner(a, rings[r], true), corner(b, rings[r], false), corner(b, rings[r + 1], false),
                          corner(a, rings[r + 1], true));
        }
    }
    std::vector<KrVector> lower;
    std::vector<KrVector> upper;
    for (const KrSampleCurvePoint& p : outline) {
        lower.push_back(position(p, rings.front()));
        upper.push_back(position(p, rings.back()));
    }
    solid.addCap(lower, {0.0, 0.0, -1.0});
    solid.addCap(upper, {0.0, 0.0, 1.0});
    return solid;
}

KrSampleSolid KrSampleSolid::cylinder(double radius, double height, double rounding, unsigned int segments)
{
    return lathe(
        KrSampleCurves::rounded(
            {{0.0, 0.0, 0.0}, {radius, 0.0, rounding}, {radius, height, rounding}, {0.0, height, 0.0}}, false, 3),
        segments);
}

KrSampleSolid KrSampleSolid::ring(double inner, double outer, double height, double rounding, unsigned int segments)
{
    KrSampleCurve profile = KrSampleCurves::rounded(
        {{inner, 0.0, rounding}, {outer, 0.0, rounding}, {outer, height, rounding}, {inner, height, rounding}}, true,
        3);
    profile.push_back(profile.front());
    return lathe(profile, segments);
}

KrSampleSolid KrSampleSolid::ball(double radius, unsigned int segments)
{
    KrSampleCurve profile;
    const unsigned int steps = segments / 2;
    for (unsigned int i = 0; i <= steps; ++i) {
        const double a = -0.5 * kPi + kPi * i / steps;
        profile.push_back(smoothPoint(radius * std::cos(a), radius * std::sin(a), std::cos(a), std::sin(a)));
    }
    return lathe(profile, segments);
}

KrSampleSolid KrSampleSolid::roundedBox(double x, double y, double z, double radius, double bevel)
{
    KrSampleSolid solid = extrude(KrSampleCurves::rectangle(x, y, radius), z, bevel);
    return solid.moved(0.0, 0.0, -0.5 * z);
}

KrSampleSolid KrSampleSolid::tube(const std::vector<KrVector>& points, double radius, unsigned int segments,
                                  unsigned int stepsPerSpan)
{
    const std::vector<KrVector> path = smoothPath(points, stepsPerSpan);
    KrSampleSolid solid;
    KrVector tangent = unit(path[1] - path[0]);
    KrVector side = unit(tangent.cross(std::abs(tangent.z()) < 0.9 ? KrVector(0, 0, 1) : KrVector(1, 0, 0)));
    std::vector<Corner> before;
    for (std::size_t i = 0; i < path.size(); ++i) {
        tangent = unit(path[std::min(i + 1, path.size() - 1)] - path[i == 0 ? 0 : i - 1]);
        // The frame is carried along the path, so that the tube does not twist.
        side = unit(side - tangent * side.dot(tangent));
        const KrVector up = tangent.cross(side);
        std::vector<Corner> ring;
        for (unsigned int k = 0; k <= segments; ++k) {
            const double a = 2.0 * kPi * k / segments;
            const KrVector n = side * std::cos(a) + up * std::sin(a);
            ring.push_back({path[i] + n * radius, n, {}});
        }
        for (unsigned int k = 0; k < segments && !before.empty(); ++k) {
            solid.addQuad(before[k], before[k + 1], ring[k + 1], ring[k]);
        }
        const bool isFirst = i == 0;
        for (unsigned int k = 0; k < segments && (isFirst || i + 1 == path.size()); ++k) {
            const KrVector n = isFirst ? -tangent : tangent;
            const Corner hub{path[i], n, {}};
            const Corner a{ring[k].position, n, {}};
            const Corner b{ring[k + 1].position, n, {}};
            solid.addTriangle(hub, isFirst ? b : a, isFirst ? a : b);
        }
        before = ring;
    }
    return solid;
}

KrSampleSolid KrSampleSolid::loft(const std::vector<Section>& sections, unsigned int segments,
                                  unsigned int stepsPerSpan)
{
    std::vector<Section> fine;
    double largest = 0.0;
    for (const Section& section : sections) {
        largest = std::max({largest, section.a, section.b});
    }
    segments = segmentsFor(largest, segments);
    for (std::size_t i = 0; i + 1 < sections.size(); ++i) {
        for (unsigned int k = 0; k < stepsPerSpan; ++k) {
            const Section& before = sections[i == 0 ? 0 : i - 1];
            const Section& after = sections[std::min(i + 2, sections.size() - 1)];
            fine.push_back(between(before, sections[i], sections[i + 1], after, static_cast<double>(k) / stepsPerSpan));
        }
    }
    fine.push_back(sections.back());

    const auto point = [&](std::size_t i, unsigned int k) {
        const Section& s = fine[i];
        const double a = 2.0 * kPi * (k % segments) / segments;
        return KrVector(s.x, s.y + s.a * superellipse(std::cos(a), s.exponent),
                        s.z + s.b * superellipse(std::sin(a), s.exponent));
    };
    const auto corner = [&](std::size_t i, unsigned int k) {
        const KrVector along = point(std::min(i + 1, fine.size() - 1), k) - point(i == 0 ? 0 : i - 1, k);
        const KrVector around = point(i, k + 1) - point(i, k + segments - 1);
        return Corner{point(i, k),
                      unit(around.cross(along)),
                      {static_cast<double>(k) / segments, static_cast<double>(i) / static_cast<double>(fine.size())}};
    };
    KrSampleSolid solid;
    for (std::size_t i = 0; i + 1 < fine.size(); ++i) {
        for (unsigned int k = 0; k < segments; ++k) {
            solid.addQuad(corner(i, k), corner(i, k + 1), corner(i + 1, k + 1), corner(i + 1, k));
        }
    }
    for (const std::size_t i : {std::size_t{0}, fine.size() - 1}) {
        const KrVector n(i == 0 ? -1.0 : 1.0, 0.0, 0.0);
        const Corner hub{{fine[i].x, fine[i].y, fine[i].z}, n, {}};
        for (unsigned int k = 0; k < segments; ++k) {
            const Corner a{point(i, k), n, {}};
            const Corner b{point(i, k + 1), n, {}};
            solid.addTriangle(hub, i == 0 ? b : a, i == 0 ? a : b);
        }
    }
    return solid;
}

KrSampleSolid KrSampleSolid::boltCircle(unsigned int count, double circleRadius, double headRadius, double headHeight)
{
    KrSampleSolid solid;
    for (unsigned int i = 0; i < count; ++i) {
        const double a = 2.0 * kPi * (i + 0.5) / count;
        KrSampleSolid bolt = lathe(KrSampleCurves::rounded({{headRadius, 0.0, 0.0},
                                                            {headRadius, 0.75 * headHeight, 0.0},
                                                            {0.8 * headRadius, headHeight, 0.0},
                                                            {0.0, headHeight, 0.0}},
                                                           false),
                                   10);
        solid.add(bolt.moved(circleRadius * std::cos(a), circleRadius * std::sin(a), 0.0));
    }
    return solid;
}
