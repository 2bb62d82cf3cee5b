#pragma once

#include <rendCore/capture/KrFrameDescription.h>

#include <osg/Matrixd>

#include <cstdint>
#include <vector>

/// One image of one state by one camera, in all the kinds that the data set has.
///
/// Pixel (x, y) is number y * width + x, top row first, without padding. An image whose kind is not wanted is empty.
struct KrDatasetSample
{
    /// Pixels x to x + width - 1 of rows y to y + height - 1, y from the top; 0 x 0 where there are none.
    struct Box
    {
        unsigned int x = 0;
        unsigned int y = 0;
        unsigned int width = 0;
        unsigned int height = 0;
    };

    /// One labelled part in this image. Parts that cannot be seen are there, too.
    struct Part
    {
        std::uint32_t label = 0; ///< KrDatasetInfo::parts tells the rest
        /// Pose of the part's link (the base for a manipulator) in the camera's optical axes (x right, y down, z
        /// forward) and in the world, m. As OSG has matrices: row vectors are multiplied from the left, the
        /// translation is the last row.
        osg::Matrixd linkToOptical;
        osg::Matrixd linkToWorld;
        // Of the label image; 0 where the data set has neither labels nor masks.
        std::uint64_t visiblePixels = 0;
        Box visibleBox;
        // What the part covers when it is drawn alone, within the image; 0 and empty where the data set has no masks.
        std::uint64_t amodalPixels = 0;
        Box amodalBox;
        /// amodalBox.width x amodalBox.height bytes: 255 where the part covers the pixel, 0 elsewhere.
        std::vector<unsigned char> amodalMask;
    };

    std::uint64_t number = 0; ///< in the data set, from 0
    std::uint64_t state = 0;  ///< of the scene: number / number of cameras
    unsigned int camera = 0;  ///< in KrDatasetInfo::cameras
    unsigned int width = 0;   ///< of all images, pixels
    unsigned int height = 0;

    std::vector<unsigned char> color;  ///< 3 bytes a pixel: red, green, blue
    std::vector<float> depth;          ///< m along the optical axis; infinity where nothing is
    std::vector<std::uint32_t> labels; ///< 0 where nothing is. There for masks, too: they need what is visible
    std::vector<float> normals;        ///< 3 a pixel, unit length, in optical axes; 0 where nothing is

    std::vector<Part> parts; ///< by label: that of label n stands at n - 1; empty without labels and masks

    /// Camera, lens and joints of this image; for a top row first colour image. Its intrinsics are there.
    KrFrameDescription description;
};
