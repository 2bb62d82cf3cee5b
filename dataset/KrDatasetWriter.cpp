#include <dataset/KrDatasetWriter.h>

#include <dataset/private/KrDatasetFile.h>

bool KrDatasetWriter::writeFile(const std::string& path, const void* content, std::size_t size, std::string& reason)
{
    KrDatasetFile file(m_writingTime);
    return file.open(path, reason) && file.write(content, size, reason) && file.close(reason);
}
