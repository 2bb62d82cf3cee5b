#pragma once

#include <toolkit/image/KrImageBlock.h>

#include <cstddef>
#include <string>
#include <vector>

/// A picture of `width` x `height` pixels with 1 to 4 channels of one byte, rows without padding.
///
/// There are two storages, each of them empty until it is allocated. The ordinary one is `data()`. The flipped one,
/// `flippedData()`, holds the same picture with its rows in reverse order: its first row is the last row of `data()`.
/// Neither follows the other by itself; `flippedToOrdinary` copies.
///
/// Files may be read and written on any thread.
class KrImage
{
public:
    enum Orientation : int
    {
        TopRowFirst = 0,
        BottomRowFirst = 1 ///< as OpenGL stores pictures
    };

    virtual ~KrImage() = default;

    /// The size in pixels, and the channels of each, a byte each; 0 before there is a picture.
    unsigned int width() const { return m_width; }
    unsigned int height() const { return m_height; }
    unsigned int channels() const { return m_channels; }
    /// True when neither storage holds anything.
    bool empty() const { return m_data.empty() && m_flipped.empty(); }

    /// Makes the ordinary storage of that size, every byte `value`; the flipped storage becomes empty.
    /// Nothing changes, after one message, when there are not 1 to 4 channels or the memory cannot be had.
    virtual void allocate(unsigned int channels, unsigned int value, unsigned int width, unsigned int height);
    /// Makes the flipped storage of that size, every byte `value`; the ordinary storage becomes empty. Fails as
    /// `allocate` does.
    void zeroFlippedImage(unsigned int channels, unsigned int value, unsigned int width, unsigned int height);

    /// height x width x channels bytes; null when the storage is empty.
    unsigned char* data() { return m_data.empty() ? nullptr : m_data.data(); }
    const unsigned char* data() const { return m_data.empty() ? nullptr : m_data.data(); }
    unsigned char* flippedData() { return m_flipped.empty() ? nullptr : m_flipped.data(); }
    const unsigned char* flippedData() const { return m_flipped.empty() ? nullptr : m_flipped.data(); }
    std::size_t sizeInBytes() const { return std::size_t(m_width) * m_height * m_channels; }

    /// Fills the ordinary storage from the flipped one, rows reversed; false when the latter is empty or (after one
    /// message) there is no memory.
    bool flippedToOrdinary();

    /// Copies the pixels of `block` (row 0 is the first row of `data()`) from the ordinary storage into the ordinary
    /// storage of `out`, which takes the block's size. False, and `out` as it was, when the block is empty or
    /// reaches outside the image, or there are no pixels. `out` may be this image.
    bool getSubimage(const KrImageBlock& block, KrImage& out) const;

    /// Reads a picture file into the ordinary storage: PNG, JPEG, TIFF, BMP, TGA or PNM, by its content, whatever its
    /// name. 16-bit samples become the nearest bytes, floats of 0 to 1 as well. Only regular files within
    /// Kr::Limits::kPictureBytes and kPicturePixels are read (KrPictureFile.h).
    /// @return false, after one message; the image is then as it was
    bool readFile(const std::string& path, Orientation orientation);
    /// Writes the ordinary storage in the format that the file's extension names (png, jpg, jpeg, tif, tiff, tga, bmp,
    /// ppm, pnm). `orientation` says how it is stored. What a format cannot hold is written as the
    /// nearest it can: grey as equal colours, opacity left out. The file is complete or as it was before.
    /// @return false, after one message
    bool writeFile(const std::string& path, Orientation orientation) const;

private:
    void setSize(unsigned int width, unsigned int height, unsigned int channels);

    unsigned int m_width = 0;
    unsigned int m_height = 0;
    unsigned int m_channels = 0;
    std::vector<unsigned char> m_data;
    std::vector<unsigned char> m_flipped;
};
