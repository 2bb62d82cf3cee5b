#pragma once

#include <string>

/// The bytes of a .npy file (format version 1.0) that holds `height` x `width` numbers, row by row.
std::string krAppNumpy(const float* values, unsigned int width, unsigned int height);
std::string krAppNumpy(const double* values, unsigned int width, unsigned int height);
