#pragma once

#include "KrBenchMeasure.h"

#include <cstddef>
#include <string>

/// What one run found out.
struct KrBenchReport
{
    /// One way of drawing.
    struct Way
    {
        double firstFrameSeconds = 0.0; ///< opening, building the scene and the first picture
        KrBenchMeasure::Frames frames;
        KrBenchMeasure::Frames small; ///< at 16 x 16 pixels
    };

    std::string system;
    std::string mode; ///< "render", "color" or "depth"
    std::string renderer;
    bool isSoftware = false;
    bool isOneTriangle = false;
    bool isStill = false;
    unsigned int width = 0;
    unsigned int height = 0;
    unsigned int copies = 0;
    unsigned int frames = 0;
    std::size_t triangles = 0;
    std::size_t drawCalls = 0;
    double loadSeconds = 0.0;
    double peakMemoryMiB = 0.0; ///< when the scene's frames had been drawn
    double sceneCoverage = 0.0; ///< part of the pixels that were drawn on
    double bareCoverage = 0.0;
    Way scene;
    Way bare;

    std::string table() const;
    /// One object; times in seconds.
    std::string json() const;
};
