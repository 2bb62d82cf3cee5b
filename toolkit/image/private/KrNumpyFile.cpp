#include <toolkit/image/private/KrNumpyFile.h>

#include <type_traits>

namespace
{

template <typename Number>
std::string numpy(const Number* values, unsigned int width, unsigned int height)
{
    const std::size_t size = sizeof *values * width * height;
    return krNumpyHeader(sizeof *values, {height, width}, std::is_floating_point_v<Number> ? 'f' : 'u')
        .append(reinterpret_cast<const char*>(values), size);
}

} // namespace

std::string krNumpyHeader(std::size_t numberBytes, std::initializer_list<std::size_t> shape, char kind)
{
    const char byteOrder = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? '<' : '>';
    std::string sizes;
    for (const std::size_t size : shape) {
        sizes += (sizes.empty() ? "" : ", ") + std::to_string(size);
    }
    std::string header = std::string("{'descr': '") + byteOrder + kind + std::to_string(numberBytes) +
                         "', 'fortran_order': False, 'shape': (" + sizes + "), }";
    // Magic, version and length take 10 bytes; the numbers begin at a multiple of 64, after a line end.
    header.append(63 - (10 + header.size()) % 64, ' ');
    header += '\n';
    // NPY version 1.0: the magic word, two bytes of version, two of length with the low one first.
    std::string bytes = "\x93NUMPY\x01";
    bytes += '\0';
    bytes += static_cast<char>(header.size() & 0xFFu);
    bytes += static_cast<char>(header.size() >> 8);
    return bytes + header;
}

std::string krNumpyFile(const float* values, unsigned int width, unsigned int height)
{
    return numpy(values, width, height);
}

std::string krNumpyFile(const double* values, unsigned int width, unsigned int height)
{
    return numpy(values, width, height);
}

std::string krNumpyFile(const std::uint32_t* values, unsigned int width, unsigned int height)
{
    return numpy(values, width, height);
}
