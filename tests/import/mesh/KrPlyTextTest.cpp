#include <import/mesh/KrPlyText.h>

#include <gtest/gtest.h>

#include <string>

TEST(KrPlyText, WalksTextAndBinaryFilesByTheirHeaders)
{
    const auto header = [](const std::string& format, const std::string& vertices) {
        return "ply\nformat " + format + " 1.0\ncomment made by hand\nelement vertex " + vertices +
               "\nproperty float x\nproperty float y\nproperty float z\nelement face 1\n"
               "property list uchar int vertex_index\nend_header\n";
    };
    const std::string corners = "0 0 0\n1 0 0\n0 1 0\n";
    std::string bytes(3 * 12 + 1 + 3 * 4, '\0');
    bytes[3 * 12] = 3;
    std::string why;
    EXPECT_TRUE(KrPlyText::check(header("ascii", "3") + corners + "3 0 1 2\n", why)) << why;
    for (const char* const order : {"binary_little_endian", "binary_big_endian"}) {
        EXPECT_TRUE(KrPlyText::check(header(order, "3") + bytes, why)) << order << why;
        // One byte short, more vertices than there are bytes, a face of 200 corners.
        EXPECT_FALSE(KrPlyText::check(header(order, "3") + bytes.substr(0, bytes.size() - 1), why)) << order;
        EXPECT_FALSE(KrPlyText::check(header(order, "9") + bytes, why)) << order;
        std::string wide = bytes;
        wide[3 * 12] = '\xC8';
        EXPECT_FALSE(KrPlyText::check(header(order, "3") + wide, why)) << order;
        EXPECT_EQ(why, "it holds fewer values than its header declares, or something else than numbers");
    }
    EXPECT_FALSE(KrPlyText::check(header("ascii", "3") + corners + "4 0 1 2\n", why));
    EXPECT_FALSE(KrPlyText::check(header("ascii", "-3") + corners, why));
    EXPECT_EQ(why, "its header has the line \"element vertex -3\"");
    EXPECT_FALSE(KrPlyText::check("ply\nformat ascii 1.0\nelement vertex 0\n", why));
    EXPECT_EQ(why, "its header does not end");
    // The mesh library frees what it never had for these two.
    const std::string vertex = "element vertex 1\nproperty float x\n";
    EXPECT_FALSE(KrPlyText::check("ply\nformat ascii 1.0\n" + vertex + vertex + "end_header\n0\n0\n", why));
    EXPECT_EQ(why, "its header has the line \"element vertex 1\"");
}
