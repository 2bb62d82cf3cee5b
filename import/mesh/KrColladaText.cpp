#include <import/mesh/KrColladaText.h>

#include <import/mesh/KrMeshTokens.h>

#include <toolkit/foundation/KrLimits.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <utility>
#include <vector>

namespace
{

using KrMeshTokens::isCount;
using KrMeshTokens::takeWord;
using KrMeshTokens::trimmed;

// No real file comes near: a vertex has a handful of attributes.
constexpr std::uint64_t kMaxPlaces = 256;
constexpr std::uint64_t kMaxNodes = 100000;
constexpr std::size_t kMaxControllers = 16; // one on the other
// The mesh library looks through all nodes for each that is placed.
constexpr std::uint64_t kMaxComparisons = 200000000;

/// Goes from one tag to the next, past comments and the like.
class Tags
{
public:
    explicit Tags(std::string_view content)
        : m_content(content)
    {
    }

    /// False at the end of the file, which may be in the middle of a tag.
    bool next();
    /// Of the tag in hand: "p", or "/p" for the one that closes.
    std::string_view name() const { return m_name; }
    std::size_t begin() const { return m_begin; }
    std::size_t end() const { return m_at; }
    bool isEmptyElement() const { return m_content[m_at - 2] == '/'; }
    /// Empty for an absent one.
    std::string_view attribute(std::string_view name) const;
    /// False for something else than a whole number up to `limit`; an absent attribute leaves `value`.
    bool number(std::string_view name, std::uint64_t limit, std::uint64_t& value) const;
    /// From the tag in hand to the next one.
    std::string_view text() const { return m_content.substr(m_at, m_content.find('<', m_at) - m_at); }

private:
    using Attribute = std::pair<std::string_view, std::string_view>;
    bool skipped(std::string_view begin, std::string_view end);
    bool readAttributes();

    std::string_view m_content;
    std::size_t m_begin = 0;
    std::size_t m_at = 0; ///< behind the tag in hand
    std::string_view m_name;
    std::vector<Attribute> m_attributes;
};

bool Tags::next()
{
    do {
        m_begin = m_content.find('<', m_at);
        if (m_begin == std::string_view::npos) {
            return false;
        }
        m_at = m_begin + 1;
    } while (skipped("!--", "-->") || skipped("![CDATA[", "]]>") || skipped("?", "?>"));
    m_name = m_content.substr(m_at, m_content.find_first_of(" \t\r\n/>", m_at + 1) - m_at);
    m_at += m_name.size();
    return readAttributes();
}

bool Tags::skipped(std::string_view begin, std::string_view end)
{
    if (m_content.substr(m_at, begin.size()) != begin) {
        return false;
    }
    m_at = std::min(m_content.find(end, m_at), m_content.size());
    return true;
}

bool Tags::readAttributes()
{
    m_attributes.clear();
    for (;;) {
        const std::size_t begin = m_content.find_first_not_of(" \t\r\n/", m_at);
        const std::size_t end = m_content.find_first_of("=>", begin);
        if (begin == std::string_view::npos || end == std::string_view::npos) {
            return false;
        }
        m_at = end + 1;
        if (m_content[end] == '>') {
            return true;
        }
        const std::size_t quote = m_content.find_first_not_of(" \t\r\n", m_at);
        if (quote == std::string_view::npos || (m_content[quote] != '"' && m_content[quote] != '\'')) {
            continue;
        }
        const std::size_t close = m_content.find(m_content[quote], quote + 1);
        if (close == std::string_view::npos) {
            return false;
        }
        m_attributes.emplace_back(trimmed(m_content.substr(begin, end - begin)),
                                  m_content.substr(quote + 1, close - quote - 1));
        m_at = close + 1;
    }
}

std::string_view Tags::attribute(std::string_view name) const
{
    const auto isIt = [name](const Attribute& entry) { return entry.first == name; };
    const auto place = std::find_if(m_attributes.begin(), m_attributes.end(), isIt);
    return place == m_attributes.end() ? std::string_view() : place->second;
}

bool Tags::number(std::string_view name, std::uint64_t limit, std::uint64_t& value) const
{
    const auto isIt = [name](const Attribute& entry) { return entry.first == name; };
    const auto place = std::find_if(m_attributes.begin(), m_attributes.end(), isIt);
    return place == m_attributes.end() || isCount(trimmed(place->second), limit, value);
}

/// What "#id" refers to.
std::string_view referred(std::string_view reference)
{
    return reference.substr(std::min(reference.find_first_not_of('#'), reference.size()));
}

/// Whether the mesh library may read `value` as something else: it expands what XML writes in another way.
bool isWrittenOddly(std::string_view value)
{
    return value.find_first_of("&\t\r\n") != std::string_view::npos;
}

/// Nodes place one another, by name; the mesh library follows them by recursion.
class NodeCheck
{
public:
    bool addTag(const Tags& tags, std::string& why);
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

    std::vector<Node> m_nodes;
    std::vector<std::size_t> m_open; ///< elements: their node, or kNone
    std::multimap<std::string_view, std::size_t> m_names;
    std::uint64_t m_instances = 0;
    bool m_hasOddNames = false;
    static constexpr std::size_t kNone = SIZE_MAX;
};

bool NodeCheck::addTag(const Tags& tags, std::string& why)
{
    const std::string_view name = tags.name();
    if (name.empty() || name.front() == '/') {
        if (!m_open.empty()) {
            m_open.pop_back();
        }
        return true;
    }
    std::size_t node = kNone;
    if (name == "node" || name == "visual_scene") {
        node = m_nodes.size();
        m_nodes.emplace_back();
        for (const char* const key : {"id", "name", "sid"}) {
            const std::string_view value = tags.attribute(key);
            m_hasOddNames = m_hasOddNames || isWrittenOddly(value);
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
    if (parent != m_open.rend() && name == "instance_node") {
        const std::string_view url = tags.attribute("url");
        ++m_instances;
        m_hasOddNames = m_hasOddNames || isWrittenOddly(url);
        m_nodes[*parent].instances.push_back(url.substr(std::min<std::size_t>(1, url.size())));
    }
    if (!tags.isEmptyElement()) {
        m_open.push_back(node);
    }
    if (m_open.size() > Kr::Limits::kMeshNesting) {
        why = "its elements are nested deeper than " + std::to_string(Kr::Limits::kMeshNesting);
        return false;
    }
    return true;
}

bool NodeCheck::run(std::string& why)
{
    if (m_instances == 0) {
        return true;
    }
    if (m_instances * m_nodes.size() > kMaxComparisons) {
        why = "it places too many nodes";
        return false;
    }
    if (m_hasOddNames) {
        why = "nodes are named with what XML writes as entities or in several lines";
        return false;
    }
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

class Check
{
public:
    explicit Check(std::string_view content)
        : m_tags(content)
        , m_size(content.size())
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

    bool checkTag();
    bool checkArray();
    bool checkAccessor();
    bool checkInput();
    bool checkPrimitives();
    bool checkIndices();
    bool checkReaches();
    bool fail(const std::string& why)
    {
        m_why = why;
        return false;
    }

    Tags m_tags;
    std::uint64_t m_size;
    std::string m_why;
    bool m_isInMesh = false;
    bool m_isInAccessor = false;
    std::uint64_t m_declared = 0; ///< primitives of the element in hand
    std::uint64_t m_lists = 0;    ///< its elements <p>
    std::uint64_t m_lengths = 0;  ///< of those that are known
    bool m_isInHole = false;
    NodeCheck m_nodes;
    std::set<std::string_view> m_wordArrays;
    std::map<std::string_view, std::uint64_t> m_arrays; ///< numbers by id; the fewest of those of one id
    std::vector<Reach> m_reaches;
};

bool Check::run(std::string& why)
{
    bool isGood = true;
    while (isGood && m_tags.next()) {
        isGood = m_nodes.addTag(m_tags, m_why) && checkTag();
    }
    isGood = isGood && checkReaches() && m_nodes.run(m_why);
    why = isGood ? why : m_why;
    return isGood;
}

bool Check::checkTag()
{
    const std::string_view name = m_tags.name();
    if (name == "mesh" || name == "/mesh") {
        m_isInMesh = name == "mesh";
    }
    if (name == "float_array") {
        return checkArray();
    }
    if (name.size() > 6 && name.substr(name.size() - 6) == "_array" && name.front() != '/') {
        m_wordArrays.insert(m_tags.attribute("id"));
        return !isWrittenOddly(m_tags.attribute("id")) || fail("an array is named with what XML writes as entities");
    }
    if (name == "accessor" || name == "/accessor") {
        m_isInAccessor = name == "accessor" && !m_tags.isEmptyElement();
    }
    if (name == "accessor") {
        return checkAccessor();
    }
    if (name == "param" && m_isInAccessor) {
        ++m_reaches.back().params;
    }
    return !m_isInMesh || (checkInput() && checkPrimitives() && checkIndices());
}

bool Check::checkArray()
{
    std::uint64_t declared = 0;
    if (!m_tags.number("count", m_size, declared)) {
        return fail("the count of a float_array is no number or far too high");
    }
    if (isWrittenOddly(m_tags.attribute("id"))) {
        return fail("an array is named with what XML writes as entities");
    }
    std::uint64_t words = 0;
    for (std::string_view rest = m_tags.text(); !takeWord(rest).empty();) {
        ++words;
    }
    if (words < declared) {
        return fail("a float_array holds fewer numbers than it declares");
    }
    const auto [place, isNew] = m_arrays.emplace(m_tags.attribute("id"), declared);
    place->second = std::min(place->second, declared);
    return true;
}

bool Check::checkAccessor()
{
    Reach reach;
    reach.array = referred(m_tags.attribute("source"));
    reach.isInMesh = m_isInMesh;
    m_reaches.push_back(reach);
    Reach& back = m_reaches.back();
    return (m_tags.number("count", m_size, back.count) && m_tags.number("stride", kMaxPlaces, back.stride) &&
            m_tags.number("offset", m_size, back.offset)) ||
           fail("the count, stride or offset of an accessor is no number or far too high");
}

bool Check::checkInput()
{
    std::uint64_t value = 0;
    return m_tags.name() != "input" ||
           (m_tags.number("offset", kMaxPlaces, value) && m_tags.number("set", kMaxPlaces, value)) ||
           fail("the offset or set of an input is no number or far too high");
}

bool Check::checkPrimitives()
{
    const std::string_view name = m_tags.name();
    const bool isEnd = name.front() == '/';
    const std::string_view kind = name.substr(isEnd ? 1 : 0);
    std::uint64_t count = 0;
    if (!m_tags.number("count", m_size, count)) {
        return fail("the count of an element <" + std::string(name) + "> is no number or far too high");
    }
    if (kind != "triangles" && kind != "polylist" && kind != "polygons") {
        return true;
    }
    if (!isEnd) {
        m_declared = count;
        m_lists = 0;
        m_lengths = kind == "polylist" ? 0 : m_declared;
    }
    // The others have all in one list.
    const std::uint64_t lists = kind == "polygons" ? m_declared : m_declared > 0 ? 1 : m_lists;
    const bool isWhole = isEnd || m_tags.isEmptyElement();
    return !isWhole || m_lists == lists ||
           fail("an element <" + std::string(kind) + "> does not hold as many lists as it declares");
}

bool Check::checkIndices()
{
    const std::string_view name = m_tags.name();
    const bool isLengths = name == "vcount";
    if (name == "ph" || name == "/ph") {
        m_isInHole = name == "ph";
    }
    if (name != "p" && name != "h" && !isLengths) {
        return true;
    }
    if (name == "p" && m_lengths < m_declared) {
        return fail("an element <p> comes before the lengths of its polygons");
    }
    m_lists += name == "p" && !m_isInHole ? 1 : 0;
    std::string_view rest = m_tags.text();
    if (rest.find_first_not_of("0123456789- \t\r\n") != std::string_view::npos) {
        return fail("there is something else than indices in an element <" + std::string(name) + ">");
    }
    std::uint64_t words = 0;
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
        const bool isNumbers = array != m_arrays.end() && m_wordArrays.count(reach.array) == 0;
        const std::uint64_t numbers = isNumbers ? array->second : 0;
        const std::uint64_t last = std::max<std::uint64_t>(reach.params, 1);
        if (reach.count > 0 && reach.offset + (reach.count - 1) * reach.stride + last > numbers) {
            return fail("an accessor reaches beyond its array");
        }
    }
    return true;
}

/// Which geometry of the file a tag is in, from 1; 0 outside.
class GeometryCount
{
public:
    std::size_t next(const Tags& tags)
    {
        const bool isEnd = tags.name() == "/geometry";
        if (tags.name() == "geometry") {
            m_current = ++m_last;
        }
        const std::size_t current = m_current;
        m_current = isEnd || (tags.name() == "geometry" && tags.isEmptyElement()) ? 0 : m_current;
        return tags.name() == "geometry" ? 0 : current; // its own name is known outside
    }

private:
    std::size_t m_last = 0;
    std::size_t m_current = 0;
};

/// The ids that stand in several geometries.
std::set<std::string_view> sharedIds(std::string_view content)
{
    std::map<std::string_view, std::size_t> owners;
    std::set<std::string_view> shared;
    GeometryCount count;
    for (Tags tags(content); tags.next();) {
        const std::size_t geometry = count.next(tags);
        const std::string_view id = tags.attribute("id");
        if (geometry > 0 && !id.empty() && owners.emplace(id, geometry).first->second != geometry) {
            shared.insert(id);
        }
    }
    return shared;
}

bool isMotionLibrary(std::string_view name)
{
    return name == "library_controllers" || name == "library_animations" || name == "library_animation_clips";
}

/// The meshes of controllers, by the controllers' ids.
std::map<std::string, std::string> skinnedMeshes(std::string_view content)
{
    std::map<std::string, std::string> meshes;
    std::string controller;
    for (Tags tags(content); tags.next();) {
        if (tags.name() == "controller") {
            controller = tags.attribute("id");
        } else if (tags.name() == "skin" || tags.name() == "morph") {
            meshes.emplace(controller, referred(tags.attribute("source")));
        }
    }
    return meshes;
}

} // namespace

bool KrColladaText::check(std::string_view content, std::string& why)
{
    return Check(content).run(why);
}

bool KrColladaText::dropMotion(std::string& content)
{
    if (content.find("<library_controllers") == std::string::npos &&
        content.find("<library_animation") == std::string::npos) {
        return false;
    }
    const std::map<std::string, std::string> meshes = skinnedMeshes(content);
    std::string result;
    std::size_t copied = 0;
    bool isSkipping = false;
    const auto replace = [&](const Tags& tags, const std::string& text) {
        result.append(content, copied, isSkipping ? 0 : tags.begin() - copied);
        result += text;
        copied = tags.end();
    };
    for (Tags tags(content); tags.next();) {
        const std::string_view name = tags.name();
        const bool isEnd = name.front() == '/';
        if (isMotionLibrary(name.substr(isEnd ? 1 : 0))) {
            replace(tags, "");
            isSkipping = !isEnd && !tags.isEmptyElement();
        } else if (isSkipping) {
            continue;
        } else if (name == "/instance_controller") {
            replace(tags, "</instance_geometry>");
        } else if (name == "instance_controller") {
            std::string mesh(referred(tags.attribute("url")));
            // A skin may bend what another controller makes of a mesh.
            for (std::size_t i = 0; i < kMaxControllers && meshes.count(mesh); ++i) {
                mesh = meshes.at(mesh);
            }
            replace(tags, "<instance_geometry url=\"#" + mesh + (tags.isEmptyElement() ? "\"/>" : "\">"));
        }
    }
    result.append(content, copied, isSkipping ? 0 : std::string::npos);
    content = std::move(result);
    return true;
}

bool KrColladaText::separateIds(std::string& content)
{
    const std::set<std::string_view> shared = sharedIds(content);
    if (shared.empty()) {
        return false;
    }
    std::string result;
    std::size_t copied = 0;
    GeometryCount count;
    for (Tags tags(content); tags.next();) {
        const std::size_t geometry = count.next(tags);
        std::vector<std::size_t> ends; // of the values that get longer, in either order
        for (const char* const name : {"id", "source"}) {
            const std::string_view value = tags.attribute(name);
            if (geometry > 0 && !value.empty() && shared.count(referred(value)) > 0) {
                ends.push_back(static_cast<std::size_t>(value.data() - content.data()) + value.size());
            }
        }
        std::sort(ends.begin(), ends.end());
        for (const std::size_t end : ends) {
            result.append(content, copied, end - copied) += "-of-geometry-" + std::to_string(geometry);
            copied = end;
        }
    }
    result.append(content, copied, std::string::npos);
    content = std::move(result);
    return true;
}

std::string KrColladaText::upAxis(std::string_view content)
{
    for (Tags tags(content); tags.next();) {
        if (tags.name() == "up_axis") {
            return std::string(trimmed(tags.text()).substr(0, 10));
        }
    }
    return "";
}
