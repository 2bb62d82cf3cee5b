// Looks at what krrender draws beside the robot.

#include <tests/support/Program.h>

#include <tests/support/Pictures.h>
#include <tests/support/Systems.h>

#include <toolkit/image/KrImage.h>
#include <toolkit/math/KrAngle.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace
{

/// A red box from z = 0 to 0.5 and a green one above it, with a wide volume about it, that swings out along +y; the
/// base's mass is that of a solid box of 0.2 x 0.2 x 0.8 m that leans to -y by 0.6 rad.
const char* const kUrdf = R"(<robot name="swing">
  <material name="red"><color rgba="0.9 0.05 0.05 1"/></material>
  <material name="green"><color rgba="0.05 0.8 0.05 1"/></material>
  <link name="base"><visual><origin xyz="0 0 0.25"/><geometry><box size="0.5 0.5 0.5"/></geometry>
    <material name="red"/></visual>
    <inertial><mass value="12"/><origin xyz="0 0 0.25" rpy="0.6 0 0"/>
      <inertia ixx="0.68" iyy="0.68" izz="0.08" ixy="0" ixz="0" iyz="0"/></inertial></link>
  <link name="arm"><visual><origin xyz="0 0 0.5"/><geometry><box size="0.2 0.2 1"/></geometry>
    <material name="green"/></visual>
    <collision><origin xyz="0 0 0.5"/><geometry><box size="0.6 0.6 0.8"/></geometry></collision></link>
  <joint name="swing" type="revolute"><parent link="base"/><child link="arm"/><origin xyz="0 0 0.5"/>
    <axis xyz="-1 0 0"/><limit lower="-2" upper="2" effort="1" velocity="1"/></joint>
</robot>
)";

/// Seen from the front, +x: +y is on the right; the arm's frame is in the middle, 74.6 pixels are a metre there.
class KrAidsProgram : public testing::Test
{
protected:
    KrImage draw(const std::string& arguments, const std::string& eye = "6,0,0.5") const
    {
        m_folder.write("swing.urdf", kUrdf);
        return drawFile("swing.urdf", arguments, eye);
    }
    KrImage drawFile(const std::string& file, const std::string& arguments, const std::string& eye = "6,0,0.5") const
    {
        const Answer answer = krrender(file + " -o a.png --eye " + eye + " --look-at 0,0,0.5 --fov 30 " + arguments);
        EXPECT_EQ(answer.status, 0) << answer.err;
        KrImage image;
        EXPECT_TRUE(image.readFile(m_folder.path("a.png"), KrImage::TopRowFirst));
        EXPECT_EQ(image.width(), 320u);
        return image;
    }
    bool isSame(const std::string& a, const std::string& b) const
    {
        return contentOf(m_folder.path(a)) == contentOf(m_folder.path(b));
    }
    Answer krrender(const std::string& arguments) const
    {
        return runCommand("cd '" + m_folder.path("") + "' && '" + std::string(KR_RENDER) +
                          "' --samples 1 --size 320x240 --background white " + arguments);
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

    // Beside the arm both sides of its volume are seen through each other, from wherever, faded or not.
    for (const std::string link : {"arm", "base"}) {
        const double inFront = meanColour(draw("--show volumes --select " + link), 145, 80, 2)[0];
        const double behind = meanColour(draw("--show volumes --select " + link, "-6,0,0.5"), 145, 80, 2)[0];
        EXPECT_NEAR(inFront, behind, 2.0) << link;
        EXPECT_LT(inFront, 240.0) << link;
    }
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
    const double area = Kr::Angle::kPi * (0.2 * 0.8 * 5.0 / 12.0) * 74.6 * 74.6;
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

TEST_F(KrAidsProgram, ASelectedLinkIsAloneAmongThoseThatShareItsShape)
{
    const boost::shared_ptr<KrBasePhysicalExtent> extent = Systems::box({0.4, 0.4, 0.4}, {0.0, 0.0, 0.0}, "green");
    KrIndividualManipulator robot("robot");
    robot.materialMap().set(std::string("green"), KrDataMap::material(KrColor(0.05, 0.8, 0.05)));
    KrManipulatorLink left = Systems::turningLink("left", {0.0, -1.0, 0.5});
    left.addShape(extent);
    KrManipulatorLink middle = Systems::turningLink("middle", {0.0, 0.0, 0.5});
    middle.addShape(extent);
    KrManipulatorLink right = Systems::turningLink("right", {0.0, 1.0, 0.5});
    right.addShape(middle.shapePointer(0)); // the very shape
    for (const KrManipulatorLink& link : {left, middle, right, KrManipulatorLink("bare")}) {
        robot.addChildLink(link);
    }
    KrManipulatorSystem system;
    system.manipulators().push_back(robot);
    ASSERT_TRUE(KrStatedSystem(system).writeFile(m_folder.path("row.xml")));

    const char* const names[] = {"left", "middle", "right"};
    for (unsigned int selected = 0; selected < 3; ++selected) {
        const KrImage image = drawFile("row.xml", std::string("--select ") + names[selected]);
        for (unsigned int i = 0; i < 3; ++i) {
            const std::array<double, 3> c = meanColour(image, 85 + 75 * i, 120, 2);
            EXPECT_EQ(c[1] > 3.0 * c[0], i == selected) << names[i] << " with --select " << names[selected];
        }
    }
    const Answer bare = krrender("row.xml -o a.png --select bare");
    EXPECT_EQ(bare.status, 0);
    EXPECT_EQ(bare.err, "warning: link \"bare\" has no shape to select\n");
}

TEST_F(KrAidsProgram, ABentLinkIsPosedSelectedAndEnclosedInEveryWayToDrawIt)
{
    const std::string hose = "'" KR_SAMPLES "/hose.xml'";
    m_folder.write("m.csv", "bend\n0\n150deg\n");
    // The camera is not the automatic one, which looks at the poses before.
    const std::string seen = " --show volumes --eye 3,-3,2 --look-at 0,0,0.4";
    ASSERT_EQ(krrender(hose + " -o one.png -j bend=150deg" + seen).status, 0);
    ASSERT_EQ(krrender(hose + " -o row.png --trajectory m.csv" + seen).status, 0);
    EXPECT_TRUE(isSame("row_0002.png", "one.png"));
    ASSERT_EQ(krrender(hose + " -o one.png -j bend=0" + seen).status, 0);
    EXPECT_TRUE(isSame("row_0001.png", "one.png"));
    const std::string automatic = " --show volumes,axes ";
    ASSERT_EQ(krrender(hose + " -o one.png -j bend=150deg --sidecar" + automatic).status, 0);
    ASSERT_EQ(krrender(hose + " -o two.png -j bend=150deg --camera one.png.json" + automatic).status, 0);
    EXPECT_TRUE(isSame("one.png", "two.png"));

    for (const char* bend : {"0", "150deg"}) {
        ASSERT_EQ(krrender(hose + " --file-view --range-map " + bend + ".csv 20x20 1x1 9 -j bend=" + bend).status, 0);
    }
    EXPECT_NE(contentOf(m_folder.path("0.csv")), contentOf(m_folder.path("150deg.csv")));

    // Nothing but the hose is left.
    const KrImage alone = drawFile(hose, "--select hose --fade 0");
    const std::size_t lit = countLit(alone, {255, 255, 255});
    EXPECT_GT(lit, 300u);
    EXPECT_LT(lit, countLit(drawFile(hose, ""), {255, 255, 255}) / 2);
}

TEST_F(KrAidsProgram, ImpossibleMassesAreToldOneByOneWhereTheyAreShown)
{
    std::string urdf = "<robot name='r'><link name='base'>";
    const std::string body = "<inertial><mass value='1'/><inertia ixx='1' iyy='1' izz='5' ixy='0' ixz='0' iyz='0'/>"
                             "</inertial><visual><geometry><box size='1 1 1'/></geometry></visual></link>";
    urdf += body + "<link name='top'>" + body +
            "<joint name='j' type='fixed'><parent link='base'/><child link='top'/></joint></robot>";
    m_folder.write("r.urdf", urdf);
    EXPECT_EQ(krrender("r.urdf -o a.png --convert r.xml").numErrorLines(), 1u);
    EXPECT_EQ(krrender("r.urdf -o a.png --show mass").numErrorLines(), 3u);
    const Answer native = krrender("r.xml -o a.png");
    EXPECT_EQ(native.numErrorLines(), 1u);
    EXPECT_NE(native.err.find("\"base\", nor those of 1 more link"), std::string::npos) << native.err;
    m_folder.write("none.urdf", "<robot name='r'><link name='a'><visual><geometry><box size='1 1 1'/></geometry>"
                                "</visual></link></robot>");
    EXPECT_NE(krrender("none.urdf -o a.png --show mass").err.find("no link has a mass"), std::string::npos);
    EXPECT_EQ(krrender("none.urdf -o a.png").err, "");
}

TEST_F(KrAidsProgram, CollisionShapesStandBesideOrInsteadOfWhatIsSeen)
{
    // Beside the arm its collision box is seen through; over the arm the arm is.
    const KrImage plain = draw("");
    const KrImage beside = draw("--show collision");
    const std::array<double, 3> veil = meanColour(beside, 145, 80, 2);
    EXPECT_GT(veil[1], veil[0] + 30.0) << "green over white";
    EXPECT_GT(veil[0], 60.0) << "white shines through";
    EXPECT_GT(meanColour(beside, 160, 90, 2)[2], meanColour(plain, 160, 90, 2)[2] + 5.0);
    EXPECT_GT(meanColour(beside, 150, 145, 2)[0], 100.0) << "the base collides with nothing";

    const KrImage instead = draw("--show collision --hide visuals");
    EXPECT_EQ(meanColour(instead, 150, 145, 2)[1], 255.0) << "the base";
    EXPECT_NEAR(meanColour(instead, 145, 80, 2)[0], meanColour(instead, 160, 90, 2)[0], 12.0) << "an even box";
    EXPECT_LT(meanColour(draw("--show collision -j swing=90deg"), 200, 120, 2)[0],
              meanColour(draw("-j swing=90deg --hide visuals --show axes"), 200, 120, 2)[0]);

    const Answer info = krrender("swing.urdf --info");
    EXPECT_NE(info.out.find("12 triangles, 1 collision shape\n"), std::string::npos) << info.out;
    ASSERT_EQ(krrender("swing.urdf --convert swing.xml").status, 0);
    ASSERT_EQ(krrender("swing.urdf -o a.png --show collision").status, 0);
    ASSERT_EQ(krrender("swing.xml -o b.png --show collision").status, 0);
    EXPECT_TRUE(isSame("a.png", "b.png"));
    EXPECT_EQ(krrender("swing.urdf -o a.png --hide visuals").status, 2);
    EXPECT_EQ(krrender("swing.urdf -o a.png --hide shapes --show axes").status, 2);
}

TEST_F(KrAidsProgram, ARobotOfCollisionGeometryOnlyIsDrawnSolidAndTold)
{
    m_folder.write("bare.urdf", "<robot name='r'><link name='a'><collision><geometry><box size='1 1 1'/></geometry>"
                                "</collision></link></robot>");
    ASSERT_EQ(krrender("bare.urdf --convert bare.xml").status, 0);
    for (const std::string file : {"bare.urdf", "bare.xml"}) {
        const Answer answer = krrender(file + " -o a.png --depth a.npy --eye 6,0,0");
        EXPECT_EQ(answer.status, 0);
        EXPECT_NE(answer.err.find("no link has a visible shape: the collision shapes are drawn"), std::string::npos)
            << answer.err;
        EXPECT_EQ(answer.err.find("empty"), std::string::npos) << answer.err;
        KrImage image;
        ASSERT_TRUE(image.readFile(m_folder.path("a.png"), KrImage::TopRowFirst));
        EXPECT_LT(meanColour(image, 160, 120, 4)[0], 200.0);
        // A metre at 5.5 m in 320 x 240 pixels of 30 degrees.
        EXPECT_NEAR(static_cast<double>(countLit(image, {255, 255, 255})), 81.4 * 81.4, 300.0);
    }
    const Answer none = krrender("bare.urdf -o a.png --show collision -q");
    EXPECT_EQ(none.err, "");
    m_folder.write("none.urdf", "<robot name='r'><link name='a'><visual><geometry><box size='1 1 1'/></geometry>"
                                "</visual></link></robot>");
    EXPECT_NE(krrender("none.urdf -o a.png --show collision").err.find("no link has a collision shape"),
              std::string::npos);
}

TEST_F(KrAidsProgram, EverythingThatIsShownIsInThePicture)
{
    // A thimble whose mass is that of a ball of 2 m, and which collides as a long rod aslant.
    m_folder.write("wide.urdf", "<robot name='r'><link name='a'><visual><geometry><box size='0.1 0.1 0.1'/></geometry>"
                                "</visual><collision><origin rpy='0.4 0.5 0.6'/><geometry><cylinder radius='0.1' "
                                "length='8'/></geometry></collision><inertial><mass value='1'/><inertia ixx='1.6' "
                                "iyy='1.6' izz='1.6' ixy='0' ixz='0' iyz='0'/></inertial></link></robot>");
    for (const std::string shown : {"mass", "collision", "volumes", "axes,mass", "mass,collision"}) {
        for (const std::string view : {"", "--azimuth 0 --elevation 0", "--views front,top"}) {
            ASSERT_EQ(krrender("wide.urdf -o a.png --show " + shown + " " + view).status, 0);
            KrImage image;
            ASSERT_TRUE(image.readFile(m_folder.path("a.png"), KrImage::TopRowFirst));
            EXPECT_GT(countLit(image, {255, 255, 255}), 500u) << shown;
            for (unsigned int x = 0; x < image.width(); ++x) {
                ASSERT_EQ(meanColour(image, x, 0, 0)[0] + meanColour(image, x, image.height() - 1, 0)[0], 510.0);
            }
            for (unsigned int y = 0; y < image.height(); ++y) {
                ASSERT_EQ(meanColour(image, 0, y, 0)[0] + meanColour(image, image.width() - 1, y, 0)[0], 510.0);
            }
        }
    }
}
