#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// The one door for files that come from outside: read whole or piece by piece, and never beyond a limit.
///
/// A folder or a device is not even opened: some devices never end, others do something when they are opened.
///
/// Every function that fails gives false, and `reason` says why. Not copyable; an object belongs to one thread at a
/// time.
class KrInputFile
{
public:
    enum class Accept
    {
        Files,        ///< regular ones only, for what a file names: a pipe without a writer would be waited for
        FilesAndPipes ///< for what a person names, and sockets that are open already
    };

    /// @param mostBytes  what holds more is refused, a regular file before it is read
    explicit KrInputFile(std::uint64_t mostBytes, Accept accept = Accept::FilesAndPipes);
    ~KrInputFile();
    KrInputFile(const KrInputFile&) = delete;
    KrInputFile& operator=(const KrInputFile&) = delete;

    /// Waits for a pipe's writer.
    bool open(const std::string& path);
    /// Reads what `descriptor` has from where it stands; it stays the caller's.
    bool openDescriptor(int descriptor);

    /// Takes what is there now, of at most `size` bytes. @param count  0 at the end
    bool read(char* data, std::size_t size, std::size_t& count);
    /// All that is left; `content` is as it was when that fails.
    bool readAll(std::string& content);
    /// The next line, without its line end ("\n" or "\r\n"); the last one may have none. False at the end, too, with no
    /// reason then.
    /// @param longest  a longer line, in bytes, is refused
    bool readLine(std::string& line, std::size_t longest);

    /// Opens and reads all of a file. @return the reason of a failure, empty for none; `content` is then as it was
    static std::string readWhole(const std::string& path, Accept accept, std::uint64_t mostBytes, std::string& content);

    /// Why it failed: "there is no such file", "it is larger than 4 MiB"; empty while nothing has.
    const std::string& reason() const { return m_reason; }

private:
    bool fail(const std::string& reason);
    bool take(int descriptor);

    std::uint64_t m_mostBytes;
    Accept m_accept;
    std::uint64_t m_size = 0;     ///< that a regular file has when it is opened, bytes
    std::uint64_t m_numBytes = 0; ///< read so far
    int m_descriptor = -1;
    bool m_isOwner = false;
    std::string m_reason;
    std::string m_buffer; ///< read, and not yet in a line
    std::size_t m_start = 0;
};
