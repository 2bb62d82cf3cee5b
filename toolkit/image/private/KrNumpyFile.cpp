#include <toolkit/image/private/KrNumpyFile.h>

namespace
{

std::string numpy(const void* values, std::size_t size, unsigned int width, unsigned int height)
{
    const char byteOrder = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? '<' : '>';
    std::string header = std::string("{'descr': '") + byteOrder + "f" + std::to_string(size) +
                         "', 'fortran_order': False, 'shape': (" + std::to_string(height) + ", " +
                         std::to_string(width) + "), }";
    // Magic, version and length take 10 bytes; the numbers begin at a multiple of 64, after a line end.
    header.append(63 - (10 + header.size()) % 64, ' ');
    header += '\n';
    // NPY version 1.0: the magic word, two bytes of version, two of length with the low one first.
    std::string bytes = "\x93NUMPY\x01";
    bytes += '\0';
    bytes += static_cast<char>(header.size() & 0xFFu);
    bytes += static_cast<char>(header.size() >> 8);
    bytes += header;
    return bytes.append(static_cast<const char*>(values), size * width * height);
}

} // namespace

std::string krNumpyFile(const float* values, unsigned int width, unsigned int height)
{
    return numpy(values, sizeof *values, width, height);
}

std::string krNumpyFile(const double* values, unsigned int width, unsigned int height)
{
    return numpy(values, sizeof *values, width, height);
}
