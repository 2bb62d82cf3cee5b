#include <picture/KrLabelColors.h>

#include <cstdio>

namespace
{

/// The channels of a hue lie between these.
struct Tone
{
    unsigned int low;
    unsigned int high;
};

// Five of them, three labels each: labels whose hues come close to each other, 8 or 13 apart, differ in their tone.
constexpr Tone kTones[] = {{20, 255}, {125, 255}, {10, 165}, {90, 200}, {0, 215}};

} // namespace

std::array<unsigned char, 3> KrLabelColors::color(std::uint32_t label)
{
    if (label == 0) {
        return {0, 0, 0};
    }
    // Whole numbers, so that no rounding differs between machines. The golden ratio of a turn, 2^32, from label to
    // label leaves the largest gaps between any number of hues.
    const std::uint32_t hue = label * 2654435769u;
    const std::uint64_t sixths = std::uint64_t{hue} * 6;
    const auto part = static_cast<unsigned int>(sixths >> 24 & 0xFFu);
    const Tone tone = kTones[label / 3 % 5];
    const auto low = static_cast<unsigned char>(tone.low);
    const auto high = static_cast<unsigned char>(tone.high);
    const auto rising = static_cast<unsigned char>(tone.low + (tone.high - tone.low) * part / 255);
    const auto falling = static_cast<unsigned char>(tone.high - (tone.high - tone.low) * part / 255);
    switch (sixths >> 32) {
    case 0:
        return {high, rising, low};
    case 1:
        return {falling, high, low};
    case 2:
        return {low, high, rising};
    case 3:
        return {low, falling, high};
    case 4:
        return {rising, low, high};
    default:
        return {high, low, falling};
    }
}

std::string KrLabelColors::text(std::uint32_t label)
{
    const std::array<unsigned char, 3> rgb = color(label);
    char text[8];
    std::snprintf(text, sizeof text, "#%02x%02x%02x", rgb[0], rgb[1], rgb[2]);
    return text;
}

void KrLabelColors::paint(const std::uint32_t* labels, std::size_t count, unsigned char* rgb)
{
    // Rows are runs of one label: most pixels have their neighbour's colour.
    std::uint32_t last = 0;
    std::array<unsigned char, 3> paint = color(last);
    for (std::size_t i = 0; i < count; ++i) {
        if (labels[i] != last) {
            last = labels[i];
            paint = color(last);
        }
        rgb[3 * i] = paint[0];
        rgb[3 * i + 1] = paint[1];
        rgb[3 * i + 2] = paint[2];
    }
}
