#pragma once

#include <toolkit/xml/KrXmlText.h>

#include <cstdint>

/// One triangle of a mesh: for each corner 0, 1, 2 (counter-clockwise seen from outside) the index
/// of its vertex, its normal and its texture coordinate in the lists of the mesh.
class KrTriangle
{
public:
    KrTriangle() = default;
    /// Corner k uses vertex, normal and texture coordinate `index[k]`.
    KrTriangle(std::uint32_t a, std::uint32_t b, std::uint32_t c)
        : m_index{{a, a, a}, {b, b, b}, {c, c, c}}
    {
    }

    /// Indices of a corner, 0 to 2; the corner is not checked here, and the indices by KrTriPhysicalExtent::setMesh.
    std::uint32_t vertex(unsigned int corner) const { return m_index[corner][0]; }
    std::uint32_t normal(unsigned int corner) const { return m_index[corner][1]; }
    std::uint32_t textureCoordinate(unsigned int corner) const { return m_index[corner][2]; }
    void setCorner(unsigned int corner, std::uint32_t vertex, std::uint32_t normal, std::uint32_t textureCoordinate)
    {
        m_index[corner][0] = vertex;
        m_index[corner][1] = normal;
        m_index[corner][2] = textureCoordinate;
    }

    friend bool operator==(const KrTriangle& a, const KrTriangle& b);

private:
    std::uint32_t m_index[3][3] = {};
};

/// Nine indices, corner by corner.
template <>
struct KrXmlPlain<KrTriangle>
{
    static constexpr bool isPlain = true;
    /// As text, number by number. `take` takes a triangle off the front, and is false for other text.
    static void append(std::string& out, const KrTriangle& value);
    static bool take(std::string_view& text, KrTriangle& value);
};
