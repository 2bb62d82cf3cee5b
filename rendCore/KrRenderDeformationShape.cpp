#include <rendCore/KrRenderDeformationShape.h>

#include <toolkit/geometry/KrTriPhysicalExtent.h>

#include <osg/GL>
#include <osg/Material>
#include <osg/StateSet>

#include <algorithm>
#include <cmath>

namespace
{

void setMaterialAlpha(osg::StateSet& stateSet, float alpha)
{
    if (auto* const material = dynamic_cast<osg::Material*>(stateSet.getAttribute(osg::StateAttribute::MATERIAL))) {
        material->setAlpha(osg::Material::FRONT_AND_BACK, alpha);
    }
    if (alpha < 1.0f) {
        stateSet.setRenderingHint(osg::StateSet::TRANSPARENT_BIN);
        stateSet.setMode(GL_BLEND, osg::StateAttribute::ON);
    } else {
        stateSet.setRenderingHint(osg::StateSet::DEFAULT_BIN);
        stateSet.removeMode(GL_BLEND);
    }
}

} // namespace

KrRenderDeformationShape::KrRenderDeformationShape(const KrBasePhysicalExtent* extent, const KrMaterialMap& materialMap)
    : KrRenderShape(extent, materialMap)
    , m_materialMap(materialMap)
{
    KrRenderShape::setAttribute(KrRenderTypes::NoDisplayList);
    prepareDrawables();
}

KrRenderDeformationShape::~KrRenderDeformationShape() = default;

void KrRenderDeformationShape::prepareDrawables()
{
    for (unsigned int i = 0; i < getNumDrawables(); ++i) {
        osg::Geometry& geometry = *getDrawable(i)->asGeometry();
        geometry.setDataVariance(osg::Object::DYNAMIC);
        geometry.setSupportsDisplayList(false);
        geometry.setUseVertexBufferObjects(true);
        geometry.getStateSet()->setDataVariance(osg::Object::DYNAMIC);
    }
}

bool KrRenderDeformationShape::hasGroupsOf(const KrTriPhysicalExtent& mesh) const
{
    const unsigned int numGroups = numDrawnGroups(mesh);
    if (numGroups != getNumDrawables()) {
        return false;
    }
    for (unsigned int i = 0; i < numGroups; ++i) {
        const osg::Array& vertices = *getDrawable(i)->asGeometry()->getVertexArray();
        if (vertices.getNumElements() != 3 * mesh.groups()[i].second().size()) {
            return false;
        }
    }
    return true;
}

void KrRenderDeformationShape::update(KrBasePhysicalExtent* extent)
{
    const boost::shared_ptr<const KrTriPhysicalExtent> mesh =
        extent != nullptr ? extent->triExtent() : boost::shared_ptr<const KrTriPhysicalExtent>();
    if (!mesh) {
        return;
    }
    if (!hasGroupsOf(*mesh)) {
        removeDrawables(0, getNumDrawables());
        addGroups(*mesh, m_materialMap);
        prepareDrawables();
        applyAlpha();
        return;
    }
    for (unsigned int i = 0; i < getNumDrawables(); ++i) {
        osg::Geometry& geometry = *getDrawable(i)->asGeometry();
        auto& vertices = static_cast<osg::Vec3Array&>(*geometry.getVertexArray());
        auto& normals = static_cast<osg::Vec3Array&>(*geometry.getNormalArray());
        if (!vertices.empty()) {
            fillCorners(*mesh, mesh->groups()[i].second(), &vertices.front(), &normals.front());
        }
        vertices.dirty();
        normals.dirty();
        geometry.dirtyBound();
    }
}

void KrRenderDeformationShape::updateAlpha(float alpha)
{
    if (std::isnan(alpha)) {
        return;
    }
    const float clamped = std::clamp(alpha, 0.0f, 1.0f);
    if (clamped != m_alpha) {
        m_alpha = clamped;
        applyAlpha();
    }
}

void KrRenderDeformationShape::applyAlpha()
{
    if (m_alpha < 0.0f) {
        return;
    }
    for (unsigned int i = 0; i < getNumDrawables(); ++i) {
        osg::Geometry& geometry = *getDrawable(i)->asGeometry();
        auto& colors = static_cast<osg::Vec4Array&>(*geometry.getColorArray());
        for (osg::Vec4& color : colors) {
            color.a() = m_alpha;
        }
        colors.dirty();
        setMaterialAlpha(*geometry.getStateSet(), m_alpha);
    }
}
