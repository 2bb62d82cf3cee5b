#include "KrBenchMade.h"

#include "KrBenchRobot.h"

#include <toolkit/math/KrAngle.h>
#include <toolkit/math/KrColor.h>

#include <boost/make_shared.hpp>

#include <algorithm>
#include <cmath>

namespace
{

constexpr double kTwoPi = 2.0 * Kr::Angle::kPi;

/// No two of some hundreds are alike.
KrColor colorOf(unsigned int number)
{
    // Multiples of irrational numbers fill the cube of colours evenly.
    const auto part = [number](double step) {
        const double value = step * (number + 1);
        return 0.2 + 0.7 * (value - std::floor(value));
    };
    return {part(0.6180339887), part(0.7548776662), part(0.5698402910)};
}

/// A link that turns, `offset` from its parent link.
KrManipulatorLink turningLink(unsigned int number, const KrVector& offset, const KrVector& axis)
{
    KrManipulatorLink link("link_" + std::to_string(number));
    KrJointKinematics& joint = link.jointKinematics();
    joint.setName("joint_" + std::to_string(number));
    joint.setType(KrJointKinematics::Type::Revolute);
    joint.setLimits(-1.0, 1.0);
    joint.setAxis(axis);
    KrCoordinateSystemTransformation origin;
    origin.setTranslation(offset);
    joint.setOrigin(origin);
    return link;
}

KrVector axisOf(unsigned int number)
{
    return number % 2 == 0 ? KrVector(0.0, 0.0, 1.0) : KrVector(0.0, 1.0, 0.0);
}

/// `shapes` in a row, each on the one before it, the first at `offset`; their numbers count from `first`.
KrManipulatorLink limb(unsigned int first, const KrBenchMade::Shapes& shapes, const KrVector& offset, double length)
{
    KrManipulatorLink below;
    // From the tip: a link that is given children keeps a copy of them.
    for (std::size_t i = shapes.size(); i-- > 0;) {
        const auto number = first + static_cast<unsigned int>(i);
        KrManipulatorLink link = turningLink(number, i == 0 ? offset : KrVector(0.0, 0.0, length), axisOf(number));
        link.addShape(shapes[i]);
        if (i + 1 < shapes.size()) {
            link.childLinks().push_back(std::move(below));
        }
        below = std::move(link);
    }
    return below;
}

KrManipulatorSystem arm()
{
    constexpr unsigned int kMeshes = 11;
    constexpr double kLength = 0.2;
    KrIndividualManipulator robot("arm");
    robot.addShape(KrBenchMade::body(kLength, 0.12, 96, 64, 6));
    KrBenchMade::Shapes shapes;
    for (unsigned int i = 1; i < kMeshes; ++i) {
        // Four of 6 groups and seven of 5 make 59.
        shapes.push_back(KrBenchMade::body(kLength, 0.1 - 0.005 * i, 96, 64, i < 4 ? 6 : 5, 6 * i));
    }
    robot.childLinks().push_back(limb(1, shapes, {0.0, 0.0, kLength}, kLength));
    KrManipulatorSystem system;
    system.manipulators().push_back(std::move(robot));
    return system;
}

KrManipulatorSystem humanoid()
{
    constexpr double kLength = 0.15;
    KrIndividualManipulator robot("humanoid");
    robot.addShape(KrBenchMade::body(0.5, 0.15, 40, 45, 2));
    const struct
    {
        unsigned int meshes;
        KrVector offset;
    } limbs[] = {{7, {0.0, 0.2, 0.4}},
                 {7, {0.0, -0.2, 0.4}},
                 {6, {0.0, 0.1, -0.9}},
                 {6, {0.0, -0.1, -0.9}},
                 {3, {0.0, 0.0, 0.5}}};
    unsigned int number = 1;
    for (const auto& [meshes, offset] : limbs) {
        KrBenchMade::Shapes shapes;
        for (unsigned int i = 0; i < meshes; ++i) {
            shapes.push_back(KrBenchMade::body(kLength, 0.06, 40, 45, 2, 2 * (number + i)));
        }
        robot.childLinks().push_back(limb(number, shapes, offset, kLength));
        number += meshes;
    }
    KrManipulatorSystem system;
    system.manipulators().push_back(std::move(robot));
    return system;
}

} // namespace

KrManipulatorSystem KrBenchMade::robot(const std::string& name)
{
    if (name == "arm") {
        return arm();
    }
    if (name == "humanoid") {
        return humanoid();
    }
    throw KrBenchFailure("no robot of the name " + name + " is made here: arm and humanoid are");
}

boost::shared_ptr<KrTriPhysicalExtent> KrBenchMade::body(double length, double radius, unsigned int rings,
                                                         unsigned int segments, unsigned int groups,
                                                         unsigned int firstColor)
{
    KrXmlVectorVector vertices;
    KrXmlVectorVector normals;
    vertices.resize((rings + 1) * segments);
    normals.resize(vertices.size());
    for (unsigned int r = 0; r <= rings; ++r) {
        const double t = static_cast<double>(r) / rings;
        // An ellipse with ripples, nearly closed at both ends.
        const double angle = Kr::Angle::kPi * (0.02 + 0.96 * t);
        const double width = radius * (std::sin(angle) + 0.05 * std::sin(8.0 * angle));
        const double slope = radius * Kr::Angle::kPi * 0.96 * (std::cos(angle) + 0.4 * std::cos(8.0 * angle));
        for (unsigned int s = 0; s < segments; ++s) {
            const double turn = kTwoPi * s / segments;
            const KrVector outwards(std::cos(turn), std::sin(turn), 0.0);
            vertices[r * segments + s] = width * outwards + KrVector(0.0, 0.0, length * t);
            normals[r * segments + s] = length * outwards - KrVector(0.0, 0.0, slope);
            normals[r * segments + s].normalize();
        }
    }
    auto extent = boost::make_shared<KrTriPhysicalExtent>();
    KrXmlVectorType<KrTriPhysicalExtent::Group> bands;
    for (unsigned int g = 0; g < groups; ++g) {
        const std::string name = "band_" + std::to_string(firstColor + g);
        extent->setMaterial(name, KrDataMap::material(colorOf(firstColor + g)));
        KrXmlVectorType<KrTriangle> triangles;
        for (unsigned int r = rings * g / groups; r < rings * (g + 1) / groups; ++r) {
            for (unsigned int s = 0; s < segments; ++s) {
                const unsigned int next = (s + 1) % segments;
                const unsigned int low = r * segments;
                const unsigned int high = low + segments;
                triangles.push_back(KrTriangle(low + s, low + next, high + next));
                triangles.push_back(KrTriangle(low + s, high + next, high + s));
            }
        }
        bands.push_back(KrTriPhysicalExtent::Group(name, triangles));
    }
    if (!extent->setMesh(std::move(vertices), std::move(normals), {}, std::move(bands), "body")) {
        throw KrBenchFailure("the body was not made");
    }
    return extent;
}

KrManipulatorSystem KrBenchMade::chain(const Shapes& shapes, double length)
{
    KrIndividualManipulator robot("chain");
    robot.childLinks().push_back(limb(0, shapes, KrVector(0.0, 0.0, 0.0), length));
    KrManipulatorSystem system;
    system.manipulators().push_back(std::move(robot));
    return system;
}

KrManipulatorSystem KrBenchMade::star(const Shapes& shapes, double distance)
{
    KrIndividualManipulator robot("star");
    const auto columns = static_cast<unsigned int>(std::ceil(std::sqrt(static_cast<double>(shapes.size()))));
    for (unsigned int i = 0; i < shapes.size(); ++i) {
        KrManipulatorLink link =
            turningLink(i, KrVector(distance * (i / columns), distance * (i % columns), 0.0), axisOf(i));
        link.addShape(shapes[i]);
        robot.childLinks().push_back(std::move(link));
    }
    KrManipulatorSystem system;
    system.manipulators().push_back(std::move(robot));
    return system;
}
