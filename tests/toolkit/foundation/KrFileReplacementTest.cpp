#include <toolkit/foundation/private/KrFileReplacement.h>

#include <tests/support/Folder.h>

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

namespace
{

namespace fs = std::filesystem;

/// A folder of its own for each test.
class KrFileReplacementTest : public testing::Test
{
protected:
    std::string path(const std::string& name) const { return m_folder.path(name); }
    std::string file(const std::string& name, const std::string& content) const
    {
        return m_folder.write(name, content);
    }
    std::string content(const std::string& name) const { return contentOf(path(name)); }
    unsigned int permissions(const std::string& name) const
    {
        struct stat info = {};
        return ::stat(path(name).c_str(), &info) == 0 ? info.st_mode & 07777u : 0;
    }
    std::size_t numFiles() const { return m_folder.names().size(); }

    Folder m_folder;
};

} // namespace

TEST_F(KrFileReplacementTest, TheTargetChangesAtOnceAndOnlyWhenAsked)
{
    const std::string target = file("a.txt", "old");
    {
        KrFileReplacement given(target);
        ASSERT_TRUE(given.write("half", 4));
        EXPECT_EQ(content("a.txt"), "old");
        EXPECT_EQ(fs::path(given.temporaryPath()).parent_path(), fs::path(path("x")).parent_path());
        EXPECT_EQ(fs::path(given.temporaryPath()).extension(), ".txt");
        EXPECT_NE(KrFileReplacement(target).temporaryPath(), given.temporaryPath());
    }
    EXPECT_EQ(content("a.txt"), "old");
    EXPECT_EQ(numFiles(), 1u);

    KrFileReplacement kept(target);
    ASSERT_TRUE(kept.write("new ", 4) && kept.write("content", 7) && kept.replace());
    EXPECT_EQ(content("a.txt"), "new content");
    EXPECT_FALSE(kept.write("x", 1) || kept.replace());
    EXPECT_EQ(numFiles(), 1u);
    // A name as long as names may be.
    EXPECT_EQ(KrFileReplacement::write(path(std::string(255, 'n')), "long"), "");
    EXPECT_EQ(numFiles(), 2u);
}

TEST_F(KrFileReplacementTest, PermissionsAreThoseOfTheOldFileOrOfAnyNewOne)
{
    const mode_t before = ::umask(027);
    EXPECT_EQ(KrFileReplacement::write(path("new"), "x"), "");
    EXPECT_EQ(permissions("new"), 0640u);
    ASSERT_EQ(::chmod(path("new").c_str(), 0606), 0);
    EXPECT_EQ(KrFileReplacement::write(path("new"), "y"), "");
    EXPECT_EQ(permissions("new"), 0606u);

    ASSERT_EQ(::chmod(path("new").c_str(), 0604), 0);
    const KrFileReplacement open(path("new"));
    EXPECT_EQ(permissions(fs::path(open.temporaryPath()).filename()), 0600u); // shown to nobody before its time
    ::umask(before);
}

TEST_F(KrFileReplacementTest, LinksStayLinksAndTheirTargetsAreReplaced)
{
    file("a", "old");
    fs::create_directory(path("deep"));
    fs::create_symlink("../b", path("deep/link"));
    fs::create_symlink("deep/link", path("chain"));
    fs::create_symlink("a", path("b"));
    EXPECT_EQ(KrFileReplacement::write(path("chain"), "new"), "");
    EXPECT_EQ(content("a"), "new");
    EXPECT_TRUE(fs::is_symlink(path("chain")) && fs::is_symlink(path("deep/link")) && fs::is_symlink(path("b")));

    fs::create_symlink("deep/later", path("dangling"));
    EXPECT_EQ(KrFileReplacement::write(path("dangling"), "there"), "");
    EXPECT_TRUE(fs::is_symlink(path("dangling")));
    EXPECT_EQ(content("deep/later"), "there");

    fs::create_symlink("round", path("about"));
    fs::create_symlink("about", path("round"));
    EXPECT_NE(KrFileReplacement::write(path("round"), "x").find("symbolic links"), std::string::npos);
}

TEST_F(KrFileReplacementTest, WhatCannotBeReplacedStaysAndNothingIsLeft)
{
    fs::create_directory(path("folder"));
    ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);
    fs::create_symlink("/dev/null", path("device"));
    const std::size_t files = numFiles();
    EXPECT_EQ(KrFileReplacement::write(path("folder"), "x"), "Is a directory");
    EXPECT_EQ(KrFileReplacement::write(path("folder/"), "x"), "Is a directory");
    EXPECT_EQ(KrFileReplacement::write(path("pipe"), "x"), "it is no regular file");
    EXPECT_EQ(KrFileReplacement::write(path("device"), "x"), "it is no regular file");
    EXPECT_EQ(KrFileReplacement::write(path("none/file"), "x"), "No such file or directory");
    EXPECT_EQ(KrFileReplacement::write(std::string(), "x"), "No such file or directory");
    EXPECT_EQ(numFiles(), files);
    EXPECT_TRUE(fs::is_fifo(path("pipe")) && fs::is_character_file(path("device")));
}

TEST_F(KrFileReplacementTest, ADiskThatTakesNoMoreKeepsTheOldContent)
{
    const std::string target = file("a", "old");
    const pid_t child = ::fork();
    if (child == 0) {
        // The limit on a file's size stands in for a full disk: the write ends early in the same way.
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {4096, 4096};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        ::_exit(KrFileReplacement::write(target, std::string(100000, 'x')) == "File too large" ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(content("a"), "old");
    EXPECT_EQ(numFiles(), 1u);
}

TEST_F(KrFileReplacementTest, NothingIsLeftWhenAProcessEndsWhileItsThreadsWrite)
{
    for (int i = 0; i < 40; ++i) {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            for (int thread = 0; thread < 4; ++thread) {
                std::thread([this, thread] {
                    for (;;) {
                        KrFileReplacement::write(path(std::to_string(thread)), "content");
                    }
                }).detach();
            }
            usleep(3000);
            KrFileReplacement::removeUnfinished();
            usleep(1000); // a process does not end at once
            _exit(0);
        }
        ASSERT_EQ(waitpid(child, nullptr, 0), child);
        ASSERT_LE(numFiles(), 4u) << "a temporary file was left";
    }
}
