#include "KrPyArray.h"

#include "KrPyFailure.h"

namespace
{

[[noreturn]] void refuse(const std::string& name, const std::string& what)
{
    throw KrPyFailure(KrPyFailure::Kind::Argument, name + " " + what);
}

std::string nameOf(const py::dtype& type)
{
    return py::str(static_cast<const py::handle&>(type));
}

std::string text(const py::ssize_t* sizes, std::size_t count)
{
    std::string all = "(";
    for (std::size_t i = 0; i < count; ++i) {
        all += (i > 0 ? ", " : "") + std::to_string(sizes[i]);
    }
    return all + (count == 1 ? ",)" : ")");
}

} // namespace

template <typename T>
T* KrPyArray::target(const py::object& array, const std::string& name, const std::vector<py::ssize_t>& shape)
{
    if (array.is_none()) {
        return nullptr;
    }
    if (!py::isinstance<py::array>(array)) {
        refuse(name, "is no numpy array");
    }
    py::array memory = py::reinterpret_borrow<py::array>(array);
    const auto numDimensions = static_cast<std::size_t>(memory.ndim());
    if (std::vector<py::ssize_t>(memory.shape(), memory.shape() + numDimensions) != shape) {
        refuse(name, "has the shape " + text(memory.shape(), numDimensions) + " instead of " +
                         text(shape.data(), shape.size()));
    }
    const py::dtype wanted = py::dtype::of<T>();
    if (!memory.dtype().equal(wanted)) {
        refuse(name, "has the type " + nameOf(memory.dtype()) + " instead of " + nameOf(wanted));
    }
    if ((memory.flags() & py::array::c_style) == 0) {
        refuse(name, "is not C-contiguous");
    }
    if ((memory.flags() & py::detail::npy_api::NPY_ARRAY_ALIGNED_) == 0) {
        refuse(name, "is not aligned");
    }
    if (!memory.writeable()) {
        refuse(name, "is read-only");
    }
    return static_cast<T*>(memory.mutable_data());
}

template std::uint8_t* KrPyArray::target(const py::object&, const std::string&, const std::vector<py::ssize_t>&);
template std::uint32_t* KrPyArray::target(const py::object&, const std::string&, const std::vector<py::ssize_t>&);
template float* KrPyArray::target(const py::object&, const std::string&, const std::vector<py::ssize_t>&);
template bool* KrPyArray::target(const py::object&, const std::string&, const std::vector<py::ssize_t>&);

KrCoordinateSystemTransformation KrPyArray::pose(const py::array_t<double>& matrix, const std::string& name)
{
    if (matrix.ndim() != 2 || matrix.shape(0) != 4 || matrix.shape(1) != 4) {
        refuse(name, "is no 4 x 4 matrix");
    }
    // The library's sixteen numbers are those of the transposed matrix.
    double entries[16];
    for (py::ssize_t row = 0; row < 4; ++row) {
        for (py::ssize_t column = 0; column < 4; ++column) {
            entries[4 * column + row] = matrix.at(row, column);
        }
    }
    const bool isAffine = entries[3] == 0.0 && entries[7] == 0.0 && entries[11] == 0.0 && entries[15] == 1.0;
    KrCoordinateSystemTransformation read;
    if (!isAffine || !read.setFrom16(entries) || !read.isPose()) {
        refuse(name, "is no pose: a rotation and a translation above a row 0 0 0 1");
    }
    return read;
}

void KrPyArray::write(const KrCoordinateSystemTransformation& pose, double* matrix)
{
    double entries[16];
    pose.assign16(entries);
    for (unsigned int row = 0; row < 4; ++row) {
        for (unsigned int column = 0; column < 4; ++column) {
            matrix[4 * row + column] = entries[4 * column + row];
        }
    }
}
