#pragma once

#include <string>

/// The bytes of a .npy file (format version 1.0) that holds `height` x `width` numbers, row by row.
std::string krNumpyFile(const float* values, unsigned int width, unsigned int height);
std::string krNumpyFile(const double* values, unsigned int width, unsigned int height);
