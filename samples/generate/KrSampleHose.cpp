#include "KrSampleSystems.h"

#include <toolkit/deformation/KrDeformationPhysicalExtent.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>

#include <boost/make_shared.hpp>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace
{

using Solid = KrSampleSolid;

constexpr double kPi = 3.14159265358979323846;
constexpr unsigned int kAround = 24;
/// The corners of the two triangles of a quadrangle.
constexpr unsigned int kHalves[2][3] = {{0, 1, 2}, {0, 2, 3}};
constexpr double kLength = 0.90;
constexpr double kRadius = 0.055;
constexpr double kBore = 0.043;
/// Between these two the hose bends; the rest is in the stiff ends.
constexpr double kBendStart = 0.10;
constexpr double kBendEnd = 0.80;

const char* const kRubber = "rubber";
const char* const kBrass = "brass";
const char* const kLining = "lining";
const char* const kSection = "cut_rubber";

/// A line of the hose's profile, turned about its axis: (distance along the axis, radius). It runs so that the outside
/// is on its right.
struct Strip
{
    std::string material;
    std::vector<std::pair<double, double>> profile;
    double v = 0.0; ///< where its texture coordinates begin
};

Strip ribbed(double from, double to, unsigned int numRibs)
{
    constexpr unsigned int kStepsPerRib = 4;
    constexpr double kHeight = 0.0035;
    Strip strip{kRubber, {}, 0.0};
    const unsigned int steps = numRibs * kStepsPerRib;
    for (unsigned int i = 0; i <= steps; ++i) {
        const double rib = std::cos(2.0 * kPi * i / kStepsPerRib);
        strip.profile.emplace_back(from + (to - from) * i / steps, kRadius - kHeight * (1.0 + rib) / 2.0);
    }
    return strip;
}

Strip bore()
{
    constexpr unsigned int kSteps = 28;
    Strip strip{kLining, {}, 0.5};
    for (unsigned int i = 0; i <= kSteps; ++i) {
        strip.profile.emplace_back(kLength * (kSteps - i) / kSteps, kBore);
    }
    return strip;
}

std::vector<Strip> strips()
{
    const double ribs = kRadius - 0.0035;
    std::vector<Strip> all = {ribbed(kBendStart, kBendEnd, 20), bore()};
    // Sharp edges: a strip for each face.
    const std::vector<std::pair<double, double>> bottom = {{0.0, kBore},   {0.0, 0.066},        {0.075, 0.066},
                                                           {0.085, 0.060}, {kBendStart, 0.060}, {kBendStart, ribs}};
    const std::vector<std::pair<double, double>> top = {{kBendEnd, ribs}, {kBendEnd, 0.060}, {0.815, 0.060},
                                                        {0.825, 0.064},   {0.845, 0.064},    {kLength, 0.050},
                                                        {kLength, kBore}};
    for (const auto& line : {bottom, top}) {
        for (std::size_t i = 0; i + 1 < line.size(); ++i) {
            all.push_back({kBrass, {line[i], line[i + 1]}, 0.5});
        }
    }
    return all;
}

double rounded(double value, double perUnit)
{
    const double result = std::round(value * perUnit) / perUnit;
    return result == 0.0 ? 0.0 : result;
}

/// A point of the hose when it is bent to a whole arc of `bend` rad towards +x: `s` along the axis, `radius` from it.
KrVector place(double s, double radius, double angle, double bend)
{
    const double length = kBendEnd - kBendStart;
    const double part = std::clamp(s - kBendStart, 0.0, length);
    const double turned = bend * part / length;
    // The chord of an arc, which a straight line has too.
    const double half = 0.5 * turned;
    const double chord = half == 0.0 ? part : part * std::sin(half) / half;
    const double straight = s - kBendStart - part;
    const double x = chord * std::sin(half) + straight * std::sin(turned);
    const double z = kBendStart + chord * std::cos(half) + straight * std::cos(turned);
    const double out = radius * std::cos(angle);
    return {rounded(x + out * std::cos(turned), 1e5), rounded(radius * std::sin(angle), 1e5),
            rounded(z - out * std::sin(turned), 1e5)};
}

KrXmlVectorVector vertices(double bend)
{
    KrXmlVectorVector list;
    for (const Strip& strip : strips()) {
        for (const auto& [s, radius] : strip.profile) {
            for (unsigned int i = 0; i < kAround; ++i) {
                list.push_back(place(s, radius, 2.0 * kPi * i / kAround, bend));
            }
        }
    }
    return list;
}

/// One texture unit is a metre along the hose and around it.
KrXmlVectorType<KrPlanarVector> textureCoordinates()
{
    KrXmlVectorType<KrPlanarVector> list;
    for (const Strip& strip : strips()) {
        for (const auto& [s, radius] : strip.profile) {
            for (unsigned int i = 0; i <= kAround; ++i) {
                list.push_back(
                    KrPlanarVector(rounded(s, 1e4), rounded(strip.v + 2.0 * kPi * kRadius * i / kAround, 1e4)));
            }
        }
    }
    return list;
}

KrXmlVectorType<KrTriPhysicalExtent::Group> groups()
{
    KrXmlVectorType<KrTriPhysicalExtent::Group> list;
    for (const char* const name : {kRubber, kBrass, kLining}) {
        list.push_back({std::string(name), {}});
        std::uint32_t row = 0;
        for (const Strip& strip : strips()) {
            for (std::size_t k = 0; k < strip.profile.size(); ++k, ++row) {
                for (std::uint32_t i = 0; i < kAround && strip.material == name && k + 1 < strip.profile.size(); ++i) {
                    const std::uint32_t v[4] = {row * kAround + i, row * kAround + (i + 1) % kAround,
                                                (row + 1) * kAround + (i + 1) % kAround, (row + 1) * kAround + i};
                    const std::uint32_t t = row * (kAround + 1) + i;
                    const std::uint32_t uv[4] = {t, t + 1, t + kAround + 2, t + kAround + 1};
                    for (const auto& corners : kHalves) {
                        KrTriangle triangle;
                        for (unsigned int c = 0; c < 3; ++c) {
                            // The vertices' numbers do for normals: strips have their own.
                            triangle.setCorner(c, v[corners[c]], v[corners[c]], uv[corners[c]]);
                        }
                        list.back().second().push_back(triangle);
                    }
                }
            }
        }
    }
    return list;
}

/// A red spiral all around, a blue line by hand and a row of yellow dots.
void paint(KrDeformationPhysicalExtent& hose)
{
    const double around = 2.0 * kPi * kRadius;
    const double pitch = 0.14;
    for (int turn = 0; turn < 5; ++turn) {
        const double u = 0.10 + pitch * turn;
        hose.addStroke({{{u - 0.1 * pitch, -0.1 * around}, {u + 1.1 * pitch, 1.1 * around}},
                        KrColor(0.82, 0.10, 0.08),
                        0.012,
                        0.9});
    }
    std::vector<KrPlanarVector> wave;
    for (int i = 0; i <= 96; ++i) {
        const double part = i / 96.0;
        wave.emplace_back(rounded(0.14 + 0.62 * part, 1e4), rounded(0.285 + 0.022 * std::sin(40.0 * part), 1e4));
    }
    hose.addStroke({wave, KrColor(0.05, 0.22, 0.62), 0.007, 0.8});
    for (int i = 0; i < 10; ++i) {
        hose.addStroke({{{rounded(0.16 + 0.064 * i, 1e4), 0.235}}, KrColor(0.98, 0.72, 0.05, 0.95), 0.014, 0.75});
    }
}

KrManipulatorLink hoseLink()
{
    KrTriPhysicalExtent mesh;
    mesh.setMesh(vertices(0.0), KrXmlVectorVector(vertices(0.0)), textureCoordinates(), groups(), "hose");
    const auto hose = boost::make_shared<KrDeformationPhysicalExtent>();
    hose->setMesh(mesh);
    for (const int degrees : {50, 100, 150}) {
        const double bend = degrees * kPi / 180.0;
        const std::string name = "bent_" + std::to_string(degrees);
        hose->setPose(name, vertices(bend).values());
        hose->setPoseJoint(hose->poseIndex(name), "bend", rounded(bend, 1e4));
    }
    paint(*hose);
    KrManipulatorLink link("hose");
    link.setDeformable(true);
    link.addShape(boost::shared_ptr<KrBasePhysicalExtent>(hose));
    KrCoordinateSystemTransformation origin;
    origin.setTranslation({0.0, 0.0, 0.10});
    link.jointKinematics().setName("hose_mount");
    link.jointKinematics().setOrigin(origin);
    return link;
}

} // namespace

KrIndividualManipulator sampleHose()
{
    KrSampleRobot station;
    station.name = "hose_station";
    station.materials[kRubber] = {KrColor(0.90, 0.90, 0.86), 0.25, 30.0, ""};
    station.materials[kBrass] = {KrColor(0.80, 0.62, 0.25), 0.6, 60.0, ""};
    station.materials[kLining] = {KrColor(0.22, 0.23, 0.25), 0.1, 10.0, ""};
    station.materials[kSection] = {KrColor(0.93, 0.50, 0.12), 0.1, 10.0, ""};
    station.materials["steel"] = {KrColor(0.42, 0.45, 0.49), 0.5, 50.0, ""};
    KrSampleLink base;
    base.name = "base";
    base.density = 7000.0;
    base.add("steel", Solid::cylinder(0.15, 0.03, 0.006));
    base.add("steel", Solid::cylinder(0.075, 0.07, 0.010).moved(0.0, 0.0, 0.03));
    base.add("steel", Solid::boltCircle(8, 0.12, 0.012, 0.012).moved(0.0, 0.0, 0.03));
    station.add(base);

    KrIndividualManipulator manipulator = station.manipulator();
    KrManipulatorLink& hose = manipulator.addChildLink(hoseLink());
    // A joint that moves nothing but the poses.
    KrManipulatorLink tip("hose_tip");
    tip.jointKinematics().setName("bend");
    tip.jointKinematics().setType(KrJointKinematics::Type::Revolute);
    tip.jointKinematics().setAxis({0.0, 1.0, 0.0});
    tip.jointKinematics().setLimits(0.0, 2.618);
    hose.addChildLink(tip);
    return manipulator;
}

std::vector<KrSampleEdit> sampleHoseEdits()
{
    return {{"cuts", "<core:cuts>\n"
                     "  <core:planeCut>\n"
                     "    <core:point>0 0 0.47</core:point>\n"
                     "    <core:normal>0.35 0 1</core:normal>\n"
                     "    <core:cap>cut_rubber</core:cap>\n"
                     "  </core:planeCut>\n"
                     "</core:cuts>"},
            {"pieceOffsets",
             "<core:pieceOffsets>\n"
             "  <core:coordinateSystemTransformation/>\n"
             "  <core:coordinateSystemTransformation><core:translation>0.11 -0.03 0.0</core:translation>"
             "<core:rollPitchYaw>0 0 -0.25</core:rollPitchYaw></core:coordinateSystemTransformation>\n"
             "</core:pieceOffsets>"}};
}
