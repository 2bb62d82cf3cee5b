#include <import/mesh/KrOffText.h>

#include <import/mesh/KrMeshTokens.h>

#include <toolkit/foundation/private/KrText.h>

#include <algorithm>
#include <vector>

namespace
{

using KrMeshTokens::appendNumber;
using KrMeshTokens::isCount;
using KrMeshTokens::refuse;
using KrMeshTokens::takeLine;
using KrMeshTokens::takeNumber;
using KrMeshTokens::takeWord;
using KrText::trimmed;

// The mesh library leaves out faces of more corners.
constexpr std::size_t kMaxCorners = 9;

bool takeCount(std::string_view& text, std::uint64_t limit, std::uint64_t& number)
{
    return isCount(takeWord(text), limit, number);
}

/// The next line that holds something and is no comment.
bool takeOffLine(std::string_view& text, std::string_view& line)
{
    while (takeLine(text, line)) {
        line = line.substr(0, line.find('#'));
        if (!trimmed(line).empty()) {
            return true;
        }
    }
    return false;
}

/// What the first word says of each vertex: [ST][C][N][4]OFF.
struct Kind
{
    bool hasColours = false;
    bool hasNormals = false;
    bool isHomogeneous = false;
};

/// Cuts `prefix` off where it is there.
bool takePrefix(std::string_view& word, std::string_view prefix)
{
    const bool isThere = word.substr(0, prefix.size()) == prefix;
    word.remove_prefix(isThere ? prefix.size() : 0);
    return isThere;
}

bool kindOf(std::string_view word, Kind& kind)
{
    // Coordinates of texture are passed over; they stand behind everything that is read of a vertex.
    takePrefix(word, "ST");
    kind.hasColours = takePrefix(word, "C");
    kind.hasNormals = takePrefix(word, "N");
    kind.isHomogeneous = takePrefix(word, "4");
    return word == "OFF";
}

void appendVertex(std::string_view line, const Kind& kind, std::string& text)
{
    // Four of place, three of a normal and four of a colour are the most that a vertex has.
    double numbers[11] = {};
    std::size_t taken = 0;
    while (taken < 11 && takeNumber(line, numbers[taken])) {
        ++taken;
    }
    const std::size_t behind = kind.isHomogeneous ? 4 : 3;
    // A weight of zero gives what is no finite number: such corners are left out with their triangles.
    const double scale = kind.isHomogeneous ? 1.0 / numbers[3] : 1.0;
    for (std::size_t i = 0; i < 3; ++i) {
        appendNumber(text, scale * numbers[i]);
        text += ' ';
    }
    const std::size_t count = (kind.hasNormals ? 3u : 0u) + (kind.hasColours ? 4u : 0u);
    // The mesh library loses its place between normals and colours: beside these, normals are left out.
    for (std::size_t i = kind.hasNormals && kind.hasColours ? 3 : 0; i < count; ++i) {
        const bool isOpacity = kind.hasColours && i + 1 == count;
        // An opacity that is not given is 1; every other number that is missing is 0.
        appendNumber(text, isOpacity && taken <= behind + i ? 1.0 : numbers[behind + i]);
        text += ' ';
    }
    text += '\n';
}

void appendFace(const std::vector<std::uint64_t>& corners, std::size_t first, std::size_t count, std::string& text)
{
    // A part of a fan begins at the first corner of all.
    text += std::to_string(first == 0 ? count : count + 1);
    text += first == 0 ? "" : " " + std::to_string(corners[0]);
    for (std::size_t i = 0; i < count; ++i) {
        text += ' ' + std::to_string(corners[first + i]);
    }
    text += '\n';
}

} // namespace

bool KrOffText::clean(std::string_view content, std::uint64_t maxTriangles, std::string& mesh, std::string& why)
{
    std::string_view rest = content;
    std::string_view line;
    Kind kind;
    takeOffLine(rest, line);
    std::string_view counts = line;
    // The first word may be left out; the counts may stand beside it or below it.
    if (kindOf(takeWord(line), kind)) {
        counts = line;
    }
    if (trimmed(counts).empty() && !takeOffLine(rest, counts)) {
        return refuse(why, "it ends before its counts");
    }
    std::uint64_t vertices = 0;
    std::uint64_t faces = 0;
    // The third count, of edges, is used by nobody, and often wrong.
    // The count of a file of this size bounds what is asked for, before a vertex is read.
    if (!takeCount(counts, content.size(), vertices) || !takeCount(counts, content.size(), faces)) {
        return refuse(why, "its counts are no numbers, or more than a file of its size can hold");
    }
    std::string body;
    for (std::uint64_t i = 0; i < vertices; ++i) {
        if (!takeOffLine(rest, line)) {
            return refuse(why, "it holds fewer vertices than it declares");
        }
        appendVertex(line, kind, body);
    }
    std::uint64_t written = 0;
    std::uint64_t triangles = 0;
    std::vector<std::uint64_t> corners;
    for (std::uint64_t i = 0; i < faces; ++i) {
        std::uint64_t count = 0;
        bool isGood = takeOffLine(rest, line) && takeCount(line, line.size(), count) && count > 0;
        corners.clear();
        // However many corners are declared, the list is no longer than its line.
        for (std::uint64_t index = 0; isGood && count > 0; --count) {
            isGood = vertices > 0 && takeCount(line, vertices - 1, index);
            corners.push_back(index);
        }
        if (!isGood) {
            return refuse(why, "face " + std::to_string(i) + " is no list of vertices");
        }
        triangles += corners.size() < 3 ? 0 : corners.size() - 2;
        if (triangles > maxTriangles) {
            return refuse(why, "it has more than " + std::to_string(maxTriangles) + " triangles");
        }
        // Points and lines draw nothing.
        if (corners.size() >= 3 && corners.size() <= kMaxCorners) {
            appendFace(corners, 0, corners.size(), body);
            ++written;
        }
        // A fan from the first corner keeps convex faces as they are.
        for (std::size_t first = 1; corners.size() > kMaxCorners && first + 1 < corners.size(); ++first) {
            appendFace(corners, first, 2, body);
            ++written;
        }
    }
    if (written == 0) {
        return refuse(why, "it holds no face");
    }
    // The word has to say what appendVertex() has written: beside colours there are no normals.
    mesh = std::string(kind.hasColours   ? "C"
                       : kind.hasNormals ? "N"
                                         : "") +
           "OFF\n" + std::to_string(vertices) + " " + std::to_string(written) + " 0\n" + body;
    return true;
}
