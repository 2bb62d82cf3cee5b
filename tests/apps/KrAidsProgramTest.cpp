// Looks at what krrender draws beside the robot.

#include "Program.h"

#include <tests/support/Pictures.h>

#include <toolkit/image/KrImage.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace
{

/// A red box from z = 0 to 0.5 and a green one above it that swings out along +y; the base's mass is that of a solid
/// box of 0.2 x 0.2 x 0.8 m that leans to -y by 0.6 rad.
const char* const kUrdf = R"(<robot name="swing">
  <material name="red"><color rgba="0.9 0.05 0.05 1"/></material>
  <material name="green"><color rgba="0.05 0.8 0.05 1"/></material>
  <link name="base"><visual><origin xyz="0 0 0.25"/><geometry><box size="0.5 0.5 0.5"/></geometry>
    <material name="red"/></visual>
    <inertial><mass value="12"/><origin xyz="0 0 0.25" rpy="0.6 0 0"/>
      <inertia ixx="0.68" iyy="0.68" izz="0.08" ixy="0" ixz="0" iyz="0"/></inertial></link>
  <link name="arm"><visual><origin xyz="0 0 0.5"/><geometry><box size="0.2 0.2 1"/></geometry>
    <material name="green"/></visual></link>
  <joint name="swing" type="revolute"><parent link="base"/><child link="arm"/><origin xyz="0 0 0.5"/>
    <axis xyz="-1 0 0"/><limit lower="-2" upper="2" effort="1" velocity="1"/></joint>
</robot>
)";

/// Seen from the front, +x: +y is on the right; the arm's frame is in the middle, 74.6 pixels are a metre there.
class KrAidsProgram : public testing::Test
{
protected:
    KrImage draw(const std::string& arguments) const
    {
        m_folder.write("swing.urdf", kUrdf);
        const Answer answer = runCommand("cd '" + m_folder.path("") + "' && '" + std::string(KR_RENDER) +
                                         "' swing.urdf -o a.png --samples 1 --size 320x240 --eye 6,0,0.5 "
                                         "--look-at 0,0,0.5 --fov 30 --background white " +
                                         arguments);
        EXPECT_EQ(answer.status, 0) << answer.err;
        KrImage image;
        EXPECT_TRUE(image.readFile(m_folder.path("a.png"), KrImage::TopRowFirst));
        EXPECT_EQ(image.width(), 320u);
        return image;
    }

    Folder m_folder;
};

/// Which of red, green and blue an aid's line has at a place, or a pixel beside it; -1 for none.
int lineAt(const KrImage& image, unsigned int x, unsigned int y)
{
    for (unsigned int row = y - 1; row <= y + 1; ++row) {
        for (unsigned int column = x - 1; column <= x + 1; ++column) {
            const std::array<double, 3> c = meanColour(image, column, row, 0);
            for (int k = 0; k < 3; ++k) {
                if (c[k] > 250.0 && c[(k + 1) % 3] < 5.0 && c[(k + 2) % 3] < 5.0) {
                    return k;
                }
            }
        }
    }
    return -1;
}

constexpr int kGreen = 1, kBlue = 2;

} // namespace

TEST_F(KrAidsProgram, AxesOfATurnedLinkAreSeenThroughItInTheirTrueDirections)
{
    const KrImage straight = draw("--show axes --axis-scale 0.2");
    EXPECT_EQ(lineAt(straight, 168, 120), kGreen) << "y to the right";
    EXPECT_EQ(lineAt(straight, 160, 110), kBlue) << "z up, inside the arm's box";
    EXPECT_EQ(lineAt(straight, 152, 120), -1);
    EXPECT_EQ(lineAt(draw("--show axes --axis-scale 0.05"), 168, 120), -1) << "shorter ones";

    // A quarter turn about -x: z to the right, y down.
    const KrImage turned = draw("--show axes --axis-scale 0.2 -j swing=90deg");
    EXPECT_EQ(lineAt(turned, 168, 120), kBlue);
    EXPECT_EQ(lineAt(turned, 160, 124), kGreen);
    EXPECT_EQ(lineAt(draw("-j swing=90deg"), 168, 120), -1);
}

TEST_F(KrAidsProgram, VolumesVeilTheLinksWithoutHidingThemOrFlickering)
{
    // The hull of a box lies in the very planes of the box.
    const KrImage plain = draw("");
    const KrImage veiled = draw("--show volumes");
    for (unsigned int y = 130; y <= 150; ++y) {
        for (unsigned int x = 145; x <= 175; ++x) {
            const std::array<double, 3> before = meanColour(plain, x, y, 0);
            const std::array<double, 3> after = meanColour(veiled, x, y, 0);
            ASSERT_GT(after[1], before[1] + 10.0) << x << " " << y << ": orange over red";
            ASSERT_GT(after[0], 2.0 * after[2]) << x << " " << y;
        }
    }
    EXPECT_GT(meanColour(veiled, 160, 90, 2)[1], meanColour(veiled, 160, 90, 2)[2] + 60.0) << "the arm is green yet";
}

TEST_F(KrAidsProgram, AnEllipsoidLeansAsItsInertiaSays)
{
    const KrImage image = draw("--show mass");
    double n = 0.0, sx = 0.0, sy = 0.0, sxx = 0.0, sxy = 0.0, syy = 0.0;
    for (unsigned int row = 0; row < image.height(); ++row) {
        for (unsigned int x = 0; x < image.width(); ++x) {
            const std::array<double, 3> c = meanColour(image, x, row, 0);
            if (c[2] > 60.0 && c[2] > 1.5 * c[0]) {
                const double y = -static_cast<double>(row);
                n += 1.0;
                sx += x;
                sy += y;
                sxx += double(x) * x;
                sxy += x * y;
                syy += y * y;
            }
        }
    }
    // Semi-axes of a box's ellipsoid: its edges times sqrt(5 / 12).
    const double area = 3.14159 * (0.2 * 0.8 * 5.0 / 12.0) * 74.6 * 74.6;
    EXPECT_NEAR(n, area, 0.1 * area);
    const double cxx = sxx - sx * sx / n, cxy = sxy - sx * sy / n, cyy = syy - sy * sy / n;
    // The long axis from the upright: -y is on the left.
    EXPECT_NEAR(0.5 * std::atan2(2.0 * cxy, cyy - cxx), -0.6, 0.05);
}

TEST_F(KrAidsProgram, SelectedLinksKeepTheirColourAndTheOthersTurnGrey)
{
    const KrImage plain = draw("");
    const KrImage selected = draw("--select arm");
    const std::array<double, 3> base = meanColour(selected, 150, 145, 2);
    EXPECT_LT(*std::max_element(base.begin(), base.end()) - *std::min_element(base.begin(), base.end()), 15.0);
    EXPECT_GT(base[0], 170.0) << "white shines through";
    const std::array<double, 3> arm = meanColour(selected, 160, 80, 2);
    EXPECT_GT(arm[1], 3.0 * arm[0]);
    // The more opaque, the darker.
    EXPECT_LT(meanColour(draw("--select arm --fade 0.6"), 150, 145, 2)[0], base[0] - 15.0);
    EXPECT_GT(meanColour(plain, 150, 145, 2)[0], 3.0 * meanColour(plain, 150, 145, 2)[1]);
}
