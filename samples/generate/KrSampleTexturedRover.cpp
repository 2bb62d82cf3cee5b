#include "KrSampleSystems.h"

#include <cmath>
#include <string>

namespace
{

using Solid = KrSampleSolid;
using Type = KrJointKinematics::Type;
using Kind = KrSampleVolume::Kind;
constexpr double kPi = 3.14159265358979323846;
constexpr double kWheelRadius = 0.125;

const char* const kDeck = "white_deck";
const char* const kFoil = "gold_foil";
const char* const kSolar = "solar_cells";
const char* const kTread = "wheel_tread";
const char* const kStripes = "stripes";
const char* const kTarget = "camera_target";
const char* const kMetal = "bare_metal";
const char* const kDark = "dark_metal";
const char* const kGlass = "lens_glass";
const char* const kRed = "signal_red";

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

/// A thin-walled tube between two points.
Solid rod(const KrVector& from, const KrVector& to, double radius)
{
    return Solid::tube({from, to}, radius, 16, 1);
}

KrSampleLink chassis()
{
    KrSampleLink link;
    link.name = "chassis";
    link.density = 350.0;
    const double bottom = 0.30;
    link.add(kFoil, Solid::extrude(KrSampleCurves::rectangle(0.78, 0.44, 0.05), 0.20, 0.012)
                        .moved(0.0, 0.0, bottom)
                        .boxMapped(0.30));
    link.add(kDeck, Solid::extrude(KrSampleCurves::rectangle(0.84, 0.50, 0.06), 0.026, 0.007).moved(0.0, 0.0, 0.498));
    link.add(kStripes, Solid::roundedBox(0.018, 0.40, 0.06, 0.004, 0.003).moved(0.396, 0.0, 0.345).boxMapped(0.30));
    link.add(kStripes, Solid::roundedBox(0.018, 0.40, 0.06, 0.004, 0.003).moved(-0.396, 0.0, 0.345).boxMapped(0.30));
    link.add(kTarget,
             Solid::roundedBox(0.11, 0.11, 0.010, 0.004, 0.001).moved(0.335, -0.165, 0.527).topMapped(0.11, 0.11));
    // The deck's own solar field.
    link.add(kSolar,
             Solid::roundedBox(0.48, 0.40, 0.012, 0.008, 0.002).moved(-0.145, 0.0, 0.529).topMapped(0.48, 0.40));
    // Head lamps, radiator and the instrument box in front.
    for (const double y : {-0.13, 0.13}) {
        link.add(kDark, alongX(Solid::cylinder(0.030, 0.035, 0.004, 24)).moved(0.385, y, 0.435));
        link.add(kGlass, alongX(Solid::cylinder(0.024, 0.006, 0.003, 24)).moved(0.418, y, 0.435));
    }
    link.add(kDark, Solid::roundedBox(0.05, 0.14, 0.07, 0.012, 0.006).moved(0.395, 0.0, 0.440));
    for (int i = 0; i < 6; ++i) {
        link.add(kMetal, Solid::roundedBox(0.10, 0.30, 0.006, 0.004, 0.001).moved(-0.42, 0.0, 0.40 + 0.016 * i));
    }
    link.add(kMetal, alongY(Solid::cylinder(0.022, 0.62, 0.004, 20)).moved(0.02, -0.31, 0.40));
    link.volumes.push_back({Kind::Box, {0.86, 0.52, 0.24}, {0.0, 0.0, 0.41}, {}});
    return link;
}

KrSampleLink panelWing(const std::string& side, double sign)
{
    KrSampleLink link;
    link.name = "panel_" + side;
    link.joint = "panel_" + side + "_hinge";
    link.type = Type::Revolute;
    link.origin = {-0.145, sign * 0.255, 0.524};
    // A positive turn lifts the outer edge, on either side.
    link.axis = {sign, 0.0, 0.0};
    link.lower = radians(-10.0);
    link.upper = radians(160.0);
    link.velocity = 0.3;
    link.effort = 12.0;
    link.density = 300.0;
    link.add(kDark, alongX(Solid::cylinder(0.010, 0.44, 0.002, 16)).moved(-0.22, 0.0, 0.0));
    link.add(kDeck, Solid::roundedBox(0.50, 0.30, 0.008, 0.02, 0.002).moved(0.0, sign * 0.170, 0.0));
    link.add(kSolar,
             Solid::roundedBox(0.48, 0.28, 0.008, 0.01, 0.002).moved(0.0, sign * 0.170, 0.005).topMapped(0.40, 0.28));
    link.volumes.push_back({Kind::Box, {0.50, 0.31, 0.02}, {0.0, sign * 0.17, 0.0}, {}});
    return link;
}

KrSampleLink rocker(const std::string& side, double sign)
{
    KrSampleLink link;
    link.name = "rocker_" + side;
    link.joint = "rocker_" + side + "_joint";
    link.type = Type::Revolute;
    link.origin = {0.02, sign * 0.305, 0.40};
    link.axis = {0.0, 1.0, 0.0};
    link.lower = radians(-25.0);
    link.upper = radians(25.0);
    link.velocity = 1.0;
    link.effort = 100.0;
    link.density = 1200.0;
    link.add(kDark, alongY(Solid::cylinder(0.045, 0.05, 0.008, 28)).moved(0.0, -0.025, 0.0));
    const KrVector front(0.36, 0.0, -0.075);
    const KrVector rear(-0.18, 0.0, -0.125);
    link.add(kMetal, rod({0.0, 0.0, 0.0}, front, 0.021));
    link.add(kMetal, rod({0.0, 0.0, 0.0}, rear, 0.021));
    link.add(kDark, Solid::ball(0.030, 20).moved(front.x(), 0.0, front.z()));
    link.add(kDark, alongY(Solid::cylinder(0.032, 0.05, 0.006, 24)).moved(rear.x(), -0.025, rear.z()));
    // The leg that reaches down to the front wheel.
    link.add(kMetal, rod({front.x(), 0.0, front.z()}, {0.36, 0.0, -0.16}, 0.019));
    link.add(kMetal, rod({0.36, 0.0, -0.16}, {0.36, sign * 0.05, kWheelRadius - 0.40}, 0.019));
    link.add(kDark,
             alongY(Solid::cylinder(0.028, 0.05, 0.006, 22)).moved(0.36, sign * 0.06 - 0.025, kWheelRadius - 0.40));
    link.volumes.push_back({Kind::Box, {0.60, 0.08, 0.32}, {0.09, 0.0, -0.12}, {}});
    return link;
}

KrSampleLink bogie(const std::string& side, double sign)
{
    KrSampleLink link;
    link.name = "bogie_" + side;
    link.joint = "bogie_" + side + "_joint";
    link.type = Type::Revolute;
    link.origin = {-0.18, 0.0, -0.125};
    link.axis = {0.0, 1.0, 0.0};
    link.lower = radians(-35.0);
    link.upper = radians(35.0);
    link.velocity = 1.0;
    link.effort = 100.0;
    link.density = 1200.0;
    const double axle = kWheelRadius - 0.275;
    for (const double x : {0.16, -0.22}) {
        const double shoulder = -0.055;
        link.add(kMetal, rod({0.0, 0.0, 0.0}, {x, 0.0, shoulder}, 0.018));
        link.add(kDark, Solid::ball(0.025, 18).moved(x, 0.0, shoulder));
        link.add(kMetal, rod({x, 0.0, shoulder}, {x, sign * 0.05, axle}, 0.017));
        link.add(kDark, alongY(Solid::cylinder(0.028, 0.05, 0.006, 22)).moved(x, sign * 0.06 - 0.025, axle));
    }
    link.volumes.push_back({Kind::Box, {0.44, 0.08, 0.18}, {-0.03, 0.0, -0.07}, {}});
    return link;
}

KrSampleLink wheel(const std::string& name, const KrVector& origin)
{
    KrSampleLink link;
    link.name = "wheel_" + name;
    link.joint = "wheel_" + name + "_joint";
    link.type = Type::Continuous;
    link.origin = origin;
    link.axis = {0.0, 1.0, 0.0};
    link.velocity = 4.0;
    link.effort = 30.0;
    link.density = 500.0;
    // A barrel-shaped rim, its texture once around.
    KrSampleCurve rim;
    const int steps = 8;
    for (int i = 0; i <= steps; ++i) {
        const double a = -1.0 + 2.0 * i / steps;
        const double radius = kWheelRadius - 0.010 * a * a;
        const double slope = 0.020 * a / 0.075;
        const double length = std::hypot(1.0, slope);
        rim.push_back({radius, 0.075 * a, 1.0 / length, slope / length, 1.0 / length, slope / length});
    }
    link.add(kTread, alongY(Solid::lathe(rim, 48)));
    for (const double side : {1.0, -1.0}) {
        // The profile runs inwards: its outside faces out of the wheel.
        Solid dish = Solid::lathe(
            KrSampleCurves::rounded(
                {{0.115, 0.075}, {0.100, 0.058, 0.01}, {0.060, 0.010, 0.01}, {0.045, 0.030, 0.01}, {0.0, 0.030}}, false,
                3),
            40);
        link.add(kMetal, dish.turned(-90.0 * side, 0.0, 0.0));
        link.add(kDark,
                 Solid::cylinder(0.030, 0.020, 0.005, 22).turned(-90.0 * side, 0.0, 0.0).moved(0.0, side * 0.028, 0.0));
    }
    link.volumes.push_back({Kind::Cylinder, {kWheelRadius, 0.15, 0.0}, {}, {0.5 * kPi, 0.0, 0.0}});
    return link;
}

KrSampleLink mast()
{
    KrSampleLink link;
    link.name = "mast";
    link.joint = "mast_pan";
    link.type = Type::Revolute;
    link.origin = {0.30, 0.12, 0.524};
    link.lower = radians(-180.0);
    link.upper = radians(180.0);
    link.velocity = 1.0;
    link.effort = 8.0;
    link.density = 700.0;
    link.add(kDark, Solid::cylinder(0.045, 0.045, 0.008, 30));
    link.add(kMetal, Solid::cylinder(0.024, 0.40, 0.003, 24).moved(0.0, 0.0, 0.02));
    link.add(kRed, Solid::cylinder(0.0255, 0.018, 0.002, 24).moved(0.0, 0.0, 0.30));
    link.add(kDark, Solid::cylinder(0.034, 0.035, 0.006, 26).moved(0.0, 0.0, 0.40));
    link.add(kDark, alongY(Solid::cylinder(0.022, 0.09, 0.004, 22)).moved(0.0, -0.045, 0.452));
    link.volumes.push_back({Kind::Cylinder, {0.045, 0.46, 0.0}, {0.0, 0.0, 0.23}, {}});
    return link;
}

KrSampleLink cameraHead()
{
    KrSampleLink link;
    link.name = "camera_head";
    link.joint = "mast_tilt";
    link.type = Type::Revolute;
    link.origin = {0.0, 0.0, 0.452};
    link.axis = {0.0, 1.0, 0.0};
    link.lower = radians(-60.0);
    link.upper = radians(80.0);
    link.velocity = 1.0;
    link.effort = 5.0;
    link.density = 600.0;
    link.add(kDeck, Solid::roundedBox(0.11, 0.24, 0.095, 0.018, 0.008).moved(0.005, 0.0, 0.055));
    link.add(kFoil, Solid::roundedBox(0.035, 0.19, 0.07, 0.008, 0.004).moved(-0.062, 0.0, 0.055).boxMapped(0.16));
    for (const double y : {-0.068, 0.068}) {
        link.add(kDark, alongX(Solid::cylinder(0.034, 0.035, 0.004, 28)).moved(0.050, y, 0.058));
        link.add(kGlass, alongX(Solid::cylinder(0.026, 0.010, 0.006, 26)).moved(0.080, y, 0.058));
        link.add(kRed, alongX(Solid::ring(0.027, 0.031, 0.003, 0.001, 28)).moved(0.084, y, 0.058));
    }
    link.add(kDark, alongX(Solid::cylinder(0.016, 0.025, 0.003, 22)).moved(0.056, 0.0, 0.075));
    link.add(kGlass, alongX(Solid::cylinder(0.011, 0.006, 0.003, 20)).moved(0.078, 0.0, 0.075));
    link.volumes.push_back({Kind::Box, {0.18, 0.25, 0.10}, {0.005, 0.0, 0.055}, {}});
    return link;
}

KrSampleLink antenna()
{
    KrSampleLink link;
    link.name = "antenna";
    link.joint = "antenna_pan";
    link.type = Type::Revolute;
    link.origin = {-0.33, -0.16, 0.535};
    link.lower = radians(-180.0);
    link.upper = radians(180.0);
    link.velocity = 0.5;
    link.effort = 5.0;
    link.density = 900.0;
    link.add(kDark, Solid::cylinder(0.035, 0.03, 0.006, 26));
    link.add(kMetal, Solid::cylinder(0.014, 0.13, 0.002, 20).moved(0.0, 0.0, 0.02));
    link.add(kDark, alongY(Solid::cylinder(0.018, 0.05, 0.003, 20)).moved(0.0, -0.025, 0.16));
    link.volumes.push_back({Kind::Cylinder, {0.036, 0.17, 0.0}, {0.0, 0.0, 0.085}, {}});
    return link;
}

KrSampleLink dish()
{
    KrSampleLink link;
    link.name = "dish";
    link.joint = "antenna_tilt";
    link.type = Type::Revolute;
    link.origin = {0.0, 0.0, 0.16};
    link.axis = {0.0, 1.0, 0.0};
    link.lower = radians(-10.0);
    link.upper = radians(90.0);
    link.velocity = 0.5;
    link.effort = 5.0;
    link.density = 900.0;
    // A paraboloid shell: its back outwards along the profile, then its face inwards.
    KrSampleCurve profile;
    const int steps = 10;
    const auto point = [](double r, double lift, bool isFace) {
        const double slope = 2.0 * 1.6 * r;
        const double length = std::hypot(1.0, slope) * (isFace ? -1.0 : 1.0);
        return KrSampleCurvePoint{r, 1.6 * r * r + lift, slope / length, -1.0 / length, slope / length, -1.0 / length};
    };
    for (int i = 0; i <= steps; ++i) {
        profile.push_back(point(0.15 * i / steps, 0.0, false));
    }
    for (int i = steps; i >= 0; --i) {
        profile.push_back(point(0.15 * i / steps, 0.006, true));
    }
    link.add(kDeck, Solid::lathe(profile, 44).moved(0.0, 0.0, 0.035));
    link.add(kMetal, Solid::cylinder(0.022, 0.04, 0.003, 22));
    for (int i = 0; i < 3; ++i) {
        const double a = 2.0 * kPi * i / 3;
        link.add(kDark, rod({0.11 * std::cos(a), 0.11 * std::sin(a), 0.055}, {0.0, 0.0, 0.155}, 0.0035));
    }
    link.add(kRed, Solid::cylinder(0.016, 0.024, 0.004, 20).moved(0.0, 0.0, 0.143));
    link.volumes.push_back({Kind::Cylinder, {0.15, 0.13, 0.0}, {0.0, 0.0, 0.08}, {}});
    return link;
}

/// A segment of the sampling arm, along +x to the next joint.
KrSampleLink armSegment(const std::string& name, const std::string& joint, const KrVector& origin, double length,
                        double radius, double lowerDegrees, double upperDegrees)
{
    KrSampleLink link;
    link.name = name;
    link.joint = joint;
    link.type = Type::Revolute;
    link.origin = origin;
    link.axis = {0.0, 1.0, 0.0};
    link.lower = radians(lowerDegrees);
    link.upper = radians(upperDegrees);
    link.velocity = 0.6;
    link.effort = 30.0;
    link.density = 900.0;
    link.add(kDark, alongY(Solid::cylinder(1.7 * radius, 0.062, 0.005, 26)).moved(0.0, -0.031, 0.0));
    link.add(kMetal, alongX(Solid::cylinder(radius, length, 0.002, 22)));
    link.add(kRed, alongX(Solid::cylinder(1.06 * radius, 0.016, 0.002, 22)).moved(0.25 * length, 0.0, 0.0));
    link.volumes.push_back({Kind::Cylinder, {radius, length, 0.0}, {0.5 * length, 0.0, 0.0}, {0.0, 0.5 * kPi, 0.0}});
    return link;
}

KrSampleLink drill()
{
    KrSampleLink link;
    link.name = "drill";
    link.joint = "arm_wrist";
    link.type = Type::Revolute;
    link.origin = {0.22, 0.0, 0.0};
    link.axis = {0.0, 1.0, 0.0};
    link.lower = radians(-120.0);
    link.upper = radians(120.0);
    link.velocity = 0.8;
    link.effort = 10.0;
    link.density = 1500.0;
    link.add(kDark, alongY(Solid::cylinder(0.026, 0.056, 0.004, 24)).moved(0.0, -0.028, 0.0));
    link.add(kDeck, alongX(Solid::cylinder(0.042, 0.060, 0.008, 28)).moved(0.010, 0.0, 0.0));
    link.add(kStripes, alongX(Solid::cylinder(0.0425, 0.020, 0.001, 28)).moved(0.028, 0.0, 0.0).boxMapped(0.09));
    for (int i = 0; i < 4; ++i) {
        const double a = 2.0 * kPi * (i + 0.5) / 4;
        const double length = i % 2 == 0 ? 0.060 : 0.040;
        link.add(
            i % 2 == 0 ? kMetal : kDark,
            alongX(Solid::cylinder(0.011, length, 0.002, 16)).moved(0.066, 0.024 * std::cos(a), 0.024 * std::sin(a)));
    }
    link.add(kMetal,
             alongX(Solid::lathe(
                        KrSampleCurves::rounded({{0.0, 0.0}, {0.009, 0.0}, {0.009, 0.05}, {0.0, 0.085}}, false), 14))
                 .moved(0.068, 0.0, 0.0));
    link.volumes.push_back({Kind::Cylinder, {0.045, 0.14, 0.0}, {0.07, 0.0, 0.0}, {0.0, 0.5 * kPi, 0.0}});
    return link;
}

void addSide(KrSampleRobot& robot, const std::string& side, double sign, int& sharedWheel)
{
    const auto chain = [&robot](KrSampleLink link, int parent) {
        link.parent = parent;
        return robot.add(link);
    };
    const auto addWheel = [&](const std::string& name, const KrVector& origin, int parent) {
        KrSampleLink link = wheel(name + "_" + side, origin);
        if (sharedWheel >= 0) {
            link.parts.clear();
            link.sharesShapeOf = sharedWheel;
        }
        const int index = chain(link, parent);
        sharedWheel = sharedWheel < 0 ? index : sharedWheel;
    };
    chain(panelWing(side, sign), 0);
    const int rockerIndex = chain(rocker(side, sign), 0);
    addWheel("front", {0.36, sign * 0.150, kWheelRadius - 0.40}, rockerIndex);
    const int bogieIndex = chain(bogie(side, sign), rockerIndex);
    addWheel("middle", {0.16, sign * 0.150, kWheelRadius - 0.275}, bogieIndex);
    addWheel("rear", {-0.22, sign * 0.150, kWheelRadius - 0.275}, bogieIndex);
}

} // namespace

KrSampleRobot sampleTexturedRover(const std::string& textures)
{
    KrSampleRobot robot;
    robot.name = "textured_rover";
    const KrColor white(1.0, 1.0, 1.0);
    robot.materials[kDeck] = {{0.90, 0.90, 0.88}, 0.15, 25.0, ""};
    robot.materials[kFoil] = {white, 0.45, 30.0, textures + "/gold_foil.jpg"};
    robot.materials[kSolar] = {white, 0.35, 60.0, textures + "/solar_cells.png"};
    robot.materials[kTread] = {white, 0.15, 20.0, textures + "/wheel_tread.jpg"};
    robot.materials[kStripes] = {white, 0.10, 20.0, textures + "/stripes.png"};
    robot.materials[kTarget] = {white, 0.05, 10.0, textures + "/camera_target.png"};
    robot.materials[kMetal] = {{0.62, 0.63, 0.65}, 0.45, 50.0, ""};
    robot.materials[kDark] = {{0.21, 0.215, 0.23}, 0.30, 30.0, ""};
    robot.materials[kGlass] = {{0.05, 0.06, 0.10}, 0.80, 90.0, ""};
    robot.materials[kRed] = {{0.78, 0.12, 0.08}, 0.25, 30.0, ""};

    const auto chain = [&robot](KrSampleLink link, int parent) {
        link.parent = parent;
        return robot.add(link);
    };
    robot.add(chassis());
    int sharedWheel = -1;
    addSide(robot, "left", 1.0, sharedWheel);
    addSide(robot, "right", -1.0, sharedWheel);
    chain(cameraHead(), chain(mast(), 0));
    chain(dish(), chain(antenna(), 0));
    const int shoulder =
        chain(armSegment("arm_upper", "arm_shoulder", {0.43, -0.02, 0.435}, 0.26, 0.020, -110.0, 60.0), 0);
    const int elbow =
        chain(armSegment("arm_lower", "arm_elbow", {0.26, 0.0, 0.0}, 0.22, 0.017, -10.0, 160.0), shoulder);
    chain(drill(), elbow);
    return robot;
}

KrSampleRobot sampleDesertPatch(const std::string& textures)
{
    KrSampleRobot patch;
    patch.name = "desert";
    patch.materials["sand"] = {{1.0, 1.0, 1.0}, 0.0, 1.0, textures + "/sand.jpg"};
    patch.materials["rock"] = {{0.52, 0.36, 0.27}, 0.02, 5.0, ""};
    KrSampleLink link;
    link.name = "desert";
    link.density = 0.0;
    link.add("sand", KrSampleSolid::cylinder(1.05, 0.03, 0.012, 80).moved(0.0, 0.0, -0.0305).topMapped(1.3, 1.3));
    // Stones: flattened balls, half sunk.
    const double stones[][4] = {{0.80, 0.44, 0.085, 25.0},  {0.64, 0.66, 0.045, 70.0},   {-0.62, 0.66, 0.060, 10.0},
                                {0.52, -0.74, 0.070, 40.0}, {-0.78, -0.46, 0.050, 80.0}, {0.90, 0.26, 0.035, 55.0}};
    for (const auto& [x, y, size, yaw] : stones) {
        link.add("rock",
                 KrSampleSolid::ball(size, 12).scaled(1.3, 0.9, 0.65).turned(0.0, 8.0, yaw).moved(x, y, 0.1 * size));
    }
    patch.add(link);
    return patch;
}
