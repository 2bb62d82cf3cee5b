// Runs krrender as a user does and looks at what it leaves behind.

#include <tests/support/Program.h>

#include <tests/support/Pictures.h>

#include <KrAppVideo.h>
#include <toolkit/image/KrImage.h>
#include <toolkit/system/KrVisualizableStatedSystem.h>

#include <gtest/gtest.h>

#include <sched.h>
#include <sys/stat.h>

#include <cmath>

namespace
{

/// Two boxes: a red one from z = 0 to 0.5 and a green one above it that swings out along +y.
const char* const kUrdf = R"(<robot name="swing">
  <material name="red"><color rgba="0.9 0.05 0.05 1"/></material>
  <material name="green"><color rgba="0.05 0.8 0.05 1"/></material>
  <link name="base"><visual><origin xyz="0 0 0.25"/><geometry><box size="0.5 0.5 0.5"/></geometry>
    <material name="red"/></visual></link>
  <link name="arm"><visual><origin xyz="0 0 0.5"/><geometry><box size="0.2 0.2 1"/></geometry>
    <material name="green"/></visual></link>
  <link name="slider"/>
  <joint name="swing" type="revolute"><parent link="base"/><child link="arm"/><origin xyz="0 0 0.5"/>
    <axis xyz="-1 0 0"/><limit lower="-2" upper="2" effort="1" velocity="1"/></joint>
  <joint name="slide" type="prismatic"><parent link="arm"/><child link="slider"/>
    <axis xyz="0 0 1"/><limit lower="0" upper="0.1" effort="1" velocity="1"/></joint>
</robot>
)";

class KrRenderProgram : public testing::Test
{
protected:
    /// Adds the options that keep a test fast.
    Answer krrender(const std::string& arguments) const { return plain("--samples 1 --size 160x120 " + arguments); }
    Answer plain(const std::string& arguments) const
    {
        return runCommand("cd '" + m_folder.path("") + "' && '" + std::string(KR_RENDER) + "' " + arguments);
    }
    KrImage picture(const std::string& name) const
    {
        KrImage image;
        EXPECT_TRUE(image.readFile(m_folder.path(name), KrImage::TopRowFirst)) << name;
        return image;
    }
    std::string urdf() const { return m_folder.write("swing.urdf", kUrdf).empty() ? "" : "swing.urdf"; }

    Folder m_folder;
};

bool isRed(const std::array<double, 3>& c)
{
    return c[0] > 90.0 && c[0] > 3.0 * c[1];
}
bool isGreen(const std::array<double, 3>& c)
{
    return c[1] > 90.0 && c[1] > 3.0 * c[0];
}
bool isNear(const std::array<double, 3>& c, double r, double g, double b)
{
    return std::abs(c[0] - r) < 1.5 && std::abs(c[1] - g) < 1.5 && std::abs(c[2] - b) < 1.5;
}

/// The middle of a tile's pixels for which `is` holds, from the tile's upper left corner.
std::array<double, 2> middle(const KrImage& image, unsigned int left, unsigned int top, unsigned int width,
                             unsigned int height, bool (*is)(const std::array<double, 3>&))
{
    std::array<double, 2> sum = {0.0, 0.0};
    double count = 0.0;
    for (unsigned int y = 0; y < height; ++y) {
        for (unsigned int x = 0; x < width; ++x) {
            if (is(meanColour(image, left + x, top + y, 0))) {
                sum[0] += x;
                sum[1] += y;
                count += 1.0;
            }
        }
    }
    return {sum[0] / count, sum[1] / count};
}

} // namespace

TEST_F(KrRenderProgram, DrawsARobotTheRightWayUpInTheMiddleOfThePicture)
{
    // From the front (+x): +y is on the right, up is up.
    const Answer answer = krrender(urdf() + " -o a.png --azimuth 0 --elevation 0 --background '#204060'");
    ASSERT_EQ(answer.status, 0) << answer.err;
    EXPECT_EQ(answer.err, "");
    EXPECT_NE(answer.out.find("a.png: 160 x 120, 3 links, 2 moving joints, 24 triangles"), std::string::npos)
        << answer.out;
    const KrImage upright = picture("a.png");
    ASSERT_EQ(upright.width(), 160u);
    ASSERT_EQ(upright.height(), 120u);
    // 1.5 m fill 94 of 100 parts of the height: 75 pixels a metre, the middle of the picture is z = 0.75.
    EXPECT_TRUE(isGreen(meanColour(upright, 80, 30, 2)));
    EXPECT_TRUE(isRed(meanColour(upright, 80, 100, 2)));
    for (const unsigned int x : {4u, 155u}) {
        for (const unsigned int y : {4u, 115u}) {
            EXPECT_TRUE(isNear(meanColour(upright, x, y, 3), 0x20, 0x40, 0x60)) << x << " " << y;
        }
    }
    const std::size_t lit = countLit(upright, {0x20, 0x40, 0x60});
    EXPECT_GT(lit, 2000u); // 0.5 x 0.5 + 0.2 x 1 m^2 at 75 pixels a metre are 2531, a little more in perspective
    EXPECT_LT(lit, 3300u);

    // Swung by a quarter turn about -x, the arm points along +y: right of the base, seen from the front.
    ASSERT_EQ(krrender(urdf() + " -o b.png --azimuth 0 --elevation 0 --joint swing=90deg").status, 0);
    const KrImage swung = picture("b.png");
    EXPECT_TRUE(isGreen(meanColour(swung, 120, 60, 2)) || isGreen(meanColour(swung, 120, 45, 2)));
    EXPECT_TRUE(isRed(meanColour(swung, 30, 75, 2)));
    EXPECT_FALSE(isGreen(meanColour(swung, 30, 45, 2)));
}

TEST_F(KrRenderProgram, DrawsTheSamePictureEveryTimeAndInEveryFormat)
{
    ASSERT_EQ(krrender(urdf() + " -o a.png").status, 0);
    ASSERT_EQ(krrender(urdf() + " -o b.png").status, 0);
    EXPECT_EQ(contentOf(m_folder.path("a.png")), contentOf(m_folder.path("b.png")));
    for (const char* name : {"c.jpg", "c.bmp", "c.tga", "c.tif"}) {
        ASSERT_EQ(krrender(urdf() + " -o " + name).status, 0) << name;
        const KrImage image = picture(name);
        EXPECT_EQ(image.width(), 160u) << name;
        EXPECT_TRUE(isRed(meanColour(image, 80, 95, 1))) << name;
    }
    // Averaged from four times as many pixels: softer edges, the same picture otherwise.
    ASSERT_EQ(plain(urdf() + " --size 160x120 --samples 4 -o d.png").status, 0);
    const KrImage plainPicture = picture("a.png");
    const KrImage smooth = picture("d.png");
    double difference = 0.0;
    for (std::size_t i = 0; i < smooth.sizeInBytes(); ++i) {
        difference += std::abs(int(smooth.data()[i]) - int(plainPicture.data()[i]));
    }
    EXPECT_LT(difference / static_cast<double>(smooth.sizeInBytes()), 3.0);
    EXPECT_GT(difference, 0.0);
}

TEST_F(KrRenderProgram, TheCameraStandsWhereItIsToldTo)
{
    // From above, up is +x: the eye looks down the arm at its square end.
    ASSERT_EQ(krrender(urdf() + " -o a.png --eye 0,0,6 --look-at 0,0,0 --up 1,0,0 --fov 20 --background black").status,
              0);
    const KrImage above = picture("a.png");
    EXPECT_TRUE(isGreen(meanColour(above, 80, 60, 2)));
    // 120 pixels span 2 * 4.5 * tan(10 deg) m at the arm's end: 0.2 m are 15.1 pixels, squared 229.
    std::size_t green = 0;
    for (std::size_t i = 0; i < above.sizeInBytes(); i += 3) {
        green += above.data()[i + 1] > 60 && above.data()[i] < 30 ? 1 : 0;
    }
    EXPECT_NEAR(static_cast<double>(green), 229.0, 35.0);
    // The robot is out of sight: the picture is empty, and that is no failure.
    ASSERT_EQ(krrender(urdf() + " -o b.png --eye 0,0,6 --look-at 0,0,9 --background black").status, 0);
    EXPECT_EQ(countLit(picture("b.png"), {0, 0, 0}), 0u);
}

TEST_F(KrRenderProgram, SeveralViewsShareAPicture)
{
    // Three columns of 53 and two rows of 60 pixels; one column is left over, and one tile. The arm points along +y.
    ASSERT_EQ(krrender(urdf() + " -o a.png --joint swing=90deg --views front,back,top,bottom,left").status, 0);
    const KrImage image = picture("a.png");
    ASSERT_EQ(image.width(), 160u);
    ASSERT_EQ(image.height(), 120u);
    const struct
    {
        unsigned int left, top;
        double right, down; ///< from the red base to the green arm
    } tiles[] = {{0, 0, 1, 0}, {53, 0, -1, 0}, {106, 0, 0, -1}, {0, 60, 0, -1}, {53, 60, 0, 0}};
    for (const auto& tile : tiles) {
        const std::array<double, 2> red = middle(image, tile.left, tile.top, 53, 60, isRed);
        const std::array<double, 2> green = middle(image, tile.left, tile.top, 53, 60, isGreen);
        const auto way = [](double pixels) { return pixels > 6.0 ? 1.0 : pixels < -6.0 ? -1.0 : 0.0; };
        EXPECT_EQ(way(green[0] - red[0]), tile.right) << tile.left << " " << tile.top;
        // Seen from the front, back and left the arm is at the upper half of the base, by 10 pixels at most.
        const double down = tile.down == 0.0 ? 0.0 : way(green[1] - red[1]);
        EXPECT_EQ(down, tile.down) << tile.left << " " << tile.top;
    }
    EXPECT_TRUE(isNear(meanColour(image, 133, 90, 20), 0xEE, 0xF0, 0xF4));

    // In a wide picture they stand in a row.
    ASSERT_EQ(plain(urdf() + " -o row.png --size 180x50 --samples 1 --views front,top,left").status, 0);
    const KrImage row = picture("row.png");
    for (const unsigned int x : {30u, 90u, 150u}) {
        EXPECT_TRUE(isGreen(meanColour(row, x, 25, 1))) << x;
    }

    // One view is the ordinary picture; a motion's first frame is the still one.
    ASSERT_EQ(krrender(urdf() + " -o one.png --views perspective --azimuth 10").status, 0);
    ASSERT_EQ(krrender(urdf() + " -o plain.png --azimuth 10").status, 0);
    EXPECT_EQ(contentOf(m_folder.path("one.png")), contentOf(m_folder.path("plain.png")));
    m_folder.write("motion.csv", "swing\n90deg\n90deg\n");
    ASSERT_EQ(krrender(urdf() + " -o m%d.png --trajectory motion.csv --views front,back,top,bottom,left").status, 0);
    EXPECT_EQ(contentOf(m_folder.path("m2.png")), contentOf(m_folder.path("a.png")));
}

TEST_F(KrRenderProgram, DrawsDepth)
{
    ASSERT_EQ(krrender(urdf() + " --depth-preview d.png").status, 0);
    const KrImage depth = picture("d.png");
    ASSERT_EQ(depth.width(), 160u);
    std::size_t drawn = 0;
    for (std::size_t i = 0; i < depth.sizeInBytes(); i += depth.channels()) {
        drawn += depth.data()[i] > 0 ? 1 : 0;
    }
    EXPECT_GT(drawn, 1500u);
    EXPECT_EQ(depth.data()[0], 0);
}

TEST_F(KrRenderProgram, DrawsSamplesWithTheirTextures)
{
    for (const char* name : {"industrial_arm.xml", "dual_arm_base.xml", "textured_rover.xml", "industrial_arm.urdf"}) {
        const Answer answer = krrender(std::string(KR_SAMPLES) + "/" + name + " -o s.png --strict --background white");
        ASSERT_EQ(answer.status, 0) << name << answer.err;
        EXPECT_EQ(answer.err, "") << name;
        EXPECT_GT(countLit(picture("s.png"), {255, 255, 255}), 2500u) << name;
    }
    // The rover stands on sand, whose colour comes from its texture alone (the material is white).
    ASSERT_EQ(krrender(std::string(KR_SAMPLES) + "/textured_rover.xml -o s.png").status, 0);
    const auto sand = meanColour(picture("s.png"), 80, 110, 3);
    EXPECT_GT(sand[0], 1.3 * sand[2]);
    // The file's own view is another one, and its angle can be changed.
    const std::string fileView = std::string(KR_SAMPLES) + "/textured_rover.xml --file-view --sidecar -o ";
    ASSERT_EQ(krrender(fileView + "f.png").status, 0);
    EXPECT_NE(contentOf(m_folder.path("s.png")), contentOf(m_folder.path("f.png")));
    ASSERT_EQ(krrender(fileView + "w.png --fov 60").status, 0);
    const std::string told = contentOf(m_folder.path("f.png.json"));
    const std::string wide = contentOf(m_folder.path("w.png.json"));
    EXPECT_NE(wide.find("\"fieldOfView\": 1.047197"), std::string::npos) << wide;
    const auto eye = [](const std::string& text) { return text.substr(text.find("\"eyepoint\""), 60); };
    EXPECT_EQ(eye(wide), eye(told));
}

TEST_F(KrRenderProgram, WritesNumberedFramesOfATrajectory)
{
    m_folder.write("motion.csv", "swing\n-90deg\n0\n90deg\n");
    std::filesystem::create_directory(m_folder.path("frames"));
    const Answer answer =
        krrender(urdf() + " --trajectory motion.csv -o frames/%03d.png --azimuth 0 --elevation 0 --background black");
    ASSERT_EQ(answer.status, 0) << answer.err;
    EXPECT_NE(answer.out.find("3 of 3 frames"), std::string::npos) << answer.out;
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(m_folder.path("frames"))) {
        ++count;
        EXPECT_TRUE(entry.path().extension() == ".png");
    }
    EXPECT_EQ(count, 3u);
    // The camera stands still and sees the whole motion: the base is in the same place, the arm goes from left to
    // right.
    const KrImage first = picture("frames/001.png");
    const KrImage last = picture("frames/003.png");
    EXPECT_EQ(meanColour(first, 80, 105, 2), meanColour(last, 80, 105, 2));
    const auto greenSide = [](const KrImage& image) {
        double sum = 0.0;
        for (unsigned int y = 0; y < image.height(); ++y) {
            for (unsigned int x = 0; x < image.width(); ++x) {
                const unsigned char* const p = image.data() + 3 * (std::size_t(y) * image.width() + x);
                sum += p[1] > 60 && p[0] < 40 ? (x < 80 ? -1.0 : 1.0) : 0.0;
            }
        }
        return sum;
    };
    EXPECT_LT(greenSide(first), -100.0);
    EXPECT_GT(greenSide(last), 100.0);
}

TEST_F(KrRenderProgram, WritesAVideoThroughTheHelperProgramOrSaysThatItIsMissing)
{
    m_folder.write("motion.csv", "swing\n0\n0.2\n0.4\n0.6\n");
    const std::set<std::string> before = {"motion.csv", "swing.urdf"};
    const std::string command = urdf() + " --trajectory motion.csv -o motion.mp4 --fps 10";
    const Answer without = runCommand("cd '" + m_folder.path("") + "' && PATH=/nowhere '" + std::string(KR_RENDER) +
                                      "' --samples 1 --size 160x120 " + command);
    EXPECT_EQ(without.status, 1);
    EXPECT_EQ(without.numErrorLines(), 1u);
    EXPECT_NE(without.err.find("ffmpeg"), std::string::npos);
    EXPECT_EQ(m_folder.names(), before);
    if (KrAppVideo::program().empty()) {
        GTEST_SKIP() << "no ffmpeg program";
    }
    ASSERT_EQ(krrender(urdf() + " --trajectory motion.csv --output=-at:noon.mkv").status, 0);
    ASSERT_TRUE(std::filesystem::remove(m_folder.path("-at:noon.mkv")));
    const Answer answer = krrender(command);
    ASSERT_EQ(answer.status, 0) << answer.err;
    EXPECT_GT(std::filesystem::file_size(m_folder.path("motion.mp4")), 500u);
    EXPECT_EQ(m_folder.names(), (std::set<std::string>{"motion.csv", "motion.mp4", "swing.urdf"}));
    const Answer probe = runCommand("ffmpeg -loglevel error -i '" + m_folder.path("motion.mp4") + "' -vsync 0 '" +
                                    m_folder.path("p_%d.png") + "'");
    ASSERT_EQ(probe.status, 0) << probe.err;
    EXPECT_EQ(m_folder.names().count("p_4.png"), 1u);
    EXPECT_EQ(m_folder.names().count("p_5.png"), 0u);
    // Upright: the red base is at the bottom.
    EXPECT_TRUE(isRed(meanColour(picture("p_1.png"), 80, 95, 1)));

    // By its times, when no rate is given.
    m_folder.write("timed.csv", "time,swing\n3,0\n3.2,0.2\n3.4,0.4\n");
    const Answer timed = krrender(urdf() + " --trajectory timed.csv -o timed.mp4");
    EXPECT_EQ(timed.err, "");
    const Answer told = runCommand("ffmpeg -hide_banner -i '" + m_folder.path("timed.mp4") + "'");
    EXPECT_NE(told.err.find(" 5 fps"), std::string::npos) << told.err;
    m_folder.write("timed.csv", "time,swing\n0,0\n1,0.2\n9,0.4\n");
    const Answer uneven = krrender(urdf() + " --trajectory timed.csv -o timed.mp4");
    EXPECT_NE(uneven.err.find("mean of them, 4.5 s"), std::string::npos) << uneven.err;
    m_folder.write("timed.csv", "time,swing\n0,0\n1e9,0.2\n");
    const Answer slow = krrender(urdf() + " --trajectory timed.csv -o slow.mp4");
    EXPECT_EQ(slow.status, 1);
    EXPECT_NE(slow.err.find("give --fps"), std::string::npos) << slow.err;
}

TEST_F(KrRenderProgram, TellsWhereNothingIsSeen)
{
    m_folder.write("motion.csv", "swing\n0\n0.2\n");
    m_folder.write("empty.urdf", "<robot name='e'><link name='a'/></robot>");
    const std::pair<std::string, std::string> cases[] = {
        {urdf() + " -o a.png --eye 5,0,0 --look-at 6,0,0", "a.png: the picture is empty because the camera looks away"},
        {urdf() + " --depth a.npy --eye 50,0,0 --look-at 50,9,0", "is left of the picture"},
        {urdf() + " --depth a.npy --eye 5e5,0,0", "too small or too far away"},
        {urdf() + " --trajectory motion.csv -o b.png --look-at 0,1e8,0", "2 of 2 pictures are empty because"},
        {urdf() + " -o a.png --eye 5,0,0 --look-at 6,0,0 --show axes", "behind the camera"}};
    for (const auto& [arguments, reason] : cases) {
        const Answer answer = krrender(arguments);
        EXPECT_EQ(answer.status, 0) << arguments;
        EXPECT_EQ(answer.numErrorLines(), 1u) << arguments << answer.err;
        EXPECT_NE(answer.err.find(reason), std::string::npos) << arguments << answer.err;
    }
    const Answer empty = krrender("empty.urdf -o a.png");
    EXPECT_NE(empty.err.find("the picture is empty because there is nothing to draw"), std::string::npos) << empty.err;
    EXPECT_EQ(krrender(urdf() + " -o a.png --depth a.npy").err, "");
    EXPECT_EQ(krrender(urdf() + " --trajectory motion.csv -o b.png --views front,top").err, "");
}

TEST_F(KrRenderProgram, ASizeThatNoRobotHasIsToldOnce)
{
    for (const auto& [edge, words] : {std::pair("0.0005", "0.866 mm in size"), std::pair("1500", "2.6 km in size"),
                                      std::pair("0.004", ""), std::pair("500", "")}) {
        m_folder.write("box.urdf", std::string("<robot name='b'><link name='a'><visual><geometry><box size='") + edge +
                                       " " + edge + " " + edge + "'/></geometry></visual></link></robot>");
        const Answer answer = krrender("box.urdf -o a.png");
        EXPECT_EQ(answer.status, 0);
        EXPECT_EQ(answer.numErrorLines(), *words != 0 ? 1u : 0u) << answer.err;
        EXPECT_NE(answer.err.find(words), std::string::npos) << answer.err;
    }
}

// The second picture comes from what the first one has left.
TEST_F(KrRenderProgram, MeshesAreKeptUnlessThatIsNotWanted)
{
    const std::string cached = "XDG_CACHE_HOME='" + m_folder.path("cache") +
                               "' '" KR_RENDER "' --samples 1 '" KR_SAMPLES "/industrial_arm.urdf' -o '" +
                               m_folder.path("");
    EXPECT_EQ(runCommand(cached + "/none.png' --no-cache").status, 0);
    EXPECT_EQ(runCommand(cached + "/none.png' --cache-limit 0").status, 0);
    EXPECT_FALSE(std::filesystem::exists(m_folder.path("cache/krrendcore")));
    EXPECT_EQ(runCommand(cached + "/first.png'").status, 0);
    EXPECT_TRUE(std::filesystem::exists(m_folder.path("cache/krrendcore/key")));
    EXPECT_EQ(runCommand(cached + "/second.png'").status, 0);
    EXPECT_EQ(contentOf(m_folder.path("first.png")), contentOf(m_folder.path("none.png")));
    EXPECT_EQ(contentOf(m_folder.path("second.png")), contentOf(m_folder.path("none.png")));
    EXPECT_EQ(krrender(urdf() + " -o a.png --cache-limit 1GB").status, 2);
}

TEST_F(KrRenderProgram, AWrongShaderFolderIsToldAndNotTaken)
{
    const std::string plume = " --samples 1 --size 160x120 '" KR_SAMPLES "/plume.xml' -o ";
    ASSERT_EQ(plain(plume + m_folder.path("a.png")).status, 0);
    const Answer answer =
        runCommand("'" + std::string(KR_RENDER) + "'" + plume + m_folder.path("b.png"), "KR_TOOLKITS=/nowhere");
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(answer.numErrorLines(), 1u) << answer.err;
    EXPECT_NE(answer.err.find("\"/nowhere\""), std::string::npos) << answer.err;
    EXPECT_EQ(contentOf(m_folder.path("a.png")), contentOf(m_folder.path("b.png")));
}

TEST_F(KrRenderProgram, StoppedInTheMiddleOfAVideoItCleansUp)
{
    std::string rows = "swing\n";
    for (int i = 0; i < 20000; ++i) {
        rows += "0.5\n";
    }
    m_folder.write("motion.csv", rows);
    for (const char* output : {"motion.mp4", "frame.png"}) {
        const Answer answer =
            runCommand("cd '" + m_folder.path("") + "' && timeout --preserve-status -s INT 1.5 '" + KR_RENDER + "' " +
                       urdf() + " --size 64x48 --trajectory motion.csv -q -o " + output);
        if (KrAppVideo::program().empty() && answer.err.find("ffmpeg") != std::string::npos) {
            continue;
        }
        EXPECT_EQ(answer.status, 1);
        EXPECT_EQ(answer.numErrorLines(), 1u) << answer.err;
        EXPECT_NE(answer.err.find("stopped after"), std::string::npos) << answer.err;
    }
    for (const std::string& name : m_folder.names()) {
        EXPECT_EQ(name.find("tmp"), std::string::npos) << name;
        EXPECT_EQ(name.find(".mp4"), std::string::npos) << name;
    }
}

TEST_F(KrRenderProgram, TellsTheTreeWithoutDrawing)
{
    // No context is opened: a back end that does not exist does not matter.
    const Answer answer =
        runCommand(std::string(KR_RENDER) + " " + KR_SAMPLES + "/industrial_arm.urdf --info", "KR_WINDOW=glx DISPLAY=");
    ASSERT_EQ(answer.status, 0) << answer.err;
    for (const char* part :
         {"industrial_arm", "└─ link_1", "joint_1", "revolute -170 to 170 deg", "prismatic 0 to 0.035 m",
          "follows gripper_left x 1", "10 links, 9 joints (8 move", "triangles"}) {
        EXPECT_NE(answer.out.find(part), std::string::npos) << part << "\n" << answer.out;
    }
}

TEST_F(KrRenderProgram, ConvertsToNativeXmlThatIsTheSameRobotAndPicture)
{
    ASSERT_EQ(krrender(urdf() + " -j swing=0.5 --convert native.xml -o a.png --report r.json").status, 0);
    KrVisualizableStatedSystem system;
    ASSERT_TRUE(system.readFile(m_folder.path("native.xml")));
    EXPECT_EQ(system.statedSystem().systemState().positionStates()[0].jointPositions()[0].value(), 0.5);
    EXPECT_NE(contentOf(m_folder.path("r.json")).find("\"swing\""), std::string::npos);
    const auto tree = [](const std::string& text) { return text.substr(text.find('\n')); }; // behind name and file
    EXPECT_EQ(tree(krrender(urdf() + " --info").out), tree(krrender("native.xml --info").out));
    // The pose is in the file; so are point of view, light and background.
    for (const char* view : {"", " --file-view"}) {
        ASSERT_EQ(krrender(std::string("native.xml -o b.png") + view).status, 0);
        EXPECT_EQ(contentOf(m_folder.path("a.png")), contentOf(m_folder.path("b.png"))) << view;
    }
    // A state file puts it back.
    KrManipulatorSystemState state = system.statedSystem().systemState();
    state.positionStates()[0].jointPositions()[0].setValue(0.0);
    ASSERT_TRUE(state.writeFile(m_folder.path("state.xml")));
    ASSERT_EQ(krrender("native.xml --state state.xml -o c.png").status, 0);
    ASSERT_EQ(krrender(urdf() + " -o d.png").status, 0);
    EXPECT_EQ(contentOf(m_folder.path("c.png")), contentOf(m_folder.path("d.png")));
}

TEST_F(KrRenderProgram, AMissingMeshIsAWarningOrWithStrictAnError)
{
    m_folder.write("gap.urdf",
                   "<robot name='gap'><link name='a'><visual><geometry><mesh filename='none.stl'/></geometry>"
                   "</visual></link></robot>");
    const Answer lenient = krrender("gap.urdf -o a.png");
    EXPECT_EQ(lenient.status, 0) << lenient.err;
    EXPECT_NE(lenient.err.find("warning: "), std::string::npos);
    const Answer strict = krrender("gap.urdf -o b.png --strict --report r.json");
    EXPECT_EQ(strict.status, 1);
    EXPECT_EQ(strict.numErrorLines(), 1u);
    EXPECT_NE(strict.err.find("none.stl"), std::string::npos);
    // The report is there to tell why, the picture is not.
    EXPECT_EQ(m_folder.names(), (std::set<std::string>{"a.png", "gap.urdf", "r.json"}));
}

TEST_F(KrRenderProgram, EveryFailureIsOneSentenceAndLeavesNothingBehind)
{
    m_folder.write("empty.urdf", "");
    m_folder.write("blank.urdf", " \n\t\n");
    m_folder.write("binary.urdf", std::string("\x7f"
                                              "ELF\0\0\0\x01",
                                              8));
    m_folder.write("text.urdf", "this is no robot\n");
    m_folder.write("broken.urdf", "<robot name='a'><link name='b'>");
    m_folder.write("broken.xml", "<statedSystem><a></statedSystem>");
    m_folder.write("other.xml", "<sdf version='1.6'/>");
    m_folder.write("bad.csv", "swing\n0\nx\n");
    m_folder.write("long.urdf", "<robot name='" + std::string(300000, 'x') + "'");
    m_folder.write("ten.csv", "swing\n0\n0\n0\n0\n0\n0\n0\n0\n0\n0\n");
    std::filesystem::create_directory(m_folder.path("folder"));
    ASSERT_EQ(mkfifo(m_folder.path("pipe.png").c_str(), 0600), 0);
    const std::string robot = urdf();
    const std::set<std::string> before = m_folder.names();

    struct Case
    {
        std::string arguments;
        int status;
        std::string part; ///< of the sentence
    };
    const Case cases[] = {
        {"none.urdf -o a.png", 1, "no such file"},
        {"folder -o a.png", 1, "is a folder"},
        {"empty.urdf -o a.png", 1, "is empty"},
        {"blank.urdf -o a.png", 1, "is empty"},
        {"binary.urdf -o a.png", 1, "binary"},
        {"text.urdf -o a.png", 1, "no XML"},
        {"broken.urdf -o a.png", 1, "broken.urdf"},
        {"broken.xml -o a.png", 1, "broken.xml"},
        {"other.xml -o a.png", 1, "<sdf>"},
        {"long.urdf -o a.png", 1, "long.urdf"},
        {robot + " -o a.png -j swng=1", 1, "did you mean swing?"},
        {robot + " -o a.png -j swing=fast", 2, "no number"},
        {robot + " -o a.png -j swing=nan", 2, "no number"},
        {robot + " -o a.png -j swing=5mm", 2, "wrong unit"},
        {robot + " -o a.png -j swing", 2, "NAME=VALUE"},
        {robot + " -o a.png --size 0x480", 2, "from 1 to"},
        {robot + " -o a.png --size 100000x100000", 2, "from 1 to"},
        {robot + " -o a.png --size 30000x30000", 1, "this driver draws at most"},
        {robot + " -o a.png --size big", 2, "WIDTHxHEIGHT"},
        {robot + " -o a.png --samples 3", 2, "1, 4, 9 or 16"},
        {robot + " -o a.png --samples many", 2, "samples"},
        {robot + " -o a.png --background blu", 2, "did you mean blue?"},
        {robot + " -o a.png --fov 180", 2, "from 1 to 170"},
        {robot + " -o a.png --eye 1,2", 2, "X,Y,Z"},
        {robot + " -o a.png --eye 1e308,0,0", 2, "from -1e9 to 1e9"},
        {robot + " -o a.png --eye 1,2,3 --look-at 1,2,3", 2, "same point"},
        {robot + " -o a.png --up 0,0,0", 2, "no direction"},
        {robot + " -o none/a.png", 1, "there is no folder none"},
        {robot + " -o folder", 2, "picture's name"},
        {robot + " -o a.xyz", 2, "written as"},
        {robot + " -o a.mp4", 2, "--trajectory"},
        {robot + " -o swing.urdf/a.png", 1, "there is no folder"},
        {robot + " -o /proc/self/a.png", 1, "cannot write /proc/self/a.png"},
        {robot + " --report none/r.json", 1, "there is no folder none"},
        {robot + " --convert /proc/self/a.xml", 1, "/proc/self/a.xml"},
        {robot + " -o a_%s.png --trajectory bad.csv", 2, "frame number"},
        {robot + " -o a.png --trajectory bad.csv", 1, "line 3"},
        {robot + " -o a.mp4 --trajectory bad.csv", 1, "line 3"},
        {robot + " -o a.png --trajectory none.csv", 1, "none.csv"},
        {robot + " -o a.png --state none.xml", 1, "no such file"},
        {robot + " -o a.png --state broken.xml", 1, "broken.xml"},
        {robot + " --trajectory bad.csv", 2, "needs -o"},
        {robot + " --paint -o a.png", 2, "--paint: there is no such option"},
        {robot + " --trajectry x.csv -o a.png", 2, "--trajectry: there is no such option; did you mean --trajectory?"},
        {robot + " -o a.png -Depth=a.npy", 2, "did you mean --depth?"},
        {robot + " other.urdf -o a.png", 2, "\"swing.urdf\" and \"other.urdf\""},
        {"-- " + robot + " -o a.png", 2, "-o: behind --"},
        {robot + " -o a.png -o b.png", 2, "--output is given more than once"},
        {robot + " -o a.png --strict=5", 2, "--strict takes no value"},
        {robot + " -o a.png -q=5", 2, "-=5: there is no such option"},
        {robot + " --range-map a.npy 4x4 2x2", 2, "--range-map needs FILE WxH XxY METRES"},
        {robot + " -o a.png --samples -4", 2, "1, 4, 9 or 16"},
        {robot + " --depth a.npy --depth-kind plannar", 2, "did you mean planar?"},
        {robot + " -o 'a\033[31m\302\233/a.png'", 1, "there is no folder"},
        {robot + " -o a.png --select arn", 1, "did you mean arm?"},
        {robot + " -o a.png --show axis", 2, "did you mean axes?"},
        {robot + " -o a.png --axis-scale 1", 2, "needs --show axes"},
        {robot + " -o a.png --fade 0.5", 2, "needs --select"},
        {robot + " -o a.png --select arm --fade 2", 2, "from 0 to 1"},
        {robot + " -o a.png --depth a.png", 2, "one name"},
        {robot + " -o a.png --depth ./a.png", 2, "one name"},
        {robot + " -o a.png --sidecar --report a.png.json", 2, "one name"},
        {robot + " -o a.png --depth-preview a_%04d.png --trajectory bad.csv", 2, "one name"},
        {robot + " -o %d.png --depth-preview %02d.png --trajectory ten.csv", 2, "one name"},
        {robot + " --convert ./" + robot, 2, "is read"},
        {robot + " --report ten.csv --trajectory ten.csv -o a.png", 2, "is read"},
        {robot + " -o pipe.png", 1, "no regular file"},
        {robot + " -o a.png --file-view", 2, "holds no point of view"},
        {robot + " -o a.png --file-view --elevation 9", 2, "--elevation"},
        {robot + " -o a.png --eye 1,2,3 --azimuth 9", 2, "--azimuth"},
        {robot + " -o a.png --fps 9", 2, "needs --trajectory"},
        {robot + " -o a.png --background ''", 2, "--background: its value is empty"},
        {robot + " -o a.png --views front,tpo", 2, "did you mean top?"},
        {robot + " -o a.png --views front --eye 1,2,3", 2, "--views places"},
        {robot + " --depth a.npy --views front", 2, "--views is for the picture"},
        {robot + " -o a.png --views front,top --size 1x1", 2, "too few for 2 views"},
        {robot + " -o", 2, "--output"},
        {robot, 2, "nothing to do"},
        {"-o a.png", 2, "no robot"},
        {"", 2, "no robot"},
    };
    for (const Case& c : cases) {
        const Answer answer = plain(c.arguments);
        EXPECT_EQ(answer.status, c.status) << c.arguments << "\n" << answer.err;
        EXPECT_EQ(answer.numErrorLines(), 1u) << c.arguments << "\n" << answer.err;
        EXPECT_EQ(answer.err.compare(0, 10, "krrender: "), 0) << c.arguments << "\n" << answer.err;
        EXPECT_NE(answer.err.find(c.part), std::string::npos) << c.arguments << "\n" << answer.err;
        EXPECT_EQ(answer.err.find('\033'), std::string::npos) << c.arguments;
        EXPECT_EQ(answer.err.find('\302'), std::string::npos) << c.arguments;
        EXPECT_LT(answer.err.size(), 600u) << c.arguments << "\n" << answer.err;
        EXPECT_EQ(m_folder.names(), before) << c.arguments;
    }
}

TEST_F(KrRenderProgram, AFailedWriteKeepsTheOldPicture)
{
    m_folder.write("old.png", "the old content");
    EXPECT_EQ(krrender(urdf() + " -o old.png -j none=1").status, 1);
    EXPECT_EQ(contentOf(m_folder.path("old.png")), "the old content");
    ASSERT_EQ(krrender(urdf() + " -o old.png").status, 0);
    EXPECT_EQ(picture("old.png").width(), 160u);
}

TEST_F(KrRenderProgram, ALinkIsWrittenThroughInTheFormatOfItsOwnName)
{
    std::filesystem::create_directory(m_folder.path("store"));
    for (const char* name : {"a.png", "d.npy", "r.json", "n.xml"}) {
        std::filesystem::create_symlink("store/" + std::string(name) + ".data", m_folder.path(name));
    }
    ASSERT_EQ(krrender(urdf() + " -o a.png --depth d.npy --report r.json --convert n.xml").status, 0);
    for (const auto& [name, begin] :
         {std::pair("a.png", "\x89PNG"), {"d.npy", "\x93NUMPY"}, {"r.json", "{"}, {"n.xml", "<?xml"}}) {
        EXPECT_TRUE(std::filesystem::is_symlink(m_folder.path(name))) << name;
        EXPECT_EQ(contentOf(m_folder.path("store/" + std::string(name) + ".data")).rfind(begin, 0), 0u) << name;
    }
}

// A limit on the size of files stands in for a full disk.
TEST_F(KrRenderProgram, TheReasonOfAWriteThatFailsIsTold)
{
    m_folder.write("motion.csv", "swing\n0\n0.2\n0.4\n0.6\n");
    urdf();
    const std::set<std::string> before = m_folder.names();
    for (const char* output : {"-o a.png", "--depth a.npy", "-o a.mp4 --trajectory motion.csv"}) {
        const Answer answer = runCommand("(cd '" + m_folder.path("") + "' && trap '' XFSZ && ulimit -f 1 && '" +
                                         KR_RENDER + "' swing.urdf -q " + output + ")");
        if (KrAppVideo::program().empty() && answer.err.find("(Debian package ffmpeg)") != std::string::npos) {
            continue;
        }
        EXPECT_EQ(answer.status, 1) << output;
        EXPECT_EQ(answer.numErrorLines(), 1u) << answer.err;
        EXPECT_NE(answer.err.find("File too large"), std::string::npos) << answer.err;
        EXPECT_EQ(answer.err.find("a.png: a."), std::string::npos) << answer.err;
        EXPECT_EQ(m_folder.names(), before) << output;
    }
}

TEST_F(KrRenderProgram, StandardOutputThatCannotBeWrittenIsAFailure)
{
    if (!std::filesystem::exists("/dev/full")) {
        GTEST_SKIP() << "no /dev/full";
    }
    const std::string robot = m_folder.path(urdf());
    for (const std::string& arguments : {"'" + robot + "' --info", std::string("--help"), std::string("--doctor")}) {
        const Answer answer = runCommand("('" + std::string(KR_RENDER) + "' " + arguments + " >/dev/full)");
        EXPECT_EQ(answer.status, 1) << arguments;
        EXPECT_NE(answer.err.find("standard output"), std::string::npos) << answer.err;
    }
}

TEST_F(KrRenderProgram, ADescriptionThroughAPipeIsOneInTheCurrentFolder)
{
    m_folder.write("box.stl",
                   "solid box\nfacet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 1 0 0\nvertex 0 1 0\nendloop\n"
                   "endfacet\nendsolid box\n");
    m_folder.write("mesh.urdf", "<robot name='m'><link name='a'><visual><geometry><mesh filename='box.stl'/></geometry>"
                                "</visual></link></robot>");
    const std::string rest = " --strict --samples 1 --size 64x48 -o ";
    ASSERT_EQ(plain("mesh.urdf" + rest + "a.png").status, 0);
    const Answer answer = runCommand("(cd '" + m_folder.path("") + "' && cat mesh.urdf | '" + KR_RENDER +
                                     "' /dev/stdin" + rest + "b.png)");
    ASSERT_EQ(answer.status, 0) << answer.err;
    EXPECT_EQ(contentOf(m_folder.path("a.png")), contentOf(m_folder.path("b.png")));
}

TEST_F(KrRenderProgram, HelpVersionAndDoctorAnswerOnStandardOutput)
{
    EXPECT_NE(plain("--help").out.find("--trajectory"), std::string::npos);
    EXPECT_EQ(plain("--version").out.compare(0, 9, "krrender "), 0);
    const Answer doctor = plain("--doctor");
    EXPECT_EQ(doctor.status, 0) << doctor.err;
    for (const char* part : {"EGL", "GLX", "What a picture is drawn with", "pictures: can be drawn", "ffmpeg"}) {
        EXPECT_NE(doctor.out.find(part), std::string::npos) << part;
    }
    EXPECT_EQ(doctor.err, "");
    // On one core the driver is to start no threads, unless the user wants some.
    cpu_set_t cores;
    ASSERT_EQ(sched_getaffinity(0, sizeof cores, &cores), 0);
    int core = 0;
    while (!CPU_ISSET(core, &cores)) {
        ++core;
    }
    const std::string onOne = "taskset -c " + std::to_string(core) + " '" + KR_RENDER + "' --doctor";
    EXPECT_NE(runCommand(onOne).out.find("LP_NUM_THREADS 0\n"), std::string::npos);
    EXPECT_NE(runCommand(onOne, "LP_NUM_THREADS=2").out.find("LP_NUM_THREADS 2\n"), std::string::npos);
    // Nothing works without a driver, and nothing crashes.
    const Answer none = runCommand(std::string(KR_RENDER) + " --doctor", "KR_WINDOW=glx DISPLAY=:7777");
    EXPECT_EQ(none.status, 1);
    EXPECT_NE(none.out.find("pictures: cannot be drawn"), std::string::npos);
    const Answer draw = runCommand("cd '" + m_folder.path("") + "' && KR_WINDOW=glx DISPLAY=:7777 '" + KR_RENDER +
                                   "' " + urdf() + " -o a.png");
    EXPECT_EQ(draw.status, 1);
    EXPECT_EQ(draw.numErrorLines(), 1u) << draw.err;
    EXPECT_NE(draw.err.find("--doctor"), std::string::npos) << draw.err;
}
