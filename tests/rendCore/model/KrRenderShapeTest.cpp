#include <rendCore/model/KrRenderDeformationShape.h>
#include <rendCore/model/KrRenderShape.h>

#include <tests/support/MessageRecorder.h>
#include <tests/support/ShapeTestMesh.h>

#include <toolkit/image/KrImage.h>
#include <toolkit/math/KrColor.h>
#include <toolkit/system/KrManipulatorLink.h>

#include <osg/Material>
#include <osg/Texture>

#include <boost/weak_ptr.hpp>

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace
{

KrDataMap diffuse(double red, double green, double blue)
{
    KrDataMap map;
    map.setReal("krDiffuseRed", red);
    map.setReal("krDiffuseGreen", green);
    map.setReal("krDiffuseBlue", blue);
    return map;
}

osg::Geometry& geometryOf(osg::Geode& geode, unsigned int i)
{
    return *geode.getDrawable(i)->asGeometry();
}

osg::Vec4 colorOf(osg::Geode& geode, unsigned int i)
{
    const auto& colors = static_cast<osg::Vec4Array&>(*geometryOf(geode, i).getColorArray());
    EXPECT_EQ(colors.size(), 1u);
    EXPECT_EQ(colors.getBinding(), osg::Array::BIND_OVERALL);
    return colors.front();
}

/// A mesh that tells fewer or more names than it has groups.
class MiscountingMesh : public KrTriPhysicalExtent
{
public:
    unsigned int numGroupNames() const override { return names; }
    unsigned int names = 0;
};

/// An extent without a surface.
class Bodiless : public KrXmlObjectOf<Bodiless, KrBasePhysicalExtent>
{
public:
    KrXmlToken token() const override { return {}; }

protected:
    boost::shared_ptr<KrTriPhysicalExtent> makeTriangles() const override { return {}; }
};

} // namespace

TEST(KrRenderShape, EveryCornerGetsItsVertexNormalAndCoordinate)
{
    KrTriPhysicalExtent mesh;
    ASSERT_TRUE(ShapeTestMesh::setTriangles(mesh, {"a", "b"}, 0.5, true));
    const osg::ref_ptr<KrRenderShape> shape = new KrRenderShape(&mesh, KrMaterialMap());
    ASSERT_EQ(shape->getNumDrawables(), 2u);
    osg::Geometry& second = geometryOf(*shape, 1);
    const auto& vertices = static_cast<osg::Vec3Array&>(*second.getVertexArray());
    ASSERT_EQ(vertices.size(), 3u);
    EXPECT_TRUE(vertices[1] == osg::Vec3(2.0f, 0.0f, 0.5f));
    EXPECT_TRUE(vertices[2] == osg::Vec3(1.0f, 1.0f, 0.5f));
    const auto& normals = static_cast<osg::Vec3Array&>(*second.getNormalArray());
    EXPECT_TRUE(normals[2] == osg::Vec3(0.0f, 0.0f, 1.0f));
    EXPECT_EQ(normals.getBinding(), osg::Array::BIND_PER_VERTEX);
    const auto& coordinates = static_cast<osg::Vec2Array&>(*second.getTexCoordArray(0));
    EXPECT_TRUE(coordinates[1] == osg::Vec2(1.0f, 0.0f));
    ASSERT_EQ(second.getNumPrimitiveSets(), 1u);
    EXPECT_EQ(second.getPrimitiveSet(0)->getMode(), GLenum(GL_TRIANGLES));
    EXPECT_EQ(second.getPrimitiveSet(0)->getNumIndices(), 3u);
    EXPECT_STREQ(shape->className(), "Geode");
}

TEST(KrRenderShape, TheMeshsOwnMaterialComesBeforeTheGivenOne)
{
    KrTriPhysicalExtent mesh;
    ASSERT_TRUE(ShapeTestMesh::setTriangles(mesh, {"own", "given", "none"}));
    mesh.setMaterial("own", diffuse(1.0, 0.0, 0.0));
    KrMaterialMap given;
    given.set(std::string("own"), diffuse(0.0, 0.0, 1.0));
    given.set(std::string("given"), diffuse(0.0, 1.0, 0.0));
    const osg::ref_ptr<KrRenderShape> shape = new KrRenderShape(&mesh, given);
    EXPECT_TRUE(colorOf(*shape, 0) == osg::Vec4(1.0f, 0.0f, 0.0f, 1.0f));
    EXPECT_TRUE(colorOf(*shape, 1) == osg::Vec4(0.0f, 1.0f, 0.0f, 1.0f));
    double red = -1.0;
    ASSERT_TRUE(KrDataMap::defaultManipColor().real("krDiffuseRed", red));
    EXPECT_EQ(colorOf(*shape, 2).r(), float(red));
    EXPECT_NE(geometryOf(*shape, 0).getStateSet(), geometryOf(*shape, 1).getStateSet());
}

TEST(KrRenderShape, DrawsAsManyGroupsAsHaveNames)
{
    MiscountingMesh mesh;
    ASSERT_TRUE(ShapeTestMesh::setTriangles(mesh, {"a", "b"}));
    for (const unsigned int names : {0u, 1u, 5u}) {
        mesh.names = names;
        const osg::ref_ptr<KrRenderShape> shape = new KrRenderShape(&mesh, KrMaterialMap());
        EXPECT_EQ(shape->getNumDrawables(), std::min(names, 2u));
        EXPECT_EQ(KrRenderShape::createGeometry(&mesh)->getNumDrawables(), std::min(names, 2u));
    }
}

TEST(KrRenderShape, NoExtentAndNoSurfaceGiveAnEmptyShape)
{
    MessageRecorder messages;
    const osg::ref_ptr<KrRenderShape> none = new KrRenderShape(nullptr, KrMaterialMap());
    EXPECT_EQ(none->getNumDrawables(), 0u);
    EXPECT_EQ(messages.count(Kr::Print::Warning, "KrRenderShape::KrRenderShape - passing NULL for PhysicalExtent.\n"),
              1u);

    const Bodiless bodiless;
    const osg::ref_ptr<KrRenderShape> empty = new KrRenderShape(&bodiless, KrMaterialMap());
    EXPECT_EQ(empty->getNumDrawables(), 0u);
    EXPECT_FALSE(KrRenderShape::createGeometry(&bodiless));
    EXPECT_FALSE(KrRenderShape::createGeometry(nullptr));
    EXPECT_EQ(messages.count(), 1u);
}

TEST(KrRenderShape, AGroupMayHaveNoTriangles)
{
    KrTriPhysicalExtent mesh;
    ASSERT_TRUE(ShapeTestMesh::setTriangles(mesh, {"a"}));
    const osg::ref_ptr<osg::Geometry> group =
        KrRenderShape::addGroup(&mesh, KrXmlVectorType<KrTriangle>(), KrDataMap());
    ASSERT_TRUE(group);
    EXPECT_EQ(group->getVertexArray()->getNumElements(), 0u);
    EXPECT_EQ(group->getPrimitiveSet(0)->getNumIndices(), 0u);
    EXPECT_FALSE(KrRenderShape::addGroup(nullptr, KrXmlVectorType<KrTriangle>(), KrDataMap()));
}

TEST(KrRenderShape, AGroupWithACornerThatTheMeshDoesNotHaveIsEmpty)
{
    KrTriPhysicalExtent mesh;
    ASSERT_TRUE(ShapeTestMesh::setTriangles(mesh, {"a"}, 0.0, true));
    const KrTriangle good = mesh.groups()[0].second()[0];
    for (const unsigned int wrong : {0u, 1u, 2u}) {
        for (const std::uint32_t index : {3u, 0x7fffffffu, 0xffffffffu}) {
            KrTriangle bad = good;
            bad.setCorner(2, wrong == 0 ? index : 2, wrong == 1 ? index : 0, wrong == 2 ? index : 2);
            KrXmlVectorType<KrTriangle> triangles;
            triangles.push_back(good);
            triangles.push_back(bad);
            MessageRecorder messages;
            const osg::ref_ptr<osg::Geometry> group = KrRenderShape::addGroup(&mesh, triangles, KrDataMap::blueColor());
            ASSERT_TRUE(group.valid());
            EXPECT_EQ(group->getVertexArray()->getNumElements(), 0u);
            EXPECT_EQ(group->getPrimitiveSet(0)->getNumIndices(), 0u);
            EXPECT_EQ(messages.count(), 1u);
        }
    }
}

TEST(KrRenderShape, ATextureWithoutCoordinatesIsLeftOff)
{
    const std::string path = testing::TempDir() + std::to_string(getpid()) + "shape.png";
    KrImage image;
    image.allocate(3, 100, 2, 2);
    ASSERT_TRUE(image.writeFile(path, KrImage::BottomRowFirst));
    KrDataMap material = diffuse(1.0, 0.0, 0.0);
    material.setString("krTextureFilename", path);
    for (const bool hasCoordinates : {false, true}) {
        KrTriPhysicalExtent mesh;
        ASSERT_TRUE(ShapeTestMesh::setTriangles(mesh, {"a"}, 0.0, hasCoordinates));
        mesh.setMaterial("a", material);
        const osg::ref_ptr<KrRenderShape> shape = new KrRenderShape(&mesh, KrMaterialMap());
        osg::Geometry& geometry = geometryOf(*shape, 0);
        EXPECT_EQ(geometry.getTexCoordArray(0) != nullptr, hasCoordinates);
        // Also where a selection above it switches textures on with OVERRIDE.
        EXPECT_EQ(geometry.getStateSet()->getTextureMode(0, GL_TEXTURE_2D),
                  hasCoordinates ? osg::StateAttribute::ON : osg::StateAttribute::OFF | osg::StateAttribute::PROTECTED);
    }
    std::remove(path.c_str());
}

TEST(KrRenderShape, CreateGeometryPaintsEverythingInTheToolkitsBlue)
{
    KrTriPhysicalExtent mesh;
    ASSERT_TRUE(ShapeTestMesh::setTriangles(mesh, {"a", "b"}));
    mesh.setMaterial("a", diffuse(1.0, 0.0, 0.0));
    const osg::ref_ptr<osg::Geode> geode = KrRenderShape::createGeometry(&mesh);
    ASSERT_TRUE(geode);
    EXPECT_EQ(dynamic_cast<KrRenderShape*>(geode.get()), nullptr);
    double blue = -1.0;
    ASSERT_TRUE(KrDataMap::blueColor().real("krDiffuseBlue", blue));
    EXPECT_EQ(colorOf(*geode, 0).b(), float(blue));
    EXPECT_TRUE(colorOf(*geode, 0) == colorOf(*geode, 1));
}

TEST(KrRenderShape, AttributesAreMasksNotNumbers)
{
    MessageRecorder messages;
    const osg::ref_ptr<KrRenderShape> shape = new KrRenderShape(nullptr, KrMaterialMap());
    const auto both = static_cast<KrRenderTypes::Attributes>(KrRenderTypes::NoDisplayList | KrRenderTypes::Unfaded);
    shape->setAttribute(KrRenderTypes::Unfaded);
    EXPECT_TRUE(shape->isAttributeSet(both));
    EXPECT_FALSE(shape->isAttributeSet(KrRenderTypes::NoDisplayList));
    shape->setAttribute(KrRenderTypes::NoDisplayList);
    shape->clearAttribute(KrRenderTypes::Unfaded);
    EXPECT_EQ(shape->getAttributes(), unsigned(KrRenderTypes::NoDisplayList));
}

TEST(KrRenderShape, TheHandleExpiresWithTheShapeAndNeverDeletesIt)
{
    KrTriPhysicalExtent mesh;
    ASSERT_TRUE(ShapeTestMesh::setTriangles(mesh, {"a"}));
    osg::ref_ptr<KrRenderShape> shape = new KrRenderShape(&mesh, KrMaterialMap());
    const boost::weak_ptr<KrRenderShape> handle(shape->getSharedPtr());
    EXPECT_EQ(handle.lock().get(), shape.get());

    osg::ref_ptr<KrRenderShape> copy = new KrRenderShape(*shape);
    EXPECT_EQ(copy->getSharedPtr().get(), copy.get()) << "not the original's";
    EXPECT_EQ(copy->getDrawable(0), shape->getDrawable(0));
    shape = nullptr;
    EXPECT_FALSE(handle.lock());
}

TEST(KrRenderShape, DeformableLinksGetADeformingShape)
{
    KrTriPhysicalExtent mesh;
    ASSERT_TRUE(ShapeTestMesh::setTriangles(mesh, {"a"}));
    KrManipulatorLink link;
    osg::ref_ptr<KrRenderShape> shape = KrRenderShape::newKrRenderShape(link, &mesh, KrMaterialMap());
    EXPECT_EQ(dynamic_cast<KrRenderDeformationShape*>(shape.get()), nullptr);
    link.setDeformable(true);
    shape = KrRenderShape::newKrRenderShape(link, &mesh, KrMaterialMap());
    EXPECT_NE(dynamic_cast<KrRenderDeformationShape*>(shape.get()), nullptr);
}
