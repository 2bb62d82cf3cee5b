#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>

/// What stands before the numbers in a .npy file (format version 1.0), which are in the machine's byte order, the last
/// index running fastest.
/// @param numberBytes  4 or 8
/// @param shape        as numpy tells it: rows, columns, numbers of a pixel
/// @param kind         numpy's letter: 'f' for floating point, 'u' for whole numbers from 0 on
std::string krNumpyHeader(std::size_t numberBytes, std::initializer_list<std::size_t> shape, char kind = 'f');

/// The bytes of a .npy file that holds `height` x `width` numbers, row by row.
std::string krNumpyFile(const float* values, unsigned int width, unsigned int height);
std::string krNumpyFile(const double* values, unsigned int width, unsigned int height);
std::string krNumpyFile(const std::uint32_t* values, unsigned int width, unsigned int height);
