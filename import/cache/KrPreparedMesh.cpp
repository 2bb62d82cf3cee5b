#include <import/cache/KrPreparedMesh.h>

#include <toolkit/extent/private/KrIndexedMesh.h>
#include <toolkit/extent/private/KrKnownMesh.h>
#include <toolkit/foundation/private/KrHeldMessages.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
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
    /// Of items of `Width` doubles each: in single precision where that loses nothing, as mesh files mostly have them.
    template <std::size_t Width, typename T>
    void reals(const std::vector<T>& values)
    {
        static_assert(std::is_trivially_copyable_v<T> && sizeof(T) == Width * sizeof(double));
        std::vector<std::array<float, Width>> singles;
        singles.reserve(values.size());
        for (const T& value : values) {
            std::array<double, Width> numbers;
            std::memcpy(numbers.data(), &value, sizeof value);
            if (!std::all_of(numbers.begin(), numbers.end(), isSingle)) {
                plain(false);
                list(values);
                return;
            }
            std::array<float, Width> single;
            std::transform(numbers.begin(), numbers.end(), single.begin(),
                           [](double number) { return static_cast<float>(number); });
            singles.push_back(single);
        }
        plain(true);
        list(singles);
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
    static bool isSingle(double number)
    {
        // Written so that NaN is none. By the bits: 0 and -0 are two.
        const bool isInRange = std::abs(number) <= std::numeric_limits<float>::max();
        const double back = isInRange ? static_cast<double>(static_cast<float>(number)) : 0.0;
        return isInRange && std::memcmp(&back, &number, sizeof back) == 0;
    }

    std::string m_bytes;
};

/// Appends `count` items, which `fill(block, first, number)` makes: a block at a time, close to the processor. The list
/// is written once, without zeros before.
template <typename T, typename Fill>
void append(std::vector<T>& list, std::size_t count, const Fill& fill)
{
    constexpr std::size_t kBlock = 4096 / sizeof(T);
    std::array<T, kBlock> block;
    list.reserve(list.size() + count);
    for (std::size_t first = 0; first < count; first += kBlock) {
        const std::size_t number = std::min(kBlock, count - first);
        fill(block.data(), first, number);
        list.insert(list.end(), block.begin(), block.begin() + static_cast<std::ptrdiff_t>(number));
    }
}

/// A list in the bytes of an entry. They lie as they like: no object can be looked at in its place.
template <typename T>
struct View
{
    const char* first = nullptr;
    std::size_t size = 0;
    T operator[](std::size_t i) const
    {
        T value;
        std::memcpy(static_cast<void*>(&value), first + i * sizeof(T), sizeof value);
        return value;
    }
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
    /// Where a list lies; it is not copied.
    template <typename T>
    View<T> view()
    {
        const View<T> items{m_bytes.data(), count(sizeof(T))};
        m_bytes.remove_prefix(items.size * sizeof(T));
        return {m_bytes.data() - items.size * sizeof(T), items.size};
    }
    template <typename T>
    std::vector<T> list()
    {
        const View<T> items = view<T>();
        std::vector<T> values;
        append(values, items.size, [&items](T* block, std::size_t first, std::size_t number) {
            std::memcpy(static_cast<void*>(block), items.first + first * sizeof(T), number * sizeof(T));
        });
        return values;
    }
    /// What Writer::reals() has written.
    template <std::size_t Width, typename T>
    std::vector<T> reals()
    {
        if (!flag()) {
            return list<T>();
        }
        const auto singles = view<std::array<float, Width>>();
        std::vector<T> values;
        append(values, singles.size, [&singles](T* block, std::size_t first, std::size_t number) {
            for (std::size_t i = 0; i < number; ++i) {
                const std::array<float, Width> single = singles[first + i];
                std::array<double, Width> numbers;
                std::copy(single.begin(), single.end(), numbers.begin());
                std::memcpy(static_cast<void*>(block + i), numbers.data(), sizeof(T));
            }
        });
        return values;
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

/// What a mesh has besides its lists of numbers.
enum class Form : unsigned char
{
    Triangles, ///< of each group
    Both,      ///< the triangles, and the indexed form
    Indexed    ///< the indexed form without what follows from the lists, and where it comes from: as triangles do
};

/// Where a vertex of the indexed form has its numbers: two of the mesh's lists.
struct Origin
{
    std::uint32_t position = 0;
    std::uint32_t normal = 0;
};
static_assert(sizeof(Origin) == 8);

/// Numbers of a vertex of the indexed form.
constexpr std::size_t kRowWidth = 6;

/// In single precision, as the indexed form is made.
void fillRow(const KrVector& position, const KrVector& normal, float* row)
{
    for (unsigned int i = 0; i < 3; ++i) {
        row[i] = static_cast<float>(position[i]);
        row[3 + i] = static_cast<float>(normal[i]);
    }
}

/// Fills `origins` for the vertices of level 0, which come first; false where a vertex has several: exporters may write
/// a position twice. Such a mesh is kept with its triangles.
bool findOrigins(const KrTriPhysicalExtent& extent, const KrIndexedMesh& mesh, std::vector<Origin>& origins)
{
    std::vector<bool> isKnown(mesh.numVertices(), false);
    origins.resize(mesh.numVertices());
    std::size_t numKnown = 0;
    for (unsigned int group = 0; group < extent.groups().size(); ++group) {
        const KrIndexedMesh::Range range = mesh.levels[0].groups[group];
        for (std::uint32_t i = 0; i < range.count; ++i) {
            // Level 0 has the corners in their order.
            const KrTriangle& triangle = extent.groups()[group].second()[i / 3];
            const Origin origin = {triangle.vertex(i % 3), triangle.normal(i % 3)};
            const std::uint32_t vertex = mesh.indices[range.first + i];
            if (!isKnown[vertex]) {
                isKnown[vertex] = true;
                origins[vertex] = origin;
                ++numKnown;
            } else if (origins[vertex].position != origin.position || origins[vertex].normal != origin.normal) {
                return false;
            }
        }
    }
    origins.resize(numKnown);
    for (std::size_t i = 0; i < numKnown; ++i) {
        float row[kRowWidth];
        fillRow(extent.vertices()[origins[i].position], extent.normals()[origins[i].normal], row);
        if (!isKnown[i] || std::memcmp(row, &mesh.vertices[kRowWidth * i], sizeof row) != 0) {
            return false;
        }
    }
    return true;
}

/// The texture coordinates of all corners, three for each triangle.
std::vector<std::uint32_t> coordinatesOf(const KrTriPhysicalExtent& extent)
{
    std::vector<std::uint32_t> coordinates;
    if (extent.textureCoordinates().empty()) {
        return coordinates;
    }
    coordinates.reserve(3 * extent.numTriangles());
    for (const KrTriPhysicalExtent::Group& group : extent.groups()) {
        for (const KrTriangle& triangle : group.second()) {
            for (unsigned int k = 0; k < 3; ++k) {
                coordinates.push_back(triangle.textureCoordinate(k));
            }
        }
    }
    return coordinates;
}

void write(const KrIndexedMesh& mesh, std::size_t firstVertex, Writer& writer)
{
    writer.list(std::vector<float>(mesh.vertices.begin() + static_cast<std::ptrdiff_t>(kRowWidth * firstVertex),
                                   mesh.vertices.end()));
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

void write(const KrTriPhysicalExtent& extent, const KrIndexedMesh* indexed, Writer& writer)
{
    // All of it at once, so that the text does not move while it grows.
    writer.reserve(extent.vertices().size() * 56 + extent.normals().size() * std::size_t{24} +
                   extent.numTriangles() * 60 + 4096);
    writer.reals<3>(extent.vertices().values());
    writer.reals<3>(extent.normals().values());
    writer.reals<2>(extent.textureCoordinates().values());
    writer.plain(static_cast<std::uint64_t>(extent.groups().size()));
    for (const KrTriPhysicalExtent::Group& group : extent.groups()) {
        writer.text(group.first().value());
    }
    writer.plain(static_cast<std::uint64_t>(extent.materialMap().size()));
    for (const auto& [name, look] : extent.materialMap()) {
        writer.text(name.value());
        write(look, writer);
    }
    std::vector<Origin> origins;
    const bool isDerived = indexed && findOrigins(extent, *indexed, origins);
    writer.plain(isDerived ? Form::Indexed : indexed ? Form::Both : Form::Triangles);
    if (isDerived) {
        writer.list(origins);
        writer.list(coordinatesOf(extent));
    } else {
        for (const KrTriPhysicalExtent::Group& group : extent.groups()) {
            writer.list(group.second().values());
        }
    }
    if (indexed) {
        write(*indexed, isDerived ? origins.size() : 0, writer);
    }
}

/// Reads an extent, and its indexed form where there is one.
class ExtentReader
{
public:
    explicit ExtentReader(Reader& reader)
        : m_reader(reader)
    {
    }
    /// Null for what is no mesh. @param isIndexed  whether it has its indexed form
    boost::shared_ptr<KrTriPhysicalExtent> run(bool& isIndexed);

private:
    void readTriangles();
    std::shared_ptr<KrIndexedMesh> readIndexed();
    std::shared_ptr<KrIndexedMesh> readDerived();
    bool areGood(View<Origin> origins, View<std::uint32_t> coordinates, const KrIndexedMesh& mesh) const;

    Reader& m_reader;
    KrKnownMesh m_lists;
    std::vector<std::string> m_names; ///< of the groups
    std::size_t m_numDerived = 0;     ///< vertices of the indexed form that come from the lists
};

boost::shared_ptr<KrTriPhysicalExtent> ExtentReader::run(bool& isIndexed)
{
    m_lists.vertices = KrXmlVectorVector(m_reader.reals<3, KrVector>());
    m_lists.normals = KrXmlVectorVector(m_reader.reals<3, KrVector>());
    m_lists.textureCoordinates = KrXmlVectorType<KrPlanarVector>(m_reader.reals<2, KrPlanarVector>());
    m_names = m_reader.texts();
    boost::shared_ptr<KrTriPhysicalExtent> extent(new KrTriPhysicalExtent);
    KrMaterialMap looks;
    for (std::size_t i = m_reader.count(2 * sizeof(std::uint64_t)); i > 0 && m_reader.isGood(); --i) {
        const std::string name = m_reader.text();
        looks.set(name, readLook(m_reader));
    }
    if (!looks.empty()) {
        extent->setMaterialMap(looks);
    }
    const auto form = m_reader.plain<unsigned char>();
    isIndexed = form != static_cast<unsigned char>(Form::Triangles);
    std::shared_ptr<KrIndexedMesh> indexed;
    bool isKnown = false;
    if (form == static_cast<unsigned char>(Form::Indexed)) {
        indexed = readDerived();
        isKnown = indexed && m_lists.areNumbersWhole() && indexed->isConsistent(m_numDerived);
    } else {
        readTriangles();
        indexed = form == static_cast<unsigned char>(Form::Both) ? readIndexed() : nullptr;
    }
    if (!m_reader.isGood() || isIndexed != (indexed != nullptr)) {
        return nullptr;
    }
    if (isKnown) {
        m_lists.moveTo(*extent, indexed);
        return extent;
    }
    // Checked as any mesh is: what the renderer trusts, no file decides. Nobody has to hear why it is none.
    const KrHeldMessages unheard;
    const bool isMesh = extent->setMesh(std::move(m_lists.vertices), std::move(m_lists.normals),
                                        std::move(m_lists.textureCoordinates), std::move(m_lists.groups)) &&
                        (!isIndexed || extent->setIndexedMesh(indexed));
    return isMesh ? extent : nullptr;
}

void ExtentReader::readTriangles()
{
    m_lists.groups.reserve(static_cast<unsigned int>(m_names.size()));
    for (std::string& name : m_names) {
        m_lists.groups.push_back({std::move(name), KrXmlVectorType<KrTriangle>(m_reader.list<KrTriangle>())});
    }
}

std::shared_ptr<KrIndexedMesh> ExtentReader::readIndexed()
{
    const auto mesh = std::make_shared<KrIndexedMesh>();
    mesh->vertices = m_reader.list<float>();
    mesh->textureCoordinates = m_reader.list<float>();
    mesh->indices = m_reader.list<std::uint32_t>();
    mesh->levels.resize(m_reader.count(2 * sizeof(float) + sizeof(std::uint64_t)));
    for (KrIndexedMesh::Level& level : mesh->levels) {
        level.error = m_reader.plain<float>();
        level.change = m_reader.plain<float>();
        level.groups = m_reader.list<KrIndexedMesh::Range>();
    }
    mesh->areLevelsMade = m_reader.flag();
    mesh->isClosed = m_reader.flag();
    return mesh;
}

/// Null for what does not fit.
std::shared_ptr<KrIndexedMesh> ExtentReader::readDerived()
{
    const auto origins = m_reader.view<Origin>();
    const auto coordinates = m_reader.view<std::uint32_t>();
    const std::shared_ptr<KrIndexedMesh> mesh = readIndexed();
    if (!m_reader.isGood() || !areGood(origins, coordinates, *mesh)) {
        return nullptr;
    }
    m_numDerived = origins.size;
    // Before those that only coarser levels use.
    const std::vector<float> others = std::exchange(mesh->vertices, {});
    mesh->vertices.reserve(kRowWidth * origins.size + others.size());
    // As append() does it.
    constexpr std::size_t kBlock = 128;
    std::array<float, kRowWidth * kBlock> rows;
    const KrVector* const positions = m_lists.vertices.values().data();
    const KrVector* const normals = m_lists.normals.values().data();
    for (std::size_t first = 0; first < origins.size; first += kBlock) {
        float* row = rows.data();
        for (std::size_t i = first; i < std::min(first + kBlock, origins.size); ++i, row += kRowWidth) {
            const Origin origin = origins[i];
            fillRow(positions[origin.position], normals[origin.normal], row);
        }
        mesh->vertices.insert(mesh->vertices.end(), rows.data(), row);
    }
    mesh->vertices.insert(mesh->vertices.end(), others.begin(), others.end());

    m_lists.groups.reserve(static_cast<unsigned int>(m_names.size()));
    std::size_t corner = 0;
    for (std::size_t group = 0; group < m_names.size(); ++group) {
        const KrIndexedMesh::Range range = mesh->levels[0].groups[group];
        // By value and corner by corner: nothing is looked up again, and no branch is in the way.
        const auto fill = [origins, indices = mesh->indices.data() + range.first](KrTriangle* block, std::size_t first,
                                                                                  std::size_t number) {
            const std::uint32_t* index = indices + 3 * first;
            for (KrTriangle* triangle = block; triangle != block + number; ++triangle, index += 3) {
                const Origin a = origins[index[0]];
                const Origin b = origins[index[1]];
                const Origin c = origins[index[2]];
                triangle->setCorner(0, a.position, a.normal, 0);
                triangle->setCorner(1, b.position, b.normal, 0);
                triangle->setCorner(2, c.position, c.normal, 0);
            }
        };
        std::vector<KrTriangle> triangles;
        append(triangles, range.count / 3, fill);
        for (std::size_t i = 0; coordinates.size > 0 && i < triangles.size(); ++i) {
            for (unsigned int k = 0; k < 3; ++k, ++corner) {
                triangles[i].setCorner(k, triangles[i].vertex(k), triangles[i].normal(k), coordinates[corner]);
            }
        }
        m_lists.groups.push_back({std::move(m_names[group]), KrXmlVectorType<KrTriangle>(std::move(triangles))});
    }
    return mesh;
}

/// Whether every number that is followed to make the triangles leads to something.
bool ExtentReader::areGood(View<Origin> origins, View<std::uint32_t> coordinates, const KrIndexedMesh& mesh) const
{
    if (mesh.levels.empty() || mesh.levels[0].groups.size() != m_names.size()) {
        return false;
    }
    std::uint64_t numCorners = 0;
    for (const KrIndexedMesh::Range& range : mesh.levels[0].groups) {
        // Ranges that lie over one another would ask for more memory, and time, than there are bytes.
        numCorners += range.count;
        const bool isInside = range.count % 3 == 0 && range.first <= mesh.indices.size() &&
                              range.count <= mesh.indices.size() - range.first && numCorners <= mesh.indices.size();
        const auto first = mesh.indices.begin() + static_cast<std::ptrdiff_t>(isInside ? range.first : 0);
        const auto isKnown = [&origins](std::uint32_t index) { return index < origins.size; };
        if (!isInside || !std::all_of(first, first + range.count, isKnown)) {
            return false;
        }
    }
    if (coordinates.size != (m_lists.textureCoordinates.empty() ? 0 : numCorners)) {
        return false;
    }
    bool isGood = true;
    for (std::size_t i = 0; i < coordinates.size; ++i) {
        isGood &= coordinates[i] < m_lists.textureCoordinates.size();
    }
    for (std::size_t i = 0; i < origins.size; ++i) {
        const Origin origin = origins[i];
        isGood &= origin.position < m_lists.vertices.size();
        isGood &= origin.normal < m_lists.normals.size();
    }
    return isGood;
}

} // namespace

std::string KrPreparedMesh::bytes() const
{
    Writer writer;
    if (result.extent) {
        // First, because it knows how much memory it takes.
        writer.plain(true);
        write(*result.extent, result.isIndexed ? result.extent->indexedMesh().get() : nullptr, writer);
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
        read.result.extent = ExtentReader(reader).run(read.result.isIndexed);
        if (!read.result.extent) {
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
