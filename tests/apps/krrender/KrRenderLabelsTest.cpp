// Runs krrender for labels and normals, and reads the files back as another program would.

#include <tests/support/LopsidedRobot.h>
#include <tests/support/Program.h>
#include <tests/support/Tables.h>

#include <picture/KrLabelColors.h>
#include <rendCore/capture/KrFrameDescription.h>
#include <toolkit/image/KrImage.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>

namespace
{

using LopsidedRobot::kUrdf;

/// Of one place in each quarter, upper left, upper right, lower left, lower right.
template <typename At>
auto quarters(const At& at)
{
    return std::array{at(20, 15), at(60, 15), at(20, 45), at(60, 45)};
}

std::array<double, 4> quarters(const Table& table)
{
    return quarters([&table](std::size_t x, std::size_t y) { return table.at(x, y); });
}

class KrRenderLabels : public testing::Test
{
protected:
    void SetUp() override { m_folder.write("target.urdf", kUrdf); }
    Answer krrender(const std::string& arguments) const
    {
        return runCommand("cd '" + m_folder.path("") + "' && '" + std::string(KR_RENDER) +
                          "' target.urdf --eye 6,0,0 --look-at 0,0,0 --size 80x60 --fov 17.2 " + arguments);
    }
    std::string content(const std::string& name) const { return contentOf(m_folder.path(name)); }
    Table labels(const std::string& name) const { return png(m_folder.path(name)); }
    Table normals(const std::string& name) const { return numpy<float>(content(name), "<f4"); }
    /// Of a picture in colours, "#rrggbb" for each quarter.
    std::array<std::string, 4> colors(const std::string& name) const
    {
        KrImage image;
        EXPECT_TRUE(image.readFile(m_folder.path(name), KrImage::TopRowFirst));
        return quarters([&image](std::size_t x, std::size_t y) {
            char text[8];
            const unsigned char* const p = image.data() + (y * image.width() + x) * image.channels();
            std::snprintf(text, sizeof text, "#%02x%02x%02x", p[0], p[1], p[2]);
            return std::string(text);
        });
    }
    KrFrameDescription description(const std::string& name) const
    {
        KrFrameDescription frame;
        EXPECT_TRUE(frame.readFile(m_folder.path(name)));
        return frame;
    }

    Folder m_folder;
};

} // namespace

TEST_F(KrRenderLabels, EveryPixelHasALabelADepthAndANormalOrNothing)
{
    const Answer answer =
        krrender("-o c.png --depth d.npy --labels l.png --labels-preview p.png --normals n.npy --sidecar");
    ASSERT_EQ(answer.status, 0) << answer.err;
    const Table l = labels("l.png");
    const Table d = numpy<float>(content("d.npy"), "<f4");
    const Table n = normals("n.npy");
    ASSERT_EQ(l.values.size(), 4800u);
    ASSERT_EQ(n.values.size(), 3 * 4800u);
    EXPECT_NE(content("n.npy").find("'shape': (60, 80, 3)"), std::string::npos);
    EXPECT_EQ(quarters(l), (std::array<double, 4>{2, 1, 1, 0}));
    EXPECT_NEAR(d.at(20, 15), 5.0, 1e-4);
    for (std::size_t i = 0; i < l.values.size(); ++i) {
        const bool isSeen = l.values[i] != 0;
        ASSERT_EQ(std::isfinite(d.values[i]), isSeen) << i;
        ASSERT_NEAR(std::hypot(n.values[3 * i], n.values[3 * i + 1], n.values[3 * i + 2]), isSeen, 1e-6) << i;
    }
    // A face towards the camera, whose z is forward.
    const std::size_t near = 3 * (15 * 80 + 20);
    EXPECT_NEAR(n.values[near + 2], -1.0, 1e-6);
    EXPECT_EQ(colors("p.png"), (std::array{KrLabelColors::text(2), KrLabelColors::text(1), KrLabelColors::text(1),
                                           KrLabelColors::text(0)}));

    const KrFrameDescription frame = description("l.png.json");
    EXPECT_EQ(frame.quantity, "labels");
    EXPECT_EQ(frame.channels, 1u);
    ASSERT_EQ(frame.labels.size(), 2u);
    EXPECT_EQ(frame.labels[1].id, 2u);
    EXPECT_EQ(frame.labels[1].link, "near");
    EXPECT_EQ(frame.labels[1].color, "");
    EXPECT_EQ(description("p.png.json").labels[1].color, KrLabelColors::text(2));
    EXPECT_EQ(description("n.npy.json").axes, "optical");
    EXPECT_TRUE(description("d.npy.json").labels.empty());

    // Colours are those of a picture by itself, and the other formats hold the same.
    ASSERT_EQ(krrender("-o alone.png --samples 4 --labels l.npy").status, 0);
    EXPECT_EQ(content("alone.png"), content("c.png"));
    ASSERT_EQ(krrender("-o alone.png").status, 0);
    EXPECT_EQ(content("alone.png"), content("c.png"));
    EXPECT_EQ(numpy<std::uint32_t>(content("l.npy"), "<u4").values, l.values);
}

TEST_F(KrRenderLabels, LevelsAndAxesAreThoseAskedFor)
{
    ASSERT_EQ(krrender("--labels s.png --label-level shape --normals w.npy --normal-frame world --sidecar").status, 0);
    EXPECT_EQ(quarters(labels("s.png")), (std::array<double, 4>{3, 1, 2, 0}));
    const KrFrameDescription shapes = description("s.png.json");
    ASSERT_EQ(shapes.labels.size(), 3u);
    EXPECT_EQ(shapes.labels[1].link, "base");
    EXPECT_EQ(shapes.labels[1].shape, 1u);
    const Table world = normals("w.npy");
    EXPECT_NEAR(world.values[3 * (45 * 80 + 20)], 1.0, 1e-6);
    EXPECT_EQ(description("w.npy.json").axes, "world");

    ASSERT_EQ(krrender("--labels m.png --label-level manipulator --normals n.png").status, 0);
    EXPECT_EQ(quarters(labels("m.png")), (std::array<double, 4>{1, 1, 1, 0}));
    // 0.5 + 0.5 n of (0, 0, -1).
    EXPECT_EQ(colors("n.png"), (std::array<std::string, 4>{"#808000", "#808000", "#808000", "#000000"}));
    // To a pipe.
    EXPECT_EQ(krrender("--labels - --label-level manipulator").out, content("m.png"));
}

TEST_F(KrRenderLabels, EveryPoseOfAMotionHasItsOwn)
{
    // The second pose hides "near" behind the eye.
    m_folder.write("motion.csv", "time, push\n0, 0\n0.5, -0.4\n1, 9\n");
    const std::string motion = "--trajectory motion.csv ";
    const Answer answer = krrender(motion + "-o c%d.png --depth d%d.npy --labels l/%d.npy --normals n%d.png --sidecar");
    ASSERT_EQ(answer.status, 0) << answer.err;
    for (const std::string i : {"1", "2", "3"}) {
        const Table l = numpy<std::uint32_t>(content("l/" + i + ".npy"), "<u4");
        EXPECT_EQ(quarters(l), (std::array<double, 4>{i == "3" ? 0.0 : 2.0, 1, 1, 0})) << i;
        EXPECT_TRUE(std::filesystem::exists(m_folder.path("n" + i + ".png.json")));
        EXPECT_EQ(description("l/" + i + ".npy.json").frameNumber, static_cast<unsigned int>(std::stoi(i)));
    }
    EXPECT_NEAR(numpy<float>(content("d2.npy"), "<f4").at(20, 15), 5.4, 1e-4);
    EXPECT_EQ(description("l/2.npy.json").time, 0.5);

    // Without colours frames have the planes that they were drawn with, each its own.
    ASSERT_EQ(krrender(motion + "--labels o%d.png --sidecar").status, 0);
    EXPECT_EQ(labels("o2.png").values, numpy<std::uint32_t>(content("l/2.npy"), "<u4").values);
    for (const std::string i : {"1", "2"}) {
        EXPECT_NEAR(description("o" + i + ".png.json").near, description("l/" + i + ".npy.json").near, 1e-9);
    }
    EXPECT_GT(description("o2.png.json").near, description("o1.png.json").near + 0.3);
    ASSERT_EQ(krrender(motion + "-o e%d.png").status, 0);
    EXPECT_EQ(content("e2.png"), content("c2.png"));
}

TEST_F(KrRenderLabels, AidsAreInColoursAndDepthsButHaveNoLabels)
{
    ASSERT_EQ(krrender("--labels l.png -o c.png --depth d.npy").status, 0);
    ASSERT_EQ(krrender("--labels al.png -o ac.png --depth ad.npy --show axes").status, 0);
    EXPECT_EQ(labels("al.png").values, labels("l.png").values);
    EXPECT_NE(content("ac.png"), content("c.png"));
    // Depths of a picture with aids are those they were without labels.
    ASSERT_EQ(krrender("--depth alone.npy --show axes").status, 0);
    EXPECT_EQ(content("ad.npy"), content("alone.npy"));

    m_folder.write("target.urdf", R"(<robot name="bare"><link name="base">
        <collision><geometry><box size="1 1 1"/></geometry></collision></link></robot>)");
    const Answer answer = krrender("--labels b.png -o b2.png");
    EXPECT_EQ(answer.status, 0);
    EXPECT_NE(answer.err.find("b.png: the picture is empty because no link has a visible shape"), std::string::npos)
        << answer.err;
}

TEST_F(KrRenderLabels, APixelIsToldInOneLine)
{
    // A pixel's middle lies (20.5 - 40) and (30 - 15.5) pixels from the middle of the picture; 5 m are its depth.
    const double pixel = 2.0 * std::tan(0.5 * 17.2 * 3.14159265358979 / 180.0) / 60.0;
    const double y = 5.0 * (20.5 - 40.0) * pixel;
    const double z = 5.0 * (30.0 - 15.5) * pixel;
    char expected[200];
    // Pushed away by 0.1 m, so that the same ray meets it farther off.
    std::snprintf(expected, sizeof expected,
                  "near: push = -0.1 m; world (0.9000, %.4f, %.4f) m; link (1.0000, %.4f, %.4f) m; distance %.4f m\n",
                  1.02 * y, 1.02 * z, 1.02 * y, 1.02 * z, std::hypot(5.1, 1.02 * y, 1.02 * z));
    Answer answer = krrender("--pick 20,15 -j push=-0.1");
    EXPECT_EQ(answer.status, 0) << answer.err;
    EXPECT_EQ(answer.out, expected);
    answer = krrender("--pick 20,45 --quiet -o c.png");
    EXPECT_EQ(answer.out.rfind("base: world (0.0000, -", 0), 0u) << answer.out;
    EXPECT_TRUE(std::filesystem::exists(m_folder.path("c.png")));

    for (const char* words : {"--pick 60,45", "--pick 80,0"}) {
        answer = krrender(words);
        EXPECT_EQ(answer.status, 1) << words;
        EXPECT_EQ(answer.out, "");
        EXPECT_EQ(answer.numErrorLines(), 1u) << answer.err;
    }
}

TEST_F(KrRenderLabels, WrongWordsAreToldAndNothingIsWritten)
{
    std::string many = R"(<robot name="many"><link name="base">)";
    for (int i = 0; i < 65536; ++i) {
        many += R"(<visual><geometry><box size="1 1 1"/></geometry></visual>)";
    }
    m_folder.write("many.urdf", many + "</link></robot>");
    const std::set<std::string> before = m_folder.names();
    for (const char* words : {"--labels l.jpg",
                              "--labels l",
                              "--labels-preview l.npy",
                              "--labels-preview l.jpg",
                              "--normals n.pfm",
                              "--label-level shape -o a.png",
                              "--labels l.png --label-level joint",
                              "--normal-frame world --labels l.png",
                              "--normals n.npy --normal-frame optical",
                              "--labels l.png -o a.png --views front,top",
                              "--labels l.png --hide visuals --show collision",
                              "--labels l.png --normals l.png",
                              "--labels %d.png",
                              "--labels - --normals -",
                              "--pick 1",
                              "--pick 1,2,3",
                              "--pick -1,2",
                              "--pick 1,2x",
                              "--pick 1,2 -o -",
                              "--pick 1,2 --trajectory target.urdf -o %d.png",
                              "--labels l.png --trajectory target.urdf -o m.mp4 --sidecar"}) {
        const Answer answer = krrender(words);
        EXPECT_EQ(answer.status, 2) << words << ": " << answer.err;
        EXPECT_EQ(answer.numErrorLines(), 1u) << answer.err;
    }
    const Answer answer = runCommand("cd '" + m_folder.path("") +
                                     "' && '" KR_RENDER "' many.urdf -o a.png --labels l.png --label-level shape");
    EXPECT_EQ(answer.status, 1);
    EXPECT_NE(answer.err.find("l.png: 65536 labels are more than the 65535 that 16 bits have room for"),
              std::string::npos)
        << answer.err;
    EXPECT_EQ(m_folder.names(), before);
}
