#pragma once

#include <dataset/private/KrDatasetFile.h>

#include <cstddef>
#include <string>

/// A tar archive of plain files while it is written, in the format of POSIX.1-1988 ("ustar"), which every reader takes.
///
/// Its bytes follow from the names and contents alone: no times, no owners.
class KrTarFile
{
public:
    /// @param time  as KrDatasetFile's
    explicit KrTarFile(double& time)
        : m_file(time)
    {
    }

    /// Makes the archive, which is not there yet.
    bool open(const std::string& path, std::string& reason) { return m_file.open(path, reason); }
    /// Appends a file. @param name  of ASCII characters
    bool add(const std::string& name, const void* content, std::size_t size, std::string& reason);
    /// The archive is complete and closed then.
    bool close(std::string& reason);

private:
    KrDatasetFile m_file;
};
