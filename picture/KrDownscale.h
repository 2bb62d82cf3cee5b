#pragma once

#include <cstddef>

class KrImage;

/// Pictures that were drawn larger by a whole factor, made small.
namespace KrDownscale
{

/// Averages `factor` x `factor` pixels into one, each channel by itself, halves rounded up; `large` is `factor` times
/// as wide and high as the result. Memory that `small` has is used again where it fits.
void average(const KrImage& large, unsigned int factor, KrImage& small);
/// The same for rows of `rowBytes`. @param width, height  of the result, pixels
void average(const unsigned char* large, std::size_t rowBytes, unsigned int factor, unsigned int width,
             unsigned int height, unsigned int channels, unsigned char* small);
/// Takes the lower left one of `factor` x `factor` pixels: depths are not to be mixed.
void pick(const KrImage& large, unsigned int factor, KrImage& small);

} // namespace KrDownscale
