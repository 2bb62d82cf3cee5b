#pragma once

#include <rendCore/capture/KrDepthCapture.h>

#include <osg/Matrixd>

#include <cstddef>
#include <cstdint>
#include <vector>

/// Makes metres of what a depth buffer holds. For use inside the library.
class KrMetricDepth
{
public:
    /// Whether depth goes its own way: x and y have no part in z' and w', and rays leave one point or are parallel.
    static bool isSupported(const osg::Matrixd& projection);

    /// How a picture's depths were drawn, and what is asked of them.
    struct Picture
    {
        unsigned int width;
        unsigned int height;
        osg::Matrixd projection; ///< eye to clip coordinates, with the planes that were in force
        unsigned int bits;       ///< of the buffer
        KrDepthCapture::Kind kind;
        float background;
    };
    /// @param values  32-bit fixed point numbers, `height` rows of `width`, row 0 at the bottom
    /// @param bottom  where the lowest row goes
    /// @param step    from a row to the one above it, floats; negative for files, whose first row is the top one
    void convert(const Picture& picture, const std::uint32_t* values, float* bottom, std::ptrdiff_t step);

    /// The largest error of a planar `depth`, m, as KrDepthCapture::errorBound tells.
    /// @param levelOfDetail  of meshes, pixels
    static double errorBound(double depth, const Picture& picture, double levelOfDetail);

private:
    std::vector<double>
        m_raySquares; ///< of the rays through a row's pixels: their lengths' squares or what all rows have of them
};
