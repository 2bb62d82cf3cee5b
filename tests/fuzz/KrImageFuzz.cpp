// Any content of a picture file: the content alone says which format reads it. What is read is written again.
#include <toolkit/foundation/KrPrint.h>
#include <toolkit/image/private/KrPictureFile.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const bool s_isQuiet = [] {
        Kr::Print::instance()->setSink([](Kr::Print::Type, const std::string&) {});
        return true;
    }();
    (void)s_isQuiet;
    // Small, so that most of the time goes into odd files and not into large ones.
    KrPictureLimits limits;
    limits.bytes = 1u << 16;
    limits.pixels = 1u << 16;
    limits.side = 2048;
    KrPicture picture;
    if (!KrPictureFile::decode(data, size, limits, picture).empty()) {
        return 0;
    }
    const std::size_t bytes = std::size_t(picture.width) * picture.height * picture.channels;
    if (picture.channels < 1 || picture.channels > 4 || bytes == 0 || picture.pixels.size() != bytes ||
        std::uint64_t{picture.width} * picture.height > limits.pixels) {
        std::abort();
    }
    // A format without loss brings back what it was given.
    std::string file;
    KrPicture again;
    if (!KrPictureFile::encode(picture, "png", file).empty() ||
        !KrPictureFile::decode(reinterpret_cast<const unsigned char*>(file.data()), file.size(), {}, again).empty() ||
        again.pixels != picture.pixels) {
        std::abort();
    }
    return 0;
}
