#include "KrSampleSystems.h"

#include <cmath>
#include <map>
#include <string>

namespace
{

using Solid = KrSampleSolid;
using Type = KrJointKinematics::Type;
using Kind = KrSampleVolume::Kind;
constexpr double kPi = 3.14159265358979323846;

const char* const kShell = "white_shell";
const char* const kJoint = "graphite";
const char* const kAccent = "teal_accent";
const char* const kMetal = "brushed_metal";
const char* const kRubber = "soft_rubber";
const char* const kGlass = "dark_glass";

double radians(double degrees)
{
    return degrees * kPi / 180.0;
}

Solid alongX(Solid solid)
{
    return solid.turned(0.0, 90.0, 0.0);
}
Solid alongY(Solid solid)
{
    return solid.turned(-90.0, 0.0, 0.0);
}
/// A skin made along x hangs down: its x becomes -z, its z becomes x.
Solid hanging(Solid solid)
{
    return solid.turned(0.0, 90.0, 0.0);
}
/// A skin made along x stands up: its x becomes z, its z becomes -x.
Solid standing(Solid solid)
{
    return solid.turned(0.0, -90.0, 0.0);
}

/// A joint module along y about the origin: body, accent rings and end covers.
void addModule(KrSampleLink& link, double radius, double width, const KrVector& at)
{
    const double half = 0.5 * width;
    link.add(kJoint, alongY(Solid::cylinder(radius, width, 0.006, 24)).moved(at.x(), at.y() - half, at.z()));
    for (const double side : {1.0, -1.0}) {
        Solid ring = Solid::ring(0.60 * radius, 0.74 * radius, 0.0035, 0.0, 24);
        Solid lid = Solid::cylinder(0.55 * radius, 0.005, 0.002, 18);
        link.add(kAccent, ring.turned(-90.0 * side, 0.0, 0.0).moved(at.x(), at.y() + side * half, at.z()));
        link.add(kJoint, lid.turned(-90.0 * side, 0.0, 0.0).moved(at.x(), at.y() + side * half, at.z()));
    }
}

KrSampleLink base()
{
    KrSampleLink link;
    link.name = "base";
    link.density = 550.0;
    const KrSampleCurve plan = KrSampleCurves::rectangle(0.60, 0.46, 0.13, 5);
    link.add(kJoint,
             Solid::extrude(KrSampleCurves::rectangle(0.57, 0.43, 0.12, 4), 0.09, 0.015).moved(0.0, 0.0, 0.045));
    link.add(kShell, Solid::extrude(plan, 0.105, 0.012).moved(0.0, 0.0, 0.105));
    link.add(kAccent,
             Solid::extrude(KrSampleCurves::rectangle(0.594, 0.454, 0.128, 5), 0.014, 0.0).moved(0.0, 0.0, 0.209));
    link.add(kShell, Solid::extrude(plan, 0.085, 0.035, 4).moved(0.0, 0.0, 0.222));
    // The laser scanner looks out of a dark slot in front.
    link.add(kGlass, Solid::cylinder(0.048, 0.035, 0.004, 32).moved(0.215, 0.0, 0.304));
    link.add(kShell, Solid::cylinder(0.052, 0.014, 0.006, 32).moved(0.215, 0.0, 0.339));
    // The lift's outer column.
    link.add(kJoint,
             Solid::extrude(KrSampleCurves::rectangle(0.17, 0.19, 0.045), 0.32, 0.008).moved(-0.10, 0.0, 0.295));
    link.add(kJoint,
             Solid::extrude(KrSampleCurves::rectangle(0.22, 0.24, 0.06), 0.025, 0.008).moved(-0.10, 0.0, 0.300));
    link.add(kAccent,
             Solid::extrude(KrSampleCurves::rectangle(0.172, 0.192, 0.046), 0.008, 0.0).moved(-0.10, 0.0, 0.585));
    for (const double x : {-0.20, 0.20}) {
        for (const double y : {-0.14, 0.14}) {
            link.add(kRubber, alongY(Solid::cylinder(0.042, 0.030, 0.008, 22)).moved(x, y - 0.015, 0.042));
            link.add(kMetal, Solid::cylinder(0.012, 0.03, 0.0, 12).moved(x, y, 0.05));
        }
    }
    link.volumes.push_back({Kind::Box, {0.60, 0.56, 0.31}, {0.0, 0.0, 0.155}, {}});
    link.volumes.push_back({Kind::Box, {0.18, 0.20, 0.32}, {-0.10, 0.0, 0.455}, {}});
    return link;
}

KrSampleLink wheel(const std::string& side, double sign)
{
    KrSampleLink link;
    link.name = "wheel_" + side;
    link.joint = "wheel_" + side + "_joint";
    link.type = Type::Continuous;
    link.origin = {0.0, sign * 0.262, 0.095};
    link.axis = {0.0, 1.0, 0.0};
    link.velocity = 12.0;
    link.effort = 25.0;
    link.density = 1100.0;
    link.add(kRubber, alongY(Solid::ring(0.066, 0.095, 0.05, 0.012, 40)).moved(0.0, -0.025, 0.0));
    link.add(kMetal, alongY(Solid::cylinder(0.067, 0.034, 0.006, 36)).moved(0.0, -0.017, 0.0));
    for (int i = 0; i < 5; ++i) {
        const double a = 2.0 * kPi * i / 5;
        link.add(
            kJoint,
            alongY(Solid::cylinder(0.014, 0.040, 0.0, 14)).moved(0.040 * std::cos(a), -0.020, 0.040 * std::sin(a)));
    }
    link.add(kAccent, alongY(Solid::cylinder(0.018, 0.046, 0.004, 20)).moved(0.0, -0.023, 0.0));
    link.volumes.push_back({Kind::Cylinder, {0.095, 0.05, 0.0}, {}, {0.5 * kPi, 0.0, 0.0}});
    return link;
}

KrSampleLink torso()
{
    KrSampleLink link;
    link.name = "torso";
    link.joint = "torso_lift";
    link.type = Type::Prismatic;
    link.origin = {-0.10, 0.0, 0.60};
    link.lower = 0.0;
    link.upper = 0.28;
    link.velocity = 0.12;
    link.effort = 900.0;
    link.density = 500.0;
    link.add(kMetal, Solid::extrude(KrSampleCurves::rectangle(0.13, 0.15, 0.035), 0.34, 0.004).moved(0.0, 0.0, -0.30));
    link.add(kJoint, Solid::cylinder(0.088, 0.05, 0.012, 40).moved(0.0, 0.0, 0.025));
    // Waist, chest and shoulders in one skin.
    link.add(kShell, standing(Solid::loft({{0.060, 0.085, 0.075, 2.2, 0.0, 0.0},
                                           {0.150, 0.098, 0.088, 2.4, 0.0, -0.008},
                                           {0.270, 0.138, 0.104, 2.8, 0.0, -0.014},
                                           {0.370, 0.148, 0.100, 3.0, 0.0, -0.006},
                                           {0.425, 0.118, 0.078, 2.8, 0.0, 0.0},
                                           {0.447, 0.080, 0.056, 2.6, 0.0, 0.0}},
                                          36, 5)));
    link.add(kGlass, Solid::roundedBox(0.030, 0.110, 0.052, 0.012, 0.008).moved(0.104, 0.0, 0.300));
    link.add(kAccent, Solid::roundedBox(0.020, 0.090, 0.010, 0.004, 0.003).moved(0.098, 0.0, 0.235));
    for (const double side : {1.0, -1.0}) {
        link.add(
            kJoint,
            Solid::cylinder(0.066, 0.042, 0.006, 36).turned(-90.0 * side, 0.0, 0.0).moved(0.0, side * 0.125, 0.345));
    }
    link.volumes.push_back({Kind::Box, {0.22, 0.32, 0.42}, {0.0, 0.0, 0.24}, {}});
    return link;
}

KrSampleLink neck()
{
    KrSampleLink link;
    link.name = "neck";
    link.joint = "head_pan";
    link.type = Type::Revolute;
    link.origin = {0.0, 0.0, 0.445};
    link.lower = -radians(100.0);
    link.upper = radians(100.0);
    link.velocity = 4.0;
    link.effort = 8.0;
    link.add(kJoint, Solid::cylinder(0.042, 0.060, 0.006, 32));
    link.add(kAccent, Solid::cylinder(0.0435, 0.006, 0.0, 32).moved(0.0, 0.0, 0.034));
    link.add(kJoint, alongY(Solid::cylinder(0.032, 0.080, 0.006, 28)).moved(0.0, -0.040, 0.072));
    link.volumes.push_back({Kind::Cylinder, {0.045, 0.11, 0.0}, {0.0, 0.0, 0.05}, {}});
    return link;
}

KrSampleLink head()
{
    KrSampleLink link;
    link.name = "head";
    link.joint = "head_tilt";
    link.type = Type::Revolute;
    link.origin = {0.0, 0.0, 0.072};
    link.axis = {0.0, 1.0, 0.0};
    link.lower = -radians(40.0);
    link.upper = radians(60.0);
    link.velocity = 4.0;
    link.effort = 8.0;
    link.density = 600.0;
    link.add(kShell, Solid::loft({{-0.094, 0.028, 0.014, 2.2, 0.0, 0.066},
                                  {-0.088, 0.052, 0.030, 2.4, 0.0, 0.066},
                                  {-0.062, 0.086, 0.056, 2.8, 0.0, 0.066},
                                  {0.000, 0.108, 0.068, 3.2, 0.0, 0.070},
                                  {0.062, 0.110, 0.066, 3.8, 0.0, 0.072},
                                  {0.078, 0.106, 0.062, 4.0, 0.0, 0.072}},
                                 32, 3));
    // The visor with two eyes.
    link.add(kGlass, Solid::loft({{0.070, 0.098, 0.052, 4.0, 0.0, 0.074},
                                  {0.082, 0.096, 0.050, 4.0, 0.0, 0.074},
                                  {0.089, 0.086, 0.040, 3.4, 0.0, 0.074}},
                                 30, 2));
    for (const double side : {1.0, -1.0}) {
        link.add(kAccent, alongX(Solid::ring(0.020, 0.026, 0.007, 0.002, 28)).moved(0.084, side * 0.046, 0.076));
        link.add(kGlass, alongX(Solid::cylinder(0.018, 0.007, 0.004, 24)).moved(0.084, side * 0.046, 0.076));
        link.add(kMetal, alongX(Solid::cylinder(0.006, 0.003, 0.001, 12)).moved(0.0895, side * 0.046 + 0.005, 0.082));
        link.add(
            kJoint,
            Solid::cylinder(0.034, 0.016, 0.006, 28).turned(-90.0 * side, 0.0, 0.0).moved(-0.005, side * 0.102, 0.068));
    }
    link.volumes.push_back({Kind::Box, {0.18, 0.24, 0.14}, {0.0, 0.0, 0.07}, {}});
    return link;
}

/// A finger segment that points down; `length` to the next joint.
KrSampleLink fingerSegment(double length, double width, bool isTip)
{
    KrSampleLink link;
    link.density = 1300.0;
    link.type = Type::Revolute;
    link.axis = {0.0, 1.0, 0.0};
    link.lower = -radians(10.0);
    link.upper = radians(80.0);
    link.velocity = 3.0;
    link.effort = 4.0;
    link.add(kMetal, alongY(Solid::cylinder(0.0085, width, 0.001, 16)).moved(0.0, -0.5 * width, 0.0));
    const double end = isTip ? length - 0.004 : length - 0.008;
    link.add(kJoint, hanging(Solid::loft({{0.004, 0.38 * width, 0.0075, 3.0},
                                          {0.5 * length, 0.42 * width, 0.0085, 3.2, 0.0, isTip ? 0.0 : 0.001},
                                          {end, 0.36 * width, isTip ? 0.0050 : 0.0075, 2.6}},
                                         18, 3)));
    if (isTip) {
        link.add(kRubber, Solid::ball(0.0072, 14).scaled(1.0, 1.2, 0.9).moved(0.0, 0.0, -length + 0.004));
    }
    link.add(kRubber,
             Solid::roundedBox(0.004, 0.6 * width, 0.55 * length, 0.0015, 0.001).moved(-0.0085, 0.0, -0.55 * length));
    link.volumes.push_back({Kind::Box, {0.018, width, length}, {0.0, 0.0, -0.5 * length}, {}});
    return link;
}

/// One arm; `sign` is +1 for the left one. Joints of both arms turn alike: equal values give mirrored poses.
class Arm
{
public:
    /// @param shapes  the links whose shapes others share, by kind; both arms use one list
    Arm(KrSampleRobot& robot, std::map<std::string, int>& shapes, const std::string& side, double sign)
        : m_robot(robot)
        , m_shapes(shapes)
        , m_side(side)
        , m_sign(sign)
    {
    }

    void build(int torsoIndex)
    {
        m_tip = torsoIndex;
        append(mirroredOnTheRight(shoulder()));
        // The other links look the same from the left and the right: the second arm shares them.
        append(shared("shoulder_roll", shoulderRoll()));
        append(shared("upper_arm", upperArm()));
        append(shared("elbow", elbow()));
        append(shared("forearm", forearm()));
        const int palmIndex = append(shared("hand", hand()));
        fingers(palmIndex);
    }

private:
    int append(KrSampleLink link)
    {
        link.parent = m_tip;
        m_tip = m_robot.add(link);
        return m_tip;
    }

    KrSampleLink mirroredOnTheRight(KrSampleLink link) const
    {
        if (m_sign < 0.0) {
            for (auto& part : link.parts) {
                part.second.mirrored();
            }
            for (KrSampleVolume& volume : link.volumes) {
                volume.center.setY(-volume.center.y());
            }
        }
        return link;
    }

    /// The next link to be added, with the shape of the first one of its kind.
    KrSampleLink shared(const std::string& kind, KrSampleLink link)
    {
        const auto [first, isNew] = m_shapes.try_emplace(kind, static_cast<int>(m_robot.links.size()));
        if (!isNew) {
            link.parts.clear();
            link.sharesShapeOf = first->second;
        }
        return link;
    }

    KrSampleLink jointed(const std::string& link, const std::string& joint, const KrVector& origin,
                         const KrVector& axis, double lowerDegrees, double upperDegrees) const
    {
        KrSampleLink out;
        out.name = m_side + "_" + link;
        out.joint = m_side + "_" + joint;
        out.type = Type::Revolute;
        out.origin = {origin.x(), m_sign * origin.y(), origin.z()};
        // Mirrored: a turn about x or z changes its sense, one about y does not.
        out.axis = {m_sign * axis.x(), axis.y(), m_sign * axis.z()};
        out.lower = radians(lowerDegrees);
        out.upper = radians(upperDegrees);
        out.velocity = 3.0;
        out.effort = 40.0;
        out.density = 900.0;
        return out;
    }

    KrSampleLink shoulder() const
    {
        KrSampleLink link = jointed("shoulder", "shoulder_pitch", {0.0, 0.168, 0.345}, {0, 1, 0}, -170.0, 60.0);
        link.add(kShell, alongY(Solid::cylinder(0.062, 0.060, 0.014, 36)));
        link.add(kJoint, Solid::roundedBox(0.064, 0.060, 0.082, 0.020, 0.010).moved(0.0, 0.066, 0.0));
        link.volumes.push_back({Kind::Box, {0.125, 0.10, 0.125}, {0.0, 0.045, 0.0}, {}});
        return link;
    }

    KrSampleLink shoulderRoll() const
    {
        KrSampleLink link = jointed("shoulder_roll_link", "shoulder_roll", {0.0, 0.098, 0.0}, {1, 0, 0}, -20.0, 160.0);
        KrSampleLink module;
        addModule(module, 0.054, 0.116, {});
        for (const auto& [material, solid] : module.parts) {
            Solid turned = solid;
            link.add(material, turned.turned(0.0, 0.0, 90.0));
        }
        link.add(kJoint, Solid::cylinder(0.050, 0.045, 0.008, 32).moved(0.0, 0.0, -0.075));
        link.volumes.push_back({Kind::Cylinder, {0.055, 0.12, 0.0}, {}, {0.0, 0.5 * kPi, 0.0}});
        return link;
    }

    KrSampleLink upperArm() const
    {
        KrSampleLink link = jointed("upper_arm", "shoulder_yaw", {0.0, 0.0, -0.075}, {0, 0, 1}, -120.0, 120.0);
        link.add(kAccent, Solid::cylinder(0.0515, 0.006, 0.001, 32).moved(0.0, 0.0, -0.007));
        link.add(kShell, hanging(Solid::loft({{0.006, 0.051, 0.051, 2.0},
                                              {0.050, 0.054, 0.054, 2.1},
                                              {0.130, 0.048, 0.050, 2.3},
                                              {0.190, 0.037, 0.044, 2.8},
                                              {0.215, 0.036, 0.040, 2.8}},
                                             28, 3)));
        link.volumes.push_back({Kind::Cylinder, {0.055, 0.22, 0.0}, {0.0, 0.0, -0.11}, {}});
        return link;
    }

    KrSampleLink elbow() const
    {
        KrSampleLink link = jointed("elbow_link", "elbow", {0.0, 0.0, -0.235}, {0, 1, 0}, -145.0, 5.0);
        addModule(link, 0.045, 0.096, {});
        link.add(kShell, hanging(Solid::loft({{0.020, 0.034, 0.034, 2.4}, {0.085, 0.041, 0.041, 2.0}}, 26, 3)));
        link.volumes.push_back({Kind::Cylinder, {0.047, 0.10, 0.0}, {}, {0.5 * kPi, 0.0, 0.0}});
        return link;
    }

    KrSampleLink forearm() const
    {
        KrSampleLink link = jointed("forearm", "forearm_roll", {0.0, 0.0, -0.085}, {0, 0, 1}, -170.0, 170.0);
        link.add(kAccent, Solid::cylinder(0.0405, 0.006, 0.001, 28).moved(0.0, 0.0, -0.006));
        link.add(kShell, hanging(Solid::loft({{0.005, 0.041, 0.041, 2.0},
                                              {0.040, 0.042, 0.043, 2.1},
                                              {0.105, 0.034, 0.037, 2.4},
                                              {0.135, 0.029, 0.030, 2.6}},
                                             26, 3)));
        link.volumes.push_back({Kind::Cylinder, {0.044, 0.14, 0.0}, {0.0, 0.0, -0.07}, {}});
        return link;
    }

    KrSampleLink hand() const
    {
        KrSampleLink link = jointed("hand", "wrist", {0.0, 0.0, -0.150}, {0, 1, 0}, -90.0, 90.0);
        addModule(link, 0.032, 0.068, {});
        link.add(kJoint, Solid::cylinder(0.026, 0.030, 0.003, 26).moved(0.0, 0.0, -0.052));
        link.add(kShell, hanging(Solid::loft({{0.048, 0.030, 0.026, 2.4},
                                              {0.066, 0.044, 0.034, 3.0},
                                              {0.105, 0.046, 0.034, 3.6},
                                              {0.118, 0.042, 0.031, 3.6}},
                                             32, 3)));
        link.add(kJoint, Solid::roundedBox(0.058, 0.080, 0.012, 0.010, 0.003).moved(0.0, 0.0, -0.120));
        link.add(kGlass, alongX(Solid::cylinder(0.010, 0.006, 0.003, 18)).moved(0.031, 0.0, -0.088));
        link.volumes.push_back({Kind::Box, {0.07, 0.095, 0.10}, {0.0, 0.0, -0.085}, {}});
        return link;
    }

    /// Two fingers and a thumb against them. One joint closes the hand, the others follow it.
    void fingers(int palm)
    {
        const std::string master = m_side + "_grip";
        struct Place
        {
            const char* name;
            double x, y;
            bool faces; ///< turned about the vertical, towards the others
        };
        for (const Place& place : {Place{"index", 0.021, 0.025, false}, Place{"ring", 0.021, -0.025, false},
                                   Place{"thumb", -0.021, 0.0, true}}) {
            const std::string name = m_side + "_" + place.name;
            KrSampleLink lower = fingerSegment(0.044, 0.020, false);
            lower.name = name + "_lower";
            lower.joint = place.name == std::string("index") ? master : name + "_lower_joint";
            lower.mimicMaster = lower.joint == master ? "" : master;
            lower.parent = palm;
            lower.origin = {place.x, m_sign * place.y, -0.128};
            lower.originRollPitchYaw = {0.0, 0.0, place.faces ? kPi : 0.0};
            const int lowerIndex = m_robot.add(shared("finger_lower", lower));

            KrSampleLink upper = fingerSegment(0.036, 0.018, true);
            upper.name = name + "_tip";
            upper.joint = name + "_tip_joint";
            upper.mimicMaster = master;
            upper.mimicMultiplier = 0.8;
            upper.parent = lowerIndex;
            upper.origin = {0.0, 0.0, -0.044};
            m_robot.add(shared("finger_tip", upper));
        }
    }

    KrSampleRobot& m_robot;
    std::map<std::string, int>& m_shapes;
    std::string m_side;
    double m_sign;
    int m_tip = 0;
};

} // namespace

KrSampleRobot sampleDualArmBase()
{
    KrSampleRobot robot;
    robot.name = "dual_arm_base";
    robot.materials[kShell] = {{0.90, 0.91, 0.92}, 0.25, 40.0, ""};
    robot.materials[kJoint] = {{0.17, 0.185, 0.21}, 0.25, 30.0, ""};
    robot.materials[kAccent] = {{0.02, 0.62, 0.62}, 0.30, 40.0, ""};
    robot.materials[kMetal] = {{0.66, 0.68, 0.71}, 0.50, 55.0, ""};
    robot.materials[kRubber] = {{0.07, 0.07, 0.08}, 0.08, 10.0, ""};
    robot.materials[kGlass] = {{0.03, 0.04, 0.055}, 0.75, 90.0, ""};

    const auto chain = [&robot](KrSampleLink link, int parent) {
        link.parent = parent;
        return robot.add(link);
    };
    const int baseIndex = robot.add(base());
    const int left = chain(wheel("left", 1.0), baseIndex);
    KrSampleLink right = wheel("right", -1.0);
    right.parts.clear();
    right.sharesShapeOf = left;
    chain(right, baseIndex);
    const int torsoIndex = chain(torso(), baseIndex);
    chain(head(), chain(neck(), torsoIndex));
    std::map<std::string, int> shapes;
    Arm(robot, shapes, "left", 1.0).build(torsoIndex);
    Arm(robot, shapes, "right", -1.0).build(torsoIndex);
    return robot;
}
