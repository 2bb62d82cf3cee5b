#include <import/description/KrShapeBuilder.h>

#include <import/description/KrMaterialNames.h>
#include <import/files/KrImportPath.h>
#include <import/files/KrImportXml.h>
#include <import/files/KrPathResolver.h>
#include <import/mesh/KrMeshMaterials.h>

#include <toolkit/extent/KrBoxPhysicalExtent.h>
#include <toolkit/extent/KrCapsulePhysicalExtent.h>
#include <toolkit/extent/KrCylinderPhysicalExtent.h>
#include <toolkit/extent/KrSpherePhysicalExtent.h>
#include <toolkit/foundation/private/KrText.h>
#include <toolkit/math/KrColor.h>
#include <toolkit/system/KrIndividualManipulator.h>

#include <algorithm>
#include <utility>

namespace
{

using ExtentPointer = KrShapeBuilder::ExtentPointer;
using Geometry = KrRobotDescription::Geometry;

constexpr double kStandInSize = 0.05; // m

std::size_t numTriangles(const KrBasePhysicalExtent& extent)
{
    // A mesh is asked itself: its placed copy is not needed before it is drawn.
    if (const auto* own = dynamic_cast<const KrTriPhysicalExtent*>(&extent)) {
        return own->numTriangles();
    }
    const boost::shared_ptr<const KrTriPhysicalExtent> mesh = extent.triExtent();
    return mesh ? mesh->numTriangles() : 0;
}

/// As messages show it.
std::string textOf(const KrVector& v)
{
    return KrImportXml::text(v.x()) + " " + KrImportXml::text(v.y()) + " " + KrImportXml::text(v.z());
}

/// Bytes that are the same for two meshes only when file, scale and pose are equal.
std::string keyOf(const std::string& path, const KrVector& scale, const KrCoordinateSystemTransformation& pose)
{
    // As bits, so that poses that differ in the last digit stay two. That 0 and -0 do so, too, costs a copy at most.
    double entries[16];
    pose.assign16(entries);
    return path + '\n' + std::string(reinterpret_cast<const char*>(scale.data()), 3 * sizeof(double)) +
           std::string(reinterpret_cast<const char*>(entries), sizeof entries);
}

/// Meshes never come here: extentOf() takes them before.
ExtentPointer primitiveOf(const Geometry& geometry)
{
    switch (geometry.form) {
    case Geometry::Form::Box:
        return ExtentPointer(new KrBoxPhysicalExtent(geometry.size));
    case Geometry::Form::Sphere:
        return ExtentPointer(new KrSpherePhysicalExtent(geometry.radius));
    case Geometry::Form::Capsule:
        return ExtentPointer(new KrCapsulePhysicalExtent(geometry.radius, geometry.length));
    default:
        return ExtentPointer(new KrCylinderPhysicalExtent(geometry.radius, geometry.length));
    }
}

/// Whether each size is one that any primitive has a surface with.
bool isOrdinary(const Geometry& geometry)
{
    const auto isSize = [](double size) { return size > 1e-20 && size < 1e20; };
    switch (geometry.form) {
    case Geometry::Form::Box:
        return isSize(geometry.size.x()) && isSize(geometry.size.y()) && isSize(geometry.size.z());
    case Geometry::Form::Sphere:
        return isSize(geometry.radius);
    default:
        return isSize(geometry.radius) && isSize(geometry.length);
    }
}

} // namespace

KrShapeBuilder::KrShapeBuilder(const KrRobotDescription& robot, KrPathResolver& resolver,
                               const KrMeshLoader::Options& loading, KrIndividualManipulator& manipulator,
                               KrImportReport& report)
    : m_robot(robot)
    , m_resolver(resolver)
    , m_loader(loading)
    , m_manipulator(manipulator)
    , m_report(report)
{
}

// In the order of the file; an element that is overlooked here is only read later.
void KrShapeBuilder::loadMeshes()
{
    std::set<std::string> seen;
    const auto want = [this, &seen](const Element& element) {
        const KrRobotDescription::Geometry& geometry = element.shape.geometry;
        if (geometry.form != Geometry::Form::Mesh ||
            geometry.scale.x() * geometry.scale.y() * geometry.scale.z() == 0) {
            return;
        }
        const std::string& path = m_resolver.findMesh(geometry.uri).path;
        // A mesh that is seen where it collides is one extent.
        const std::string place = keyOf(path, geometry.scale, element.shape.placement);
        if (!path.empty() && (!element.isCollision || seen.count(place) == 0)) {
            m_loader.want(path, wishOf(element));
            seen.insert(place);
        }
    };
    for (const KrRobotDescription::Link& link : m_robot.links) {
        for (const KrRobotDescription::Shape& shape : link.visuals) {
            want({link, shape, shape.material.name, false});
        }
        for (const KrRobotDescription::Shape& shape : link.collisions) {
            want({link, shape, KrMaterialNames::kCollision, true});
        }
    }
    m_loader.load();
}

ExtentPointer KrShapeBuilder::visual(const KrRobotDescription::Link& link, const KrRobotDescription::Shape& shape)
{
    const ExtentPointer extent = extentOf({link, shape, shape.material.name, false});
    // Visible triangles only: they are what a picture costs.
    m_report.counts().triangles += extent ? numTriangles(*extent) : 0;
    return extent;
}

ExtentPointer KrShapeBuilder::collision(const KrRobotDescription::Link& link, const KrRobotDescription::Shape& shape)
{
    return extentOf({link, shape, KrMaterialNames::kCollision, true});
}

/// The viewer shows one enclosing shape of a link at a time: several collision shapes together are that one, and a mesh
/// that is seen as well is copied, because a volume has a look of its own.
ExtentPointer KrShapeBuilder::volumeOf(const std::vector<ExtentPointer>& collisions)
{
    if (collisions.size() != 1) {
        return collisions.empty() ? nullptr : KrMeshBuilder::merge(collisions, KrMaterialNames::kCollision);
    }
    if (m_visibleExtents.count(collisions[0].get()) == 0) {
        return collisions[0];
    }
    // Kept by extent: links that share a mesh share its volume.
    ExtentPointer& volume = m_volumes[collisions[0].get()];
    if (!volume) {
        volume = KrMeshBuilder::merge(collisions, KrMaterialNames::kCollision);
    }
    return volume;
}

// One sentence for all of them: a whole robot comes from one exporter.
void KrShapeBuilder::warnOfUpAxes()
{
    if (m_lyingMeshes.empty()) {
        return;
    }
    const std::size_t others = m_lyingMeshes.size() - 1;
    m_report.addWarning(
        m_robot.files[0], "robot",
        KrText::oneLine(m_lyingMeshes[0]) +
            (others == 0 ? " declares" : " and " + std::to_string(others) + " more mesh files declare") +
            " another up axis than z; coordinates are taken as they stand, as robot descriptions expect");
}

ExtentPointer KrShapeBuilder::extentOf(const Element& element)
{
    if (element.shape.geometry.form == Geometry::Form::Mesh) {
        return meshOf(element);
    }
    const ExtentPointer extent = primitiveOf(element.shape.geometry);
    extent->setPlacement(element.shape.placement);
    // Before the surface is asked for: another name would have it made anew.
    extent->setMaterialName(element.material);
    // For a collision shape the surface is not made, as long as it is sure that there is one and no texture needs its
    // coordinates.
    const bool isSure = element.isCollision && isOrdinary(element.shape.geometry) && !hasTexture(element.material);
    // The surface itself is asked: which sizes leave nothing of it is the primitive's own knowledge.
    if (!isSure && numTriangles(*extent) == 0) {
        warn(element, "its size is zero; nothing is drawn");
        return nullptr;
    }
    // Not every primitive has them.
    const bool hasCoordinates = !isSure && extent->triExtent() && !extent->triExtent()->textureCoordinates().empty();
    const std::string material = usableMaterial(hasCoordinates, element);
    // A single collision shape is seldom looked at: its surface is made once more for who does. Several are merged.
    if (material != element.material || (element.isCollision && element.link.collisions.size() == 1)) {
        extent->setMaterialName(material);
    }
    return extent;
}

ExtentPointer KrShapeBuilder::meshOf(const Element& element)
{
    const std::string& uri = element.shape.geometry.uri;
    // The line of the report is written whatever comes of the mesh.
    const KrPathResolver::Found& found = m_resolver.findMesh(uri);
    KrImportReport::Mesh line;
    line.link = element.link.name;
    line.element = element.shape.label;
    line.uri = uri;
    line.path = found.path;
    line.rule = found.rule;
    line.tried = found.tried;
    line.scale = element.shape.geometry.scale;
    line.isCollision = element.isCollision;

    ExtentPointer extent;
    if (found.path.empty()) {
        line.missing = true;
        const bool isName = uri.size() <= Kr::Limits::kPathBytes;
        warn(element, "mesh \"" + KrText::oneLine(uri) + "\" was not found" +
                          (isName ? "" : ": no file has a name of " + std::to_string(uri.size()) + " bytes"));
    } else {
        // Another robot's file may have the name: a person has to know.
        if (found.isGuess) {
            warn(element, "mesh \"" + KrText::oneLine(uri) + "\" is taken from " +
                              KrText::oneLine(found.path, kMaxPath) + ": " + found.rule);
        }
        extent = builtMesh(meshFile(found.path, element), element, line);
    }
    m_report.counts().missingMeshes += line.missing;
    m_report.addMesh(line);
    // A stand-in among the collision geometry would pretend a volume that nobody described.
    return line.missing && !element.isCollision ? standIn(element) : extent;
}

ExtentPointer KrShapeBuilder::builtMesh(const KrMeshLoader::File& file, const Element& element,
                                        KrImportReport::Mesh& line)
{
    if (!file.isRead) {
        // What cannot be read is missing as well, so that a stand-in shows where it should be.
        line.missing = true;
        m_report.addWarning(line.path, element.name(), "the mesh cannot be read: " + file.why);
        return nullptr;
    }
    line.unit = file.facts.unit;
    if (line.scale.x() * line.scale.y() * line.scale.z() == 0.0) {
        // Not missing: the description asks for it.
        warn(element, "the scale " + textOf(line.scale) + " leaves nothing of the mesh");
        return nullptr;
    }
    // A mesh that is seen where it collides is kept once: most descriptions name it twice.
    const std::string place = keyOf(m_loader.identity(line.path), line.scale, element.shape.placement);
    const auto seen = element.isCollision ? m_visibleMeshes.find(place) : m_visibleMeshes.end();
    const bool isSeen = seen != m_visibleMeshes.end();
    // The result lasts: entries of a map stay where they are.
    const KrMeshBuilder::Result& result =
        isSeen ? m_shared[seen->second] : sharedMesh(file.facts, element, line, place);
    line.triangles = result.triangles;
    line.degenerate = result.degenerate;
    line.groups = result.extent ? result.extent->groups().size() : 0;
    // Points or lines, for one, or triangles without area.
    if (!result.extent && result.triangles == 0) {
        m_report.addWarning(line.path, element.name(), "the mesh holds no triangle; nothing is drawn");
    }
    // No triangle is what the file says; triangles and no extent is what we could not do.
    line.missing = !result.extent && result.triangles > 0;
    if (line.missing) {
        m_report.addWarning(line.path, element.name(), "the mesh cannot be used: " + result.why);
    }
    return result.extent;
}

const KrMeshBuilder::Result& KrShapeBuilder::sharedMesh(const KrMeshFacts& facts, const Element& element,
                                                        const KrImportReport::Mesh& line, const std::string& place)
{
    // A mesh that brings all its looks is one extent whatever material the description gives.
    const std::string material =
        facts.hasPlainGroups ? usableMaterial(facts.hasTextureCoordinates, element) : element.material;
    // By use, too: the collision geometry of a mesh does without the looks of the file.
    const std::string key = (element.isCollision ? "c" : "v") + material + '\n' + place;
    const auto [shared, isNew] = m_shared.emplace(key, KrMeshBuilder::Result());
    KrMeshBuilder::Result& result = shared->second;
    if (isNew) {
        KrMeshLoader::Mesh& mesh = m_loader.mesh(line.path, wishOf(element));
        KrHeldMessages::tell(mesh.messages);
        result = mesh.result;
        if (result.extent) {
            // The same mesh in another place of a link is another extent.
            if (std::exchange(mesh.isTaken, true)) {
                result.extent.reset(new KrTriPhysicalExtent(*result.extent));
            }
            // The placement is a part of the key: whoever shares the extent has it at the same place of its link.
            result.extent->setPlacement(element.shape.placement);
        }
    }
    if (result.extent && !element.isCollision) {
        // For collision geometry, which comes behind the visuals of its link.
        m_visibleMeshes.emplace(place, key);
        m_visibleExtents.insert(result.extent.get());
    }
    return result;
}

KrMeshLoader::Wish KrShapeBuilder::wishOf(const Element& element) const
{
    KrMeshLoader::Wish wish;
    wish.scale = element.shape.geometry.scale;
    wish.useLooks = !element.isCollision;
    wish.material = element.material;
    wish.hasTexture = hasTexture(wish.material);
    wish.hasPlainTexture = hasTexture(KrMeshLoader::plainName(wish.material));
    return wish;
}

const KrMeshLoader::File& KrShapeBuilder::meshFile(const std::string& path, const Element& element)
{
    const KrMeshLoader::File& file = m_loader.file(path);
    // Once for each file, not for each element that shows it; a failure is told by every element.
    if (!m_meshes.insert(path).second) {
        return file;
    }
    KrHeldMessages::tell(file.messages);
    // The axes that lie down. z is what descriptions expect, and other words say nothing.
    if (file.facts.upAxis == "X_UP" || file.facts.upAxis == "Y_UP") {
        m_lyingMeshes.push_back(KrImportPath::nameOf(path));
    }
    for (const std::string& warning : file.facts.warnings) {
        m_report.addWarning(path, element.name(), warning);
    }
    m_textures.insert(file.facts.textures.begin(), file.facts.textures.end());
    m_report.counts().materials += file.facts.numLooks;
    return file;
}

ExtentPointer KrShapeBuilder::standIn(const Element& element) const
{
    const ExtentPointer box(new KrBoxPhysicalExtent(KrVector(kStandInSize, kStandInSize, kStandInSize)));
    box->setPlacement(element.shape.placement);
    box->setMaterialName(KrMaterialNames::kStandIn);
    // Magenta, which no robot is: nobody takes it for a part.
    m_manipulator.materialMap().set(std::string(KrMaterialNames::kStandIn),
                                    KrDataMap::material(KrColor(1.0, 0.0, 1.0)));
    return box;
}

/// The name of the element's material, of one without its texture where there are no coordinates for it.
std::string KrShapeBuilder::usableMaterial(bool hasCoordinates, const Element& element)
{
    const std::string& material = element.material;
    if (hasCoordinates || !hasTexture(material)) {
        return material;
    }
    // A look of its own, shared by all shapes that need it: the mean is taken once.
    const std::string plain = KrMeshLoader::plainName(material);
    if (!m_manipulator.materialMap().find(plain)) {
        KrDataMap look = *m_manipulator.materialMap().find(material);
        std::string image;
        look.string("krTextureFilename", image);
        look.erase("krTextureFilename");
        look.erase("krTextureEnvironmentMode");
        if (!KrMeshMaterials::setMeanColor(look, image)) {
            warn(element,
                 "texture \"" + KrText::oneLine(image, kMaxPath) + "\" cannot be read; only the colour is used");
        }
        m_manipulator.materialMap().set(plain, look);
    }
    warn(element, "material \"" + KrText::oneLine(material) +
                      "\" has a texture, but the shape has no texture coordinates; its mean colour is used");
    return plain;
}

bool KrShapeBuilder::hasTexture(const std::string& material) const
{
    const KrDataMap* const look = m_manipulator.materialMap().find(material);
    std::string image;
    return look && look->string("krTextureFilename", image);
}

void KrShapeBuilder::warn(const Element& element, const std::string& text)
{
    const KrRobotDescription::Place& place = element.shape.place;
    m_report.addWarning(m_robot.files[place.file], element.name(), text, place.line);
}
