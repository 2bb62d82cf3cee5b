#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct libdeflate_compressor;

/// Writes PNG files into memory, without loss: 8 or 16 bits a sample, grey or colours, with or without opacity.
///
/// Keep one where pictures follow one another: for a picture no larger than one before, nothing is allocated. What is
/// kept is about twice the largest picture. An object belongs to one thread at a time.
class KrPngEncoder
{
public:
    /// A picture in the caller's memory, rows without padding.
    struct Picture
    {
        const void* samples = nullptr; ///< height x width x channels: bytes, or std::uint16_t in the machine's order
        unsigned int width = 0;        ///< pixels
        unsigned int height = 0;       ///< pixels
        unsigned int channels = 0;     ///< grey; grey, opacity; red, green, blue; red, green, blue, opacity
        unsigned int bits = 8;         ///< of a sample: 8 or 16
        bool isBottomRowFirst = false; ///< as OpenGL stores pictures; files have the top row first
    };

    KrPngEncoder();
    ~KrPngEncoder();
    KrPngEncoder(const KrPngEncoder&) = delete;
    KrPngEncoder& operator=(const KrPngEncoder&) = delete;

    /// @param file  becomes the whole file; its capacity is used again. As it was on failure
    /// @return the reason of a failure, empty for none. Memory that is not there is told by std::bad_alloc
    std::string encode(const Picture& picture, std::vector<std::uint8_t>& file);

private:
    struct Deleter
    {
        void operator()(libdeflate_compressor* compressor) const;
    };

    void filter(const Picture& picture, std::size_t rowBytes);

    std::unique_ptr<libdeflate_compressor, Deleter> m_compressor;
    std::vector<std::uint8_t> m_filtered; ///< the picture as it is compressed: each row behind its filter's number
    std::vector<std::uint8_t> m_packed;   ///< compressed
    std::vector<std::uint8_t> m_row;      ///< of 16 bits, the high byte first
};
