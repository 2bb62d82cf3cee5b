#include <import/mesh/KrColladaText.h>

#include <import/files/KrImportXml.h>
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

using KrImportXml::attributeOf;
using KrImportXml::isNamed;
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
constexpr std::ptrdiff_t kMaxElements = 4000000;

/// `node`, or the first element behind it.
xmlNode* elementFrom(xmlNode* node)
{
    while (node && node->type != XML_ELEMENT_NODE) {
        node = node->next;
    }
    return node;
}

/// Calls `enter` for `root` and every element inside it, in the order of the file, and `leave` behind what is inside
/// each. Without recursion, and over at once when one of them returns false.
template <typename Visitor>
// The bound on nesting is found in a tree that exists already: going through it must not need a stack of that depth.
bool traverse(xmlNode& root, Visitor& visitor)
{
    for (xmlNode* node = &root;;) {
        if (!visitor.enter(*node)) {
            return false;
        }
        xmlNode* next = elementFrom(node->children);
        while (!next) {
            if (!visitor.leave(*node)) {
                return false;
            }
            if (node == &root) {
                return true;
            }
            next = elementFrom(node->next);
            node = next ? node : node->parent;
        }
        node = next;
    }
}

/// `root` and the elements inside it, in the order of the file.
std::vector<xmlNode*> elements(xmlNode& root)
{
    struct Collector
    {
        std::vector<xmlNode*> list;
        bool enter(xmlNode& node)
        {
            list.push_back(&node);
            return true;
        }
        static bool leave(const xmlNode&) { return true; }
    } collector;
    traverse(root, collector);
    return std::move(collector.list);
}

/// What the mesh library takes for the text of an element: the first piece between tags that is not blank.
std::string_view textOf(const xmlNode& node)
{
    for (const xmlNode* child = node.children; child; child = child->next) {
        if (child->type == XML_TEXT_NODE && child->content && !xmlIsBlankNode(child)) {
            return reinterpret_cast<const char*>(child->content);
        }
    }
    return {};
}

/// False for something else than a whole number up to `limit`; an absent attribute leaves `value`.
bool takeCount(const xmlNode& node, const char* name, std::uint64_t limit, std::uint64_t& value)
{
    std::string text;
    return !KrImportXml::attribute(node, name, text) || isCount(KrText::trimmed(text), limit, value);
}

/// What "#id" refers to.
std::string referred(const std::string& reference)
{
    return reference.substr(std::min(reference.find_first_not_of('#'), reference.size()));
}

/// Nodes place one another, by name; the mesh library follows them by recursion.
class NodeCheck
{
public:
    bool enter(const xmlNode& element, std::string& why);
    void leave() { m_open.pop_back(); }
    /// False for a tree that is too deep or too large, or has no end.
    bool run(std::string& why);

private:
    struct Node
    {
        std::vector<std::size_t> children;
        std::vector<std::string> instances; ///< what they are called
        std::uint64_t size = 0;             ///< with all that is in it; 0 until it is known
    };

    bool measure(std::size_t node, std::size_t depth, std::string& why);

    std::vector<Node> m_nodes;
    std::vector<std::size_t> m_open; ///< elements: their node, or kNone
    std::multimap<std::string, std::size_t> m_names;
    std::uint64_t m_instances = 0;
    static constexpr std::size_t kNone = SIZE_MAX;
};

bool NodeCheck::enter(const xmlNode& element, std::string& why)
{
    // Called for every element, node or not: the list of open ones has to match the nesting.
    std::size_t node = kNone;
    if (isNamed(element, "node") || isNamed(element, "visual_scene")) {
        node = m_nodes.size();
        m_nodes.emplace_back();
        // An instance may mean a node by any of the three: the check follows all of them.
        for (const char* const key : {"id", "name", "sid"}) {
            const std::string value = attributeOf(element, key);
            if (!value.empty()) {
                m_names.emplace(value, node);
            }
        }
    }
    const auto isNode = [](std::size_t open) { return open != kNone; };
    const auto parent = std::find_if(m_open.rbegin(), m_open.rend(), isNode);
    if (parent != m_open.rend() && node != kNone) {
        m_nodes[*parent].children.push_back(node);
    }
    if (parent != m_open.rend() && isNamed(element, "instance_node")) {
        const std::string url = attributeOf(element, "url");
        ++m_instances;
        // Without the hash at its front.
        m_nodes[*parent].instances.push_back(url.substr(std::min<std::size_t>(1, url.size())));
    }
    m_open.push_back(node);
    // The mesh library, and the writer of libxml2, go down by recursion.
    if (m_open.size() > Kr::Limits::kMeshNesting) {
        why = "its elements are nested deeper than " + std::to_string(Kr::Limits::kMeshNesting);
        return false;
    }
    return true;
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
    for (const std::string& instance : current.instances) {
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
    explicit Check(std::uint64_t size)
        : m_size(size)
    {
    }

    bool run(xmlNode& root, std::string& why);
    bool enter(const xmlNode& element);
    bool leave(const xmlNode& element);

private:
    /// An accessor's reach into its array.
    struct Reach
    {
        std::string array;
        bool isInMesh = false;
        std::uint64_t count = 0;
        std::uint64_t stride = 1;
        std::uint64_t offset = 0;
        std::uint64_t params = 0;
    };

    bool checkArray(const xmlNode& element);
    bool checkAccessor(const xmlNode& element);
    bool checkMesh(const xmlNode& element);
    bool checkIndices(const xmlNode& element);
    bool checkReaches();
    bool fail(const std::string& why)
    {
        m_why = why;
        return false;
    }

    std::uint64_t m_size;
    std::string m_why;
    bool m_isInMesh = false;
    bool m_isInAccessor = false;
    bool m_isInHole = false;
    std::uint64_t m_declared = 0; ///< primitives of the element in hand
    std::uint64_t m_lists = 0;    ///< its elements <p>
    std::uint64_t m_lengths = 0;  ///< of those that are known
    NodeCheck m_nodes;
    std::set<std::string> m_wordArrays;
    std::map<std::string, std::uint64_t> m_arrays; ///< numbers by id; the fewest of those of one id
    std::vector<Reach> m_reaches;
};

/// The kinds with faces. Lines and points draw nothing here.
bool isPrimitives(const xmlNode& element)
{
    return isNamed(element, "triangles") || isNamed(element, "polylist") || isNamed(element, "polygons");
}

bool Check::run(xmlNode& root, std::string& why)
{
    // The reaches come behind the walk, because an accessor may stand before its array.
    const bool isGood = traverse(root, *this) && checkReaches() && m_nodes.run(m_why);
    why = isGood ? why : m_why;
    return isGood;
}

bool Check::enter(const xmlNode& element)
{
    if (!m_nodes.enter(element, m_why)) {
        return false;
    }
    if (isNamed(element, "float_array")) {
        return checkArray(element);
    }
    const std::string_view name = reinterpret_cast<const char*>(element.name);
    // Arrays of names, ids or booleans share the accessors, but hold no numbers.
    if (name.size() > 6 && name.substr(name.size() - 6) == "_array") {
        m_wordArrays.insert(attributeOf(element, "id"));
        return true;
    }
    if (isNamed(element, "accessor")) {
        m_isInAccessor = true;
        return checkAccessor(element);
    }
    if (isNamed(element, "param") && m_isInAccessor) {
        // Entering the accessor has added its reach, so there is one.
        ++m_reaches.back().params;
    }
    m_isInMesh = m_isInMesh || isNamed(element, "mesh");
    m_isInHole = m_isInHole || isNamed(element, "ph");
    return !m_isInMesh || (checkMesh(element) && checkIndices(element));
}

bool Check::leave(const xmlNode& element)
{
    m_nodes.leave();
    m_isInAccessor = m_isInAccessor && !isNamed(element, "accessor");
    m_isInHole = m_isInHole && !isNamed(element, "ph");
    // Only at its end is it known how many lists an element has.
    if (m_isInMesh && isPrimitives(element)) {
        // Polygons have a list each, the others all in one.
        const std::uint64_t one = m_declared > 0 ? 1 : m_lists;
        if (m_lists != (isNamed(element, "polygons") ? m_declared : one)) {
            return fail("an element <" + KrImportXml::nameOf(element) + "> does not hold as many lists as it declares");
        }
    }
    m_isInMesh = m_isInMesh && !isNamed(element, "mesh");
    return true;
}

bool Check::checkArray(const xmlNode& element)
{
    std::uint64_t declared = 0;
    if (!takeCount(element, "count", m_size, declared)) {
        return fail("the count of a float_array is no number or far too high");
    }
    // Of the text that the mesh library takes; more numbers than it declares are read by nobody.
    if (KrMeshTokens::numWords(textOf(element)) < declared) {
        return fail("a float_array holds fewer numbers than it declares");
    }
    // The mesh library finds one of those that share an id, and nobody knows which.
    const auto [place, isNew] = m_arrays.emplace(attributeOf(element, "id"), declared);
    place->second = std::min(place->second, declared);
    return true;
}

bool Check::checkAccessor(const xmlNode& element)
{
    Reach reach;
    reach.array = referred(attributeOf(element, "source"));
    reach.isInMesh = m_isInMesh;
    const bool isGood = takeCount(element, "count", m_size, reach.count) &&
                        // None of them beyond the size of the file: the product of two in checkReaches() stays within
                        // 64 bits.
                        takeCount(element, "stride", kMaxPlaces, reach.stride) &&
                        takeCount(element, "offset", m_size, reach.offset);
    m_reaches.push_back(reach);
    return isGood || fail("the count, stride or offset of an accessor is no number or far too high");
}

bool Check::checkMesh(const xmlNode& element)
{
    std::uint64_t value = 0;
    if (isNamed(element, "input") &&
        !(takeCount(element, "offset", kMaxPlaces, value) && takeCount(element, "set", kMaxPlaces, value))) {
        return fail("the offset or set of an input is no number or far too high");
    }
    std::uint64_t count = 0;
    // Of any element inside a mesh. An absent count is 0 and fits what is empty only.
    if (!takeCount(element, "count", m_size, count)) {
        return fail("the count of an element <" + KrImportXml::nameOf(element) + "> is no number or far too high");
    }
    if (isPrimitives(element)) {
        m_declared = count;
        m_lists = 0;
        // Polylists tell the lengths of their polygons in a list; of the others they are known from the start.
        m_lengths = isNamed(element, "polylist") ? 0 : m_declared;
    }
    return true;
}

bool Check::checkIndices(const xmlNode& element)
{
    const bool isList = isNamed(element, "p");
    const bool isLengths = isNamed(element, "vcount");
    if (!isList && !isLengths && !isNamed(element, "h")) {
        return true;
    }
    if (isList && m_lengths < m_declared) {
        return fail("an element <p> comes before the lengths of its polygons");
    }
    m_lists += isList && !m_isInHole ? 1 : 0;
    // The first piece of text, as the mesh library reads it.
    std::string_view rest = textOf(element);
    const auto isOfIndices = [](char c) { return (c >= '0' && c <= '9') || c == '-' || KrMeshTokens::isSpace(c); };
    if (!std::all_of(rest.begin(), rest.end(), isOfIndices)) {
        return fail("there is something else than indices in an element <" + KrImportXml::nameOf(element) + ">");
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

/// libxml2 frees what hangs below a node, and no more: the tree must not point at it any longer.
void removeElement(xmlNode* element)
{
    xmlUnlinkNode(element);
    xmlFreeNode(element);
}

/// In the place of one that is there.
void setAttribute(xmlNode& node, const char* name, const std::string& value)
{
    xmlSetProp(&node, reinterpret_cast<const xmlChar*>(name), reinterpret_cast<const xmlChar*>(value.c_str()));
}

/// The meshes of controllers, by the controllers' ids.
std::map<std::string, std::string> skinnedMeshes(const std::vector<xmlNode*>& all)
{
    std::map<std::string, std::string> meshes;
    // In the order of the file, a skin comes behind the controller that it stands in.
    std::string controller;
    for (const xmlNode* const element : all) {
        if (isNamed(*element, "controller")) {
            controller = attributeOf(*element, "id");
        } else if (isNamed(*element, "skin") || isNamed(*element, "morph")) {
            meshes.emplace(controller, referred(attributeOf(*element, "source")));
        }
    }
    return meshes;
}

/// Takes out what would move a mesh: animations, and skins, whose instances become instances of the mesh that they
/// would bend. The mesh library trusts the weights of skins.
/// @param all  the elements; those that stay
void dropMotion(xmlNode& root, std::vector<xmlNode*>& all)
{
    const std::map<std::string, std::string> meshes = skinnedMeshes(all);
    std::vector<xmlNode*> libraries;
    for (xmlNode* const element : all) {
        if (isNamed(*element, "instance_controller")) {
            std::string mesh = referred(attributeOf(*element, "url"));
            // A skin may bend what another controller makes of a mesh.
            // Bounded, because two controllers may name each other.
            for (std::size_t i = 0; i < kMaxControllers && meshes.count(mesh); ++i) {
                mesh = meshes.at(mesh);
            }
            xmlNodeSetName(element, reinterpret_cast<const xmlChar*>("instance_geometry"));
            setAttribute(*element, "url", "#" + mesh);
        }
        for (const char* const name : {"library_controllers", "library_animations", "library_animation_clips"}) {
            // One inside another goes with it.
            if (isNamed(*element, name) && element->parent == &root) {
                libraries.push_back(element);
            }
        }
    }
    // Behind the loop: the list still holds elements that go with them.
    std::for_each(libraries.begin(), libraries.end(), removeElement);
    if (!libraries.empty()) {
        all = elements(root);
    }
}

/// Gives what several geometries call by one name names of its own: some exporters number from 0 in each of them, and
/// the mesh library keeps one array for each name.
void separateIds(const std::vector<xmlNode*>& all)
{
    // Nearly all files have no name twice, and need not be looked at closer.
    std::set<std::string> names;
    std::string name;
    const auto isNew = [&](const xmlNode* element) {
        return !KrImportXml::attribute(*element, "id", name) || names.insert(name).second;
    };
    if (std::all_of(all.begin(), all.end(), isNew)) {
        return;
    }
    std::vector<std::vector<xmlNode*>> geometries;
    for (xmlNode* const element : all) {
        if (isNamed(*element, "geometry")) {
            geometries.push_back(elements(*element));
            geometries.back().erase(geometries.back().begin()); // its own name is known outside
        }
    }
    std::map<std::string, std::size_t> owners;
    std::set<std::string> shared;
    for (std::size_t i = 0; i < geometries.size(); ++i) {
        for (const xmlNode* const element : geometries[i]) {
            const std::string id = attributeOf(*element, "id");
            if (!id.empty() && owners.emplace(id, i).first->second != i) {
                shared.insert(id);
            }
        }
    }
    // Names are used inside their geometry only: what refers to them is renamed with them.
    for (std::size_t i = 0; i < geometries.size() && !shared.empty(); ++i) {
        for (xmlNode* const element : geometries[i]) {
            for (const char* const key : {"id", "source"}) {
                const std::string value = attributeOf(*element, key);
                if (shared.count(referred(value)) > 0) {
                    setAttribute(*element, key, value + "-of-geometry-" + std::to_string(i + 1));
                }
            }
        }
    }
}

/// The first one counts. Cut, because it is a word of the file: "X_UP", "Y_UP" and "Z_UP" are what is meant.
std::string upAxisOf(const std::vector<xmlNode*>& all)
{
    for (const xmlNode* const element : all) {
        if (isNamed(*element, "up_axis")) {
            return std::string(KrText::trimmed(textOf(*element)).substr(0, 10));
        }
    }
    return "";
}

/// Asked before the parser runs: its tree is what takes the memory.
bool isTooLarge(const std::string& content)
{
    std::ptrdiff_t count = 0;
    // Tags stand far from one another in files that are large.
    for (std::size_t at = content.find('<'); at != std::string::npos; at = content.find('<', at + 1)) {
        ++count;
    }
    return count > 2 * kMaxElements; // most have an end of their own
}

} // namespace

bool KrColladaText::clean(std::string&& content, Mesh& mesh, std::string& why)
{
    if (isTooLarge(content)) {
        why = "it has more than " + std::to_string(kMaxElements) + " elements";
        return false;
    }
    const std::size_t size = content.size();
    const KrImportXml::UniqueDocument document =
        KrImportXml::parse(content, KrImportXml::Text::Long, why, &mesh.isForeign);
    xmlNode* const root = document ? xmlDocGetRootElement(document.get()) : nullptr;
    if (!root) {
        return false;
    }
    // The tree holds all of it by now, and a large mesh need not be in memory twice.
    content.clear();
    content.shrink_to_fit();
    // Motion goes first: what is wrong in it harms nobody then.
    std::vector<xmlNode*> all = elements(*root);
    dropMotion(*root, all);
    // Ids before the check, which follows references by them.
    separateIds(all);
    if (!Check(size).run(*root, why)) {
        return false;
    }
    mesh.upAxis = upAxisOf(all);
    // Written anew from the tree: what the check has not seen, the mesh library does not see either.
    mesh.text = KrImportXml::textOf(*document, size);
    return true;
}
