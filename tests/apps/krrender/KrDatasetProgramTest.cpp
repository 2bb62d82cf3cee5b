// Runs krrender dataset as a user does, kills it, takes its room away, and looks at what it leaves behind.

#include <tests/support/Program.h>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <set>
#include <thread>

namespace
{

using Tree = nlohmann::json;

class DatasetProgram : public testing::Test
{
protected:
    DatasetProgram()
    {
        m_recipe = Tree::parse(R"({"version": 1, "count": 30, "samplesPerShard": 4, "size": [96, 72],
            "samplesPerPixel": 1, "kinds": ["color", "depth", "labels", "normals", "masks"],
            "robots": [{"file": "arm.urdf", "name": "arm"}],
            "cameras": [{"shell": {"distance": [1.5, 3]}}, {"name": "side", "shell": {"distance": 3, "azimuth": 0}}],
            "materials": [{"robot": "arm", "links": ["link_2"], "color": {"between": ["black", "white"]}}]})");
        std::filesystem::create_symlink(KR_SAMPLES "/industrial_arm.urdf", m_folder.path("arm.urdf"));
        std::filesystem::create_symlink(KR_SAMPLES "/meshes", m_folder.path("meshes"));
    }
    std::string command(const std::string& arguments) const
    {
        m_folder.write("r.json", m_recipe.dump());
        return "cd '" + m_folder.path("") + "' && exec '" + std::string(KR_RENDER) + "' dataset r.json " + arguments;
    }
    Answer run(const std::string& arguments) const { return runCommand("( " + command(arguments) + " )"); }
    /// The content of every file below, by path; whatever is left of unfinished work among them.
    std::map<std::string, std::string> contents(const std::string& set) const
    {
        std::map<std::string, std::string> result;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(m_folder.path(set))) {
            if (entry.is_regular_file()) {
                result[entry.path().lexically_relative(m_folder.path(set)).string()] = contentOf(entry.path().string());
            }
        }
        return result;
    }

    Folder m_folder;
    Tree m_recipe;
};

std::set<std::string> namesOf(const std::map<std::string, std::string>& contents)
{
    std::set<std::string> names;
    for (const auto& [name, content] : contents) {
        names.insert(name);
    }
    return names;
}

pid_t start(const std::string& command)
{
    const pid_t child = fork();
    if (child == 0) {
        execl("/bin/sh", "sh", "-c", (command + " >/dev/null 2>&1").c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    return child;
}

int wait(pid_t child)
{
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

TEST_F(DatasetProgram, HasTheSameBytesHoweverManyMakeItAndWhateverKillsThem)
{
    ASSERT_EQ(run("--out one").status, 0);
    const Answer whole = run("--out one --verify --merge");
    EXPECT_EQ(whole.status, 0);
    EXPECT_EQ(run("--out one --merge --shard 0/2").status, 2);
    const Answer share = run("--out one --verify --shard 1/2");
    EXPECT_EQ(share.status, 0);
    EXPECT_NE(share.out, whole.out) << "fewer shards were read";
    const std::map<std::string, std::string> expected = contents("one");
    EXPECT_GT(expected.size(), 30u * 5u);
    unsigned int numKilled = 0;
    for (const unsigned int n : {2u, 7u}) {
        const std::string set = "of" + std::to_string(n);
        // Each moment of the work is hit sooner or later, the first ones before anything is there.
        unsigned int delayMs = 20;
        for (bool isDone = false; !isDone; delayMs += 83) {
            std::vector<pid_t> children;
            for (unsigned int i = 0; i < n; ++i) {
                children.push_back(
                    start(command("--out " + set + " --shard " + std::to_string(i) + "/" + std::to_string(n))));
            }
            const bool isKilled = delayMs < 600;
            std::this_thread::sleep_for(std::chrono::milliseconds(isKilled ? delayMs : 0));
            isDone = true;
            for (const pid_t child : children) {
                if (isKilled) {
                    kill(child, SIGKILL);
                }
                const int status = wait(child);
                numKilled += status == 128 + SIGKILL ? 1 : 0;
                isDone = isDone && status == 0;
            }
            // What counts as done is whole.
            const Answer verified = run("--out " + set + " --verify");
            EXPECT_EQ(verified.out.find("damaged"), std::string::npos) << verified.out << verified.err;
        }
        EXPECT_EQ(run("--out " + set + " --verify --merge").status, 0);
        const std::map<std::string, std::string> made = contents(set);
        EXPECT_EQ(namesOf(made), namesOf(expected)); // no leftovers, either
        EXPECT_TRUE(made == expected) << n;
    }
    EXPECT_GT(numKilled, 10u);
}

TEST_F(DatasetProgram, SeveralWithTheSameShareDoNotSpoilEachOther)
{
    ASSERT_EQ(run("--out one").status, 0);
    std::vector<pid_t> children;
    for (unsigned int i = 0; i < 4; ++i) {
        children.push_back(start(command("--out many")));
    }
    for (const pid_t child : children) {
        EXPECT_EQ(wait(child), 0);
    }
    EXPECT_EQ(namesOf(contents("many")), namesOf(contents("one")));
    EXPECT_TRUE(contents("many") == contents("one"));
}

TEST_F(DatasetProgram, StopsCleanlyAndGoesOnFromThere)
{
    m_recipe["count"] = 2000;
    const pid_t child = start(command("--out set"));
    while (!std::filesystem::exists(m_folder.path("set/shard-000001"))) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    kill(child, SIGTERM);
    EXPECT_EQ(wait(child), 1);
    for (const auto& entry : std::filesystem::directory_iterator(m_folder.path("set"))) {
        EXPECT_NE(entry.path().filename().string().front(), '.') << entry.path();
    }
    const auto made = std::filesystem::last_write_time(m_folder.path("set/shard-000000/manifest.json"));
    EXPECT_EQ(run("--out wide --shard 1/18446744073709551615").status, 0);
    EXPECT_TRUE(std::filesystem::exists(m_folder.path("wide/shard-000001")));
    EXPECT_FALSE(std::filesystem::exists(m_folder.path("wide/shard-000000"))) << "the share of another process";
    EXPECT_EQ(run("--out set --shard 0/400").status, 0); // shards 0 and 400, of which the first is there
    EXPECT_EQ(std::filesystem::last_write_time(m_folder.path("set/shard-000000/manifest.json")), made);
}

TEST_F(DatasetProgram, AFullDiskLeavesNothingThatCountsAsDone)
{
    // Files of at most 8 KiB: the first depths are larger.
    const Answer full =
        runCommand("( trap '' XFSZ; ulimit -f 16; ulimit -c 0; " + command("--out set --shard 1/2") + " )");
    EXPECT_EQ(full.status, 1);
    EXPECT_EQ(full.numErrorLines(), 1u) << full.err;
    EXPECT_NE(full.err.find("cannot write"), std::string::npos) << full.err;
    for (const auto& [path, content] : contents("set")) {
        EXPECT_TRUE(path == "recipe.json" || path == "dataset.json") << path;
    }
    // More than any disk has is refused before anything is drawn.
    m_recipe["count"] = 1000000000000;
    m_recipe["samplesPerShard"] = 10000000;
    const Answer huge = run("--out huge");
    EXPECT_EQ(huge.status, 1);
    EXPECT_NE(huge.err.find("are needed for 1000000000000 samples, but huge has room for"), std::string::npos)
        << huge.err;
    // So is more than 64 bits count.
    m_recipe["size"] = {16384, 16384};
    m_recipe["count"] = std::uint64_t{1} << 40;
    const Answer most = run("--out most");
    const std::size_t at = most.err.find("about ");
    ASSERT_NE(at, std::string::npos) << most.err;
    EXPECT_GT(std::stod(most.err.substr(at + 6)), 1e12) << most.err;
}

TEST_F(DatasetProgram, DrawsOneSampleAgain)
{
    ASSERT_EQ(run("--out set").status, 0);
    ASSERT_EQ(run("--sample 17 --out again").status, 0);
    const std::map<std::string, std::string> all = contents("set");
    const std::map<std::string, std::string> one = contents("again");
    EXPECT_GT(one.size(), 5u);
    for (const auto& [path, content] : one) {
        EXPECT_TRUE(all.at("shard-000004/" + path) == content) << path;
    }
    EXPECT_EQ(run("--sample 17 --out again").status, 1);
    // What lies beside the folder is the user's, whatever its name.
    m_folder.write("third.tmp/notes.txt", "mine");
    EXPECT_EQ(run("--sample 17 --out third/").status, 0);
    EXPECT_EQ(contentOf(m_folder.path("third.tmp/notes.txt")), "mine");
    EXPECT_TRUE(contents("third") == one);
    EXPECT_EQ(m_folder.names(),
              (std::set<std::string>{"again", "arm.urdf", "meshes", "r.json", "set", "third", "third.tmp"}));
    EXPECT_EQ(run("--sample 30 --out other").err, "krrender: there is no sample 30: the recipe has 0 to 29\n");
    // Links have their colours: nothing but the colour of one link differs from a recipe without them.
    m_recipe.erase("materials");
    ASSERT_EQ(run("--sample 17 --out plain").status, 0);
    const std::map<std::string, std::string> plain = contents("plain");
    EXPECT_FALSE(plain.at("color/000000017.png") == one.at("color/000000017.png"));
    EXPECT_TRUE(plain.at("depth/000000017.npy") == one.at("depth/000000017.npy"));
    EXPECT_TRUE(plain.at("labels/000000017.png") == one.at("labels/000000017.png"));
}

TEST_F(DatasetProgram, FailsLoudlyWhereThereIsNothingToLearnFrom)
{
    const auto fails = [&](const std::string& arguments, const std::string& sentence) {
        const Answer answer = run("--out failed" + arguments);
        EXPECT_EQ(answer.status, 1);
        EXPECT_EQ(answer.numErrorLines(), 1u) << answer.err;
        EXPECT_NE(answer.err.find(sentence), std::string::npos) << answer.err;
        EXPECT_FALSE(std::filesystem::exists(m_folder.path("failed/shard-000000")));
        std::filesystem::remove_all(m_folder.path("failed"));
    };
    const Tree good = m_recipe;
    m_recipe["cameras"] = {{{"name", "away"}, {"pose", {{"position", {5, 0, 0}}}}}};
    fails("", "sample 0 shows too little: parts cover 0 % of the picture of camera \"away\"");
    m_recipe = good;
    m_recipe["robots"][0]["file"] = "legs.urdf";
    fails("", "legs.urdf");
    m_recipe = good;
    m_recipe["background"] = {{"pictures", {"r.json"}}};
    fails("", "r.json");
    m_recipe = good;
    std::filesystem::remove(m_folder.path("meshes"));
    fails("", "lacks a mesh");
    std::filesystem::create_symlink(KR_SAMPLES "/meshes", m_folder.path("meshes"));
    fails(" --require-gpu", "a graphics processor is required, but");
}

} // namespace
