#include <tests/import/Bundle.h>

#include <import/KrImportOptions.h>
#include <import/files/KrPathResolver.h>

#include <cstdlib>

namespace
{

const char* const kFile = "x";

KrPathResolver::Found find(const std::string& description, const std::string& uri, const KrImportOptions& options = {})
{
    return KrPathResolver(description, options.packagePaths, options.useRosPackagePath).findMesh(uri);
}

/// Everything but the rule that is looked at leads nowhere or to the wrong file.
struct Case
{
    const char* uri;
    const char* file;
    bool isGuess;
};

class KrPathResolverTest : public ::testing::Test
{
protected:
    Bundle bundle;
    std::string urdf = bundle.path("ws/src/arm_desc/urdf/arm.urdf");
};

TEST_F(KrPathResolverTest, EveryRuleFindsItsFile)
{
    const Case cases[] = {
        {"meshes/a.stl", "ws/src/arm_desc/urdf/meshes/a.stl", false},
        {"../meshes/b.stl", "ws/src/arm_desc/meshes/b.stl", false},
        {"package://arm_desc/meshes/c.stl", "ws/src/arm_desc/meshes/c.stl", false},
        {"model://arm_desc/meshes/c.stl", "ws/src/arm_desc/meshes/c.stl", false},
        {"package://arm_pkg/meshes/d.stl", "ws/src/arm_desc/meshes/d.stl", false},
        {"package://hand_desc/meshes/e.stl", "ws/src/hand_desc/meshes/e.stl", false},
        {"package:///arm_desc/meshes/f.stl", "ws/src/arm_desc/meshes/f.stl", false},
        {"package://deep/g.stl", "ws/src/arm_desc/meshes/v/deep/g.stl", true},
        {"package://other/meshes/h.stl", "ws/src/arm_desc/meshes/h.stl", true},
        {"file:///home/someone/arm_desc/meshes/i.stl", "ws/src/arm_desc/meshes/i.stl", true},
        {"package://far/a/b/meshes/j.stl", "ws/src/arm_desc/meshes/j.stl", true},
        {"package://arm_desc/meshes/k.stl", "ws/src/arm_desc/meshes/k.dae", true},
        {"package://arm_desc/meshes/l.stl", "ws/src/arm_desc/meshes/l.STL", true},
        {"meshes\\m.stl", "ws/src/arm_desc/urdf/meshes/m.stl", false},
        {"package://arm_desc/meshes/with%20space.stl", "ws/src/arm_desc/meshes/with space.stl", false},
    };
    bundle.write("ws/src/arm_desc/package.xml", "<package><!-- n --><name> arm_pkg </name></package>");
    for (const Case& c : cases) {
        bundle.write(c.file, kFile);
    }
    for (const Case& c : cases) {
        const KrPathResolver::Found found = find(urdf, c.uri);
        EXPECT_EQ(found.path, bundle.path(c.file)) << c.uri << " by " << found.rule;
        EXPECT_EQ(found.isGuess, c.isGuess) << c.uri;
        ASSERT_FALSE(found.tried.empty());
        EXPECT_EQ(found.tried.back(), found.path);
    }
}

TEST_F(KrPathResolverTest, EarlierRulesWinOverLaterOnes)
{
    // From the last rule to the first: each new file takes over.
    const std::string uri = "package://arm_desc/meshes/a.stl";
    KrImportOptions options;
    options.packagePaths = {bundle.path("elsewhere")};
    const std::string description = bundle.path("ws/pack/urdf/arm.urdf");
    const char* const order[] = {
        "elsewhere/arm_desc/meshes/a.stl",     "ws/pack/meshes/a.dae",     "ws/pack/meshes/a.stl",
        "ws/pack/inner/arm_desc/meshes/a.stl", "ws/arm_desc/meshes/a.stl", "arm_desc/meshes/a.stl"};
    for (const char* const file : order) {
        bundle.write(file, kFile);
        if (std::string(file) == "arm_desc/meshes/a.stl") {
            // Beside a folder further up: the nearer one stays.
            EXPECT_EQ(find(description, uri, options).path, bundle.path("ws/arm_desc/meshes/a.stl"));
        } else {
            EXPECT_EQ(find(description, uri, options).path, bundle.path(file));
        }
    }
    bundle.write("ws/pack/package.xml", "<package><name>arm_desc</name></package>");
    EXPECT_EQ(find(description, uri, options).path, bundle.path("ws/pack/meshes/a.stl"));
}

TEST_F(KrPathResolverTest, PackagePathsAreSearchedLastAndInOrder)
{
    bundle.write("one/deep/er/arm/m.stl", kFile);
    bundle.write("two/arm/m.stl", kFile);
    bundle.write("three/renamed/package.xml", "<package><name>arm</name></package>");
    bundle.write("three/renamed/m.stl", kFile);
    bundle.write("three/plain.stl", kFile);
    const std::string description = bundle.path("own/x/arm.urdf");
    KrImportOptions options;
    options.packagePaths = {bundle.path("one/"), bundle.path("two")};
    EXPECT_EQ(find(description, "package://arm/m.stl", options).path, bundle.path("one/deep/er/arm/m.stl"));
    EXPECT_FALSE(find(description, "package://arm/m.stl", options).isGuess);

    setenv("ROS_PACKAGE_PATH", (bundle.path("none") + ":" + bundle.path("three")).c_str(), 1);
    EXPECT_EQ(find(description, "package://arm/m.stl").path, bundle.path("three/renamed/m.stl"));
    EXPECT_EQ(find(description, "plain.stl").path, bundle.path("three/plain.stl"));
    options.packagePaths.clear();
    options.useRosPackagePath = false;
    EXPECT_EQ(find(description, "plain.stl", options).path, "");
    unsetenv("ROS_PACKAGE_PATH");
}

TEST_F(KrPathResolverTest, WhatIsNotThereNamesEveryPathTriedOnce)
{
    std::filesystem::create_directories(bundle.path("ws/src/arm_desc/meshes/folder.stl"));
    const KrPathResolver::Found found = find(urdf, "package://arm_desc/meshes/folder.stl");
    EXPECT_EQ(found.path, ""); // a folder is no mesh
    const std::set<std::string> different(found.tried.begin(), found.tried.end());
    EXPECT_EQ(different.size(), found.tried.size());
    EXPECT_EQ(different.count(bundle.path("ws/src/arm_desc/meshes/folder.stl")), 1u);
    EXPECT_EQ(different.count(bundle.path("ws/src/arm_desc/meshes/folder.stl/")), 0u);

    for (const char* const uri : {"", " ", "package://", "package:///", "package://arm_desc", "file://", "http://x/y",
                                  "://", "%", "package://%zz/%2", "///", ".."}) {
        EXPECT_EQ(find(urdf, uri).path, "") << uri;
    }
}

TEST_F(KrPathResolverTest, GuessesStayInsideTheBundle)
{
    // The folder of temporary files is nobody's bundle: what lies beside the bundle there is no guess.
    const std::string name = std::filesystem::path(bundle.path("")).parent_path().filename().string() + "_x";
    const std::filesystem::path outside = std::filesystem::temp_directory_path() / name / "a.stl";
    std::filesystem::create_directories(outside.parent_path());
    std::ofstream(outside) << kFile;
    EXPECT_EQ(find(bundle.path("arm.urdf"), "package://other/" + name + "/a.stl").path, "");
    std::filesystem::remove_all(outside.parent_path());
}

} // namespace
