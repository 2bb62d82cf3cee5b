#include <dataset/KrDatasetRecipe.h>
#include <dataset/KrDatasetStore.h>

#include <tests/support/Folder.h>

#include <gtest/gtest.h>

#include <sys/file.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <thread>

namespace
{

bool s_hasLocks = true;

} // namespace

/// In the place of the C library's: a file system without locks can be had.
extern "C" int flock(int descriptor, int operation) noexcept
{
    if (!s_hasLocks) {
        errno = ENOSYS;
        return -1;
    }
    return static_cast<int>(syscall(SYS_flock, descriptor, operation));
}

namespace
{

using Begin = KrDatasetStore::Begin;

class Store : public testing::Test
{
protected:
    Store()
    {
        m_recipe.count = 25;
        m_recipe.samplesPerShard = 10;
        m_recipe.text = "{}";
        m_info.recipeHash = "hash";
        m_info.numSamples = 25;
        EXPECT_EQ(open(m_store), "");
    }
    std::string open(KrDatasetStore& store) const
    {
        std::string reason;
        return store.open(m_folder.path("set"), m_recipe, m_info, reason) ? "" : reason;
    }
    Begin begin(std::uint64_t shard, std::unique_ptr<KrDatasetStore::Draft>& draft) const
    {
        std::string reason;
        return m_store.begin(m_recipe.shard(shard), draft, reason);
    }
    void make(std::uint64_t shard) const
    {
        std::unique_ptr<KrDatasetStore::Draft> draft;
        std::string reason;
        ASSERT_EQ(begin(shard, draft), Begin::Ours);
        std::filesystem::create_directory(draft->folder() + "/color");
        std::ofstream(draft->folder() + "/color/a.png") << "picture " << shard;
        std::ofstream(draft->folder() + "/b.json") << "{}";
        EXPECT_TRUE(draft->publish("a driver", reason)) << reason;
    }
    std::vector<std::string> faults(std::uint64_t process = 0, std::uint64_t numProcesses = 1) const
    {
        std::vector<std::string> result;
        std::string reason;
        EXPECT_TRUE(m_store.verify(process, numProcesses, result, reason));
        return result;
    }
    std::string inShard(const std::string& path) const { return m_folder.path("set/shard-000001/" + path); }
    std::set<std::string> names() const
    {
        std::set<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(m_folder.path("set"))) {
            found.insert(entry.path().filename().string());
        }
        return found;
    }

    Folder m_folder;
    KrDatasetRecipe m_recipe;
    KrDatasetInfo m_info;
    KrDatasetStore m_store;
};

TEST_F(Store, TellsEveryWayInWhichAShardIsNotWhole)
{
    for (const std::uint64_t shard : {0, 1, 2}) {
        make(shard);
    }
    EXPECT_EQ(faults(), std::vector<std::string>());
    std::ofstream(inShard("color/a.png")) << "pictore 1";
    std::filesystem::remove(inShard("b.json"));
    std::ofstream(inShard("c.json")) << "{}";
    std::filesystem::remove_all(m_folder.path("set/shard-000002"));
    EXPECT_EQ(faults(), (std::vector<std::string>{"shard-000001/b.json is missing",
                                                  "shard-000001/color/a.png is damaged: it has not the bytes that were "
                                                  "written",
                                                  "shard-000001/c.json does not belong there", "shard 2 is missing"}));
    EXPECT_EQ(faults(0, 2), std::vector<std::string>{"shard 2 is missing"});
    EXPECT_EQ(faults(1, 2).size(), 3u);
    EXPECT_EQ(faults(5, 1000).size(), 0u) << "the share of one of more processes than there are shards";
    std::string reason;
    EXPECT_FALSE(m_store.merge(reason));
    EXPECT_EQ(reason, "shard 2 of 3 is missing: what is there cannot be merged yet");
    std::ofstream(inShard("manifest.json")) << "{\"format\": 1}";
    EXPECT_EQ(faults().front().find("shard 1 is damaged: "), 0u);
}

TEST_F(Store, AShardIsMadeByOneAndLeavesNothingBehind)
{
    std::unique_ptr<KrDatasetStore::Draft> first;
    std::unique_ptr<KrDatasetStore::Draft> second;
    ASSERT_EQ(begin(1, first), Begin::Ours);
    EXPECT_EQ(begin(1, second), Begin::Busy);
    // What is at work is no leftover, whoever looks.
    const std::string folder = first->folder();
    m_store.removeLeftovers(0, 1);
    EXPECT_TRUE(std::filesystem::exists(folder));
    first.reset();
    EXPECT_FALSE(std::filesystem::exists(folder));
    EXPECT_EQ(names(), (std::set<std::string>{"recipe.json", "dataset.json"}));
    // What nobody holds a lock of is one.
    std::filesystem::create_directory(m_folder.path("set/.shard-000001.12345.0.tmp"));
    m_folder.write("set/.shard-000002.lock", ""); // killed before it made a folder, or behind its work
    std::filesystem::create_directory(m_folder.path("set/.shard-of-somebody.tmp"));
    m_store.removeLeftovers(0, 1);
    EXPECT_EQ(names(), (std::set<std::string>{".shard-of-somebody.tmp", "recipe.json", "dataset.json"}));
    make(1);
    EXPECT_EQ(begin(1, first), Begin::Done);
}

TEST_F(Store, WorksWhereThereAreNoLocksAndTouchesNobodysWorkThere)
{
    const auto touch = [&](const char* name) { std::filesystem::create_directory(m_folder.path(name)); };
    std::unique_ptr<KrDatasetStore::Draft> first;
    std::unique_ptr<KrDatasetStore::Draft> second;
    std::string reason;
    s_hasLocks = false;
    ASSERT_EQ(begin(1, first), Begin::Ours);
    ASSERT_EQ(begin(1, second), Begin::Ours);
    EXPECT_NE(first->folder(), second->folder());
    m_store.removeLeftovers(0, 1);
    for (const auto& draft : {first.get(), second.get()}) {
        std::ofstream(draft->folder() + "/a.json") << "{}";
        EXPECT_TRUE(draft->publish("a driver", reason)) << reason;
    }
    first.reset();
    second.reset();
    EXPECT_EQ(names(), (std::set<std::string>{"dataset.json", "recipe.json", "shard-000001"}));
    s_hasLocks = true;
    // Nor are other shares looked at.
    touch("set/.shard-000001.12345.0.tmp");
    touch("set/.shard-000002.12345.0.tmp");
    m_store.removeLeftovers(0, 2);
    EXPECT_EQ(names().count(".shard-000001.12345.0.tmp"), 1u);
    EXPECT_EQ(names().count(".shard-000002.12345.0.tmp"), 0u);
}

TEST_F(Store, RefusesTheFolderOfAnotherDataSet)
{
    make(0);
    KrDatasetStore again;
    // Of one that was killed while it wrote the recipe.
    m_folder.write("set/.recipe.0123456789abcdef.partial.json", "{");
    EXPECT_EQ(open(again), "");
    EXPECT_EQ(names().count(".recipe.0123456789abcdef.partial.json"), 0u);
    m_recipe.text = "{ }";
    EXPECT_NE(open(again).find("the recipe is not the one by which"), std::string::npos);
    m_recipe.text = "{}";
    m_info.rendererVersion = "99";
    EXPECT_NE(open(again).find("robots, meshes or the renderer have changed"), std::string::npos);
    const Folder other;
    other.write("thesis.tex", "");
    std::string reason;
    EXPECT_FALSE(again.open(other.path(""), m_recipe, m_info, reason));
    EXPECT_NE(reason.find("is no data set's folder: it holds \"thesis.tex\""), std::string::npos);
    EXPECT_EQ(other.names(), std::set<std::string>{"thesis.tex"});
}

TEST_F(Store, OfTwoRecipesThatBeginTogetherOneHasTheFolder)
{
    // Where the later file took the place of the first, both had it in nearly every round.
    for (int round = 0; round < 20; ++round) {
        const std::string folder = m_folder.path("race" + std::to_string(round));
        std::atomic<int> numReady{0};
        std::atomic<int> numOpen{0};
        const auto begin = [&](const std::string& text) {
            KrDatasetRecipe recipe = m_recipe;
            recipe.text = text;
            KrDatasetStore store;
            std::string reason;
            ++numReady;
            while (numReady < 2) {
            }
            numOpen += store.open(folder, recipe, m_info, reason) ? 1 : 0;
        };
        std::thread other(begin, "{ }");
        begin("{}");
        other.join();
        ASSERT_EQ(numOpen, 1) << "round " << round;
    }
}

TEST_F(Store, AFolderThatCannotBeLookedIntoIsRefused)
{
    const Folder other;
    std::filesystem::create_symlink("recipe.json", other.path("recipe.json"));
    KrDatasetStore store;
    std::string reason;
    EXPECT_FALSE(store.open(other.path(""), m_recipe, m_info, reason));
    EXPECT_NE(reason, "");
}

} // namespace
