#include <import/mesh/KrGltfText.h>

#include <import/files/KrImportPath.h>
#include <import/mesh/KrMeshTokens.h>

#include <toolkit/foundation/KrLimits.h>
#include <toolkit/foundation/private/KrText.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace
{

using KrMeshTokens::refuse;

using Json = nlohmann::json;

// A value in memory takes many times the bytes of its text.
constexpr std::size_t kMaxValues = std::size_t{4} << 20;
// A file has one, or a few; each may cost a look at the disk.
constexpr std::size_t kMaxBuffers = 256;
// Of nodes, and of primitives: the mesh library takes the square of their number.
constexpr std::size_t kMaxParts = 100000;
constexpr std::uint64_t kMaxStride = 252; // glTF 2.0, section 5.11
// The mesh library keeps eight sets of texture coordinates.
constexpr unsigned int kMaxChannel = 7;
// Of a material, bytes: the name goes on into systems and messages.
constexpr std::size_t kMaxName = 200;
// The mesh library's strings end at 1023 bytes.
constexpr std::size_t kMaxTextureName = 1000;

/// The component types that are of use here, by the format's numbers (glTF 2.0, section 3.6.2.2); integers are those
/// without a sign.
enum Component : unsigned int
{
    Byte = 5121,
    Short = 5123,
    Integer = 5125,
    Float = 5126
};

/// Whether the brackets and commas of a JSON text promise a tree of bearable size. Looked at before the parser runs:
/// afterwards the memory has been taken.
bool isBearable(std::string_view text)
{
    std::size_t values = 0;
    std::size_t depth = 0;
    bool isInString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (isInString) {
            // A quote behind a backslash does not end a string.
            i += c == '\\' ? 1 : 0;
            isInString = c != '"';
        } else if (c == '"') {
            isInString = true;
        } else if (c == '{' || c == '[' || c == ',') {
            depth += c == ',' ? 0 : 1;
            if (++values > kMaxValues || depth > Kr::Limits::kMeshNesting) {
                return false;
            }
        } else if ((c == '}' || c == ']') && depth > 0) {
            --depth;
        }
    }
    return true;
}

/// Null, an absent value, where there is no such member.
const Json& member(const Json& object, const char* name)
{
    // Absent and null are the same to every reader below.
    static const Json none;
    const auto place = object.is_object() ? object.find(name) : object.end();
    return object.is_object() && place != object.end() ? *place : none;
}

/// The entries of an array; none for anything else.
const Json& list(const Json& object, const char* name)
{
    static const Json none = Json::array();
    const Json& found = member(object, name);
    return found.is_array() ? found : none;
}

/// A whole number up to `limit`; `value` stays where there is none, and false is for something else than that.
bool whole(const Json& object, const char* name, std::uint64_t limit, std::uint64_t& value)
{
    const Json& found = member(object, name);
    if (found.is_null()) {
        return true;
    }
    if (!found.is_number_unsigned() || found.get<std::uint64_t>() > limit) {
        return false;
    }
    value = found.get<std::uint64_t>();
    return true;
}

/// Whether `object` has an index below `count` under `name`.
bool index(const Json& object, const char* name, std::size_t count, std::size_t& value)
{
    const Json& found = member(object, name);
    if (!found.is_number_unsigned() || found.get<std::uint64_t>() >= count) {
        return false;
    }
    value = static_cast<std::size_t>(found.get<std::uint64_t>());
    return true;
}

bool areNumbers(const Json& values, std::size_t count)
{
    // Single precision is what they become.
    const auto isNumber = [](const Json& value) { return value.is_number() && std::abs(value.get<double>()) < 3.4e38; };
    return values.is_array() && values.size() == count && std::all_of(values.begin(), values.end(), isNumber);
}

/// Copies the numbers called `name`, when there are `count` of them.
void copyNumbers(const Json& from, const char* name, std::size_t count, Json& to)
{
    const Json& values = member(from, name);
    if (areNumbers(values, count)) {
        to[name] = values;
    }
}

/// RFC 4648, section 4. Padding ends it, and may be left out, as exporters do; line breaks are refused, since a URI
/// has none.
bool decodeBase64(std::string_view text, std::string& bytes)
{
    std::uint32_t bits = 0;
    unsigned int numBits = 0;
    bytes.reserve(text.size() / 4 * 3);
    for (const char c : text) {
        const std::size_t value =
            std::string_view("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/").find(c);
        if (c == '=') {
            break;
        }
        if (value == std::string_view::npos || c == '\0') {
            return false;
        }
        // The three bytes at the bottom are all that is still needed: the rest would overflow.
        bits = (bits << 6 | static_cast<std::uint32_t>(value)) & 0xFFFFFF;
        numBits += 6;
        if (numBits >= 8) {
            numBits -= 8;
            bytes += static_cast<char>(bits >> numBits & 0xFF);
        }
    }
    return true;
}

/// Writes a new document out of what it has checked; no value of the file is passed on unseen.
class Cleaner
{
public:
    Cleaner(const Json& file, std::string_view body, const KrMeshLimits& limits, const KrGltfText::SideReader& side,
            KrGltfText::Mesh& mesh)
        : m_file(file)
        , m_body(body)
        , m_limits(limits)
        , m_side(side)
        , m_mesh(mesh)
    {
    }

    bool run(std::string& why);

private:
    struct View
    {
        bool isThere = false;
        std::uint64_t bytes = 0;
        std::uint64_t stride = 0; ///< 0: values stand close together
    };
    struct Accessor
    {
        bool isThere = false;
        std::uint64_t count = 0;
        unsigned int component = 0;
        std::string type;
    };

    // In this order: each step refers to what the steps before have found to be there.
    bool readBuffers(std::string& why);
    bool bufferContent(const Json& buffer, std::size_t number, std::string& content, std::string& why);
    void readViews();
    void readAccessors();
    void readImages();
    void readMaterials();
    Json textureOf(const Json& info) const;
    bool readMeshes(std::string& why);
    bool readPrimitive(const Json& primitive, Json& primitives, std::string& why);
    Json attributesOf(const Json& primitive, std::uint64_t count) const;
    bool isUsable(const Json& object, const char* name, std::initializer_list<const char*> types,
                  std::initializer_list<unsigned int> components, std::size_t& number) const;
    bool readNodes(std::string& why);
    Json nodeOf(const Json& node) const;

    const Json& m_file;
    std::string_view m_body;
    KrMeshLimits m_limits;
    const KrGltfText::SideReader& m_side;
    KrGltfText::Mesh& m_mesh;
    Json m_result = Json::object();
    std::vector<std::uint64_t> m_bufferBytes;
    std::vector<View> m_views;
    std::vector<Accessor> m_accessors;
    std::uint64_t m_corners = 0;
    std::size_t m_primitives = 0;
    std::size_t m_leftOut = 0; ///< primitives
};

bool Cleaner::run(std::string& why)
{
    m_result["asset"] = {{"version", "2.0"}};
    if (!readBuffers(why)) {
        return false;
    }
    readViews();
    readAccessors();
    readImages();
    readMaterials();
    if (!readMeshes(why) || !readNodes(why)) {
        return false;
    }
    // A file of nothing but compressed primitives would come in as an empty mesh, and nobody would know why.
    if (m_leftOut > 0 && m_corners == 0) {
        return refuse(why, "its primitives are no triangles, or compressed, or refer to what is not there");
    }
    if (m_leftOut > 0) {
        m_mesh.warnings.push_back(std::to_string(m_leftOut) +
                                  " of its primitives are no triangles, or compressed, or refer to what is not there; "
                                  "they are left out");
    }
    // No text in it makes the writer throw: the file was made UTF-8 before it was parsed.
    m_mesh.text = m_result.dump();
    return true;
}

bool Cleaner::readBuffers(std::string& why)
{
    const Json& buffers = list(m_file, "buffers");
    if (buffers.size() > kMaxBuffers) {
        return refuse(why, "it has more than " + std::to_string(kMaxBuffers) + " buffers");
    }
    m_result["buffers"] = Json::array();
    for (std::size_t i = 0; i < buffers.size(); ++i) {
        std::string content;
        if (!bufferContent(buffers[i], i, content, why)) {
            return false;
        }
        if (content.size() > m_limits.maxBytes) {
            return refuse(why, "its buffers are larger than what is read of a mesh file");
        }
        // One bound for all buffers together: what one takes is gone for the next.
        m_limits.maxBytes -= content.size();
        m_bufferBytes.push_back(content.size());
        // Names of our own: those of the file reach nothing but the side reader.
        const std::string name = std::to_string(i) + ".bin";
        m_result["buffers"].push_back({{"byteLength", content.size()}, {"uri", name}});
        m_mesh.files[name] = std::move(content);
    }
    return true;
}

bool Cleaner::bufferContent(const Json& buffer, std::size_t number, std::string& content, std::string& why)
{
    const Json& uri = member(buffer, "uri");
    // A buffer without a name is the body of a GLB, which only the first one can be.
    if (!uri.is_string()) {
        content = number == 0 ? m_body : std::string_view();
        return true;
    }
    const auto& name = uri.get_ref<const std::string&>();
    static constexpr std::string_view kBase64 = ";base64,";
    if (name.compare(0, 5, "data:") == 0) {
        // The mark stands within the first words: a search through megabytes of data would be for nothing.
        const std::size_t at = name.substr(0, 200).find(kBase64);
        return at != std::string::npos ? decodeBase64(std::string_view(name).substr(at + kBase64.size()), content) ||
                                             refuse(why, "a buffer is no base64")
                                       : refuse(why, "a buffer inside it is not written as base64");
    }
    std::string problem;
    // As it stands first: files whose names hold a percent sign exist.
    if (m_side(name, content, problem) || m_side(KrImportPath::percentDecoded(name), content, problem)) {
        return true;
    }
    return refuse(why, "its buffer \"" + KrText::oneLine(name) + "\" cannot be read: " + problem);
}

void Cleaner::readViews()
{
    m_result["bufferViews"] = Json::array();
    for (const Json& view : list(m_file, "bufferViews")) {
        std::size_t buffer = 0;
        std::uint64_t offset = 0;
        std::uint64_t bytes = 0;
        View known;
        // In this order: each bound needs the value before it.
        known.isThere = index(view, "buffer", m_bufferBytes.size(), buffer) &&
                        whole(view, "byteOffset", m_bufferBytes[buffer], offset) &&
                        whole(view, "byteLength", m_bufferBytes[buffer] - offset, bytes) &&
                        whole(view, "byteStride", kMaxStride, known.stride) && bytes > 0;
        known.bytes = bytes;
        m_views.push_back(known);
        // The writer of the file counts on the places of the others, and so do we: accessors refer to them.
        // What is not there keeps its place.
        Json written = {{"buffer", buffer}, {"byteOffset", offset}, {"byteLength", known.isThere ? bytes : 0}};
        if (known.isThere && known.stride > 0) {
            written["byteStride"] = known.stride;
        }
        m_result["bufferViews"].push_back(known.isThere ? written : Json::object());
    }
}

void Cleaner::readAccessors()
{
    // Without matrices, which animations and skins are made of.
    static const std::pair<const char*, std::uint64_t> kTypes[] = {
        {"SCALAR", 1}, {"VEC2", 2}, {"VEC3", 3}, {"VEC4", 4}};
    static const std::pair<std::uint64_t, std::uint64_t> kComponents[] = {
        {Byte, 1}, {Short, 2}, {Integer, 4}, {Float, 4}};
    m_result["accessors"] = Json::array();
    for (const Json& accessor : list(m_file, "accessors")) {
        Accessor known;
        std::size_t view = 0;
        std::uint64_t offset = 0;
        std::uint64_t component = 0;
        const Json& type = member(accessor, "type");
        known.type = type.is_string() ? type.get<std::string>().substr(0, 10) : "";
        // Sparse accessors are zeros with exceptions, used for morph targets, which are left out.
        // In this order, as above. No accessor has more values than its view has bytes.
        bool isGood = index(accessor, "bufferView", m_views.size(), view) && m_views[view].isThere &&
                      member(accessor, "sparse").is_null() &&
                      whole(accessor, "byteOffset", m_views[view].bytes, offset) &&
                      whole(accessor, "componentType", Float, component) &&
                      whole(accessor, "count", m_views[view].bytes, known.count) && known.count > 0;
        const auto isType = [&known](const auto& entry) { return entry.first == known.type; };
        const auto isComponent = [component](const auto& entry) { return entry.first == component; };
        const auto width = std::find_if(std::begin(kTypes), std::end(kTypes), isType);
        const auto bytes = std::find_if(std::begin(kComponents), std::end(kComponents), isComponent);
        isGood = isGood && width != std::end(kTypes) && bytes != std::end(kComponents);
        if (isGood) {
            const std::uint64_t size = width->second * bytes->second;
            const std::uint64_t stride = m_views[view].stride > 0 ? m_views[view].stride : size;
            // No overflow: each factor is bounded by the bytes of a view, and these by the limits of a file.
            isGood = stride >= size && offset + (known.count - 1) * stride + size <= m_views[view].bytes;
        }
        known.isThere = isGood;
        known.component = static_cast<unsigned int>(component);
        m_accessors.push_back(known);
        Json written = Json::object();
        if (isGood) {
            written = {{"bufferView", view},
                       {"byteOffset", offset},
                       {"componentType", component},
                       {"count", known.count},
                       {"type", known.type}};
            const Json& isNormalised = member(accessor, "normalized");
            written["normalized"] = isNormalised.is_boolean() && isNormalised.get<bool>();
        }
        m_result["accessors"].push_back(written);
    }
}

void Cleaner::readImages()
{
    m_result["images"] = Json::array();
    for (const Json& image : list(m_file, "images")) {
        const Json& uri = member(image, "uri");
        const std::string name = uri.is_string() ? uri.get<std::string>() : "";
        const bool isFile = !name.empty() && name.compare(0, 5, "data:") != 0 && name.size() <= kMaxTextureName;
        // An image inside the file is known by its star.
        m_result["images"].push_back({{"uri", isFile && name[0] != '*' ? name : "*"}});
    }
    m_result["textures"] = Json::array();
    for (const Json& texture : list(m_file, "textures")) {
        std::size_t source = 0;
        const bool isThere = index(texture, "source", m_result["images"].size(), source);
        m_result["textures"].push_back(isThere ? Json{{"source", source}} : Json::object());
    }
}

/// Null where it refers to nothing.
Json Cleaner::textureOf(const Json& info) const
{
    std::size_t texture = 0;
    std::uint64_t channel = 0;
    // A texture without an image is an empty object, which keeps its place.
    const Json& textures = m_result["textures"];
    if (!index(info, "index", textures.size(), texture) || textures[texture].empty() ||
        !whole(info, "texCoord", kMaxChannel, channel)) {
        return {};
    }
    return {{"index", texture}, {"texCoord", channel}};
}

void Cleaner::readMaterials()
{
    m_result["materials"] = Json::array();
    for (const Json& material : list(m_file, "materials")) {
        const Json& name = member(material, "name");
        Json written = Json::object();
        // A material without a name stays so: a name that is made up could meet one of the file's.
        if (name.is_string() && !name.get_ref<const std::string&>().empty()) {
            written["name"] = KrText::oneLine(name.get_ref<const std::string&>(), kMaxName);
        }
        const Json& rough = member(material, "pbrMetallicRoughness");
        Json& look = written["pbrMetallicRoughness"] = Json::object();
        copyNumbers(rough, "baseColorFactor", 4, look);
        // The look of older exporters; its colour means the same.
        const Json& glossy = member(member(material, "extensions"), "KHR_materials_pbrSpecularGlossiness");
        if (rough.is_null() && areNumbers(member(glossy, "diffuseFactor"), 4)) {
            look["baseColorFactor"] = member(glossy, "diffuseFactor");
        }
        // Of the kind of look that gives the colour: the two must fit.
        const Json& image =
            member(rough.is_null() ? glossy : rough, rough.is_null() ? "diffuseTexture" : "baseColorTexture");
        for (const char* const factor : {"metallicFactor", "roughnessFactor"}) {
            const Json& value = member(rough, factor);
            // Written so that NaN fails, and so that a value outside is the format's default instead.
            if (value.is_number() && value.get<double>() >= 0.0 && value.get<double>() <= 1.0) {
                look[factor] = value;
            }
        }
        if (const Json texture = textureOf(image); !texture.is_null()) {
            look["baseColorTexture"] = texture;
        }
        copyNumbers(material, "emissiveFactor", 3, written);
        const Json& mode = member(material, "alphaMode");
        if (mode == "MASK" || mode == "BLEND") {
            written["alphaMode"] = mode;
        }
        const Json& bothSides = member(material, "doubleSided");
        written["doubleSided"] = bothSides.is_boolean() && bothSides.get<bool>();
        m_result["materials"].push_back(written);
    }
}

bool Cleaner::readMeshes(std::string& why)
{
    m_result["meshes"] = Json::array();
    for (const Json& mesh : list(m_file, "meshes")) {
        Json primitives = Json::array();
        for (const Json& primitive : list(mesh, "primitives")) {
            if (!readPrimitive(primitive, primitives, why)) {
                return false;
            }
        }
        // Empty ones keep their places, which nodes count.
        m_result["meshes"].push_back({{"primitives", primitives}});
    }
    return true;
}

bool Cleaner::readPrimitive(const Json& primitive, Json& primitives, std::string& why)
{
    std::uint64_t mode = 4; // triangles; strips and fans follow
    std::size_t positions = 0;
    std::size_t indices = 0;
    const bool hasIndices = !member(primitive, "indices").is_null();
    const bool isGood = whole(primitive, "mode", 6, mode) && mode >= 4 &&
                        isUsable(member(primitive, "attributes"), "POSITION", {"VEC3"}, {Float}, positions) &&
                        (!hasIndices || isUsable(primitive, "indices", {"SCALAR"}, {Byte, Short, Integer}, indices));
    // Positions come first: all other attributes must be as many, or the library reads past their ends.
    const std::uint64_t vertices = isGood ? m_accessors[positions].count : 0;
    const std::uint64_t corners = hasIndices && isGood ? m_accessors[indices].count : vertices;
    // Left out, not refused: other primitives of the file may be good.
    if (!isGood || corners < 3) {
        ++m_leftOut;
        return true;
    }
    // Primitives can share their accessors: a small file stands for any number of triangles.
    if (++m_primitives > kMaxParts) {
        return refuse(why, "it has more than " + std::to_string(kMaxParts) + " primitives");
    }
    // Vertices count beside corners: those that no triangle uses cost as much memory. Three of each make a triangle.
    m_corners += vertices + corners;
    if (m_corners / 6 > m_limits.maxTriangles) {
        return refuse(why, "it has more than " + std::to_string(m_limits.maxTriangles) +
                               " triangles, or three times as many vertices");
    }
    Json written = {{"mode", mode}, {"attributes", attributesOf(primitive, vertices)}};
    written["attributes"]["POSITION"] = positions;
    if (hasIndices) {
        written["indices"] = indices;
    }
    std::size_t material = 0;
    if (index(primitive, "material", m_result["materials"].size(), material)) {
        written["material"] = material;
    }
    primitives.push_back(written);
    return true;
}

/// Besides the positions.
Json Cleaner::attributesOf(const Json& primitive, std::uint64_t count) const
{
    const Json& given = member(primitive, "attributes");
    Json written = Json::object();
    const auto add = [&](const std::string& name, std::initializer_list<const char*> types,
                         std::initializer_list<unsigned int> components) {
        std::size_t number = 0;
        const bool isGood =
            isUsable(given, name.c_str(), types, components, number) && m_accessors[number].count == count;
        if (isGood) {
            written[name] = number;
        }
        return isGood;
    };
    // The core of the format knows normals as floats only; other types come with extensions that are not read.
    add("NORMAL", {"VEC3"}, {Float});
    add("COLOR_0", {"VEC4"}, {Byte, Short, Float});
    for (unsigned int channel = 0; channel <= kMaxChannel; ++channel) {
        // They have to follow one another.
        if (!add("TEXCOORD_" + std::to_string(channel), {"VEC2"}, {Float})) {
            break;
        }
    }
    return written;
}

bool Cleaner::isUsable(const Json& object, const char* name, std::initializer_list<const char*> types,
                       std::initializer_list<unsigned int> components, std::size_t& number) const
{
    // In the types that the mesh library reads; values in others are as good as absent.
    if (!index(object, name, m_accessors.size(), number) || !m_accessors[number].isThere) {
        return false;
    }
    const Accessor& accessor = m_accessors[number];
    return std::find(types.begin(), types.end(), accessor.type) != types.end() &&
           std::find(components.begin(), components.end(), accessor.component) != components.end();
}

bool Cleaner::readNodes(std::string& why)
{
    const Json& nodes = list(m_file, "nodes");
    const Json& scenes = list(m_file, "scenes");
    if (nodes.size() > kMaxParts || list(m_file, "meshes").size() > kMaxParts ||
        list(m_file, "materials").size() > Kr::Limits::kMeshMaterials) {
        return refuse(why, "it has more than " + std::to_string(kMaxParts) + " nodes or meshes, or more than " +
                               std::to_string(Kr::Limits::kMeshMaterials) + " materials");
    }
    // Without a scene that is there the first one is shown, as the format asks for a default.
    std::size_t scene = 0;
    index(m_file, "scene", scenes.size(), scene);
    Json written = Json::array();
    Json roots = Json::array();
    std::vector<bool> isPlaced(nodes.size());
    // Depth and number of nodes whose children are still to come.
    std::vector<std::pair<std::size_t, std::size_t>> stack;
    const auto place = [&](const Json& child, std::size_t depth, Json& siblings) {
        if (!child.is_number_unsigned() || child.get<std::uint64_t>() >= nodes.size() ||
            isPlaced[child.get<std::size_t>()]) {
            return; // a node has one place: a tree is what is left
        }
        isPlaced[child.get<std::size_t>()] = true;
        siblings.push_back(child);
        stack.emplace_back(child.get<std::size_t>(), depth);
    };
    // Nodes that no scene places stay, without children: indices count them.
    for (const Json& node : nodes) {
        // A node is written before its place in the tree is known.
        written.push_back(nodeOf(node));
    }
    if (!scenes.empty()) {
        for (const Json& root : list(scenes[scene], "nodes")) {
            place(root, 1, roots);
        }
    }
    while (!stack.empty()) {
        const auto [number, depth] = stack.back();
        stack.pop_back();
        if (depth > Kr::Limits::kMeshNesting) {
            return refuse(why, "its nodes are nested deeper than " + std::to_string(Kr::Limits::kMeshNesting));
        }
        Json children = Json::array();
        for (const Json& child : list(nodes[number], "children")) {
            place(child, depth + 1, children);
        }
        if (!children.empty()) {
            written[number]["children"] = children;
        }
    }
    m_result["nodes"] = written;
    // One scene, the one that is shown: the mesh library has no choice to make.
    m_result["scene"] = 0;
    m_result["scenes"] = Json::array();
    m_result["scenes"].push_back(Json::object({{"nodes", roots}}));
    return true;
}

Json Cleaner::nodeOf(const Json& node) const
{
    Json written = Json::object();
    // One or the other, and the matrix wins: a node with both is against the format, and readers differ.
    if (areNumbers(member(node, "matrix"), 16)) {
        copyNumbers(node, "matrix", 16, written);
    } else {
        copyNumbers(node, "translation", 3, written);
        copyNumbers(node, "rotation", 4, written);
        copyNumbers(node, "scale", 3, written);
    }
    std::size_t mesh = 0;
    // A mesh whose primitives were all left out is placed by nobody.
    if (index(node, "mesh", m_result["meshes"].size(), mesh) && !m_result["meshes"][mesh]["primitives"].empty()) {
        written["mesh"] = mesh;
    }
    return written;
}

/// By hand: the order of the file, whatever that of the machine is.
std::uint32_t littleEndian(std::string_view bytes)
{
    std::uint32_t value = 0;
    for (std::size_t i = 4; i-- > 0;) {
        value = value << 8 | static_cast<unsigned char>(bytes[i]);
    }
    return value;
}

/// Takes the text and the body out of a GLB (glTF 2.0, section 4.4).
bool unpack(std::string_view content, std::string_view& text, std::string_view& body, std::string& why)
{
    static constexpr std::size_t kHeaderBytes = 12;
    static constexpr std::size_t kChunkBytes = 8;
    // "JSON" and "BIN" with a zero, read as numbers.
    static constexpr std::uint32_t kText = 0x4E4F534A;
    static constexpr std::uint32_t kBody = 0x004E4942;
    if (content.size() < kHeaderBytes || content.substr(0, 4) != "glTF" || littleEndian(content.substr(4)) != 2) {
        return refuse(why, "it is no GLB of version 2");
    }
    for (std::string_view rest = content.substr(kHeaderBytes); rest.size() >= kChunkBytes;) {
        const std::uint32_t bytes = littleEndian(rest);
        const std::uint32_t kind = littleEndian(rest.substr(4));
        rest.remove_prefix(kChunkBytes);
        if (bytes > rest.size()) {
            return refuse(why, "it ends inside a chunk");
        }
        std::string_view& target = kind == kText ? text : body;
        // The first of each kind counts; chunks of other kinds are passed over, as the format asks.
        if ((kind == kText || kind == kBody) && target.empty()) {
            target = rest.substr(0, bytes);
        }
        rest.remove_prefix(bytes);
    }
    return !text.empty() || refuse(why, "it holds no JSON");
}

} // namespace

bool KrGltfText::clean(std::string_view content, bool isBinary, const KrMeshLimits& limits, const SideReader& side,
                       Mesh& mesh, std::string& why)
// The body stays a view into the content, which outlives the reading: a large one is copied once only.
{
    std::string_view text = isBinary ? std::string_view() : content;
    std::string_view body;
    if (isBinary && !unpack(content, text, body, why)) {
        return false;
    }
    if (!isBearable(text)) {
        return refuse(why, "its JSON holds more values, or is nested deeper, than can be read");
    }
    std::string read;
    // JSON is UTF-8, and the parser stops at anything else; names in other alphabets are no reason to lose a mesh.
    if (!KrText::isUtf8(text)) {
        read = KrText::utf8(text);
        text = read;
        mesh.warnings.emplace_back("it is no UTF-8; it is read as Latin-1");
    }
    // Without exceptions: what is no JSON becomes a value of no kind, and that is no object.
    const Json file = Json::parse(text.begin(), text.end(), nullptr, false);
    if (!file.is_object()) {
        return refuse(why, "it is no JSON object");
    }
    // Version 1 has another layout under the same words.
    const Json& version = member(member(file, "asset"), "version");
    if (!version.is_string() || version.get_ref<const std::string&>().compare(0, 2, "2.") != 0) {
        return refuse(why, "it is no glTF of version 2");
    }
    return Cleaner(file, body, limits, side, mesh).run(why);
}
