#include "KrAppRangeMap.h"

#include "KrAppFailure.h"
#include "KrAppFiles.h"
#include "KrAppMessages.h"
#include "KrAppOptions.h"

#include <picture/KrValueText.h>
#include <rendCore/capture/KrRender2DSampleTool.h>
#include <toolkit/image/private/KrNumpyFile.h>

#include <cmath>
#include <cstdio>

namespace
{

constexpr double kNearLimit = 1.0; // m, as the maps have it

[[noreturn]] void wrongUsage(const std::string& word, const std::string& sentence)
{
    throw KrAppFailure(KrAppFailure::WrongUsage, "--range-map " + word + ": " + sentence);
}

void readExtents(const std::string& text, double& x, double& y)
{
    const std::size_t sign = text.find_first_of("xX");
    const bool isRead = sign != std::string::npos && KrValueText::number(text.substr(0, sign), x) &&
                        KrValueText::number(text.substr(sign + 1), y);
    if (!isRead || !(x > 0.0) || !(y > 0.0) || !std::isfinite(x) || !std::isfinite(y)) {
        wrongUsage(text, "the third word is XSIZExYSIZE in metres, 2x1.5 for one");
    }
}

/// Camera to world: looks along -z, y up.
KrCoordinateSystemTransformation viewOf(const KrPovParameters& pov)
{
    KrVector back = pov.eyepoint() - pov.centerOfInterest();
    back.normalize();
    KrVector right = pov.up().cross(back);
    right.normalize();
    const KrVector up = back.cross(right);
    const double rotation[9] = {right.x(), up.x(), back.x(), //
                                right.y(), up.y(), back.y(), //
                                right.z(), up.z(), back.z()};
    KrCoordinateSystemTransformation view;
    view.setRotation(rotation);
    // The eye point is where the distances begin.
    view.setTranslation(pov.eyepoint());
    return view;
}

using Map = std::vector<std::vector<double>>;

std::string numpy(const Map& map, unsigned int width)
{
    std::vector<double> values;
    values.reserve(map.size() * width);
    // Files begin with the highest row, maps with the lowest.
    for (auto row = map.rbegin(); row != map.rend(); ++row) {
        values.insert(values.end(), row->begin(), row->end());
    }
    return krNumpyFile(values.data(), width, static_cast<unsigned int>(map.size()));
}

/// With ten digits: a tenth of a micrometre at a hundred metres.
std::string csv(const Map& map)
{
    std::string text;
    char number[32];
    for (auto row = map.rbegin(); row != map.rend(); ++row) {
        for (const double value : *row) {
            std::snprintf(number, sizeof number, "%.10g,", value);
            text += number;
        }
        // In the place of the last comma; a map has a column at least.
        text.back() = '\n';
    }
    return text;
}

} // namespace

void KrAppRangeMap::parse(const std::vector<std::string>& words)
{
    if (words.size() != 4) {
        wrongUsage("", "FILE WIDTHxHEIGHT XSIZExYSIZE DISTANCE are expected");
    }
    const std::string extension = KrAppFiles::extensionOf(words[0]);
    path = words[0];
    // Here, because the other names were read before this word was taken apart.
    KrAppFiles::nameStandard(path, KrAppFiles::Standard::Output);
    if (!KrAppFiles::isStandard(path) && extension != ".npy" && extension != ".csv") {
        wrongUsage(words[0], "range maps are written as .npy or .csv");
    }
    unsigned long columns = 0;
    unsigned long rows = 0;
    constexpr unsigned long most = KrAppOptions::kLargestSize;
    if (!KrValueText::size(words[1], columns, rows) || columns == 0 || rows == 0 || columns > most || rows > most) {
        wrongUsage(words[1], "the second word is WIDTHxHEIGHT in whole samples from 1 to " + std::to_string(most));
    }
    // A map sees nothing nearer than kNearLimit: one that ends there would be empty.
    readExtents(words[2], xSize, ySize);
    if (!KrValueText::number(words[3], distance) || !(distance > kNearLimit) || !std::isfinite(distance)) {
        wrongUsage(words[3], "the fourth word is the farthest distance in metres, above 1");
    }
    width = static_cast<unsigned int>(columns);
    height = static_cast<unsigned int>(rows);
}

void KrAppRangeMap::write(const KrStatedSystem& system, const KrPovParameters& pov, const KrAppMessages& messages) const
{
    Map map;
    if (!KrRender2DSampleTool::get2DMap(system, viewOf(pov), width, height, xSize, ySize, distance, map)) {
        throw KrAppFailure(KrAppFailure::CouldNot,
                           "the range map cannot be drawn: " + messages.lastReason("the driver gives no reason"));
    }
    KrAppFiles::writeBytes(KrAppFiles::extensionOf(path) == ".npy" ? numpy(map, width) : csv(map), path);
}
