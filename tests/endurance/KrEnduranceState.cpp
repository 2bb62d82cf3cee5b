#include "KrEnduranceState.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace
{

/// Hexadecimal: read back, it is the same value.
std::string exact(double value)
{
    char text[40];
    std::snprintf(text, sizeof text, " %a", value);
    return text;
}

// Streams do not read hexadecimal numbers.
double number(std::istream& line)
{
    std::string word;
    line >> word;
    return std::strtod(word.c_str(), nullptr);
}

KrVector vector(std::istream& line)
{
    const double x = number(line);
    const double y = number(line);
    return {x, y, number(line)};
}

std::string exact(const KrVector& value)
{
    return exact(value.x()) + exact(value.y()) + exact(value.z());
}

} // namespace

std::string KrEnduranceState::text() const
{
    std::ostringstream out;
    out << "system " << system << "\nsize " << width << " " << height << "\noffscreen " << isOffScreen
        << "\nattributes " << attributes << "\nmasks " << displayMask << " " << secondaryMask << "\nbackground"
        << exact(background[0]) << exact(background[1]) << exact(background[2]) << "\neye" << exact(eye) << "\ncentre"
        << exact(centre) << "\nview" << exact(fieldOfView) << "\nfade" << exact(fade) << "\n";
    const auto write = [&out](const char* word, const std::vector<std::vector<double>>& manipulators) {
        for (const std::vector<double>& manipulator : manipulators) {
            out << word;
            for (const double position : manipulator) {
                out << exact(position);
            }
            out << "\n";
        }
    };
    write("joints", positions);
    write("built", builtPositions);
    for (const KrShapeStateCacheKey& key : selected) {
        out << "selected " << key.manipID() << " " << key.linkID() << " " << key.shapeID() << "\n";
    }
    return out.str();
}

bool KrEnduranceState::read(const std::string& text)
{
    *this = KrEnduranceState();
    std::istringstream lines(text);
    for (std::string content; std::getline(lines, content);) {
        std::istringstream line(content);
        std::string word;
        line >> word;
        if (word == "system") {
            std::getline(line >> std::ws, system);
        } else if (word == "size") {
            line >> width >> height;
        } else if (word == "offscreen") {
            line >> isOffScreen;
        } else if (word == "attributes") {
            line >> attributes;
        } else if (word == "masks") {
            line >> displayMask >> secondaryMask;
        } else if (word == "background") {
            for (double& channel : background) {
                channel = number(line);
            }
        } else if (word == "eye") {
            eye = vector(line);
        } else if (word == "centre") {
            centre = vector(line);
        } else if (word == "view") {
            fieldOfView = number(line);
        } else if (word == "fade") {
            fade = number(line);
        } else if (word == "joints" || word == "built") {
            std::vector<std::vector<double>>& manipulators = word == "joints" ? positions : builtPositions;
            manipulators.emplace_back();
            for (std::string value; line >> value;) {
                manipulators.back().push_back(std::strtod(value.c_str(), nullptr));
            }
        } else if (word == "selected") {
            std::uint32_t manipulator = 0, link = 0, shape = 0;
            line >> manipulator >> link >> shape;
            selected.emplace_back(manipulator, link, shape);
        } else {
            return false;
        }
    }
    return !system.empty();
}
