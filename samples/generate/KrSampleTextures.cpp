#include "KrSampleTextures.h"

#include <toolkit/foundation/KrPrint.h>
#include <toolkit/image/KrImage.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>

namespace
{

struct Rgb
{
    double r = 0.0, g = 0.0, b = 0.0;
};

Rgb mix(const Rgb& a, const Rgb& b, double t)
{
    return {a.r + (b.r - a.r) * t, a.g + (b.g - a.g) * t, a.b + (b.b - a.b) * t};
}

double smooth(double low, double high, double value)
{
    const double t = std::clamp((value - low) / (high - low), 0.0, 1.0);
    return t * t * (3.0 - 2.0 * t);
}

/// A number in [0, 1) for a lattice point, the same on every machine.
double lattice(std::uint32_t x, std::uint32_t y, std::uint32_t seed)
{
    std::uint32_t h = x * 374761393u + y * 668265263u + seed * 2246822519u;
    h = (h ^ (h >> 13)) * 1274126177u;
    return ((h ^ (h >> 16)) & 0xFFFFFFu) / 16777216.0;
}

/// Value noise that repeats after `period` cells in both directions; u and v in [0, 1).
double noise(double u, double v, std::uint32_t period, std::uint32_t seed)
{
    const double x = u * period;
    const double y = v * period;
    const auto x0 = static_cast<std::uint32_t>(x);
    const auto y0 = static_cast<std::uint32_t>(y);
    const double tx = smooth(0.0, 1.0, x - x0);
    const double ty = smooth(0.0, 1.0, y - y0);
    const auto at = [&](std::uint32_t i, std::uint32_t j) { return lattice(i % period, j % period, seed); };
    const double low = at(x0, y0) + (at(x0 + 1, y0) - at(x0, y0)) * tx;
    const double high = at(x0, y0 + 1) + (at(x0 + 1, y0 + 1) - at(x0, y0 + 1)) * tx;
    return low + (high - low) * ty;
}

/// Several octaves of noise, in [0, 1].
double cloud(double u, double v, std::uint32_t period, unsigned int octaves, std::uint32_t seed)
{
    double sum = 0.0;
    double whole = 0.0;
    double weight = 1.0;
    for (unsigned int i = 0; i < octaves; ++i) {
        sum += weight * noise(u, v, period << i, seed + i);
        whole += weight;
        weight *= 0.5;
    }
    return sum / whole;
}

/// Dark blue cells with cut corners, silver fingers and bars. One picture is 4 x 4 cells.
Rgb solarCell(double u, double v)
{
    const double x = std::abs(std::fmod(u * 4.0, 1.0) - 0.5);
    const double y = std::abs(std::fmod(v * 4.0, 1.0) - 0.5);
    const Rgb gap{0.72, 0.74, 0.76};
    if (x > 0.475 || y > 0.475 || x + y > 0.88) {
        return gap;
    }
    const double tint = lattice(static_cast<std::uint32_t>(u * 4.0), static_cast<std::uint32_t>(v * 4.0), 7);
    Rgb cell = mix({0.04, 0.08, 0.26}, {0.08, 0.15, 0.38}, tint);
    if (std::abs(x - 0.2) < 0.018) {
        return mix(cell, gap, 0.85);
    }
    const double finger = std::abs(std::fmod(v * 48.0, 1.0) - 0.5);
    return mix(cell, gap, finger > 0.40 ? 0.30 : 0.0);
}

/// Crumpled golden foil: bright ridges between facets.
Rgb foil(double u, double v)
{
    double nearest = 9.0;
    double second = 9.0;
    double facet = 0.0;
    const std::uint32_t period = 8;
    const auto cellX = static_cast<int>(u * period);
    const auto cellY = static_cast<int>(v * period);
    for (int j = cellY - 1; j <= cellY + 1; ++j) {
        for (int i = cellX - 1; i <= cellX + 1; ++i) {
            const auto a = static_cast<std::uint32_t>(i + static_cast<int>(period)) % period;
            const auto b = static_cast<std::uint32_t>(j + static_cast<int>(period)) % period;
            const double dx = u * period - (i + lattice(a, b, 21));
            const double dy = v * period - (j + lattice(a, b, 22));
            const double slope =
                lattice(a, b, 23) - 0.5 + 0.6 * (dx * (lattice(a, b, 24) - 0.5) + dy * (lattice(a, b, 25) - 0.5));
            const double distance = std::hypot(dx, dy);
            if (distance < nearest) {
                second = nearest;
                nearest = distance;
                facet = slope;
            } else {
                second = std::min(second, distance);
            }
        }
    }
    const double ridge = 1.0 - smooth(0.0, 0.10, second - nearest);
    const Rgb base = mix({0.74, 0.47, 0.10}, {1.0, 0.86, 0.42}, std::clamp(0.5 + facet, 0.0, 1.0));
    return mix(base, {1.0, 0.93, 0.66}, 0.5 * ridge);
}

/// A wheel's rim: chevron bars on metal. u goes around, v from hub to hub; one picture is the whole wheel.
Rgb tread(double u, double v)
{
    const double rim = std::abs(v - 0.5);
    const double bar = std::fmod(u * 24.0 + 1.6 * rim + 2.0, 1.0);
    const Rgb metal = mix({0.46, 0.47, 0.49}, {0.60, 0.61, 0.63}, cloud(u, v, 16, 3, 31));
    const Rgb dusty = mix(metal, {0.66, 0.45, 0.30}, 0.55 * cloud(u, v, 8, 3, 33));
    return mix(dusty, {0.16, 0.16, 0.17}, smooth(0.30, 0.36, bar) - smooth(0.64, 0.70, bar));
}

/// Reddish sand with ripples and pebbles.
Rgb sand(double u, double v)
{
    const double warp = cloud(u, v, 4, 4, 41);
    const double ripple = 0.5 + 0.5 * std::sin(2.0 * 3.14159265358979 * (10.0 * v + 2.4 * warp));
    const double grain = cloud(u, v, 32, 3, 43);
    Rgb color = mix({0.60, 0.36, 0.22}, {0.83, 0.58, 0.39}, 0.45 * warp + 0.25 * ripple + 0.30 * grain);
    const double pebble = smooth(0.86, 0.90, noise(u, v, 64, 47));
    return mix(color, {0.40, 0.26, 0.19}, 0.7 * pebble);
}

/// Yellow and black stripes, worn at the edges.
Rgb stripes(double u, double v)
{
    const double band = std::fmod(u * 4.0 + v * 4.0, 1.0);
    const double edge = smooth(0.0, 0.02, band) - smooth(0.50, 0.52, band);
    return mix({0.09, 0.09, 0.09}, {0.95, 0.75, 0.08}, edge);
}

/// A colour target for cameras: patches in a frame, and a ring with a cross.
Rgb target(double u, double v)
{
    const Rgb patches[4] = {{0.80, 0.16, 0.14}, {0.15, 0.56, 0.24}, {0.14, 0.28, 0.72}, {0.92, 0.78, 0.14}};
    if (u < 0.04 || u > 0.96 || v < 0.04 || v > 0.96) {
        return {0.10, 0.10, 0.11};
    }
    const double radius = std::hypot(u - 0.5, v - 0.5);
    if (radius < 0.30) {
        const bool isCross = std::abs(u - 0.5) < 0.012 || std::abs(v - 0.5) < 0.012;
        const double grey = 0.15 + 0.70 * (1.0 - std::floor(radius * 13.34) / 4.0);
        return isCross ? Rgb{0.9, 0.1, 0.1} : Rgb{grey, grey, grey};
    }
    const bool isCorner = std::abs(u - 0.5) > 0.26 && std::abs(v - 0.5) > 0.26;
    return isCorner ? patches[(u > 0.5 ? 1 : 0) + (v > 0.5 ? 2 : 0)] : Rgb{0.92, 0.92, 0.90};
}

unsigned char toByte(double channel)
{
    return static_cast<unsigned char>(std::lround(255.0 * std::clamp(channel, 0.0, 1.0)));
}

bool writePicture(const std::filesystem::path& path, unsigned int width, unsigned int height,
                  Rgb (*color)(double, double))
{
    KrImage image;
    image.allocate(3, 0, width, height);
    unsigned char* pixel = image.data();
    for (unsigned int y = 0; y < height; ++y) {
        for (unsigned int x = 0; x < width; ++x) {
            const Rgb c = color((x + 0.5) / width, (y + 0.5) / height);
            *pixel++ = toByte(c.r);
            *pixel++ = toByte(c.g);
            *pixel++ = toByte(c.b);
        }
    }
    return image.writeFile(path.string(), KrImage::BottomRowFirst);
}

} // namespace

bool writeSampleTextures(const std::string& folder)
{
    const std::filesystem::path path(folder);
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error) {
        Kr::Print::instance()->write(Kr::Print::Warning, "writeSampleTextures - cannot make \"%s\": %s.\n",
                                     folder.c_str(), error.message().c_str());
        return false;
    }
    // What is noisy goes into JPEG files, what has sharp edges into PNG files.
    return writePicture(path / "solar_cells.png", 256, 256, solarCell) && //
           writePicture(path / "gold_foil.jpg", 256, 256, foil) &&        //
           writePicture(path / "wheel_tread.jpg", 512, 64, tread) &&      //
           writePicture(path / "sand.jpg", 384, 384, sand) &&             //
           writePicture(path / "stripes.png", 128, 128, stripes) &&       //
           writePicture(path / "camera_target.png", 128, 128, target);
}
