#include <tests/support/Program.h>

#include <KrAppInterrupt.h>
#include <toolkit/foundation/private/KrFileReplacement.h>

#include <gtest/gtest.h>

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace
{

enum class Work
{
    AtOnce, ///< a signal ends it
    InSteps ///< the first signal is noted
};

/// A process that has begun a file and started another process, and works on until a signal ends it.
class Worker
{
public:
    Worker(const std::string& file, Work work, bool isHangUpIgnored = false)
    {
        EXPECT_EQ(pipe(m_helper), 0);
        EXPECT_EQ(pipe(m_ready), 0);
        m_process = fork();
        if (m_process == 0) {
            signal(SIGHUP, isHangUpIgnored ? SIG_IGN : SIG_DFL);
            run(file, work);
        }
        close(m_helper[1]);
        close(m_ready[1]);
        char ready = 0;
        EXPECT_EQ(read(m_ready[0], &ready, 1), 1);
    }
    ~Worker()
    {
        kill(m_process, SIGKILL);
        close(m_helper[0]);
        close(m_ready[0]);
    }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    void send(int number) const { kill(m_process, number); }
    /// The signal that ended it; 0 when it still works after a while.
    int endedBy() const
    {
        int status = 0;
        for (int i = 0; i < 40 && waitpid(m_process, &status, WNOHANG) == 0; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }
    /// Whether the other process is gone: it holds the end of a pipe until then.
    bool hasHelperEnded() const
    {
        pollfd helper = {m_helper[0], 0, 0};
        return poll(&helper, 1, 5000) == 1;
    }

private:
    [[noreturn]] void run(const std::string& path, Work work)
    {
        const pid_t helper = fork();
        if (helper == 0) {
            setpgid(0, 0);
            close(m_ready[1]);
            for (;;) {
                pause();
            }
        }
        setpgid(helper, helper);
        close(m_helper[1]);
        KrAppInterrupt::install();
        KrAppInterrupt::setProcessGroup(helper);
        KrFileReplacement file(path);
        file.write("begun", 5);
        if (work == Work::InSteps) {
            new KrAppInterrupt;
        }
        const bool isTold = write(m_ready[1], "!", 1) == 1;
        while (isTold) {
            pause();
        }
        _exit(1);
    }

    pid_t m_process = -1;
    int m_helper[2] = {-1, -1};
    int m_ready[2] = {-1, -1};
};

} // namespace

TEST(KrAppInterrupt, ASignalTakesWhatIsUnfinishedAlong)
{
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
        const Folder folder;
        folder.write("video.mp4", "old");
        const Worker worker(folder.path("video.mp4"), Work::AtOnce);
        ASSERT_EQ(folder.names().size(), 2u);
        worker.send(number);
        EXPECT_EQ(worker.endedBy(), number);
        EXPECT_EQ(folder.names(), std::set<std::string>{"video.mp4"}) << number;
        EXPECT_EQ(contentOf(folder.path("video.mp4")), "old");
        EXPECT_TRUE(worker.hasHelperEnded()) << number;
    }
}

TEST(KrAppInterrupt, ASecondSignalEndsWorkThatTheFirstOneDoesNot)
{
    const Folder folder;
    const Worker worker(folder.path("video.mp4"), Work::InSteps);
    worker.send(SIGTERM);
    worker.send(SIGHUP); // at one blow, as service managers do
    EXPECT_EQ(worker.endedBy(), 0);
    EXPECT_EQ(folder.names().size(), 1u);
    worker.send(SIGHUP);
    EXPECT_EQ(worker.endedBy(), SIGHUP);
    EXPECT_TRUE(folder.names().empty());
    EXPECT_TRUE(worker.hasHelperEnded());
}

TEST(KrAppInterrupt, AnIgnoredSignalStaysIgnored)
{
    const Folder folder;
    const Worker worker(folder.path("video.mp4"), Work::AtOnce, true);
    worker.send(SIGHUP);
    EXPECT_EQ(worker.endedBy(), 0);
    worker.send(SIGTERM);
    EXPECT_EQ(worker.endedBy(), SIGTERM);
    EXPECT_TRUE(folder.names().empty());
}
