#include <import/urdf/KrUrdfMender.h>

#include <import/files/KrImportPath.h>
#include <import/files/KrImportXml.h>
#include <import/urdf/KrUrdfMaterials.h>
#include <import/urdf/KrUrdfReader.h>

#include <toolkit/foundation/private/KrText.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

namespace
{

constexpr double kLongAxis = 1e6;
constexpr std::size_t kMaxNames = 20; // of macros in one message

/// One joint on its way to the mended text.
struct Joint
{
    std::string name;
    std::string type;
    std::string parent;
    std::string child;
    std::string inner; ///< origin, axis, limit
    std::string mimicMaster;
    std::string mimic; ///< the mimic element
};

/// What is left of a macro language that should have been expanded.
struct XacroRest
{
    std::size_t elements = 0;
    std::size_t expressions = 0;
    std::set<std::string> names;

    bool any() const { return elements + expressions > 0; }
    std::string text() const
    {
        std::string list;
        for (const std::string& name : names) {
            list += (list.empty() ? " (" : ", ") + name;
        }
        return "xacro not expanded: " + std::to_string(elements) + " elements" + list + (list.empty() ? "" : ")") +
               " and " + std::to_string(expressions) + " expressions remain";
    }
};

bool isExpression(const std::string& text)
{
    return text.find("${") != std::string::npos || text.find("$(") != std::string::npos;
}

bool isXacro(const xmlNode& node)
{
    const std::string space = node.ns && node.ns->href ? reinterpret_cast<const char*>(node.ns->href) : "";
    return KrImportXml::nameOf(node).compare(0, 6, "xacro:") == 0 ||
           (node.ns && node.ns->prefix && space.find("xacro") != std::string::npos);
}

void countXacroHere(const xmlNode& node, XacroRest& rest)
{
    if (isXacro(node)) {
        ++rest.elements;
        if (rest.names.size() < kMaxNames) {
            rest.names.insert(KrText::oneLine(KrImportXml::nameOf(node)));
        }
    }
    for (const xmlAttr* attribute = node.properties; attribute; attribute = attribute->next) {
        const xmlNode* const value = attribute->children;
        if (value && value->content && isExpression(reinterpret_cast<const char*>(value->content))) {
            ++rest.expressions;
        }
    }
}

/// Of `root` and all elements inside it.
void countXacro(const xmlNode& root, XacroRest& rest)
{
    std::vector<const xmlNode*> stack{&root};
    while (!stack.empty()) {
        const xmlNode& node = *stack.back();
        stack.pop_back();
        countXacroHere(node, rest);
        for (const xmlNode* child = node.children; child; child = child->next) {
            if (child->type == XML_ELEMENT_NODE) {
                stack.push_back(child);
            }
        }
    }
}

std::string joined(const std::vector<double>& values)
{
    std::string text;
    for (const double value : values) {
        text += (text.empty() ? "" : " ") + KrImportXml::text(value);
    }
    return text;
}

std::string attributeText(const char* name, double value)
{
    return std::string(" ") + name + "=\"" + KrImportXml::text(value) + "\"";
}

/// Pictures are drawn with single precision.
bool isTooFar(double value)
{
    return std::abs(value) > std::numeric_limits<float>::max();
}

class Mender
{
public:
    Mender(const xmlNode& robot, const std::string& file, const KrImportOptions& options, KrImportReport& report)
        : m_robot(robot)
        , m_file(file)
        , m_options(options)
        , m_report(report)
        , m_materials([this](const std::string& element, const std::string& text) { warn(element, text); },
                      {KrUrdfReader::standInMaterial()})
    {
    }

    bool run(KrUrdfMender::Mended& mended, std::string& why);

private:
    void warn(const std::string& element, const std::string& text) { m_report.addWarning(m_file, element, text); }

    // Attributes; what is there and is no number gets a warning, unless it waits for its macro.
    bool values(const xmlNode& node, const char* name, std::size_t count, const std::string& element,
                std::vector<double>& result);
    bool value(const xmlNode& node, const char* name, const std::string& element, double& result);

    std::string robotName();
    void readLinks();
    std::string linkText(const xmlNode& link, const std::string& name);
    std::string originText(const xmlNode& owner, const std::string& element);
    std::string inertialText(const xmlNode& link, const std::string& element);
    std::string shapeText(const xmlNode& shape, const std::string& link, const std::string& label);
    std::string geometryText(const xmlNode& shape, const std::string& link, const std::string& label);
    std::string meshText(const xmlNode& mesh, const std::string& element);
    bool size(const xmlNode& shape, const char* name, const std::string& element, double& result);

    bool readJoints();
    bool readJoint(const xmlNode& node, Joint& joint);
    std::string axisText(const xmlNode& node, const std::string& element);
    std::string limitText(const xmlNode& node, const std::string& element, std::string& type);
    void end(const xmlNode& limit, const char* name, const std::string& element, double& result);
    void readMimic(const xmlNode& node, const std::string& element, Joint& joint);
    std::string endOf(const xmlNode& node, const char* name);

    void addMissingLinks();
    bool cutToTree();
    void joinRoots();
    std::set<const Joint*> selfFollowers() const;
    void dropBadMimics();
    bool isTooDeep() const;
    std::string jointText(const Joint& joint) const;

    const xmlNode& m_robot;
    std::string m_file;
    const KrImportOptions& m_options;
    KrImportReport& m_report;
    KrUrdfMaterials m_materials;
    std::vector<std::string> m_linkNames;       ///< in the order of the description
    std::map<std::string, std::string> m_links; ///< text by name
    std::vector<Joint> m_joints;
    std::map<std::string, std::string> m_parents; ///< parent link by child link
    std::vector<std::pair<std::string, std::string>> m_capsules;
};

bool Mender::run(KrUrdfMender::Mended& mended, std::string& why)
{
    XacroRest xacro;
    countXacro(m_robot, xacro);
    if (xacro.any()) {
        warn("robot", xacro.text());
    }
    m_materials.define(m_robot);
    readLinks();
    if (m_links.empty()) {
        why = "it has no links" + (xacro.any() ? "; " + xacro.text() : "");
        return false;
    }
    if (!readJoints()) {
        why = "it has too many joints; " + std::to_string(m_options.maxLinks) + " are read";
        return false;
    }
    addMissingLinks();
    if (m_links.size() > m_options.maxLinks) {
        why = "it has too many links; " + std::to_string(m_options.maxLinks) + " are read";
        return false;
    }
    if (!cutToTree() || isTooDeep()) {
        why = "its links form a chain of more than " + std::to_string(m_options.maxChain);
        return false;
    }
    joinRoots();
    dropBadMimics();

    std::string text = "<robot name=" + KrImportXml::quoted(robotName()) + ">\n" + m_materials.text();
    for (const std::string& name : m_linkNames) {
        text += m_links[name];
    }
    for (const Joint& joint : m_joints) {
        mended.jointOrder.emplace(joint.name, mended.jointOrder.size());
        text += jointText(joint);
    }
    mended.text = text + "</robot>\n";
    mended.capsules = m_capsules;
    return true;
}

bool Mender::values(const xmlNode& node, const char* name, std::size_t count, const std::string& element,
                    std::vector<double>& result)
{
    std::string text;
    if (!KrImportXml::attribute(node, name, text)) {
        return false;
    }
    std::vector<double> read;
    if (KrImportXml::numbers(text, read) && read.size() == count) {
        if (std::none_of(read.begin(), read.end(), isTooFar)) {
            result = read;
            return true;
        }
        warn(element, std::string(name) + " \"" + KrText::oneLine(text, 60) + "\" is too large; it is left out");
        return false;
    }
    if (!isExpression(text)) {
        warn(element, std::string(name) + " \"" + KrText::oneLine(text, 60) + "\" is not " +
                          (count == 1 ? "a number" : std::to_string(count) + " numbers") + "; it is left out");
    }
    return false;
}

bool Mender::value(const xmlNode& node, const char* name, const std::string& element, double& result)
{
    std::vector<double> read;
    const bool ok = values(node, name, 1, element, read);
    result = ok ? read[0] : result;
    return ok;
}

std::string Mender::robotName()
{
    std::string name;
    if (!KrImportXml::attribute(m_robot, "name", name) || name.empty()) {
        name = KrText::utf8(KrImportPath::stemOf(m_file));
        warn("robot", "it has no name; \"" + name + "\" is taken from the file");
    }
    m_report.setRobot(name);
    return name;
}

void Mender::readLinks()
{
    for (const xmlNode* node : KrImportXml::children(m_robot, "link")) {
        std::string name;
        if (!KrImportXml::attribute(*node, "name", name) || name.empty()) {
            warn("link", "a link without a name is left out");
        } else if (m_links.count(name)) {
            warn("link " + name, "it is there twice; the first one counts");
        } else {
            m_linkNames.push_back(name);
            m_links[name] = linkText(*node, name);
        }
    }
}

std::string Mender::linkText(const xmlNode& link, const std::string& name)
{
    std::string text = "<link name=" + KrImportXml::quoted(name) + ">\n" + inertialText(link, "link " + name);
    for (const char* const kind : {"visual", "collision"}) {
        std::size_t number = 0;
        for (const xmlNode* shape : KrImportXml::children(link, kind)) {
            text += shapeText(*shape, name, kind + (" " + std::to_string(++number)));
        }
    }
    return text + "</link>\n";
}

std::string Mender::originText(const xmlNode& owner, const std::string& element)
{
    const xmlNode* const origin = KrImportXml::child(owner, "origin");
    std::string text;
    for (const char* const name : {"xyz", "rpy"}) {
        std::vector<double> read;
        if (!origin || !values(*origin, name, 3, element + " / origin", read)) {
            continue;
        }
        text += std::string(" ") + name + "=\"" + joined(read) + "\"";
    }
    return text.empty() ? "" : "<origin" + text + "/>\n";
}

std::string Mender::inertialText(const xmlNode& link, const std::string& element)
{
    const xmlNode* const inertial = KrImportXml::child(link, "inertial");
    const xmlNode* const massNode = inertial ? KrImportXml::child(*inertial, "mass") : nullptr;
    double mass = 0.0;
    if (!massNode || !value(*massNode, "value", element + " / inertial", mass) || mass < 0.0) {
        if (inertial) {
            warn(element + " / inertial", "it has no mass of zero or more; it is left out");
        }
        return "";
    }
    std::string inertia;
    const xmlNode* const node = KrImportXml::child(*inertial, "inertia");
    for (const char* const name : {"ixx", "ixy", "ixz", "iyy", "iyz", "izz"}) {
        double moment = 0.0;
        if (node) {
            value(*node, name, element + " / inertial", moment);
        }
        inertia += attributeText(name, moment);
    }
    return "<inertial>" + originText(*inertial, element + " / inertial") + "<mass" + attributeText("value", mass) +
           "/><inertia" + inertia + "/></inertial>\n";
}

std::string Mender::shapeText(const xmlNode& shape, const std::string& link, const std::string& label)
{
    const std::string element = "link " + link + " / " + label;
    const std::string geometry = geometryText(shape, link, label);
    if (geometry.empty()) {
        return "";
    }
    const bool isVisual = label[0] == 'v';
    std::string material;
    if (const xmlNode* node = isVisual ? KrImportXml::child(shape, "material") : nullptr) {
        const std::string name = m_materials.use(*node, element);
        material = name.empty() ? "" : "<material name=" + KrImportXml::quoted(name) + "/>";
    }
    const std::string kind = isVisual ? "visual" : "collision";
    return "<" + kind + " name=" + KrImportXml::quoted(label) + ">" + originText(shape, element) + "<geometry>" +
           geometry + "</geometry>" + material + "</" + kind + ">\n";
}

std::string Mender::geometryText(const xmlNode& shape, const std::string& link, const std::string& label)
{
    const std::string element = "link " + link + " / " + label;
    const xmlNode* const geometry = KrImportXml::child(shape, "geometry");
    const auto form = [geometry](const char* name) { return geometry ? KrImportXml::child(*geometry, name) : nullptr; };
    if (const xmlNode* mesh = form("mesh")) {
        return meshText(*mesh, element);
    }
    if (const xmlNode* box = form("box")) {
        std::vector<double> edges;
        if (values(*box, "size", 3, element, edges)) {
            if (std::any_of(edges.begin(), edges.end(), [](double edge) { return edge < 0.0; })) {
                warn(element, "its size is negative; it is taken without the sign");
            }
            std::for_each(edges.begin(), edges.end(), [](double& edge) { edge = std::abs(edge); });
            return "<box size=\"" + joined(edges) + "\"/>";
        }
    }
    double radius = 0.0;
    double length = 0.0;
    const xmlNode* const ball = form("sphere");
    if (ball && size(*ball, "radius", element, radius)) {
        return "<sphere" + attributeText("radius", radius) + "/>";
    }
    for (const char* const name : {"cylinder", "capsule"}) {
        const xmlNode* const round = form(name);
        if (round && size(*round, "radius", element, radius) && size(*round, "length", element, length)) {
            if (name[1] == 'a') {
                m_capsules.emplace_back(link, label);
            }
            return "<cylinder" + attributeText("radius", radius) + attributeText("length", length) + "/>";
        }
    }
    warn(element, "it has no geometry that can be read; it is left out");
    return "";
}

std::string Mender::meshText(const xmlNode& mesh, const std::string& element)
{
    std::string file;
    KrImportXml::attribute(mesh, "filename", file);
    std::string text;
    std::vector<double> scale;
    if (KrImportXml::attribute(mesh, "scale", text) &&
        (!KrImportXml::numbers(text, scale) || (scale.size() != 1 && scale.size() != 3))) {
        warn(element, "the scale \"" + KrText::oneLine(text, 60) + "\" is neither one nor three numbers; 1 is taken");
        scale.clear();
    }
    if (scale.size() == 1) {
        scale.resize(3, scale[0]);
    }
    return "<mesh filename=" + KrImportXml::quoted(file) +
           (scale.empty() ? std::string() : " scale=\"" + joined(scale) + "\"") + "/>";
}

bool Mender::size(const xmlNode& shape, const char* name, const std::string& element, double& result)
{
    const bool ok = value(shape, name, element, result);
    if (ok && result < 0.0) {
        warn(element, std::string("its ") + name + " is negative; it is taken without the sign");
    }
    result = std::abs(result);
    return ok;
}

/// False for more than a robot has.
bool Mender::readJoints()
{
    const std::vector<xmlNode*> nodes = KrImportXml::children(m_robot, "joint");
    if (nodes.size() > m_options.maxLinks) {
        return false;
    }
    std::set<std::string> names;
    std::map<std::string, unsigned int> numbers; // the next one to try, by name
    for (const xmlNode* node : nodes) {
        Joint joint;
        if (!readJoint(*node, joint)) {
            continue;
        }
        const std::string given = joint.name;
        while (!names.insert(joint.name).second) {
            unsigned int& number = numbers.emplace(given, 2).first->second;
            joint.name = given + " " + std::to_string(number++);
        }
        if (joint.name != given) {
            warn("joint " + given, "the name is there twice; the second one becomes \"" + joint.name + "\"");
        }
        m_joints.push_back(joint);
    }
    return true;
}

bool Mender::readJoint(const xmlNode& node, Joint& joint)
{
    joint.parent = endOf(node, "parent");
    joint.child = endOf(node, "child");
    KrImportXml::attribute(node, "name", joint.name);
    const std::string element = "joint " + joint.name;
    if (joint.parent.empty() || joint.child.empty()) {
        warn(element, "it does not name a parent and a child link; it is left out");
        return false;
    }
    if (joint.name.empty()) {
        joint.name = joint.parent + "_to_" + joint.child;
        warn(element, "it has no name; it becomes \"" + joint.name + "\"");
    }
    KrImportXml::attribute(node, "type", joint.type);
    joint.type = KrImportPath::toLower(joint.type);
    const std::set<std::string> known = {"fixed", "revolute", "continuous", "prismatic"};
    if (!known.count(joint.type)) {
        warn(element, "a joint of type \"" + joint.type + "\" is not supported; it is fixed");
        joint.type = "fixed";
    }
    joint.inner = originText(node, element);
    if (joint.type != "fixed") {
        joint.inner += axisText(node, element);
        joint.inner += limitText(node, element, joint.type);
        readMimic(node, element, joint);
    }
    return true;
}

std::string Mender::endOf(const xmlNode& node, const char* name)
{
    const xmlNode* const end = KrImportXml::child(node, name);
    std::string link;
    if (end) {
        KrImportXml::attribute(*end, "link", link);
    }
    return link;
}

std::string Mender::axisText(const xmlNode& node, const std::string& element)
{
    const xmlNode* const axis = KrImportXml::child(node, "axis");
    std::vector<double> xyz;
    if (!axis || !values(*axis, "xyz", 3, element + " / axis", xyz)) {
        return "";
    }
    const double length = std::hypot(xyz[0], xyz[1], xyz[2]);
    if (!(length > 0.0)) {
        warn(element + " / axis", "it has no direction; the x axis is taken");
        return "";
    }
    // Very long and very short ones have squares that are no numbers.
    if (length > kLongAxis || length < 1.0 / kLongAxis) {
        std::for_each(xyz.begin(), xyz.end(), [length](double& part) { part /= length; });
    }
    return "<axis xyz=\"" + joined(xyz) + "\"/>\n";
}

std::string Mender::limitText(const xmlNode& node, const std::string& element, std::string& type)
{
    const xmlNode* const limit = KrImportXml::child(node, "limit");
    double lower = 0.0, upper = 0.0, effort = 0.0, velocity = 0.0;
    if (!limit) {
        if (type == "revolute") {
            warn(element, "a revolute joint without limits; it turns without limits");
            type = "continuous";
        } else if (type == "prismatic") {
            warn(element, "a prismatic joint without limits; -1 m to 1 m are taken");
            lower = -1.0;
            upper = 1.0;
        }
        if (type == "continuous") {
            return "";
        }
    } else {
        end(*limit, "lower", element + " / limit", lower);
        end(*limit, "upper", element + " / limit", upper);
        const bool hasEffort = value(*limit, "effort", element + " / limit", effort);
        const bool hasVelocity = value(*limit, "velocity", element + " / limit", velocity);
        if (!hasEffort || !hasVelocity) {
            warn(element + " / limit", std::string("it gives no ") +
                                           (hasEffort     ? "velocity"
                                            : hasVelocity ? "effort"
                                                          : "effort and no velocity") +
                                           "; 0 is taken");
        }
    }
    if (effort < 0.0 || velocity < 0.0) {
        warn(element + " / limit", "its effort or velocity is negative; it is taken without the sign");
        effort = std::abs(effort);
        velocity = std::abs(velocity);
    }
    if (lower > upper) {
        warn(element + " / limit", "the lower limit is above the upper one; they are exchanged");
        std::swap(lower, upper);
    }
    return "<limit" + attributeText("lower", lower) + attributeText("upper", upper) + attributeText("effort", effort) +
           attributeText("velocity", velocity) + "/>\n";
}

/// Of a joint's range. Far ones are common where no limit is meant: they stay as far as numbers go.
void Mender::end(const xmlNode& limit, const char* name, const std::string& element, double& result)
{
    constexpr double kFarthest = std::numeric_limits<float>::max();
    std::string text;
    std::vector<double> read;
    if (KrImportXml::attribute(limit, name, text) && KrImportXml::numbers(text, read) && read.size() == 1 &&
        isTooFar(read[0])) {
        result = std::clamp(read[0], -kFarthest, kFarthest);
        warn(element, std::string(name) + " \"" + KrText::oneLine(text, 60) + "\" is out of reach; " +
                          KrImportXml::text(result) + " is taken");
        return;
    }
    value(limit, name, element, result);
}

void Mender::readMimic(const xmlNode& node, const std::string& element, Joint& joint)
{
    const xmlNode* const mimic = KrImportXml::child(node, "mimic");
    if (!mimic) {
        return;
    }
    double multiplier = 1.0;
    double offset = 0.0;
    value(*mimic, "multiplier", element + " / mimic", multiplier);
    value(*mimic, "offset", element + " / mimic", offset);
    if (!KrImportXml::attribute(*mimic, "joint", joint.mimicMaster) || joint.mimicMaster.empty()) {
        warn(element + " / mimic", "it names no joint; it is left out");
    }
    joint.mimic = "<mimic joint=" + KrImportXml::quoted(joint.mimicMaster) + attributeText("multiplier", multiplier) +
                  attributeText("offset", offset) + "/>\n";
}

void Mender::addMissingLinks()
{
    for (const Joint& joint : m_joints) {
        for (const std::string& name : {joint.parent, joint.child}) {
            if (!m_links.count(name)) {
                warn("joint " + joint.name, "link \"" + name + "\" is not defined; an empty one is added");
                m_linkNames.push_back(name);
                m_links[name] = "<link name=" + KrImportXml::quoted(name) + "/>\n";
            }
        }
    }
}

// False for chains so long that they are no robot: the walk upwards ends there.
bool Mender::cutToTree()
{
    std::vector<Joint> kept;
    for (const Joint& joint : m_joints) {
        std::string above = joint.parent;
        for (std::size_t depth = 0; above != joint.child && m_parents.count(above); ++depth) {
            if (depth > m_options.maxChain) {
                return false;
            }
            above = m_parents[above];
        }
        if (above == joint.child) {
            warn("joint " + joint.name, "it closes a circle of links; it is left out");
        } else if (!m_parents.emplace(joint.child, joint.parent).second) {
            warn("joint " + joint.name, "link \"" + joint.child + "\" has a parent already; the joint is left out");
        } else {
            kept.push_back(joint);
        }
    }
    m_joints = std::move(kept);
    return true;
}

void Mender::joinRoots()
{
    std::map<std::string, std::size_t> sizes;
    std::vector<std::string> roots;
    for (const std::string& name : m_linkNames) {
        std::string root = name;
        while (m_parents.count(root)) {
            root = m_parents[root];
        }
        ++sizes[root];
        if (root == name) {
            roots.push_back(root);
        }
    }
    std::set<std::string> taken;
    for (const Joint& joint : m_joints) {
        taken.insert(joint.name);
    }
    // The tree with the most links is the robot; of equals the first one.
    const auto smaller = [&sizes](const std::string& a, const std::string& b) { return sizes[a] < sizes[b]; };
    const std::string base = *std::max_element(roots.begin(), roots.end(), smaller);
    for (const std::string& root : roots) {
        if (root == base) {
            continue;
        }
        warn("link " + root, "it has no parent, like \"" + base + "\"; it is fixed to that one's origin");
        Joint joint;
        joint.name = base + "_to_" + root;
        joint.type = "fixed";
        joint.parent = base;
        joint.child = root;
        while (!taken.insert(joint.name).second) {
            joint.name += "_";
        }
        m_parents[root] = base;
        m_joints.push_back(joint);
    }
}

/// The first joint of each circle of joints that follow one another.
std::set<const Joint*> Mender::selfFollowers() const
{
    std::map<std::string, std::size_t> places;
    for (const Joint& joint : m_joints) {
        places.emplace(joint.name, places.size());
    }
    const std::size_t none = m_joints.size();
    const auto masterOf = [&](std::size_t place) {
        const auto master = places.find(m_joints[place].mimicMaster);
        return master == places.end() ? none : master->second;
    };
    std::set<const Joint*> result;
    std::vector<std::size_t> walks(m_joints.size(), none); // by joint: where the walk began that came along
    for (std::size_t start = 0; start < m_joints.size(); ++start) {
        std::size_t at = start;
        for (; at != none && walks[at] == none; at = masterOf(at)) {
            walks[at] = start;
        }
        if (at == none || walks[at] != start) {
            continue;
        }
        std::size_t first = at;
        for (std::size_t other = masterOf(at); other != at; other = masterOf(other)) {
            first = std::min(first, other);
        }
        result.insert(&m_joints[first]);
    }
    return result;
}

void Mender::dropBadMimics()
{
    const std::set<const Joint*> followers = selfFollowers();
    std::set<std::string> names;
    for (const Joint& joint : m_joints) {
        names.insert(joint.name);
    }
    for (Joint& joint : m_joints) {
        const std::string element = "joint " + joint.name + " / mimic";
        const bool isLost = !joint.mimicMaster.empty() && !names.count(joint.mimicMaster);
        if (isLost) {
            warn(element, "joint \"" + joint.mimicMaster + "\" does not exist; it moves by itself");
        } else if (followers.count(&joint)) {
            warn(element, "it follows itself; it moves by itself");
        }
        if (isLost || followers.count(&joint) || joint.mimicMaster.empty()) {
            joint.mimic.clear();
        }
    }
}

bool Mender::isTooDeep() const
{
    for (const std::string& name : m_linkNames) {
        std::size_t depth = 0;
        for (auto above = m_parents.find(name); above != m_parents.end(); above = m_parents.find(above->second)) {
            if (++depth > m_options.maxChain) {
                return true;
            }
        }
    }
    return false;
}

std::string Mender::jointText(const Joint& joint) const
{
    return "<joint name=" + KrImportXml::quoted(joint.name) + " type=" + KrImportXml::quoted(joint.type) + ">" +
           joint.inner + joint.mimic + "<parent link=" + KrImportXml::quoted(joint.parent) +
           "/><child link=" + KrImportXml::quoted(joint.child) + "/></joint>\n";
}

} // namespace

bool KrUrdfMender::mend(const std::string& path, const KrImportOptions& options, Mended& mended, KrImportReport& report,
                        std::string& why)
{
    bool isForeign = false;
    const KrImportXml::UniqueDocument document =
        KrImportXml::read(path, KrInputFile::Accept::FilesAndPipes, options.maxRobotBytes, why, &isForeign);
    const xmlNode* const root = document ? xmlDocGetRootElement(document.get()) : nullptr;
    if (!root) {
        return false;
    }
    if (KrImportXml::nameOf(*root) != "robot") {
        why = "its first element is <" + KrText::oneLine(KrImportXml::nameOf(*root), 60) + ">, not <robot>";
        return false;
    }
    if (isForeign) {
        report.addWarning(path, "robot", "it is no UTF-8; it is read as Latin-1");
    }
    return Mender(*root, path, options, report).run(mended, why);
}
