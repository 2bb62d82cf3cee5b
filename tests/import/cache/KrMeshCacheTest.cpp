#include <tests/import/Bundle.h>

#include <import/cache/KrMeshCache.h>
#include <import/cache/KrPreparedMesh.h>
#include <toolkit/extent/private/KrIndexedMesh.h>
#include <toolkit/image/KrImage.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <random>
#include <thread>

namespace
{

namespace fs = std::filesystem;

/// A robot with meshes of several kinds, and a cache folder of its own.
class KrMeshCacheTest : public ::testing::Test
{
protected:
    KrMeshCacheTest()
    {
        m_bundle.write("a.stl", binaryStl(box(1, 2, 3)));
        // Two groups, whose corners at one place have other texture coordinates.
        m_bundle.write("b.obj",
                       "mtllib b.mtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\nv 0 0 1\nvt 0 0\nvt 1 0\nvt 0 1\nusemtl paint\n"
                       "f 1/1 2/2 3/3\nusemtl bare\nf 1/2 3/1 4/3\n");
        m_bundle.write("b.mtl", kRed);
        m_bundle.write("lost.obj", "mtllib lost.mtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
        m_bundle.write("bad.stl", "solid");
        std::string content = "<material name=\"skin\"><color rgba=\"0 1 0 1\"/></material><link name=\"base\">";
        for (const char* const file : {"a.stl", "b.obj", "lost.obj", "bad.stl"}) {
            content += "<visual><geometry><mesh filename=\"" + std::string(file) +
                       "\" scale=\"1 1 -2\"/></geometry><material name=\"skin\"/></visual>";
        }
        m_robot = m_bundle.write("r.urdf", robot(content + "<collision><origin xyz=\"1 0 0\"/><geometry>"
                                                           "<mesh filename=\"a.stl\"/></geometry></collision></link>"));
        m_options.useCache = true;
        m_options.cacheFolder = m_bundle.path("cache");
        // What was made just now may still be in the making: it would not be kept.
        std::this_thread::sleep_for(std::chrono::milliseconds(80));
    }

    /// The same system, report and messages as without a cache.
    void expectAsWithout()
    {
        const Imported with = import(m_robot, m_options);
        const Imported without = import(m_robot);
        EXPECT_TRUE(with.system.manipulatorSystem() == without.system.manipulatorSystem());
        EXPECT_EQ(with.report.json(), without.report.json());
        EXPECT_EQ(with.printed, without.printed);
    }
    std::vector<fs::path> entries() const
    {
        std::vector<fs::path> found;
        for (const auto& entry : fs::directory_iterator(m_options.cacheFolder)) {
            if (entry.path().filename() != "key") {
                found.push_back(entry.path());
            }
        }
        return found;
    }
    /// Of the entries, the oldest one's: an hour ago, until something is used.
    void age() const
    {
        for (const fs::path& entry : entries()) {
            fs::last_write_time(entry, fs::file_time_type::clock::now() - std::chrono::hours(1));
        }
    }
    std::size_t numUsed() const
    {
        std::size_t count = 0;
        for (const fs::path& entry : entries()) {
            count += fs::last_write_time(entry) > fs::file_time_type::clock::now() - std::chrono::minutes(30);
        }
        return count;
    }
    /// Whether `work` ends well in a process of its own.
    static bool inChild(const std::function<bool()>& work)
    {
        const pid_t child = ::fork();
        if (child == 0) {
            ::_exit(work() ? 0 : 1);
        }
        int status = -1;
        ::waitpid(child, &status, 0);
        return status == 0;
    }

    static constexpr char kRed[] = "newmtl paint\nKd 1 0 0\nmap_Kd image.png\nnewmtl bare\nKd 0 1 0\n";
    Bundle m_bundle;
    std::string m_robot;
    KrImportOptions m_options;
};

} // namespace

TEST_F(KrMeshCacheTest, WhatIsKeptIsTheSameAsWhatIsRead)
{
    expectAsWithout();
    // Of a.stl two, since the collision geometry has another scale and no look; nothing of the one that is no mesh.
    EXPECT_EQ(entries().size(), 4u);
    age();
    expectAsWithout();
    EXPECT_EQ(numUsed(), 4u);
    EXPECT_EQ(entries().size(), 4u);

    // The form for drawing, too, and its levels.
    m_options.preparation = KrImportOptions::Preparation::Levels;
    import(m_robot, m_options);
    EXPECT_EQ(entries().size(), 8u);
    const Imported in = import(m_robot, m_options);
    const auto kept = in.mesh("base").indexedMesh();
    const auto made = KrIndexedMesh::withLevels(*KrIndexedMesh::make(in.mesh("base")));
    EXPECT_TRUE(kept->areLevelsMade);
    EXPECT_EQ(kept->levels.size(), made->levels.size());
    EXPECT_EQ(kept->vertices, made->vertices);
    EXPECT_EQ(kept->indices, made->indices);
    EXPECT_EQ(kept->isClosed, made->isClosed);

    // An image comes: texture coordinates are kept, too, and all lists of a mesh are made of its form for drawing.
    KrImage image;
    image.allocate(3, 0, 1, 1);
    ASSERT_TRUE(image.writeFile(m_bundle.path("image.png"), KrImage::TopRowFirst));
    std::this_thread::sleep_for(std::chrono::milliseconds(80));
    expectAsWithout();
    age();
    expectAsWithout();
    EXPECT_EQ(numUsed(), 4u);
}

TEST_F(KrMeshCacheTest, AMeshOfOneFileIsFoundWhereverItLiesAndOtherFilesCount)
{
    import(m_robot, m_options);
    age();
    const Bundle other;
    other.write("renamed.stl", contentOf(m_bundle.path("a.stl")));
    const std::string skin = "<material name=\"skin\"><color rgba=\"0 1 0 1\"/></material>";
    import(other.write("r.urdf", meshRobot("renamed.stl", "1 1 -2", skin)), m_options);
    EXPECT_EQ(entries().size(), 4u);
    EXPECT_EQ(numUsed(), 1u);
    // In another scale it is another mesh.
    import(other.write("r.urdf", meshRobot("renamed.stl", "1 1 2", skin)), m_options);
    EXPECT_EQ(entries().size(), 5u);

    // A library that changes, an image that comes, another content: none of them is what was kept.
    m_bundle.write("b.mtl", "newmtl paint\nKd 0 0 1\nmap_Kd image.png\n");
    expectAsWithout();
    m_bundle.write("image.png", "no image, but there");
    expectAsWithout();
    m_bundle.write("lost.mtl", kRed);
    expectAsWithout();
    m_bundle.write("a.stl", binaryStl(box(1, 2, 4)));
    expectAsWithout();
    fs::remove(m_bundle.path("b.mtl"));
    expectAsWithout();
}

TEST_F(KrMeshCacheTest, DamageIsAsIfNothingHadBeenKept)
{
    import(m_robot, m_options);
    std::vector<std::pair<fs::path, std::string>> good;
    for (const fs::path& entry : entries()) {
        good.emplace_back(entry, contentOf(entry));
    }
    std::mt19937 random(1);
    for (int i = 0; i < 100; ++i) {
        for (const auto& [path, content] : good) {
            std::string bad = content;
            if (i % 4 == 0) {
                bad.resize(random() % bad.size());
            } else {
                bad[random() % bad.size()] ^= static_cast<char>(1 + random() % 255);
            }
            std::ofstream(path, std::ios::binary) << bad;
        }
        const Imported in = import(m_robot, m_options);
        EXPECT_EQ(in.printed, "");
        // Replaced by what it should be.
        for (const auto& [path, content] : good) {
            EXPECT_TRUE(contentOf(path) == content) << path;
        }
    }
    // An entry under another one's name, and one that is a link or a pipe.
    fs::copy_file(good[0].first, good[1].first, fs::copy_options::overwrite_existing);
    expectAsWithout();
    fs::rename(good[0].first, m_bundle.path("elsewhere"));
    fs::create_symlink(m_bundle.path("elsewhere"), good[0].first);
    expectAsWithout();
    EXPECT_FALSE(fs::is_symlink(good[0].first));
    fs::remove(good[2].first);
    ::mkfifo(good[2].first.c_str(), 0600);
    expectAsWithout();
    // Without its secret all of it is worth nothing.
    m_bundle.write("cache/key", "short");
    expectAsWithout();
    EXPECT_EQ(fs::file_size(m_bundle.path("cache/key")), 32u);
}

// Behind the seal, which a random change does not pass.
TEST(KrPreparedMesh, BytesThatAreNoneAreRefused)
{
    const Bundle bundle;
    const Imported in = import(bundle.write("r.urdf", meshRobot(bundle.write("a.stl", binaryStl(box(1, 1, 1))))));
    KrPreparedMesh mesh;
    mesh.result.extent.reset(new KrTriPhysicalExtent);
    const KrTriPhysicalExtent& box = in.mesh("base");
    KrXmlVectorType<KrPlanarVector> coordinates({{0.0, 0.0}, {0.1, 1.0}});
    ASSERT_TRUE(mesh.result.extent->setMesh(box.vertices(), box.normals(), coordinates, box.groups()));
    mesh.result.extent->setMaterial("", KrDataMap::blueColor());
    mesh.result.isIndexed = true;
    mesh.result.triangles = 12;
    mesh.facts.warnings = {"one", "two"};
    mesh.otherFiles = {{"/a/file", true, "state"}};
    const std::string bytes = mesh.bytes();
    KrPreparedMesh read;
    ASSERT_TRUE(KrPreparedMesh::read(bytes, read));
    EXPECT_EQ(read.bytes(), bytes);

    for (std::size_t size = 0; size < bytes.size(); ++size) {
        EXPECT_FALSE(KrPreparedMesh::read(bytes.substr(0, size), read)) << size;
    }
    EXPECT_FALSE(KrPreparedMesh::read(bytes + '\0', read));
    // Every byte: what is still a mesh then can be written, and is what it says: no index leads nowhere.
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        for (const char change : {'\x01', '\x80', '\xFF'}) {
            std::string bad = bytes;
            bad[i] ^= change;
            if (KrPreparedMesh::read(bad, read)) {
                const KrTriPhysicalExtent& extent = *read.result.extent;
                KrTriPhysicalExtent checked;
                EXPECT_TRUE(
                    checked.setMesh(extent.vertices(), extent.normals(), extent.textureCoordinates(), extent.groups()))
                    << i;
                EXPECT_TRUE(checked.setIndexedMesh(extent.indexedMesh())) << i;
                EXPECT_TRUE(KrPreparedMesh::read(read.bytes(), read)) << i;
            }
        }
    }
}

// A group names its triangles in a few bytes: looking at each of them for each group would take hours.
TEST(KrPreparedMesh, GroupsThatHaveTheSameTrianglesAreRefusedAtOnce)
{
    constexpr std::uint32_t kNumIndices = 3000000, kNumGroups = 300000;
    std::string bytes;
    const auto append = [&bytes](const auto& number) {
        bytes.append(reinterpret_cast<const char*>(&number), sizeof number);
    };
    const auto appendCount = [&append](std::uint64_t count) { append(count); };
    append(true);
    // Vertices, normals, texture coordinates, in double precision.
    for (const std::uint64_t count : {1, 1, 0}) {
        append(false);
        appendCount(count);
        bytes.append(count * sizeof(KrVector), '\0');
    }
    appendCount(kNumGroups);
    bytes.append(kNumGroups * sizeof(std::uint64_t), '\0'); // their names
    appendCount(0);                                         // looks
    bytes += '\2';                                          // as an indexed mesh
    appendCount(1);                                         // vertices' origins
    bytes.append(2 * sizeof(std::uint32_t), '\0');
    for (int i = 0; i < 3; ++i) {
        appendCount(0); // corners' texture coordinates, further vertices and texture coordinates
    }
    appendCount(kNumIndices);
    bytes.append(kNumIndices * sizeof(std::uint32_t), '\0');
    appendCount(1); // levels
    bytes.append(2 * sizeof(float), '\0');
    appendCount(kNumGroups);
    for (std::uint32_t i = 0; i < kNumGroups; ++i) {
        append(KrIndexedMesh::Range{0, kNumIndices});
    }
    append(true);
    append(true);
    KrPreparedMesh read;
    EXPECT_FALSE(KrPreparedMesh::read(bytes, read));
}

TEST_F(KrMeshCacheTest, ProcessesAndThreadsShareAFolder)
{
    const KrStatedSystem expected = import(m_robot).system;
    const auto isAsExpected = [&] {
        KrStatedSystem system;
        KrImportReport report;
        return KrRobotImporter::readFile(m_robot, m_options, system, report) &&
               system.manipulatorSystem() == expected.manipulatorSystem();
    };
    // All of them make the folder and its secret, too.
    std::vector<pid_t> children;
    for (int i = 0; i < 6; ++i) {
        children.push_back(::fork());
        if (children.back() == 0) {
            bool isGood = true;
            for (int k = 0; k < 5; ++k) {
                isGood = isAsExpected() && isGood;
            }
            ::_exit(isGood ? 0 : 1);
        }
    }
    for (const pid_t child : children) {
        int status = -1;
        ::waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    // None of them has left anything else behind, and one secret is left of six.
    EXPECT_EQ(entries().size(), 4u);
    age();
    expectAsWithout();
    EXPECT_EQ(numUsed(), 4u);
}

TEST_F(KrMeshCacheTest, WhatWasUsedLongestAgoGoesFirst)
{
    const KrMeshCache cache(m_options.cacheFolder, 10000);
    std::vector<KrMeshCache::Name> names;
    for (int i = 0; i < 12; ++i) {
        names.push_back(cache.nameOf({std::to_string(i)}));
        cache.write(names.back(), std::string(1000, 'x'));
        timespec times[2] = {{1000 + i, 0}, {1000 + i, 0}};
        ::utimensat(AT_FDCWD, (m_options.cacheFolder + "/" + names.back()).c_str(), times, 0);
    }
    KrMeshCache::Entry entry;
    EXPECT_TRUE(cache.read(names[0], entry));
    EXPECT_EQ(entry.bytes(), std::string(1000, 'x'));
    // So has one that a wrong clock has dated.
    const std::string dated = m_options.cacheFolder + "/" + names[11];
    fs::last_write_time(dated, fs::file_time_type::clock::now() + std::chrono::hours(24));
    EXPECT_TRUE(cache.read(names[11], entry));
    EXPECT_LT(fs::last_write_time(dated), fs::file_time_type::clock::now() + std::chrono::hours(1));
    cache.trim();
    // The first one has just been used.
    EXPECT_TRUE(cache.read(names[0], entry));
    EXPECT_FALSE(cache.read(names[1], entry));
    EXPECT_TRUE(cache.read(names[11], entry));
    EXPECT_EQ(entries().size(), 8u); // nine tenths of 10000, in entries of 1024
    // What is larger than everything together is not even begun.
    cache.write(names[1], std::string(10000, 'x'));
    EXPECT_FALSE(cache.read(names[1], entry));
    // Names tell where one part ends.
    EXPECT_NE(cache.nameOf({"ab", "c"}), cache.nameOf({"a", "bc"}));
}

TEST_F(KrMeshCacheTest, AFolderThatIsFullOrNotOursIsNoCache)
{
    // Files of this process may have no byte: a full disk, but for its number.
    EXPECT_TRUE(inChild([this] {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit none = {100, 100}; // the secret comes through, no mesh does
        ::setrlimit(RLIMIT_FSIZE, &none);
        const Imported in = import(m_robot, m_options);
        return in.ok && in.printed.empty() && in.report.counts().missingMeshes == 1 && entries().empty();
    }));
    expectAsWithout();
    EXPECT_EQ(entries().size(), 4u);
    for (const fs::path& entry : entries()) {
        EXPECT_EQ(fs::status(entry).permissions(), fs::perms(0600));
    }
    EXPECT_EQ(fs::status(m_options.cacheFolder).permissions(), fs::perms(0700));

    const auto isOpen = [](const std::string& folder) { return KrMeshCache(folder, 1000).isOpen(); };
    fs::permissions(m_options.cacheFolder, fs::perms(0770));
    EXPECT_FALSE(isOpen(m_options.cacheFolder)); // others could put files there
    expectAsWithout();
    EXPECT_FALSE(isOpen(m_bundle.write("file", "")));
    EXPECT_FALSE(isOpen("/proc/none"));
    EXPECT_FALSE(KrMeshCache(m_bundle.path("none"), 0).isOpen());
    EXPECT_FALSE(fs::exists(m_bundle.path("none")));
    if (::geteuid() != 0) {
        EXPECT_TRUE(isOpen(m_bundle.path("locked")));
        fs::permissions(m_bundle.path("locked"), fs::perms(0500));
        m_options.cacheFolder = m_bundle.path("locked");
        expectAsWithout();
        fs::permissions(m_bundle.path("locked"), fs::perms(0700));
    } else {
        // Another user's link may lead anywhere.
        fs::create_directory(m_bundle.path("mine"));
        fs::permissions(m_bundle.path("mine"), fs::perms(0700));
        fs::create_symlink(m_bundle.path("mine"), m_bundle.path("link"));
        EXPECT_TRUE(isOpen(m_bundle.path("link")));
        ASSERT_EQ(::lchown(m_bundle.path("link").c_str(), 12345, 12345), 0);
        EXPECT_FALSE(isOpen(m_bundle.path("link")));
        ASSERT_EQ(::chown(m_bundle.path("mine").c_str(), 12345, 12345), 0);
        EXPECT_FALSE(isOpen(m_bundle.path("mine")));
    }
}

TEST_F(KrMeshCacheTest, TheFolderIsTheUsersCacheFolder)
{
    const auto madeIn = [this](const char* cache, const std::string& home) {
        return inChild([&] {
            cache ? ::setenv("XDG_CACHE_HOME", cache, 1) : ::unsetenv("XDG_CACHE_HOME");
            home.empty() ? ::unsetenv("HOME") : ::setenv("HOME", home.c_str(), 1);
            m_options.cacheFolder.clear();
            import(m_robot, m_options);
            return true;
        });
    };
    EXPECT_TRUE(madeIn(m_bundle.path("deep/xdg").c_str(), m_bundle.path("home")));
    EXPECT_TRUE(fs::exists(m_bundle.path("deep/xdg/krrendcore/key")));
    EXPECT_FALSE(fs::exists(m_bundle.path("home")));
    EXPECT_TRUE(madeIn("relative", m_bundle.path("home")));
    EXPECT_TRUE(fs::exists(m_bundle.path("home/.cache/krrendcore/key")));
    EXPECT_TRUE(madeIn(nullptr, ""));
    // Not asked for, not made.
    EXPECT_FALSE(KrImportOptions().useCache);
}
