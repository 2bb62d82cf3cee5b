#include "KrAppVideo.h"

#include "KrAppFailure.h"
#include "KrAppFiles.h"
#include "KrAppInterrupt.h"
#include "KrAppMessages.h"

#include <picture/KrValueText.h>
#include <toolkit/foundation/KrReason.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>
#include <vector>

extern char** environ;

namespace
{

namespace fs = std::filesystem;

constexpr int kPatienceMs = 50; // until a signal is noticed while the program works, or does nothing

[[noreturn]] void couldNot(const std::string& sentence)
{
    throw KrAppFailure(KrAppFailure::CouldNot, sentence);
}

std::vector<std::string> arguments(const std::string& path, unsigned int width, unsigned int height,
                                   double framesPerSecond)
{
    char rate[32];
    std::snprintf(rate, sizeof rate, "%.6g", framesPerSecond);
    const bool isGif = KrAppFiles::extensionOf(path) == ".gif";
    // -xerror: a disk that is full at the end is a failure, too.
    std::vector<std::string> list =
        KrValueText::split("ffmpeg -hide_banner -loglevel error -xerror -nostdin -y -f rawvideo -pix_fmt rgb24", ' ');
    list.insert(list.end(), {"-s", std::to_string(width) + "x" + std::to_string(height), "-r", rate, "-i", "pipe:0"});
    // The first row is the lowest one. Most players want an even size and halved colour resolution.
    // A GIF has 256 colours: those that the pictures have are better than any fixed ones.
    if (isGif) {
        list.insert(list.end(), {"-vf", "vflip,split[a][b];[a]palettegen[p];[b][p]paletteuse"});
    } else {
        list.insert(list.end(), {"-vf", "vflip,pad=ceil(iw/2)*2:ceil(ih/2)*2", "-pix_fmt", "yuv420p"});
    }
    list.push_back("file:" + path); // no option and no protocol, however it is spelled
    return list;
}

} // namespace

std::string KrAppVideo::program()
{
    const char* const path = std::getenv("PATH");
    // By hand, because the doctor tells the place as well. An empty entry is the current folder.
    for (const std::string& folder : KrValueText::split(path ? path : "/usr/bin:/bin", ':')) {
        const std::string candidate = (folder.empty() ? "." : folder) + "/ffmpeg";
        std::error_code error;
        if (fs::is_regular_file(candidate, error) && access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
    }
    return std::string();
}

KrAppVideo::KrAppVideo(const std::string& path, unsigned int width, unsigned int height, double framesPerSecond)
    : m_path(path)
    // Beside the target: a video that is not finished leaves the old file as it was.
    , m_file(path)
{
    if (!m_file.isOpen()) {
        couldNot("cannot write " + path + ": " + m_file.reason());
    }
    const std::string executable = program();
    if (executable.empty()) {
        couldNot("cannot write " + path +
                 ": the ffmpeg program is not there (Debian package ffmpeg); -o frame_%04d.png "
                 "writes single pictures");
    }
    // Closed when the program starts, which gets copies of its own: an end left open there would hide the end of the
    // pictures.
    int ends[2] = {-1, -1};
    // Complaints go into memory: a pipe would have to be emptied while pictures go into the other one.
    m_log = memfd_create("ffmpeg", MFD_CLOEXEC);
    if (m_log < 0 || pipe2(ends, O_CLOEXEC) != 0) {
        const std::string reason = std::strerror(errno);
        closeFiles();
        couldNot("cannot write " + path + ": " + reason);
    }
    m_pipe = ends[1];
    // A program that hangs must not hang this one.
    fcntl(m_pipe, F_SETFL, O_NONBLOCK);
    // A program that ends early is noticed by the failing write.
    signal(SIGPIPE, SIG_IGN);

    // The temporary name has the target's extension, by which the program chooses the format.
    std::vector<std::string> words = arguments(m_file.temporaryPath(), width, height, framesPerSecond);
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(&word[0]);
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[0], STDIN_FILENO);
    // What it prints must not mix with what this program prints.
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, m_log, STDERR_FILENO);
    // In a process group of its own: Ctrl-C reaches this program alone, which then ends the video in order.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    posix_spawnattr_setpgroup(&attributes, 0);
    // As for a program that is started by hand: what this one blocks or ignores would be its too.
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    sigaddset(&signals, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    int error = 0;
    {
        // No signal comes between the start of the program and the note of what is to be killed.
        const KrAppInterrupt::Pause pause;
        error = posix_spawn(&m_process, executable.c_str(), &actions, &attributes, argv.data(), environ);
        // After a failure the number says nothing.
        m_process = error == 0 ? m_process : -1;
        KrAppInterrupt::setProcessGroup(error == 0 ? m_process : 0);
    }
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    // The reading end is the program's alone: when it ends, writing fails.
    close(ends[0]);
    if (error != 0) {
        closeFiles();
        couldNot("cannot write " + path + ": " + executable + " does not start: " + std::strerror(error));
    }
}

KrAppVideo::~KrAppVideo()
{
    kill();
    closeFiles();
}

void KrAppVideo::closePipe()
{
    if (m_pipe >= 0) {
        close(m_pipe);
        m_pipe = -1;
    }
}

void KrAppVideo::closeFiles()
{
    closePipe();
    if (m_log >= 0) {
        close(m_log);
        m_log = -1;
    }
}

bool KrAppVideo::hasEnded(bool isAwaited)
{
    siginfo_t info = {};
    // Not reaped yet: until then the number is no other program's, whom a signal could kill.
    const int options = WEXITED | WNOWAIT | (isAwaited ? 0 : WNOHANG);
    int error = 0;
    do {
        error = waitid(P_PID, static_cast<id_t>(m_process), &info, options) == 0 ? 0 : errno;
    } while (error == EINTR);
    return error != 0 || info.si_pid != 0;
}

int KrAppVideo::reap()
{
    int status = -1;
    // First: as soon as it is reaped, the number may be another program's.
    KrAppInterrupt::setProcessGroup(0);
    while (waitpid(m_process, &status, 0) < 0 && errno == EINTR) {
    }
    m_process = -1;
    return status;
}

void KrAppVideo::kill()
{
    if (m_process > 0) {
        ::kill(-m_process, SIGKILL);
        hasEnded(true);
        reap();
    }
}

int KrAppVideo::waitForEnd()
{
    // In small steps, because a request to stop has to be noticed meanwhile.
    while (m_process > 0 && !hasEnded(false)) {
        stopIfInterrupted();
        std::this_thread::sleep_for(std::chrono::milliseconds(kPatienceMs / 10));
    }
    return m_process > 0 ? reap() : -1;
}

void KrAppVideo::stopIfInterrupted()
{
    if (KrAppInterrupt::isRequested()) {
        kill(); // its file would go anyway
        couldNot("stopped: " + m_path + " is not finished");
    }
}

std::string KrAppVideo::complaint() const
{
    char text[1024];
    // From the beginning, wherever the program writes now: its first line tells the cause.
    const ssize_t size = pread(m_log, text, sizeof text, 0);
    const std::string log(text, size > 0 ? static_cast<std::size_t>(size) : 0);
    const std::string line = KrReason::oneLine(log.substr(0, log.find('\n')));
    return line.empty() ? "it ended too early" : line;
}

// Its end first: by then the complaint is whole.
void KrAppVideo::giveUp()
{
    // The end of the pipe ends the program, if nothing else has.
    closePipe();
    waitForEnd();
    couldNot("cannot write " + m_path + ": the ffmpeg program says: " + complaint());
}

void KrAppVideo::add(const KrImage& picture)
{
    const unsigned char* data = picture.data();
    std::size_t left = picture.sizeInBytes();
    while (left > 0) {
        // As much as the pipe takes, which is less than most pictures have.
        const ssize_t written = write(m_pipe, data, left);
        if (written > 0) {
            data += written;
            left -= static_cast<std::size_t>(written);
        } else if (written < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            stopIfInterrupted();
            pollfd wait = {m_pipe, POLLOUT, 0};
            poll(&wait, 1, kPatienceMs);
        } else if (written == 0 || errno != EINTR) {
            giveUp();
        }
    }
}

void KrAppVideo::finish()
{
    // The end of the pipe is the end of the video.
    closePipe();
    if (waitForEnd() != 0) {
        giveUp();
    }
    // Only a video that is whole takes the old one's place.
    if (!m_file.replace()) {
        couldNot("cannot write " + m_path + ": " + m_file.reason());
    }
}
