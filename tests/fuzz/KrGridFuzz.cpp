// Fields of other programs: NRRD and legacy VTK.

#include <tests/support/Folder.h>

#include <toolkit/foundation/KrPrint.h>
#include <toolkit/grid/KrGridFile.h>
#include <toolkit/grid/KrGridPhysicalExtent.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace
{

/// Where a field whose data are in another file finds no other than itself; messages go nowhere.
class FieldFolder : public Folder
{
public:
    FieldFolder()
    {
        Kr::Print::instance()->setSink([](Kr::Print::Type, const std::string&) {});
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const FieldFolder folder;
    const std::string field = folder.write("field", {reinterpret_cast<const char*>(data), size});
    KrGridPhysicalExtent grid;
    const bool isRead = KrGridFile::tryRead(field, grid).empty();
    double scale = 0.0;
    KrVector minimum, maximum, dimensions, inflection;
    grid.layout(scale, minimum, maximum, dimensions, inflection);
    const double cells = dimensions.x() * dimensions.y() * dimensions.z();
    if (isRead && (cells < 1.0 || static_cast<double>(grid.values().size()) < cells || !(minimum.x() <= maximum.x()))) {
        std::abort();
    }
    return 0;
}
