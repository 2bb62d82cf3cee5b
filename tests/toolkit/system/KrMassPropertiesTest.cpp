#include "KrPoseCompare.h"
#include <tests/support/MessageRecorder.h>

#include <toolkit/extent/KrEllipsoid.h>
#include <toolkit/extent/KrEllipsoidPhysicalExtent.h>
#include <toolkit/system/KrMassProperties.h>

#include <array>
#include <cmath>
#include <limits>
#include <vector>

namespace
{

/// A tensor, row by row.
using Tensor = std::array<std::array<double, 3>, 3>;

/// The tensor of a body with these moments about its own axes, whose axes stand in the frame as `axes` says.
Tensor turned(const KrVector& moments, const KrCoordinateSystemTransformation& axes)
{
    Tensor result = {};
    for (unsigned int i = 0; i < 3; ++i) {
        for (unsigned int j = 0; j < 3; ++j) {
            for (unsigned int k = 0; k < 3; ++k) {
                result[i][j] += axes.rotation(i, k) * moments[k] * axes.rotation(j, k);
            }
        }
    }
    return result;
}

KrMassProperties body(double mass, const Tensor& inertia, const KrVector& center)
{
    KrMassProperties result;
    result.setMass(mass);
    result.setCenterOfMass(center);
    result.setInertia({inertia[0][0], inertia[1][1], inertia[2][2], inertia[0][1], inertia[0][2], inertia[1][2]});
    return result;
}

KrVector semiAxesOf(const KrEllipsoid& ellipsoid)
{
    return dynamic_cast<const KrEllipsoidPhysicalExtent&>(*ellipsoid.physicalExtent()).semiAxes();
}

/// A solid ellipsoid has I1 = m (b b + c c) / 5, and so on.
KrVector momentsOf(double mass, const KrVector& semiAxes)
{
    const KrVector square(semiAxes.x() * semiAxes.x(), semiAxes.y() * semiAxes.y(), semiAxes.z() * semiAxes.z());
    return KrVector(square.y() + square.z(), square.x() + square.z(), square.x() + square.y()) * (mass / 5.0);
}

struct Solid
{
    const char* name;
    KrVector moments; ///< for 3 kg
    double tolerance = 1e-9;
};

const Solid kSolids[] = {
    {"box 1 x 2 x 3 m", KrVector(0.25 * 13.0, 0.25 * 10.0, 0.25 * 5.0)}, // m (b b + c c) / 12
    {"cylinder r 0.5 m, h 4 m", KrVector(4.1875, 4.1875, 0.375)},        // m (3 r r + h h) / 12, m r r / 2
    {"sphere r 0.5 m", KrVector(0.3, 0.3, 0.3)},                         // 2 m r r / 5
    // Drawn a hundredth as thick as long: m / 5 (a / 100)^2 more, with semi-axes of up to 1.3 m.
    {"thin plate 1 x 2 m", KrVector(0.25 * 4.0, 0.25 * 1.0, 0.25 * 5.0), 1.01e-4}, // I3 = I1 + I2
    {"thin rod 2 m", KrVector(0.0, 1.0, 1.0), 2.01e-4},                            // m l l / 12; two of them
};

} // namespace

TEST(KrMassProperties, EllipsoidHasTheMassAndTheInertiaOfTheBody)
{
    MessageRecorder messages;
    std::vector<KrCoordinateSystemTransformation> turns = {{},
                                                           turn(KrVector(1.0, 2.0, 3.0), 0.7),
                                                           turn(KrVector(-1.0, 0.3, 0.2), 2.5),
                                                           turn(KrVector(0.0, 0.0, 1.0), kQuarterTurn)};
    const KrVector center(0.1, -0.2, 0.3);
    for (const Solid& solid : kSolids) {
        for (const KrCoordinateSystemTransformation& axes : turns) {
            SCOPED_TRACE(solid.name);
            const Tensor inertia = turned(solid.moments, axes);
            KrEllipsoid ellipsoid;
            KrCoordinateSystemTransformation principal;
            ASSERT_TRUE(body(3.0, inertia, center).fillEllipsoid("link", ellipsoid, principal));
            ASSERT_FALSE(ellipsoid.isEmpty());

            // The second way: the tensor of the ellipsoid, about its own axes, turned back into the link's frame.
            const Tensor back = turned(momentsOf(3.0, semiAxesOf(ellipsoid)), principal);
            for (unsigned int i = 0; i < 3; ++i) {
                for (unsigned int j = 0; j < 3; ++j) {
                    EXPECT_NEAR(back[i][j], inertia[i][j], solid.tolerance) << i << j;
                }
            }
            expectNear(principal.translation(), center);
            const KrVector x = principal.transformDirection(KrVector(1.0, 0.0, 0.0));
            const KrVector y = principal.transformDirection(KrVector(0.0, 1.0, 0.0));
            expectNear(x.cross(y), principal.transformDirection(KrVector(0.0, 0.0, 1.0)));
            EXPECT_TRUE(ellipsoid.physicalExtent()->placement() == principal);
            EXPECT_TRUE(ellipsoid.physicalExtent()->triExtent()) << "even a flat one is seen";
        }
    }
    EXPECT_EQ(messages.take(), 0u);
}

TEST(KrMassProperties, LongestSemiAxisLiesAlongTheBody)
{
    // A rod along (1 1 0): least moment about that direction, most of its ellipsoid along it.
    const KrCoordinateSystemTransformation axes = turn(KrVector(0.0, 0.0, 1.0), kHalfTurn / 4.0);
    KrEllipsoid ellipsoid;
    KrCoordinateSystemTransformation principal;
    ASSERT_TRUE(
        body(2.0, turned(KrVector(0.1, 1.0, 1.0), axes), KrVector()).fillEllipsoid("rod", ellipsoid, principal));
    const KrVector semiAxes = semiAxesOf(ellipsoid);
    unsigned int longest = 0;
    for (unsigned int i = 1; i < 3; ++i) {
        longest = semiAxes[i] > semiAxes[longest] ? i : longest;
    }
    KrVector own;
    own[longest] = 1.0;
    const KrVector direction = principal.transformDirection(own);
    EXPECT_NEAR(std::abs(direction.dot(KrVector(1.0, 1.0, 0.0))), std::sqrt(2.0), 1e-9);
    EXPECT_NEAR(semiAxes[longest], std::sqrt(5.0 * 1.9 / 4.0), 1e-9); // 5 (1 + 1 - 0.1) / (2 m)
}

TEST(KrMassProperties, ImpossibleBodiesAreToldWithTheirLink)
{
    MessageRecorder messages;
    const KrCoordinateSystemTransformation upright;
    const KrMassProperties impossible[] = {
        body(1.0, turned(KrVector(1.0, 1.0, 2.1), upright), KrVector()),                            // 1 + 1 < 2.1
        body(1.0, turned(KrVector(1.0, 0.2, 0.2), turn(KrVector(1.0, 1.0, 1.0), 1.0)), KrVector()), // the same, turned
        body(1.0, turned(KrVector(-1.0, -1.0, -1.0), upright), KrVector()),
        body(-1.0, turned(KrVector(1.0, 1.0, 1.0), upright), KrVector()),
        // Semi-axes that are no numbers.
        body(1e-310, turned(KrVector(1.0, 1.0, 1.0), upright), KrVector()),
        body(1e-200, turned(KrVector(1e200, 1e200, 1e200), upright), KrVector()),
        // Some that no picture holds.
        body(1e-3, turned(KrVector(1e18, 1e18, 1e18), upright), KrVector()),
        body(1.0, turned(KrVector(1.0, 1.0, 1.0), upright), KrVector(0.0, 1e12, 0.0)),
        // Products alone: principal moments of 0.5, 0 and -0.5.
        body(1.0, {{{0.0, 0.5, 0.0}, {0.5, 0.0, 0.0}, {0.0, 0.0, 0.0}}}, KrVector()),
    };
    for (const KrMassProperties& properties : impossible) {
        KrEllipsoid ellipsoid(KrVector(1.0, 1.0, 1.0), upright);
        KrCoordinateSystemTransformation principal;
        EXPECT_FALSE(properties.whyImpossible().empty());
        EXPECT_FALSE(properties.fillEllipsoid("forearm", ellipsoid, principal));
        EXPECT_TRUE(ellipsoid.isEmpty());
        EXPECT_EQ(messages.take(), 1u);
        EXPECT_NE(messages.last().find("forearm"), std::string::npos);
    }

    KrEllipsoid ellipsoid;
    KrCoordinateSystemTransformation principal;
    // Rounded to six digits, a plate misses the inequality by a little: still a plate.
    EXPECT_TRUE(body(3.0, turned(KrVector(1.0, 0.25, 1.2500008), upright), KrVector())
                    .fillEllipsoid("plate", ellipsoid, principal));
    EXPECT_TRUE(ellipsoid.physicalExtent()->triExtent());
    EXPECT_TRUE(body(3.0, Tensor(), KrVector()).fillEllipsoid("point", ellipsoid, principal));
    EXPECT_FALSE(ellipsoid.physicalExtent()->triExtent());
    EXPECT_FALSE(KrMassProperties().fillEllipsoid("nothing", ellipsoid, principal));
    EXPECT_TRUE(ellipsoid.isEmpty());
    EXPECT_EQ(messages.take(), 0u);
}

TEST(KrMassProperties, AnInertiaInAFileIsSixFiniteNumbers)
{
    MessageRecorder messages;
    KrMassProperties properties =
        body(2.0, turned(KrVector(1.0, 2.0, 2.5), turn(KrVector(1.0, 1.0, 0.0), 0.3)), KrVector(1.0, 2.0, 3.0));
    EXPECT_TRUE(properties.selfTest());
    const KrMassProperties before = properties;
    const std::string begin = "<massProperties xmlns=\"" + properties.token().uri + "\"><mass>1</mass><inertia>";
    for (const std::string inertia : {"", "1 1 1", "1 1 1 0 0 0 0", "1 1 nan 0 0 0", "1 1 inf 0 0 0"}) {
        const std::string text = begin + inertia + "</inertia></massProperties>";
        EXPECT_FALSE(properties.readBuffer(text.data(), text.size())) << inertia;
        EXPECT_EQ(messages.take(), 1u) << inertia;
        EXPECT_TRUE(properties == before);
    }
    const std::string text = begin + "1 2 3 4 5 6</inertia></massProperties>";
    ASSERT_TRUE(properties.readBuffer(text.data(), text.size()));
    EXPECT_EQ(properties.inertia(), (std::array<double, 6>{1.0, 2.0, 3.0, 4.0, 5.0, 6.0}));
}
