// Fields of other programs: NRRD and legacy VTK.

#include <toolkit/foundation/KrPrint.h>
#include <toolkit/grid/KrGridFile.h>
#include <toolkit/grid/KrGridPhysicalExtent.h>

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace
{

/// A folder of its own, so that a field whose data are in another file finds no other than itself.
class Folder
{
public:
    Folder()
        : m_path((std::filesystem::temp_directory_path() / "grid-fuzz-XXXXXX").string())
    {
        Kr::Print::instance()->setSink([](Kr::Print::Type, const std::string&) {});
        if (mkdtemp(&m_path[0]) == nullptr) {
            std::abort();
        }
    }
    ~Folder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string file() const { return m_path + "/field"; }

private:
    std::string m_path;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Folder folder;
    {
        std::ofstream file(folder.file(), std::ios::binary);
        file.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    }
    KrGridPhysicalExtent grid;
    const bool isRead = KrGridFile::tryRead(folder.file(), grid).empty();
    double scale = 0.0;
    KrVector minimum, maximum, dimensions, inflection;
    grid.layout(scale, minimum, maximum, dimensions, inflection);
    const double cells = dimensions.x() * dimensions.y() * dimensions.z();
    if (isRead && (cells < 1.0 || static_cast<double>(grid.values().size()) < cells || !(minimum.x() <= maximum.x()))) {
        std::abort();
    }
    return 0;
}
