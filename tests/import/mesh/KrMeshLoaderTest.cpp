#include <tests/import/Bundle.h>

#include <toolkit/foundation/private/KrParallel.h>

#include <sched.h>

#include <atomic>
#include <cmath>

namespace
{

/// Does the work of its life on one core.
class OneCore
{
public:
    OneCore()
    {
        ::sched_getaffinity(0, sizeof m_before, &m_before);
        cpu_set_t one;
        CPU_ZERO(&one);
        for (int core = 0; core < CPU_SETSIZE && CPU_COUNT(&one) == 0; ++core) {
            if (CPU_ISSET(core, &m_before)) {
                CPU_SET(core, &one);
            }
        }
        ::sched_setaffinity(0, sizeof one, &one);
    }
    ~OneCore() { ::sched_setaffinity(0, sizeof m_before, &m_before); }

private:
    cpu_set_t m_before;
};

std::string visual(const std::string& link, const std::string& file)
{
    return "<link name=\"" + link + "\"><visual><geometry><mesh filename=\"" + file + "\"/></geometry></visual></link>";
}

/// Links side by side, one for each mesh file.
std::string robotOf(const std::vector<std::string>& files)
{
    std::string content = "<link name=\"base\"/>";
    for (std::size_t i = 0; i < files.size(); ++i) {
        const std::string link = "l" + std::to_string(i);
        content += visual(link, files[i]) + "<joint name=\"j" + std::to_string(i) +
                   "\" type=\"fixed\"><parent link=\"base\"/><child link=\"" + link + "\"/></joint>";
    }
    return robot(content);
}

const KrBasePhysicalExtent* extentOf(const Imported& in, const std::string& link)
{
    return in.link(link).shape()->physicalExtent();
}

} // namespace

TEST(KrParallel, DoesEachPieceOnceInAnyNumberOfThreads)
{
    for (const std::size_t numThreads : {0, 1, 3, 50}) {
        std::vector<std::atomic<int>> counts(20);
        KrParallel::forEach(counts.size(), numThreads, [&counts](std::size_t i) { ++counts[i]; });
        for (const std::atomic<int>& count : counts) {
            EXPECT_EQ(count, 1) << numThreads << " threads";
        }
    }
    const OneCore one;
    EXPECT_EQ(KrParallel::numCores(), 1u);
}

TEST(KrMeshLoader, OneContentUnderSeveralNamesIsOneExtent)
{
    const Bundle bundle;
    bundle.write("a.stl", binaryStl(box(1, 2, 3)));
    bundle.write("b.stl", binaryStl(box(1, 2, 3)));
    bundle.write("other.stl", binaryStl(box(1, 2, 4)));
    std::filesystem::create_symlink("a.stl", bundle.path("link.stl"));
    const Imported in = import(bundle.write("r.urdf", robotOf({"a.stl", "b.stl", "link.stl", "other.stl"})));
    EXPECT_EQ(extentOf(in, "l1"), extentOf(in, "l0"));
    EXPECT_EQ(extentOf(in, "l2"), extentOf(in, "l0"));
    EXPECT_NE(extentOf(in, "l3"), extentOf(in, "l0"));
    // The report names each file as the description does.
    EXPECT_EQ(in.report.meshes()[1].path, bundle.path("b.stl"));
    EXPECT_EQ(in.report.meshes()[1].triangles, 12u);
}

// The bytes of the meshes are the same, what they name is not.
TEST(KrMeshLoader, OneContentInTwoPlacesTakesWhatLiesBesideIt)
{
    const Bundle bundle;
    const std::string mesh = "mtllib m.mtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\nusemtl paint\nf 1 2 3\n";
    for (const std::string side : {"left", "right"}) {
        bundle.write(side + "/m.obj", mesh);
        bundle.write(side + "/m.mtl", "newmtl paint\nKd " + std::string(side == "left" ? "1 0 0" : "0 0 1") + "\n");
    }
    const Imported in = import(bundle.write("r.urdf", robotOf({"left/m.obj", "right/m.obj"})));
    EXPECT_EQ(real(*in.mesh("l0").materialMap().find(std::string("paint")), "krDiffuseRed"), 1.0);
    EXPECT_EQ(real(*in.mesh("l1").materialMap().find(std::string("paint")), "krDiffuseRed"), 0.0);
}

// Also the load that runs under the thread sanitizer: formats with readers of ours and of the library's, side files,
// broken ones and messages.
TEST(KrMeshLoader, ManyMeshesComeAsTheyDoOneByOne)
{
    const Bundle bundle;
    std::vector<std::string> files;
    for (int i = 0; i < 12; ++i) {
        const std::string name = "m" + std::to_string(i);
        files.push_back(name + ".stl");
        bundle.write(files.back(), i % 5 == 4 ? "no mesh" : i % 2 ? stl(box(i, 1, 1)) : binaryStl(box(1, 1, 1 + i)));
        files.push_back(name + ".obj");
        bundle.write(files.back(), "mtllib lost" + name + ".mtl\nv 0 0 0\nv 1 0 0\nv 0 " + std::to_string(i + 1) +
                                       " 0\nf 1 2 3\nf 1 3 2\n");
        files.push_back(name + ".off");
        bundle.write(files.back(), "OFF\n3 1 0\n0 0 0\n1 0 0\n0 " + std::to_string(i + 1) + " 0\n3 0 1 2\n");
    }
    const std::string path = bundle.write("r.urdf", robotOf(files));
    const Imported together = import(path);
    const OneCore one;
    const Imported single = import(path);
    EXPECT_EQ(together.report.json(), single.report.json());
    EXPECT_EQ(together.printed, single.printed);
    EXPECT_EQ(together.report.counts().missingMeshes, 2u);
    EXPECT_GT(together.report.warnings().size(), 12u);
    EXPECT_TRUE(together.system.manipulatorSystem() == single.system.manipulatorSystem());
}

// Several threads look for the normals of one mesh, a part of its vertices each.
TEST(KrMeshLoader, OneLargeMeshComesAsItDoesOnOneCore)
{
    constexpr int kSide = 120;
    const auto at = [](int i, int k) { return KrVector(i, k, 9.0 * std::sin(0.37 * i) * std::cos(0.23 * k)); };
    std::vector<Corners> surface;
    for (int i = 0; i < kSide; ++i) {
        for (int k = 0; k < kSide; ++k) {
            surface.push_back(Corners{at(i, k), at(i + 1, k), at(i + 1, k + 1)});
            surface.push_back(Corners{at(i, k), at(i + 1, k + 1), at(i, k + 1)});
        }
    }
    const Bundle bundle;
    bundle.write("large.stl", binaryStl(surface));
    const std::string path = bundle.write("r.urdf", robotOf({"large.stl"}));
    const Imported together = import(path);
    const OneCore one;
    const Imported single = import(path);
    EXPECT_EQ(together.mesh("l0").vertices().size(), (kSide + 1u) * (kSide + 1u));
    EXPECT_GT(together.mesh("l0").normals().size(), together.mesh("l0").vertices().size() / 2);
    EXPECT_TRUE(together.system.manipulatorSystem() == single.system.manipulatorSystem());
}

// Each of several at once gets a part of the limits; one alone has all of it, and the refusal tells the whole.
TEST(KrMeshLoader, AMeshOfMoreThanItsPartOfTheLimitsIsReadAlone)
{
    const Bundle bundle;
    for (const std::string name : {"a.stl", "b.stl"}) {
        bundle.write(name, binaryStl(box(1, 1, name == "a.stl" ? 1 : 2)));
    }
    const std::string path = bundle.write("r.urdf", robotOf({"a.stl", "b.stl"}));
    KrImportOptions options;
    options.maxTriangles = 12;
    options.maxMeshBytes = 84 + 12 * 50;
    EXPECT_EQ(import(path, options).report.counts().triangles, 24u);
    options.maxTriangles = 11;
    const Imported refused = import(path, options);
    EXPECT_EQ(refused.report.counts().missingMeshes, 2u);
    EXPECT_EQ(refused.warnings("link l0 / visual 1", "11 triangles"), 1u) << refused.report.text();
}
