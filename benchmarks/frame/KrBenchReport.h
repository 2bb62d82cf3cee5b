#pragma once

#include "KrBenchMeasure.h"

#include <cstddef>
#include <string>
#include <vector>

/// What one run found out.
struct KrBenchReport
{
    /// One way of drawing.
    struct Way
    {
        std::string name;
        KrBenchMeasure::Frames frames;
        KrBenchMeasure::Frames small; ///< at 16 x 16 pixels
        double coverage = 0.0;        ///< part of the pixels that were drawn on
        // Of processes of its own, one after the other.
        std::vector<double> firstFrameSeconds; ///< opening, building the scene and the first picture
        std::vector<double> startSeconds;      ///< the same, and reading the system once before
        std::vector<double> loadedMemoryMiB;   ///< the most that was held when the system had been read
        std::vector<double> peakMemoryMiB;     ///< and when frames had been drawn
        double instructions = 0.0;             ///< a frame, 0 where they were not counted
    };

    std::string system;
    std::string mode; ///< "render", "color" or "depth"
    std::string renderer;
    bool isSoftware = false;
    bool isOneTriangle = false;
    bool isStill = false;
    bool isCulled = false;
    unsigned int width = 0;
    unsigned int height = 0;
    unsigned int copies = 0;
    unsigned int rounds = 0;
    unsigned int frames = 0; ///< a round
    std::size_t triangles = 0;
    std::size_t meshes = 0;
    std::size_t groups = 0;
    double loadSeconds = 0.0;
    std::vector<Way> ways; ///< the others are compared with the first

    /// For a person. Quotients are those of the first way by the other.
    std::string table() const;
    /// One object; times in seconds.
    std::string json() const;
};
