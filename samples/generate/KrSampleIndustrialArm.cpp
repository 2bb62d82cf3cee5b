#include "KrSampleSystems.h"

#include <cmath>

namespace
{

using Solid = KrSampleSolid;
using Type = KrJointKinematics::Type;
constexpr double kPi = 3.14159265358979323846;

const char* const kPaint = "amber_paint";
const char* const kCast = "graphite_cast";
const char* const kSteel = "steel";
const char* const kRubber = "black_rubber";
const char* const kLabel = "white_label";

double radians(double degrees)
{
    return degrees * kPi / 180.0;
}

// Bodies are made upright about z; these lay them along another axis.
Solid alongX(Solid solid)
{
    return solid.turned(0.0, 90.0, 0.0);
}
Solid alongY(Solid solid)
{
    return solid.turned(-90.0, 0.0, 0.0);
}
/// An outline's x becomes z, its y becomes x; it is drawn out along +y.
Solid standing(Solid solid)
{
    return solid.turned(-90.0, -90.0, 0.0);
}

/// A round cover with a ring of bolts, facing +y, its back at y = 0.
void addCover(KrSampleLink& link, double radius, double x, double y, double z, bool facesPlusY)
{
    Solid cover = Solid::lathe(KrSampleCurves::rounded({{0.0, 0.0},
                                                        {radius, 0.0},
                                                        {radius, 0.012, 0.005},
                                                        {0.72 * radius, 0.014, 0.004},
                                                        {0.66 * radius, 0.022, 0.004},
                                                        {0.0, 0.022}},
                                                       false, 3),
                               36);
    Solid bolts = Solid::boltCircle(8, 0.85 * radius, 0.05 * radius + 0.0015, 0.0185);
    const double roll = facesPlusY ? -90.0 : 90.0;
    link.add(kCast, cover.turned(roll, 0.0, 0.0).moved(x, y, z));
    link.add(kSteel, bolts.turned(roll, 0.0, 0.0).moved(x, y, z));
}

/// A motor along +z: finned housing and a domed end with a connector.
void addMotor(KrSampleLink& link, double radius, double length, double roll, double pitch, const KrVector& at)
{
    std::vector<KrSampleCurves::Corner> profile = {{0.0, 0.0}, {radius, 0.0, 0.002}};
    const int fins = 3;
    for (int i = 0; i < fins; ++i) {
        const double z = length * (0.25 + 0.15 * i);
        profile.push_back({radius, z});
        profile.push_back({0.9 * radius, z + 0.004});
        profile.push_back({0.9 * radius, z + 0.010});
        profile.push_back({radius, z + 0.014});
    }
    profile.push_back({radius, length, 0.35 * radius});
    profile.push_back({0.0, length});
    Solid housing = Solid::lathe(KrSampleCurves::rounded(profile, false, 3), 28);
    link.add(kCast, housing.turned(roll, pitch, 0.0).moved(at.x(), at.y(), at.z()));
}

KrSampleLink baseLink()
{
    KrSampleLink link;
    link.name = "base_link";
    link.density = 2600.0;
    Solid plate = Solid::extrude(KrSampleCurves::rectangle(0.40, 0.36, 0.07), 0.024, 0.004);
    link.add(kCast, plate);
    for (const double x : {-0.165, 0.165}) {
        for (const double y : {-0.145, 0.145}) {
            link.add(kCast, Solid::cylinder(0.026, 0.034, 0.004, 20).moved(x, y, 0.0));
            link.add(kSteel, Solid::boltCircle(1, 0.0, 0.013, 0.012).moved(x, y, 0.034));
        }
    }
    link.add(kCast, Solid::lathe(KrSampleCurves::rounded({{0.0, 0.02},
                                                          {0.168, 0.02, 0.01},
                                                          {0.160, 0.055, 0.03},
                                                          {0.130, 0.115, 0.05},
                                                          {0.128, 0.188, 0.006},
                                                          {0.0, 0.188}},
                                                         false, 4),
                                 44));
    // The cable box with its plugs, behind.
    link.add(kCast, Solid::roundedBox(0.12, 0.15, 0.10, 0.014, 0.006).moved(-0.155, 0.0, 0.08));
    for (const double y : {-0.04, 0.04}) {
        link.add(kSteel, Solid::cylinder(0.022, 0.018, 0.002, 20).turned(0.0, -90.0, 0.0).moved(-0.213, y, 0.085));
        link.add(kRubber, Solid::cylinder(0.017, 0.035, 0.005, 18).turned(0.0, -90.0, 0.0).moved(-0.225, y, 0.085));
    }
    link.volumes.push_back({KrSampleVolume::Kind::Cylinder, {0.17, 0.19, 0.0}, {0.0, 0.0, 0.095}, {}});
    link.volumes.push_back({KrSampleVolume::Kind::Box, {0.42, 0.37, 0.04}, {0.0, 0.0, 0.02}, {}});
    return link;
}

KrSampleLink turret()
{
    KrSampleLink link;
    link.name = "link_1";
    link.joint = "joint_1";
    link.type = Type::Revolute;
    link.origin = {0.0, 0.0, 0.19};
    link.lower = -radians(170.0);
    link.upper = radians(170.0);
    link.velocity = 3.5;
    link.effort = 380.0;

    link.add(kRubber, Solid::cylinder(0.120, 0.012, 0.0, 40));
    link.add(kPaint, Solid::lathe(KrSampleCurves::rounded({{0.0, 0.010},
                                                           {0.136, 0.010, 0.006},
                                                           {0.136, 0.050, 0.012},
                                                           {0.118, 0.075, 0.02},
                                                           {0.110, 0.110, 0.02},
                                                           {0.0, 0.120}},
                                                          false, 3),
                                  44));
    // The neck leans forward to the shoulder axis: a skin along z, its z turned to -x.
    Solid neck = Solid::loft({{0.05, 0.112, 0.112, 2.0, 0.0, 0.0},
                              {0.13, 0.104, 0.115, 2.6, -0.006, -0.035},
                              {0.235, 0.084, 0.112, 3.2, -0.012, -0.10}},
                             40, 5);
    link.add(kPaint, neck.turned(0.0, -90.0, 0.0));
    link.add(kPaint, alongY(Solid::cylinder(0.120, 0.175, 0.014, 44)).moved(0.10, -0.102, 0.245));
    link.add(kCast, alongY(Solid::cylinder(0.104, 0.012, 0.0, 40)).moved(0.10, 0.070, 0.245));
    addCover(link, 0.104, 0.10, -0.102, 0.245, false);
    addMotor(link, 0.062, 0.105, 90.0, 0.0, {0.10, -0.118, 0.245});
    addMotor(link, 0.056, 0.165, 0.0, 0.0, {-0.082, 0.0, 0.07});
    link.add(kLabel, Solid::roundedBox(0.052, 0.0016, 0.020, 0.0007, 0.0).moved(0.042, -0.1105, 0.118));
    link.volumes.push_back({KrSampleVolume::Kind::Cylinder, {0.145, 0.13, 0.0}, {0.0, 0.0, 0.065}, {}});
    link.volumes.push_back(
        {KrSampleVolume::Kind::Cylinder, {0.125, 0.33, 0.0}, {0.10, -0.07, 0.245}, {0.5 * kPi, 0.0, 0.0}});
    return link;
}

KrSampleLink upperArm()
{
    KrSampleLink link;
    link.name = "link_2";
    link.joint = "joint_2";
    link.type = Type::Revolute;
    link.origin = {0.10, 0.0, 0.245};
    link.axis = {0.0, 1.0, 0.0};
    link.lower = -radians(95.0);
    link.upper = radians(140.0);
    link.velocity = 3.2;
    link.effort = 380.0;

    link.add(
        kPaint,
        standing(Solid::extrude(KrSampleCurves::belt(0.118, 0.096, 0.48, 24), 0.088, 0.016)).moved(0.0, 0.080, 0.0));
    // A raised rib with a dark inlay between the two bearings.
    link.add(
        kPaint,
        standing(Solid::extrude(KrSampleCurves::belt(0.070, 0.058, 0.23, 14), 0.016, 0.010)).moved(0.0, 0.158, 0.128));
    link.add(
        kCast,
        standing(Solid::extrude(KrSampleCurves::belt(0.047, 0.038, 0.20, 12), 0.005, 0.002)).moved(0.0, 0.171, 0.14));
    addCover(link, 0.098, 0.0, 0.166, 0.0, true);
    addCover(link, 0.078, 0.0, 0.166, 0.48, true);
    link.add(kCast, alongY(Solid::cylinder(0.084, 0.012, 0.0, 36)).moved(0.0, 0.070, 0.48));
    // The dress pack runs up behind the arm.
    link.add(kRubber, Solid::tube({{-0.070, 0.180, 0.000},
                                   {-0.118, 0.165, 0.050},
                                   {-0.132, 0.135, 0.150},
                                   {-0.124, 0.128, 0.300},
                                   {-0.112, 0.150, 0.420},
                                   {-0.060, 0.186, 0.470}},
                                  0.014, 14, 5));
    for (const double z : {0.13, 0.33}) {
        link.add(kCast, Solid::roundedBox(0.050, 0.042, 0.022, 0.008, 0.003)
                            .moved(z < 0.2 ? -0.121 : -0.113, z < 0.2 ? 0.139 : 0.132, z));
    }
    link.volumes.push_back({KrSampleVolume::Kind::Box, {0.24, 0.11, 0.70}, {0.0, 0.125, 0.235}, {}});
    return link;
}

KrSampleLink elbow()
{
    KrSampleLink link;
    link.name = "link_3";
    link.joint = "joint_3";
    link.type = Type::Revolute;
    link.origin = {0.0, 0.0, 0.48};
    link.axis = {0.0, 1.0, 0.0};
    link.lower = -radians(155.0);
    link.upper = radians(80.0);
    link.velocity = 3.5;
    link.effort = 200.0;

    link.add(kPaint, alongY(Solid::cylinder(0.096, 0.150, 0.014, 40)).moved(0.0, -0.080, 0.0));
    addCover(link, 0.082, 0.0, -0.080, 0.0, false);
    link.add(kPaint, Solid::roundedBox(0.150, 0.135, 0.120, 0.04, 0.015).moved(0.0, -0.006, 0.055));
    link.add(kPaint, Solid::loft({{-0.115, 0.068, 0.066, 3.6, -0.006, 0.105},
                                  {-0.098, 0.080, 0.078, 3.2, -0.006, 0.105},
                                  {0.020, 0.084, 0.082, 2.8, -0.006, 0.105},
                                  {0.110, 0.079, 0.079, 2.2, -0.002, 0.107},
                                  {0.165, 0.076, 0.076, 2.0, 0.0, 0.110}},
                                 40, 3));
    // Three motors drive the wrist from behind the elbow.
    addMotor(link, 0.034, 0.085, 0.0, -90.0, {-0.108, 0.0, 0.143});
    addMotor(link, 0.028, 0.070, 0.0, -90.0, {-0.108, -0.038, 0.080});
    addMotor(link, 0.028, 0.070, 0.0, -90.0, {-0.108, 0.028, 0.080});
    link.add(kLabel, Solid::roundedBox(0.085, 0.0016, 0.024, 0.0007, 0.0).moved(0.025, -0.0905, 0.118));
    link.volumes.push_back(
        {KrSampleVolume::Kind::Cylinder, {0.10, 0.19, 0.0}, {0.0, -0.01, 0.0}, {0.5 * kPi, 0.0, 0.0}});
    link.volumes.push_back({KrSampleVolume::Kind::Box, {0.37, 0.18, 0.18}, {-0.015, -0.004, 0.105}, {}});
    return link;
}

KrSampleLink forearm()
{
    KrSampleLink link;
    link.name = "link_4";
    link.joint = "joint_4";
    link.type = Type::Revolute;
    link.origin = {0.165, 0.0, 0.110};
    link.axis = {1.0, 0.0, 0.0};
    link.lower = -radians(185.0);
    link.upper = radians(185.0);
    link.velocity = 6.0;
    link.effort = 60.0;

    link.add(kRubber, alongX(Solid::cylinder(0.070, 0.010, 0.0, 36)));
    link.add(kCast, alongX(Solid::cylinder(0.077, 0.024, 0.006, 36)).moved(0.008, 0.0, 0.0));
    link.add(kSteel, alongX(Solid::boltCircle(10, 0.0705, 0.0036, 0.004)).moved(0.031, 0.0, 0.0));
    link.add(kPaint, Solid::loft({{0.030, 0.066, 0.066, 2.0},
                                  {0.090, 0.058, 0.056, 2.1},
                                  {0.190, 0.056, 0.050, 2.6},
                                  {0.255, 0.064, 0.047, 4.0},
                                  {0.270, 0.062, 0.045, 4.0}},
                                 40, 4));
    // The fork that holds the wrist.
    for (const double y : {0.066, -0.042}) {
        link.add(kPaint, Solid::extrude(KrSampleCurves::belt(0.048, 0.046, 0.115, 16), 0.024, 0.008)
                             .turned(90.0, 0.0, 0.0)
                             .moved(0.225, y, 0.0));
    }
    addCover(link, 0.036, 0.340, 0.064, 0.0, true);
    addCover(link, 0.036, 0.340, -0.064, 0.0, false);
    link.volumes.push_back(
        {KrSampleVolume::Kind::Cylinder, {0.075, 0.27, 0.0}, {0.14, 0.0, 0.0}, {0.0, 0.5 * kPi, 0.0}});
    link.volumes.push_back({KrSampleVolume::Kind::Box, {0.16, 0.18, 0.10}, {0.31, 0.0, 0.0}, {}});
    return link;
}

KrSampleLink wrist()
{
    KrSampleLink link;
    link.name = "link_5";
    link.joint = "joint_5";
    link.type = Type::Revolute;
    link.origin = {0.340, 0.0, 0.0};
    link.axis = {0.0, 1.0, 0.0};
    link.lower = -radians(125.0);
    link.upper = radians(125.0);
    link.velocity = 6.0;
    link.effort = 60.0;

    link.add(kCast, alongY(Solid::cylinder(0.043, 0.080, 0.008, 32)).moved(0.0, -0.040, 0.0));
    link.add(kCast,
             Solid::loft({{0.0, 0.038, 0.042, 3.0}, {0.045, 0.039, 0.040, 2.4}, {0.076, 0.037, 0.037, 2.0}}, 32, 4));
    link.volumes.push_back({KrSampleVolume::Kind::Box, {0.12, 0.085, 0.09}, {0.018, 0.0, 0.0}, {}});
    return link;
}

KrSampleLink flange()
{
    KrSampleLink link;
    link.name = "link_6";
    link.joint = "joint_6";
    link.type = Type::Revolute;
    link.origin = {0.078, 0.0, 0.0};
    link.axis = {1.0, 0.0, 0.0};
    link.lower = -radians(360.0);
    link.upper = radians(360.0);
    link.velocity = 9.0;
    link.effort = 30.0;
    link.density = 5000.0;

    link.add(kSteel, alongX(Solid::cylinder(0.034, 0.020, 0.003, 32)));
    link.add(kSteel, alongX(Solid::boltCircle(6, 0.026, 0.0035, 0.004)).moved(0.019, 0.0, 0.0));
    link.volumes.push_back(
        {KrSampleVolume::Kind::Cylinder, {0.034, 0.02, 0.0}, {0.01, 0.0, 0.0}, {0.0, 0.5 * kPi, 0.0}});
    return link;
}

KrSampleLink gripper()
{
    KrSampleLink link;
    link.name = "gripper";
    link.joint = "gripper_mount";
    link.origin = {0.020, 0.0, 0.0};

    link.add(kCast, alongX(Solid::cylinder(0.031, 0.020, 0.003, 32)));
    link.add(kCast, Solid::roundedBox(0.070, 0.120, 0.064, 0.012, 0.006).moved(0.053, 0.0, 0.0));
    link.add(kPaint, Solid::roundedBox(0.034, 0.123, 0.067, 0.004, 0.003).moved(0.046, 0.0, 0.0));
    for (const double z : {-0.018, 0.018}) {
        link.add(kSteel, Solid::roundedBox(0.012, 0.118, 0.010, 0.002, 0.001).moved(0.092, 0.0, z));
    }
    link.volumes.push_back({KrSampleVolume::Kind::Box, {0.10, 0.125, 0.07}, {0.05, 0.0, 0.0}, {}});
    return link;
}

KrSampleLink finger(const std::string& side)
{
    KrSampleLink link;
    link.name = "finger_" + side;
    link.joint = "gripper_" + side;
    link.type = Type::Prismatic;
    // The right finger is the left one turned over: +y points outwards for both.
    link.origin = {0.092, side == "left" ? 0.012 : -0.012, 0.0};
    link.originRollPitchYaw = {side == "left" ? 0.0 : kPi, 0.0, 0.0};
    link.axis = {0.0, 1.0, 0.0};
    link.lower = 0.0;
    link.upper = 0.035;
    link.velocity = 0.2;
    link.effort = 120.0;
    link.density = 2700.0;

    link.add(kSteel, Solid::roundedBox(0.022, 0.024, 0.056, 0.004, 0.002).moved(0.008, 0.012, 0.0));
    link.add(kSteel, Solid::extrude(KrSampleCurves::rounded({{0.012, 0.002, 0.001},
                                                             {0.088, 0.002, 0.001},
                                                             {0.088, 0.008, 0.003},
                                                             {0.045, 0.014, 0.01},
                                                             {0.030, 0.023, 0.004},
                                                             {0.012, 0.023, 0.001}},
                                                            true, 3),
                                    0.026, 0.0)
                         .moved(0.0, 0.0, -0.013));
    link.add(kRubber, Solid::roundedBox(0.034, 0.003, 0.024, 0.001, 0.001).moved(0.069, 0.0015, 0.0));
    link.volumes.push_back({KrSampleVolume::Kind::Box, {0.09, 0.024, 0.03}, {0.044, 0.012, 0.0}, {}});
    return link;
}

} // namespace

KrSampleRobot sampleIndustrialArm()
{
    KrSampleRobot robot;
    robot.name = "industrial_arm";
    robot.materials[kPaint] = {{0.96, 0.56, 0.06}, 0.30, 45.0, ""};
    robot.materials[kCast] = {{0.20, 0.215, 0.24}, 0.22, 25.0, ""};
    robot.materials[kSteel] = {{0.70, 0.72, 0.75}, 0.55, 60.0, ""};
    robot.materials[kRubber] = {{0.055, 0.055, 0.06}, 0.12, 12.0, ""};
    robot.materials[kLabel] = {{0.93, 0.93, 0.90}, 0.10, 10.0, ""};

    const auto chain = [&robot](KrSampleLink link, int parent) {
        link.parent = parent;
        return robot.add(link);
    };
    // The shoulder's motor is on the left, the upper arm on the right.
    const auto swapped = [](KrSampleLink link) {
        for (auto& part : link.parts) {
            part.second.mirrored();
        }
        for (KrSampleVolume& volume : link.volumes) {
            volume.center.setY(-volume.center.y());
        }
        return link;
    };
    int tip = robot.add(baseLink());
    for (const KrSampleLink& link :
         {swapped(turret()), swapped(upperArm()), swapped(elbow()), forearm(), wrist(), flange(), gripper()}) {
        tip = chain(link, tip);
    }
    const int left = chain(finger("left"), tip);
    KrSampleLink right = finger("right");
    right.parts.clear();
    right.sharesShapeOf = left;
    right.mimicMaster = "gripper_left";
    chain(right, tip);
    return robot;
}

KrSampleRobot sampleWorkshopFloor(double radius, double discRadius)
{
    KrSampleRobot floor;
    floor.name = "floor";
    floor.materials["concrete"] = {{0.62, 0.64, 0.66}, 0.02, 5.0, ""};
    floor.materials["floor_marking"] = {{0.36, 0.38, 0.41}, 0.02, 5.0, ""};
    KrSampleLink link;
    link.name = "floor";
    link.density = 0.0;
    link.add("concrete", KrSampleSolid::cylinder(radius, 0.012, 0.004, 72).moved(0.0, 0.0, -0.0125));
    link.add("floor_marking", KrSampleSolid::cylinder(discRadius, 0.002, 0.0, 64).moved(0.0, 0.0, -0.0015));
    floor.add(link);
    return floor;
}
