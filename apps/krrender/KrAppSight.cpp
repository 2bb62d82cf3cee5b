#include "KrAppSight.h"

#include <picture/KrFraming.h>

#include <osg/Vec4d>

#include <algorithm>
#include <array>
#include <cstdio>

namespace
{

// No robot is smaller or larger. A wrong unit is off by a factor of a thousand.
constexpr double kSmallestRobot = 0.005; // m
constexpr double kLargestRobot = 1000.0; // m
// What is thinner falls between the samples.
constexpr double kSeenPixels = 1.0;

using Corners = std::array<osg::Vec4d, 8>;

/// Numbers only, so that the buffer is long enough.
template <typename... Numbers>
std::string formatted(const char* format, Numbers... numbers)
{
    char text[160];
    std::snprintf(text, sizeof text, format, numbers...);
    return text;
}

template <typename Test>
bool all(const Corners& corners, const Test& test)
{
    return std::all_of(corners.begin(), corners.end(), test);
}

/// On which side of the picture everything lies; empty when it may be inside.
std::string sideOf(const Corners& corners)
{
    // In clip coordinates the picture is -w <= x, y <= w, and what lies behind the camera has no positive w.
    if (all(corners, [](const osg::Vec4d& c) { return c.w() <= 0.0; })) {
        return "behind the camera";
    }
    if (all(corners, [](const osg::Vec4d& c) { return c.x() < -c.w(); })) {
        return "left of the picture";
    }
    if (all(corners, [](const osg::Vec4d& c) { return c.x() > c.w(); })) {
        return "right of the picture";
    }
    if (all(corners, [](const osg::Vec4d& c) { return c.y() < -c.w(); })) {
        return "below the picture";
    }
    if (all(corners, [](const osg::Vec4d& c) { return c.y() > c.w(); })) {
        return "above the picture";
    }
    return std::string();
}

/// Across the picture along x (0) or y (1), where a picture is 2 wide; all corners lie before the camera.
double spread(const Corners& corners, unsigned int axis)
{
    const auto place = [axis](const osg::Vec4d& c) { return c[axis] / c.w(); };
    const auto [low, high] =
        std::minmax_element(corners.begin(), corners.end(),
                            [&place](const osg::Vec4d& a, const osg::Vec4d& b) { return place(a) < place(b); });
    return place(*high) - place(*low);
}

} // namespace

std::string KrAppSight::sizeHint(double size)
{
    // Written so that NaN is no size either.
    if (size > kLargestRobot) {
        return formatted("the robot is %.3g km in size: lengths are in metres; are these millimetres?", size / 1000.0);
    }
    if (size > 0.0 && size < kSmallestRobot) {
        return formatted("the robot is %.3g mm in size: lengths are in metres; were these scaled down twice?",
                         size * 1000.0);
    }
    return std::string();
}

std::string KrAppSight::whyEmpty(const KrFraming& shown, const osg::Matrixd& worldToClip, unsigned int width,
                                 unsigned int height)
{
    if (shown.isEmpty()) {
        return "there is nothing to draw";
    }
    Corners corners;
    for (unsigned int i = 0; i < corners.size(); ++i) {
        const KrVector corner = shown.corner(i);
        corners[i] = osg::Vec4d(corner.x(), corner.y(), corner.z(), 1.0) * worldToClip;
    }
    // The usual reasons first, each of them certain; the last sentence is what is left.
    const std::string side = sideOf(corners);
    if (!side.empty()) {
        const KrVector center = shown.center();
        return "the camera looks away: what is drawn is " + side +
               formatted(" (--look-at %.4g,%.4g,%.4g is its middle)", center.x(), center.y(), center.z());
    }
    // Else the box reaches behind the camera, and its projection tells nothing.
    if (all(corners, [](const osg::Vec4d& c) { return c.w() > 0.0; })) {
        const double across = 0.5 * width * spread(corners, 0);
        const double up = 0.5 * height * spread(corners, 1);
        if (across < kSeenPixels || up < kSeenPixels) {
            return "what is drawn is too small or too far away" +
                   formatted(": it would cover %.2g x %.2g pixels", across, up);
        }
    }
    return "what is drawn misses the picture, is transparent or has the colour of the background";
}
