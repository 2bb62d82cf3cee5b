#pragma once

#include <dataset/KrDatasetInfo.h>
#include <dataset/KrDatasetSample.h>

#include <toolkit/image/private/KrPngEncoder.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

/// The image files of samples, as all formats have them that do not ask for others.
///
///     color    PNG, 8-bit RGB
///     depth    .npy, height x width floats, m along the optical axis, infinity where nothing is
///     labels   PNG, 16-bit grey, 0 where nothing is
///     normals  .npy, height x width x 3 floats, optical axes, 0 where nothing is
///
/// Memory is kept from one image to the next. An object belongs to one thread at a time.
class KrSampleImages
{
public:
    using Bytes = std::vector<std::uint8_t>;

    /// One of the kinds above.
    struct Kind
    {
        const char* name;      ///< "color"
        const char* extension; ///< ".png"
        bool KrDatasetKinds::*isWanted;
        bool (KrSampleImages::*encode)(const KrDatasetSample& sample, std::string& reason);
    };
    static const std::array<Kind, 4>& kinds();

    /// Whether every label has a place in 16 bits, where labels are wanted.
    static bool check(const KrDatasetInfo& info, std::string& reason);
    /// The pixel of the sample at which a row of a box in it begins, rows counted from the box's first.
    static std::size_t pixel(const KrDatasetSample& sample, const KrDatasetSample::Box& box, std::size_t row)
    {
        return (box.y + row) * sample.width + box.x;
    }

    // Each makes file() the file of an image. False, and why, for what no file of that kind can hold.
    bool color(const KrDatasetSample& sample, std::string& reason);
    bool depth(const KrDatasetSample& sample, std::string& reason);
    bool labels(const KrDatasetSample& sample, std::string& reason);
    bool normals(const KrDatasetSample& sample, std::string& reason);
    /// A PNG of 8-bit grey: 255 where the part is when it is drawn alone, else 0.
    bool amodalMask(const KrDatasetSample& sample, const KrDatasetSample::Part& part, std::string& reason);
    /// The same, where it is in the label image.
    bool visibleMask(const KrDatasetSample& sample, const KrDatasetSample::Part& part, std::string& reason);
    /// A PNG of the sample's size. @param bits  of a value; 8: they are bytes, 16: std::uint16_t
    bool png(const void* values, unsigned int channels, unsigned int bits, const KrDatasetSample& sample,
             std::string& reason);

    /// The whole file that was encoded last.
    const Bytes& file() const { return m_file; }

private:
    void npy(const std::vector<float>& values, const std::string& header);

    KrPngEncoder m_encoder;
    std::vector<std::uint16_t> m_values;
    std::vector<std::uint8_t> m_mask;
    Bytes m_file;
};
