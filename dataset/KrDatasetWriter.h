#pragma once

#include <cstddef>
#include <string>

struct KrDatasetSample;

/// Writes the samples of one shard in one format. Made by a KrDatasetFormat.
///
/// It writes into a folder that nobody else uses until the shard is whole: names need not be hidden and files need not
/// be synced, the caller does so when all are there. The bytes follow from the samples alone: no clock, no user, no
/// address, no other shard.
///
/// What fails gives false and says why in one sentence without a full stop; the shard is then thrown away by the
/// caller, and the writer is not called again. No exception leaves it but std::bad_alloc.
class KrDatasetWriter
{
public:
    virtual ~KrDatasetWriter() = default;

    /// Appends a sample: in order, from the shard's first to its last. It is not changed for the duration of the call,
    /// and not kept.
    virtual bool add(const KrDatasetSample& sample, std::string& reason) = 0;
    /// After the last sample: all files are complete and closed when this comes back with true.
    virtual bool finish(std::string& reason) = 0;

    /// Processor time that went into the files by now, s; the rest of what `add` takes is encoding.
    double writingTime() const { return m_writingTime; }

protected:
    /// Writes a file of the shard whole; its folder is made if need be. All writing goes through here or through a
    /// KrDatasetFile that is given `m_writingTime`.
    bool writeFile(const std::string& path, const void* content, std::size_t size, std::string& reason);

    double m_writingTime = 0.0; ///< s
};
