#include <import/urdf/KrUrdfReader.h>

#include <import/files/KrImportPath.h>
#include <import/files/KrImportXml.h>
#include <import/files/KrPathResolver.h>
#include <import/mesh/KrMeshBuilder.h>
#include <import/mesh/KrMeshFile.h>
#include <import/mesh/KrMeshMaterials.h>

#include <toolkit/extent/KrBoxPhysicalExtent.h>
#include <toolkit/extent/KrCapsulePhysicalExtent.h>
#include <toolkit/extent/KrCylinderPhysicalExtent.h>
#include <toolkit/extent/KrSpherePhysicalExtent.h>
#include <toolkit/foundation/private/KrText.h>
#include <toolkit/math/KrColor.h>
#include <toolkit/system/KrIndividualManipulator.h>

#include <Eigen/Dense>
#include <console_bridge/console.h>
#include <urdf_parser/urdf_parser.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <set>

namespace
{

using ExtentPointer = boost::shared_ptr<KrBasePhysicalExtent>;

constexpr double kStandInSize = 0.05; // m
constexpr std::size_t kMaxPath = 400; // in a message, bytes

/// Keeps what the parser says from the terminal while it lives.
class ParserMessages : public console_bridge::OutputHandler
{
public:
    ParserMessages()
        : m_previous(console_bridge::getOutputHandler())
    {
        console_bridge::useOutputHandler(this);
    }
    ~ParserMessages() override { console_bridge::useOutputHandler(m_previous); }
    ParserMessages(const ParserMessages&) = delete;
    ParserMessages& operator=(const ParserMessages&) = delete;

    void log(const std::string& text, console_bridge::LogLevel level, const char*, int) override
    {
        if (level >= console_bridge::CONSOLE_BRIDGE_LOG_WARN) {
            m_texts.push_back(text);
        }
    }
    const std::vector<std::string>& texts() const { return m_texts; }

private:
    console_bridge::OutputHandler* m_previous;
    std::vector<std::string> m_texts;
};

KrVector vectorOf(const urdf::Vector3& v)
{
    return {v.x, v.y, v.z};
}

KrCoordinateSystemTransformation poseOf(const urdf::Pose& pose)
{
    KrCoordinateSystemTransformation result;
    result.setOrientation({pose.rotation.x, pose.rotation.y, pose.rotation.z, pose.rotation.w});
    result.setTranslation(vectorOf(pose.position));
    return result;
}

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
void fillMass(const urdf::Inertial& inertial, KrMassProperties& mass)
{
    const KrCoordinateSystemTransformation pose = poseOf(inertial.origin);
    Eigen::Matrix3d tensor;
    tensor << inertial.ixx, inertial.ixy, inertial.ixz, //
        inertial.ixy, inertial.iyy, inertial.iyz,       //
        inertial.ixz, inertial.iyz, inertial.izz;
    const Eigen::Matrix3d turned = rotationOf(pose) * tensor * rotationOf(pose).transpose();
    mass.setMass(inertial.mass);
    mass.setCenterOfMass(pose.translation());
    mass.setInertia({turned(0, 0), turned(1, 1), turned(2, 2), turned(0, 1), turned(0, 2), turned(1, 2)});
}

KrJointKinematics::Type typeOf(const urdf::Joint& joint)
{
    switch (joint.type) {
    case urdf::Joint::REVOLUTE:
        return KrJointKinematics::Type::Revolute;
    case urdf::Joint::CONTINUOUS:
        return KrJointKinematics::Type::Continuous;
    case urdf::Joint::PRISMATIC:
        return KrJointKinematics::Type::Prismatic;
    default:
        return KrJointKinematics::Type::Fixed;
    }
}

void fillJoint(const urdf::Joint& joint, KrJointKinematics& kinematics)
{
    kinematics.setName(joint.name);
    kinematics.setType(typeOf(joint));
    kinematics.setOrigin(poseOf(joint.parent_to_joint_origin_transform));
    if (!kinematics.isMovable()) {
        return;
    }
    kinematics.setAxis(vectorOf(joint.axis));
    if (joint.limits) {
        kinematics.setLimits(joint.limits->lower, joint.limits->upper);
        kinematics.setMaximumVelocity(joint.limits->velocity);
        kinematics.setMaximumEffort(joint.limits->effort);
    }
    if (joint.mimic) {
        kinematics.setMimic(joint.mimic->joint_name, joint.mimic->multiplier, joint.mimic->offset);
    }
}

std::size_t numTriangles(const KrBasePhysicalExtent& extent)
{
    // A mesh is asked itself: its placed copy is not needed before it is drawn.
    if (const auto* own = dynamic_cast<const KrTriPhysicalExtent*>(&extent)) {
        return own->numTriangles();
    }
    const boost::shared_ptr<const KrTriPhysicalExtent> mesh = extent.triExtent();
    return mesh ? mesh->numTriangles() : 0;
}

std::string textOf(const KrVector& v)
{
    return KrImportXml::text(v.x()) + " " + KrImportXml::text(v.y()) + " " + KrImportXml::text(v.z());
}

/// Bytes that are the same for two poses only when they are equal.
std::string keyOf(const KrCoordinateSystemTransformation& pose)
{
    double entries[16];
    pose.assign16(entries);
    return std::string(reinterpret_cast<const char*>(entries), sizeof entries);
}

class Reader
{
public:
    Reader(const urdf::ModelInterface& model, const KrUrdfMender::Mended& mended, const std::string& path,
           const KrImportOptions& options, KrIndividualManipulator& manipulator, KrImportReport& report)
        : m_model(model)
        , m_mended(mended)
        , m_path(path)
        , m_options(options)
        , m_resolver(path, options)
        , m_manipulator(manipulator)
        , m_report(report)
    {
    }

    void run();

private:
    /// One visual or collision element on its way to an extent.
    struct Element
    {
        std::string link;
        std::string label;
        std::string material;
        bool isCollision = false;
        KrCoordinateSystemTransformation placement;
        std::string name() const { return "link " + link + " / " + label; }
    };
    struct MeshEntry
    {
        bool isRead = false;
        KrMeshData data;
        std::string why;
    };

    void readMaterials();
    void setTexture(const std::string& element, const std::string& uri, KrDataMap& look);
    void countMovables();
    using Pair = std::pair<const urdf::Link*, KrManipulatorLink*>;
    void readLinks();
    void readLink(const urdf::Link& source, KrManipulatorLink& link);
    std::vector<Pair> addChildren(const urdf::Link& source, KrManipulatorLink& link);
    void readVisuals(const urdf::Link& source, KrManipulatorLink& link);
    void readCollisions(const urdf::Link& source, KrManipulatorLink& link);
    ExtentPointer volumeOf(const std::vector<ExtentPointer>& extents);
    ExtentPointer extentOf(const urdf::Geometry& geometry, const Element& element);
    ExtentPointer primitiveOf(const urdf::Geometry& geometry, const Element& element) const;
    ExtentPointer meshOf(const urdf::Mesh& mesh, const Element& element);
    ExtentPointer builtMesh(const MeshEntry& entry, const Element& element, KrImportReport::Mesh& line);
    const MeshEntry& meshEntry(const std::string& path, const Element& element);
    ExtentPointer standIn(const Element& element) const;
    std::string usableMaterial(const std::string& material, bool hasCoordinates, const Element& element);
    bool hasTexture(const std::string& material) const;
    void warn(const std::string& element, const std::string& text) { m_report.addWarning(m_path, element, text); }

    const urdf::ModelInterface& m_model;
    const KrUrdfMender::Mended& m_mended;
    std::string m_path;
    const KrImportOptions& m_options;
    KrPathResolver m_resolver;
    KrIndividualManipulator& m_manipulator;
    KrImportReport& m_report;
    std::map<std::string, MeshEntry> m_meshes; ///< by path
    /// Meshes that links share, by everything that makes them what they are.
    std::map<std::string, KrMeshBuilder::Result> m_shared;
    std::set<std::string> m_textures;
    std::map<std::string, std::string> m_visibleMeshes;             ///< keys of m_shared by file, scale and placement
    std::set<const KrBasePhysicalExtent*> m_visibleExtents;         ///< meshes that are seen, and may collide as well
    std::map<const KrBasePhysicalExtent*, ExtentPointer> m_volumes; ///< of visible extents, in the volumes' look
    bool m_hasCollisionShapes = false;
    std::vector<std::string> m_lyingMeshes; ///< files that declare another up axis than z
    std::vector<std::string> m_impossible;  ///< links whose mass properties no body has
};

void Reader::run()
{
    readMaterials();
    countMovables();
    readLinks();
    if (!m_impossible.empty()) {
        warn("link " + m_impossible[0] + " / inertial",
             "no body has these mass properties" +
                 (m_impossible.size() > 1 ? ", nor those of " + std::to_string(m_impossible.size() - 1) + " more links"
                                          : std::string()));
    }
    if (!m_lyingMeshes.empty()) {
        const std::size_t others = m_lyingMeshes.size() - 1;
        warn("robot", KrText::oneLine(m_lyingMeshes[0]) +
                          (others == 0 ? " declares" : " and " + std::to_string(others) + " more mesh files declare") +
                          " another up axis than z; coordinates are taken as they stand, as robot descriptions expect");
    }
    if (m_report.counts().triangles == 0) {
        warn("robot", m_hasCollisionShapes ? "no visible shape has a surface: there is collision geometry only"
                                           : "nothing to draw: no visible shape has a surface");
    }
    m_report.counts().textures = m_textures.size();
}

void Reader::readMaterials()
{
    for (const auto& [name, material] : m_model.materials_) {
        const urdf::Color& color = material->color;
        const bool isTextured = !material->texture_filename.empty();
        const bool isUntold = isTextured && color.r == 0.0f && color.g == 0.0f && color.b == 0.0f;
        KrDataMap look = KrDataMap::material(isUntold ? KrColor(1.0, 1.0, 1.0, color.a)
                                                      : KrColor(color.r, color.g, color.b, color.a));
        if (isTextured) {
            setTexture("material " + name, material->texture_filename, look);
        }
        m_manipulator.materialMap().set(name, look);
    }
    m_report.counts().materials = m_model.materials_.size();
}

void Reader::setTexture(const std::string& element, const std::string& uri, KrDataMap& look)
{
    const KrPathResolver::Found& found = m_resolver.findImage(uri);
    if (found.path.empty()) {
        warn(element, "texture \"" + KrText::oneLine(uri) + "\" is missing; only the colour is used");
        return;
    }
    if (found.isGuess) {
        warn(element, "texture \"" + KrText::oneLine(uri) + "\" is taken from " +
                          KrText::oneLine(found.path, kMaxPath) + " (" + found.rule + ")");
    }
    KrMeshMaterials::setTexture(look, found.path);
    m_textures.insert(found.path);
}

void Reader::countMovables()
{
    KrImportReport::Counts& counts = m_report.counts();
    counts.links = m_model.links_.size();
    counts.joints = m_model.joints_.size();
    for (const auto& [name, joint] : m_model.joints_) {
        counts.movableJoints += typeOf(*joint) != KrJointKinematics::Type::Fixed;
        counts.mimicJoints += joint->mimic ? 1 : 0;
    }
}

/// From the base outwards, depth first, without recursion: a chain may be longer than a small stack bears.
void Reader::readLinks()
{
    std::vector<Pair> stack{{m_model.getRoot().get(), &m_manipulator}};
    while (!stack.empty()) {
        const auto [source, link] = stack.back();
        stack.pop_back();
        readLink(*source, *link);
        const std::vector<Pair> children = addChildren(*source, *link);
        stack.insert(stack.end(), children.rbegin(), children.rend());
    }
}

void Reader::readLink(const urdf::Link& source, KrManipulatorLink& link)
{
    link.setName(source.name);
    if (source.inertial) {
        fillMass(*source.inertial, link.massProperties());
        if (!link.massProperties().whyImpossible().empty()) {
            m_impossible.push_back(source.name);
        }
    }
    readVisuals(source, link);
    readCollisions(source, link);
}

/// With their joints; each stays where it is while its own children are added.
std::vector<Reader::Pair> Reader::addChildren(const urdf::Link& source, KrManipulatorLink& link)
{
    // The parser sorts joints by name; the description's own order is what people expect.
    std::vector<urdf::JointSharedPtr> joints = source.child_joints;
    std::sort(joints.begin(), joints.end(), [this](const urdf::JointSharedPtr& a, const urdf::JointSharedPtr& b) {
        return m_mended.jointOrder.at(a->name) < m_mended.jointOrder.at(b->name);
    });
    link.childLinks().reserve(static_cast<unsigned int>(joints.size()));
    std::vector<Pair> children;
    for (const urdf::JointSharedPtr& joint : joints) {
        KrManipulatorLink& child = link.addChildLink(KrManipulatorLink(joint->child_link_name));
        fillJoint(*joint, child.jointKinematics());
        children.emplace_back(m_model.getLink(joint->child_link_name).get(), &child);
    }
    return children;
}

void Reader::readVisuals(const urdf::Link& source, KrManipulatorLink& link)
{
    for (const urdf::VisualSharedPtr& visual : source.visual_array) {
        ++m_report.counts().visuals;
        Element element;
        element.link = source.name;
        element.label = visual->name;
        element.material = visual->material ? visual->material_name : "";
        element.placement = poseOf(visual->origin);
        const ExtentPointer extent = extentOf(*visual->geometry, element);
        if (extent) {
            m_report.counts().triangles += numTriangles(*extent);
            link.addShape(extent);
        }
    }
}

void Reader::readCollisions(const urdf::Link& source, KrManipulatorLink& link)
{
    std::vector<ExtentPointer> extents;
    for (const urdf::CollisionSharedPtr& collision : source.collision_array) {
        ++m_report.counts().collisions;
        Element element;
        element.link = source.name;
        element.label = collision->name;
        element.material = KrUrdfReader::collisionMaterial();
        element.isCollision = true;
        element.placement = poseOf(collision->origin);
        const ExtentPointer extent = extentOf(*collision->geometry, element);
        if (extent) {
            extents.push_back(extent);
            link.addCollisionShape(extent);
        }
    }
    m_hasCollisionShapes = m_hasCollisionShapes || !extents.empty();
    if (link.shape() == nullptr) {
        return; // a volume encloses a shape
    }
    if (const ExtentPointer volume = volumeOf(extents)) {
        link.shapePointer(0)->addBoundingVolume(boost::shared_ptr<KrShape>(new KrShape(volume)));
        KrDataMap look = KrDataMap::material(KrColor(0.95, 0.55, 0.1, 0.4));
        m_manipulator.dataMaps().set(std::string(KrUrdfReader::collisionMaterial()), look);
    }
}

/// The viewer shows one enclosing shape of a link at a time: several collision shapes together are that one, and a mesh
/// that is seen as well is copied, because a volume has a look of its own.
ExtentPointer Reader::volumeOf(const std::vector<ExtentPointer>& extents)
{
    if (extents.size() != 1) {
        return extents.empty() ? nullptr : KrMeshBuilder::merge(extents, KrUrdfReader::collisionMaterial());
    }
    if (m_visibleExtents.count(extents[0].get()) == 0) {
        return extents[0];
    }
    ExtentPointer& volume = m_volumes[extents[0].get()];
    if (!volume) {
        volume = KrMeshBuilder::merge(extents, KrUrdfReader::collisionMaterial());
    }
    return volume;
}

ExtentPointer Reader::extentOf(const urdf::Geometry& geometry, const Element& element)
{
    if (geometry.type == urdf::Geometry::MESH) {
        return meshOf(static_cast<const urdf::Mesh&>(geometry), element);
    }
    const ExtentPointer extent = primitiveOf(geometry, element);
    extent->setPlacement(element.placement);
    if (numTriangles(*extent) == 0) {
        warn(element.name(), "its size is zero; nothing is drawn");
        return nullptr;
    }
    const bool hasCoordinates = extent->triExtent() && !extent->triExtent()->textureCoordinates().empty();
    extent->setMaterialName(usableMaterial(element.material, hasCoordinates, element));
    return extent;
}

ExtentPointer Reader::primitiveOf(const urdf::Geometry& geometry, const Element& element) const
{
    if (geometry.type == urdf::Geometry::SPHERE) {
        return ExtentPointer(new KrSpherePhysicalExtent(static_cast<const urdf::Sphere&>(geometry).radius));
    }
    if (geometry.type == urdf::Geometry::BOX) {
        return ExtentPointer(new KrBoxPhysicalExtent(vectorOf(static_cast<const urdf::Box&>(geometry).dim)));
    }
    const auto& round = static_cast<const urdf::Cylinder&>(geometry);
    const std::vector<std::pair<std::string, std::string>>& capsules = m_mended.capsules;
    if (std::find(capsules.begin(), capsules.end(), std::make_pair(element.link, element.label)) != capsules.end()) {
        return ExtentPointer(new KrCapsulePhysicalExtent(round.radius, round.length));
    }
    return ExtentPointer(new KrCylinderPhysicalExtent(round.radius, round.length));
}

ExtentPointer Reader::meshOf(const urdf::Mesh& mesh, const Element& element)
{
    const KrPathResolver::Found& found = m_resolver.findMesh(mesh.filename);
    KrImportReport::Mesh line;
    line.link = element.link;
    line.element = element.label;
    line.uri = mesh.filename;
    line.path = found.path;
    line.rule = found.rule;
    line.tried = found.tried;
    line.scale = vectorOf(mesh.scale);
    line.isCollision = element.isCollision;

    ExtentPointer extent;
    if (found.path.empty()) {
        line.missing = true;
        const bool isName = mesh.filename.size() <= Kr::Limits::kPathBytes;
        warn(element.name(),
             "mesh \"" + KrText::oneLine(mesh.filename) + "\" was not found" +
                 (isName ? "" : ": no file has a name of " + std::to_string(mesh.filename.size()) + " bytes"));
    } else {
        if (found.isGuess) {
            warn(element.name(), "mesh \"" + KrText::oneLine(mesh.filename) + "\" is taken from " +
                                     KrText::oneLine(found.path, kMaxPath) + ": " + found.rule);
        }
        extent = builtMesh(meshEntry(found.path, element), element, line);
    }
    m_report.counts().missingMeshes += line.missing;
    m_report.addMesh(line);
    // A stand-in among the collision geometry would pretend a volume that nobody described.
    return line.missing && !element.isCollision ? standIn(element) : extent;
}

ExtentPointer Reader::builtMesh(const MeshEntry& entry, const Element& element, KrImportReport::Mesh& line)
{
    if (!entry.isRead) {
        line.missing = true;
        m_report.addWarning(line.path, element.name(), "the mesh cannot be read: " + entry.why);
        return nullptr;
    }
    line.unit = entry.data.unit;
    if (line.scale.x() * line.scale.y() * line.scale.z() == 0.0) {
        warn(element.name(), "the scale " + textOf(line.scale) + " leaves nothing of the mesh");
        return nullptr;
    }
    const std::string place = line.path + '\n' +
                              std::string(reinterpret_cast<const char*>(line.scale.data()), 3 * sizeof(double)) +
                              keyOf(element.placement);
    const auto seen = m_visibleMeshes.find(place);
    if (element.isCollision && seen != m_visibleMeshes.end()) {
        const KrMeshBuilder::Result& visible = m_shared[seen->second];
        line.triangles = visible.triangles;
        line.degenerate = visible.degenerate;
        line.groups = visible.extent->groups().size();
        return visible.extent;
    }
    KrMeshBuilder::Options options;
    options.scale = line.scale;
    options.useLooks = !element.isCollision;
    options.material = element.material;
    options.name = line.path;
    const auto isPlain = [](const KrMeshData::Group& group) { return !group.hasLook; };
    if (std::any_of(entry.data.groups.begin(), entry.data.groups.end(), isPlain)) {
        options.material = usableMaterial(element.material, !entry.data.textureCoordinates.empty(), element);
        options.materialHasTexture = hasTexture(options.material);
    }

    const std::string key = (element.isCollision ? "c" : "v") + options.material + '\n' + place;
    const auto [shared, isNew] = m_shared.emplace(key, KrMeshBuilder::Result());
    KrMeshBuilder::Result& result = shared->second;
    if (isNew) {
        result = KrMeshBuilder::build(entry.data, options);
        if (result.extent) {
            result.extent->setPlacement(element.placement);
        }
    }
    if (result.extent && !element.isCollision) {
        m_visibleMeshes.emplace(place, key);
        m_visibleExtents.insert(result.extent.get());
    }
    line.triangles = result.triangles;
    line.degenerate = result.degenerate;
    line.groups = result.extent ? result.extent->groups().size() : 0;
    if (!result.extent && result.triangles == 0) {
        m_report.addWarning(line.path, element.name(), "the mesh holds no triangle; nothing is drawn");
    }
    line.missing = !result.extent && result.triangles > 0;
    if (line.missing) {
        m_report.addWarning(line.path, element.name(), "the mesh cannot be used: " + result.why);
    }
    return result.extent;
}

const Reader::MeshEntry& Reader::meshEntry(const std::string& path, const Element& element)
{
    const auto [place, isNew] = m_meshes.emplace(path, MeshEntry());
    MeshEntry& entry = place->second;
    if (!isNew) {
        return entry;
    }
    entry.isRead = KrMeshFile::read(path, m_options, entry.data, entry.why);
    if (entry.data.upAxis == "X_UP" || entry.data.upAxis == "Y_UP") {
        m_lyingMeshes.push_back(KrImportPath::nameOf(path));
    }
    for (const std::string& warning : entry.data.warnings) {
        m_report.addWarning(path, element.name(), warning);
    }
    m_textures.insert(entry.data.textures.begin(), entry.data.textures.end());
    for (const KrMeshData::Group& group : entry.data.groups) {
        m_report.counts().materials += group.hasLook;
    }
    return entry;
}

ExtentPointer Reader::standIn(const Element& element) const
{
    const ExtentPointer box(new KrBoxPhysicalExtent(KrVector(kStandInSize, kStandInSize, kStandInSize)));
    box->setPlacement(element.placement);
    box->setMaterialName(KrUrdfReader::standInMaterial());
    m_manipulator.materialMap().set(std::string(KrUrdfReader::standInMaterial()),
                                    KrDataMap::material(KrColor(1.0, 0.0, 1.0)));
    return box;
}

/// The name of a material without its texture where there are no coordinates for it.
std::string Reader::usableMaterial(const std::string& material, bool hasCoordinates, const Element& element)
{
    if (hasCoordinates || !hasTexture(material)) {
        return material;
    }
    const std::string plain = material + " without texture";
    if (!m_manipulator.materialMap().find(plain)) {
        KrDataMap look = *m_manipulator.materialMap().find(material);
        std::string image;
        look.string("krTextureFilename", image);
        look.erase("krTextureFilename");
        look.erase("krTextureEnvironmentMode");
        if (!KrMeshMaterials::setMeanColor(look, image)) {
            warn(element.name(),
                 "texture \"" + KrText::oneLine(image, kMaxPath) + "\" cannot be read; only the colour is used");
        }
        m_manipulator.materialMap().set(plain, look);
    }
    warn(element.name(), "material \"" + KrText::oneLine(material) +
                             "\" has a texture, but the shape has no texture coordinates; its mean colour is used");
    return plain;
}

bool Reader::hasTexture(const std::string& material) const
{
    const KrDataMap* const look = m_manipulator.materialMap().find(material);
    std::string image;
    return look && look->string("krTextureFilename", image);
}

} // namespace

bool KrUrdfReader::read(const KrUrdfMender::Mended& mended, const std::string& path, const KrImportOptions& options,
                        KrIndividualManipulator& manipulator, KrImportReport& report, std::string& why)
{
    const ParserMessages messages;
    urdf::ModelInterfaceSharedPtr model;
    try {
        model = urdf::parseURDF(mended.text);
    } catch (const std::exception& exception) {
        why = exception.what();
    }
    if (!model || !model->getRoot()) {
        why = messages.texts().empty() ? "the parser refuses it " + why : messages.texts().front();
        return false;
    }
    for (const std::string& text : messages.texts()) {
        report.addWarning(path, "robot", text);
    }
    Reader(*model, mended, path, options, manipulator, report).run();
    // Else links that hold one another go by recursion.
    for (const auto& [name, link] : model->links_) {
        link->child_links.clear();
        link->child_joints.clear();
    }
    return true;
}
