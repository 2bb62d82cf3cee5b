#pragma once

#include <osg/Image>
#include <osgDB/ReadFile>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

/// Rows from the top.
struct Table
{
    std::size_t width = 0;
    std::size_t height = 0;
    std::vector<double> values;

    double at(std::size_t column, std::size_t row) const { return values.at(row * width + column); }
};

/// The numbers in `bytes` from `start` on.
template <typename Number>
void append(Table& table, const std::string& bytes, std::size_t start)
{
    for (; start + sizeof(Number) <= bytes.size(); start += sizeof(Number)) {
        Number number;
        std::memcpy(&number, bytes.data() + start, sizeof number);
        table.values.push_back(number);
    }
}

/// Of a .npy file, whose first two sizes are the table's: with more, there are several values for each place.
/// @param type  "<f4", "<f8" or "<u4"
template <typename Number>
Table numpy(const std::string& bytes, const std::string& type)
{
    Table table;
    const std::size_t length = static_cast<unsigned char>(bytes.at(8)) + 256u * static_cast<unsigned char>(bytes.at(9));
    const std::string header = bytes.substr(10, length);
    EXPECT_EQ(bytes.substr(0, 8), std::string("\x93NUMPY\x01\0", 8));
    EXPECT_EQ((10 + length) % 64, 0u);
    EXPECT_EQ(header.back(), '\n');
    EXPECT_EQ(std::sscanf(header.c_str(),
                          ("{'descr': '" + type + "', 'fortran_order': False, 'shape': (%zu, %zu)").c_str(),
                          &table.height, &table.width),
              2)
        << header;
    append<Number>(table, bytes, 10 + length);
    return table;
}

/// Of a PNG file of 16 bits.
inline Table png(const std::string& path)
{
    Table table;
    const osg::ref_ptr<osg::Image> image = osgDB::readRefImageFile(path);
    if (!image || image->getDataType() != GL_UNSIGNED_SHORT || image->getPixelFormat() != GL_LUMINANCE) {
        ADD_FAILURE() << path << " is no grey picture of 16 bits";
        return table;
    }
    table.width = static_cast<std::size_t>(image->s());
    table.height = static_cast<std::size_t>(image->t());
    for (int row = image->t(); row-- > 0;) {
        const auto* const in = reinterpret_cast<const std::uint16_t*>(image->data(0, row));
        table.values.insert(table.values.end(), in, in + image->s());
    }
    return table;
}
