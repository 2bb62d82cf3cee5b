#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

/// OpenSSL's EVP_CIPHER.
struct evp_cipher_st;

/// A folder in which prepared meshes are kept from one process to the next.
///
/// Every entry is a file of its own, written aside and renamed: processes and threads may use one folder at the same
/// time. A folder that cannot be written to, a full disk, a damaged entry: each is as if nothing had been kept, and
/// none is worth a message. Files are the user's alone, and what belongs to another user, or is a link, is not touched.
///
/// Names of entries and their seals are made with a secret of the folder (AES-GCM's authentication, NIST SP 800-38D),
/// not with a plain hash. A mesh file comes from anywhere: were its name in the cache a value that its author can
/// compute, he could make two files of one name, and the one that was loaded first would be drawn for the other.
/// Without the secret nobody can, and this is faster than any hash that keeps its promise in public. The folder's
/// secrecy is all that it stands on: who can read it is the user himself. What stands in an entry nobody but the user
/// can have written; damage is told by a checksum (Adler-32, RFC 1950) under the seal, which takes an eighth of the
/// time of sealing all of it.
///
/// All functions may be called from several threads at once; none throws but for want of memory.
class KrMeshCache
{
public:
    /// A file of a mesh, sealed; 32 hexadecimal digits.
    using Name = std::string;

    /// Opens or makes the folder.
    /// @param folder    empty for $XDG_CACHE_HOME/krrendcore, or $HOME/.cache/krrendcore
    /// @param maxBytes  of all entries together; what was used longest ago goes first
    KrMeshCache(const std::string& folder, std::uint64_t maxBytes);
    ~KrMeshCache();
    KrMeshCache(const KrMeshCache&) = delete;
    KrMeshCache& operator=(const KrMeshCache&) = delete;

    /// False when there is no folder to be had: nothing is read or written then.
    bool isOpen() const { return m_folder >= 0; }
    /// Of `parts`, one behind the other; where one ends counts as well.
    Name nameOf(std::initializer_list<std::string_view> parts) const;
    /// As nameOf() of all that a regular file holds, which is never in memory as a whole; empty when it cannot be read,
    /// or is larger than `maxBytes`.
    Name nameOfFile(const std::string& path, std::uint64_t maxBytes) const;

    /// The bytes of an entry as they were written. What it takes in memory serves the next entry that is read into it.
    class Entry
    {
    public:
        std::string_view bytes() const { return m_bytes; }

    private:
        friend class KrMeshCache;
        std::unique_ptr<char[]> m_file; ///< not a vector: nothing has to be zero before it is read
        std::size_t m_capacity = 0;
        std::string_view m_bytes;
    };
    /// False when there is no such entry, or it is damaged.
    bool read(const Name& name, Entry& entry) const;
    /// Keeps `bytes` under `name`, in place of what was there.
    void write(const Name& name, std::string_view bytes) const;
    /// Forgets what was used longest ago until the entries take no more than they may. To be called after writing.
    void trim() const;

private:
    void open(const std::string& folder);
    bool readKey();
    void makeKey() const;
    class Seal;
    std::string seal(unsigned char purpose, std::initializer_list<std::string_view> parts) const;
    std::string entrySeal(const Name& name, std::uint64_t size, std::uint32_t sum) const;
    bool writeAside(std::initializer_list<std::string_view> parts, std::string& temporary) const;

    struct CipherDeleter
    {
        void operator()(evp_cipher_st* cipher) const;
    };

    std::uint64_t m_maxBytes;
    std::unique_ptr<evp_cipher_st, CipherDeleter> m_cipher;
    int m_folder = -1;
    unsigned char m_key[32] = {};
};
