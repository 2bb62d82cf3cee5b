#include <import/urdf/KrUrdfReader.h>

#include <import/files/KrImportXml.h>
#include <import/urdf/KrXacroRemains.h>

#include <toolkit/foundation/private/KrText.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <utility>

namespace
{

using Geometry = KrRobotDescription::Geometry;
using Inertial = KrRobotDescription::Inertial;
using Joint = KrRobotDescription::Joint;
using Link = KrRobotDescription::Link;
using Look = KrRobotDescription::Look;
using Place = KrRobotDescription::Place;
using Shape = KrRobotDescription::Shape;
using Type = KrJointKinematics::Type;
using KrImportXml::attributeOf;

constexpr std::size_t kMaxValue = 60; // of an attribute in a message, bytes

/// A value of the file in a message: quoted, on one line, of bounded length, since it is anybody's text.
std::string told(const std::string& text)
{
    return "\"" + KrText::oneLine(text, kMaxValue) + "\"";
}

/// Pictures are drawn with single precision.
bool isTooFar(double value)
{
    return std::abs(value) > std::numeric_limits<float>::max();
}

/// Of three numbers: values() has counted them.
KrVector vectorOf(const std::vector<double>& xyz)
{
    return {xyz[0], xyz[1], xyz[2]};
}

/// Turns about the fixed axes x, y and z, in this order: the product of the three half-angle quaternions.
///
/// Kept: by way of a unit quaternion. A matrix made from the angles at once differs in the last digits, and pictures
/// and written systems with it.
KrOrientation orientationOf(const std::vector<double>& rpy)
{
    const double sr = std::sin(rpy[0] / 2.0), cr = std::cos(rpy[0] / 2.0);
    const double sp = std::sin(rpy[1] / 2.0), cp = std::cos(rpy[1] / 2.0);
    const double sy = std::sin(rpy[2] / 2.0), cy = std::cos(rpy[2] / 2.0);
    const double x = sr * cp * cy - cr * sp * sy;
    const double y = cr * sp * cy + sr * cp * sy;
    const double z = cr * cp * sy - sr * sp * cy;
    const double w = cr * cp * cy + sr * sp * sy;
    // The length differs from 1 by rounding alone; what is made from it counts on a unit quaternion.
    const double length = std::sqrt(x * x + y * y + z * z + w * w);
    return {x / length, y / length, z / length, w / length};
}

class Reader
{
public:
    Reader(const xmlNode& robot, const KrUrdfReader::Limits& limits, KrRobotDescription& result, KrImportReport& report)
        : m_robot(robot)
        , m_limits(limits)
        , m_result(result)
        , m_report(report)
    {
    }

    bool run(std::string& why);

private:
    void warn(const xmlNode& node, const std::string& element, const std::string& text)
    {
        m_report.addWarning(m_result.files[0], element, text, KrImportXml::lineOf(node));
    }
    static Place placeOf(const xmlNode& node) { return {0, KrImportXml::lineOf(node)}; }

    // Attributes; what is there and is no number gets a warning, unless it waits for its macro.
    bool values(const xmlNode& node, const char* name, std::size_t count, const std::string& element,
                std::vector<double>& result);
    bool value(const xmlNode& node, const char* name, const std::string& element, double& result);

    void readMaterials();
    void readMaterial(const xmlNode& node, bool isGlobal);
    Look lookOf(const xmlNode& material, const std::string& element);
    bool readColor(const xmlNode& node, const std::string& element, std::array<double, 4>& color);

    bool readLinks();
    void readLink(const xmlNode& node, Link& link);
    void readInertial(const xmlNode& link, const std::string& element, std::optional<Inertial>& inertial);
    bool readShape(const xmlNode& node, const std::string& element, Shape& shape);
    bool readGeometry(const xmlNode& shape, const std::string& element, Geometry& geometry);
    bool readSize(const xmlNode& form, const char* name, const std::string& element, double& result);
    void readMesh(const xmlNode& mesh, const std::string& element, Geometry& geometry);
    KrCoordinateSystemTransformation originOf(const xmlNode& owner, const std::string& element);

    bool readJoint(const xmlNode& node, Joint& joint);
    static std::string endOf(const xmlNode& node, const char* name);
    void readLimits(const xmlNode& limit, const std::string& element, Joint& joint);
    void readLimit(const xmlNode& limit, const char* name, const std::string& element, double& result);
    void readMimic(const xmlNode& mimic, const std::string& element, Joint& joint);

    const xmlNode& m_robot;
    KrUrdfReader::Limits m_limits;
    KrRobotDescription& m_result;
    KrImportReport& m_report;
};

bool Reader::run(std::string& why)
{
    // First in the report: a value that waits for its macro is missing below, and this says why.
    const KrXacroRemains macros(m_robot);
    if (macros.any()) {
        warn(m_robot, "robot", macros.text());
    }
    m_result.name = attributeOf(m_robot, "name");
    m_result.place = placeOf(m_robot);
    readMaterials();
    if (!readLinks()) {
        why = "it has too many links; " + std::to_string(m_limits.maxLinks) + " are read";
        return false;
    }
    // Where nothing was expanded, the links are behind the macros: the refusal tells that as well.
    if (m_result.links.empty()) {
        why = "it has no links" + (macros.any() ? "; " + macros.text() : "");
        return false;
    }
    // Those that the file names, good or not: each costs memory before it is found to be bad.
    const std::vector<xmlNode*> joints = KrImportXml::children(m_robot, "joint");
    if (joints.size() > m_limits.maxLinks) {
        why = "it has too many joints; " + std::to_string(m_limits.maxLinks) + " are read";
        return false;
    }
    m_result.joints.reserve(joints.size());
    for (const xmlNode* const node : joints) {
        Joint joint;
        if (readJoint(*node, joint)) {
            m_result.joints.push_back(std::move(joint));
        }
    }
    return true;
}

bool Reader::values(const xmlNode& node, const char* name, std::size_t count, const std::string& element,
                    std::vector<double>& result)
{
    std::string text;
    // Absent is no fault here: the description holds the format's defaults.
    if (!KrImportXml::attribute(node, name, text)) {
        return false;
    }
    std::vector<double> read;
    if (KrImportXml::numbers(text, read) && read.size() == count) {
        // Coordinates beyond single precision would be infinite on their way to the screen.
        if (std::none_of(read.begin(), read.end(), isTooFar)) {
            result = std::move(read);
            return true;
        }
        warn(node, element, std::string(name) + " " + told(text) + " is too large; it is left out");
        return false;
    }
    // One warning tells of all macros; one more for each value would hide the rest.
    if (!KrXacroRemains::isExpression(text)) {
        warn(node, element,
             std::string(name) + " " + told(text) + " is not " +
                 (count == 1 ? "a number" : std::to_string(count) + " numbers") + "; it is left out");
    }
    return false;
}

bool Reader::value(const xmlNode& node, const char* name, const std::string& element, double& result)
{
    std::vector<double> read;
    const bool ok = values(node, name, 1, element, read);
    // The default stays where there is no good value; every caller can go on without.
    result = ok ? read[0] : result;
    return ok;
}

/// The robot's own first, then those inside visuals: a name alone may mean one that is defined later in the file.
void Reader::readMaterials()
{
    for (const xmlNode* const material : KrImportXml::children(m_robot, "material")) {
        readMaterial(*material, true);
    }
    for (const xmlNode* const link : KrImportXml::children(m_robot, "link")) {
        for (const xmlNode* const visual : KrImportXml::children(*link, "visual")) {
            for (const xmlNode* const material : KrImportXml::children(*visual, "material")) {
                readMaterial(*material, false);
            }
        }
    }
}

void Reader::readMaterial(const xmlNode& node, bool isGlobal)
{
    const std::string name = attributeOf(node, "name");
    // What is wrong with a visual's material is told when the visual is read.
    const std::string element = isGlobal && !name.empty() ? "material " + name : "";
    m_result.materials.push_back({placeOf(node), name, lookOf(node, element), isGlobal});
}

/// @param element  empty for no warnings
Look Reader::lookOf(const xmlNode& material, const std::string& element)
{
    Look look;
    // What cannot be read leaves the look empty, so that a definition under the same name can stand in for it.
    if (const xmlNode* const color = KrImportXml::child(material, "color")) {
        look.hasColor = readColor(*color, element, look.color);
    }
    if (const xmlNode* const texture = KrImportXml::child(material, "texture")) {
        look.texture = attributeOf(*texture, "filename");
    }
    return look;
}

bool Reader::readColor(const xmlNode& node, const std::string& element, std::array<double, 4>& color)
{
    const std::string text = attributeOf(node, "rgba");
    std::vector<double> rgba;
    if (!KrImportXml::numbers(text, rgba) || (rgba.size() != 3 && rgba.size() != 4)) {
        if (!element.empty()) {
            warn(node, element, "the colour " + told(text) + " is not four numbers; it is left out");
        }
        return false;
    }
    // Three numbers are common; what they colour is opaque.
    rgba.resize(4, 1.0);
    // Some exporters round 1 up, others write 0 to 255; nobody means a colour 200 times as bright as white.
    const double highest = *std::max_element(rgba.begin(), rgba.end());
    // By the colours alone: an opacity is seldom written in bytes. A little above 1 is rounding.
    const bool isByte = *std::max_element(rgba.begin(), rgba.begin() + 3) > 1.01;
    const bool isOutside = highest > 1.0 || *std::min_element(rgba.begin(), rgba.end()) < 0.0;
    if (isOutside && !element.empty()) {
        warn(node, element,
             "the colour " + told(text) + " is outside [0, 1]; " + (isByte ? "read as bytes" : "cut off"));
    }
    for (std::size_t i = 0; i < 4; ++i) {
        // The opacity often stays at 1 where the colour is written in bytes.
        const double part = isByte && (i < 3 || rgba[i] > 1.0) ? rgba[i] / 255.0 : rgba[i];
        color[i] = std::clamp(part, 0.0, 1.0);
    }
    return true;
}

/// False for more than a robot has.
bool Reader::readLinks()
{
    std::set<std::string> names;
    const std::vector<xmlNode*> links = KrImportXml::children(m_robot, "link");
    m_result.links.reserve(std::min(links.size(), m_limits.maxLinks));
    for (const xmlNode* const node : links) {
        const std::string name = attributeOf(*node, "name");
        if (name.empty()) {
            warn(*node, "link", "a link without a name is left out");
            continue;
        }
        if (!names.insert(name).second) {
            warn(*node, "link " + name, "it is there twice; the first one counts");
            continue;
        }
        // Before any of its shapes are read. The repair looks again, when links that joints name have been added.
        if (names.size() > m_limits.maxLinks) {
            return false;
        }
        m_result.links.emplace_back();
        // The name first: messages about the shapes begin with it.
        m_result.links.back().name = name;
        readLink(*node, m_result.links.back());
    }
    return true;
}

void Reader::readLink(const xmlNode& node, Link& link)
{
    link.place = placeOf(node);
    readInertial(node, "link " + link.name + " / inertial", link.inertial);
    // Numbered by their place in the file, those left out among them: people count elements, not shapes.
    for (const auto& [kind, shapes] : {std::make_pair("visual", &link.visuals), {"collision", &link.collisions}}) {
        std::size_t number = 0;
        for (const xmlNode* const element : KrImportXml::children(node, kind)) {
            Shape shape;
            shape.place = placeOf(*element);
            // Known before the shape is read, because its messages name it.
            shape.label = kind + (" " + std::to_string(++number));
            if (readShape(*element, "link " + link.name + " / " + shape.label, shape)) {
                shapes->push_back(std::move(shape));
            }
        }
    }
}

void Reader::readInertial(const xmlNode& link, const std::string& element, std::optional<Inertial>& inertial)
{
    static constexpr const char* kMoments[] = {"ixx", "ixy", "ixz", "iyy", "iyz", "izz"};
    const xmlNode* const node = KrImportXml::child(link, "inertial");
    if (!node) {
        return;
    }
    Inertial read;
    const xmlNode* const mass = KrImportXml::child(*node, "mass");
    // A mass alone is of use, an inertia without one is not.
    if (!mass || !value(*mass, "value", element, read.mass) || read.mass < 0.0) {
        warn(*node, element, "it has no mass of zero or more; it is left out");
        return;
    }
    if (const xmlNode* const inertia = KrImportXml::child(*node, "inertia")) {
        for (std::size_t i = 0; i < read.inertia.size(); ++i) {
            value(*inertia, kMoments[i], element, read.inertia[i]);
        }
    }
    // Handed over as a whole: half of an inertial would be a wrong one.
    read.place = placeOf(*node);
    read.frame = originOf(*node, element);
    inertial = read;
}

bool Reader::readShape(const xmlNode& node, const std::string& element, Shape& shape)
{
    if (!readGeometry(node, element, shape.geometry)) {
        warn(node, element, "it has no geometry that can be read; it is left out");
        return false;
    }
    // Collision geometry has a look of its own, whatever a file gives it.
    const xmlNode* const material = shape.label[0] == 'v' ? KrImportXml::child(node, "material") : nullptr;
    if (material) {
        shape.material.name = attributeOf(*material, "name");
        shape.material.look = lookOf(*material, element);
        // What is there and could not be read has been reported; "not defined" would be wrong.
        shape.material.isBroken =
            KrImportXml::child(*material, "color") != nullptr || KrImportXml::child(*material, "texture") != nullptr;
    }
    shape.placement = originOf(node, element);
    return true;
}

/// Of several forms in one element the first that can be read counts, in this order.
bool Reader::readGeometry(const xmlNode& shape, const std::string& element, Geometry& geometry)
{
    using Form = Geometry::Form;
    const xmlNode* const node = KrImportXml::child(shape, "geometry");
    const auto form = [node](const char* name) { return node ? KrImportXml::child(*node, name) : nullptr; };
    // A mesh counts whatever it names: a file that is not there is told when it is looked for.
    if (const xmlNode* const mesh = form("mesh")) {
        readMesh(*mesh, element, geometry);
        return true;
    }
    std::vector<double> edges;
    // A form whose numbers cannot be read gives way to the next one.
    const xmlNode* const box = form("box");
    if (box && values(*box, "size", 3, element, edges)) {
        if (std::any_of(edges.begin(), edges.end(), [](double edge) { return edge < 0.0; })) {
            warn(*box, element, "its size is negative; it is taken without the sign");
        }
        geometry.form = Form::Box;
        geometry.size = KrVector(std::abs(edges[0]), std::abs(edges[1]), std::abs(edges[2]));
        return true;
    }
    const xmlNode* const ball = form("sphere");
    if (ball && readSize(*ball, "radius", element, geometry.radius)) {
        geometry.form = Form::Sphere;
        return true;
    }
    for (const auto& [name, kind] : {std::make_pair("cylinder", Form::Cylinder), {"capsule", Form::Capsule}}) {
        const xmlNode* const round = form(name);
        if (round && readSize(*round, "radius", element, geometry.radius) &&
            readSize(*round, "length", element, geometry.length)) {
            geometry.form = kind;
            return true;
        }
    }
    return false;
}

/// A mirrored export turns sizes negative, and these forms are symmetric.
bool Reader::readSize(const xmlNode& form, const char* name, const std::string& element, double& result)
{
    const bool ok = value(form, name, element, result);
    if (ok && result < 0.0) {
        warn(form, element, std::string("its ") + name + " is negative; it is taken without the sign");
    }
    result = std::abs(result);
    return ok;
}

void Reader::readMesh(const xmlNode& mesh, const std::string& element, Geometry& geometry)
{
    geometry.form = Geometry::Form::Mesh;
    // An empty name is kept: the search tells of it as it does of others.
    geometry.uri = attributeOf(mesh, "filename");
    std::string text;
    std::vector<double> scale;
    if (!KrImportXml::attribute(mesh, "scale", text)) {
        return;
    }
    // One number for all three is against the format, and common.
    const bool areNumbers = KrImportXml::numbers(text, scale);
    if (!areNumbers || (scale.size() != 1 && scale.size() != 3)) {
        warn(mesh, element, "the scale " + told(text) + " is neither one nor three numbers; 1 is taken");
        return;
    }
    scale.resize(3, scale[0]);
    geometry.scale = vectorOf(scale);
}

/// Each half by itself: a rotation that cannot be read leaves the place as it is given.
KrCoordinateSystemTransformation Reader::originOf(const xmlNode& owner, const std::string& element)
{
    KrCoordinateSystemTransformation pose;
    const xmlNode* const origin = KrImportXml::child(owner, "origin");
    std::vector<double> read;
    if (origin && values(*origin, "xyz", 3, element + " / origin", read)) {
        pose.setTranslation(vectorOf(read));
    }
    if (origin && values(*origin, "rpy", 3, element + " / origin", read)) {
        pose.setOrientation(orientationOf(read));
    }
    return pose;
}

/// False for one that connects nothing.
bool Reader::readJoint(const xmlNode& node, Joint& joint)
{
    // The types with one degree of freedom, or none.
    static const std::pair<const char*, Type> kTypes[] = {{"fixed", Type::Fixed},
                                                          {"revolute", Type::Revolute},
                                                          {"continuous", Type::Continuous},
                                                          {"prismatic", Type::Prismatic}};
    joint.place = placeOf(node);
    joint.name = attributeOf(node, "name");
    joint.parent = endOf(node, "parent");
    joint.child = endOf(node, "child");
    const std::string element = "joint " + joint.name;
    // Links that are named and not there are the repair's; this one joins nothing.
    if (joint.parent.empty() || joint.child.empty()) {
        warn(node, element, "it does not name a parent and a child link; it is left out");
        return false;
    }
    // In lower case: files that are written by hand vary.
    const std::string type = KrText::lowered(attributeOf(node, "type"));
    const auto isIt = [&type](const auto& entry) { return type == entry.first; };
    const auto known = std::find_if(std::begin(kTypes), std::end(kTypes), isIt);
    // Floating and planar joints have several degrees of freedom: fixed, they stand where the file puts them.
    if (known == std::end(kTypes)) {
        warn(node, element, "a joint of type \"" + type + "\" is not supported; it is fixed");
    } else {
        joint.type = known->second;
    }
    joint.origin = originOf(node, element);
    // What a fixed joint says about moving is often left over from another type, and harms nobody.
    if (joint.type == Type::Fixed) {
        return true;
    }
    // Without an axis that can be read x is taken, the format's default.
    std::vector<double> xyz;
    const xmlNode* const axis = KrImportXml::child(node, "axis");
    if (axis && values(*axis, "xyz", 3, element + " / axis", xyz)) {
        joint.axis = vectorOf(xyz);
    }
    if (const xmlNode* const limit = KrImportXml::child(node, "limit")) {
        readLimits(*limit, element + " / limit", joint);
    }
    if (const xmlNode* const mimic = KrImportXml::child(node, "mimic")) {
        readMimic(*mimic, element + " / mimic", joint);
    }
    return true;
}

/// Empty where there is none: such joints are left out.
std::string Reader::endOf(const xmlNode& node, const char* name)
{
    const xmlNode* const end = KrImportXml::child(node, name);
    return end ? attributeOf(*end, "link") : "";
}

void Reader::readLimits(const xmlNode& limit, const std::string& element, Joint& joint)
{
    // Also where an end cannot be read: the joint was meant to be limited, and the format takes 0 for an absent end.
    joint.hasLimits = true;
    readLimit(limit, "lower", element, joint.lower);
    readLimit(limit, "upper", element, joint.upper);
    const bool hasEffort = value(limit, "effort", element, joint.maximumEffort);
    const bool hasVelocity = value(limit, "velocity", element, joint.maximumVelocity);
    // The format demands both, and simulators are the only ones to use them.
    if (!hasEffort || !hasVelocity) {
        warn(limit, element,
             std::string("it gives no ") +
                 (hasEffort     ? "velocity"
                  : hasVelocity ? "effort"
                                : "effort and no velocity") +
                 "; 0 is taken");
    }
}

/// One end of a joint's range. Far ones are common where no limit is meant: they stay as far as numbers go.
void Reader::readLimit(const xmlNode& limit, const char* name, const std::string& element, double& result)
{
    constexpr double kFarthest = std::numeric_limits<float>::max();
    const std::string text = attributeOf(limit, name);
    std::vector<double> read;
    // Looked at before value() does, which would leave such a number out.
    if (KrImportXml::numbers(text, read) && read.size() == 1 && isTooFar(read[0])) {
        result = std::clamp(read[0], -kFarthest, kFarthest);
        warn(limit, element,
             std::string(name) + " " + told(text) + " is out of reach; " + KrImportXml::text(result) + " is taken");
        return;
    }
    value(limit, name, element, result);
}

void Reader::readMimic(const xmlNode& mimic, const std::string& element, Joint& joint)
{
    // The format's defaults, 1 and 0, stay where there is no good number.
    value(mimic, "multiplier", element, joint.mimicMultiplier);
    value(mimic, "offset", element, joint.mimicOffset);
    joint.mimicMaster = attributeOf(mimic, "joint");
    // A rule without a joint that it follows is none: joints with an empty master move by themselves.
    if (joint.mimicMaster.empty()) {
        warn(mimic, element, "it names no joint; it is left out");
    }
}

} // namespace

bool KrUrdfReader::read(const std::string& path, const Limits& limits, KrRobotDescription& description,
                        KrImportReport& report, std::string& why)
{
    // From a pipe as well, because descriptions come out of macro processors.
    bool isForeign = false;
    const KrImportXml::UniqueDocument document =
        KrImportXml::read(path, KrInputFile::Accept::FilesAndPipes, limits.maxBytes, why, &isForeign);
    const xmlNode* const root = document ? xmlDocGetRootElement(document.get()) : nullptr;
    if (!root) {
        return false;
    }
    if (KrImportXml::nameOf(*root) != "robot") {
        why = "its first element is <" + KrText::oneLine(KrImportXml::nameOf(*root), kMaxValue) + ">, not <robot>";
        return false;
    }
    if (isForeign) {
        report.addWarning(path, "robot", "it is no UTF-8; it is read as Latin-1");
    }
    // The description stays as it was until all has gone well.
    KrRobotDescription read;
    read.files = {path};
    if (!Reader(*root, limits, read, report).run(why)) {
        return false;
    }
    description = std::move(read);
    return true;
}
