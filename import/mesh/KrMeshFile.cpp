#include <import/mesh/KrMeshFile.h>

#include <import/mesh/KrMeshMaterials.h>
#include <import/mesh/KrMeshSource.h>
#include <import/mesh/KrVectorIndex.h>

#include <toolkit/foundation/private/KrInputFile.h>
#include <toolkit/foundation/private/KrRowTable.h>
#include <toolkit/foundation/private/KrText.h>

#include <assimp/BaseImporter.h>
#include <assimp/IOSystem.hpp>
#include <assimp/Importer.hpp>
#include <assimp/MemoryIOWrapper.h>
#include <assimp/config.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <Eigen/Dense>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <exception>
#include <map>
#include <set>
#include <utility>

namespace
{

constexpr std::size_t kMaxPath = 400; // in a message, bytes
// Normals written with few digits are not exactly of unit length.
constexpr double kNormalTolerance = 0.01;

/// Knows the files of a mesh source and no other: nothing on the disk is within the mesh library's reach.
class SourceIo : public Assimp::IOSystem
{
public:
    explicit SourceIo(const KrMeshSource& source)
        : m_source(source)
    {
    }
    bool Exists(const char* file) const override { return find(file) != nullptr; }
    char getOsSeparator() const override { return '/'; }
    // Whatever mode is asked for: nothing can be written here.
    Assimp::IOStream* Open(const char* file, const char*) override
    {
        const std::string* const content = find(file);
        return content
                   // The stream borrows the bytes: the source outlives the reading.
                   ? new Assimp::MemoryIOStream(reinterpret_cast<const std::uint8_t*>(content->data()), content->size())
                   : nullptr;
    }
    void Close(Assimp::IOStream* stream) override { delete stream; }

private:
    const std::string* find(const std::string& file) const
    {
        const auto place = m_source.files.find(file);
        return place == m_source.files.end() ? nullptr : &place->second;
    }

    const KrMeshSource& m_source;
};

/// What the mesh library calls the reader of a format. One that it does not have leaves none, and keepReader() says
/// so.
const char* readerOf(KrMeshSource::Format format)
{
    using Format = KrMeshSource::Format;
    switch (format) {
    case Format::Obj:
        return "Wavefront Object Importer";
    case Format::Dae:
        return "Collada Importer";
    case Format::Ply:
        return "Stanford Polygon Library (PLY) Importer";
    case Format::Off:
        return "OFF Importer";
    case Format::Stl: // read without it
    case Format::Gltf:
    case Format::Glb:
        break;
    }
    return "glTF2 Importer";
}

/// Takes every reader out of `importer` but the one called `name`, so that no content can bring another one in.
bool keepReader(Assimp::Importer& importer, const std::string& name)
{
    // From the back, because the list closes up behind each that goes.
    for (std::size_t i = importer.GetImporterCount(); i-- > 0;) {
        Assimp::BaseImporter* const reader = importer.GetImporter(i);
        if (reader->GetInfo()->mName != name) {
            importer.UnregisterLoader(reader);
            delete reader; // a reader that is taken out is its taker's
        }
    }
    return importer.GetImporterCount() == 1;
}

/// Both are for columns: a1 to a4 is the first row.
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

/// After the sorting a mesh holds faces of one kind; an empty one has no lists.
bool isTriangles(const aiMesh& mesh)
{
    return (mesh.mPrimitiveTypes & aiPrimitiveType_TRIANGLE) != 0 && mesh.mVertices && mesh.mFaces;
}

/// Readers take indices out of files as they stand; whatever runs over them afterwards trusts them.
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
            // Exchanged, not copied: each face frees its own indices.
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
        // Points and lines may share the vertices; they are not drawn.
        for (unsigned int corner = 0; face.mNumIndices == 3 && corner < 3; ++corner) {
            isUsed[face.mIndices[corner]] = true;
        }
    }
    return isUsed;
}

/// The numbers that vectors got, of those that came last. Neighbours have a corner each at the same place: most are
/// found here, before they are computed with or looked for among all.
class LatestVectors
{
public:
    /// Forgets all of them.
    void clear() { ++m_round; }
    /// @param add  gives the number of a vector that is not known; the same one for either zero
    template <typename Add>
    std::uint32_t number(const aiVector3D& vector, const Add& add)
    {
        static_assert(sizeof(aiVector3D) == 3 * sizeof(std::uint32_t));
        std::uint32_t bits[3];
        std::memcpy(bits, &vector, sizeof bits);
        const std::uint64_t sum =
            bits[0] * 0xBF58476D1CE4E5B9u + bits[1] * 0x94D049BB133111EBu + bits[2] * 0x9E3779B97F4A7C15u;
        Slot& slot = m_slots[static_cast<std::size_t>(sum >> 40) % kNumSlots];
        // By the bits, all at once: whether neighbours are equal is nothing that the processor can guess.
        if (((slot.bits[0] ^ bits[0]) | (slot.bits[1] ^ bits[1]) | (slot.bits[2] ^ bits[2]) | (slot.round ^ m_round)) !=
            0) {
            slot = {{bits[0], bits[1], bits[2]}, add(vector), m_round};
        }
        return slot.number;
    }

private:
    // A few pages: they stay in the fastest of the processor's caches.
    static constexpr std::size_t kNumSlots = 2048;
    struct Slot
    {
        std::uint32_t bits[3] = {};
        std::uint32_t number = 0;
        std::uint32_t round = 0;
    };

    std::vector<Slot> m_slots = std::vector<Slot>(kNumSlots);
    std::uint32_t m_round = 1;
};

/// Makes one soup of triangles out of the library's scene: nodes applied, equal vertices joined.
class Collector
{
public:
    Collector(const aiScene& scene, KrMeshSource::Format format, const std::string& path, const KrMeshLimits& limits,
              KrMeshData& data)
        : m_scene(scene)
        , m_path(path)
        , m_maxTriangles(limits.maxTriangles)
        , m_data(data)
    {
        // What is told apart below is what the readers fill in, each in its own way.
        using Format = KrMeshSource::Format;
        m_isGltf = format == Format::Gltf || format == Format::Glb;
        m_isNameless = format == Format::Off || format == Format::Ply;
        m_isCollada = format == Format::Dae;
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
    void fillLook(const KrMeshMaterials::Look& look, bool hasCoordinates, KrMeshData::Group& group);
    void placeTexture(const KrMeshMaterials::Look& look, bool hasCoordinates, KrDataMap& data);
    void readLooks(bool trustMaterials);
    std::string uniqueName(const std::string& name);
    void warn(const std::string& text);

    const aiScene& m_scene;
    std::string m_path;
    std::uint64_t m_maxTriangles;
    KrMeshData& m_data;
    bool m_isCollada = false;
    bool m_isGltf = false;
    bool m_isNameless = false; ///< materials never have names
    bool m_isColorTold = false;
    std::uint64_t m_triangles = 0;
    std::uint64_t m_numVertices = 0; ///< of all instances
    KrVectorIndex m_vertices;
    KrVectorIndex m_normals;
    LatestVectors m_latestVertices; ///< numbers among all vertices
    LatestVectors m_latestNormals;
    std::vector<KrMeshMaterials::Look> m_looks;
    std::map<std::pair<unsigned int, bool>, std::size_t> m_groups; ///< by material and whether its texture can be used
    std::map<std::string, std::size_t> m_colorGroups;              ///< by the colour of all vertices
    std::map<const aiMesh*, std::vector<std::uint32_t>> m_coordinates; ///< of texture, by vertex
    std::set<std::string> m_names;
    std::map<std::string, unsigned int> m_numbers; ///< the next one to try, by name
};

bool Collector::run(bool trustMaterials, std::string& why)
{
    // Looks first: a group takes its look when its first triangle comes.
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

// A material that no triangle uses says nothing about what can be seen.
void Collector::readLooks(bool trustMaterials)
{
    std::set<unsigned int> used;
    for (unsigned int i = 0; i < m_scene.mNumMeshes; ++i) {
        if (isTriangles(*m_scene.mMeshes[i])) {
            used.insert(m_scene.mMeshes[i]->mMaterialIndex);
        }
    }
    bool isAllClear = true;
    bool hasForeignNames = false;
    for (unsigned int i = 0; i < m_scene.mNumMaterials; ++i) {
        m_looks.push_back(KrMeshMaterials::read(*m_scene.mMaterials[i]));
        hasForeignNames = hasForeignNames || m_looks.back().hasForeignName;
        // Behind the look, whose name and texture tell what the reader made up.
        m_looks.back().isOwn = trustMaterials && !isFilledIn(i);
        isAllClear = isAllClear && (!used.count(i) || m_looks.back().opacity == 0.0);
    }
    if (hasForeignNames) {
        warn("names of materials are no UTF-8; they are read as Latin-1");
    }
    // Exporters disagree whether 0 or 1 is opaque; a mesh that could not be seen at all was meant to be.
    for (KrMeshMaterials::Look& look : m_looks) {
        if (isAllClear && look.opacity == 0.0) {
            look.opacity = 1.0;
            KrMeshMaterials::setOpacity(look.data, 1.0);
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
    const KrMeshMaterials::Look& look = m_looks[material];
    if (m_isGltf) {
        return material + 1 == m_scene.mNumMaterials; // it stands behind the file's own
    }
    if (m_isNameless) {
        // A material of the file's own tells its opacity.
        float opacity = 1.0f;
        return look.texture.empty() && filled.Get(AI_MATKEY_OPACITY, opacity) != aiReturn_SUCCESS;
    }
    return filled.mNumProperties == 0 || look.name == AI_DEFAULT_MATERIAL_NAME;
}

bool Collector::addNodes(std::string& why)
{
    // Without recursion: how deep nodes are nested is the file's choice.
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
            // Counted by instance: nodes may place one mesh any number of times, and each placing costs its vertices.
            m_triangles += mesh.mNumFaces;
            m_numVertices += mesh.mNumVertices;
            if (m_triangles > m_maxTriangles || m_numVertices / 3 > m_maxTriangles) {
                why = "it has more than " + std::to_string(m_maxTriangles) +
                      " triangles, or three times as many vertices";
                return false;
            }
            if (isTriangles(mesh)) {
                addMesh(mesh, nodeToFile);
            }
        }
        // Backwards, so that children come off in the order of the file, and groups and vertices with them.
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
    m_latestVertices.clear();
    // What no triangle uses stays 0, and is asked for by none.
    std::vector<std::uint32_t> vertices(mesh.mNumVertices);
    for (unsigned int i = 0; i < mesh.mNumVertices; ++i) {
        // Exporters leave vertices behind that no triangle uses, by the thousand.
        if (isUsed[i]) {
            vertices[i] = m_latestVertices.number(mesh.mVertices[i], [&](const aiVector3D& vertex) {
                return m_vertices.add(vectorOf(linear * vectorOf(vertex) + offset));
            });
        }
    }
    const std::vector<std::uint32_t> normals = addNormals(mesh, isUsed, linear);
    const std::vector<std::uint32_t>& coordinates = addTextureCoordinates(mesh, isUsed);

    // The reference lasts: no group is added before the next mesh.
    std::vector<KrTriangle>& triangles = groupOf(mesh).triangles;
    triangles.reserve(triangles.size() + mesh.mNumFaces);
    for (unsigned int i = 0; i < mesh.mNumFaces; ++i) {
        const aiFace& face = mesh.mFaces[i];
        if (face.mNumIndices != 3) {
            continue;
        }
        KrTriangle triangle;
        for (unsigned int corner = 0; corner < 3; ++corner) {
            // Backwards where the node mirrors: what was outside would be inside.
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
    if (!mesh.mNormals || linear.determinant() == 0.0) {
        return indices;
    }
    // A normal stays upright on its surface under the inverse transpose.
    const Eigen::Matrix3d normalMatrix = linear.inverse().transpose();
    const auto add = [&](const aiVector3D& normal) {
        const Eigen::Vector3d given = vectorOf(normal);
        const Eigen::Vector3d turned = normalMatrix * given;
        const double length = turned.norm();
        // Zero normals and those of another length are left for the triangles to give.
        const bool isGood = std::abs(given.norm() - 1.0) <= kNormalTolerance && length > 0.0 && std::isfinite(length);
        return isGood ? m_normals.add(vectorOf(turned / length)) : KrMeshData::noNormal;
    };
    m_latestNormals.clear();
    for (unsigned int i = 0; i < mesh.mNumVertices; ++i) {
        if (isUsed[i]) {
            indices[i] = m_latestNormals.number(mesh.mNormals[i], add);
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
    // The first set stands in for one that the material asks for and the mesh has not.
    const aiVector3D* const list =
        mesh.HasTextureCoords(channel) ? mesh.mTextureCoords[channel] : mesh.mTextureCoords[0];
    for (unsigned int i = 0; list && i < mesh.mNumVertices; ++i) {
        if (isUsed[i]) {
            // Interpolation would spread what is no number over a whole triangle.
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
    // A group has one look: there is no place for several colours. What the file says of materials comes before.
    if (!isOne || hasLook) {
        // White is what exporters fill in; nothing is lost with it.
        const bool isWhite = isOne && colors[0] == aiColor4D(1.0f, 1.0f, 1.0f, 1.0f);
        if (!m_isColorTold && !isWhite) {
            warn("the colours of its vertices are not used");
            m_isColorTold = true;
        }
        return nullptr;
    }
    const KrMeshMaterials::Look look = KrMeshMaterials::ofColor(colors[0]);
    // The colour is the name: vertices of one colour in several meshes are one group.
    const auto [place, isNew] = m_colorGroups.emplace(look.name, m_data.groups.size());
    if (isNew) {
        m_data.groups.emplace_back();
        fillLook(look, false, m_data.groups.back());
    }
    return &m_data.groups[place->second];
}

KrMeshData::Group& Collector::groupOf(const aiMesh& mesh)
{
    const KrMeshMaterials::Look none;
    const bool isKnown = mesh.mMaterialIndex < m_looks.size();
    const KrMeshMaterials::Look& look = isKnown ? m_looks[mesh.mMaterialIndex] : none;
    // Which of the sets is used, addTextureCoordinates() decides in the same way.
    const bool hasCoordinates = mesh.HasTextureCoords(0) || mesh.HasTextureCoords(look.textureChannel);
    const bool isTextured = !look.texture.empty() && hasCoordinates;
    if (KrMeshData::Group* const colored = colorGroup(mesh, isKnown && look.isOwn)) {
        return *colored;
    }
    // Apart by whether the texture can be used: triangles without coordinates get its mean colour.
    const auto [place, isNew] = m_groups.emplace(std::make_pair(mesh.mMaterialIndex, isTextured), m_data.groups.size());
    if (isNew) {
        m_data.groups.emplace_back();
        if (isKnown && look.isOwn) {
            fillLook(look, hasCoordinates, m_data.groups.back());
        }
    }
    return m_data.groups[place->second];
}

void Collector::fillLook(const KrMeshMaterials::Look& look, bool hasCoordinates, KrMeshData::Group& group)
{
    group.hasLook = true;
    group.name = uniqueName(look.name.empty() ? "material" : look.name);
    group.look = look.data;
    if (!look.texture.empty()) {
        placeTexture(look, hasCoordinates, group.look);
    }
}

void Collector::placeTexture(const KrMeshMaterials::Look& look, bool hasCoordinates, KrDataMap& data)
{
    // For the message: a person has to know where an image is expected.
    std::vector<std::string> tried;
    const std::string name = "texture \"" + KrText::oneLine(look.texture) + "\"";
    if (look.isEmbedded || m_scene.GetEmbeddedTexture(look.texture.c_str())) {
        warn(name + " lies inside the mesh file; only its material's colour is used");
        return;
    }
    const std::string image = KrMeshMaterials::findTexture(m_path, look.texture, tried);
    for (const std::string& path : tried) {
        m_data.otherFiles.push_back({path, false});
    }
    if (image.empty()) {
        std::string list;
        for (const std::string& path : tried) {
            list += (list.empty() ? "" : ", ") + KrText::oneLine(path, kMaxPath);
        }
        warn(name + " is missing; only the colour is used (tried " + list + ")");
        return;
    }
    if (!hasCoordinates) {
        // Closer to what is meant than the white that stands under most textures.
        const bool isMean = KrMeshMaterials::setMeanColor(data, image);
        m_data.otherFiles.push_back({image, true});
        warn(name + " is given for triangles without texture coordinates; " +
             (isMean ? "its mean colour is used" : "it cannot be read, and only the colour is used"));
        return;
    }
    // The first place is what the file means; any other one is a guess.
    if (image != tried.front()) {
        warn(name + " is taken from " + KrText::oneLine(image, kMaxPath));
    }
    KrMeshMaterials::setTexture(data, image);
    m_data.textures.push_back(image);
}

std::string Collector::uniqueName(const std::string& name)
{
    std::string unique = name;
    while (!m_names.insert(unique).second) {
        // The numbers go on where they ended, so that thousands of equal names take no longer than others.
        unsigned int& number = m_numbers.emplace(name, 2).first->second;
        unique = name + " " + std::to_string(number++);
    }
    return unique;
}

void Collector::warn(const std::string& text)
{
    m_data.warnings.push_back(text);
}

/// Triangulation takes the square of the number of corners.
bool isTooManyCornered(const aiScene& scene)
{
    std::uint64_t work = 0;
    for (unsigned int i = 0; i < scene.mNumMeshes; ++i) {
        const aiMesh& mesh = *scene.mMeshes[i];
        for (unsigned int k = 0; k < mesh.mNumFaces && work <= Kr::Limits::kPolygonWork; ++k) {
            const std::uint64_t corners = mesh.mFaces[k].mNumIndices;
            // Triangles and quads are cut without a search.
            work += corners > 4 ? corners * corners : 0;
        }
    }
    return work > Kr::Limits::kPolygonWork;
}

bool readScene(const KrMeshSource& source, const std::string& path, const KrMeshLimits& limits, KrMeshData& data,
               std::string& why)
{
    // The scene is the importer's, and goes with it.
    Assimp::Importer importer;
    if (!keepReader(importer, readerOf(source.format))) {
        why = "the mesh library has no reader for it";
        return false;
    }
    // The importer owns it from here on.
    importer.SetIOHandler(new SourceIo(source));
    // Robot descriptions take coordinates as they stand, whatever axis the file calls up.
    importer.SetPropertyBool(AI_CONFIG_IMPORT_COLLADA_IGNORE_UP_DIRECTION, true);
    // Checked between the two steps: the second one follows indices without looking.
    const aiScene* scene = importer.ReadFile(source.main, 0);
    if (scene && !hasValidIndices(*scene)) {
        why = "a face uses a vertex that is not there";
        return false;
    }
    if (scene && scene->mNumMaterials > Kr::Limits::kMeshMaterials + 2) { // the library adds some of its own
        why = "it has more than " + std::to_string(Kr::Limits::kMeshMaterials) + " materials";
        return false;
    }
    if (scene && isTooManyCornered(*scene)) {
        why = "its polygons have too many corners";
        return false;
    }
    // Behind the checks, which go by the faces as they were read.
    for (unsigned int i = 0; scene && i < scene->mNumMeshes; ++i) {
        tidyFaces(*scene->mMeshes[i]);
    }
    // Nothing but these two: joining vertices and computing normals are ours, and the rest changes the mesh.
    scene = scene ? importer.ApplyPostProcessing(aiProcess_Triangulate | aiProcess_SortByPType) : nullptr;
    if (!scene) {
        why = KrText::oneLine(importer.GetErrorString());
        return false;
    }
    KrMeshData read;
    read.warnings = source.warnings;
    read.upAxis = source.upAxis;
    for (const std::string& file : source.sideFiles) {
        read.otherFiles.push_back({file, true});
    }
    if (!Collector(*scene, source.format, path, limits, read).run(source.trustMaterials, why)) {
        return false;
    }
    data = std::move(read);
    return true;
}

/// The facets of an STL file: one group without a look. Their normals are for the triangles to give.
void joinFacets(const std::vector<KrStlText::Facet>& facets, KrMeshData& data)
{
    using Place = std::array<float, 3>;
    KrRowTable<Place> places;
    // A closed surface has half as many vertices as triangles.
    places.restart(facets.size() / 2 + 2);
    // Those that came last, by the upper bits of the hash: neighbours have their corners in common, and are found here
    // before they are looked for among all. A few pages, which stay in the fastest of the processor's caches.
    constexpr unsigned int kLatestBits = 11;
    constexpr std::uint32_t kNone = UINT32_MAX;
    std::vector<std::pair<Place, std::uint32_t>> latest(std::size_t{1} << kLatestBits, {Place{}, kNone});
    std::vector<KrTriangle>& triangles = data.groups.emplace_back().triangles;
    triangles.reserve(facets.size());
    for (const KrStlText::Facet& facet : facets) {
        KrTriangle triangle;
        for (unsigned int corner = 0; corner < 3; ++corner) {
            // As floats, which the file has them as. Copied, not put together: what was just written number by number
            // would have to arrive before it can be read as a word.
            Place place;
            std::memcpy(place.data(), facet.data() + 3 * corner, sizeof place);
            const std::uint32_t hash = KrRowTable<Place>::hash(place);
            auto& [known, number] = latest[hash >> (32 - kLatestBits)];
            // By the bits, as the table compares them.
            if (number == kNone || std::memcmp(&known, &place, sizeof place) != 0) {
                known = place;
                number = places.number(place, hash);
            }
            triangle.setCorner(corner, number, KrMeshData::noNormal, 0);
        }
        triangles.push_back(triangle);
    }
    data.vertices.reserve(places.size());
    for (const Place& place : places.rows()) {
        data.vertices.emplace_back(place[0], place[1], place[2]);
    }
}

bool readSource(KrMeshSource&& source, const std::string& path, const KrMeshLimits& limits, KrMeshData& data,
                std::string& why)
{
    if (source.format != KrMeshSource::Format::Stl) {
        return readScene(source, path, limits, data, why);
    }
    data = KrMeshData();
    data.warnings = std::move(source.warnings);
    joinFacets(source.facets, data);
    return true;
}

} // namespace

bool KrMeshFile::read(const std::string& path, const KrMeshLimits& limits, KrMeshData& data, std::string& why)
{
    std::string content;
    // A regular file: a description could name a device that never ends.
    why = KrInputFile::readWhole(path, KrInputFile::Accept::Files, limits.maxBytes, content);
    return why.empty() && readContent(path, std::move(content), limits, data, why);
}

bool KrMeshFile::readContent(const std::string& path, std::string&& content, const KrMeshLimits& limits,
                             KrMeshData& data, std::string& why)
// The door to the library: what happens behind it costs one mesh, not the import.
{
    try {
        KrMeshSource source;
        return KrMeshSource::readContent(path, std::move(content), limits, source, why) &&
               readSource(std::move(source), path, limits, data, why);
    } catch (const std::exception& exception) {
        why = KrText::oneLine(exception.what());
        // What the library throws is its own affair: some of it derives from nothing.
    } catch (...) {
        why = "the mesh library gave up";
    }
    return false;
}
