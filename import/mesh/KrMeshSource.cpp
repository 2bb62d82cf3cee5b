#include <import/mesh/KrMeshSource.h>

#include <import/files/KrImportPath.h>
#include <import/mesh/KrColladaText.h>
#include <import/mesh/KrGltfText.h>
#include <import/mesh/KrMeshTokens.h>
#include <import/mesh/KrObjText.h>
#include <import/mesh/KrOffText.h>
#include <import/mesh/KrPlyText.h>
#include <import/mesh/KrStlText.h>

#include <toolkit/foundation/private/KrInputFile.h>
#include <toolkit/foundation/private/KrText.h>

#include <algorithm>
#include <utility>

namespace
{

using KrMeshTokens::refuse;

using Format = KrMeshSource::Format;

// Of the front of a file, where a sign is looked for: XML and JSON may begin with other things than the telling word.
constexpr std::size_t kSignBytes = 4096;

/// Editors begin UTF-8 with a byte order mark, which would be part of the first word.
std::string_view withoutMark(std::string_view content)
{
    static constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (content.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
        content.remove_prefix(kByteOrderMark.size());
    }
    return content;
}

/// The format that `content` has whatever its name says; false when there is no sign of one.
bool formatBySign(std::string_view content, Format& format)
{
    std::string_view begin = withoutMark(content.substr(0, kSignBytes));
    // The words of XML and JSON are looked for in lower case, those of other formats as they are.
    const std::string lower = KrText::lowered(begin);
    // `begin` goes on behind the word; `lower` still has all of it.
    std::string_view word = KrMeshTokens::takeWord(begin);
    if (word.substr(0, 4) == "glTF") {
        format = Format::Glb;
    } else if (word == "ply") {
        format = Format::Ply;
    } else if (word.substr(0, 1) == "<" && lower.find("<collada") != std::string::npos) {
        format = Format::Dae;
    } else if (word.substr(0, 1) == "{" && lower.find("\"asset\"") != std::string::npos) {
        format = Format::Gltf;
    } else if (word == "OFF" || word == "COFF" || word == "NOFF" || word == "CNOFF" || word == "STOFF") {
        format = Format::Off;
        // Last: the word "solid" and a size that fits are weaker signs than the others.
    } else if (KrStlText::isStl(content)) {
        format = Format::Stl;
    } else {
        return false;
    }
    return true;
}

/// For what has no sign: OBJ never has one, OFF and STL may lack theirs.
bool formatByExtension(const std::string& path, Format& format)
{
    static const std::pair<const char*, Format> kExtensions[] = {
        {"stl", Format::Stl}, {"obj", Format::Obj},     {"dae", Format::Dae},
        {"xml", Format::Dae}, {"collada", Format::Dae}, {"ply", Format::Ply},
        {"off", Format::Off}, {"gltf", Format::Gltf},   {"glb", Format::Glb}};
    const std::string extension = KrImportPath::extensionOf(path);
    const auto isIt = [&extension](const auto& entry) { return entry.first == extension; };
    const auto place = std::find_if(std::begin(kExtensions), std::end(kExtensions), isIt);
    if (place == std::end(kExtensions)) {
        return false;
    }
    format = place->second;
    return true;
}

/// A name of our own: readers of the mesh library look at the extension, and nothing of the file's name is theirs to
/// see.
const char* mainName(Format format)
{
    switch (format) {
    case Format::Stl: // handed on as facets
        break;
    case Format::Obj:
        return "mesh.obj";
    case Format::Dae:
        return "mesh.dae";
    case Format::Ply:
        return "mesh.ply";
    case Format::Off:
        return "mesh.off";
    case Format::Gltf:
    case Format::Glb:
        break;
    }
    return "mesh.gltf";
}

/// Reads a mesh file and the files beside it, and keeps what has been cleaned of them.
class Source
{
public:
    Source(const std::string& path, const KrMeshLimits& limits)
        : m_path(path)
        , m_limits(limits)
        , m_bytesLeft(limits.maxBytes)
    {
    }

    bool run(std::string&& content, std::string& why);
    KrMeshSource& result() { return m_result; }

private:
    bool readObj(std::string_view content, std::string& why);
    bool readLibrary(const std::string& name);
    bool readStl(std::string&& content, std::string& why);
    bool readGltf(std::string_view content, std::string& why);
    bool readCollada(std::string&& content, std::string& why);
    bool readPly(std::string&& content, std::string& why);
    bool readSide(const std::string& name, std::string& content, std::string& why);
    void warn(const std::string& text) { m_result.warnings.push_back(text); }

    std::string m_path;
    KrMeshLimits m_limits;
    std::uint64_t m_bytesLeft; ///< for side files
    KrMeshSource m_result;
    std::size_t m_materials = 0;
    bool m_hasForeignNames = false;
};

bool Source::run(std::string&& content, std::string& why)
{
    if (content.empty()) {
        return refuse(why, "it is empty");
    }
    Format byName = Format::Stl;
    const bool isKnown = formatByExtension(m_path, byName);
    // Content before name: meshes are renamed more often than converted, and a reader of another format must not get
    // them.
    if (!formatBySign(content, m_result.format)) {
        if (!isKnown) {
            return refuse(why, "it is in none of the formats that are read: STL, OBJ, DAE, PLY, OFF, glTF, GLB");
        }
        m_result.format = byName;
    }
    m_result.main = mainName(m_result.format);
    switch (m_result.format) {
    case Format::Stl:
        return readStl(std::move(content), why);
    case Format::Obj:
        return readObj(content, why);
    case Format::Off:
        return KrOffText::clean(withoutMark(content), m_limits.maxTriangles, m_result.files[m_result.main], why);
    case Format::Gltf:
    case Format::Glb:
        return readGltf(content, why);
    case Format::Dae:
        return readCollada(std::move(content), why);
    case Format::Ply:
        return readPly(std::move(content), why);
    }
    return false;
}

bool Source::readStl(std::string&& content, std::string& why)
{
    KrStlText::Mesh mesh;
    if (!KrStlText::read(content, m_limits.maxTriangles, mesh, why)) {
        return false;
    }
    // What comes next can have its memory.
    std::string().swap(content);
    // An export that was broken off: the facets that are whole are good.
    if (mesh.isCut) {
        warn("it ends inside a facet; what is before that is read");
    }
    m_result.facets = std::move(mesh.facets);
    return true;
}

bool Source::readObj(std::string_view content, std::string& why)
{
    KrObjText::Mesh mesh;
    if (!KrObjText::cleanMesh(withoutMark(content), m_limits.maxTriangles, mesh, why)) {
        return false;
    }
    m_hasForeignNames = mesh.hasForeignNames;
    // A mesh without its materials is still a mesh: what is wrong with a library is a warning.
    for (const std::string& name : mesh.libraries) {
        readLibrary(name);
    }
    if (m_materials > Kr::Limits::kMeshMaterials) {
        return refuse(why, "it has more than " + std::to_string(Kr::Limits::kMeshMaterials) + " materials");
    }
    if (m_hasForeignNames) {
        warn("names of materials are no UTF-8; they are read as Latin-1");
    }
    // Our own library stands in front: materials must be known before the first one is used.
    m_result.files[m_result.main] = (m_materials > 0 ? "mtllib mesh.mtl\n" : "") + std::move(mesh.text);
    return true;
}

bool Source::readLibrary(const std::string& name)
{
    std::string content;
    std::string why;
    // The rest of the line is one name, or several; many exporters give the library the mesh's own name.
    std::vector<std::string> names{name};
    for (std::string_view rest = name; !rest.empty();) {
        names.emplace_back(KrMeshTokens::takeWord(rest));
    }
    // File names with blanks are as common as several names; the whole line is tried first.
    bool isRead = readSide(names[0], content, why);
    for (std::size_t i = 1; !isRead && i < names.size(); ++i) {
        std::string part;
        std::string ignored;
        if (readSide(names[i], part, ignored)) {
            content += "\n" + part;
        }
    }
    std::string ignored;
    isRead = isRead || !content.empty() || readSide(KrImportPath::stemOf(m_path) + ".mtl", content, ignored);
    if (!isRead) {
        warn("material library \"" + KrText::oneLine(name) + "\" cannot be read: " + why);
        // The names of materials without their looks would be taken for grey ones, and hide what the description says.
        m_result.trustMaterials = false;
        return false;
    }
    const KrObjText::Materials materials = KrObjText::cleanMaterials(withoutMark(content));
    m_materials += materials.count;
    m_hasForeignNames = m_hasForeignNames || materials.hasForeignNames;
    if (materials.strays > 0) {
        warn("material library \"" + KrText::oneLine(name) + "\": what stands before its first material is left out");
    }
    if (materials.hasLongTextureNames) {
        warn("a texture of material library \"" + KrText::oneLine(name) + "\" has too long a name; it is left out");
    }
    // One library of all: the reader finds each material whatever file it was in.
    m_result.files["mesh.mtl"] += materials.text;
    return true;
}

bool Source::readGltf(std::string_view content, std::string& why)
{
    // Buffers beside the file are read by our own door, like all other files.
    const auto side = [this](const std::string& name, std::string& bytes, std::string& problem) {
        return readSide(name, bytes, problem);
    };
    KrGltfText::Mesh mesh;
    const bool isBinary = m_result.format == Format::Glb;
    // A GLB has no byte order mark: it is no text.
    if (!KrGltfText::clean(isBinary ? content : withoutMark(content), isBinary, m_limits, side, mesh, why)) {
        return false;
    }
    m_result.warnings = std::move(mesh.warnings);
    m_result.files = std::move(mesh.files);
    m_result.files[m_result.main] = std::move(mesh.text);
    return true;
}

bool Source::readCollada(std::string&& content, std::string& why)
{
    // The text moves in, so that its memory is given back as soon as there is a tree of it.
    KrColladaText::Mesh mesh;
    if (!KrColladaText::clean(std::move(content), mesh, why)) {
        return false;
    }
    if (mesh.isForeign) {
        warn("it is no UTF-8; it is read as Latin-1");
    }
    m_result.upAxis = std::move(mesh.upAxis);
    m_result.files[m_result.main] = std::move(mesh.text);
    return true;
}

bool Source::readPly(std::string&& content, std::string& why)
{
    if (!KrPlyText::check(content, why)) {
        return false;
    }
    // As it stands, the one format that is not written anew: the check has walked it as the reader will.
    m_result.files[m_result.main] = std::move(content);
    return true;
}

bool Source::readSide(const std::string& name, std::string& content, std::string& why)
{
    const std::string wanted = KrImportPath::withSlashes(name);
    // No file has such a name, and the reason should say so.
    if (wanted.empty() || wanted.size() > Kr::Limits::kPathBytes || wanted.find('\0') != std::string::npos) {
        return refuse(why, wanted.empty() ? "it has no name" : "its name is no file's");
    }
    // An absolute name, of the exporter's machine, comes to lie below the mesh: join() drops the slash.
    const std::string path = KrImportPath::join(KrImportPath::directoryOf(KrImportPath::absolute(m_path)), wanted);
    m_result.sideFiles.push_back(path);
    why = KrInputFile::readWhole(path, KrInputFile::Accept::Files, m_bytesLeft, content);
    if (!why.empty()) {
        return false;
    }
    // All side files together are bounded: a library can be named 64 times.
    m_bytesLeft -= content.size();
    return true;
}

} // namespace

bool KrMeshSource::read(const std::string& path, const KrMeshLimits& limits, KrMeshSource& source, std::string& why)
{
    std::string content;
    // A regular file: a description could name a device that never ends.
    why = KrInputFile::readWhole(path, KrInputFile::Accept::Files, limits.maxBytes, content);
    return why.empty() && readContent(path, std::move(content), limits, source, why);
}

bool KrMeshSource::readContent(const std::string& path, std::string&& content, const KrMeshLimits& limits,
                               KrMeshSource& source, std::string& why)
{
    Source read(path, limits);
    // Given back when this is done: what was made of it is enough.
    std::string own = std::move(content);
    if (!read.run(std::move(own), why)) {
        return false;
    }
    source = std::move(read.result());
    return true;
}
