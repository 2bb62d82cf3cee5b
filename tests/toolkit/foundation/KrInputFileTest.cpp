#include <toolkit/foundation/private/KrInputFile.h>

#include <tests/support/Folder.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace
{

class KrInputFileTest : public testing::Test
{
protected:
    std::string write(const std::string& content) const { return m_folder.write("text", content); }
    static std::string reasonOf(const std::string& path)
    {
        KrInputFile file(100);
        std::string content = "as before";
        const bool isRead = file.open(path) && file.readAll(content);
        EXPECT_EQ(content == "as before", !isRead);
        return file.reason();
    }

    Folder m_folder;
};

/// The end of a pipe (or socket) into which another thread writes `block` until nobody reads.
class Source
{
public:
    Source(std::string block, bool isSocket)
    {
        int ends[2] = {-1, -1};
        EXPECT_EQ(isSocket ? socketpair(AF_UNIX, SOCK_STREAM, 0, ends) : pipe(ends), 0);
        m_end = ends[0];
        // Readers must not take "nothing there yet" for an end or a failure.
        fcntl(m_end, F_SETFL, O_NONBLOCK);
        signal(SIGPIPE, SIG_IGN);
        m_writer = std::thread([block = std::move(block), end = ends[1]] {
            while (::write(end, block.data(), block.size()) > 0) {
            }
            ::close(end);
        });
    }
    ~Source()
    {
        ::close(m_end);
        m_writer.join();
    }
    int end() const { return m_end; }

private:
    int m_end = -1;
    std::thread m_writer;
};

} // namespace

TEST_F(KrInputFileTest, FoldersDevicesAndWhatIsTooLargeAreNotRead)
{
    EXPECT_EQ(reasonOf(write(std::string(100, 'x'))), "");
    EXPECT_EQ(reasonOf(m_folder.path("none")), "there is no such file");
    EXPECT_EQ(reasonOf(m_folder.path("")), "it is a folder");
    EXPECT_EQ(reasonOf("/dev/zero"), "it is a device, neither a file nor a pipe");
    EXPECT_EQ(reasonOf(write(std::string(101, 'x'))), "it is larger than 100 bytes");

    // A size that would take all memory is refused before any of it is read.
    const std::string path = write("");
    std::filesystem::resize_file(path, std::uintmax_t(1) << 30);
    KrInputFile large(std::uint64_t(4) << 20);
    EXPECT_FALSE(large.open(path));
    EXPECT_EQ(large.reason(), "it is larger than 4 MiB");
}

TEST_F(KrInputFileTest, AnEndlessPipeIsReadUpToTheLimit)
{
    for (const bool isSocket : {false, true}) {
        const Source source(std::string(1000, 'x') + "\n", isSocket);
        KrInputFile file(std::uint64_t(1) << 20);
        std::string content;
        ASSERT_TRUE(file.openDescriptor(source.end())) << file.reason();
        EXPECT_FALSE(file.readAll(content));
        EXPECT_EQ(file.reason(), "it is larger than 1 MiB");
        EXPECT_EQ(content, "");
    }
    const Source source("y", false);
    KrInputFile file(std::uint64_t(1) << 20);
    std::string line;
    ASSERT_TRUE(file.openDescriptor(source.end()));
    EXPECT_FALSE(file.readLine(line, 5000));
    EXPECT_EQ(file.reason(), "it has a line of more than 5000 bytes");
}

TEST_F(KrInputFileTest, LinesComeWholeWhateverTheyEndWith)
{
    const std::string longLine(200000, 'a'); // over several blocks
    const auto lines = [&](const std::string& content) {
        std::vector<std::string> found;
        KrInputFile file(std::uint64_t(1) << 20);
        EXPECT_TRUE(file.open(write(content)));
        for (std::string line; file.readLine(line, longLine.size());) {
            found.push_back(line);
        }
        EXPECT_EQ(file.reason(), "");
        return found;
    };
    using Lines = std::vector<std::string>;
    EXPECT_EQ(lines(""), Lines{});
    EXPECT_EQ(lines("\n"), Lines{""});
    EXPECT_EQ(lines("a\r\n\nb"), (Lines{"a", "", "b"}));
    EXPECT_EQ(lines("a\n" + longLine + "\nb\n"), (Lines{"a", longLine, "b"}));
    EXPECT_EQ(lines(longLine), Lines{longLine});
}
