#include "KrAppDepth.h"

#include "KrAppFailure.h"
#include "KrAppFiles.h"
#include "KrAppNumpy.h"

#include <osg/Image>
#include <osgDB/Registry>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <sstream>

namespace
{

constexpr bool kIsLittleEndian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;
constexpr double kLargestValue = 65535.0;

std::uint16_t millimetres(float depth)
{
    if (!std::isfinite(depth)) {
        return 0;
    }
    return static_cast<std::uint16_t>(std::clamp(std::round(1000.0 * depth), 1.0, kLargestValue));
}

std::string png(const std::vector<float>& depths, unsigned int width, unsigned int height, const std::string& path)
{
    const osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(static_cast<int>(width), static_cast<int>(height), 1, GL_LUMINANCE, GL_UNSIGNED_SHORT, 1);
    auto* const out = reinterpret_cast<std::uint16_t*>(image->data());
    for (std::size_t row = 0; row < height; ++row) {
        // Pictures of the library begin with the lowest row.
        const float* const in = depths.data() + (height - 1 - row) * width;
        std::transform(in, in + width, out + row * width, millimetres);
    }
    std::ostringstream stream;
    osgDB::ReaderWriter* const writer = osgDB::Registry::instance()->getReaderWriterForExtension("png");
    if (!writer || !writer->writeImage(*image, stream, nullptr).success()) {
        throw KrAppFailure(KrAppFailure::CouldNot, "cannot write " + path + ": there is no writer for PNG files");
    }
    return stream.str();
}

std::string pfm(const std::vector<float>& depths, unsigned int width, unsigned int height)
{
    // The sign of the scale tells the byte order.
    std::string bytes = "Pf\n" + std::to_string(width) + " " + std::to_string(height) + "\n" +
                        (kIsLittleEndian ? "-1.0" : "1.0") + "\n";
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
    if (extension != ".png" && extension != ".npy" && extension != ".pfm") {
        throw KrAppFailure(KrAppFailure::WrongUsage,
                           path + ": depths are written as .png (16-bit millimetres), .npy or .pfm (metres); "
                                  "--depth-preview draws a grey picture");
    }
}

void KrAppDepth::write(const std::vector<float>& depths, unsigned int width, unsigned int height,
                       const std::string& path)
{
    const std::string extension = KrAppFiles::extensionOf(path);
    if (extension == ".npy") {
        KrAppFiles::writeBytes(krAppNumpy(depths.data(), width, height), path);
    } else {
        KrAppFiles::writeBytes(extension == ".pfm" ? pfm(depths, width, height) : png(depths, width, height, path),
                               path);
    }
}
