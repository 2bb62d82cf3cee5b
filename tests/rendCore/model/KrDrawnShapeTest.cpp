#include <rendCore/aids/KrRenderAxis.h>
#include <rendCore/model/KrRenderDeformationShape.h>
#include <rendCore/model/KrRenderShape.h>
#include <rendCore/window/KrSGWindow.h>

#include <tests/support/Pictures.h>
#include <tests/support/ShapeTestMesh.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/image/KrImage.h>

#include <osg/GL>
#include <osg/Geometry>
#include <osg/MatrixTransform>
#include <osgViewer/Viewer>

#include <gtest/gtest.h>

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace
{

constexpr unsigned int kWidth = 120;
constexpr unsigned int kHeight = 80;
constexpr std::array<int, 3> kBackground = {0, 0, 0};

/// A window that sees 0 <= x <= 3, 0 <= y <= 2 of the plane z = 0 from above: 40 pixels a metre.
class ShapePicture : public testing::Test
{
protected:
    void SetUp() override
    {
        m_window.setWindowSize(kWidth, kHeight);
        if (!m_window.init()) {
            GTEST_SKIP() << m_window.report().text();
        }
        m_window.setBackgroundColor(KrColor(0.0, 0.0, 0.0));
        look(KrVector(1.5, 1.0, 10.0), KrVector(1.5, 1.0, 0.0));
        m_window.setNode(m_group);
    }

    void look(const KrVector& eye, const KrVector& centre)
    {
        KrPovParameters pov;
        pov.setEyepoint(eye);
        pov.setCenterOfInterest(centre);
        pov.setUp(KrVector(0.0, 1.0, 0.0));
        pov.setFieldOfView(2.0 * std::atan(1.0 / (eye - centre).length()));
        m_window.setPovParameters(pov);
    }
    void draw()
    {
        ASSERT_TRUE(m_window.renderSceneAndCaptureImage(m_picture, KrSGWindow::CaptureColor));
        ASSERT_TRUE(m_window.makeCurrent());
        ASSERT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        if (const char* const folder = std::getenv("KR_TEST_PICTURES")) {
            const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
            m_picture.writeFile(std::string(folder) + "/" + test.name() + ".png", KrImage::BottomRowFirst);
        }
    }
    /// Mean colour of 3 x 3 pixels around the place where a point of the world is drawn.
    std::array<double, 3> colorAt(const osg::Vec3d& point) const
    {
        const osg::Camera& camera = *m_window.getViewer()->getCamera();
        const osg::Vec3d pixel = point * (camera.getViewMatrix() * camera.getProjectionMatrix() *
                                          camera.getViewport()->computeWindowMatrix());
        return meanColour(m_picture, static_cast<unsigned int>(pixel.x()), static_cast<unsigned int>(pixel.y()), 1);
    }

    KrSGWindow m_window;
    const osg::ref_ptr<osg::Group> m_group = new osg::Group;
    KrImage m_picture;
};

/// A rectangle of 3 m x 2 m with the texture coordinates (0, 0) to (1, 1).
void setRectangle(KrTriPhysicalExtent& mesh)
{
    KrXmlVectorVector vertices, normals;
    KrXmlVectorType<KrPlanarVector> coordinates;
    for (const double y : {0.0, 1.0}) {
        for (const double x : {0.0, 1.0}) {
            vertices.push_back(KrVector(3.0 * x, 2.0 * y, 0.0));
            normals.push_back(KrVector(0.0, 0.0, 1.0));
            coordinates.push_back(KrPlanarVector(x, y));
        }
    }
    KrXmlVectorType<KrTriangle> triangles;
    triangles.push_back(KrTriangle(0, 1, 3));
    triangles.push_back(KrTriangle(0, 3, 2));
    KrXmlVectorType<KrTriPhysicalExtent::Group> groups;
    groups.push_back(KrTriPhysicalExtent::Group(KrXmlBasicType<std::string>("picture"), triangles));
    ASSERT_TRUE(mesh.setMesh(vertices, normals, coordinates, groups));
}

KrDataMap glowing(double red, double green, double blue)
{
    KrDataMap map;
    map.setReal("krEmissionRed", red);
    map.setReal("krEmissionGreen", green);
    map.setReal("krEmissionBlue", blue);
    return map;
}

} // namespace

TEST_F(ShapePicture, ATextureStandsUprightAndSharp)
{
    // Six colours, the upper row first, as in the file.
    const int colors[2][3][3] = {{{255, 0, 0}, {0, 255, 0}, {0, 0, 255}},
                                 {{255, 255, 0}, {0, 255, 255}, {255, 0, 255}}};
    KrImage file;
    file.allocate(3, 0, 3, 2);
    for (std::size_t i = 0; i < file.sizeInBytes(); ++i) {
        file.data()[i] = static_cast<unsigned char>(colors[i / 9][i / 3 % 3][i % 3]);
    }
    const std::string path = testing::TempDir() + std::to_string(getpid()) + "upright.png";
    ASSERT_TRUE(file.writeFile(path, KrImage::TopRowFirst));
    KrDataMap material = glowing(1.0, 1.0, 1.0);
    material.setString("krTextureFilename", path);
    material.setString("krTextureEnvironmentMode", "GL_REPLACE");
    material.setString("krTextureMagFilter", "GL_NEAREST");
    KrTriPhysicalExtent mesh;
    setRectangle(mesh);
    mesh.setMaterial("picture", material);

    m_group->addChild(new KrRenderShape(&mesh, KrMaterialMap()));
    draw();
    for (int row = 0; row < 2; ++row) {
        for (int column = 0; column < 3; ++column) {
            const std::array<double, 3> seen = colorAt(osg::Vec3d(column + 0.5, 1.5 - row, 0.0));
            for (unsigned int channel = 0; channel < 3; ++channel) {
                EXPECT_NEAR(seen[channel], colors[row][column][channel], 1.0) << row << ", " << column;
            }
        }
    }
    std::remove(path.c_str());
}

TEST_F(ShapePicture, ADeformingShapeIsSeenWhereItsExtentIsNow)
{
    KrTriPhysicalExtent mesh;
    ASSERT_TRUE(ShapeTestMesh::setTriangles(mesh, {"a"}));
    mesh.setMaterial("a", glowing(1.0, 0.0, 0.0));
    const osg::ref_ptr<KrRenderShape> shape = new KrRenderDeformationShape(&mesh, KrMaterialMap());
    m_group->addChild(shape);
    draw();
    EXPECT_NEAR(colorAt(osg::Vec3d(0.25, 0.25, 0.0))[0], 255.0, 1.0);
    // Half a square metre of 40 x 40 pixels.
    EXPECT_NEAR(double(countLit(m_picture, kBackground)), 800.0, 50.0);

    shape->updateAlpha(0.5f);
    draw();
    EXPECT_NEAR(colorAt(osg::Vec3d(0.25, 0.25, 0.0))[0], 127.5, 3.0) << "half of it over black";

    ASSERT_TRUE(ShapeTestMesh::setTriangles(mesh, {"a"}, 20.0)); // behind the eye
    shape->update(&mesh);
    draw();
    EXPECT_EQ(countLit(m_picture, kBackground), 0u);

    ASSERT_TRUE(ShapeTestMesh::setTriangles(mesh, {"a", "b"}));
    shape->update(&mesh);
    shape->updateAlpha(1.0f);
    draw();
    EXPECT_NEAR(colorAt(osg::Vec3d(0.25, 0.25, 0.0))[0], 255.0, 1.0);
    EXPECT_NEAR(double(countLit(m_picture, kBackground)), 1600.0, 100.0);
}

TEST_F(ShapePicture, AnArrayWhereAnEarlierOneLayIsDrawnAllTheSame)
{
    const osg::ref_ptr<osg::Geometry> triangle = new osg::Geometry;
    const osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    vertices->push_back(osg::Vec3(0.0f, 0.0f, 0.0f));
    vertices->push_back(osg::Vec3(1.0f, 0.0f, 0.0f));
    vertices->push_back(osg::Vec3(0.0f, 1.0f, 0.0f));
    triangle->setVertexArray(vertices);
    triangle->addPrimitiveSet(new osg::DrawArrays(GL_TRIANGLES, 0, 3));
    triangle->setUseDisplayList(false);
    triangle->setUseVertexBufferObjects(true);
    triangle->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    triangle->setColorArray(new osg::Vec4Array(3), osg::Array::BIND_PER_VERTEX);
    m_group->addChild(triangle);
    draw();
    EXPECT_EQ(countLit(m_picture, kBackground), 0u) << "black";

    const void* const place = triangle->getColorArray();
    triangle->setColorArray(nullptr);
    std::vector<osg::ref_ptr<osg::Vec4Array>> others;
    do {
        others.push_back(new osg::Vec4Array);
    } while (others.back().get() != place && others.size() < 1000);
    if (others.back().get() != place) {
        GTEST_SKIP() << "memory is not used again";
    }
    others.back()->assign(3, osg::Vec4(1.0f, 0.0f, 0.0f, 1.0f));
    triangle->setColorArray(others.back(), osg::Array::BIND_PER_VERTEX);
    draw();
    EXPECT_NEAR(colorAt(osg::Vec3d(0.25, 0.25, 0.0))[0], 255.0, 1.0);
}

TEST_F(ShapePicture, AxesHaveTheirPureColoursHoweverTheLinkIsTurned)
{
    // A turn of half a circle about x: a line lit as if its normal were z would be dark.
    const osg::ref_ptr<osg::MatrixTransform> link =
        new osg::MatrixTransform(osg::Matrixd::rotate(osg::PI, osg::X_AXIS));
    link->addChild(KrRenderAxis::linkAxis(false));
    m_group->addChild(link);
    m_window.setDisplayMask(KrRenderTypes::LinkAxes, true, false);
    look(KrVector(3.0, 2.5, 4.0), KrVector(0.0, 0.0, 0.0));
    draw(); // applies the window's own axis scale
    KrRenderAxis::scaleAxis(0.9);
    draw();
    KrRenderAxis::scaleAxis(0.2);
    for (unsigned int axis = 0; axis < 3; ++axis) {
        osg::Vec3d point;
        point[axis] = 0.45;
        const std::array<double, 3> seen = colorAt(point * link->getMatrix());
        for (unsigned int channel = 0; channel < 3; ++channel) {
            // Three pixels wide: the patch of three by three is not covered whole by a slanted line.
            EXPECT_NEAR(seen[channel], channel == axis ? 255.0 : 0.0, channel == axis ? 90.0 : 1.0)
                << "axis " << axis << ", channel " << channel;
        }
    }
}
