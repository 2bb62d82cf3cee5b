#include <import/description/KrRobotRepair.h>

#include <import/description/KrMaterialNames.h>
#include <import/files/KrImportPath.h>

#include <toolkit/foundation/private/KrText.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <set>
#include <utility>

namespace
{

using Link = KrRobotDescription::Link;
using Joint = KrRobotDescription::Joint;
using Place = KrRobotDescription::Place;
using Shape = KrRobotDescription::Shape;
using Type = KrJointKinematics::Type;

// Squares of lengths between 1/kLongAxis and kLongAxis are far from the ends of double precision.
constexpr double kLongAxis = 1e6;

/// One description on its way to a tree that builders need not question. Each step makes good what the next one
/// counts on.
class Repair
{
public:
    Repair(KrRobotDescription& robot, const KrRobotRepair::Limits& limits, KrImportReport& report)
        : m_robot(robot)
        , m_limits(limits)
        , m_report(report)
        , m_materials([this](const Place& place, const std::string& element, const std::string& text) {
            warn(place, element, text);
        })
    {
    }

    bool run(std::string& why);

private:
    void warn(const Place& place, const std::string& element, const std::string& text)
    {
        m_report.addWarning(m_robot.files[place.file], element, text, place.line);
    }

    void nameMaterials();
    void repairJoint(Joint& joint);
    void repairAxis(const std::string& element, Joint& joint);
    void repairLimits(const std::string& element, Joint& joint);
    void separateJointNames();

    void addMissingLinks();
    bool cutToTree();
    void joinRoots();
    std::set<const Joint*> selfFollowers() const;
    void dropBadMimics();
    bool isTooDeep() const;
    void repairName();

    KrRobotDescription& m_robot;
    KrRobotRepair::Limits m_limits;
    KrImportReport& m_report;
    KrMaterialNames m_materials;
    const std::string& rootOf(const std::string& link);

    std::map<std::string, std::string> m_parents; ///< parent link by child link
    std::map<std::string, std::string> m_above;   ///< a link higher up in the tree, by link; none for roots
};

bool Repair::run(std::string& why)
{
    // In this order: names before what refers to them, missing links before the tree, the tree before its roots, and
    // mimic rules last, when the joints that are left are known.
    nameMaterials();
    std::for_each(m_robot.joints.begin(), m_robot.joints.end(), [this](Joint& joint) { repairJoint(joint); });
    separateJointNames();
    addMissingLinks();
    if (m_robot.links.size() > m_limits.maxLinks) {
        why = "it has too many links; " + std::to_string(m_limits.maxLinks) + " are read";
        return false;
    }
    if (!cutToTree() || isTooDeep()) {
        why = "its links form a chain of more than " + std::to_string(m_limits.maxChain);
        return false;
    }
    joinRoots();
    dropBadMimics();
    repairName();
    return true;
}

void Repair::nameMaterials()
{
    m_materials.define(m_robot.materials);
    for (Link& link : m_robot.links) {
        // Visuals only: collision geometry has one look, whatever a file gives it.
        for (Shape& visual : link.visuals) {
            m_materials.resolve(visual.material, visual.place, "link " + link.name + " / " + visual.label);
        }
    }
    m_robot.materials = m_materials.materials();
}

void Repair::repairJoint(Joint& joint)
{
    // Messages call it as the file does, before it gets a name.
    const std::string element = "joint " + joint.name;
    if (joint.name.empty()) {
        // Made of what is in the file, so that the name is the same at every reading.
        joint.name = joint.parent + "_to_" + joint.child;
        warn(joint.place, element, "it has no name; it becomes \"" + joint.name + "\"");
    }
    // What a fixed joint says about moving is not used by anybody.
    if (joint.type != Type::Fixed) {
        repairAxis(element + " / axis", joint);
        repairLimits(element, joint);
    }
}

void Repair::repairAxis(const std::string& element, Joint& joint)
{
    // Without squares that overflow. The condition is written so that NaN fails, too.
    const double length = std::hypot(joint.axis.x(), joint.axis.y(), joint.axis.z());
    if (!(length > 0.0)) {
        // The format's default.
        warn(joint.place, element, "it has no direction; the x axis is taken");
        joint.axis = KrVector(1.0, 0.0, 0.0);
    } else if (length > kLongAxis || length < 1.0 / kLongAxis) {
        // Very long and very short ones have squares that are no numbers. The others stay for the joint to normalise:
        // dividing twice would round twice.
        joint.axis = KrVector(joint.axis.x() / length, joint.axis.y() / length, joint.axis.z() / length);
    }
}

void Repair::repairLimits(const std::string& element, Joint& joint)
{
    // From here on types and limits fit each other: what builds on them does not ask again.
    if (!joint.hasLimits && joint.type == Type::Revolute) {
        // As an unlimited joint it can at least be moved; limits of zero would freeze it.
        warn(joint.place, element, "a revolute joint without limits; it turns without limits");
        joint.type = Type::Continuous;
    } else if (!joint.hasLimits && joint.type == Type::Prismatic) {
        // As above, it can at least be moved.
        warn(joint.place, element, "a prismatic joint without limits; -1 m to 1 m are taken");
        joint.hasLimits = true;
        joint.lower = -1.0;
        joint.upper = 1.0;
    }
    if (joint.maximumEffort < 0.0 || joint.maximumVelocity < 0.0) {
        warn(joint.place, element + " / limit", "its effort or velocity is negative; it is taken without the sign");
        joint.maximumEffort = std::abs(joint.maximumEffort);
        joint.maximumVelocity = std::abs(joint.maximumVelocity);
    }
    // Exchanged rather than left out: axes that were turned round leave their limits behind.
    if (joint.lower > joint.upper) {
        warn(joint.place, element + " / limit", "the lower limit is above the upper one; they are exchanged");
        std::swap(joint.lower, joint.upper);
    }
}

void Repair::separateJointNames()
{
    std::set<std::string> names;
    std::map<std::string, unsigned int> numbers; // the next one to try, by name
    for (Joint& joint : m_robot.joints) {
        // The first one keeps the name, and with it those that follow it by that name.
        const std::string given = joint.name;
        // The number goes on for each name: thousands of equal ones take no longer than others.
        while (!names.insert(joint.name).second) {
            unsigned int& number = numbers.emplace(given, 2).first->second;
            joint.name = given + " " + std::to_string(number++);
        }
        if (joint.name != given) {
            warn(joint.place, "joint " + given,
                 "the name is there twice; the second one becomes \"" + joint.name + "\"");
        }
    }
}

void Repair::addMissingLinks()
{
    std::set<std::string> names;
    for (const Link& link : m_robot.links) {
        names.insert(link.name);
    }
    for (const Joint& joint : m_robot.joints) {
        for (const std::string& name : {std::cref(joint.parent), std::cref(joint.child)}) {
            if (names.insert(name).second) {
                // The joint is the only place in the file that tells of the link.
                warn(joint.place, "joint " + joint.name, "link \"" + name + "\" is not defined; an empty one is added");
                m_robot.links.emplace_back();
                m_robot.links.back().place = joint.place;
                m_robot.links.back().name = name;
            }
        }
    }
}

/// The link at the top of the tree. What is passed on the way is hung nearer to it, so that a chain of thousands is
/// walked over once and not from each of its links.
const std::string& Repair::rootOf(const std::string& link)
{
    const std::string* root = &link;
    for (auto above = m_above.find(link); above != m_above.end(); above = m_above.find(*root)) {
        root = &above->second;
    }
    for (auto passed = m_above.find(link); passed != m_above.end() && &passed->second != root;) {
        const auto next = m_above.find(passed->second);
        passed->second = *root;
        passed = next;
    }
    return *root;
}

/// False for chains so long that they are no robot: walks upwards end there, else they would take the square of the
/// number of links.
bool Repair::cutToTree()
{
    std::vector<Joint> kept;
    kept.reserve(m_robot.joints.size());
    for (Joint& joint : m_robot.joints) {
        bool closesCircle = rootOf(joint.parent) == joint.child;
        const bool hasParent = m_parents.count(joint.child) > 0;
        // Below the root of a tree a circle shows only on the way up.
        const std::string* above = hasParent ? &joint.parent : nullptr;
        for (std::size_t depth = 0; above != nullptr && !closesCircle; ++depth) {
            if (depth > m_limits.maxChain) {
                return false;
            }
            closesCircle = *above == joint.child;
            const auto next = m_parents.find(*above);
            above = next == m_parents.end() ? nullptr : &next->second;
        }
        // The first joint in the file wins, so that the result does not depend on names.
        if (closesCircle) {
            warn(joint.place, "joint " + joint.name, "it closes a circle of links; it is left out");
        } else if (hasParent) {
            warn(joint.place, "joint " + joint.name,
                 "link \"" + joint.child + "\" has a parent already; the joint is left out");
        } else {
            m_parents.emplace(joint.child, joint.parent);
            m_above.emplace(joint.child, joint.parent);
            kept.push_back(std::move(joint));
        }
    }
    m_robot.joints = std::move(kept);
    return true;
}

void Repair::joinRoots()
{
    // Several trees are several robots, or one whose joints were lost; fixed to one another all of it is seen.
    std::map<std::string, std::size_t> sizes;
    std::vector<const Link*> roots;
    for (const Link& link : m_robot.links) {
        const std::string& root = rootOf(link.name);
        ++sizes[root];
        if (root == link.name) {
            roots.push_back(&link);
        }
    }
    // Names of joints are unique by now, and the new ones must not take one.
    std::set<std::string> taken;
    for (const Joint& joint : m_robot.joints) {
        taken.insert(joint.name);
    }
    // The tree with the most links is the robot; of equals the first one.
    const auto smaller = [&sizes](const Link* a, const Link* b) { return sizes[a->name] < sizes[b->name]; };
    const std::string base = (*std::max_element(roots.begin(), roots.end(), smaller))->name;
    for (const Link* const root : roots) {
        if (root->name == base) {
            continue;
        }
        warn(root->place, "link " + root->name,
             "it has no parent, like \"" + base + "\"; it is fixed to that one's origin");
        // Of type fixed, without an offset: those are a joint's defaults.
        Joint joint;
        joint.place = root->place;
        joint.name = base + "_to_" + root->name;
        joint.parent = base;
        joint.child = root->name;
        while (!taken.insert(joint.name).second) {
            joint.name += "_";
        }
        m_robot.joints.push_back(joint);
    }
}

/// The first joint of each circle of joints that follow one another.
std::set<const Joint*> Repair::selfFollowers() const
{
    const std::vector<Joint>& joints = m_robot.joints;
    std::map<std::string, std::size_t> places;
    for (const Joint& joint : joints) {
        places.emplace(joint.name, places.size());
    }
    const std::size_t none = joints.size();
    const auto masterOf = [&](std::size_t place) {
        const auto master = places.find(joints[place].mimicMaster);
        return master == places.end() ? none : master->second;
    };
    std::set<const Joint*> result;
    // By joint: where the walk began that came along. Each joint is walked over once, however they follow one another.
    std::vector<std::size_t> walks(joints.size(), none);
    for (std::size_t start = 0; start < joints.size(); ++start) {
        std::size_t at = start;
        for (; at != none && walks[at] == none; at = masterOf(at)) {
            walks[at] = start;
        }
        // It ended where a walk before has been: no new circle.
        if (at == none || walks[at] != start) {
            continue;
        }
        // The joint that the file names first, wherever in the circle the walk came in.
        std::size_t first = at;
        for (std::size_t other = masterOf(at); other != at; other = masterOf(other)) {
            first = std::min(first, other);
        }
        result.insert(&joints[first]);
    }
    return result;
}

void Repair::dropBadMimics()
{
    // Only one joint of each circle is freed: the others still follow, in their ratio.
    const std::set<const Joint*> followers = selfFollowers();
    std::set<std::string> names;
    for (const Joint& joint : m_robot.joints) {
        names.insert(joint.name);
    }
    for (Joint& joint : m_robot.joints) {
        const std::string element = "joint " + joint.name + " / mimic";
        // Only here: cutting to a tree may have taken the joint that others follow.
        const bool isLost = !joint.mimicMaster.empty() && !names.count(joint.mimicMaster);
        const bool isCircle = followers.count(&joint) > 0;
        if (isLost) {
            warn(joint.place, element, "joint \"" + joint.mimicMaster + "\" does not exist; it moves by itself");
        } else if (isCircle) {
            warn(joint.place, element, "it follows itself; it moves by itself");
        }
        if (isLost || isCircle) {
            joint.mimicMaster.clear();
        }
    }
}

bool Repair::isTooDeep() const
{
    std::map<std::string, std::size_t> depths;
    std::vector<const std::string*> open;
    for (const Link& link : m_robot.links) {
        // Up to a link whose depth is known, or to a root; what was passed on the way is known from then on.
        std::size_t depth = 0;
        for (const std::string* at = &link.name; at != nullptr;) {
            const auto known = depths.find(*at);
            if (known != depths.end()) {
                depth = known->second + 1;
                break;
            }
            open.push_back(at);
            const auto above = m_parents.find(*at);
            at = above == m_parents.end() ? nullptr : &above->second;
        }
        for (; !open.empty(); open.pop_back()) {
            if (depth > m_limits.maxChain) {
                return true;
            }
            depths.emplace(*open.back(), depth++);
        }
    }
    return false;
}

void Repair::repairName()
{
    // Last, so that a description that is refused has given its reasons before.
    if (m_robot.name.empty()) {
        m_robot.name = KrText::utf8(KrImportPath::stemOf(m_robot.files[0]));
        warn(m_robot.place, "robot", "it has no name; \"" + m_robot.name + "\" is taken from the file");
    }
    m_report.setRobot(m_robot.name);
}

} // namespace

bool KrRobotRepair::run(KrRobotDescription& description, const Limits& limits, KrImportReport& report, std::string& why)
{
    return Repair(description, limits, report).run(why);
}
