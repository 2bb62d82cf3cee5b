#include <rendCore/base/KrTransformation.h>

#include <toolkit/math/KrAngle.h>
#include <toolkit/math/KrVector.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace
{

using Kr::Angle::kPi;
const double angle = 0.3;
const double c = std::cos(angle);
const double s = std::sin(angle);

void expectEntries(KrTransformation t, const std::vector<double>& expected)
{
    for (unsigned int i = 0; i < 16; ++i) {
        EXPECT_NEAR(t.getEntry()[i], expected[i], 1e-12) << "entry " << i;
    }
}

void expectNear(const KrVector& a, const KrVector& b)
{
    EXPECT_LT((a - b).length(), 1e-6) << "(" << a.x() << ", " << a.y() << ", " << a.z() << ")";
}

/// An exact rotation R = Rz(yaw) Ry(pitch) Rx(roll), made from its axes.
KrTransformation turned(double roll, double pitch, double yaw)
{
    const double cr = std::cos(roll), sr = std::sin(roll), cp = std::cos(pitch), sp = std::sin(pitch);
    const double cy = std::cos(yaw), sy = std::sin(yaw);
    KrTransformation t;
    t.setRotation(KrVector(cy * cp, sy * cp, -sp), KrVector(cy * sp * sr - sy * cr, sy * sp * sr + cy * cr, cp * sr),
                  KrVector(cy * sp * cr + sy * sr, sy * sp * cr - cy * sr, cp * cr));
    return t;
}

} // namespace

TEST(Clamp, WrapsOnce)
{
    EXPECT_EQ(Clamp(-30.0), 330.0f);
    EXPECT_EQ(Clamp(360.0), 0.0f);
    EXPECT_EQ(Clamp(725.0), 365.0f);
    EXPECT_EQ(Clamp(-400.0), -40.0f);
    EXPECT_EQ(Clamp(12.5), 12.5f);
}

TEST(KrTransformation, RotationsAreComputedInPlace)
{
    KrTransformation x, y, z;
    x.rotateX(angle);
    expectEntries(x, {1, 0, 0, 0, 0, c, c * s, 0, 0, -s, c - s * s, 0, 0, 0, 0, 1});
    y.rotateY(angle);
    expectEntries(y, {c, 0, -c * s, 0, 0, 1, 0, 0, s, 0, c - s * s, 0, 0, 0, 0, 1});
    z.rotateZ(angle);
    expectEntries(z, {c, c * s, 0, 0, -s, c - s * s, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});

    // The translation row goes through the same products.
    KrTransformation moved;
    moved.setTranslate(KrVector(1.0, 2.0, 3.0));
    moved.rotateZ(angle);
    double t[3];
    moved.getTranslate(t);
    EXPECT_NEAR(t[0], c - 2.0 * s, 1e-12);
    EXPECT_NEAR(t[1], s * t[0] + 2.0 * c, 1e-12);
    EXPECT_NEAR(t[2], 3.0, 1e-12);
}

TEST(KrTransformation, TranslateActsInTheTurnedFrame)
{
    KrTransformation t;
    t.translate(1.0, 2.0, 3.0);
    expectEntries(t, {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 1, 2, 3, 1});

    KrTransformation turn = turned(0.0, 0.0, 0.5 * kPi);
    turn.setTranslate(KrVector(5.0, 0.0, 0.0));
    turn.translate(1.0, 0.0, 0.0); // along the turned x axis, which is y
    KrVector position;
    turn.getTranslate(position);
    expectNear(position, KrVector(5.0, 1.0, 0.0));
}

TEST(KrTransformation, InverseSeesOnlyATranslationInTheLastColumn)
{
    KrTransformation moved, out;
    moved.translate(1.0, 2.0, 3.0);
    moved.inverse(out);
    EXPECT_TRUE(out == KrTransformation());

    // Row by row: a quarter turn about z and the translation (1, 2, 3).
    double entries[16] = {0, -1, 0, 1, 1, 0, 0, 2, 0, 0, 1, 3, 9, 9, 9, 1};
    KrTransformation t;
    t.assign(entries);
    t.inverse(t);
    expectEntries(t, {0, 1, 0, -2, -1, 0, 0, 1, 0, 0, 1, -3, 0, 0, 0, 1});
}

TEST(KrTransformation, InverseOfASingularOneIsNotFinite)
{
    double zeros[16] = {};
    KrTransformation t, out;
    t.assign(zeros);
    t.inverse(out);
    EXPECT_FALSE(std::isfinite(out.getEntry()[0]));
    EXPECT_EQ(out.getEntry()[15], 1.0);
}

TEST(KrTransformation, ProductIsStoredTransposed)
{
    KrTransformation a, b;
    a.translate(1.0, 0.0, 0.0);
    b.translate(0.0, 2.0, 0.0);
    expectEntries(a * b, {1, 0, 0, 1, 0, 1, 0, 2, 0, 0, 1, 0, 0, 0, 0, 1});

    KrTransformation turn = turned(0.0, 0.0, angle);
    turn.setTranslate(KrVector(1.0, 2.0, 3.0));
    expectEntries(turn.multiply3x3(KrTransformation()), {c, -s, 0, 0, s, c, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
}

TEST(KrTransformation, RotationBlockGoesInAndOutRowByRow)
{
    const double R[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    KrTransformation t;
    t.setTranslate(KrVector(-1.0, -2.0, -3.0));
    t.setRotation(R);
    expectEntries(t, {1, 4, 7, 0, 2, 5, 8, 0, 3, 6, 9, 0, -1, -2, -3, 1});
    double back[9];
    t.getRotation(back);
    EXPECT_EQ(back[1], 2.0);
    EXPECT_EQ(back[6], 7.0);
}

TEST(KrTransformation, MapsPointsByItsAxesAndTranslation)
{
    KrTransformation t;
    t.setRotation(KrVector(0, 1, 0), KrVector(0, 0, 1), KrVector(1, 0, 0));
    t.setTranslate(KrVector(10.0, 20.0, 30.0));
    expectNear(t * KrVector(1.0, 2.0, 3.0), KrVector(13.0, 21.0, 32.0));
}

TEST(KrTransformation, TellsRollPitchAndYaw)
{
    const double angles[][3] = {{0.1, 0.2, 0.3}, {-2.0, -1.2, 3.0}, {0.0, 1.5, 0.0}};
    for (const double(&expected)[3] : angles) {
        float roll, pitch, yaw;
        turned(expected[0], expected[1], expected[2]).getRotation(roll, pitch, yaw);
        EXPECT_NEAR(roll, expected[0], 1e-5);
        EXPECT_NEAR(pitch, expected[1], 1e-5);
        EXPECT_NEAR(yaw, expected[2], 1e-5);
    }
    // Pitch a quarter turn: whatever angles are told give the same rotation again.
    for (const double pitch : {0.5 * kPi, -0.5 * kPi}) {
        const KrTransformation t = turned(0.7, pitch, 0.4);
        float roll, told, yaw;
        t.getRotation(roll, told, yaw);
        EXPECT_EQ(yaw, 0.0f);
        expectNear(turned(roll, told, yaw) * KrVector(1.0, 2.0, 3.0), t * KrVector(1.0, 2.0, 3.0));
    }
}

TEST(KrTransformation, OrthoNormalKeepsTheDirectionOfX)
{
    KrTransformation t;
    t.setRotation(KrVector(0.0, 3.0, 0.0), KrVector(-2.0, 1.0, 0.0), KrVector(9.0, 9.0, 9.0));
    t.setTranslate(KrVector(1.0, 2.0, 3.0));
    ASSERT_TRUE(t.orthoNormal());
    expectEntries(t, {0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 1, 2, 3, 1});

    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const KrVector& y : {KrVector(0.0, 0.0, 0.0), KrVector(0.0, -5.0, 0.0), KrVector(nan, 0.0, 1.0)}) {
        t.setRotation(KrVector(0.0, 3.0, 0.0), y, KrVector(0.0, 0.0, 1.0));
        EXPECT_FALSE(t.orthoNormal());
        EXPECT_EQ(t.getEntry()[1], 3.0);
    }
}

TEST(KrTransformation, SelfTestPasses)
{
    EXPECT_TRUE(KrTransformation().selfTest());
}
