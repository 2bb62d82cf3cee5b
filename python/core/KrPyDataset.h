#pragma once

#include <pybind11/pybind11.h>

/// Binds data sets: what krrendcore/dataset.py calls.
void krPyBindDataset(pybind11::module_& module);
