#include <import/mesh/KrObjText.h>

#include <import/mesh/KrMeshTokens.h>

#include <toolkit/foundation/KrLimits.h>
#include <toolkit/foundation/private/KrText.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <map>

namespace
{

using KrMeshTokens::takeLine;
using KrMeshTokens::takeNumber;
using KrMeshTokens::takeWord;
using KrText::trimmed;

// Of a material, bytes: the name goes on into systems and messages.
constexpr std::size_t kMaxName = 200;
// Each may cost a look at the disk; real files name one.
constexpr std::size_t kMaxLibraries = 64;
// The mesh library's strings end at 1023 bytes.
constexpr std::size_t kMaxTextureName = 1000;

/// A material's name as it is written; `isForeign` is set for one that is no UTF-8.
std::string materialName(std::string_view text, bool& isForeign)
{
    const std::string_view name = trimmed(text);
    isForeign = isForeign || !KrText::isUtf8(name);
    return KrText::oneLine(name, kMaxName);
}

/// Goes through the statements of a file: lines, those that end with a backslash joined to the next, without comments.
class Statements
{
public:
    explicit Statements(std::string_view content)
        : m_rest(content)
    {
    }

    bool next();
    std::string_view word() const { return m_word; }
    /// What follows the word.
    std::string_view rest() const { return m_line; }

private:
    std::string_view m_rest;
    std::string_view m_line;
    std::string_view m_word;
    std::string m_joined;
};

bool Statements::next()
{
    do {
        if (!takeLine(m_rest, m_line)) {
            return false;
        }
        m_joined.clear();
        // The backslash that joins lines may be the last byte of the file.
        while (!m_line.empty() && m_line.back() == '\\') {
            m_joined.append(m_line.substr(0, m_line.size() - 1)) += ' ';
            if (!takeLine(m_rest, m_line)) {
                m_line = {};
            }
        }
        // Only joined lines are copied; the others are used where they stand.
        if (!m_joined.empty()) {
            m_joined.append(m_line);
            m_line = m_joined;
        }
        m_word = takeWord(m_line);
    } while (m_word.empty() || m_word.front() == '#');
    return true;
}

/// @param count  6 at most: a place and a colour
void appendNumbers(std::string& text, const double* numbers, std::size_t count)
{
    char line[6 * (KrMeshTokens::kNumberBytes + 1) + 1];
    char* end = line;
    for (std::size_t i = 0; i < count; ++i) {
        *end++ = ' ';
        end = KrMeshTokens::putNumber(end, numbers[i]);
    }
    *end++ = '\n';
    text.append(line, end);
}

/// Up to the first word that is no number. @return how many
std::size_t takeNumbers(std::string_view line, double* numbers, std::size_t count)
{
    std::size_t taken = 0;
    while (taken < count && takeNumber(line, numbers[taken])) {
        ++taken;
    }
    return taken;
}

/// Writes the mesh anew: vertices first, then faces by material, all indices counted from the front and checked.
class MeshCleaner
{
public:
    MeshCleaner(std::string_view content, std::uint64_t maxTriangles, KrObjText::Mesh& mesh)
        : m_content(content)
        , m_maxTriangles(maxTriangles)
        , m_mesh(mesh)
    {
    }

    bool run(std::string& why);

private:
    /// Of vertex, texture coordinates and normal, from 1; 0 for none.
    using Corner = std::array<std::uint64_t, 3>;

    void count();
    bool takeStatement(const Statements& statements);
    bool addFace(std::string_view line);
    bool takeCorner(std::string_view word, Corner& corner) const;
    bool useMaterial(std::string_view name);
    bool fail(const std::string& why)
    {
        m_why = why;
        return false;
    }

    std::string_view m_content;
    std::uint64_t m_maxTriangles;
    KrObjText::Mesh& m_mesh;
    std::string m_why;
    Corner m_counts{}; ///< in the whole file
    Corner m_seen{};   ///< so far
    bool m_areAllColoured = true;
    std::uint64_t m_triangles = 0;
    std::vector<Corner> m_corners; ///< of the face in hand
    std::map<std::string, std::size_t> m_places;
    // Exporters switch materials for every few faces, and the mesh library makes a mesh for each `usemtl`: a thousand
    // switches among three materials were a thousand meshes.
    std::vector<std::string> m_faces{std::string()}; ///< by material; the first ones have none
    std::vector<std::string> m_names{std::string()};
    std::size_t m_place = 0;
};

bool MeshCleaner::run(std::string& why)
{
    // Two passes, since a face may name what stands behind it, and whether all vertices have colours is known at the
    // end.
    count();
    // About as long as what it is made of.
    m_mesh.text.reserve(m_content.size());
    for (Statements statements(m_content); statements.next();) {
        if (!takeStatement(statements)) {
            why = m_why;
            return false;
            // The reasons of several functions: kept in the object until here.
        }
    }
    if (m_triangles == 0) {
        why = "it holds no face";
        return false;
    }
    for (std::size_t i = 0; i < m_faces.size(); ++i) {
        if (!m_names[i].empty() && !m_faces[i].empty()) {
            m_mesh.text += "usemtl " + m_names[i] + "\n";
        }
        m_mesh.text += m_faces[i];
        // Given back while it goes on: else the text would be in memory twice.
        m_faces[i] = std::string();
    }
    return true;
}

/// Faces may name what stands behind them.
void MeshCleaner::count()
{
    for (Statements statements(m_content); statements.next();) {
        const std::string_view word = statements.word();
        if (word == "v") {
            // A seventh is asked for to see that there are no more than six.
            double numbers[7] = {};
            // Six numbers are a place and a colour; colours count only where every vertex has one.
            m_areAllColoured = m_areAllColoured && takeNumbers(statements.rest(), numbers, 7) == 6;
            ++m_counts[0];
        }
        m_counts[1] += word == "vt";
        m_counts[2] += word == "vn";
    }
}

bool MeshCleaner::takeStatement(const Statements& statements)
{
    const std::string_view word = statements.word();
    const std::size_t kind = word == "v" ? 0 : word == "vt" ? 1 : word == "vn" ? 2 : 3;
    if (kind < 3) {
        // Numbers that are missing are zeros: the statement keeps its place, because faces count them.
        double numbers[6] = {};
        takeNumbers(statements.rest(), numbers, 6);
        ++m_seen[kind];
        m_mesh.text += word;
        appendNumbers(m_mesh.text, numbers, kind == 1 ? 2 : kind == 0 && m_areAllColoured ? 6 : 3);
        return true;
    }
    // "fo" is an old word for the same.
    if (word == "f" || word == "fo") {
        return addFace(statements.rest());
    }
    if (word == "usemtl") {
        return useMaterial(statements.rest());
    }
    if (word == "mtllib" && m_mesh.libraries.size() < kMaxLibraries) {
        const std::string name(trimmed(statements.rest()));
        std::vector<std::string>& libraries = m_mesh.libraries;
        // Exporters repeat the line for every part.
        if (std::find(libraries.begin(), libraries.end(), name) == libraries.end()) {
            libraries.push_back(name);
        }
    }
    return true;
}

bool MeshCleaner::addFace(std::string_view line)
{
    m_corners.clear();
    bool hasCoordinates = true;
    bool hasNormals = true;
    for (std::string_view word = takeWord(line); !word.empty() && word.front() != '#'; word = takeWord(line)) {
        Corner corner{};
        if (!takeCorner(word, corner)) {
            return fail("the corner \"" + KrText::oneLine(word, 40) + "\" of a face is a vertex that is not there");
        }
        hasCoordinates = hasCoordinates && corner[1] > 0;
        hasNormals = hasNormals && corner[2] > 0;
        m_corners.push_back(corner);
    }
    // Points and lines written as faces draw nothing.
    if (m_corners.size() < 3) {
        return true;
    }
    m_triangles += m_corners.size() - 2;
    if (m_triangles > m_maxTriangles) {
        return fail("it has more than " + std::to_string(m_maxTriangles) + " triangles");
    }
    // All corners of a face have coordinates, or none: the lists of a face are of one length. Normals likewise.
    std::string& text = m_faces[m_place];
    text += 'f';
    // As the format has them: "v", "v/t", "v//n" or "v/t/n". One text for each corner: it is the most of many files.
    for (const Corner& corner : m_corners) {
        char words[70];
        char* end = words;
        const auto append = [&](char sign, std::uint64_t number) {
            *end++ = sign;
            end = number > 0 ? std::to_chars(end, words + sizeof words, number).ptr : end;
        };
        append(' ', corner[0]);
        if (hasCoordinates || hasNormals) {
            append('/', hasCoordinates ? corner[1] : 0);
        }
        if (hasNormals) {
            append('/', corner[2]);
        }
        text.append(words, end);
    }
    text += '\n';
    return true;
}

/// False without a vertex that is there. Coordinates and normals that are not there are left out.
bool MeshCleaner::takeCorner(std::string_view word, Corner& corner) const
{
    for (std::size_t kind = 0; kind < 3 && !word.empty(); ++kind) {
        const std::string_view part = word.substr(0, word.find('/'));
        word.remove_prefix(std::min(part.size() + 1, word.size()));
        std::int64_t number = 0;
        const std::from_chars_result end = std::from_chars(part.data(), part.data() + part.size(), number);
        const bool isNumber = end.ec == std::errc() && end.ptr == part.data() + part.size();
        // Negative ones count backwards from here.
        const std::int64_t place = number < 0 ? static_cast<std::int64_t>(m_seen[kind]) + 1 + number : number;
        const bool isThere = isNumber && place > 0 && static_cast<std::uint64_t>(place) <= m_counts[kind];
        corner[kind] = isThere ? static_cast<std::uint64_t>(place) : 0;
    }
    return corner[0] > 0;
}

bool MeshCleaner::useMaterial(std::string_view name)
{
    const std::string clean = materialName(name, m_mesh.hasForeignNames);
    // A name that is missing leaves the material as it was.
    if (clean.empty()) {
        return true;
    }
    // Names are compared as they are written, after cleaning: two foreign names may become one, and one look.
    const auto [place, isNew] = m_places.emplace(clean, m_faces.size());
    if (isNew) {
        m_faces.emplace_back();
        m_names.push_back(clean);
    }
    m_place = place->second;
    return m_faces.size() <= Kr::Limits::kMeshMaterials + 1 ||
           fail("it has more than " + std::to_string(Kr::Limits::kMeshMaterials) + " materials");
}

/// The image that a texture statement names, behind its options.
std::string_view imageOf(std::string_view line)
{
    static const std::pair<std::string_view, std::size_t> kOptions[] = {
        {"-blendu", 1}, {"-blendv", 1}, {"-boost", 1}, {"-bm", 1}, {"-cc", 1}, {"-clamp", 1}, {"-imfchan", 1},
        {"-texres", 1}, {"-type", 1},   {"-mm", 2},    {"-o", 3},  {"-s", 3},  {"-t", 3}};
    for (line = trimmed(line); !line.empty() && line.front() == '-'; line = trimmed(line)) {
        std::string_view behind = line;
        const std::string option = KrText::lowered(takeWord(behind));
        const auto isIt = [&option](const auto& entry) { return entry.first == option; };
        const auto place = std::find_if(std::begin(kOptions), std::end(kOptions), isIt);
        if (place == std::end(kOptions)) {
            // An option that is unknown may as well be a name: what follows cannot be told apart.
            break; // a file's name
        }
        for (std::size_t i = 0; i < place->second; ++i) {
            std::string_view next = behind;
            double number = 0.0;
            // One to three numbers may follow these.
            if (place->second == 3 && i > 0 && !takeNumber(next, number)) {
                break;
            }
            takeWord(behind);
        }
        line = behind;
    }
    return line;
}

} // namespace

bool KrObjText::cleanMesh(std::string_view content, std::uint64_t maxTriangles, Mesh& mesh, std::string& why)
{
    return MeshCleaner(content, maxTriangles, mesh).run(why);
}

KrObjText::Materials KrObjText::cleanMaterials(std::string_view content)
{
    // The statements that make a look, and their numbers; other ones are not read.
    static const std::pair<std::string_view, std::size_t> kStatements[] = {{"kd", 3}, {"ks", 3}, {"ke", 3},   {"ns", 1},
                                                                           {"d", 1},  {"tr", 1}, {"illum", 1}};
    static const char* const kNames[] = {"Kd", "Ks", "Ke", "Ns", "d", "Tr", "illum"};
    Materials materials;
    for (Statements statements(content); statements.next();) {
        const std::string word = KrText::lowered(statements.word());
        if (word == "newmtl") {
            const std::string name = materialName(statements.rest(), materials.hasForeignNames);
            // Cleaned in the same way as by `usemtl`, so that the two still meet.
            materials.text += "newmtl " + (name.empty() ? "unnamed" : name) + "\n";
            ++materials.count;
            continue;
        }
        if (materials.count == 0) {
            ++materials.strays;
            continue;
        }
        if (word == "map_kd") {
            const std::string_view image = imageOf(statements.rest());
            materials.hasLongTextureNames = materials.hasLongTextureNames || image.size() > kMaxTextureName;
            if (!image.empty() && image.size() <= kMaxTextureName) {
                // A name that begins with a dash would be read as an option.
                materials.text += "map_Kd " + std::string(image.front() == '-' ? "./" : "") + std::string(image) + "\n";
            }
            continue;
        }
        const auto isIt = [&word](const auto& entry) { return entry.first == word; };
        const auto place = std::find_if(std::begin(kStatements), std::end(kStatements), isIt);
        if (place == std::end(kStatements)) {
            continue;
        }
        double numbers[3] = {};
        const std::size_t taken = takeNumbers(statements.rest(), numbers, place->second);
        // A statement without numbers would become black, or invisible.
        if (taken == 0) {
            continue;
        }
        // One number stands for a grey.
        std::fill(numbers + taken, numbers + 3, taken == 1 ? numbers[0] : 0.0);
        materials.text += kNames[place - std::begin(kStatements)];
        appendNumbers(materials.text, numbers, place->second);
    }
    return materials;
}
