#include <rendCore/aids/private/KrLateGeometry.h>

#include <rendCore/model/KrRenderShape.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/material/KrDataMap.h>

#include <utility>

osg::ref_ptr<osg::Geode> KrLateGeometry::geodeFor(const osg::Geode& whole,
                                                  const boost::shared_ptr<const KrBasePhysicalExtent>& extent,
                                                  const std::shared_ptr<KrArrayPool>& arrays)
{
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    for (unsigned int i = 0; i < whole.getNumDrawables(); ++i) {
        const osg::Geometry& group = *whole.getDrawable(i)->asGeometry();
        geode->addDrawable(new KrLateGeometry(
            group, group.getBoundingBox(), [extent] { return extent; }, i, arrays));
    }
    return geode;
}

KrLateGeometry::KrLateGeometry(const osg::Geometry& look, const osg::BoundingBox& box, Source source,
                               unsigned int group, std::shared_ptr<KrArrayPool> arrays)
    : osg::Geometry(look, osg::CopyOp(osg::CopyOp::SHALLOW_COPY))
    , m_box(box)
    , m_source(std::move(source))
    , m_group(group)
    , m_arrays(std::move(arrays))
{
    // Empty, not missing: who walks the scene finds what every other geometry has.
    const osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    // Else they would all go into the buffer object of the colour, which many share and which is searched each time.
    vertices->setVertexBufferObject(new osg::VertexBufferObject);
    setVertexArray(vertices);
    setNormalArray(new osg::Vec3Array, osg::Array::BIND_PER_VERTEX);
    if (getTexCoordArray(0) != nullptr) {
        setTexCoordArray(0, new osg::Vec2Array);
    }
    setPrimitiveSetList({new osg::DrawArrays(GL_TRIANGLES, 0, 0)});
}

void KrLateGeometry::fill()
{
    if (!m_source) {
        return;
    }
    // Taken first: whatever becomes of it, it is asked once.
    const Source source = std::exchange(m_source, nullptr);
    const std::shared_ptr<KrArrayPool> arrays = std::move(m_arrays);
    const boost::shared_ptr<const KrBasePhysicalExtent> extent = source();
    const boost::shared_ptr<const KrTriPhysicalExtent> mesh =
        extent ? extent->triExtent() : boost::shared_ptr<const KrTriPhysicalExtent>();
    // A client may have given a mesh of its own fewer groups since.
    if (!mesh || m_group >= mesh->groups().size()) {
        return;
    }
    // In any material: the look is here already.
    const osg::ref_ptr<osg::Geometry> whole =
        KrRenderShape::addGroup(mesh.get(), mesh->groups()[m_group].second(), KrDataMap::defaultManipColor());
    arrays->share(*whole);
    setVertexArray(whole->getVertexArray());
    setNormalArray(whole->getNormalArray());
    if (whole->getTexCoordArray(0) != nullptr) {
        setTexCoordArray(0, whole->getTexCoordArray(0));
    }
    setPrimitiveSetList(whole->getPrimitiveSetList());
}

/// Const to callers only: what is filled in was always meant to be there.
void KrLateGeometry::fillAnyway() const
{
    const_cast<KrLateGeometry*>(this)->fill();
}

osg::Object* KrLateGeometry::clone(const osg::CopyOp& copyOp) const
{
    fillAnyway();
    return new osg::Geometry(*this, copyOp);
}

void KrLateGeometry::accept(osg::NodeVisitor& visitor)
{
    // Not for every visitor: the one that compiles a scene for the driver walks all that is hidden, too.
    if (visitor.getVisitorType() == osg::NodeVisitor::CULL_VISITOR && visitor.validNodeMask(*this)) {
        fill();
    }
    osg::Geometry::accept(visitor);
}

void KrLateGeometry::accept(osg::Drawable::AttributeFunctor& functor)
{
    fill();
    osg::Geometry::accept(functor);
}

void KrLateGeometry::accept(osg::Drawable::ConstAttributeFunctor& functor) const
{
    fillAnyway();
    osg::Geometry::accept(functor);
}

void KrLateGeometry::accept(osg::PrimitiveFunctor& functor) const
{
    fillAnyway();
    osg::Geometry::accept(functor);
}

void KrLateGeometry::accept(osg::PrimitiveIndexFunctor& functor) const
{
    fillAnyway();
    osg::Geometry::accept(functor);
}

osg::BoundingBox KrLateGeometry::computeBoundingBox() const
{
    if (m_source && m_box.valid()) {
        return m_box;
    }
    fillAnyway();
    return osg::Geometry::computeBoundingBox();
}
