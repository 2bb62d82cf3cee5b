#pragma once

#include "KrAppFiles.h"

#include <rendCore/capture/KrFrameCapture.h>
#include <rendCore/model/KrLabelTable.h>

#include <cstdint>
#include <string>
#include <vector>

/// Files of labels and normals. All rows are told with the top one first.
namespace KrAppLabels
{

/// "link", "shape" or "manipulator"; false, and `level` as it was, for anything else.
bool readLevel(const std::string& text, KrLabelTable::Level& level);
/// "camera" or "world"; false, and `frame` as it was, for anything else.
bool readFrame(const std::string& text, KrFrameCapture::NormalFrame& frame);

/// Throw KrAppFailure (WrongUsage) unless the extension is one that the function below of that name writes.
void checkLabels(const std::string& path);
void checkPreview(const std::string& path);
void checkNormals(const std::string& path);
/// Throws KrAppFailure (CouldNot) when the file `path` has no numbers for all labels of `table`.
void checkNumber(const KrLabelTable& table, const std::string& path);

/// What files are made with, kept from picture to picture.
struct Kept
{
    std::vector<std::uint16_t> samples; ///< labels of 16 bits
    std::vector<unsigned char> colors;  ///< red, green, blue
    KrAppFiles::PngFile file;
};

// Each writes the format that the extension names, complete or not at all; .png to standard output. Throws KrAppFailure
// (CouldNot).

/// .png: 16-bit grey; .npy: 32-bit whole numbers, height x width. The labels, 0 where nothing is.
/// @param labels  `height` rows of `width`; of a .png at most 65535, not checked
void writeLabels(const std::vector<std::uint32_t>& labels, unsigned int width, unsigned int height,
                 const std::string& path, Kept& kept);
/// .png: the colours of KrLabelColors.
void writePreview(const std::vector<std::uint32_t>& labels, unsigned int width, unsigned int height,
                  const std::string& path, Kept& kept);
/// .npy: 32-bit floats, height x width x 3, of length 1, 0 where nothing is; .png: 0.5 + 0.5 n in 8 bits each, black
/// where nothing is.
/// @param normals  x, y, z of `height` rows of `width`
void writeNormals(const std::vector<float>& normals, unsigned int width, unsigned int height, const std::string& path,
                  Kept& kept);

} // namespace KrAppLabels
