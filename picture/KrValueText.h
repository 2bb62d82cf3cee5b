#pragma once

#include <toolkit/math/KrColor.h>
#include <toolkit/math/KrVector.h>

#include <string>
#include <vector>

/// Reading of what stands on the command line and in trajectory files. Each gives false, and no change, for a text
/// that is not wholly of its kind; numbers are finite and do not depend on the locale.
namespace KrValueText
{

/// What a joint position is counted in. A bare number is in radians or metres, whichever the joint needs.
enum class Unit
{
    Plain,
    Angle, ///< was "deg" or "rad"
    Length ///< was "m" or "mm"
};

/// A sign may stand before it.
bool number(const std::string& text, double& value);
/// "0.5", "30deg", "0.5rad", "20mm", "0.02m"; the value is in radians or metres.
bool position(const std::string& text, double& value, Unit& unit);
/// "x,y,z"
bool vector(const std::string& text, KrVector& value);
/// "1280x960"; any whole numbers.
bool size(const std::string& text, unsigned long& width, unsigned long& height);
/// A name ("white", "slategray"), "#rgb", "#rrggbb" or "r,g,b" with numbers from 0 to 1.
bool color(const std::string& text, KrColor& value);
std::vector<std::string> colorNames();

/// The parts of `text` between `separator`s, without white space at their ends.
std::vector<std::string> split(const std::string& text, char separator);
/// Up to three of `candidates` that resemble `name`, the nearest first.
std::vector<std::string> nearest(const std::string& name, const std::vector<std::string>& candidates);
/// The end of a sentence about a name that is not there: "; did you mean a, b or c?"; empty when nothing resembles it.
std::string suggestion(const std::string& name, const std::vector<std::string>& candidates);

} // namespace KrValueText
