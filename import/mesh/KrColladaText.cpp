#include <import/mesh/KrColladaText.h>

#include <import/files/KrImportXml.h>
#include <import/files/KrPlainXml.h>
#include <import/mesh/KrMeshTokens.h>

#include <toolkit/foundation/KrLimits.h>
#include <toolkit/foundation/private/KrText.h>

#include <algorithm>
#include <map>
#include <set>
#include <utility>
#include <vector>

namespace
{

using Element = KrPlainXml::Element;
using KrMeshTokens::isCount;
using KrMeshTokens::takeWord;

// No real file comes near: a vertex has a handful of attributes.
constexpr std::uint64_t kMaxPlaces = 256;
// With all that is placed inside them: each placing costs a node of memory.
constexpr std::uint64_t kMaxNodes = 100000;
constexpr std::size_t kMaxControllers = 16; // one on the other
// The mesh library looks through all nodes for each that is placed.
constexpr std::uint64_t kMaxComparisons = 200000000;
// A tree takes a hundred times the bytes of an empty element. Real files have some thousands, or one for each polygon.
constexpr std::uint64_t kMaxElements = 4000000;
// Letters that are looked at together; fewer than a byte counts.
constexpr std::size_t kBlock = 64;

/// False for something else than a whole number up to `limit`; an absent attribute leaves `value`.
bool takeCount(const KrPlainXml& file, const Element& element, const char* name, std::uint64_t limit,
               std::uint64_t& value)
{
    const KrPlainXml::Attribute* const attribute = file.attribute(element, name);
    return !attribute || isCount(KrText::trimmed(attribute->value), limit, value);
}

/// What "#id" refers to.
std::string_view referred(std::string_view reference)
{
    return reference.substr(std::min(reference.find_first_not_of('#'), reference.size()));
}

/// Nodes place one another, by name; the mesh library follows them by recursion.
class NodeCheck
{
public:
    explicit NodeCheck(const KrPlainXml& file)
        : m_file(file)
    {
    }
    bool enter(const Element& element, std::string& why);
    void leave(const Element& element);
    /// False for a tree that is too deep or too large, or has no end.
    bool run(std::string& why);

private:
    struct Node
    {
        std::vector<std::size_t> children;
        std::vector<std::string_view> instances; ///< what they are called
        std::uint64_t size = 0;                  ///< with all that is in it; 0 until it is known
    };

    bool measure(std::size_t node, std::size_t depth, std::string& why);

    const KrPlainXml& m_file;
    std::vector<Node> m_nodes;
    std::size_t m_depth = 0;
    std::vector<std::size_t> m_open; ///< nodes
    std::multimap<std::string_view, std::size_t> m_names;
    std::uint64_t m_instances = 0;
};

bool isNode(const Element& element)
{
    return element.isCalled("node") || element.isCalled("visual_scene");
}

bool NodeCheck::enter(const Element& element, std::string& why)
{
    if (isNode(element)) {
        const std::size_t node = m_nodes.size();
        m_nodes.emplace_back();
        // An instance may mean a node by any of the three: the check follows all of them.
        for (const char* const key : {"id", "name", "sid"}) {
            const std::string_view value = m_file.attributeOf(element, key);
            if (!value.empty()) {
                m_names.emplace(value, node);
            }
        }
        if (!m_open.empty()) {
            m_nodes[m_open.back()].children.push_back(node);
        }
        m_open.push_back(node);
    } else if (!m_open.empty() && element.isCalled("instance_node")) {
        const std::string_view url = m_file.attributeOf(element, "url");
        ++m_instances;
        // Without the hash at its front.
        m_nodes[m_open.back()].instances.push_back(url.substr(std::min<std::size_t>(1, url.size())));
    }
    // The mesh library goes down by recursion.
    if (++m_depth > Kr::Limits::kMeshNesting) {
        why = "its elements are nested deeper than " + std::to_string(Kr::Limits::kMeshNesting);
        return false;
    }
    return true;
}

void NodeCheck::leave(const Element& element)
{
    --m_depth;
    if (isNode(element)) {
        m_open.pop_back();
    }
}

bool NodeCheck::run(std::string& why)
{
    // Without instances the tree is the document's own, and enter() has bounded its depth.
    if (m_instances == 0) {
        return true;
    }
    if (m_instances * m_nodes.size() > kMaxComparisons) {
        why = "it places too many nodes";
        return false;
    }
    // From every node: a circle may hang below none of the scenes.
    for (std::size_t node = 0; node < m_nodes.size(); ++node) {
        if (!measure(node, 0, why)) {
            return false;
        }
    }
    return true;
}

// The depth is bounded, that of a circle, too.
bool NodeCheck::measure(std::size_t node, std::size_t depth, std::string& why)
{
    Node& current = m_nodes[node];
    // Each is measured once. Without that a row of nodes that each place the next one twice takes a power of two.
    if (current.size > 0) {
        return true;
    }
    if (depth > Kr::Limits::kMeshNesting) {
        why = "its nodes place one another deeper than " + std::to_string(Kr::Limits::kMeshNesting);
        return false;
    }
    std::uint64_t size = 1;
    const auto add = [&](std::size_t other) {
        const bool isGood = measure(other, depth + 1, why);
        size += m_nodes[other].size;
        // At once, so that sizes which double from node to node overflow nothing.
        if (isGood && size > kMaxNodes) {
            why = "its nodes place one another more than " + std::to_string(kMaxNodes) + " times";
            return false;
        }
        return isGood;
    };
    for (const std::size_t child : current.children) {
        if (!add(child)) {
            return false;
        }
    }
    for (const std::string_view instance : current.instances) {
        // Several nodes may bear the name, and which one the mesh library takes is its own affair: all count.
        const auto [begin, end] = m_names.equal_range(instance);
        for (auto place = begin; place != end; ++place) {
            if (!add(place->second)) {
                return false;
            }
        }
    }
    current.size = size;
    return true;
}

/// Follows counts, strides and offsets to where they lead.
class Check
{
public:
    /// @param size  of the file, bytes: nothing that it holds is more
    Check(const KrPlainXml& file, std::uint64_t size)
        : m_file(file)
        , m_size(size)
        , m_nodes(file)
    {
    }

    bool run(std::string& why);

private:
    /// An accessor's reach into its array.
    struct Reach
    {
        std::string_view array;
        bool isInMesh = false;
        std::uint64_t count = 0;
        std::uint64_t stride = 1;
        std::uint64_t offset = 0;
        std::uint64_t params = 0;
    };

    bool walk();
    bool enter(const Element& element);
    bool leave(const Element& element);
    bool checkArray(const Element& element);
    bool checkAccessor(const Element& element);
    bool checkMesh(const Element& element);
    bool checkIndices(const Element& element);
    bool checkReaches();
    bool fail(const std::string& why)
    {
        m_why = why;
        return false;
    }

    const KrPlainXml& m_file;
    std::uint64_t m_size;
    std::string m_why;
    bool m_isInMesh = false;
    bool m_isInAccessor = false;
    bool m_isInHole = false;
    std::uint64_t m_declared = 0; ///< primitives of the element in hand
    std::uint64_t m_lists = 0;    ///< its elements <p>
    std::uint64_t m_lengths = 0;  ///< of those that are known
    NodeCheck m_nodes;
    std::set<std::string_view> m_wordArrays;
    std::map<std::string_view, std::uint64_t> m_arrays; ///< numbers by id; the fewest of those of one id
    std::vector<Reach> m_reaches;
};

/// The kinds with faces. Lines and points draw nothing here.
bool isPrimitives(const Element& element)
{
    return element.isCalled("triangles") || element.isCalled("polylist") || element.isCalled("polygons");
}

bool Check::run(std::string& why)
{
    // The reaches come behind the walk, because an accessor may stand before its array.
    const bool isGood = walk() && checkReaches() && m_nodes.run(m_why);
    why = isGood ? why : m_why;
    return isGood;
}

/// Through all elements in the order of the file, and out of each behind what is inside it.
bool Check::walk()
{
    const std::vector<Element>& elements = m_file.elements();
    for (std::uint32_t i = 0; i < elements.size(); ++i) {
        if (!enter(elements[i])) {
            return false;
        }
        // The ends of those that end here, from the inside out.
        for (std::uint32_t open = i; open != KrPlainXml::none && elements[open].next == i + 1;
             open = elements[open].parent) {
            if (!leave(elements[open])) {
                return false;
            }
        }
    }
    return true;
}

bool Check::enter(const Element& element)
{
    if (!m_nodes.enter(element, m_why)) {
        return false;
    }
    if (element.isCalled("float_array")) {
        return checkArray(element);
    }
    // Arrays of names, ids or booleans share the accessors, but hold no numbers.
    if (element.name.size() > 6 && element.name.substr(element.name.size() - 6) == "_array") {
        m_wordArrays.insert(m_file.attributeOf(element, "id"));
        return true;
    }
    if (element.isCalled("accessor")) {
        m_isInAccessor = true;
        return checkAccessor(element);
    }
    if (element.isCalled("param") && m_isInAccessor) {
        // Entering the accessor has added its reach, so there is one.
        ++m_reaches.back().params;
    }
    m_isInMesh = m_isInMesh || element.isCalled("mesh");
    m_isInHole = m_isInHole || element.isCalled("ph");
    return !m_isInMesh || (checkMesh(element) && checkIndices(element));
}

bool Check::leave(const Element& element)
{
    m_nodes.leave(element);
    m_isInAccessor = m_isInAccessor && !element.isCalled("accessor");
    m_isInHole = m_isInHole && !element.isCalled("ph");
    // Only at its end is it known how many lists an element has.
    if (m_isInMesh && isPrimitives(element)) {
        // Polygons have a list each, the others all in one.
        const std::uint64_t one = m_declared > 0 ? 1 : m_lists;
        if (m_lists != (element.isCalled("polygons") ? m_declared : one)) {
            return fail("an element <" + std::string(element.name) + "> does not hold as many lists as it declares");
        }
    }
    m_isInMesh = m_isInMesh && !element.isCalled("mesh");
    return true;
}

bool Check::checkArray(const Element& element)
{
    std::uint64_t declared = 0;
    if (!takeCount(m_file, element, "count", m_size, declared)) {
        return fail("the count of a float_array is no number or far too high");
    }
    // Of the text that the mesh library takes; more numbers than it declares are read by nobody.
    if (KrMeshTokens::numWords(element.text) < declared) {
        return fail("a float_array holds fewer numbers than it declares");
    }
    // The mesh library finds one of those that share an id, and nobody knows which.
    const auto [place, isNew] = m_arrays.emplace(m_file.attributeOf(element, "id"), declared);
    place->second = std::min(place->second, declared);
    return true;
}

bool Check::checkAccessor(const Element& element)
{
    Reach reach;
    reach.array = referred(m_file.attributeOf(element, "source"));
    reach.isInMesh = m_isInMesh;
    const bool isGood = takeCount(m_file, element, "count", m_size, reach.count) &&
                        // None of them beyond the size of the file: the product of two in checkReaches() stays within
                        // 64 bits.
                        takeCount(m_file, element, "stride", kMaxPlaces, reach.stride) &&
                        takeCount(m_file, element, "offset", m_size, reach.offset);
    m_reaches.push_back(reach);
    return isGood || fail("the count, stride or offset of an accessor is no number or far too high");
}

bool Check::checkMesh(const Element& element)
{
    std::uint64_t value = 0;
    if (element.isCalled("input") && !(takeCount(m_file, element, "offset", kMaxPlaces, value) &&
                                       takeCount(m_file, element, "set", kMaxPlaces, value))) {
        return fail("the offset or set of an input is no number or far too high");
    }
    std::uint64_t count = 0;
    // Of any element inside a mesh. An absent count is 0 and fits what is empty only.
    if (!takeCount(m_file, element, "count", m_size, count)) {
        return fail("the count of an element <" + std::string(element.name) + "> is no number or far too high");
    }
    if (isPrimitives(element)) {
        m_declared = count;
        m_lists = 0;
        // Polylists tell the lengths of their polygons in a list; of the others they are known from the start.
        m_lengths = element.isCalled("polylist") ? 0 : m_declared;
    }
    return true;
}

bool Check::checkIndices(const Element& element)
{
    const bool isList = element.isCalled("p");
    const bool isLengths = element.isCalled("vcount");
    if (!isList && !isLengths && !element.isCalled("h")) {
        return true;
    }
    if (isList && m_lengths < m_declared) {
        return fail("an element <p> comes before the lengths of its polygons");
    }
    m_lists += isList && !m_isInHole ? 1 : 0;
    // The first piece of text, as the mesh library reads it.
    std::string_view rest = element.text;
    if (!KrMeshTokens::areIndices(rest)) {
        return fail("there is something else than indices in an element <" + std::string(element.name) + ">");
    }
    std::uint64_t words = 0;
    // Fewer lengths than declared would be read beyond their end.
    for (std::uint64_t length = 0; isLengths && words < m_declared; ++words) {
        if (!isCount(takeWord(rest), m_size, length)) {
            return fail("an element <vcount> holds fewer lengths than its list has");
        }
    }
    m_lengths = isLengths ? words : m_lengths;
    return true;
}

bool Check::checkReaches()
{
    for (const Reach& reach : m_reaches) {
        const auto array = m_arrays.find(reach.array);
        if (array == m_arrays.end() && !reach.isInMesh) {
            continue; // of words
        }
        // An id that arrays of both kinds bear counts as none: which of the two is found is the library's affair.
        const bool isNumbers = array != m_arrays.end() && m_wordArrays.count(reach.array) == 0;
        const std::uint64_t numbers = isNumbers ? array->second : 0;
        // Even an accessor without parameters reads one number at each place.
        const std::uint64_t last = std::max<std::uint64_t>(reach.params, 1);
        if (reach.count > 0 && reach.offset + (reach.count - 1) * reach.stride + last > numbers) {
            return fail("an accessor reaches beyond its array");
        }
    }
    return true;
}

/// A change of the text: `length` bytes at `at` become `words`.
struct Edit
{
    std::size_t at = 0;
    std::size_t length = 0;
    std::string words;
};

/// Between the pieces that change the text is copied as it is.
std::string edited(std::string_view text, std::vector<Edit> edits)
{
    std::stable_sort(edits.begin(), edits.end(), [](const Edit& a, const Edit& b) { return a.at < b.at; });
    std::string result;
    result.reserve(text.size());
    std::size_t done = 0;
    for (const Edit& edit : edits) {
        // What is inside of something that is cut out goes with it.
        if (edit.at >= done) {
            result.append(text, done, edit.at - done).append(edit.words);
            done = edit.at + edit.length;
        }
    }
    return result.append(text, done);
}

/// The meshes of controllers, by the controllers' ids.
std::map<std::string_view, std::string_view> skinnedMeshes(const KrPlainXml& file)
{
    std::map<std::string_view, std::string_view> meshes;
    // In the order of the file, a skin comes behind the controller that it stands in.
    std::string_view controller;
    for (const Element& element : file.elements()) {
        if (element.isCalled("controller")) {
            controller = file.attributeOf(element, "id");
        } else if (element.isCalled("skin") || element.isCalled("morph")) {
            meshes.emplace(controller, referred(file.attributeOf(element, "source")));
        }
    }
    return meshes;
}

/// An attribute's value between double quotes.
std::string quoted(std::string_view value)
{
    std::string text = "\"";
    for (const char c : value) {
        text += c == '"' ? "&quot;" : std::string(1, c);
    }
    return text + '"';
}

/// What instances of a controller become: instances of the mesh that it would bend.
void showUnbent(const KrPlainXml& file, const Element& instance,
                const std::map<std::string_view, std::string_view>& meshes, std::vector<Edit>& edits)
{
    std::string_view mesh = referred(file.attributeOf(instance, "url"));
    // A skin may bend what another controller makes of a mesh.
    // Bounded, because two controllers may name each other.
    for (std::size_t i = 0; i < kMaxControllers && meshes.count(mesh); ++i) {
        mesh = meshes.at(mesh);
    }
    const std::string url = quoted("#" + std::string(mesh));
    const std::size_t name = instance.begin + 1;
    if (const KrPlainXml::Attribute* const attribute = file.attribute(instance, "url")) {
        edits.push_back({name, instance.name.size(), "instance_geometry"});
        // With the quotes around it.
        edits.push_back({file.offsetOf(attribute->value) - 1, attribute->value.size() + 2, url});
    } else {
        edits.push_back({name, instance.name.size(), "instance_geometry url=" + url});
    }
    if (instance.endTag < instance.end) {
        edits.push_back({instance.endTag + 2, instance.name.size(), "instance_geometry"});
    }
}

/// Takes out what would move a mesh: animations, and skins, whose instances become instances of the mesh that they
/// would bend. The mesh library trusts the weights of skins.
std::vector<Edit> withoutMotion(const KrPlainXml& file)
{
    const std::map<std::string_view, std::string_view> meshes = skinnedMeshes(file);
    std::vector<Edit> edits;
    for (const Element& element : file.elements()) {
        if (element.isCalled("instance_controller")) {
            showUnbent(file, element, meshes, edits);
        }
        for (const char* const name : {"library_controllers", "library_animations", "library_animation_clips"}) {
            if (element.isCalled(name) && element.parent == 0) {
                edits.push_back({element.begin, element.end - element.begin, ""});
            }
        }
    }
    return edits;
}

/// The same for equal words, and hardly ever for others.
std::uint64_t numberOf(std::string_view word)
{
    std::uint64_t number = word.size();
    for (const char letter : word) {
        number = (number ^ static_cast<unsigned char>(letter)) * 0x9E3779B97F4A7C15u;
        number ^= number >> 32;
    }
    return number;
}

/// Gives what several geometries call by one name names of its own: some exporters number from 0 in each of them, and
/// the mesh library keeps one array for each name.
std::vector<Edit> withOwnIds(const KrPlainXml& file)
{
    const std::vector<Element>& all = file.elements();
    // Nearly all files have no name twice, and need not be looked at closer. Numbers are sorted in a fraction of the
    // time that words take; two words of one number only cost the closer look.
    std::vector<std::uint64_t> ids;
    for (const Element& element : all) {
        if (const KrPlainXml::Attribute* const id = file.attribute(element, "id")) {
            ids.push_back(numberOf(id->value));
        }
    }
    std::sort(ids.begin(), ids.end());
    if (std::adjacent_find(ids.begin(), ids.end()) == ids.end()) {
        return {};
    }
    std::map<std::string_view, std::uint32_t> owners;
    std::set<std::string_view> shared;
    // A geometry's own name is known outside. One inside another is part of it.
    const auto forEachInside = [&all](const auto& work) {
        for (std::uint32_t g = 0; g < all.size();) {
            const bool isGeometry = all[g].isCalled("geometry");
            for (std::uint32_t i = g + 1; isGeometry && i < all[g].next; ++i) {
                work(g, all[i]);
            }
            g = isGeometry ? all[g].next : g + 1;
        }
    };
    forEachInside([&](std::uint32_t geometry, const Element& element) {
        const std::string_view id = file.attributeOf(element, "id");
        if (!id.empty() && owners.emplace(id, geometry).first->second != geometry) {
            shared.insert(id);
        }
    });
    // Names are used inside their geometry only: what refers to them is renamed with them.
    std::vector<Edit> edits;
    forEachInside([&](std::uint32_t geometry, const Element& element) {
        for (const char* const key : {"id", "source"}) {
            const std::string_view value = file.attributeOf(element, key);
            if (shared.count(referred(value)) > 0) {
                edits.push_back({file.offsetOf(value) + value.size(), 0, "-of-geometry-" + std::to_string(geometry)});
            }
        }
    });
    return edits;
}

/// The first one counts. Cut, because it is a word of the file: "X_UP", "Y_UP" and "Z_UP" are what is meant.
std::string upAxisOf(const KrPlainXml& file)
{
    for (const Element& element : file.elements()) {
        if (element.isCalled("up_axis")) {
            return std::string(KrText::trimmed(element.text).substr(0, 10));
        }
    }
    return "";
}

/// Asked before the parser runs: its tree is what takes the memory.
bool isTooLarge(std::string_view content)
{
    std::uint64_t count = 0;
    std::size_t at = 0;
    // A loop of a fixed length becomes instructions for many letters at once.
    for (; content.size() - at >= kBlock; at += kBlock) {
        unsigned char tags = 0;
        for (std::size_t i = 0; i < kBlock; ++i) {
            tags += static_cast<unsigned char>(content[at + i] == '<');
        }
        count += tags;
    }
    for (; at < content.size(); ++at) {
        count += content[at] == '<';
    }
    return count > 2 * kMaxElements; // most have an end of their own
}

/// Writes anew what has more of XML in it than elements, attributes and texts.
bool makePlain(KrColladaText::Mesh& mesh, KrPlainXml& file, std::string& why)
{
    const std::size_t size = mesh.text.size();
    const KrImportXml::UniqueDocument document =
        KrImportXml::parse(mesh.text, KrImportXml::Text::Long, why, &mesh.isForeign);
    if (!document || !xmlDocGetRootElement(document.get())) {
        return false;
    }
    // The tree holds all of it by now, and a large mesh need not be in memory twice.
    mesh.text = std::string();
    mesh.text = KrImportXml::textOf(*document, size);
    // A carriage return that is meant is white space as any other; as a reference it would stand inside a word.
    static constexpr std::string_view kReturn = "&#13;";
    std::vector<Edit> returns;
    for (std::size_t at = mesh.text.find(kReturn); at != std::string::npos; at = mesh.text.find(kReturn, at + 1)) {
        returns.push_back({at, kReturn.size(), " "});
    }
    if (!returns.empty()) {
        mesh.text = edited(mesh.text, std::move(returns));
    }
    if (!file.read(mesh.text, KrPlainXml::Origin::Writer)) {
        why = "it is no XML";
        return false;
    }
    return true;
}

/// Changes the text and reads it again. False when that is no document any more, which no change does.
bool change(std::string& text, KrPlainXml& file, std::vector<Edit>&& edits)
{
    if (edits.empty()) {
        return true;
    }
    text = edited(text, std::move(edits));
    return file.read(text, KrPlainXml::Origin::Writer);
}

} // namespace

bool KrColladaText::clean(std::string&& content, Mesh& mesh, std::string& why)
{
    if (isTooLarge(content)) {
        why = "it has more than " + std::to_string(kMaxElements) + " elements";
        return false;
    }
    const std::size_t size = content.size();
    mesh.text = std::move(content);
    content.clear();
    KrPlainXml file;
    if (!file.read(mesh.text, KrPlainXml::Origin::File) && !makePlain(mesh, file, why)) {
        return false;
    }
    // Comments go as well: what the check has not seen, the mesh library does not see either.
    std::vector<Edit> comments;
    for (const KrPlainXml::Range& comment : file.comments()) {
        comments.push_back({comment.begin, comment.end - comment.begin, ""});
    }
    // Motion goes first: what is wrong in it harms nobody then. Ids before the check, which follows references by
    // them. Each of them is read anew: what is checked is what is handed on, to the letter.
    if (!change(mesh.text, file, std::move(comments)) || !change(mesh.text, file, withoutMotion(file)) ||
        !change(mesh.text, file, withOwnIds(file))) {
        why = "it is no XML";
        return false;
    }
    if (!Check(file, size).run(why)) {
        return false;
    }
    mesh.upAxis = upAxisOf(file);
    const Element& root = file.elements().front();
    const std::size_t begin = root.begin;
    mesh.text.resize(root.end);
    mesh.text.erase(0, begin);
    return true;
}
