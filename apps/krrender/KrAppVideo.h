#pragma once

#include <toolkit/foundation/private/KrFileReplacement.h>
#include <toolkit/image/KrImage.h>

#include <sys/types.h>

#include <string>

/// Frames that become a video through the ffmpeg program, fed by a pipe.
///
/// The file appears when it is finished; given up before that, it leaves nothing behind.
class KrAppVideo
{
public:
    /// Starts the program. Throws KrAppFailure (CouldNot): it is not there, or does not start.
    KrAppVideo(const std::string& path, unsigned int width, unsigned int height, double framesPerSecond);
    ~KrAppVideo();
    KrAppVideo(const KrAppVideo&) = delete;
    KrAppVideo& operator=(const KrAppVideo&) = delete;

    /// Appends a frame: width x height, RGB, row 0 at the bottom. Throws KrAppFailure, also when the program does not
    /// take it and a signal asks for an end (KrAppInterrupt).
    void add(const KrImage& picture);
    /// Ends the video and puts it in its place. Throws KrAppFailure, as `add` does.
    void finish();

    /// The full path of the program; empty when it is not in the folders of PATH.
    static std::string program();

private:
    void closePipe();
    bool hasEnded(bool isAwaited);
    int reap();
    void kill();
    int waitForEnd();
    void stopIfInterrupted();
    [[noreturn]] void giveUp();
    std::string complaint() const;
    void closeFiles();

    std::string m_path;
    KrFileReplacement m_file;
    int m_log = -1; ///< a file in memory into which the program writes what goes wrong
    pid_t m_process = -1;
    int m_pipe = -1;
};
