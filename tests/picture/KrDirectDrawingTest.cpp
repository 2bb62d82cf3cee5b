#include <picture/KrPictureScene.h>
#include <rendCore/draw/private/KrDrawPace.h>
#include <rendCore/model/KrRenderLink.h>
#include <rendCore/model/KrRenderManipulator.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>

#include <tests/support/Allocations.h>
#include <tests/support/DrawableFiles.h>

#include <GL/gl.h>
#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <osg/AlphaFunc>
#include <osg/ClipNode>
#include <osg/ClipPlane>
#include <osg/ColorMask>
#include <osg/ContextData>
#include <osg/CullFace>
#include <osg/Depth>
#include <osg/DisplaySettings>
#include <osg/FrontFace>
#include <osg/GLExtensions>
#include <osg/LightModel>
#include <osg/LogicOp>
#include <osg/Material>
#include <osg/MatrixTransform>
#include <osg/PolygonMode>
#include <osg/PolygonOffset>
#include <osg/PolygonStipple>
#include <osg/Program>
#include <osg/ShapeDrawable>
#include <osg/Stencil>
#include <osg/Texture2D>
#include <osgUtil/RenderStage>
#include <osgUtil/Statistics>
#include <osgViewer/Renderer>
#include <osgViewer/Viewer>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>

namespace
{

namespace fs = std::filesystem;

/// Every robot and system at hand: the samples, and real ones where they lie beside the project.
std::vector<std::string> files()
{
    return DrawableFiles::all(KR_SAMPLES, KR_ROBOTS);
}

/// Draws one system the direct way and the graph's, in turns.
class Both
{
public:
    explicit Both(const std::string& file)
    {
        EXPECT_TRUE(DrawableFiles::read(file, system));
        open();
    }
    explicit Both(const KrStatedSystem& shown)
        : system(shown)
    {
        open();
    }

    /// Pixels in which colours or depths differ.
    std::size_t difference()
    {
        std::size_t count = 0;
        for (const unsigned int kind : {KrSGWindow::CaptureColor, KrSGWindow::CaptureDepth}) {
            KrImage pictures[2];
            for (const bool isDirect : {false, true}) {
                window().setDirectDrawing(isDirect);
                EXPECT_TRUE(window().renderSceneAndCaptureImage(pictures[isDirect ? 1 : 0], kind));
                EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
            }
            const std::size_t size = pictures[0].sizeInBytes();
            for (std::size_t i = 0; i < size; ++i) {
                count += pictures[0].data()[i] != pictures[1].data()[i] ? 1 : 0;
            }
            isEmpty = isEmpty && std::count(pictures[0].data(), pictures[0].data() + size, pictures[0].data()[0]) ==
                                     static_cast<std::ptrdiff_t>(size);
        }
        return count;
    }
    void pose(double position)
    {
        KrManipulatorSystemState state = system.systemState();
        for (KrPositionState& manipulator : state.positionStates()) {
            for (KrXmlBasicType<double>& joint : manipulator.jointPositions()) {
                joint.setValue(position);
            }
        }
        window().setState(state);
    }
    KrRenderWindow& window() { return scene.window(); }
    /// Leaves of the last frame's render graph.
    unsigned int numLeaves()
    {
        osgUtil::Statistics statistics;
        auto* const renderer = dynamic_cast<osgViewer::Renderer*>(window().getViewer()->getCamera()->getRenderer());
        renderer->getSceneView(0)->getRenderStage()->getStats(statistics);
        return static_cast<unsigned int>(statistics.numDrawables);
    }

    KrStatedSystem system;
    KrPictureScene scene;
    bool isEmpty = true; ///< whether no picture showed anything

private:
    void open()
    {
        std::string reason;
        EXPECT_TRUE(scene.open(160, 120, 1, reason) && scene.show(system, reason)) << reason;
    }
};

/// The first link that has a shape.
std::string shownLink(const KrStatedSystem& system)
{
    for (const KrManipulatorLink* const link : system.manipulatorSystem().manipulators()[0].links()) {
        if (link->numShapes() != 0) {
            return link->name();
        }
    }
    return {};
}

/// A group of a client's between the root and the first manipulator.
osg::ref_ptr<osg::Group> wrapManipulator(KrRenderWindow& window)
{
    osg::Group& root = *window.getNode();
    for (unsigned int i = 0; i < root.getNumChildren(); ++i) {
        const osg::ref_ptr<KrRenderManipulator> manipulator = dynamic_cast<KrRenderManipulator*>(root.getChild(i));
        if (manipulator) {
            const osg::ref_ptr<osg::Group> group = new osg::Group;
            group->addChild(manipulator);
            root.setChild(i, group);
            return group;
        }
    }
    return nullptr;
}

void forEachDrawable(osg::Node& scene, const std::function<void(osg::Drawable&)>& act)
{
    class Visitor : public osg::NodeVisitor
    {
    public:
        explicit Visitor(const std::function<void(osg::Drawable&)>& act)
            : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN)
            , m_act(act)
        {
        }
        void apply(osg::Drawable& drawable) override { m_act(drawable); }

    private:
        const std::function<void(osg::Drawable&)>& m_act;
    } visitor(act);
    scene.accept(visitor);
}

/// Calls `change` with the state set of every drawable.
void changeStates(osg::Node& scene, const std::function<void(osg::StateSet&)>& change)
{
    forEachDrawable(scene, [&change](osg::Drawable& drawable) {
        if (drawable.getStateSet() != nullptr) {
            change(*drawable.getStateSet());
        }
    });
}

/// The nodes of links, in depth-first pre-order.
std::vector<osg::ref_ptr<KrRenderLink>> linksOf(osg::Node& scene)
{
    class Visitor : public osg::NodeVisitor
    {
    public:
        Visitor()
            : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN)
        {
        }
        void apply(osg::MatrixTransform& node) override
        {
            if (auto* const link = dynamic_cast<KrRenderLink*>(&node)) {
                links.push_back(link);
            }
            traverse(node);
        }
        std::vector<osg::ref_ptr<KrRenderLink>> links;
    } visitor;
    scene.accept(visitor);
    return visitor.links;
}

constexpr unsigned int kOverride = osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE;

/// A material of the node's own, in whose place it may have had another.
osg::ref_ptr<osg::Material> giveMaterial(osg::Node& node, const osg::Vec4& color, unsigned int value)
{
    const osg::ref_ptr<osg::Material> material = new osg::Material;
    material->setColorMode(osg::Material::OFF);
    material->setAmbient(osg::Material::FRONT_AND_BACK, color);
    material->setDiffuse(osg::Material::FRONT_AND_BACK, color);
    node.getOrCreateStateSet()->setAttributeAndModes(material, value);
    return material;
}

/// Moves the eye to so many times its distance.
void stepBack(KrRenderWindow& window, double factor)
{
    KrPovParameters pov = window.getPovParameters();
    const KrVector center = pov.centerOfInterest();
    pov.setEyepoint(center + (pov.eyepoint() - center) * factor);
    window.setPovParameters(pov);
}

/// One that draws everything red, and three times as large as it is.
osg::ref_ptr<osg::Program> enlargingProgram()
{
    const osg::ref_ptr<osg::Program> program = new osg::Program;
    program->addShader(
        new osg::Shader(osg::Shader::VERTEX, "void main() { gl_Position = ftransform() * vec4(3.0, 3.0, 1.0, 1.0); }"));
    program->addShader(
        new osg::Shader(osg::Shader::FRAGMENT, "void main() { gl_FragColor = vec4(1.0, 0.0, 0.0, 1.0); }"));
    return program;
}

/// Robots of a wavy surface each, one behind the other, of 156,000 triangles that are smaller than a pixel.
KrStatedSystem ponds(unsigned int count)
{
    constexpr unsigned int kSide = 280;
    KrManipulatorSystem robots;
    KrManipulatorSystemState state;
    for (unsigned int number = 0; number < count; ++number) {
        KrXmlVectorVector corners;
        std::vector<KrTriangle> triangles;
        for (unsigned int i = 0; i < kSide; ++i) {
            for (unsigned int j = 0; j < kSide; ++j) {
                corners.push_back(
                    {0.01 * i, 0.01 * j, 0.1 * std::sin(0.4 * i + number) * std::cos(0.3 * j) + 0.1 * number});
                const unsigned int at = i * kSide + j;
                if (i + 1 < kSide && j + 1 < kSide) {
                    triangles.emplace_back(at, at + kSide, at + 1);
                    triangles.emplace_back(at + 1, at + kSide, at + kSide + 1);
                }
            }
        }
        const auto waves = boost::make_shared<KrTriPhysicalExtent>();
        const KrTriPhysicalExtent::Group group(std::string("waves"), KrXmlVectorType<KrTriangle>(triangles));
        EXPECT_TRUE(waves->setMesh(corners, {}, {}, KrXmlVectorType<KrTriPhysicalExtent::Group>({group})));
        KrIndividualManipulator pond("pond " + std::to_string(number));
        pond.addShape(waves);
        robots.manipulators().push_back(pond);
        state.positionStates().push_back(KrPositionState());
    }
    KrStatedSystem system(robots);
    system.setSystemState(state);
    return system;
}

/// With these the order of triangles does not matter, but what is behind others may be seen.
std::vector<osg::ref_ptr<osg::StateAttribute>> attributesThatLetThrough()
{
    const osg::ref_ptr<osg::PolygonStipple> holes = new osg::PolygonStipple;
    const std::vector<GLubyte> everyOther(128, 0x55);
    holes->setMask(everyOther.data());
    return {holes, new osg::AlphaFunc(osg::AlphaFunc::LESS, 0.5f), new osg::PolygonOffset(300.0f, 0.0f)};
}

class KrDirectDrawingOfFiles : public testing::TestWithParam<std::string>
{
};

/// What the scene graph draws from: display lists, buffers, or buffers with vertex array objects.
class KrDirectDrawingByHint : public testing::TestWithParam<osg::DisplaySettings::VertexBufferHint>
{
protected:
    void SetUp() override { osg::DisplaySettings::instance()->setVertexBufferHint(GetParam()); }
    void TearDown() override { osg::DisplaySettings::instance()->setVertexBufferHint(m_usual); }

private:
    const osg::DisplaySettings::VertexBufferHint m_usual = osg::DisplaySettings::instance()->getVertexBufferHint();
};

std::string nameOf(const testing::TestParamInfo<std::string>& file)
{
    std::string name = fs::path(file.param).stem().string();
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    return name;
}

} // namespace

TEST_P(KrDirectDrawingOfFiles, GivesThePicturesOfTheGraph)
{
    Both both(GetParam());
    KrRenderWindow& window = both.window();
    EXPECT_EQ(both.difference(), 0u);
    EXPECT_FALSE(both.isEmpty);
    both.pose(0.3);
    EXPECT_EQ(both.difference(), 0u) << "moved";
    const unsigned int usual = window.viewerAttribute();
    for (const unsigned int others :
         {KrSGWindow::Lighting + 0u, KrSGWindow::Texturing + 0u, KrSGWindow::Wireframe + 0u,
          KrSGWindow::SmoothShading + 0u, KrSGWindow::CullBackFaces + 0u,
          KrSGWindow::Wireframe | KrSGWindow::Lighting | 0u, KrSGWindow::Wireframe | KrSGWindow::CullBackFaces | 0u,
          KrSGWindow::Lighting | KrSGWindow::CullBackFaces | 0u}) {
        window.setViewerAttribute(others & ~usual, true);
        window.setViewerAttribute(others & usual, false);
        EXPECT_EQ(both.difference(), 0u) << "attributes " << others;
        window.setViewerAttribute(others & ~usual, false);
        window.setViewerAttribute(others & usual, true);
    }
    for (const unsigned int mask : {KrRenderTypes::LinkAxes, KrRenderTypes::BoundingVolumes,
                                    KrRenderTypes::MassProperties, KrRenderTypes::CollisionShapes}) {
        window.setDisplayMask(mask, true, false);
        EXPECT_EQ(both.difference(), 0u) << "mask " << mask;
        window.setDisplayMask(mask, false, false);
    }
    const std::vector<osg::ref_ptr<KrRenderLink>> links = linksOf(*window.getNode());
    for (std::size_t i = 0; i < links.size(); ++i) {
        // Every other link as a data set says it, the others for themselves and what hangs below.
        osg::Node& node = i % 2 == 0 ? static_cast<osg::Node&>(*links[i]->getDhFrame()) : *links[i];
        giveMaterial(node, {0.3f, 0.2f + 0.5f / static_cast<float>(i + 1), 0.6f, 1.0f}, kOverride);
    }
    EXPECT_EQ(both.difference(), 0u) << "materials";
    for (const osg::ref_ptr<KrRenderLink>& node : links) {
        node->setStateSet(nullptr);
        node->getDhFrame()->setStateSet(nullptr);
    }
    const std::string link = shownLink(both.system);
    both.system.selectLink(0, link);
    EXPECT_EQ(both.difference(), 0u) << "selected: " << link;
    both.system.deselectLink(0, link);
    EXPECT_EQ(both.difference(), 0u) << "no longer selected";
    // So near that links cross the borders, and the eye is in the middle of them.
    KrPovParameters pov = window.getPovParameters();
    const KrVector eye = pov.eyepoint();
    for (const double part : {4.0, 0.4, 0.1, 0.0}) {
        pov.setEyepoint(pov.centerOfInterest() + (eye - pov.centerOfInterest()) * part + KrVector(0.01, 0.0, 0.0));
        window.setPovParameters(pov);
        for (const bool areBacksShown : {true, false}) {
            window.setViewerAttribute(KrSGWindow::CullBackFaces, !areBacksShown);
            EXPECT_EQ(both.difference(), 0u) << "at " << part << " of the distance, backs shown: " << areBacksShown;
        }
    }
}

// Whatever a client does to the graph is in the next picture.
TEST_P(KrDirectDrawingByHint, SeesWhatAClientChanges)
{
    Both both(std::string(KR_SAMPLES "/industrial_arm.urdf"));
    ASSERT_EQ(both.difference(), 0u);
    const unsigned int numDirect = both.numLeaves();
    both.window().setDirectDrawing(false);
    both.window().renderScene(false);
    EXPECT_LT(numDirect + 10, both.numLeaves()) << "one leaf for the robot, not one for each group";

    const std::vector<osg::ref_ptr<KrRenderLink>> links = linksOf(*both.window().getNode());
    const auto found = std::find_if(links.rbegin(), links.rend(), [](const osg::ref_ptr<KrRenderLink>& each) {
        return each->getLink()->numShapes() != 0;
    });
    ASSERT_NE(found, links.rend());
    KrRenderLink& link = **found;
    auto& shape = dynamic_cast<KrRenderShape&>(*link.getDhFrame()->getChild(0));
    osg::Geometry& group = *shape.getDrawable(0)->asGeometry();
    auto& material = dynamic_cast<osg::Material&>(*group.getStateSet()->getAttribute(osg::StateAttribute::MATERIAL));

    KrImage before;
    const auto expectSeen = [&](const char* what) {
        EXPECT_EQ(both.difference(), 0u) << what;
        KrImage after;
        EXPECT_TRUE(both.window().renderSceneAndCaptureImage(after, KrSGWindow::CaptureColor));
        EXPECT_FALSE(std::equal(before.data(), before.data() + before.sizeInBytes(), after.data())) << what;
        before = after;
    };
    ASSERT_TRUE(both.window().renderSceneAndCaptureImage(before, KrSGWindow::CaptureColor));

    material.setDiffuse(osg::Material::FRONT_AND_BACK, osg::Vec4(0.0f, 1.0f, 0.0f, 1.0f));
    expectSeen("a material");
    auto& vertices = dynamic_cast<osg::Vec3Array&>(*group.getVertexArray());
    for (osg::Vec3& vertex : vertices) {
        vertex *= 1.2f;
    }
    vertices.dirty();
    group.dirtyBound();
    // Only vertex buffers are filled anew by that: a list, or an object of arrays, stays as it is.
    if (GetParam() != osg::DisplaySettings::VERTEX_BUFFER_OBJECT) {
        EXPECT_EQ(both.difference(), 0u) << "vertices that are not told";
        group.dirtyGLObjects();
    }
    expectSeen("vertices");
    const osg::ref_ptr<osg::Geode> ball = new osg::Geode;
    ball->addDrawable(new osg::ShapeDrawable(new osg::Sphere(osg::Vec3(), 0.2f)));
    link.addChild(ball);
    expectSeen("a node");
    ball->setNodeMask(0);
    expectSeen("a mask");
    giveMaterial(link, {1.0f, 0.0f, 0.0f, 1.0f}, kOverride);
    expectSeen("a material of a node");
    link.getStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF | osg::StateAttribute::OVERRIDE);
    expectSeen("a state set");
    link.setNodeMask(0);
    expectSeen("a link that is hidden");
    link.setNodeMask(~0u);
    expectSeen("and shown");
    class Hide : public osg::NodeCallback
    {
        void operator()(osg::Node*, osg::NodeVisitor*) override {}
    };
    shape.setCullCallback(new Hide);
    expectSeen("a callback");
}

// Lines show triangles, of which levels of detail have others.
TEST(KrDirectDrawing, DrawsEveryTriangleAsLinesAndLevelsWithoutLight)
{
    Both both(std::string(KR_SAMPLES "/industrial_arm.urdf"));
    KrRenderWindow& window = both.window();
    for (const osg::ref_ptr<KrRenderLink>& link : linksOf(*window.getNode())) {
        osg::Group& shapes = *link->getDhFrame();
        if (shapes.getNumChildren() != 0 && shapes.getChild(0)->getNumParents() > 1) {
            shapes.removeChild(0, 1); // one of two fingers
        }
    }
    ASSERT_EQ(both.difference(), 0u);
    const unsigned int numDirect = both.numLeaves();
    window.setLevelOfDetail(2.0f);
    window.setViewerAttribute(KrSGWindow::Wireframe, true);
    EXPECT_EQ(both.difference(), 0u);
    EXPECT_EQ(both.numLeaves(), numDirect);
    window.setViewerAttribute(KrSGWindow::Wireframe, false);
    window.setViewerAttribute(KrSGWindow::Lighting, false);
    EXPECT_GT(both.difference(), 0u) << "coarser levels were drawn";
    EXPECT_EQ(both.numLeaves(), numDirect);
}

// The graph draws a shape of two links for both of them at the place of the first one. The three bodies share edges.
TEST(KrDirectDrawing, KeepsTheOrderOfLinesWhereLinksShareAShape)
{
    const std::string folder = testing::TempDir();
    std::ofstream(folder + "cube.obj") << "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 0 0 1\nv 1 0 1\nv 1 1 1\nv 0 1 1\n"
                                          "f 1 3 2\nf 1 4 3\nf 5 6 7\nf 5 7 8\nf 1 2 6\nf 1 6 5\n"
                                          "f 2 3 7\nf 2 7 6\nf 3 4 8\nf 3 8 7\nf 4 1 5\nf 4 5 8\n";
    const std::string cube = "<visual><geometry><mesh filename=\"cube.obj\"/></geometry></visual>";
    const auto joint = [](const char* parent, const char* child) {
        return std::string("<joint name=\"to_") + child + "\" type=\"fixed\"><origin xyz=\"0 0 1\"/><parent link=\"" +
               parent + "\"/><child link=\"" + child + "\"/></joint>";
    };
    std::ofstream(folder + "tower.urdf")
        << "<robot name=\"tower\"><link name=\"low\">" << cube << "</link>" << joint("low", "middle")
        << "<link name=\"middle\"><visual><origin xyz=\"0.5 0.5 0.5\"/><geometry><box size=\"1 1 1\"/></geometry>"
           "<material name=\"red\"><color rgba=\"1 0 0 1\"/></material></visual></link>"
        << joint("middle", "high") << "<link name=\"high\">" << cube << "</link></robot>";
    Both both(folder + "tower.urdf");
    EXPECT_EQ(both.difference(), 0u);
    both.window().setViewerAttribute(KrSGWindow::Wireframe, true);
    EXPECT_EQ(both.difference(), 0u);
}

// Whichever node says it, and however it weighs what those above and below say.
TEST(KrDirectDrawing, TakesMaterialsOfNodesOver)
{
    constexpr unsigned int kOn = osg::StateAttribute::ON;
    constexpr unsigned int kProtected = osg::StateAttribute::PROTECTED;
    const osg::Vec4 red(1.0f, 0.0f, 0.0f, 1.0f);
    const osg::Vec4 green(0.0f, 1.0f, 0.0f, 1.0f);
    Both both(std::string(KR_SAMPLES "/industrial_arm.urdf"));
    ASSERT_EQ(both.difference(), 0u);
    const unsigned int numDirect = both.numLeaves();
    const osg::ref_ptr<osg::Group> group = wrapManipulator(both.window());
    ASSERT_NE(group, nullptr);
    osg::Node& manipulator = *group->getChild(0);
    const std::vector<osg::ref_ptr<KrRenderLink>> links = linksOf(*group);
    ASSERT_GT(links.size(), 3u);
    osg::Node& frame = *links[2]->getDhFrame();
    osg::Node& shape = *links[2]->getDhFrame()->getChild(0);
    KrImage before;
    ASSERT_TRUE(both.window().renderSceneAndCaptureImage(before, KrSGWindow::CaptureColor));
    const auto expectDirect = [&](const char* what, bool isSeen) {
        EXPECT_EQ(both.difference(), 0u) << what;
        EXPECT_EQ(both.numLeaves(), numDirect) << what;
        KrImage after;
        EXPECT_TRUE(both.window().renderSceneAndCaptureImage(after, KrSGWindow::CaptureColor));
        EXPECT_EQ(std::equal(before.data(), before.data() + before.sizeInBytes(), after.data()), !isSeen) << what;
        before = after;
    };
    giveMaterial(manipulator, red, kOn);
    expectDirect("the groups' own win", false);
    giveMaterial(manipulator, red, kOverride);
    expectDirect("of all", true);
    giveMaterial(*links[1], green, kOverride);
    expectDirect("the one above wins", false);
    manipulator.setStateSet(nullptr);
    expectDirect("of a link and those below", true);
    giveMaterial(frame, red, kOverride);
    expectDirect("of a frame below", false);
    giveMaterial(*links[1], green, kOn);
    expectDirect("which now wins", true);
    giveMaterial(shape, green, kOverride);
    expectDirect("of a shape", false);
    frame.setStateSet(nullptr);
    expectDirect("of a shape alone", true);
    frame.getOrCreateStateSet();
    expectDirect("a set that says nothing", false);
    giveMaterial(*group, red, kOverride);
    expectDirect("above the robot", true);
    giveMaterial(shape, green, kOverride | kProtected);
    EXPECT_EQ(both.difference(), 0u) << "protected";
    EXPECT_GT(both.numLeaves(), numDirect) << "protected";
    giveMaterial(shape, green, kOverride);
    group->setStateSet(nullptr);
    manipulator.setStateSet(nullptr);
    const osg::ref_ptr<osg::Material> changing = giveMaterial(manipulator, red, kOverride);
    expectDirect("of all, and of a part no longer", false);
    changing->setDiffuse(osg::Material::FRONT_AND_BACK, green);
    expectDirect("changed in place", true);
}

TEST(KrDirectDrawing, ShowsTheLinksAroundAnEye)
{
    Both both(std::string(KR_SAMPLES "/industrial_arm.urdf"));
    KrPovParameters pov = both.window().getPovParameters();
    const KrVector towardsEye = pov.eyepoint() - pov.centerOfInterest();
    for (const double part : {0.05, 0.03, 0.01}) {
        pov.setEyepoint(pov.centerOfInterest() + towardsEye * part);
        both.window().setPovParameters(pov);
        EXPECT_EQ(both.difference(), 0u) << "at " << part << " of the distance";
    }
}

// A parallel projection shows what is behind the eye, but for groups that are behind it as a whole.
TEST(KrDirectDrawing, ShowsTheGroupsBeforeTheEyeOfAParallelProjection)
{
    Both both(std::string(KR_SAMPLES "/industrial_arm.urdf"));
    KrPovParameters pov = both.window().getPovParameters();
    const KrVector eye = pov.centerOfInterest();
    for (const KrVector& direction : {KrVector(1.0, 0.3, 0.2), KrVector(-0.2, 1.0, 0.3), KrVector(0.3, 0.2, -1.0)}) {
        pov.setEyepoint(eye);
        pov.setCenterOfInterest(eye + direction);
        both.window().setPovParameters(pov);
        both.window().updateScene();
        both.window().getViewer()->getCamera()->setProjectionMatrixAsOrtho(-1.0, 1.0, -0.75, 0.75, 0.01, 100.0);
        EXPECT_EQ(both.difference(), 0u) << "towards " << direction.x() << " " << direction.y() << " " << direction.z();
    }
    EXPECT_FALSE(both.isEmpty);
}

// A group of a client's is left out by its bound, which must not lag behind the robot.
TEST(KrDirectDrawing, FollowsARobotBelowAGroup)
{
    const std::string file = testing::TempDir() + "slider.urdf";
    std::ofstream(file) << R"(<robot name="slider"><link name="rail"/><joint name="slide" type="prismatic">
        <parent link="rail"/><child link="box"/><axis xyz="1 0 0"/>
        <limit lower="0" upper="1000" effort="1" velocity="1"/></joint>
        <link name="box"><visual><geometry><box size="0.5 0.6 0.7"/></geometry></visual></link></robot>)";
    Both both(file);
    const osg::ref_ptr<osg::Group> group = wrapManipulator(both.window());
    ASSERT_NE(group, nullptr);
    const KrPovParameters pov = both.window().getPovParameters();
    for (const double way : {0.0, 100.0, 200.0, 300.0}) {
        both.pose(way);
        KrPovParameters moved = pov;
        moved.setEyepoint(pov.eyepoint() + KrVector(way, 0.0, 0.0));
        moved.setCenterOfInterest(pov.centerOfInterest() + KrVector(way, 0.0, 0.0));
        both.window().setPovParameters(moved);
        KrImage picture;
        ASSERT_TRUE(both.window().renderSceneAndCaptureImage(picture, KrSGWindow::CaptureDepth));
        EXPECT_NE(picture.data()[picture.sizeInBytes() / 2 + 80], picture.data()[0]) << "at " << way;
        EXPECT_NEAR(group->getBound().center().x(), way / 2.0, 0.5) << "after the frame, at " << way;
    }
}

TEST(KrDirectDrawing, RespectsWhatAClientSaysAboveARobot)
{
    Both both(std::string(KR_SAMPLES "/dual_arm_base.xml"));
    both.window().setLevelOfDetail(1e-9f); // bodies without their backs, every triangle
    const osg::ref_ptr<osg::Group> group = wrapManipulator(both.window());
    ASSERT_NE(group, nullptr);
    const auto difference = [&](const std::function<void(osg::StateSet&)>& say) {
        group->setStateSet(new osg::StateSet);
        say(*group->getStateSet());
        return both.difference();
    };
    // Few pixels at the rims of bodies show a back face.
    constexpr std::size_t kRims = 50;
    EXPECT_LE(difference([](osg::StateSet&) {}), kRims);
    EXPECT_LE(difference([](osg::StateSet& states) {
                  states.setAttributeAndModes(new osg::FrontFace(osg::FrontFace::CLOCKWISE));
              }),
              kRims);
    EXPECT_LE(
        difference([](osg::StateSet& states) { states.setAttributeAndModes(new osg::CullFace(osg::CullFace::FRONT)); }),
        kRims);
    both.window().setLevelOfDetail(0.0f);
    EXPECT_EQ(difference([](osg::StateSet& states) {
                  const osg::ref_ptr<osg::Material> glass = new osg::Material;
                  glass->setDiffuse(osg::Material::FRONT_AND_BACK, osg::Vec4(1.0f, 0.0f, 0.0f, 0.4f));
                  states.setAttributeAndModes(glass, kOverride);
                  states.setMode(GL_BLEND, kOverride);
                  states.setRenderingHint(osg::StateSet::TRANSPARENT_BIN);
              }),
              0u)
        << "translucent";
    EXPECT_EQ(difference([](osg::StateSet& states) { states.setMode(GL_LIGHTING, osg::StateAttribute::OFF); }), 0u)
        << "unlit unless it says otherwise";
    EXPECT_EQ(difference([](osg::StateSet& states) {
                  states.setAttributeAndModes(
                      new osg::PolygonMode(osg::PolygonMode::FRONT_AND_BACK, osg::PolygonMode::POINT));
              }),
              0u)
        << "points";
    EXPECT_EQ(difference([](osg::StateSet& states) {
                  states.setMode(GL_DEPTH_TEST, osg::StateAttribute::OFF | osg::StateAttribute::OVERRIDE);
              }),
              0u)
        << "over one another";
    // The second manipulator of the scene has the light model of the root.
    both.window().setViewerAttribute(KrSGWindow::CullBackFaces, true);
    EXPECT_EQ(difference([](osg::StateSet& states) {
                  const osg::ref_ptr<osg::LightModel> model = new osg::LightModel;
                  model->setTwoSided(true);
                  model->setAmbientIntensity(osg::Vec4(0.9f, 0.1f, 0.1f, 1.0f));
                  states.setAttribute(model);
              }),
              0u)
        << "light of its own";

    // One that reads materials.
    Both arm(std::string(KR_SAMPLES "/industrial_arm.urdf"));
    const osg::ref_ptr<osg::Program> program = new osg::Program;
    program->addShader(new osg::Shader(
        osg::Shader::VERTEX, "void main() { gl_Position = ftransform(); gl_FrontColor = gl_FrontMaterial.diffuse; }"));
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, "void main() { gl_FragColor = gl_Color; }"));
    wrapManipulator(arm.window())->getOrCreateStateSet()->setAttributeAndModes(program);
    EXPECT_EQ(arm.difference(), 0u) << "a program";
}

// Who cuts a body open looks at its inside.
TEST(KrDirectDrawing, ShowsTheInsideOfBodiesThatAClientCutsOpen)
{
    Both both(std::string(KR_SAMPLES "/industrial_arm.urdf"));
    both.window().setLevelOfDetail(1e-9f); // bodies without their backs, every triangle
    const osg::ref_ptr<osg::Group> group = wrapManipulator(both.window());
    const osg::Vec3d center = group->getBound().center();
    const osg::ref_ptr<osg::ClipNode> cut = new osg::ClipNode;
    cut->addClipPlane(new osg::ClipPlane(0));
    cut->addChild(group->getChild(0));
    group->setChild(0, cut);
    for (const osg::Vec3d& normal :
         {osg::Vec3d(1.0, 0.0, 0.0), osg::Vec3d(0.0, 1.0, 0.0), osg::Vec3d(0.0, 0.0, -1.0)}) {
        for (const double sign : {1.0, -1.0}) {
            cut->getClipPlane(0)->setClipPlane(osg::Plane(normal * sign, center));
            EXPECT_EQ(both.difference(), 0u)
                << normal.x() << " " << normal.y() << " " << normal.z() << " times " << sign;
        }
    }
    EXPECT_FALSE(both.isEmpty);
}

// In the state sets of shapes, where the general traversal has them as well.
TEST(KrDirectDrawing, RespectsWhatAClientSaysOfAShape)
{
    const std::pair<const char*, std::function<void(osg::StateSet&)>> all[] = {
        {"fronts are backs",
         [](osg::StateSet& states) { states.setAttributeAndModes(new osg::FrontFace(osg::FrontFace::CLOCKWISE)); }},
        {"no fronts",
         [](osg::StateSet& states) { states.setAttributeAndModes(new osg::CullFace(osg::CullFace::FRONT)); }},
        {"backs in any case",
         [](osg::StateSet& states) {
             states.setMode(GL_CULL_FACE, osg::StateAttribute::OFF | osg::StateAttribute::PROTECTED);
         }},
        {"elsewhere", [](osg::StateSet& states) { states.setAttributeAndModes(enlargingProgram()); }}};
    for (const auto& [what, say] : all) {
        Both both(std::string(KR_SAMPLES "/industrial_arm.urdf"));
        stepBack(both.window(), 2.0);
        changeStates(*both.window().getNode(), say);
        both.window().setLevelOfDetail(1e-9f); // bodies without their backs, every triangle
        EXPECT_LE(both.difference(), 50u) << what;
        both.window().setLevelOfDetail(0.0f);
        for (const bool areBacksShown : {true, false}) {
            both.window().setViewerAttribute(KrSGWindow::CullBackFaces, !areBacksShown);
            EXPECT_EQ(both.difference(), 0u) << what << ", backs shown: " << areBacksShown;
        }
    }
}

// Where the order of triangles matters it is that of the graph: for shapes that are not drawn in the usual way, and
// above a robot.
TEST(KrDirectDrawing, KeepsTheOrderOfTrianglesWhereItMatters)
{
    const osg::ref_ptr<osg::Stencil> never = new osg::Stencil;
    never->setFunction(osg::Stencil::NEVER, 0, 0);
    const osg::ref_ptr<osg::StateAttribute> all[] = {
        never,
        new osg::LogicOp(osg::LogicOp::XOR),
        new osg::Depth(osg::Depth::ALWAYS),
        new osg::Depth(osg::Depth::LESS, 0.0, 1.0, false),
        new osg::Depth(osg::Depth::GREATER, 1.0, 0.0),
        new osg::ColorMask(false, false, false, false),
    };
    for (const osg::ref_ptr<osg::StateAttribute>& attribute : all) {
        for (const bool isAbove : {false, true}) {
            Both both(std::string(KR_SAMPLES "/dual_arm_base.xml"));
            stepBack(both.window(), 2.0);
            unsigned int number = 0;
            const auto say = [&](osg::StateSet& states) {
                if (++number % 2 == 0 || isAbove) {
                    states.setAttributeAndModes(attribute);
                }
            };
            if (isAbove) {
                say(*wrapManipulator(both.window())->getOrCreateStateSet());
            } else {
                changeStates(*both.window().getNode(), say);
            }
            for (const bool areBacksShown : {true, false}) {
                both.window().setViewerAttribute(KrSGWindow::CullBackFaces, !areBacksShown);
                EXPECT_EQ(both.difference(), 0u)
                    << attribute->className() << ", above: " << isAbove << ", backs shown: " << areBacksShown;
            }
        }
    }
}

// Which triangles miss all pixels depends on all that places them.
TEST(KrDirectDrawing, SeesWhereAClientPutsThePicture)
{
    for (const double distance : {1.0, 3.0}) {
        Both both(std::string(KR_SAMPLES "/industrial_arm.urdf"));
        stepBack(both.window(), distance);
        osg::Camera& camera = *both.window().getViewer()->getCamera();
        osg::Viewport& viewport = *camera.getViewport();
        for (const osg::Vec4d& area : {osg::Vec4d(0.0, 0.0, 159.7, 119.7), osg::Vec4d(0.6, 0.6, 100.7, 99.9),
                                       osg::Vec4d(17.0, 3.0, 101.0, 77.0), osg::Vec4d(80.0, 60.0, 3.0, 2.0)}) {
            viewport.setViewport(area.x(), area.y(), area.z(), area.w());
            EXPECT_EQ(both.difference(), 0u) << area.z() << " x " << area.w() << " at " << distance;
        }
        viewport.setViewport(0.0, 0.0, 160.0, 120.0);
        both.window().setLevelOfDetail(1e-9f);
        camera.setProjectionMatrix(camera.getProjectionMatrix() * osg::Matrixd::scale(-1.0, 1.0, 1.0));
        EXPECT_LE(both.difference(), 50u) << "mirrored, at " << distance;
    }
    /// Leaves a program of which the scene graph knows nothing.
    class Enlarge : public osg::Camera::DrawCallback
    {
        void operator()(osg::RenderInfo& renderInfo) const override
        {
            osg::State& state = *renderInfo.getState();
            m_program->apply(state);
            state.setLastAppliedProgramObject(nullptr);
        }
        osg::ref_ptr<osg::Program> m_program = enlargingProgram();
    };
    Both both(std::string(KR_SAMPLES "/industrial_arm.urdf"));
    stepBack(both.window(), 2.0);
    both.window().getViewer()->getCamera()->addInitialDrawCallback(new Enlarge);
    EXPECT_EQ(both.difference(), 0u) << "a program";
}

// Each keeps what it is drawn with from one frame to the next.
TEST(KrDirectDrawing, DrawsTwoLightModelsInSteadyFrames)
{
    Both both(std::string(KR_SAMPLES "/dual_arm_base.xml"));
    KrRenderWindow& window = both.window();
    window.setViewerAttribute(KrSGWindow::CullBackFaces, true);
    const osg::ref_ptr<osg::Group> group = wrapManipulator(window);
    ASSERT_NE(group, nullptr);
    const osg::ref_ptr<osg::LightModel> model = new osg::LightModel;
    const auto numAllocations = [&] {
        EXPECT_EQ(both.difference(), 0u);
        std::size_t count = 0;
        for (int frame = 0; frame < 10; ++frame) {
            const Allocations before = Allocations::now();
            EXPECT_TRUE(window.renderScene(true));
            count = (Allocations::now() - before).withNew;
        }
        return count;
    };
    const std::size_t numWithOne = numAllocations();
    model->setTwoSided(true);
    model->setAmbientIntensity(osg::Vec4(0.9f, 0.1f, 0.1f, 1.0f));
    group->getOrCreateStateSet()->setAttribute(model);
    giveMaterial(*group->getChild(0), {1.0f, 0.0f, 0.0f, 1.0f}, kOverride);
    EXPECT_LE(numAllocations(), numWithOne + 4) << "the group's own places in the render graph";
    // As many as one likes, one after the other.
    for (int i = 0; i < 12; ++i) {
        model->setAmbientIntensity(osg::Vec4(0.1f * static_cast<float>(i), 0.1f, 0.1f, 1.0f));
        EXPECT_EQ(both.difference(), 0u) << "light " << i;
    }
}

// Without the number of a group's attributes and modes telling.
TEST(KrDirectDrawing, SeesWhatAClientExchanges)
{
    Both both(std::string(KR_SAMPLES "/textured_rover.xml"));
    ASSERT_EQ(both.difference(), 0u);
    osg::Node& scene = *both.window().getNode();
    const osg::ref_ptr<osg::Image> black = new osg::Image;
    black->allocateImage(4, 4, 1, GL_RGB, GL_UNSIGNED_BYTE);
    std::fill_n(black->data(), black->getTotalSizeInBytes(), static_cast<unsigned char>(0));
    const osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D(black);
    unsigned int numTextures = 0;
    changeStates(scene, [&](osg::StateSet& states) {
        if (states.getTextureAttribute(0, osg::StateAttribute::TEXTURE) != nullptr) {
            states.setTextureAttribute(0, texture);
            ++numTextures;
        }
    });
    EXPECT_GT(numTextures, 0u);
    EXPECT_EQ(both.difference(), 0u) << "textures";
    changeStates(scene, [&](osg::StateSet& states) {
        if (states.getTextureAttribute(0, osg::StateAttribute::TEXTURE) != nullptr) {
            states.setTextureMode(0, GL_TEXTURE_2D, osg::StateAttribute::OFF);
        }
    });
    EXPECT_EQ(both.difference(), 0u) << "texture modes";
}

// A mesh without texture coordinates behind one that has some.
TEST(KrDirectDrawing, KeepsTexturesBesideWhatHasNone)
{
    Both both(std::string(KR_SAMPLES "/textured_rover.xml"));
    KrIndividualManipulator post("post");
    const auto sail = boost::make_shared<KrTriPhysicalExtent>();
    KrXmlVectorVector corners;
    corners.push_back({0.0, 0.0, 0.0});
    corners.push_back({0.1, 0.0, 0.0});
    corners.push_back({0.0, 0.0, 2.0});
    const std::vector<KrTriangle> triangles = {KrTriangle(0, 1, 2)};
    const KrTriPhysicalExtent::Group group(std::string("sail"), KrXmlVectorType<KrTriangle>(triangles));
    ASSERT_TRUE(sail->setMesh(corners, {}, {}, KrXmlVectorType<KrTriPhysicalExtent::Group>({group})));
    post.addShape(sail);
    KrManipulatorSystem robots = both.system.manipulatorSystem();
    KrManipulatorSystemState state = both.system.systemState();
    robots.manipulators().push_back(post);
    state.positionStates().push_back(KrPositionState());
    both.system = KrStatedSystem(robots);
    both.system.setSystemState(state);
    std::string reason;
    ASSERT_TRUE(both.scene.show(both.system, reason)) << reason;
    EXPECT_EQ(both.difference(), 0u);
    EXPECT_FALSE(both.isEmpty);
}

// More vertices than 16 bits number, and more triangles than are looked through at once.
TEST(KrDirectDrawing, DrawsLargeMeshes)
{
    Both both(ponds(1));
    for (const bool areBacksShown : {true, false}) {
        both.window().setViewerAttribute(KrSGWindow::CullBackFaces, !areBacksShown);
        EXPECT_EQ(both.difference(), 0u) << "backs shown: " << areBacksShown;
    }
    EXPECT_FALSE(both.isEmpty);
}

// So many small triangles that those behind others are left out, unless they show all the same.
TEST(KrDirectDrawing, ShowsWhatIsBehindManyTriangles)
{
    const KrStatedSystem system = ponds(4);
    Both both(system);
    for (const bool areBacksShown : {true, false}) {
        both.window().setViewerAttribute(KrSGWindow::CullBackFaces, !areBacksShown);
        EXPECT_EQ(both.difference(), 0u) << "backs shown: " << areBacksShown;
    }
    EXPECT_FALSE(both.isEmpty);
    osg::StateSet& above = *both.window().getNode()->getOrCreateStateSet();
    for (const osg::ref_ptr<osg::StateAttribute>& attribute : attributesThatLetThrough()) {
        above.setAttributeAndModes(attribute);
        EXPECT_EQ(both.difference(), 0u) << attribute->className() << " above";
        above.removeAttribute(attribute);
        above.removeAssociatedModes(attribute);
    }
    for (const osg::ref_ptr<osg::StateAttribute>& attribute : attributesThatLetThrough()) {
        // Before the first frame: robots whose looks change later are drawn by the graph.
        Both changed(system);
        unsigned int number = 0;
        forEachDrawable(*changed.window().getNode(), [&](osg::Drawable& drawable) {
            if (drawable.getStateSet() != nullptr && ++number % 2 == 0) {
                drawable.setStateSet(new osg::StateSet(*drawable.getStateSet()));
                drawable.getStateSet()->setAttributeAndModes(attribute);
            }
        });
        EXPECT_EQ(changed.difference(), 0u) << attribute->className() << " of every other";
    }
}

// From afar, where most of a robot's pixels are at its rims.
TEST(KrDirectDrawing, ShowsLittleOfWhatLevelsErr)
{
    Both both(std::string(KR_SAMPLES "/dual_arm_base.xml"));
    KrRenderWindow& window = both.window();
    window.setWindowSize(640, 480);
    KrPovParameters pov = window.getPovParameters();
    const KrVector towardsEye = pov.eyepoint() - pov.centerOfInterest();
    std::size_t numSeen = 0;
    for (const double part : {1.0, 2.5, 6.0}) {
        pov.setEyepoint(pov.centerOfInterest() + towardsEye * part);
        window.setPovParameters(pov);
        KrImage colors[2];
        KrImage depths;
        for (const bool isExact : {false, true}) {
            window.setLevelOfDetail(isExact ? 0.0f : 0.5f);
            ASSERT_TRUE(window.renderSceneAndCaptureImage(colors[isExact ? 1 : 0], KrSGWindow::CaptureColor));
        }
        ASSERT_TRUE(window.renderSceneAndCaptureImage(depths, KrSGWindow::CaptureDepth));
        std::size_t numCovered = 0;
        std::size_t numOff = 0;
        for (std::size_t pixel = 0; pixel < std::size_t(640) * 480; ++pixel) {
            const unsigned char* const a = colors[0].data() + 3 * pixel;
            const unsigned char* const b = colors[1].data() + 3 * pixel;
            numCovered += std::equal(b, b + 3, colors[1].data()) ? 0 : 1;
            const auto isFar = [](unsigned char x, unsigned char y) { return std::abs(int(x) - int(y)) > 16; };
            numOff += isFar(a[0], b[0]) || isFar(a[1], b[1]) || isFar(a[2], b[2]) ? 1 : 0;
        }
        EXPECT_LT(numOff, 0.005 * numCovered) << "at " << part << " times the distance";
        numSeen += numOff;
    }
    EXPECT_GT(numSeen, 0u) << "coarser levels were drawn";
}

namespace
{

/// What a context really has, and how often it was called.
struct Fences
{
    decltype(osg::GLExtensions::glFenceSync) make;
    decltype(osg::GLExtensions::glClientWaitSync) wait;
    decltype(osg::GLExtensions::glDeleteSync) remove;
    std::size_t numMade = 0;
    std::size_t numWaited = 0;  ///< to the end
    std::set<GLsync> left = {}; ///< of those made since
} fences;

} // namespace

// What such a driver has not drawn yet is all in memory: several hundred bytes a triangle.
TEST(KrDirectDrawing, WaitsForADriverThatDrawsWithTheProcessor)
{
    Both both(std::string(KR_SAMPLES "/dual_arm_base.xml"));
    if (!both.window().report().isSoftware) {
        GTEST_SKIP() << "a graphics card draws";
    }
    both.window().setDirectDrawing(true);
    ASSERT_TRUE(both.window().renderScene(true));
    const osg::ref_ptr<osg::GLExtensions> extensions =
        both.window().getViewer()->getCamera()->getGraphicsContext()->getState()->get<osg::GLExtensions>();
    osg::GLExtensions& gl = *extensions;
    fences = {gl.glFenceSync, gl.glClientWaitSync, gl.glDeleteSync};
    gl.glFenceSync = [](GLenum condition, GLbitfield flags) {
        ++fences.numMade;
        return *fences.left.insert(fences.make(condition, flags)).first;
    };
    gl.glClientWaitSync = [](GLsync sync, GLbitfield flags, GLuint64 timeout) {
        const GLenum result = fences.wait(sync, flags, timeout);
        fences.numWaited += result == GL_ALREADY_SIGNALED || result == GL_CONDITION_SATISFIED ? 1 : 0;
        return result;
    };
    gl.glDeleteSync = [](GLsync sync) {
        fences.left.erase(sync);
        fences.remove(sync);
    };
    constexpr std::size_t kMost = KrDrawPace::kMostPortions;
    for (unsigned int frame = 0; frame < 1000 && fences.numMade < 3 * kMost; ++frame) {
        ASSERT_TRUE(both.window().renderScene(true));
    }
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    EXPECT_GE(fences.numMade, 3 * kMost);
    EXPECT_GE(fences.numWaited + kMost, fences.numMade);
    EXPECT_LE(fences.left.size(), kMost);
    EXPECT_TRUE(both.window().closeWindow());
    EXPECT_TRUE(fences.left.empty()) << "in a context that may be a client's";
    gl.glFenceSync = fences.make;
    gl.glClientWaitSync = fences.wait;
    gl.glDeleteSync = fences.remove;
}

// Buffers belong to a context, and a view holds what it drew last.
TEST_P(KrDirectDrawingByHint, OutlivesScenesAndWindows)
{
    // What is moved out of a window that closes is released in a context that is gone. The scene graph keeps vertex
    // array objects for it until the process ends, and then needs what has been destroyed before them.
    struct Discard
    {
        ~Discard()
        {
            for (unsigned int id = 0; id < osg::DisplaySettings::instance()->getMaxNumberOfGraphicsContexts(); ++id) {
                if (osg::ContextData* const context = osg::getContextData(id)) {
                    context->discardAllGLObjects();
                }
            }
        }
    } discard;
    Both rover(std::string(KR_SAMPLES "/textured_rover.xml"));
    Both arm(std::string(KR_SAMPLES "/industrial_arm.urdf"));
    KrRenderWindow& window = rover.window();
    std::string reason;
    for (const bool isClosed : {true, false}) {
        EXPECT_TRUE(window.renderScene(true));
        window.setLevelOfDetail(0.5f); // everything in new buffers
        EXPECT_TRUE(window.renderScene(true));
        ASSERT_TRUE(rover.scene.show(arm.system, reason)) << reason;
        if (isClosed) {
            EXPECT_TRUE(window.closeWindow());
        }
        EXPECT_TRUE(window.renderScene(true));
        window.setLevelOfDetail(0.0f);
        ASSERT_TRUE(rover.scene.show(rover.system, reason)) << reason;
        EXPECT_EQ(rover.difference(), 0u);
    }
    const osg::ref_ptr<osg::Group> held = wrapManipulator(window);
    ASSERT_EQ(rover.difference(), 0u);
    window.getNode()->removeChild(held);
    EXPECT_TRUE(window.closeWindow());
    arm.window().getNode()->addChild(held);
    EXPECT_EQ(arm.difference(), 0u) << "in another window";
}

INSTANTIATE_TEST_SUITE_P(All, KrDirectDrawingByHint,
                         testing::Values(osg::DisplaySettings::NO_PREFERENCE,
                                         osg::DisplaySettings::VERTEX_BUFFER_OBJECT,
                                         osg::DisplaySettings::VERTEX_ARRAY_OBJECT));
INSTANTIATE_TEST_SUITE_P(All, KrDirectDrawingOfFiles, testing::ValuesIn(files()), nameOf);
