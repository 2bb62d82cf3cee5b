#pragma once

#include <toolkit/math/KrVector.h>
#include <toolkit/system/KrShapeStateCacheKey.h>

#include <array>
#include <string>
#include <vector>

/// What a window shows, in full: two windows in the same state show the same picture, to the byte.
struct KrEnduranceState
{
    std::string system; ///< URDF or native system file
    unsigned int width = 320;
    unsigned int height = 240;
    bool isOffScreen = false;
    unsigned int attributes = 0x15; ///< KrSGWindow::ViewerAttribute bits
    unsigned int displayMask = 0x1; ///< the primary one
    unsigned int secondaryMask = 0; ///< markers
    std::array<double, 3> background = {1.0, 1.0, 1.0};
    KrVector eye{3.0, -3.0, 2.0};
    KrVector centre;
    double fieldOfView = 0.7;                   ///< rad
    std::vector<std::vector<double>> positions; ///< of the joints of each manipulator; empty for the default state
    /// Those in which the scene was built: the bounding volumes of a bending shape are from then.
    std::vector<std::vector<double>> builtPositions;
    std::vector<KrShapeStateCacheKey> selected;
    double fade = -1.0; ///< below 0 while none was set

    /// Lines of a word and its values; numbers keep every bit.
    std::string text() const;
    bool read(const std::string& text);
};
