#include <toolkit/image/private/KrPictureSamples.h>

#include <cstring>
#include <utility>

void KrPictureSamples::turnUpright(KrPicture& picture, unsigned int orientation)
{
    // 1 is upright, others are none of TIFF's and Exif's eight.
    if (orientation < 2 || orientation > 8) {
        return;
    }
    // 5 to 8 are stored by columns. What is stored first stands at the right in 2, 3, 6 and 7, below in 3, 4, 7 and 8.
    const bool isTurned = orientation >= 5;
    const bool fromRight = orientation == 2 || orientation == 3 || orientation == 6 || orientation == 7;
    const bool fromBelow = orientation == 3 || orientation == 4 || orientation == 7 || orientation == 8;
    // Into a picture of its own: rows and columns may trade places.
    KrPicture upright;
    upright.width = isTurned ? picture.height : picture.width;
    upright.height = isTurned ? picture.width : picture.height;
    upright.channels = picture.channels;
    upright.pixels.resize(picture.pixels.size());
    const unsigned char* from = picture.pixels.data();
    for (std::size_t row = 0; row < picture.height; ++row) {
        for (std::size_t column = 0; column < picture.width; ++column) {
            std::size_t x = isTurned ? row : column;
            std::size_t y = isTurned ? column : row;
            x = fromRight ? upright.width - 1 - x : x;
            y = fromBelow ? upright.height - 1 - y : y;
            std::memcpy(upright.pixels.data() + (y * upright.width + x) * picture.channels, from, picture.channels);
            from += picture.channels;
        }
    }
    picture = std::move(upright);
}
