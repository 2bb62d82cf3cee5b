#include <import/cache/KrPreparedMesh.h>

#include <toolkit/extent/private/KrIndexedMesh.h>
#include <toolkit/foundation/private/KrHeldMessages.h>

#include <cstring>
#include <iterator>
#include <memory>
#include <type_traits>
#include <utility>
#include <variant>

namespace
{

/// Writes numbers as they lie in memory, lists behind their length.
class Writer
{
public:
    template <typename T>
    void plain(const T& value)
    {
        static_assert(std::is_trivially_copyable_v<T>);
        m_bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
    }
    template <typename T>
    void list(const std::vector<T>& values)
    {
        static_assert(std::is_trivially_copyable_v<T>);
        plain(static_cast<std::uint64_t>(values.size()));
        m_bytes.append(reinterpret_cast<const char*>(values.data()), values.size() * sizeof(T));
    }
    void text(const std::string& value)
    {
        plain(static_cast<std::uint64_t>(value.size()));
        m_bytes += value;
    }
    void texts(const std::vector<std::string>& values)
    {
        plain(static_cast<std::uint64_t>(values.size()));
        for (const std::string& value : values) {
            text(value);
        }
    }
    void reserve(std::size_t size) { m_bytes.reserve(size); }
    std::string& bytes() { return m_bytes; }

private:
    std::string m_bytes;
};

/// Goes through bytes as if they were a list. They lie as they like: no object can be looked at in its place.
template <typename T>
struct Place
{
    using iterator_category = std::random_access_iterator_tag;
    using value_type = T;
    using difference_type = std::ptrdiff_t;
    using pointer = const T*;
    using reference = T;

    const char* at;
    T operator*() const
    {
        T value;
        std::memcpy(static_cast<void*>(&value), at, sizeof value);
        return value;
    }
    Place& operator++()
    {
        at += sizeof(T);
        return *this;
    }
    difference_type operator-(Place other) const { return (at - other.at) / static_cast<difference_type>(sizeof(T)); }
    bool operator==(Place other) const { return at == other.at; }
    bool operator!=(Place other) const { return at != other.at; }
};

/// The way back. After the first thing that does not fit, all that is asked for is empty, and isGood() is false.
class Reader
{
public:
    explicit Reader(std::string_view bytes)
        : m_bytes(bytes)
    {
    }
    bool isGood() const { return m_isGood; }
    bool isAtEnd() const { return m_isGood && m_bytes.empty(); }

    template <typename T>
    T plain()
    {
        T value{};
        copy(&value, sizeof value);
        return value;
    }
    /// A truth value: other bytes are none.
    bool flag()
    {
        const auto byte = plain<unsigned char>();
        m_isGood = m_isGood && byte <= 1;
        return byte == 1;
    }
    /// How many items follow. @param least  bytes that each of them has: no memory is asked for more than can be there
    std::size_t count(std::size_t least)
    {
        const auto number = plain<std::uint64_t>();
        m_isGood = m_isGood && number <= m_bytes.size() / least;
        return m_isGood ? static_cast<std::size_t>(number) : 0;
    }
    template <typename T>
    std::vector<T> list()
    {
        const std::size_t size = count(sizeof(T));
        const char* const first = m_bytes.data();
        m_bytes.remove_prefix(size * sizeof(T));
        if constexpr (std::is_trivial_v<T>) {
            // Numbers one by one take longer than zeros before a copy of all at once.
            std::vector<T> values(size);
            if (size > 0) {
                std::memcpy(values.data(), first, size * sizeof(T));
            }
            return values;
        } else {
            // Filled as it is made.
            return std::vector<T>(Place<T>{first}, Place<T>{first + size * sizeof(T)});
        }
    }
    std::string text()
    {
        std::string value(count(1), '\0');
        copy(value.data(), value.size());
        return value;
    }
    std::vector<std::string> texts()
    {
        std::vector<std::string> values(count(sizeof(std::uint64_t)));
        for (std::string& value : values) {
            value = text();
        }
        return values;
    }

private:
    void copy(void* to, std::size_t size)
    {
        m_isGood = m_isGood && size <= m_bytes.size();
        if (m_isGood && size > 0) {
            std::memcpy(to, m_bytes.data(), size);
            m_bytes.remove_prefix(size);
        }
    }

    std::string_view m_bytes;
    bool m_isGood = true;
};

void write(const KrMeshFacts& facts, Writer& writer)
{
    writer.plain(facts.unit);
    writer.text(facts.upAxis);
    writer.texts(facts.textures);
    writer.texts(facts.warnings);
    writer.plain(static_cast<std::uint64_t>(facts.numLooks));
    writer.plain(facts.hasPlainGroups);
    writer.plain(facts.hasTextureCoordinates);
}

KrMeshFacts readFacts(Reader& reader)
{
    KrMeshFacts facts;
    facts.unit = reader.plain<double>();
    facts.upAxis = reader.text();
    facts.textures = reader.texts();
    facts.warnings = reader.texts();
    facts.numLooks = static_cast<std::size_t>(reader.plain<std::uint64_t>());
    facts.hasPlainGroups = reader.flag();
    facts.hasTextureCoordinates = reader.flag();
    return facts;
}

void write(const KrDataMap& look, Writer& writer)
{
    writer.plain(static_cast<std::uint64_t>(look.values().size()));
    for (const auto& [key, value] : look.values()) {
        writer.text(key);
        writer.plain(static_cast<unsigned char>(value.index()));
        if (const auto* real = std::get_if<double>(&value)) {
            writer.plain(*real);
        } else if (const auto* text = std::get_if<std::string>(&value)) {
            writer.text(*text);
        } else {
            writer.plain(std::get<bool>(value));
        }
    }
}

KrDataMap readLook(Reader& reader)
{
    KrDataMap look;
    for (std::size_t i = reader.count(10); i > 0 && reader.isGood(); --i) {
        const std::string key = reader.text();
        switch (reader.plain<unsigned char>()) {
        case 0:
            look.setReal(key, reader.plain<double>());
            break;
        case 1:
            look.setString(key, reader.text());
            break;
        default:
            look.setBoolean(key, reader.flag());
        }
    }
    return look;
}

void write(const KrIndexedMesh& mesh, Writer& writer)
{
    writer.list(mesh.vertices);
    writer.list(mesh.textureCoordinates);
    writer.list(mesh.indices);
    writer.plain(static_cast<std::uint64_t>(mesh.levels.size()));
    for (const KrIndexedMesh::Level& level : mesh.levels) {
        writer.plain(level.error);
        writer.plain(level.change);
        writer.list(level.groups);
    }
    writer.plain(mesh.areLevelsMade);
    writer.plain(mesh.isClosed);
}

std::shared_ptr<const KrIndexedMesh> readIndexed(Reader& reader)
{
    const auto mesh = std::make_shared<KrIndexedMesh>();
    mesh->vertices = reader.list<float>();
    mesh->textureCoordinates = reader.list<float>();
    mesh->indices = reader.list<std::uint32_t>();
    mesh->levels.resize(reader.count(2 * sizeof(float) + sizeof(std::uint64_t)));
    for (KrIndexedMesh::Level& level : mesh->levels) {
        level.error = reader.plain<float>();
        level.change = reader.plain<float>();
        level.groups = reader.list<KrIndexedMesh::Range>();
    }
    mesh->areLevelsMade = reader.flag();
    mesh->isClosed = reader.flag();
    return mesh;
}

void write(const KrTriPhysicalExtent& extent, Writer& writer)
{
    // All of it at once, so that the text does not move while it grows.
    writer.reserve(extent.vertices().size() * 80 + extent.normals().size() * std::size_t{24} +
                   extent.numTriangles() * 60 + 4096);
    writer.list(extent.vertices().values());
    writer.list(extent.normals().values());
    writer.list(extent.textureCoordinates().values());
    writer.plain(static_cast<std::uint64_t>(extent.groups().size()));
    for (const KrTriPhysicalExtent::Group& group : extent.groups()) {
        writer.text(group.first().value());
        writer.list(group.second().values());
    }
    writer.plain(static_cast<std::uint64_t>(extent.materialMap().size()));
    for (const auto& [name, look] : extent.materialMap()) {
        writer.text(name.value());
        write(look, writer);
    }
}

boost::shared_ptr<KrTriPhysicalExtent> readExtent(Reader& reader)
{
    KrXmlVectorVector vertices(reader.list<KrVector>());
    KrXmlVectorVector normals(reader.list<KrVector>());
    KrXmlVectorType<KrPlanarVector> coordinates(reader.list<KrPlanarVector>());
    KrXmlVectorType<KrTriPhysicalExtent::Group> groups;
    for (std::size_t i = reader.count(2 * sizeof(std::uint64_t)); i > 0 && reader.isGood(); --i) {
        const std::string name = reader.text();
        groups.push_back({name, KrXmlVectorType<KrTriangle>(reader.list<KrTriangle>())});
    }
    boost::shared_ptr<KrTriPhysicalExtent> extent(new KrTriPhysicalExtent);
    KrMaterialMap looks;
    for (std::size_t i = reader.count(2 * sizeof(std::uint64_t)); i > 0 && reader.isGood(); --i) {
        const std::string name = reader.text();
        looks.set(name, readLook(reader));
    }
    if (!looks.empty()) {
        extent->setMaterialMap(looks);
    }
    // Checked as any mesh is: what the renderer trusts, no file decides. Nobody has to hear why it is none.
    const KrHeldMessages unheard;
    const bool isMesh = reader.isGood() && extent->setMesh(std::move(vertices), std::move(normals),
                                                           std::move(coordinates), std::move(groups));
    return isMesh ? extent : nullptr;
}

} // namespace

std::string KrPreparedMesh::bytes() const
{
    Writer writer;
    if (result.extent) {
        // First, because it knows how much memory it takes.
        writer.plain(true);
        write(*result.extent, writer);
        const std::shared_ptr<const KrIndexedMesh> indexed = result.isIndexed ? result.extent->indexedMesh() : nullptr;
        writer.plain(indexed != nullptr);
        if (indexed) {
            write(*indexed, writer);
        }
    } else {
        writer.plain(false);
    }
    writer.plain(static_cast<std::uint64_t>(result.triangles));
    writer.plain(static_cast<std::uint64_t>(result.degenerate));
    write(facts, writer);
    writer.plain(static_cast<std::uint64_t>(otherFiles.size()));
    for (const OtherFile& file : otherFiles) {
        writer.text(file.path);
        writer.plain(file.isRead);
        writer.text(file.state);
    }
    return std::move(writer.bytes());
}

bool KrPreparedMesh::read(std::string_view bytes, KrPreparedMesh& prepared)
{
    Reader reader(bytes);
    KrPreparedMesh read;
    if (reader.flag()) {
        read.result.extent = readExtent(reader);
        if (!read.result.extent) {
            return false;
        }
        read.result.isIndexed = reader.flag();
        if (read.result.isIndexed && !(read.result.extent->setIndexedMesh(readIndexed(reader)) && reader.isGood())) {
            return false;
        }
    }
    read.result.triangles = static_cast<std::size_t>(reader.plain<std::uint64_t>());
    read.result.degenerate = static_cast<std::size_t>(reader.plain<std::uint64_t>());
    read.facts = readFacts(reader);
    read.otherFiles.resize(reader.count(2 * sizeof(std::uint64_t) + 1));
    for (OtherFile& file : read.otherFiles) {
        file.path = reader.text();
        file.isRead = reader.flag();
        file.state = reader.text();
    }
    if (!reader.isAtEnd()) {
        return false;
    }
    prepared = std::move(read);
    return true;
}
