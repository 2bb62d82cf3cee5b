#pragma once

#include "KrAppFiles.h"

#include <rendCore/capture/KrDepthCapture.h>

#include <cstdint>
#include <string>
#include <vector>

/// Files of depths in metres.
namespace KrAppDepth
{

/// "planar" or "euclidean"; false, and `kind` as it was, for anything else.
bool readKind(const std::string& text, KrDepthCapture::Kind& kind);
/// Throws KrAppFailure (WrongUsage) unless the extension is one that `write` knows.
void checkFormat(const std::string& path);

/// What PNG files are made with, kept from picture to picture.
struct Png
{
    std::vector<std::uint16_t> samples; ///< whole millimetres: up to 65.535 m
    KrAppFiles::PngFile file;
};

/// Writes the format that the extension names, complete or not at all; .png to standard output:
///   .png  16-bit grey, whole millimetres, 0 where there is nothing; 0.5 mm to 65.5345 m become 1 to 65535, what is
///         nearer 1, what is farther 65535
///   .npy  32-bit floats, height x width, metres, infinity where there is nothing
///   .pfm  32-bit floats, metres, infinity where there is nothing, lowest row first as the format has it
///
/// @param depths  `height` rows of `width` values, the top row first, m; infinity where there is nothing
/// Throws KrAppFailure (CouldNot).
void write(const std::vector<float>& depths, unsigned int width, unsigned int height, const std::string& path,
           Png& png);

} // namespace KrAppDepth
