#include "KrSampleSystems.h"

#include <toolkit/grid/KrGridPhysicalExtent.h>

#include <boost/make_shared.hpp>

#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

namespace
{

constexpr unsigned int kCells[3] = {40, 40, 64};
const KrVector kMinimum(-0.40, -0.40, 0.07);
const KrVector kMaximum(0.40, 0.40, 1.35);

/// Smoke at a point of the box: it widens, sways and breaks up as it rises. From 0 to 1.
double smoke(double x, double y, double z)
{
    const double height = z - kMinimum.z();
    const double sway = 0.10 * height;
    x -= sway * std::sin(3.4 * height + 0.4);
    y -= sway * std::cos(2.6 * height);
    const double radius = 0.060 + 0.13 * height;
    // A few waves in each other's way stand in for eddies.
    const double eddies = std::sin(19.0 * x + 5.0 * std::sin(6.0 * z)) * std::sin(17.0 * y + 4.0 * std::sin(7.0 * z)) +
                          0.6 * std::sin(31.0 * z + 9.0 * x - 7.0 * y);
    const double distance = std::hypot(x, y) / (radius * (1.0 + 0.22 * eddies));
    const double thinned = std::exp(-1.35 * height) * (1.0 + 0.30 * eddies * std::min(2.0 * height, 1.0));
    const double top = std::clamp((kMaximum.z() - z) / 0.35, 0.0, 1.0);
    return std::clamp(std::exp(-distance * distance * distance) * thinned * top, 0.0, 1.0);
}

std::string cells()
{
    std::string values;
    for (unsigned int k = 0; k < kCells[2]; ++k) {
        for (unsigned int j = 0; j < kCells[1]; ++j) {
            for (unsigned int i = 0; i < kCells[0]; ++i) {
                const unsigned int cell[3] = {i, j, k};
                KrVector middle;
                for (unsigned int axis = 0; axis < 3; ++axis) {
                    middle[axis] =
                        kMinimum[axis] + (cell[axis] + 0.5) * (kMaximum[axis] - kMinimum[axis]) / kCells[axis];
                }
                // Even numbers only: the file is smaller.
                const double value = 127.0 * smoke(middle.x(), middle.y(), middle.z());
                values += static_cast<char>(static_cast<unsigned char>(2.0 * std::floor(value)));
            }
        }
    }
    return values;
}

/// In the gzip format; empty when that fails.
std::string compressed(std::string data)
{
    constexpr int kGzipFormat = 16;
    z_stream stream = {};
    if (deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, kGzipFormat + MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
        return std::string();
    }
    std::string out(deflateBound(&stream, static_cast<uLong>(data.size())), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(&data[0]);
    stream.avail_in = static_cast<uInt>(data.size());
    stream.next_out = reinterpret_cast<Bytef*>(&out[0]);
    stream.avail_out = static_cast<uInt>(out.size());
    const bool isDone = deflate(&stream, Z_FINISH) == Z_STREAM_END;
    out.resize(isDone ? stream.total_out : 0);
    deflateEnd(&stream);
    return out;
}

std::string number(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.9g", value);
    return text;
}

/// From thin grey smoke to a hot core; values stay in the lower third.
KrXmlVectorVector colors()
{
    const KrVector thin(0.46, 0.50, 0.58), warm(0.88, 0.48, 0.20), hot(1.0, 0.86, 0.42);
    KrXmlVectorVector table;
    constexpr unsigned int kSize = 64;
    for (unsigned int i = 0; i < kSize; ++i) {
        const double part = std::min(3.2 * i / (kSize - 1), 1.0);
        const KrVector color =
            part < 0.45 ? thin + (warm - thin) * (part / 0.45) : warm + (hot - warm) * ((part - 0.45) / 0.55);
        table.push_back(
            {std::round(color.x() * 1e3) / 1e3, std::round(color.y() * 1e3) / 1e3, std::round(color.z() * 1e3) / 1e3});
    }
    return table;
}

} // namespace

KrIndividualManipulator samplePlume()
{
    KrSampleRobot burner;
    burner.name = "burner";
    burner.materials["steel"] = {KrColor(0.30, 0.32, 0.35), 0.5, 50.0, ""};
    KrSampleLink base;
    base.name = "burner_base";
    base.density = 4000.0;
    base.add("steel", KrSampleSolid::cylinder(0.11, 0.02, 0.0, 32));
    base.add("steel", KrSampleSolid::ring(0.055, 0.085, 0.05, 0.0, 32).moved(0.0, 0.0, 0.02));
    burner.add(base);
    KrIndividualManipulator manipulator = burner.manipulator();

    const auto grid = boost::make_shared<KrGridPhysicalExtent>();
    // One value stands for those of the file.
    grid->setGrid(kMinimum, kMaximum, 1, 1, 1, {0.0});
    grid->setDataScale(0.004);
    grid->setInflection({0.02, 1.5, 3.0});
    grid->setLookupTable(colors());
    manipulator.addShape(boost::shared_ptr<KrBasePhysicalExtent>(grid));
    KrCoordinateSystemTransformation placement;
    placement.setTranslation({0.66, 0.0, 0.0});
    manipulator.setPlacement(placement);
    return manipulator;
}

std::vector<KrSampleEdit> samplePlumeEdits()
{
    const auto count = [](unsigned int axis) { return std::to_string(kCells[axis]); };
    return {{"cells", "<core:cells>" + count(0) + " " + count(1) + " " + count(2) + "</core:cells>"},
            {"values", "<core:values file=\"plume.nrrd\"/>"}};
}

bool writeSamplePlumeField(const std::string& path)
{
    std::string header = "NRRD0004\ntype: uint8\ndimension: 3\nsizes:";
    std::string spacings = "spacings:";
    std::string minima = "axis mins:";
    for (unsigned int axis = 0; axis < 3; ++axis) {
        header += " " + std::to_string(kCells[axis]);
        spacings += " " + number((kMaximum[axis] - kMinimum[axis]) / kCells[axis]);
        minima += " " + number(kMinimum[axis]);
    }
    header += "\n" + spacings + "\n" + minima + "\ncenterings: cell cell cell\nencoding: gzip\n\n";
    const std::string content = header + compressed(cells());
    std::FILE* const file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        return false;
    }
    const bool isWritten = std::fwrite(content.data(), 1, content.size(), file) == content.size();
    return std::fclose(file) == 0 && isWritten;
}
