#include "KrAppDepth.h"

#include "KrAppFailure.h"

#include <toolkit/image/private/KrNumpyFile.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace
{

constexpr bool kIsLittleEndian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;
constexpr double kLargestValue = 65535.0;

/// 0 is for nothing seen; what is nearer than half a millimetre is 1, and stays seen.
std::uint16_t millimetres(float depth)
{
    if (!std::isfinite(depth)) {
        return 0;
    }
    return static_cast<std::uint16_t>(std::clamp(std::round(1000.0 * depth), 1.0, kLargestValue));
}

/// Metres, as floats in the byte order of the machine.
std::string pfm(const std::vector<float>& depths, unsigned int width, unsigned int height)
{
    // The sign of the scale tells the byte order.
    std::string bytes = "Pf\n" + std::to_string(width) + " " + std::to_string(height) + "\n" +
                        (kIsLittleEndian ? "-1.0" : "1.0") + "\n";
    // PFM begins with the lowest row, depths with the highest.
    for (std::size_t row = height; row-- > 0;) {
        bytes.append(reinterpret_cast<const char*>(depths.data() + row * width), sizeof(float) * width);
    }
    return bytes;
}

} // namespace

bool KrAppDepth::readKind(const std::string& text, KrDepthCapture::Kind& kind)
{
    if (text == "planar" || text == "euclidean") {
        kind = text == "planar" ? KrDepthCapture::Kind::Planar : KrDepthCapture::Kind::Euclidean;
        return true;
    }
    return false;
}

void KrAppDepth::checkFormat(const std::string& path)
{
    const std::string extension = KrAppFiles::extensionOf(path);
    if (!KrAppFiles::isStandard(path) && extension != ".png" && extension != ".npy" && extension != ".pfm") {
        throw KrAppFailure(KrAppFailure::WrongUsage,
                           path + ": depths are written as .png (16-bit millimetres), .npy or .pfm (metres); "
                                  "--depth-preview draws a grey picture");
    }
}

void KrAppDepth::write(const std::vector<float>& depths, unsigned int width, unsigned int height,
                       const std::string& path, Png& png)
{
    const std::string extension = KrAppFiles::extensionOf(path);
    if (extension == ".npy") {
        KrAppFiles::writeBytes(krNumpyFile(depths.data(), width, height), path);
    } else if (extension == ".pfm") {
        KrAppFiles::writeBytes(pfm(depths, width, height), path);
    } else {
        // Standard output has no extension, and gets the PNG.
        png.samples.resize(depths.size());
        std::transform(depths.begin(), depths.end(), png.samples.begin(), millimetres);
        KrAppFiles::writePng({png.samples.data(), width, height, 1, 16, false}, path, png.file);
    }
}
