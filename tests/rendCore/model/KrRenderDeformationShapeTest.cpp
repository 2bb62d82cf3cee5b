#include <rendCore/model/KrRenderDeformationShape.h>

#include <tests/support/MessageRecorder.h>
#include <tests/support/ShapeTestMesh.h>

#include <toolkit/extent/private/KrPrimitiveMesh.h>
#include <toolkit/math/KrColor.h>

#include <osg/Material>
#include <osg/StateSet>

#include <gtest/gtest.h>

#include <limits>
#include <optional>

namespace
{

class KrRenderDeformationShapeTest : public testing::Test
{
protected:
    KrRenderDeformationShapeTest()
    {
        EXPECT_TRUE(ShapeTestMesh::setTriangles(m_mesh, {"a", "b"}));
        m_materials.set(std::string("a"), KrDataMap::material(KrColor(1.0, 0.0, 0.0)));
        m_materials.set(std::string("b"), KrDataMap::material(KrColor(0.0, 1.0, 0.0)));
        m_materials.set(std::string("c"), KrDataMap::material(KrColor(0.0, 0.0, 1.0)));
        m_shape = new KrRenderDeformationShape(&m_mesh, m_materials);
    }

    osg::Geometry& geometry(unsigned int i) { return *m_shape->getDrawable(i)->asGeometry(); }
    osg::Vec3 vertex(unsigned int group, unsigned int corner)
    {
        return static_cast<osg::Vec3Array&>(*geometry(group).getVertexArray())[corner];
    }
    osg::Vec4 color(unsigned int group)
    {
        return static_cast<osg::Vec4Array&>(*geometry(group).getColorArray()).front();
    }
    const osg::Material& material(unsigned int group)
    {
        return static_cast<osg::Material&>(*geometry(group).getStateSet()->getAttribute(osg::StateAttribute::MATERIAL));
    }

    KrTriPhysicalExtent m_mesh;
    KrMaterialMap m_materials;
    osg::ref_ptr<KrRenderShape> m_shape;
};

} // namespace

TEST_F(KrRenderDeformationShapeTest, IsDrawnWithoutDisplayLists)
{
    EXPECT_TRUE(m_shape->isAttributeSet(KrRenderTypes::NoDisplayList));
    EXPECT_FALSE(geometry(0).getSupportsDisplayList());
    EXPECT_EQ(geometry(1).getDataVariance(), osg::Object::DYNAMIC);
}

TEST_F(KrRenderDeformationShapeTest, FollowsMovedVerticesInPlace)
{
    const osg::Drawable* const drawable = m_shape->getDrawable(1);
    const osg::Array* const array = geometry(1).getVertexArray();
    const unsigned int modified = array->getModifiedCount();
    EXPECT_EQ(m_shape->getBound().center().z(), 0.0f);

    ASSERT_TRUE(ShapeTestMesh::setTriangles(m_mesh, {"a", "b"}, 4.0));
    m_shape->update(&m_mesh);
    EXPECT_EQ(m_shape->getDrawable(1), drawable);
    EXPECT_EQ(geometry(1).getVertexArray(), array);
    EXPECT_NE(array->getModifiedCount(), modified) << "else the graphics card keeps the old ones";
    EXPECT_TRUE(vertex(1, 2) == osg::Vec3(1.0f, 1.0f, 4.0f));
    EXPECT_EQ(m_shape->getBound().center().z(), 4.0f);
}

TEST_F(KrRenderDeformationShapeTest, RebuildsItsGroupsWhenTheMeshIsCut)
{
    m_shape->updateAlpha(0.5f);
    ASSERT_TRUE(ShapeTestMesh::setTriangles(m_mesh, {"a", "b", "c"}, 1.0));
    m_shape->update(&m_mesh);
    ASSERT_EQ(m_shape->getNumDrawables(), 3u);
    EXPECT_TRUE(vertex(2, 0) == osg::Vec3(2.0f, 0.0f, 1.0f));
    EXPECT_FALSE(geometry(2).getSupportsDisplayList());
    EXPECT_TRUE(color(2) == osg::Vec4(0.0f, 0.0f, 1.0f, 0.5f)) << "its material, and the transparency given before";

    ASSERT_TRUE(ShapeTestMesh::setTriangles(m_mesh, {"a"}, 2.0));
    m_shape->update(&m_mesh);
    EXPECT_EQ(m_shape->getNumDrawables(), 1u);
}

TEST_F(KrRenderDeformationShapeTest, TakesOverAnotherExtentWhereverItLies)
{
    std::optional<KrDeformationPhysicalExtent> extent(std::in_place);
    extent->setMesh(m_mesh);
    m_shape->update(&*extent);
    ASSERT_TRUE(ShapeTestMesh::setTriangles(m_mesh, {"a", "b"}, 5.0));
    extent.emplace(); // at the same address, with the same counts
    extent->setMesh(m_mesh);
    m_shape->update(&*extent);
    EXPECT_EQ(vertex(1, 0).z(), 5.0f);

    // From one with caps to one of another class, whose groups have those numbers.
    KrDeformationPhysicalExtent box;
    box.setMesh(*KrPrimitiveMesh::box(KrVector(1.0, 1.0, 1.0), "skin"));
    ASSERT_TRUE(box.cutByPlane(0, KrVector(), KrVector(0.0, 0.0, 1.0), "cap"));
    m_shape->update(&box);
    ASSERT_EQ(m_shape->getNumDrawables(), 4u);
    EXPECT_EQ(geometry(3).getStateSet()->getTextureMode(0, GL_TEXTURE_2D),
              unsigned(osg::StateAttribute::OFF | osg::StateAttribute::PROTECTED));
    ASSERT_TRUE(ShapeTestMesh::setTriangles(m_mesh, {"a", "b", "c", "a", "b"}));
    m_shape->update(&m_mesh);
    ASSERT_EQ(m_shape->getNumDrawables(), 5u);
    EXPECT_EQ(geometry(3).getStateSet()->getTextureMode(0, GL_TEXTURE_2D), unsigned(osg::StateAttribute::INHERIT));
}

TEST_F(KrRenderDeformationShapeTest, StaysAsItWasWhileAnExtentIsOutOfRange)
{
    KrDeformationPhysicalExtent extent;
    extent.setMesh(m_mesh);
    std::vector<KrVector> far = extent.vertices();
    far[4] += KrVector(1.0, 0.0, 0.0);
    ASSERT_TRUE(extent.setPose("far", far));
    m_shape->update(&extent);
    const osg::Vec3 before = vertex(1, 1);
    MessageRecorder messages;
    for (const double weight : {1e20, 1e40, 1e308}) {
        ASSERT_TRUE(extent.setWeight(0, weight));
        m_shape->update(&extent);
        EXPECT_TRUE(vertex(1, 1) == before) << weight;
    }
    ASSERT_TRUE(extent.setWeight(0, 0.0));
    ASSERT_TRUE(extent.cutByPlane(0, KrVector(0.5, 0.0, 0.0), KrVector(1.0, 0.0, 0.0)));
    ASSERT_TRUE(extent.setWeight(0, 1e30));
    m_shape->update(&extent);
    EXPECT_EQ(m_shape->getNumDrawables(), 2u);
    EXPECT_EQ(messages.count(), 1u) << messages.all();
    const osg::ref_ptr<KrRenderShape> late = new KrRenderDeformationShape(&extent, m_materials);
    EXPECT_EQ(late->getNumDrawables(), 0u);

    ASSERT_TRUE(extent.setWeight(0, 2.0));
    for (const osg::ref_ptr<KrRenderShape>& shape : {m_shape, late}) {
        shape->update(&extent);
        ASSERT_EQ(shape->getNumDrawables(), extent.groups().size());
        EXPECT_EQ(shape->getBoundingBox().xMax(), 4.0f);
    }
    KrCoordinateSystemTransformation nowhere;
    nowhere.setTranslation(KrVector(0.0, std::numeric_limits<double>::infinity(), 0.0));
    extent.setPlacement(nowhere);
    m_shape->update(&extent);
    EXPECT_EQ(m_shape->getBoundingBox().yMax(), 1.0f);
    EXPECT_EQ(messages.count(), 3u) << messages.all();
}

TEST_F(KrRenderDeformationShapeTest, KeepsItsGeometryWithoutAMesh)
{
    m_shape->update(nullptr);
    EXPECT_EQ(m_shape->getNumDrawables(), 2u);
}

TEST_F(KrRenderDeformationShapeTest, FadesAndComesBack)
{
    m_shape->updateAlpha(0.25f);
    EXPECT_EQ(color(1).a(), 0.25f);
    EXPECT_EQ(color(1).g(), 1.0f);
    EXPECT_EQ(material(1).getDiffuse(osg::Material::FRONT).a(), 0.25f);
    const osg::StateSet& state = *geometry(1).getStateSet();
    EXPECT_EQ(state.getMode(GL_BLEND), unsigned(osg::StateAttribute::ON));
    EXPECT_EQ(state.getRenderingHint(), int(osg::StateSet::TRANSPARENT_BIN));

    m_shape->updateAlpha(std::numeric_limits<float>::quiet_NaN());
    EXPECT_EQ(color(1).a(), 0.25f);
    m_shape->updateAlpha(7.0f);
    EXPECT_EQ(color(0).a(), 1.0f);
    EXPECT_EQ(material(0).getDiffuse(osg::Material::BACK).a(), 1.0f);
    EXPECT_EQ(state.getMode(GL_BLEND), unsigned(osg::StateAttribute::INHERIT));
    EXPECT_EQ(state.getRenderingHint(), int(osg::StateSet::DEFAULT_BIN));
}
