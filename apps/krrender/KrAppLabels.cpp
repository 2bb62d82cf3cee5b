#include "KrAppLabels.h"

#include "KrAppFailure.h"

#include <picture/KrLabelColors.h>
#include <toolkit/image/private/KrNumpyFile.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>

namespace
{

constexpr std::uint32_t kMostOf16Bits = 65535;

/// Standard output has no extension, and gets the first format.
void check(const std::string& path, std::initializer_list<const char*> extensions, const char* sentence)
{
    const std::string extension = KrAppFiles::extensionOf(path);
    const bool isKnown = std::any_of(extensions.begin(), extensions.end(),
                                     [&extension](const char* known) { return extension == known; });
    if (!KrAppFiles::isStandard(path) && !isKnown) {
        throw KrAppFailure(KrAppFailure::WrongUsage, path + sentence);
    }
}

bool isNumpy(const std::string& path)
{
    return KrAppFiles::extensionOf(path) == ".npy";
}

void writeColors(unsigned int width, unsigned int height, const std::string& path, KrAppLabels::Kept& kept)
{
    KrAppFiles::writePng({kept.colors.data(), width, height, 3, 8, false}, path, kept.file);
}

/// -1 to 1 becomes 0 to 255.
unsigned char byteOf(float coordinate)
{
    return static_cast<unsigned char>(std::lround(255.0 * std::clamp(0.5 + 0.5 * double{coordinate}, 0.0, 1.0)));
}

} // namespace

bool KrAppLabels::readLevel(const std::string& text, KrLabelTable::Level& level)
{
    if (text == "link") {
        level = KrLabelTable::Level::Link;
    } else if (text == "shape") {
        level = KrLabelTable::Level::Shape;
    } else if (text == "manipulator") {
        level = KrLabelTable::Level::Manipulator;
    } else {
        return false;
    }
    return true;
}

bool KrAppLabels::readFrame(const std::string& text, KrFrameCapture::NormalFrame& frame)
{
    if (text != "camera" && text != "world") {
        return false;
    }
    frame = text == "camera" ? KrFrameCapture::NormalFrame::Optical : KrFrameCapture::NormalFrame::World;
    return true;
}

void KrAppLabels::checkLabels(const std::string& path)
{
    check(path, {".png", ".npy"},
          ": labels are written as .png (16-bit grey) or .npy (32-bit whole numbers); --labels-preview draws them in "
          "colours");
}

void KrAppLabels::checkPreview(const std::string& path)
{
    // Other formats blur colours, or are no smaller: who looks for a colour finds it.
    check(path, {".png"}, ": the colours of labels are written as .png");
}

void KrAppLabels::checkNormals(const std::string& path)
{
    check(path, {".npy", ".png"}, ": normals are written as .npy (32-bit floats) or .png (a picture to look at)");
}

void KrAppLabels::checkNumber(const KrLabelTable& table, const std::string& path)
{
    if (path.empty() || isNumpy(path) || table.size() <= kMostOf16Bits) {
        return;
    }
    throw KrAppFailure(KrAppFailure::CouldNot, KrAppFiles::spoken(path, KrAppFiles::Standard::Output) + ": " +
                                                   std::to_string(table.size()) +
                                                   " labels are more than the 65535 that 16 bits have room for; give "
                                                   "a .npy, or a coarser --label-level");
}

void KrAppLabels::writeLabels(const std::vector<std::uint32_t>& labels, unsigned int width, unsigned int height,
                              const std::string& path, Kept& kept)
{
    if (isNumpy(path)) {
        KrAppFiles::writeBytes(krNumpyFile(labels.data(), width, height), path);
        return;
    }
    // No label is lost: more of them were refused before anything was drawn.
    kept.samples.resize(labels.size());
    std::transform(labels.begin(), labels.end(), kept.samples.begin(),
                   [](std::uint32_t label) { return static_cast<std::uint16_t>(label); });
    KrAppFiles::writePng({kept.samples.data(), width, height, 1, 16, false}, path, kept.file);
}

void KrAppLabels::writePreview(const std::vector<std::uint32_t>& labels, unsigned int width, unsigned int height,
                               const std::string& path, Kept& kept)
{
    kept.colors.resize(3 * labels.size());
    KrLabelColors::paint(labels.data(), labels.size(), kept.colors.data());
    writeColors(width, height, path, kept);
}

void KrAppLabels::writeNormals(const std::vector<float>& normals, unsigned int width, unsigned int height,
                               const std::string& path, Kept& kept)
{
    if (isNumpy(path)) {
        std::string bytes = krNumpyHeader(sizeof(float), {height, width, 3});
        bytes.append(reinterpret_cast<const char*>(normals.data()), sizeof(float) * normals.size());
        KrAppFiles::writeBytes(bytes, path);
        return;
    }
    kept.colors.resize(normals.size());
    for (std::size_t i = 0; i < normals.size(); i += 3) {
        const float* const n = &normals[i];
        // Of length 1 everywhere else: grey would be taken for a direction.
        const bool isNothing = n[0] == 0.0f && n[1] == 0.0f && n[2] == 0.0f;
        for (std::size_t c = 0; c < 3; ++c) {
            kept.colors[i + c] = isNothing ? 0 : byteOf(n[c]);
        }
    }
    writeColors(width, height, path, kept);
}
