#include <import/mesh/KrStlText.h>

#include <import/mesh/KrMeshTokens.h>

#include <toolkit/foundation/private/KrText.h>

#include <algorithm>
#include <cstring>

namespace
{

using KrMeshTokens::refuse;
using KrMeshTokens::takeNumber;
using KrMeshTokens::takeWord;

// A binary file: a header, a count of four bytes, and for each facet a normal, three corners and two bytes.
constexpr std::size_t kHeaderBytes = 80;
constexpr std::size_t kCountEnd = kHeaderBytes + 4;
constexpr std::size_t kFacetBytes = 50;
constexpr std::size_t kNormalBytes = 12;

using Facet = KrStlText::Facet;

std::string tooMany(std::uint64_t maxTriangles)
{
    return "it has more than " + std::to_string(maxTriangles) + " triangles";
}

/// Little-endian, as in the file.
std::uint32_t countIn(std::string_view content)
{
    std::uint32_t count = 0;
    for (std::size_t i = kCountEnd; i-- > kHeaderBytes;) {
        count = count << 8 | static_cast<unsigned char>(content[i]);
    }
    return count;
}

/// The size that the count of a binary file promises: the one sure sign of that kind.
std::uint64_t binaryBytes(std::string_view content)
{
    return content.size() < kCountEnd ? UINT64_MAX : kCountEnd + std::uint64_t{kFacetBytes} * countIn(content);
}

bool isText(std::string_view content)
{
    // Exporters begin binary files with "solid", too.
    // The name of a solid may be long, but the first facet begins near the front.
    const std::string begin = KrText::lowered(content.substr(0, 1000));
    std::string_view rest = begin;
    return takeWord(rest).substr(0, 5) == "solid" && begin.find('\0') == std::string::npos &&
           (begin.find("facet") != std::string::npos || begin.find("endsolid") != std::string::npos);
}

bool readBinary(std::string_view content, std::uint64_t maxTriangles, KrStlText::Mesh& mesh, std::string& why)
{
    const std::uint32_t count = countIn(content);
    if (count > maxTriangles) {
        return refuse(why, tooMany(maxTriangles));
    }
    mesh.facets.resize(count);
    // Facet normals are often wrong, and the two bytes behind a facet hold colours in several dialects: neither is
    // read. The numbers are little-endian, as those of this machine are.
    const char* place = content.data() + kCountEnd + kNormalBytes;
    for (Facet& facet : mesh.facets) {
        std::memcpy(facet.data(), place, sizeof facet);
        // Adding 0 makes 0 of -0.
        for (float& number : facet) {
            number += 0.0f;
        }
        place += kFacetBytes;
    }
    return true;
}

/// A solid may be called "vertex"; what follows the name usually stands on the next line.
void skipName(std::string_view& rest)
{
    std::string_view behind = rest;
    std::string_view line;
    if (KrMeshTokens::takeLine(behind, line) && line.find("facet") == std::string_view::npos) {
        rest = behind;
    }
}

bool readText(std::string_view content, std::uint64_t maxTriangles, KrStlText::Mesh& mesh, std::string& why)
{
    Facet facet{};
    std::size_t numCorners = 0;
    // By words, not by lines: files without any line end exist. Words that are unknown are passed over.
    for (std::string_view rest = content; !rest.empty();) {
        const std::string word = KrText::lowered(takeWord(rest).substr(0, 16));
        if (word == "solid" || word == "endsolid") {
            skipName(rest);
        }
        if (word == "facet" || word == "outer") {
            numCorners = 0;
        }
        if (word != "vertex") {
            continue;
        }
        // From the fourth corner on the last one is replaced.
        float* const corner = facet.data() + 3 * std::min<std::size_t>(numCorners++, 2);
        for (float* number = corner; number < corner + 3; ++number) {
            double value = 0.0;
            if (!takeNumber(rest, value)) {
                return refuse(why, "a vertex is not three numbers");
            }
            // What single precision does not hold has no conversion.
            *number = static_cast<float>(std::clamp(value, -3.4e38, 3.4e38)) + 0.0f;
        }
        if (numCorners < 3) {
            continue;
        }
        if (mesh.facets.size() == maxTriangles) {
            return refuse(why, tooMany(maxTriangles));
        }
        mesh.facets.push_back(facet);
        // A facet of more corners goes on as a fan.
        std::copy_n(facet.begin() + 6, 3, facet.begin() + 3);
    }
    mesh.isCut = numCorners == 1 || numCorners == 2;
    return !mesh.facets.empty() || refuse(why, "it holds no triangle");
}

} // namespace

bool KrStlText::isStl(std::string_view content)
{
    return isText(content) || (content.size() > kCountEnd && binaryBytes(content) == content.size());
}

bool KrStlText::read(std::string_view content, std::uint64_t maxTriangles, Mesh& mesh, std::string& why)
{
    // A file of exactly the size that its count promises is binary, even where it begins like a text.
    const std::uint64_t bytes = binaryBytes(content);
    if (bytes != content.size() && isText(content)) {
        return readText(content, maxTriangles, mesh, why);
    }
    if (content.size() < kCountEnd) {
        return refuse(why, "it is no STL: neither a text of facets nor long enough for a binary file");
    }
    // Bytes behind the last facet are common and harmless; facets that are not there are not.
    if (bytes > content.size()) {
        return refuse(why, "it declares " + std::to_string(countIn(content)) + " triangles and holds " +
                               std::to_string((content.size() - kCountEnd) / kFacetBytes));
    }
    return countIn(content) > 0 ? readBinary(content, maxTriangles, mesh, why) : refuse(why, "it holds no triangle");
}
