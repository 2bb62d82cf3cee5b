#include <rendCore/model/KrRenderDeformationShape.h>
#include <rendCore/window/KrSGWindow.h>

#include <tests/support/Allocations.h>
#include <tests/support/Pictures.h>

#include <toolkit/deformation/KrDeformationPhysicalExtent.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/image/KrImage.h>
#include <toolkit/math/KrColor.h>

#include <osg/GL>
#include <osg/Material>
#include <osg/Math>
#include <osgViewer/Viewer>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>

namespace
{

/// A hose along x from 0 to 3 m with a radius of 0.3 m, open at its ends, with u along it and v around it.
void setHose(KrDeformationPhysicalExtent& extent, std::uint32_t numRings, std::uint32_t numAround)
{
    KrXmlVectorVector vertices;
    KrXmlVectorType<KrPlanarVector> coordinates;
    KrXmlVectorType<KrTriangle> triangles;
    for (std::uint32_t ring = 0; ring < numRings; ++ring) {
        for (std::uint32_t i = 0; i < numAround; ++i) {
            const double u = double(ring) / (numRings - 1);
            const double angle = 2.0 * osg::PI * i / numAround;
            vertices.push_back(KrVector(3.0 * u, 0.3 * std::cos(angle), 0.3 * std::sin(angle)));
            coordinates.push_back(KrPlanarVector(u, double(i) / numAround));
            const std::uint32_t a = ring * numAround + i;
            const std::uint32_t b = ring * numAround + (i + 1) % numAround;
            if (ring + 1 < numRings) {
                triangles.push_back(KrTriangle(a, b, b + numAround));
                triangles.push_back(KrTriangle(a, b + numAround, a + numAround));
            }
        }
    }
    KrXmlVectorType<KrTriPhysicalExtent::Group> groups;
    groups.push_back(KrTriPhysicalExtent::Group(KrXmlBasicType<std::string>("rubber"), triangles));
    KrTriPhysicalExtent mesh;
    ASSERT_TRUE(mesh.setMesh(vertices, KrXmlVectorVector(), coordinates, groups));
    extent.setMesh(mesh, KrDeformationPhysicalExtent::Smoothing::Smooth);
    extent.setMaterial("rubber", KrDataMap::material(KrColor(0.8, 0.1, 0.1)));
    extent.setMaterial("core", KrDataMap::material(KrColor(0.1, 0.8, 0.1)));
}

/// Every vertex of a hose turned about an axis 1 m above it: an arc.
std::vector<KrVector> bent(const KrDeformationPhysicalExtent& extent)
{
    std::vector<KrVector> vertices = extent.vertices();
    for (KrVector& vertex : vertices) {
        const double angle = vertex.x() - 1.5;
        const double radius = 1.0 - vertex.y();
        vertex.set(1.5 + radius * std::sin(angle), 1.0 - radius * std::cos(angle), vertex.z());
    }
    return vertices;
}

KrCoordinateSystemTransformation translation(double x, double y, double z)
{
    KrCoordinateSystemTransformation pose;
    pose.setTranslation(KrVector(x, y, z));
    return pose;
}

const osg::Vec3Array& verticesOf(const osg::Geode& shape, unsigned int group)
{
    return static_cast<const osg::Vec3Array&>(*shape.getDrawable(group)->asGeometry()->getVertexArray());
}

class DeformationPicture : public testing::Test
{
protected:
    void SetUp() override
    {
        m_window.setWindowSize(240, 160);
        if (!m_window.init()) {
            GTEST_SKIP() << m_window.report().text();
        }
        m_window.setBackgroundColor(KrColor(0.0, 0.0, 0.0));
        KrPovParameters pov;
        pov.setEyepoint(KrVector(1.5, 1.0, 10.0));
        pov.setCenterOfInterest(KrVector(1.5, 1.0, 0.0));
        pov.setUp(KrVector(0.0, 1.0, 0.0));
        pov.setFieldOfView(2.0 * std::atan(0.15));
        m_window.setPovParameters(pov);
    }
    void draw(const char* name)
    {
        ASSERT_TRUE(m_window.renderSceneAndCaptureImage(m_picture, KrSGWindow::CaptureColor));
        ASSERT_TRUE(m_window.makeCurrent());
        ASSERT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        if (const char* const folder = std::getenv("KR_TEST_PICTURES")) {
            m_picture.writeFile(std::string(folder) + "/" + name + ".png", KrImage::BottomRowFirst);
        }
    }
    /// Mean colour of 3 x 3 pixels where a point of the plane z = 0 is drawn.
    std::array<double, 3> colorAt(double x, double y) const
    {
        const osg::Camera& camera = *m_window.getViewer()->getCamera();
        const osg::Vec3d pixel = osg::Vec3d(x, y, 0.0) * (camera.getViewMatrix() * camera.getProjectionMatrix() *
                                                          camera.getViewport()->computeWindowMatrix());
        return meanColour(m_picture, static_cast<unsigned int>(pixel.x()), static_cast<unsigned int>(pixel.y()), 1);
    }

    KrSGWindow m_window;
    KrImage m_picture;
};

} // namespace

TEST(KrRenderDeformation, AFrameOfMovedVerticesIsTakenOverInPlaceAndAllocatesNothing)
{
    KrDeformationPhysicalExtent extent;
    setHose(extent, 200, 100);
    ASSERT_TRUE(extent.setPose("bent", bent(extent)));
    const osg::ref_ptr<KrRenderShape> shape = new KrRenderDeformationShape(&extent, KrMaterialMap());
    ASSERT_EQ(verticesOf(*shape, 0).size(), 20000u) << "every vertex once";
    const osg::Drawable* const drawable = shape->getDrawable(0);
    const unsigned int modified = verticesOf(*shape, 0).getModifiedCount();

    const auto frame = [&](double weight) {
        extent.setWeight(0, weight);
        extent.setPieceOffset(0, translation(0.0, weight, 0.0));
        shape->update(&extent);
        extent.recompute();
        extent.setChanged(false);
    };
    frame(0.1);
    const std::size_t before = Allocations::now().withNew;
    for (int i = 0; i < 10; ++i) {
        frame(0.1 * i);
    }
    EXPECT_EQ(Allocations::now().withNew, before);
    frame(1.0);
    EXPECT_EQ(shape->getDrawable(0), drawable);
    EXPECT_NE(verticesOf(*shape, 0).getModifiedCount(), modified) << "else the graphics card keeps the old ones";
    const osg::Vec3 first = verticesOf(*shape, 0)[0];
    EXPECT_NEAR(first.x(), 1.5 - 0.7 * std::sin(1.5), 1e-5);
    EXPECT_NEAR(first.y(), 2.0 - 0.7 * std::cos(1.5), 1e-5);
    EXPECT_GT(shape->getBoundingBox().yMax(), 1.9f);

    const unsigned int drawn = verticesOf(*shape, 0).getModifiedCount();
    shape->update(&extent);
    EXPECT_EQ(verticesOf(*shape, 0).getModifiedCount(), drawn) << "nothing changed";
    extent.setPlacement(translation(0.0, 0.0, 7.0));
    shape->update(&extent);
    EXPECT_GT(shape->getBoundingBox().zMin(), 6.0f) << "a placement is followed too";
}

TEST(KrRenderDeformation, ACutRebuildsTheGroupsOfEveryShapeAndKeepsTheGeodesOwnState)
{
    KrDeformationPhysicalExtent extent;
    setHose(extent, 20, 16);
    const osg::ref_ptr<KrRenderShape> first = new KrRenderDeformationShape(&extent, KrMaterialMap());
    const osg::ref_ptr<KrRenderShape> second = new KrRenderDeformationShape(&extent, KrMaterialMap());
    const osg::StateSet* const own = first->getOrCreateStateSet();
    first->updateAlpha(0.5f);
    ASSERT_TRUE(extent.cutByPlane(0, KrVector(1.55, 0.0, 0.0), KrVector(1.0, 0.2, 0.0), "core"));
    for (const osg::ref_ptr<KrRenderShape>& shape : {first, second}) {
        shape->update(&extent);
        extent.recompute();
        extent.setChanged(false);
        ASSERT_EQ(shape->getNumDrawables(), 4u);
        for (unsigned int i = 0; i < 4; ++i) {
            const osg::Geometry& group = *shape->getDrawable(i)->asGeometry();
            EXPECT_EQ(group.getTexCoordArray(0)->getNumElements(), group.getVertexArray()->getNumElements());
            EXPECT_FALSE(group.getSupportsDisplayList());
        }
    }
    EXPECT_EQ(first->getStateSet(), own);
    const osg::Geometry& cap = *first->getDrawable(3)->asGeometry();
    const osg::Vec4 color = static_cast<const osg::Vec4Array&>(*cap.getColorArray()).front();
    EXPECT_NEAR(color.g(), 0.8f, 1e-6f) << "its own material";
    EXPECT_EQ(color.a(), 0.5f) << "and the transparency given before";
    EXPECT_EQ(cap.getStateSet()->getRenderingHint(), int(osg::StateSet::TRANSPARENT_BIN));

    // A known extent in place of one without a mesh of its own, and back.
    KrTriPhysicalExtent plain = *extent.triExtent();
    first->update(&plain);
    EXPECT_EQ(first->getNumDrawables(), 4u);
    KrDeformationPhysicalExtent other;
    setHose(other, 5, 5);
    first->update(&other);
    ASSERT_EQ(first->getNumDrawables(), 1u);
    EXPECT_EQ(verticesOf(*first, 0).size(), 25u);
}

TEST_F(DeformationPicture, AHoseBendsIsCutAndComesApart)
{
    KrDeformationPhysicalExtent extent;
    setHose(extent, 60, 32);
    const osg::ref_ptr<KrRenderShape> shape = new KrRenderDeformationShape(&extent, KrMaterialMap());
    m_window.setNode(shape);
    draw("straight");
    EXPECT_GT(colorAt(0.2, 0.0)[0], 60.0);
    EXPECT_LT(colorAt(0.2, 1.0)[0], 1.0);
    const std::size_t straight = countLit(m_picture, {0, 0, 0});
    // 53.3 pixels a metre: 3 m x 0.6 m.
    EXPECT_NEAR(double(straight), 3.0 * 0.6 * 53.33 * 53.33, 0.03 * 5120);

    ASSERT_TRUE(extent.setPose("bent", bent(extent)));
    ASSERT_TRUE(extent.setWeight(0, 1.0));
    shape->update(&extent);
    draw("bent");
    EXPECT_LT(colorAt(0.2, 0.0)[0], 1.0);
    EXPECT_GT(colorAt(1.5, 0.0)[0], 60.0);
    EXPECT_GT(colorAt(1.5 - std::sin(1.2), 1.0 - std::cos(1.2))[0], 60.0) << "on the arc";
    const KrImage before = m_picture;

    ASSERT_TRUE(extent.cutByPlane(0, KrVector(1.5, 0.0, 0.0), KrVector(1.0, 0.0, 0.0), "core"));
    shape->update(&extent);
    draw("cut");
    std::size_t differing = 0;
    for (std::size_t i = 0; i < before.sizeInBytes(); ++i) {
        differing += std::abs(int(before.data()[i]) - int(m_picture.data()[i])) > 12 ? 1 : 0;
    }
    EXPECT_LT(differing, 30u) << "a cut shows no seam before its pieces part";

    KrCoordinateSystemTransformation apart = translation(0.5, 0.0, 0.0);
    ASSERT_TRUE(extent.setPieceOffset(1, apart));
    shape->update(&extent);
    draw("apart");
    EXPECT_LT(colorAt(1.75, 0.0)[0], 1.0) << "the gap";
    EXPECT_GT(colorAt(1.4, 0.0)[0], 60.0);
    EXPECT_GT(colorAt(2.1, 0.0)[0], 60.0);

    // The right piece turned about its cut, so that the section is seen.
    apart.setAxisAngle(KrVector(0.0, 1.0, 0.0), 0.6 * osg::PI);
    apart.setTranslation(KrVector(2.7, 0.0, 1.4));
    ASSERT_TRUE(extent.setPieceOffset(1, apart));
    ASSERT_TRUE(extent.setWeight(0, 0.6));
    shape->update(&extent);
    draw("turned");
    std::size_t green = 0;
    for (std::size_t i = 0; i + 2 < m_picture.sizeInBytes(); i += 3) {
        green += m_picture.data()[i + 1] > 2 * m_picture.data()[i] + 20 ? 1 : 0;
    }
    EXPECT_GT(green, 100u) << "the closed section has its own material";
}
