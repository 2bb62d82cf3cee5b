#include <rendCore/model/KrRenderShape.h>

#include <rendCore/appearance/KrMaterialProperties.h>
#include <rendCore/base/private/KrVec3.h>
#include <rendCore/draw/private/KrGroupGeometry.h>
#include <rendCore/model/KrRenderDeformationShape.h>
#include <rendCore/model/KrRenderIntraLink.h>
#include <rendCore/model/KrRenderManipulator.h>
#include <rendCore/model/private/KrLabelCamera.h>
#include <rendCore/model/private/KrPartNumbers.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/extent/private/KrIndexedMesh.h>
#include <toolkit/foundation/KrNullDeleter.h>
#include <toolkit/foundation/KrPrint.h>
#include <toolkit/system/KrManipulatorLink.h>

#include <osg/StateSet>
#include <osg/Vec2>
#include <osg/Vec4f>
#include <osgUtil/CullVisitor>

#include <algorithm>
#include <string>

namespace
{

using TriangleList = KrXmlVectorType<KrTriangle>;

/// False, after one message, when a corner names what `mesh` does not have.
bool areInRange(const KrTriPhysicalExtent& mesh, const TriangleList& triangles)
{
    const std::size_t numVertices = mesh.vertices().size();
    const std::size_t numNormals = mesh.normals().size();
    // A mesh is checked where it is made; lists of triangles also come from applications, straight to `addGroup`.
    const std::size_t numCoordinates = mesh.textureCoordinates().size();
    for (const KrTriangle& triangle : triangles) {
        for (unsigned int corner = 0; corner < 3; ++corner) {
            if (triangle.vertex(corner) < numVertices && triangle.normal(corner) < numNormals &&
                (numCoordinates == 0 || triangle.textureCoordinate(corner) < numCoordinates)) {
                continue;
            }
            Kr::Print::instance()->write(
                Kr::Print::Warning,
                "KrRenderShape::addGroup - a corner uses vertex %u of %zu, normal %u of %zu, texture coordinate %u of "
                "%zu; the group stays empty.\n",
                triangle.vertex(corner), numVertices, triangle.normal(corner), numNormals,
                triangle.textureCoordinate(corner), numCoordinates);
            return false;
        }
    }
    return true;
}

/// Corner by corner, as the vertices are: the triangles are not indexed here.
osg::ref_ptr<osg::Vec2Array> textureCoordinatesOf(const KrTriPhysicalExtent& mesh, const TriangleList& triangles)
{
    const osg::ref_ptr<osg::Vec2Array> coordinates = new osg::Vec2Array(3 * triangles.size());
    const std::vector<KrPlanarVector>& source = mesh.textureCoordinates().values();
    osg::Vec2* out = coordinates->empty() ? nullptr : &coordinates->front();
    for (const KrTriangle& triangle : triangles) {
        for (unsigned int corner = 0; corner < 3; ++corner) {
            const KrPlanarVector& uv = source[triangle.textureCoordinate(corner)];
            (out++)->set(static_cast<float>(uv.u()), static_cast<float>(uv.v()));
        }
    }
    return coordinates;
}

/// Gives the geometry its one colour and the state set of its material.
void applyMaterial(const KrDataMap& data, bool hasTextureCoordinates, osg::Geometry& geometry)
{
    KrMaterialProperties material;
    material.load(data);

    // The diffuse colour is the geometry's, too: without lighting, or without a material, it is all that is seen.
    osg::Vec4f diffuse(0.0f, 0.0f, 0.0f, 0.0f);
    material.getDiffuseColor(diffuse);
    const osg::ref_ptr<osg::Vec4Array> colors = new osg::Vec4Array(1, &diffuse);
    geometry.setColorArray(colors);
    geometry.setColorBinding(osg::Geometry::BIND_OVERALL);

    const osg::ref_ptr<osg::StateSet> stateSet = new osg::StateSet;
    material.setState(stateSet);
    // Without coordinates of its own the group would be drawn with those that the last textured drawable left behind,
    // selected or not: a selection switches textures on with OVERRIDE.
    if (!hasTextureCoordinates && material.getTexture().getState() != nullptr) {
        stateSet->setTextureMode(0, GL_TEXTURE_2D, osg::StateAttribute::OFF | osg::StateAttribute::PROTECTED);
    }
    geometry.setStateSet(stateSet);
}

/// Kept: the mesh's own material wins over the manipulator's of the same name. Imported meshes carry their materials
/// so, and two files may use one name for different looks.
const KrDataMap& materialOf(const std::string& groupName, const KrTriPhysicalExtent& mesh,
                            const KrMaterialMap& materialMap)
{
    if (const KrDataMap* const own = mesh.materialMap().find(groupName)) {
        return *own;
    }
    const KrDataMap* const given = materialMap.find(groupName);
    return given != nullptr ? *given : KrDataMap::defaultManipColor();
}

/// The base link of a manipulator with bodies between its links; null for another one.
const KrRenderIntraLink* intraLinkOf(const KrRenderManipulator& manipulator)
{
    for (unsigned int i = manipulator.getNumChildren(); i-- > 0;) {
        if (const auto* const base = dynamic_cast<const KrRenderIntraLink*>(manipulator.getChild(i))) {
            return base;
        }
    }
    return nullptr;
}

/// Of a shape, by the links that a visitor came by; 0 without any.
std::uint32_t labelOf(const KrRenderShape& shape, const osg::NodePath& path, KrLabelTable::Level level)
{
    // The number of the link and of the shape among the link's, once they are known.
    std::size_t linkIndex = 0;
    std::size_t shapeIndex = 0;
    bool isUnderLink = false;
    for (std::size_t i = path.size(); i-- > 0;) {
        if (const auto* const manipulator = dynamic_cast<const KrRenderManipulator*>(path[i])) {
            // A body between links hangs beside the base link, which knows its number.
            const auto* const bodies = isUnderLink ? nullptr : intraLinkOf(*manipulator);
            if (!isUnderLink && (bodies == nullptr || i + 1 == path.size())) {
                return 0;
            }
            return manipulator->numbers().label(
                level, isUnderLink ? linkIndex : 1 + manipulator->getNumTotalLinks() + bodies->indexOf(*path[i + 1]),
                shapeIndex);
        }
        const auto* const link = isUnderLink ? nullptr : dynamic_cast<const KrRenderLink*>(path[i]);
        if (link != nullptr) {
            isUnderLink = true;
            const unsigned int joint = link->getJointIndex();
            linkIndex = joint == KrRenderLink::kBaseJointIndex ? 0 : std::size_t{1} + joint;
            shapeIndex = link->shapeIndexOf(shape);
        }
    }
    return 0;
}

} // namespace

KrRenderShape::KrRenderShape(const KrBasePhysicalExtent* extent, const KrMaterialMap& materialMap)
    : m_self(this, KrNullDeleter())
{
    if (extent == nullptr) {
        Kr::Print::instance()->write(Kr::Print::Warning,
                                     "KrRenderShape::KrRenderShape - passing NULL for PhysicalExtent.\n");
        // An empty shape, not a failure: the link shows the rest.
        return;
    }
    // Held until the shape is built, whatever the extent does with its own.
    m_mesh = extent->triExtent();
    if (!m_mesh) {
        return;
    }
    addGroups(*m_mesh, materialMap);
    m_indexedMesh = m_mesh->indexedMesh();
    for (unsigned int i = 0; i < getNumDrawables(); ++i) {
        m_groupVersions.push_back(static_cast<const KrGroupGeometry*>(getDrawable(i))->version());
    }
}

KrRenderShape::KrRenderShape(const osg::Geode& other, const osg::CopyOp& copyOp)
    : osg::Geode(other, copyOp)
    , m_self(this, KrNullDeleter())
{
}

KrRenderShape::KrRenderShape(const KrRenderShape& other)
    // Kept: attributes and handle of a copy are its own, so that a handle tells which of the two is alive. The
    // drawables are shared.
    : KrRenderShape(other, osg::CopyOp(osg::CopyOp::SHALLOW_COPY))
{
}

KrRenderShape::~KrRenderShape() = default;

KrRenderShape* KrRenderShape::newKrRenderShape(const KrManipulatorLink& link, const KrBasePhysicalExtent* extent,
                                               const KrMaterialMap& materialMap)
{
    // The link decides, not the extent: a rigid link draws a bending extent as it is now.
    bool deformable = false;
    link.deformable(deformable);
    // The caller takes the first reference, in both cases.
    if (deformable) {
        return new KrRenderDeformationShape(extent, materialMap);
    }
    return new KrRenderShape(extent, materialMap);
}

std::shared_ptr<const KrIndexedMesh> KrRenderShape::indexedMesh(bool withLevels) const
{
    if (!m_mesh) {
        return nullptr;
    }
    const std::shared_ptr<const KrIndexedMesh> mesh =
        withLevels ? m_mesh->indexedMeshWithLevels() : m_mesh->indexedMesh();
    // What the client has made of the mesh since is not what stands in the drawables.
    return mesh->hasLevelZeroOf(*m_indexedMesh) ? mesh : nullptr;
}

unsigned int KrRenderShape::numDrawnGroups(const KrTriPhysicalExtent& mesh)
{
    // Kept: a group without a name is not drawn, nor a name without a group. A deforming shape tells by this number
    // whether its drawables still fit the mesh.
    return std::min(mesh.groups().size(), mesh.numGroupNames());
}

void KrRenderShape::addGroups(const KrTriPhysicalExtent& mesh, const KrMaterialMap& materialMap)
{
    for (unsigned int i = 0; i < numDrawnGroups(mesh); ++i) {
        const KrDataMap& material = materialOf(mesh.groupName(i), mesh, materialMap);
        const osg::ref_ptr<osg::Geometry> group = addGroup(&mesh, mesh.groups()[i].second(), material);
        if (!group) {
            continue;
        }
        addDrawable(group);
        // Kept: never the case while a shape is under construction. A deforming one that is rebuilt comes here
        // with it, and tells its drawables the same again.
        if (isAttributeSet(KrRenderTypes::NoDisplayList)) {
            group->setSupportsDisplayList(false);
        }
    }
}

void KrRenderShape::fillCorners(const KrTriPhysicalExtent& mesh, const TriangleList& triangles, osg::Vec3* vertices,
                                osg::Vec3* normals)
{
    const std::vector<KrVector>& meshVertices = mesh.vertices().values();
    const std::vector<KrVector>& meshNormals = mesh.normals().values();
    for (const KrTriangle& triangle : triangles) {
        for (unsigned int corner = 0; corner < 3; ++corner) {
            // Three corners of its own for each triangle.
            *vertices++ = vec3(meshVertices[triangle.vertex(corner)]);
            *normals++ = vec3(meshNormals[triangle.normal(corner)]);
        }
    }
}

osg::ref_ptr<osg::Geometry> KrRenderShape::addGroup(const KrTriPhysicalExtent* mesh, const TriangleList& given,
                                                    const KrDataMap& material)
{
    if (mesh == nullptr) {
        return nullptr;
    }
    // A group with a bad corner becomes an empty one: its number, and those of the groups after it, stay.
    static const TriangleList none;
    const TriangleList& triangles = areInRange(*mesh, given) ? given : none;
    const unsigned int numCorners = 3 * triangles.size();
    const osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array(numCorners);
    // One for each corner, so that every face has its own: sharp edges stay sharp.
    const osg::ref_ptr<osg::Vec3Array> normals = new osg::Vec3Array(numCorners);
    if (numCorners != 0) {
        fillCorners(*mesh, triangles, &vertices->front(), &normals->front());
    }
    const bool hasTextureCoordinates = !mesh->textureCoordinates().empty();

    const osg::ref_ptr<osg::Geometry> geometry = new KrGroupGeometry;
    geometry->setVertexArray(vertices);
    // A binding is lost that is set before its array.
    geometry->setNormalArray(normals);
    geometry->setNormalBinding(osg::Geometry::BIND_PER_VERTEX);
    if (hasTextureCoordinates) {
        geometry->setTexCoordArray(0, textureCoordinatesOf(*mesh, triangles));
    }
    // Each group has a state set of its own: the fading of a deforming shape changes it in place.
    applyMaterial(material, hasTextureCoordinates, *geometry);
    // Kept: also of zero corners; a deforming shape puts its indexed triangles in the place of this set.
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_TRIANGLES, 0, static_cast<GLsizei>(numCorners)));
    return geometry;
}

osg::ref_ptr<osg::Geode> KrRenderShape::createGeometry(const KrBasePhysicalExtent* extent)
{
    const boost::shared_ptr<const KrTriPhysicalExtent> mesh =
        extent != nullptr ? extent->triExtent() : boost::shared_ptr<const KrTriPhysicalExtent>();
    if (!mesh) {
        return nullptr;
    }
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    // Kept: the names are counted by the extent itself, not by its mesh form. The ellipsoids of mass properties have
    // one either way; only an extent that counts differently is drawn with other groups.
    const unsigned int numGroups = std::min(mesh->groups().size(), extent->numGroupNames());
    for (unsigned int i = 0; i < numGroups; ++i) {
        const osg::ref_ptr<osg::Geometry> group =
            addGroup(mesh.get(), mesh->groups()[i].second(), KrDataMap::blueColor());
        if (group) {
            geode->addDrawable(group);
        }
    }
    return geode;
}

void KrRenderShape::traverse(osg::NodeVisitor& visitor)
{
    osgUtil::CullVisitor* const cull = visitor.asCullVisitor();
    KrLabelCamera* const camera = cull != nullptr ? KrLabelCamera::of(*cull) : nullptr;
    if (camera == nullptr) {
        osg::Geode::traverse(visitor);
    } else if (!m_isVolume) {
        // The shape may be shared: whose it is here is told by the way to it. Without one somebody else has said it.
        const std::uint32_t label = labelOf(*this, visitor.getNodePath(), camera->level());
        if (label != 0) {
            cull->pushStateSet(&camera->states(label));
        }
        osg::Geode::traverse(visitor);
        if (label != 0) {
            cull->popStateSet();
        }
    }
}

unsigned int KrRenderShape::getAttributes() const
{
    return m_attributes;
}

void KrRenderShape::setAttribute(KrRenderTypes::Attributes attribute)
{
    m_attributes |= attribute;
}

void KrRenderShape::clearAttribute(KrRenderTypes::Attributes attribute)
{
    // Masks, not numbers of bits: one call may clear several.
    m_attributes &= ~static_cast<unsigned int>(attribute);
}

bool KrRenderShape::isAttributeSet(KrRenderTypes::Attributes attribute) const
{
    return (m_attributes & attribute) != 0;
}

// Rigid shapes stay as they were built; KrRenderDeformationShape follows.
void KrRenderShape::update(KrBasePhysicalExtent*) {}

void KrRenderShape::updateAlpha(float) {}

boost::shared_ptr<KrRenderShape> KrRenderShape::getSharedPtr() const
{
    // Observes only: its deleter does nothing, and the scene graph's count decides how long the shape lives.
    return m_self;
}
