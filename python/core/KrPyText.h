#pragma once

#include <pybind11/pybind11.h>

#include <string>

namespace py = pybind11;

/// Text for Python. Names and paths come from files and need not be UTF-8: bytes that are not come as surrogates, by
/// which Python writes them into file names again.
inline py::str krPyText(const std::string& text)
{
    PyObject* const object = PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "surrogateescape");
    if (object == nullptr) {
        throw py::error_already_set();
    }
    return py::reinterpret_steal<py::str>(object);
}
