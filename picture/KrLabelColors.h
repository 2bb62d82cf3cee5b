#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

/// Colours by which labels (KrLabelTable) are told apart with the eye. A label has the same one in every picture, every
/// run and on every machine; numbers that follow each other, which are often links beside each other, have hues that
/// lie far apart. Some hundred labels can be told from one another; beyond that colours come close to others.
namespace KrLabelColors
{

/// Red, green, blue, from 0 to 255: black for 0, which is no part, and no dark colour for any other.
std::array<unsigned char, 3> color(std::uint32_t label);
/// The same as "#rrggbb".
std::string text(std::uint32_t label);
/// A picture of `count` labels. @param rgb  three bytes for each
void paint(const std::uint32_t* labels, std::size_t count, unsigned char* rgb);

} // namespace KrLabelColors
