#pragma once

#include <toolkit/math/KrAngle.h>
#include <toolkit/math/KrCoordinateSystemTransformation.h>

#include <gtest/gtest.h>

constexpr double kHalfTurn = Kr::Angle::kPi;
constexpr double kQuarterTurn = kHalfTurn / 2.0;

inline void expectNear(const KrVector& actual, const KrVector& expected, double tolerance = 1e-12)
{
    EXPECT_NEAR(actual.x(), expected.x(), tolerance);
    EXPECT_NEAR(actual.y(), expected.y(), tolerance);
    EXPECT_NEAR(actual.z(), expected.z(), tolerance);
}

/// Compares with a pose that maps the unit vectors x, y, z of the child to these and the origin to `origin`.
inline void expectPose(const KrCoordinateSystemTransformation& actual, const KrVector& x, const KrVector& y,
                       const KrVector& z, const KrVector& origin)
{
    expectNear(actual.transformDirection(KrVector(1.0, 0.0, 0.0)), x);
    expectNear(actual.transformDirection(KrVector(0.0, 1.0, 0.0)), y);
    expectNear(actual.transformDirection(KrVector(0.0, 0.0, 1.0)), z);
    expectNear(actual.translation(), origin);
}

inline KrCoordinateSystemTransformation shift(double x, double y, double z)
{
    KrCoordinateSystemTransformation pose;
    pose.setTranslation(KrVector(x, y, z));
    return pose;
}

inline KrCoordinateSystemTransformation turn(const KrVector& axis, double angle)
{
    KrCoordinateSystemTransformation pose;
    pose.setAxisAngle(axis, angle);
    return pose;
}
