#pragma once

#include "KrPyText.h"

#include <pybind11/numpy.h>

#include <toolkit/math/KrCoordinateSystemTransformation.h>

#include <cstdint>
#include <string>
#include <vector>

/// Arrays that come from Python and go there.
namespace KrPyArray
{

/// The memory of an array into which the library writes: of just that shape and type, C-contiguous, aligned and
/// writable. Nothing is converted or copied.
///
/// Throws KrPyFailure (Argument).
/// @param array  borrowed; null for None
/// @param name   for the sentence
template <typename T>
T* target(const py::object& array, const std::string& name, const std::vector<py::ssize_t>& shape);

/// A pose, as a 4 x 4 matrix for column vectors: child frame to parent frame, m. Throws KrPyFailure (Argument).
/// @param name  for the sentence
KrCoordinateSystemTransformation pose(const py::array_t<double>& matrix, const std::string& name);
/// Writes such a matrix, row by row.
void write(const KrCoordinateSystemTransformation& pose, double* matrix);

} // namespace KrPyArray
