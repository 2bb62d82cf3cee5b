#pragma once

#include <cstddef>
#include <string>

/// A file that takes the place of another one when it is complete, and leaves nothing behind when it is not.
///
/// What is written goes into a temporary file beside the target: of an unpredictable name, with the target's extension,
/// made new and never through a link. `replace` moves it over the target in one step, so that whoever reads the target
/// sees the old content or the new one. Until then, and on every failure, the target is as it was.
///
/// - A link stays a link: the file that it leads to, there already or not, is the target.
/// - A file that was there keeps its permission bits; a new one gets those of any new file (0666 less the umask).
/// - What is there and no regular file (a folder, a pipe, a device), or may not be written to, is refused.
///
/// Not copyable; an object belongs to one thread at a time.
class KrFileReplacement
{
public:
    /// Makes the temporary file; look at `isOpen`.
    explicit KrFileReplacement(const std::string& path);
    /// Removes the temporary file unless `replace` has succeeded.
    ~KrFileReplacement();
    KrFileReplacement(const KrFileReplacement&) = delete;
    KrFileReplacement& operator=(const KrFileReplacement&) = delete;

    bool isOpen() const { return m_descriptor >= 0; }
    /// Of the temporary file, open for writing; this object's. -1 when it is not open.
    int descriptor() const { return m_descriptor; }
    /// For programs that write by name; empty when it is not open.
    const std::string& temporaryPath() const { return m_temporary; }

    /// Appends `size` bytes. False when they cannot all be written; what follows is refused as well.
    bool write(const void* data, std::size_t size);
    /// Hands what was written to the disk and puts it into the target's place; the object is then closed. False, and
    /// the target as it was, when anything failed, also earlier.
    bool replace();
    /// Why it failed, in the system's words; empty while nothing has.
    const std::string& reason() const { return m_reason; }

    /// All of it in one call: `content` becomes the content of the file at `path`.
    /// @return the reason of a failure; empty for none
    static std::string write(const std::string& path, const std::string& content)
    {
        return write(path, content.data(), content.size());
    }
    static std::string write(const std::string& path, const void* content, std::size_t size);
    /// The file that `path` means: where it leads when it is a link, there already or not; else `path`.
    static std::string target(const std::string& path);

    /// Removes the temporary files of all objects of the process, of 16 at once at least, and lets no thread make
    /// another one. For a signal handler that ends the process: it calls nothing that such a handler may not. An object
    /// that goes on writing fails in `replace`.
    static void removeUnfinished();

private:
    bool fail(int error);
    bool fail(const std::string& reason);
    void discard();
    void forget();

    std::string m_target;
    std::string m_temporary;
    std::string m_reason;
    unsigned int m_permissions = 0; ///< of the file that is replaced
    bool m_isNew = true;            ///< there is no such file yet
    int m_descriptor = -1;
    int m_slot = -1; ///< in the list of unfinished files; -1 for none
};
