#include <import/description/KrRobotBuilder.h>

#include <import/description/KrMaterialNames.h>
#include <import/description/KrShapeBuilder.h>
#include <import/files/KrPathResolver.h>
#include <import/mesh/KrMeshMaterials.h>

#include <toolkit/foundation/private/KrText.h>
#include <toolkit/math/KrColor.h>
#include <toolkit/system/KrIndividualManipulator.h>

#include <Eigen/Dense>

#include <algorithm>
#include <set>
#include <utility>

namespace
{

using Joint = KrRobotDescription::Joint;
using Link = KrRobotDescription::Link;
using Place = KrRobotDescription::Place;
using Shape = KrRobotDescription::Shape;
using ExtentPointer = KrShapeBuilder::ExtentPointer;

/// As a matrix of the library that turns tensors.
Eigen::Matrix3d rotationOf(const KrCoordinateSystemTransformation& pose)
{
    Eigen::Matrix3d matrix;
    for (unsigned int row = 0; row < 3; ++row) {
        for (unsigned int column = 0; column < 3; ++column) {
            matrix(row, column) = pose.rotation(row, column);
        }
    }
    return matrix;
}

/// The inertia stands in a frame of its own; the link's frame has the tensor R I R^T.
void fillMass(const KrRobotDescription::Inertial& inertial, KrMassProperties& mass)
{
    // A tensor is symmetric: the file gives one half of it.
    const auto& [ixx, ixy, ixz, iyy, iyz, izz] = inertial.inertia;
    Eigen::Matrix3d tensor;
    tensor << ixx, ixy, ixz, //
        ixy, iyy, iyz,       //
        ixz, iyz, izz;
    const Eigen::Matrix3d rotation = rotationOf(inertial.frame);
    const Eigen::Matrix3d turned = rotation * tensor * rotation.transpose();
    mass.setMass(inertial.mass);
    mass.setCenterOfMass(inertial.frame.translation());
    // The setter takes the diagonal first, then xy, xz and yz.
    mass.setInertia({turned(0, 0), turned(1, 1), turned(2, 2), turned(0, 1), turned(0, 2), turned(1, 2)});
}

void fillJoint(const Joint& joint, KrJointKinematics& kinematics)
{
    kinematics.setName(joint.name);
    kinematics.setType(joint.type);
    kinematics.setOrigin(joint.origin);
    // What a fixed joint says about moving has not been read; the defaults stay.
    if (!kinematics.isMovable()) {
        return;
    }
    // Setters refuse what is no good, with a message; after the repair there is nothing to refuse.
    kinematics.setAxis(joint.axis);
    if (joint.hasLimits) {
        kinematics.setLimits(joint.lower, joint.upper);
        kinematics.setMaximumVelocity(joint.maximumVelocity);
        kinematics.setMaximumEffort(joint.maximumEffort);
    }
    if (!joint.mimicMaster.empty()) {
        kinematics.setMimic(joint.mimicMaster, joint.mimicMultiplier, joint.mimicOffset);
    }
}

class Builder
{
public:
    Builder(const KrRobotDescription& robot, KrPathResolver& resolver, const KrMeshLoader::Options& loading,
            KrIndividualManipulator& manipulator, KrImportReport& report)
        : m_robot(robot)
        , m_resolver(resolver)
        , m_shapes(robot, resolver, loading, manipulator, report)
        , m_manipulator(manipulator)
        , m_report(report)
    {
    }

    void run();

private:
    void warn(const Place& place, const std::string& element, const std::string& text)
    {
        m_report.addWarning(m_robot.files[place.file], element, text, place.line);
    }

    void addMaterials();
    void setTexture(const KrRobotDescription::Material& material, KrDataMap& look);
    void countJoints();
    void addLinks();
    using Pair = std::pair<const Link*, KrManipulatorLink*>;
    void fillLink(const Link& source, KrManipulatorLink& link);
    std::vector<Pair> addChildren(const Link& source, KrManipulatorLink& link);
    void addVisuals(const Link& source, KrManipulatorLink& link);
    void addCollisions(const Link& source, KrManipulatorLink& link);

    const KrRobotDescription& m_robot;
    KrPathResolver& m_resolver;
    KrShapeBuilder m_shapes;
    KrIndividualManipulator& m_manipulator;
    KrImportReport& m_report;
    std::map<std::string, const Link*> m_links;
    std::map<std::string, std::vector<const Joint*>> m_joints; ///< by parent link, in the order of the description
    std::set<std::string> m_textures;
    bool m_hasCollisionShapes = false;
    std::vector<const Link*> m_impossible; ///< links whose mass properties no body has
};

void Builder::run()
{
    // Materials before links: shapes look up whether theirs has a texture.
    addMaterials();
    m_shapes.loadMeshes();
    countJoints();
    addLinks();
    // One warning for all: exporters that invent inertias invent them for every link.
    if (!m_impossible.empty()) {
        warn(m_impossible[0]->inertial->place, "link " + m_impossible[0]->name + " / inertial",
             "no body has these mass properties" +
                 (m_impossible.size() > 1 ? ", nor those of " + std::to_string(m_impossible.size() - 1) + " more links"
                                          : std::string()));
    }
    m_shapes.warnOfUpAxes();
    // Behind all shapes: before, nobody knows what can be seen.
    if (m_report.counts().triangles == 0) {
        warn(m_robot.place, "robot",
             m_hasCollisionShapes ? "no visible shape has a surface: there is collision geometry only"
                                  : "nothing to draw: no visible shape has a surface");
    }
    // A set of both kinds: an image that a material and a mesh share counts once.
    m_textures.insert(m_shapes.textures().begin(), m_shapes.textures().end());
    m_report.counts().textures = m_textures.size();
}

void Builder::addMaterials()
{
    for (const KrRobotDescription::Material& material : m_robot.materials) {
        const KrRobotDescription::Look& described = material.look;
        // Kept: colours have single precision. Written systems show its digits, and stay the same byte for byte.
        const auto part = [&described](std::size_t i) { return static_cast<float>(described.color[i]); };
        // Black is what some exporters write where they mean the image alone.
        const bool isUntold = !described.texture.empty() && part(0) == 0.0f && part(1) == 0.0f && part(2) == 0.0f;
        KrDataMap look = KrDataMap::material(isUntold ? KrColor(1.0, 1.0, 1.0, part(3))
                                                      : KrColor(part(0), part(1), part(2), part(3)));
        if (!described.texture.empty()) {
            setTexture(material, look);
        }
        m_manipulator.materialMap().set(material.name, look);
    }
    m_report.counts().materials = m_robot.materials.size();
}

void Builder::setTexture(const KrRobotDescription::Material& material, KrDataMap& look)
{
    const std::string element = "material " + material.name;
    const std::string& uri = material.look.texture;
    // Missing or not, the colour stays: the material is of use without its image.
    const KrPathResolver::Found& found = m_resolver.findImage(uri);
    if (found.path.empty()) {
        warn(material.place, element, "texture \"" + KrText::oneLine(uri) + "\" is missing; only the colour is used");
        return;
    }
    if (found.isGuess) {
        warn(material.place, element,
             "texture \"" + KrText::oneLine(uri) + "\" is taken from " +
                 KrText::oneLine(found.path, KrShapeBuilder::kMaxPath) + " (" + found.rule + ")");
    }
    // The image is not opened here: whether it can be drawn is found out by those who draw it.
    KrMeshMaterials::setTexture(look, found.path);
    m_textures.insert(found.path);
}

void Builder::countJoints()
{
    KrImportReport::Counts& counts = m_report.counts();
    counts.links = m_robot.links.size();
    counts.joints = m_robot.joints.size();
    for (const Joint& joint : m_robot.joints) {
        counts.movableJoints += joint.type != KrJointKinematics::Type::Fixed;
        counts.mimicJoints += !joint.mimicMaster.empty();
    }
}

/// From the base outwards, depth first, without recursion: a chain may be longer than a small stack bears.
void Builder::addLinks()
{
    // The base is the one link that is nobody's child.
    std::set<std::string> children;
    for (const Joint& joint : m_robot.joints) {
        m_joints[joint.parent].push_back(&joint);
        children.insert(joint.child);
    }
    std::vector<Pair> stack;
    for (const Link& link : m_robot.links) {
        m_links.emplace(link.name, &link);
        if (children.count(link.name) == 0) {
            stack.emplace_back(&link, &m_manipulator); // the only one: the description is a tree
        }
    }
    while (!stack.empty()) {
        const auto [source, link] = stack.back();
        stack.pop_back();
        fillLink(*source, *link);
        const std::vector<Pair> next = addChildren(*source, *link);
        // Backwards onto the stack, so that the first child comes off first: joints keep the order of the
        // description.
        stack.insert(stack.end(), next.rbegin(), next.rend());
    }
}

void Builder::fillLink(const Link& source, KrManipulatorLink& link)
{
    link.setName(source.name);
    if (source.inertial) {
        fillMass(*source.inertial, link.massProperties());
        // Kept as described, for clients that want the numbers.
        if (!link.massProperties().whyImpossible().empty()) {
            m_impossible.push_back(&source);
        }
    }
    addVisuals(source, link);
    addCollisions(source, link);
}

/// With their joints; each stays where it is while its own children are added, because all are reserved for here.
std::vector<Builder::Pair> Builder::addChildren(const Link& source, KrManipulatorLink& link)
{
    const std::vector<const Joint*>& joints = m_joints[source.name];
    // Pointers to the links are on the stack of the walk: the list must not move while it grows.
    link.childLinks().reserve(static_cast<unsigned int>(joints.size()));
    std::vector<Pair> children;
    for (const Joint* const joint : joints) {
        KrManipulatorLink& child = link.addChildLink(KrManipulatorLink(joint->child));
        fillJoint(*joint, child.jointKinematics());
        // Every child is known: the repair has added those that joints name and nobody defines.
        children.emplace_back(m_links.at(joint->child), &child);
    }
    return children;
}

void Builder::addVisuals(const Link& source, KrManipulatorLink& link)
{
    for (const Shape& visual : source.visuals) {
        // Counted whether it can be drawn or not: the report tells what the description holds.
        ++m_report.counts().visuals;
        if (const ExtentPointer extent = m_shapes.visual(source, visual)) {
            link.addShape(extent);
        }
    }
}

void Builder::addCollisions(const Link& source, KrManipulatorLink& link)
{
    std::vector<ExtentPointer> extents;
    for (const Shape& collision : source.collisions) {
        ++m_report.counts().collisions;
        if (const ExtentPointer extent = m_shapes.collision(source, collision)) {
            extents.push_back(extent);
            link.addCollisionShape(extent);
        }
    }
    m_hasCollisionShapes = m_hasCollisionShapes || !extents.empty();
    if (link.shape() == nullptr) {
        return; // a volume encloses a shape
    }
    if (const ExtentPointer volume = m_shapes.volumeOf(extents)) {
        // Bounding volumes belong to shapes: the first shape carries the one of the whole link.
        link.shapePointer(0)->addBoundingVolume(boost::shared_ptr<KrShape>(new KrShape(volume)));
        // See-through, so that the link inside stays visible.
        const KrDataMap look = KrDataMap::material(KrColor(0.95, 0.55, 0.1, 0.4));
        m_manipulator.dataMaps().set(std::string(KrMaterialNames::kCollision), look);
    }
}

} // namespace

void KrRobotBuilder::build(const KrRobotDescription& description, KrPathResolver& resolver,
                           const KrMeshLoader::Options& loading, KrIndividualManipulator& manipulator,
                           KrImportReport& report)
{
    Builder(description, resolver, loading, manipulator, report).run();
}
