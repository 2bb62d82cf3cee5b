// Words of the command line and of trajectory files.
#include <import/KrSystemFile.h>
#include <picture/KrTiles.h>
#include <picture/KrValueText.h>
#include <toolkit/foundation/KrReason.h>

#include <KrAppFailure.h>
#include <KrAppFiles.h>
#include <KrAppMessages.h>
#include <KrAppSidecar.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace
{

void check(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    double number = 0.0;
    KrValueText::Unit unit = KrValueText::Unit::Plain;
    KrVector vector;
    KrColor color;
    unsigned long width = 0;
    unsigned long height = 0;
    KrCameraIntrinsics camera;
    camera.width = camera.height = 100;
    check(!KrValueText::number(text, number) || std::isfinite(number));
    check(!KrValueText::position(text, number, unit) || std::isfinite(number));
    check(!KrValueText::vector(text, vector) || std::isfinite(vector.x() + 0.0 * vector.y()));
    check(!KrValueText::color(text, color) || (color.red() >= 0.0 && color.blue() <= 1.0));
    check(!KrAppSidecar::readIntrinsics(text, camera) || camera.isValid());
    KrValueText::size(text, width, height);
    KrValueText::nearest(text, {"axes", "volumes", "trajectory", text});
    KrSystemFile::rootElement(text);

    const std::string shown = KrAppMessages::printable(KrReason::sentence(text));
    check(shown.find_first_of("\x1b\x7f\n\r\t") == std::string::npos && shown.size() <= text.size());
    KrViewSide side;
    check(!KrViewSide::find(text, side) || side.towardsEye.length() > 0.0);
    try {
        const std::string first = KrAppFiles::frameFile(text, 1);
        check(!KrAppFiles::isPattern(text) || first != KrAppFiles::frameFile(text, 2));
    } catch (const KrAppFailure&) {
    }
    return 0;
}
