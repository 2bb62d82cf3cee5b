// The camera in numbers, as a user of krrender meets it.

#include <tests/support/Program.h>

#include <rendCore/base/KrRenderTypes.h>
#include <rendCore/capture/KrFrameDescription.h>
#include <toolkit/image/KrImage.h>

#include <gtest/gtest.h>

#include <cmath>

namespace
{

/// A flat green target at (0.2, 0.3, 0.5) that faces +x, turned in its plane, beside a small box.
const char* const kUrdf = R"(<robot name="target">
  <material name="green"><color rgba="0 0.8 0 1"/></material>
  <material name="red"><color rgba="0.8 0 0 1"/></material>
  <link name="base"><visual><origin xyz="0 -0.6 0"/><geometry><box size="0.1 0.1 0.1"/></geometry>
    <material name="red"/></visual></link>
  <link name="plate"><visual><origin xyz="0 0 0" rpy="0.5536 0 0"/><geometry><box size="0.00002 0.4 0.4"/></geometry>
    <material name="green"/></visual></link>
  <joint name="lift" type="prismatic"><parent link="base"/><child link="plate"/><origin xyz="0.2 0.3 0"/>
    <axis xyz="0 0 1"/><limit lower="0" upper="1" effort="1" velocity="1"/></joint>
</robot>
)";

class KrRenderCamera : public testing::Test
{
protected:
    Answer krrender(const std::string& arguments) const
    {
        return runCommand("cd '" + m_folder.path("") + "' && '" + std::string(KR_RENDER) + "' " + arguments);
    }
    /// Draws the target, and gives what was written beside the picture.
    KrFrameDescription described(const std::string& arguments, const std::string& picture) const
    {
        m_folder.write("target.urdf", kUrdf);
        const Answer answer = krrender("target.urdf -j lift=0.5 --sidecar -o " + picture + " " + arguments);
        EXPECT_EQ(answer.status, 0) << answer.err;
        KrFrameDescription frame;
        EXPECT_TRUE(frame.readFile(m_folder.path(picture + ".json")));
        return frame;
    }
    std::string content(const std::string& name) const { return contentOf(m_folder.path(name)); }

    Folder m_folder;
};

/// The middle of every pixel with some green in it, from the upper left corner. Nothing else is green: the background
/// is black, the box red. Pixels that are covered in part count on every side, however bright the lamps make them.
osg::Vec2d greenCentroid(const KrImage& image)
{
    double u = 0.0;
    double v = 0.0;
    double count = 0.0;
    const unsigned char* pixel = image.data();
    for (unsigned int row = 0; row < image.height(); ++row) {
        for (unsigned int column = 0; column < image.width(); ++column, pixel += image.channels()) {
            if (pixel[1] > 4) {
                u += column + 0.5;
                v += row + 0.5;
                count += 1.0;
            }
        }
    }
    return osg::Vec2d(u, v) / count;
}

} // namespace

TEST_F(KrRenderCamera, TheSidecarSaysWhereAKnownPointIsInThePicture)
{
    for (const char* const camera : {"--fov 25", "--intrinsics 900,900,320,240", "--intrinsics 980,850,260.3,281.7"}) {
        const KrFrameDescription frame = described(
            std::string("--size 640x480 --samples 16 --background black --azimuth 0 --elevation 0 ") + camera, "a.png");
        ASSERT_TRUE(frame.intrinsics);
        EXPECT_EQ(frame.rowOrder, KrFrameDescription::RowOrder::TopRowFirst);
        ASSERT_EQ(frame.manipulators.size(), 1u);
        ASSERT_EQ(frame.manipulators[0].joints.size(), 1u);
        EXPECT_EQ(frame.manipulators[0].joints[0].position, 0.5);
        KrImage image;
        ASSERT_TRUE(image.readFile(m_folder.path("a.png"), KrImage::TopRowFirst));
        ASSERT_EQ(image.width(), frame.width);
        const osg::Vec2d told = frame.intrinsics->project(osg::Vec3d(0.2, 0.3, 0.5) * frame.opticalView());
        const osg::Vec2d found = greenCentroid(image);
        // Whole pixels are counted here; half a drawn one would be 0.125 of the picture's.
        EXPECT_NEAR(found.x(), told.x(), 0.05) << camera;
        EXPECT_NEAR(found.y(), told.y(), 0.05) << camera;
    }
}

TEST_F(KrRenderCamera, ACameraThatIsReadBackDrawsTheSamePicture)
{
    const KrFrameDescription frame = described("--size 320x240 --intrinsics 333.3,321,150,131 --azimuth 33", "a.png");
    EXPECT_EQ(*frame.intrinsics, (KrCameraIntrinsics{320, 240, 333.3, 321.0, 150.0, 131.0}));
    described("--camera a.png.json", "b.png");
    EXPECT_EQ(content("a.png"), content("b.png"));
    EXPECT_EQ(content("a.png.json"), content("b.png.json"));
    described("--size 321x199 --fov 33", "c.png");
    described("--camera c.png.json", "d.png");
    EXPECT_EQ(content("c.png"), content("d.png"));
    // Twice the size shows the same.
    EXPECT_EQ(*described("--camera a.png.json --size 640x480", "e.png").intrinsics,
              (KrCameraIntrinsics{640, 480, 666.6, 642.0, 300.0, 262.0}));
}

TEST_F(KrRenderCamera, TrajectoriesAndDepthsHaveTheirsToo)
{
    m_folder.write("target.urdf", kUrdf);
    m_folder.write("motion.csv", "time,lift\n0.5,0.1\n1.0,0.2\n1.5,0.3\n");
    const Answer answer = krrender("target.urdf --size 64x48 --samples 1 --sidecar --trajectory motion.csv -o f%d.png");
    ASSERT_EQ(answer.status, 0) << answer.err;
    for (unsigned int i = 1; i <= 3; ++i) {
        KrFrameDescription frame;
        ASSERT_TRUE(frame.readFile(m_folder.path("f" + std::to_string(i) + ".png.json")));
        EXPECT_EQ(frame.frameNumber, i);
        EXPECT_EQ(frame.time, 0.5 * i);
        EXPECT_NEAR(frame.manipulators.at(0).joints.at(0).position, 0.1 * i, 1e-12);
    }
    ASSERT_EQ(krrender("target.urdf --size 64x48 --sidecar --depth d.png").status, 0);
    KrFrameDescription depth;
    ASSERT_TRUE(depth.readFile(m_folder.path("d.png.json")));
    EXPECT_EQ(depth.channels, 1u);
    EXPECT_NE(depth.quantity, "color");
}

TEST_F(KrRenderCamera, AFrameThatIsNotWrittenHasNoDescription)
{
    m_folder.write("target.urdf", kUrdf);
    m_folder.write("motion.csv", "lift\n0\n0.1\n0.2\n0.3\n0.4\n0.5\n");
    std::filesystem::create_directory(m_folder.path("f3.png")); // the third picture cannot be put into its place
    const Answer answer = krrender("target.urdf --size 64x48 --samples 1 --sidecar --trajectory motion.csv -o f%d.png");
    EXPECT_EQ(answer.status, 1);
    EXPECT_EQ(m_folder.names(), (std::set<std::string>{"f1.png", "f1.png.json", "f2.png", "f2.png.json", "f3.png",
                                                       "motion.csv", "target.urdf"}));
}

TEST_F(KrRenderCamera, APrincipalPointOutsideThePictureNeedsAnEyePoint)
{
    const std::string camera = "--size 64x48 --intrinsics 90,90,-20,24 ";
    const KrFrameDescription frame = described(camera + "--eye 3,0,1 --look-at 0,0,0.5", "a.png");
    ASSERT_TRUE(frame.intrinsics);
    EXPECT_EQ(frame.intrinsics->cx, -20.0);
    EXPECT_EQ(krrender("target.urdf -o b.png " + camera + "--look-at 0,0,0.5").status, 2);
}

TEST_F(KrRenderCamera, WrongCamerasAreTold)
{
    described("--size 64x48", "good.png");
    m_folder.write("bad.json", "{}");
    const std::string good = content("good.png.json");
    const auto writeChanged = [&](const char* name, const std::string& from, const std::string& to) {
        ASSERT_NE(good.find(from), std::string::npos);
        m_folder.write(name, std::string(good).replace(good.find(from), from.size(), to));
    };
    writeChanged("version.json", "\"version\": 1", "\"version\": 2");
    writeChanged("format.json", "krFrameDescription", "otherDescription");
    writeChanged("pose.json", "\"worldToOptical\": [[", "\"worldToOptical\": [[5");
    writeChanged("foreign.json", "\"format\": \"krFrameDescription\",\n\"version\": 1,", "");
    EXPECT_EQ(krrender("target.urdf -o a.png --camera foreign.json").status, 0);
    const std::pair<const char*, int> wrong[] = {
        {"--intrinsics 1,2,3", 2},     {"--intrinsics 0,100,32,24", 2},     {"--intrinsics 100,100,nan,24", 2},
        {"--intrinsics 9,9,-5,24", 2}, {"--intrinsics 9,9,3,2 --fov 3", 2}, {"--camera bad.json --eye 1,2,3", 2},
        {"--camera bad.json", 1},      {"--camera missing.json", 1},        {"--camera version.json", 1},
        {"--camera format.json", 1},   {"--camera pose.json", 1},
    };
    for (const auto& [arguments, status] : wrong) {
        const Answer answer = krrender(std::string("target.urdf --size 64x48 -o a.png ") + arguments);
        EXPECT_EQ(answer.status, status) << arguments << answer.err;
        EXPECT_EQ(answer.numErrorLines(), 1u) << answer.err;
    }
    EXPECT_EQ(krrender("target.urdf --info --sidecar").status, 2);
    m_folder.write("motion.csv", "lift\n0.1\n");
    EXPECT_EQ(krrender("target.urdf --trajectory motion.csv --sidecar -o motion.mp4").status, 2);
}

TEST_F(KrRenderCamera, TwoRunsGiveTheSameBytes)
{
    const std::string draw = "'" KR_SAMPLES "/industrial_arm.xml' --size 320x240 -j joint_2=35deg --show axes,mass ";
    ASSERT_EQ(krrender(draw + "-o a.png --depth a_depth.png").status, 0);
    ASSERT_EQ(krrender(draw + "-o b.png --depth b_depth.png").status, 0);
    EXPECT_GT(content("a.png").size(), 5000u);
    EXPECT_EQ(content("a.png"), content("b.png"));
    EXPECT_EQ(content("a_depth.png"), content("b_depth.png"));
}
