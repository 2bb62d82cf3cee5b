#include <import/KrMeshFile.h>

#include <import/KrColladaText.h>
#include <import/KrImportPath.h>
#include <import/KrMeshLook.h>
#include <import/KrMeshPlausibility.h>
#include <import/KrVectorIndex.h>

#include <assimp/DefaultIOSystem.h>
#include <assimp/Importer.hpp>
#include <assimp/MemoryIOWrapper.h>
#include <assimp/commonMetaData.h>
#include <assimp/config.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <Eigen/Dense>

#include <algorithm>
#include <cmath>
#include <exception>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <utility>

namespace
{

constexpr std::uintmax_t kMaxBytes = std::uintmax_t(1) << 30;
// A small file can place one mesh very often; nothing drawable is as large as this.
constexpr std::size_t kMaxTriangles = 20u << 20;
constexpr std::size_t kMaxVertices = 3 * kMaxTriangles;
// Normals written with few digits are not exactly of unit length.
constexpr double kNormalTolerance = 0.01;

/// A mesh file, with the text that the mesh library is to see in place of the file's; empty for the file's own.
struct Content
{
    std::string path;
    std::string text;
};

/// Remembers which files a mesh file names that are not there: material libraries, mostly. Gives `content` for its
/// path.
class WatchingIo : public Assimp::DefaultIOSystem
{
public:
    WatchingIo(const Content& content, std::set<std::string>& missing)
        : m_content(content)
        , m_missing(missing)
    {
    }
    bool Exists(const char* file) const override
    {
        const bool exists = DefaultIOSystem::Exists(file);
        if (!exists) {
            m_missing.insert(file);
        }
        return exists;
    }
    Assimp::IOStream* Open(const char* file, const char* mode) override
    {
        if (!m_content.text.empty() && file == m_content.path) {
            const auto* const data = reinterpret_cast<const std::uint8_t*>(m_content.text.data());
            return new Assimp::MemoryIOStream(data, m_content.text.size());
        }
        Assimp::IOStream* const stream = DefaultIOSystem::Open(file, mode);
        if (!stream) {
            m_missing.insert(file);
        }
        return stream;
    }

private:
    const Content& m_content;
    std::set<std::string>& m_missing;
};

Eigen::Matrix4d matrixOf(const aiMatrix4x4& m)
{
    Eigen::Matrix4d matrix;
    matrix << m.a1, m.a2, m.a3, m.a4, m.b1, m.b2, m.b3, m.b4, m.c1, m.c2, m.c3, m.c4, m.d1, m.d2, m.d3, m.d4;
    return matrix;
}

KrVector vectorOf(const Eigen::Vector3d& v)
{
    return {v.x(), v.y(), v.z()};
}

Eigen::Vector3d vectorOf(const aiVector3D& v)
{
    return {v.x, v.y, v.z};
}

bool isTriangles(const aiMesh& mesh)
{
    return (mesh.mPrimitiveTypes & aiPrimitiveType_TRIANGLE) != 0 && mesh.mVertices && mesh.mFaces;
}

bool hasValidIndices(const aiScene& scene)
{
    for (unsigned int i = 0; i < scene.mNumMeshes; ++i) {
        const aiMesh& mesh = *scene.mMeshes[i];
        const auto isValid = [&mesh](unsigned int index) { return index < mesh.mNumVertices; };
        const auto isWhole = [&isValid](const aiFace& face) {
            return face.mNumIndices == 0 ||
                   (face.mIndices && std::all_of(face.mIndices, face.mIndices + face.mNumIndices, isValid));
        };
        if (!std::all_of(mesh.mFaces, mesh.mFaces + mesh.mNumFaces, isWhole)) {
            return false;
        }
    }
    return true;
}

/// Takes faces without corners out and says what kinds are left: where the two do not fit, the triangulation ends the
/// process.
void tidyFaces(aiMesh& mesh)
{
    unsigned int kept = 0;
    unsigned int types = 0;
    for (unsigned int i = 0; i < mesh.mNumFaces; ++i) {
        aiFace& face = mesh.mFaces[i];
        if (face.mNumIndices > 0 && face.mIndices) {
            types |= AI_PRIMITIVE_TYPE_FOR_N_INDICES(face.mNumIndices);
            std::swap(mesh.mFaces[kept].mNumIndices, face.mNumIndices);
            std::swap(mesh.mFaces[kept++].mIndices, face.mIndices);
        }
    }
    mesh.mNumFaces = kept;
    mesh.mPrimitiveTypes = types ? types : static_cast<unsigned int>(aiPrimitiveType_POINT);
}

/// The vertices that a triangle uses.
std::vector<bool> usedVertices(const aiMesh& mesh)
{
    std::vector<bool> isUsed(mesh.mNumVertices);
    for (unsigned int i = 0; i < mesh.mNumFaces; ++i) {
        const aiFace& face = mesh.mFaces[i];
        for (unsigned int corner = 0; face.mNumIndices == 3 && corner < 3; ++corner) {
            isUsed[face.mIndices[corner]] = true;
        }
    }
    return isUsed;
}

class Collector
{
public:
    Collector(const aiScene& scene, const std::string& path, KrMeshData& data)
        : m_scene(scene)
        , m_path(path)
        , m_data(data)
    {
        aiString format;
        if (scene.mMetaData) {
            scene.mMetaData->Get(AI_METADATA_SOURCE_FORMAT, format);
        }
        const std::string name = format.C_Str();
        m_isStl = name.find("STL") != std::string::npos;
        m_isGltf = name.find("glTF2") != std::string::npos;
        m_isNameless = name.find("OFF") != std::string::npos || name.find("PLY") != std::string::npos;
        m_isCollada = name.find("Collada") != std::string::npos;
    }

    /// @param trustMaterials  false when the file that defines them is not there
    bool run(bool trustMaterials, std::string& why);

private:
    bool addNodes(std::string& why);
    void addMesh(const aiMesh& mesh, const Eigen::Matrix4d& nodeToFile);
    std::vector<std::uint32_t> addNormals(const aiMesh& mesh, const std::vector<bool>& isUsed,
                                          const Eigen::Matrix3d& linear);
    const std::vector<std::uint32_t>& addTextureCoordinates(const aiMesh& mesh, const std::vector<bool>& isUsed);
    bool isFilledIn(unsigned int material) const;
    KrMeshData::Group& groupOf(const aiMesh& mesh);
    KrMeshData::Group* colorGroup(const aiMesh& mesh, bool hasLook);
    void fillLook(const KrMeshLook::Look& look, bool hasCoordinates, KrMeshData::Group& group);
    void placeTexture(const KrMeshLook::Look& look, bool hasCoordinates, KrDataMap& data);
    void readLooks(bool trustMaterials);
    std::string uniqueName(const std::string& name);
    void warn(const std::string& text);

    const aiScene& m_scene;
    std::string m_path;
    KrMeshData& m_data;
    bool m_isStl = false;
    bool m_isCollada = false;
    bool m_isGltf = false;
    bool m_isNameless = false; ///< materials never have names
    bool m_isColorTold = false;
    std::size_t m_triangles = 0;
    std::size_t m_numVertices = 0; ///< of all instances
    KrVectorIndex m_vertices;
    KrVectorIndex m_normals;
    std::vector<KrMeshLook::Look> m_looks;
    std::map<std::pair<unsigned int, bool>, std::size_t> m_groups; ///< by material and whether its texture can be used
    std::map<std::string, std::size_t> m_colorGroups;              ///< by the colour of all vertices
    std::map<const aiMesh*, std::vector<std::uint32_t>> m_coordinates; ///< of texture, by vertex
    std::set<std::string> m_names;
};

bool Collector::run(bool trustMaterials, std::string& why)
{
    readLooks(trustMaterials);
    if (!addNodes(why)) {
        return false;
    }
    m_data.vertices = m_vertices.take();
    m_data.normals = m_normals.take();
    if (m_isCollada && m_scene.mRootNode) {
        // The reader scales the root node, which has no transformation of its own, by the file's unit.
        m_data.unit = matrixOf(m_scene.mRootNode->mTransformation).block<3, 1>(0, 0).norm();
    }
    return true;
}

void Collector::readLooks(bool trustMaterials)
{
    std::set<unsigned int> used;
    for (unsigned int i = 0; i < m_scene.mNumMeshes; ++i) {
        if (isTriangles(*m_scene.mMeshes[i])) {
            used.insert(m_scene.mMeshes[i]->mMaterialIndex);
        }
    }
    bool isAllClear = true;
    for (unsigned int i = 0; i < m_scene.mNumMaterials; ++i) {
        m_looks.push_back(KrMeshLook::read(*m_scene.mMaterials[i]));
        m_looks.back().isOwn = trustMaterials && !isFilledIn(i);
        isAllClear = isAllClear && (!used.count(i) || m_looks.back().opacity == 0.0);
    }
    // Exporters disagree whether 0 or 1 is opaque; a mesh that could not be seen at all was meant to be.
    for (KrMeshLook::Look& look : m_looks) {
        if (isAllClear && look.opacity == 0.0) {
            look.opacity = 1.0;
            KrMeshLook::setOpacity(look.data, 1.0);
        }
    }
    if (isAllClear && !used.empty()) {
        warn("every material has opacity 0; they are read as opaque");
    }
}

/// Whether the reader made the material up because the file gives none.
bool Collector::isFilledIn(unsigned int material) const
{
    const aiMaterial& filled = *m_scene.mMaterials[material];
    const KrMeshLook::Look& look = m_looks[material];
    if (m_isGltf) {
        return material + 1 == m_scene.mNumMaterials; // it stands behind the file's own
    }
    if (m_isNameless) {
        // A material of the file's own tells its opacity.
        float opacity = 1.0f;
        return look.texture.empty() && filled.Get(AI_MATKEY_OPACITY, opacity) != aiReturn_SUCCESS;
    }
    return m_isStl || filled.mNumProperties == 0 || look.name == AI_DEFAULT_MATERIAL_NAME;
}

bool Collector::addNodes(std::string& why)
{
    std::vector<std::pair<const aiNode*, Eigen::Matrix4d>> stack;
    if (m_scene.mRootNode) {
        stack.emplace_back(m_scene.mRootNode, Eigen::Matrix4d::Identity());
    }
    while (!stack.empty()) {
        const auto [node, parentToFile] = stack.back();
        stack.pop_back();
        const Eigen::Matrix4d nodeToFile = parentToFile * matrixOf(node->mTransformation);
        for (unsigned int i = 0; i < node->mNumMeshes; ++i) {
            const aiMesh& mesh = *m_scene.mMeshes[node->mMeshes[i]];
            m_triangles += mesh.mNumFaces;
            m_numVertices += mesh.mNumVertices;
            if (m_triangles > kMaxTriangles || m_numVertices > kMaxVertices) {
                why = "it has more than " + std::to_string(kMaxTriangles) + " triangles or " +
                      std::to_string(kMaxVertices) + " vertices";
                return false;
            }
            if (isTriangles(mesh)) {
                addMesh(mesh, nodeToFile);
            }
        }
        for (unsigned int i = node->mNumChildren; i-- > 0;) {
            stack.emplace_back(node->mChildren[i], nodeToFile);
        }
    }
    return true;
}

void Collector::addMesh(const aiMesh& mesh, const Eigen::Matrix4d& nodeToFile)
{
    const Eigen::Matrix3d linear = nodeToFile.block<3, 3>(0, 0);
    const Eigen::Vector3d offset = nodeToFile.block<3, 1>(0, 3);
    const bool isMirrored = linear.determinant() < 0.0;
    const std::vector<bool> isUsed = usedVertices(mesh);
    std::vector<std::uint32_t> vertices(mesh.mNumVertices);
    for (unsigned int i = 0; i < mesh.mNumVertices; ++i) {
        if (isUsed[i]) {
            vertices[i] = m_vertices.add(vectorOf(linear * vectorOf(mesh.mVertices[i]) + offset));
        }
    }
    const std::vector<std::uint32_t> normals = addNormals(mesh, isUsed, linear);
    const std::vector<std::uint32_t>& coordinates = addTextureCoordinates(mesh, isUsed);

    std::vector<KrTriangle>& triangles = groupOf(mesh).triangles;
    triangles.reserve(triangles.size() + mesh.mNumFaces);
    for (unsigned int i = 0; i < mesh.mNumFaces; ++i) {
        const aiFace& face = mesh.mFaces[i];
        if (face.mNumIndices != 3) {
            continue;
        }
        KrTriangle triangle;
        for (unsigned int corner = 0; corner < 3; ++corner) {
            const unsigned int index = face.mIndices[isMirrored ? 2 - corner : corner];
            triangle.setCorner(corner, vertices[index], normals[index], coordinates[index]);
        }
        triangles.push_back(triangle);
    }
}

std::vector<std::uint32_t> Collector::addNormals(const aiMesh& mesh, const std::vector<bool>& isUsed,
                                                 const Eigen::Matrix3d& linear)
{
    std::vector<std::uint32_t> indices(mesh.mNumVertices, KrMeshData::noNormal);
    // The facet normals of an STL file tell nothing that its triangles do not, and are often wrong.
    if (m_isStl || !mesh.mNormals || linear.determinant() == 0.0) {
        return indices;
    }
    const Eigen::Matrix3d normalMatrix = linear.inverse().transpose();
    for (unsigned int i = 0; i < mesh.mNumVertices; ++i) {
        const Eigen::Vector3d given = vectorOf(mesh.mNormals[i]);
        const Eigen::Vector3d turned = normalMatrix * given;
        const double length = turned.norm();
        if (isUsed[i] && std::abs(given.norm() - 1.0) <= kNormalTolerance && length > 0.0 && std::isfinite(length)) {
            indices[i] = m_normals.add(vectorOf(turned / length));
        }
    }
    return indices;
}

/// Their indices by vertex, the same ones for every instance of the mesh; 0 when it has none.
const std::vector<std::uint32_t>& Collector::addTextureCoordinates(const aiMesh& mesh, const std::vector<bool>& isUsed)
{
    const auto [place, isNew] = m_coordinates.emplace(&mesh, std::vector<std::uint32_t>());
    std::vector<std::uint32_t>& indices = place->second;
    if (!isNew) {
        return indices;
    }
    indices.resize(mesh.mNumVertices);
    const unsigned int channel = mesh.mMaterialIndex < m_looks.size() ? m_looks[mesh.mMaterialIndex].textureChannel : 0;
    const aiVector3D* const list =
        mesh.HasTextureCoords(channel) ? mesh.mTextureCoords[channel] : mesh.mTextureCoords[0];
    for (unsigned int i = 0; list && i < mesh.mNumVertices; ++i) {
        if (isUsed[i]) {
            const bool isUsable = std::isfinite(list[i].x) && std::isfinite(list[i].y);
            indices[i] = static_cast<std::uint32_t>(m_data.textureCoordinates.size());
            m_data.textureCoordinates.emplace_back(isUsable ? list[i].x : 0.0, isUsable ? list[i].y : 0.0);
        }
    }
    return indices;
}

/// The group of the colour that all vertices have; null when there is none to use.
KrMeshData::Group* Collector::colorGroup(const aiMesh& mesh, bool hasLook)
{
    const aiColor4D* const colors = mesh.mColors[0];
    if (!colors || mesh.mNumVertices == 0) {
        return nullptr;
    }
    const bool isOne =
        std::all_of(colors, colors + mesh.mNumVertices, [colors](const aiColor4D& c) { return c == colors[0]; });
    if (!isOne || hasLook || m_isStl) {
        const bool isWhite = isOne && colors[0] == aiColor4D(1.0f, 1.0f, 1.0f, 1.0f);
        if (!m_isColorTold && !isWhite) {
            warn("the colours of its vertices are not used");
            m_isColorTold = true;
        }
        return nullptr;
    }
    const KrMeshLook::Look look = KrMeshLook::ofColor(colors[0]);
    const auto [place, isNew] = m_colorGroups.emplace(look.name, m_data.groups.size());
    if (isNew) {
        m_data.groups.emplace_back();
        fillLook(look, false, m_data.groups.back());
    }
    return &m_data.groups[place->second];
}

KrMeshData::Group& Collector::groupOf(const aiMesh& mesh)
{
    const KrMeshLook::Look none;
    const bool isKnown = mesh.mMaterialIndex < m_looks.size();
    const KrMeshLook::Look& look = isKnown ? m_looks[mesh.mMaterialIndex] : none;
    const bool hasCoordinates = mesh.HasTextureCoords(0) || mesh.HasTextureCoords(look.textureChannel);
    const bool isTextured = !look.texture.empty() && hasCoordinates;
    if (KrMeshData::Group* const colored = colorGroup(mesh, isKnown && look.isOwn)) {
        return *colored;
    }
    const auto [place, isNew] = m_groups.emplace(std::make_pair(mesh.mMaterialIndex, isTextured), m_data.groups.size());
    if (isNew) {
        m_data.groups.emplace_back();
        if (isKnown && look.isOwn) {
            fillLook(look, hasCoordinates, m_data.groups.back());
        }
    }
    return m_data.groups[place->second];
}

void Collector::fillLook(const KrMeshLook::Look& look, bool hasCoordinates, KrMeshData::Group& group)
{
    group.hasLook = true;
    group.name = uniqueName(look.name.empty() ? "material" : look.name);
    group.look = look.data;
    if (!look.texture.empty()) {
        placeTexture(look, hasCoordinates, group.look);
    }
}

void Collector::placeTexture(const KrMeshLook::Look& look, bool hasCoordinates, KrDataMap& data)
{
    std::vector<std::string> tried;
    const std::string name = "texture \"" + look.texture.substr(0, 120) + "\"";
    if (look.isEmbedded || m_scene.GetEmbeddedTexture(look.texture.c_str())) {
        warn(name + " lies inside the mesh file; only its material's colour is used");
        return;
    }
    if (!hasCoordinates) {
        warn(name + " is given for triangles without texture coordinates; only the colour is used");
        return;
    }
    const std::string image = KrMeshLook::findTexture(m_path, look.texture, tried);
    if (image.empty()) {
        std::string list;
        for (const std::string& path : tried) {
            list += (list.empty() ? "" : ", ") + path;
        }
        warn(name + " is missing; only the colour is used (tried " + list + ")");
        return;
    }
    if (image != tried.front()) {
        warn(name + " is taken from " + image);
    }
    KrMeshLook::setTexture(data, image);
    m_data.textures.push_back(image);
}

std::string Collector::uniqueName(const std::string& name)
{
    std::string unique = name;
    for (unsigned int i = 2; !m_names.insert(unique).second; ++i) {
        unique = name + " " + std::to_string(i);
    }
    return unique;
}

void Collector::warn(const std::string& text)
{
    m_data.warnings.push_back(text);
}

bool isMissingLibrary(const std::string& file)
{
    return KrImportPath::extensionOf(file) == "mtl";
}

/// The extension of the format that the mesh library will read a file as; empty when it goes by the content.
std::string formatOf(const std::string& path)
{
    const std::string extension = KrImportPath::extensionOf(path);
    if (extension == "xml" || extension == "collada") {
        return "dae";
    }
    return Assimp::Importer().IsExtensionSupported("." + extension) ? extension : "";
}

/// False for a file that the mesh library had better not see.
bool readContent(std::size_t size, Content& content, std::string& why)
{
    const std::string format = formatOf(content.path);
    if (!KrMeshPlausibility::concerns(format)) {
        return true;
    }
    std::string text(size, '\0');
    std::ifstream stream(content.path, std::ios::binary);
    stream.read(&text[0], static_cast<std::streamsize>(size));
    text.resize(static_cast<std::size_t>(stream.gcount()));
    const bool isChanged = (format.empty() || format == "dae") && KrColladaText::dropMotion(text);
    if (!KrMeshPlausibility::check(text, format, why)) {
        return false;
    }
    if (isChanged) {
        content.text = std::move(text);
    }
    return true;
}

bool readScene(const Content& content, KrMeshData& data, std::string& why)
{
    std::set<std::string> missing;
    Assimp::Importer importer;
    importer.SetIOHandler(new WatchingIo(content, missing));
    importer.SetPropertyBool(AI_CONFIG_IMPORT_COLLADA_IGNORE_UP_DIRECTION, true);
    // Checked between the two steps: the second one follows indices without looking.
    const aiScene* scene = importer.ReadFile(content.path, 0);
    if (scene && !hasValidIndices(*scene)) {
        why = "a face uses a vertex that is not there";
        return false;
    }
    for (unsigned int i = 0; scene && i < scene->mNumMeshes; ++i) {
        tidyFaces(*scene->mMeshes[i]);
    }
    scene = scene ? importer.ApplyPostProcessing(aiProcess_Triangulate | aiProcess_SortByPType) : nullptr;
    if (!scene) {
        why = importer.GetErrorString();
        return false;
    }
    bool trustMaterials = true;
    KrMeshData read;
    for (const std::string& file : missing) {
        if (isMissingLibrary(file)) {
            read.warnings.push_back("material library \"" + file + "\" is missing");
            trustMaterials = false;
        }
    }
    if (!Collector(*scene, content.path, read).run(trustMaterials, why)) {
        return false;
    }
    data = std::move(read);
    return true;
}

} // namespace

bool KrMeshFile::read(const std::string& path, KrMeshData& data, std::string& why)
{
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    if (error || size == 0 || size > kMaxBytes) {
        why = error ? error.message() : size == 0 ? "it is empty" : "it is larger than 1 GiB";
        return false;
    }
    try {
        Content content{path, ""};
        return readContent(static_cast<std::size_t>(size), content, why) && readScene(content, data, why);
    } catch (const std::exception& exception) {
        why = exception.what();
    } catch (...) {
        why = "the mesh library gave up";
    }
    return false;
}
