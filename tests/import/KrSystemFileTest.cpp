#include "Bundle.h"

#include <import/KrSystemFile.h>
#include <toolkit/foundation/KrReason.h>

using Accept = KrSystemFile::Accept;

TEST(KrSystemFile, FindsTheFirstElementBehindAnyProlog)
{
    EXPECT_EQ(KrSystemFile::rootElement("<robot name=\"a\">"), "robot");
    EXPECT_EQ(KrSystemFile::rootElement("\xEF\xBB\xBF<?xml version='1.0'?>\n<!-- <sdf> -->\n<ns:robot/>"), "robot");
    EXPECT_EQ(KrSystemFile::rootElement("<!DOCTYPE x>\n<x>"), "x");
    for (const char* text : {"", "no xml", "<!-- <robot>", "<?xml"}) {
        EXPECT_EQ(KrSystemFile::rootElement(text), "") << text;
    }
}

TEST(KrSystemFile, KnowsWhatAFileHoldsByItsContent)
{
    const Bundle bundle;
    const std::string robot = "<robot name='r'><link name='base'><visual><geometry><box size='1 1 1'/></geometry>"
                              "</visual></link></robot>";
    KrSystemFile urdf;
    std::string reason;
    ASSERT_TRUE(urdf.read(bundle.write("arm.stl", robot), {}, Accept::SystemsAndMeshes, reason)) << reason;
    EXPECT_EQ(urdf.kind, KrSystemFile::Kind::Robot);

    ASSERT_TRUE(urdf.system.statedSystem().writeFile(bundle.path("arm.obj")));
    KrSystemFile native;
    ASSERT_TRUE(native.read(bundle.path("arm.obj"), {}, Accept::Systems, reason)) << reason;
    EXPECT_EQ(native.kind, KrSystemFile::Kind::Native);
    EXPECT_FALSE(native.hasView);
    EXPECT_EQ(native.report.counts().triangles, 12u);
}

TEST(KrSystemFile, AMeshOnItsOwnIsASystemOfOneLink)
{
    const Bundle bundle;
    const std::string mesh = bundle.write("part.stl", stl({{KrVector(0, 0, 0), KrVector(1, 0, 0), KrVector(0, 1, 0)}}));
    KrSystemFile file;
    std::string reason;
    ASSERT_TRUE(file.read(mesh, {}, Accept::SystemsAndMeshes, reason)) << reason;
    EXPECT_EQ(file.kind, KrSystemFile::Kind::Mesh);
    const KrManipulatorSystem& system = file.system.statedSystem().manipulatorSystem();
    ASSERT_EQ(system.manipulators().size(), 1u);
    EXPECT_EQ(system.manipulators()[0].name(), "part");
    EXPECT_EQ(file.report.counts().triangles, 1u);

    EXPECT_FALSE(KrSystemFile().read(mesh, {}, Accept::Systems, reason));
    EXPECT_EQ(reason, mesh + " is no XML file");
}

TEST(KrSystemFile, RefusesWithTheReasonAndWithoutAStandIn)
{
    const Bundle bundle;
    const auto why = [](const std::string& path) {
        KrSystemFile file;
        std::string reason;
        EXPECT_FALSE(file.read(path, {}, Accept::SystemsAndMeshes, reason)) << path;
        return reason.substr(reason.find(path) + path.size());
    };
    EXPECT_EQ(why(bundle.path("none.urdf")), ": there is no such file");
    EXPECT_EQ(why(bundle.write("a.urdf", " \n")), " is empty");
    EXPECT_EQ(why(bundle.write("a.sdf", "<sdf/>")),
              " begins with <sdf>, which is neither a URDF, a native system file nor a mesh");
    EXPECT_EQ(why(bundle.write("a.urdf", "<robot/>")).substr(0, 2), ": ");
    EXPECT_NE(why(bundle.write("short.stl", "solid x\nfacet normal 0 0 1\n")).find("mesh"), std::string::npos);
    EXPECT_NE(why(bundle.write("picture.png", "\x89PNG\r\n\x1a\n")).find("mesh"), std::string::npos);
}
