#pragma once

#include <cstddef>
#include <string>

/// A file of a shard while it is written. Not synced: that is done for all files of a shard together.
///
/// What fails gives false and says why. Not copyable; an object belongs to one thread at a time.
class KrDatasetFile
{
public:
    /// @param time  gets the processor time that the file takes added, s; borrowed
    explicit KrDatasetFile(double& time);
    /// Closes it; what was written stays.
    ~KrDatasetFile();
    KrDatasetFile(const KrDatasetFile&) = delete;
    KrDatasetFile& operator=(const KrDatasetFile&) = delete;

    /// Makes the file, which is not there yet, and its folder if need be.
    bool open(const std::string& path, std::string& reason);
    /// Appends `size` bytes: all of them, or it fails.
    bool write(const void* data, std::size_t size, std::string& reason);
    /// A full disk may be told here only.
    bool close(std::string& reason);

private:
    bool fail(int error, std::string& reason);

    double& m_time;
    std::string m_path;
    int m_descriptor = -1;
};
