#include <picture/KrPictureScene.h>
#include <rendCore/capture/KrFrameDescription.h>
#include <rendCore/model/KrRenderLink.h>
#include <rendCore/model/KrRenderShape.h>

#include <tests/support/DrawableFiles.h>

#include <GL/gl.h>
#include <gtest/gtest.h>

#include <osg/BoundingSphere>
#include <osg/Geode>
#include <osg/NodeVisitor>
#include <osgViewer/Viewer>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace
{

namespace fs = std::filesystem;
constexpr unsigned int kWidth = 320;
constexpr unsigned int kHeight = 240;
constexpr std::size_t kCount = std::size_t(kWidth) * kHeight;

/// Every robot and system at hand: the samples, and real ones where they lie beside the project.
std::vector<std::string> files()
{
    return DrawableFiles::all(KR_SAMPLES, KR_ROBOTS);
}

struct Images
{
    std::vector<unsigned char> color = std::vector<unsigned char>(3 * kCount);
    std::vector<float> depth = std::vector<float>(kCount);
    std::vector<std::uint32_t> labels = std::vector<std::uint32_t>(kCount);
    std::vector<float> normals = std::vector<float>(3 * kCount);

    KrFrameCapture::Targets targets()
    {
        return {kWidth, kHeight, color.data(), depth.data(), labels.data(), normals.data()};
    }
};

/// A system and a scene that shows it.
class Shown
{
public:
    explicit Shown(const std::string& file, unsigned int samples = 1)
    {
        EXPECT_TRUE(DrawableFiles::read(file, system));
        std::string reason;
        EXPECT_TRUE(scene.open(kWidth, kHeight, samples, reason) && scene.show(system, reason)) << reason;
    }
    Images draw(const KrFrameCapture::Options& options = {})
    {
        Images images;
        std::string reason;
        EXPECT_TRUE(scene.draw(system.systemState(), options, images.targets(), reason)) << reason;
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        return images;
    }

    KrStatedSystem system;
    KrPictureScene scene;
};

/// Bytes of a picture, the top row first, and of an ordinary capture, that differ.
std::size_t numDifferent(const std::vector<unsigned char>& a, const KrImage& b)
{
    const std::size_t row = std::size_t(3) * kWidth;
    std::size_t count = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        count += a[i] != b.data()[(kHeight - 1 - i / row) * row + i % row] ? 1 : 0;
    }
    return count;
}

/// Takes shapes out of the picture and puts them back.
class ShapeMasks : public osg::NodeVisitor
{
public:
    /// The links' shapes hang under the manipulators' roots.
    static void showOnly(osg::Group& scene, const KrLabelTable::Part& part)
    {
        ShapeMasks visitor(part);
        scene.accept(visitor);
    }
    using osg::NodeVisitor::apply;
    void apply(osg::Geode& geode) override
    {
        auto* const shape = dynamic_cast<KrRenderShape*>(&geode);
        const KrRenderLink* link = nullptr;
        for (osg::Node* const node : getNodePath()) {
            link = dynamic_cast<KrRenderLink*>(node) ? static_cast<KrRenderLink*>(node) : link;
        }
        if (!shape || !link) {
            return;
        }
        const unsigned int index =
            link->getJointIndex() == KrRenderLink::kBaseJointIndex ? 0 : link->getJointIndex() + 1;
        const bool isShown = link->getManIndex() == m_part.manipulatorIndex && index == m_part.linkIndex &&
                             link->shapeIndexOf(*shape) == m_part.shapeIndex;
        // A shared one is shown where it is wanted, too.
        m_shown = isShown ? shape : m_shown;
        shape->setNodeMask(shape == m_shown ? KrRenderTypes::SceneContent : 0u);
    }

private:
    explicit ShapeMasks(const KrLabelTable::Part& part)
        : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN)
        , m_part(part)
    {
        setNodeMaskOverride(~0u);
    }

    const KrLabelTable::Part& m_part;
    const KrRenderShape* m_shown = nullptr;
};

/// What is told of one pixel by several images does not contradict itself.
void expectConsistent(Shown& shown, const Images& images)
{
    const std::uint32_t size = KrLabelTable(shown.system.manipulatorSystem(), KrLabelTable::Level::Link).size();
    // From a pixel's centre to the eye, optical axes.
    osg::Matrixd projection = shown.scene.window().getViewer()->getCamera()->getProjectionMatrix();
    std::size_t numWrong = 0;
    std::size_t numAverted = 0;
    for (std::size_t i = 0; i < kCount; ++i) {
        const bool isCovered = std::isfinite(images.depth[i]);
        const float* const n = images.normals.data() + 3 * i;
        const double length = std::sqrt(double(n[0]) * n[0] + double(n[1]) * n[1] + double(n[2]) * n[2]);
        numWrong += isCovered != (images.labels[i] != 0) || images.labels[i] > size ||
                    std::abs(length - (isCovered ? 1.0 : 0.0)) > 1e-5;
        const double x = (2.0 * (double(i % kWidth) + 0.5) / kWidth - 1.0) / projection(0, 0);
        const double y = (2.0 * (double(i / kWidth) + 0.5) / kHeight - 1.0) / projection(1, 1);
        numAverted += n[0] * x + n[1] * y + n[2] > 1e-4;
    }
    EXPECT_EQ(numWrong, 0u);
    EXPECT_EQ(numAverted, 0u);
}

/// The pixels with a depth are those of a capture of depths alone.
std::size_t numOutsideOf(const Images& images, const std::vector<float>& depth)
{
    std::size_t count = 0;
    for (std::size_t i = 0; i < kCount; ++i) {
        count += std::isfinite(images.depth[i]) != std::isfinite(depth[i]);
    }
    return count;
}

/// The triangles of a scene as they stand, for rays.
class Triangles : public osg::NodeVisitor
{
public:
    struct Body
    {
        std::string link;
        std::vector<osg::Vec3d> corners; ///< world frame
        osg::BoundingSphered sphere;
    };
    struct Hit
    {
        const Body* body = nullptr;
        double distance = std::numeric_limits<double>::infinity();
    };

    Triangles()
        : osg::NodeVisitor(TRAVERSE_ACTIVE_CHILDREN)
    {
        setTraversalMask(KrRenderTypes::SceneContent);
    }
    using osg::NodeVisitor::apply;
    void apply(osg::Drawable& drawable) override
    {
        const auto* const geometry = drawable.asGeometry();
        const KrRenderLink* link = nullptr;
        for (osg::Node* const node : getNodePath()) {
            link = dynamic_cast<KrRenderLink*>(node) ? static_cast<KrRenderLink*>(node) : link;
        }
        if (!geometry || !link) {
            return;
        }
        const osg::Matrixd toWorld = osg::computeLocalToWorld(getNodePath());
        Body body;
        body.link = link->getLink()->name();
        for (const osg::Vec3& corner : *static_cast<const osg::Vec3Array*>(geometry->getVertexArray())) {
            body.corners.push_back(osg::Vec3d(corner) * toWorld);
            body.sphere.expandBy(body.corners.back());
        }
        bodies.push_back(body);
    }
    /// By Moeller and Trumbore's formula.
    Hit cast(const osg::Vec3d& eye, const osg::Vec3d& ray) const
    {
        Hit nearest;
        for (const Body& body : bodies) {
            if (((body.sphere.center() - eye) ^ ray).length() > body.sphere.radius() * 1.0001) {
                continue;
            }
            for (std::size_t i = 0; i + 2 < body.corners.size(); i += 3) {
                const osg::Vec3d a = body.corners[i + 1] - body.corners[i];
                const osg::Vec3d b = body.corners[i + 2] - body.corners[i];
                const osg::Vec3d p = ray ^ b;
                const double determinant = a * p;
                const osg::Vec3d t = eye - body.corners[i];
                const double u = t * p / determinant;
                const osg::Vec3d q = t ^ a;
                const double v = ray * q / determinant;
                const double distance = b * q / determinant;
                if (u >= 0.0 && v >= 0.0 && u + v <= 1.0 && distance > 0.0 && distance < nearest.distance) {
                    nearest = {&body, distance};
                }
            }
        }
        return nearest;
    }

    std::vector<Body> bodies;
};

} // namespace

TEST(KrFrameKinds, AgreeInEveryPixelWithEachOtherAndWithTheCapturesOfOneKind)
{
    for (const std::string& file : files()) {
        SCOPED_TRACE(file);
        Shown shown(file);
        const Images images = shown.draw();
        expectConsistent(shown, images);
        std::string reason;
        KrImage color;
        ASSERT_TRUE(shown.scene.draw(shown.system.systemState(), color, reason)) << reason;
        EXPECT_EQ(numDifferent(images.color, color), 0u);

        std::vector<float> depth;
        KrDepthCapture::Options options;
        options.rowOrder = KrDepthCapture::RowOrder::TopRowFirst;
        ASSERT_TRUE(shown.scene.drawDepth(shown.system.systemState(), options, depth, reason)) << reason;
        EXPECT_EQ(numOutsideOf(images, depth), 0u);
        std::size_t numOff = 0;
        for (std::size_t i = 0; i < kCount; ++i) {
            numOff += std::isfinite(depth[i]) && std::abs(double(depth[i]) - double(images.depth[i])) >
                                                     2.0 * shown.scene.depthErrorBound(double(depth[i]));
        }
        // At a body's rim the two may see a front and a back, and steep surfaces differ where a corner falls to another
        // step of the raster.
        EXPECT_LE(numOff, kCount / 500);

        // A shape belongs to its link, and a link to its manipulator.
        KrFrameCapture::Options byShape;
        byShape.labelLevel = KrLabelTable::Level::Shape;
        byShape.normalFrame = KrFrameCapture::NormalFrame::World;
        KrFrameCapture::Options byManipulator;
        byManipulator.labelLevel = KrLabelTable::Level::Manipulator;
        const Images shapes = shown.draw(byShape);
        const Images manipulators = shown.draw(byManipulator);
        const KrLabelTable table(shown.system.manipulatorSystem(), KrLabelTable::Level::Shape);
        const KrLabelTable links(shown.system.manipulatorSystem(), KrLabelTable::Level::Link);
        const osg::Matrixd view = shown.scene.window().getViewer()->getCamera()->getViewMatrix();
        std::size_t numWrong = 0;
        for (std::size_t i = 0; i < kCount; ++i) {
            if ((shapes.labels[i] == 0) != (images.labels[i] == 0)) {
                ++numWrong;
                continue;
            }
            if (images.labels[i] == 0) {
                continue;
            }
            const KrLabelTable::Part& part = table.part(shapes.labels[i]);
            const KrLabelTable::Part& link = links.part(images.labels[i]);
            const float* const world = shapes.normals.data() + 3 * i;
            const osg::Vec3d eye = osg::Matrixd::transform3x3(osg::Vec3d(world[0], world[1], world[2]), view);
            const float* const optical = images.normals.data() + 3 * i;
            numWrong += part.link != link.link || part.manipulatorIndex != link.manipulatorIndex ||
                        manipulators.labels[i] != part.manipulatorIndex + 1 ||
                        (eye - osg::Vec3d(optical[0], -optical[1], -optical[2])).length() > 1e-5;
        }
        EXPECT_EQ(numWrong, 0u);
    }
}

// What the passes behind a frame set in the driver and in the scene graph's memory of it changes no picture.
TEST(KrFrameKinds, LeaveTheNextColoursAsTheyWouldBe)
{
    for (const std::string& file : files()) {
        for (const bool isDirect : {true, false}) {
            SCOPED_TRACE(file + (isDirect ? ", direct" : ""));
            Shown shown(file);
            KrRenderWindow& window = shown.scene.window();
            window.setDirectDrawing(isDirect);
            window.setLevelOfDetail(1.0f);
            std::string reason;
            const auto draw = [&] {
                KrImage color;
                EXPECT_TRUE(shown.scene.draw(shown.system.systemState(), color, reason)) << reason;
                EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
                return std::vector<unsigned char>(color.data(), color.data() + color.sizeInBytes());
            };
            for (const bool isLit : {true, false}) {
                window.setViewerAttribute(KrSGWindow::Lighting, isLit);
                const std::vector<unsigned char> before = draw();
                KrFrameCapture::Options options;
                Images images;
                for (const bool hasNormals : {false, true}) {
                    KrFrameCapture::Targets targets = images.targets();
                    targets.color = nullptr;
                    targets.normals = hasNormals ? targets.normals : nullptr;
                    ASSERT_TRUE(shown.scene.draw(shown.system.systemState(), options, targets, reason)) << reason;
                    EXPECT_TRUE(before == draw()) << "behind labels";
                }
                KrAmodalMasks masks;
                ASSERT_TRUE(
                    shown.scene.drawAmodal(shown.system.systemState(), KrLabelTable::Level::Link, masks, reason));
                EXPECT_TRUE(before == draw()) << "behind parts alone";
                std::optional<KrFrameCapture::Pick> pick;
                ASSERT_TRUE(shown.scene.pick(shown.system.systemState(), kWidth / 2, kHeight / 2, pick, reason));
                EXPECT_TRUE(before == draw()) << "behind a pick";
                shown.draw();
                EXPECT_TRUE(before == draw()) << "behind all kinds";
            }
        }
    }
}

// What is faded, drawn as lines, or simplified has labels where it has depths.
TEST(KrFrameKinds, AgreeInEveryWayOfDrawing)
{
    for (const char* const sample : {"/industrial_arm.urdf", "/dual_arm_base.xml", "/hose.xml"}) {
        SCOPED_TRACE(sample);
        Shown shown(std::string(KR_SAMPLES) + sample);
        KrRenderWindow& window = shown.scene.window();
        const std::function<void()> ways[] = {
            [&] {
                EXPECT_TRUE(shown.system.selectShape(KrShapeStateCacheKey(0, 0, 0)));
                EXPECT_TRUE(shown.system.setTransparency(0.3));
            },
            [&] { window.setViewerAttribute(KrSGWindow::Lighting, false); },
            [&] { shown.system.clearSelection(); },
            [&] { window.setViewerAttribute(KrSGWindow::Wireframe, true); },
            [&] {
                window.setViewerAttribute(KrSGWindow::Wireframe | KrSGWindow::Lighting, false);
                window.setViewerAttribute(KrSGWindow::Lighting | KrSGWindow::CullBackFaces, true);
            },
            [&] { window.setLevelOfDetail(2.0f); },
            [&] { window.setDirectDrawing(false); },
        };
        int way = 0;
        for (const auto& change : ways) {
            SCOPED_TRACE(way++);
            change();
            const Images images = shown.draw();
            expectConsistent(shown, images);
            std::string reason;
            std::vector<float> depth;
            KrDepthCapture::Options options;
            options.rowOrder = KrDepthCapture::RowOrder::TopRowFirst;
            ASSERT_TRUE(shown.scene.drawDepth(shown.system.systemState(), options, depth, reason)) << reason;
            EXPECT_EQ(numOutsideOf(images, depth), 0u);
        }
    }
}

TEST(KrFrameKinds, APickIsWhatARayMeets)
{
    Shown shown(KR_SAMPLES "/industrial_arm.urdf");
    KrFrameCapture::Options options;
    options.depthKind = KrDepthCapture::Kind::Euclidean;
    const Images images = shown.draw(options);
    const KrLabelTable table(shown.system.manipulatorSystem(), KrLabelTable::Level::Link);
    Triangles triangles;
    shown.scene.window().getNode()->accept(triangles);
    const osg::Camera& camera = *shown.scene.window().getViewer()->getCamera();
    const osg::Matrixd toWorld = osg::Matrixd::inverse(camera.getViewMatrix());
    const osg::Vec3d eye = toWorld.getTrans();
    std::minstd_rand random(1);
    std::size_t numEdges = 0;
    std::size_t numHits = 0;
    for (int k = 0; k < 10000; ++k) {
        const unsigned int x = static_cast<unsigned int>(random() % kWidth);
        const unsigned int y = static_cast<unsigned int>(random() % kHeight);
        const osg::Matrixd& projection = camera.getProjectionMatrix();
        osg::Vec3d ray =
            osg::Matrixd::transform3x3(osg::Vec3d((2.0 * (x + 0.5) / kWidth - 1.0) / projection(0, 0),
                                                  (1.0 - 2.0 * (y + 0.5) / kHeight) / projection(1, 1), -1.0),
                                       toWorld);
        ray.normalize();
        const Triangles::Hit hit = triangles.cast(eye, ray);
        const std::size_t i = std::size_t(y) * kWidth + x;
        const std::string link = images.labels[i] == 0 ? "" : table.part(images.labels[i]).link;
        const bool isSame = (hit.body ? hit.body->link : "") == link &&
                            (!hit.body || std::abs(hit.distance - double(images.depth[i])) < 1e-3);
        numEdges += !isSame;
        numHits += hit.body != nullptr;
        if (k % 100 != 0) {
            continue;
        }
        // The images are those of the pass that picks.
        std::optional<KrFrameCapture::Pick> pick;
        std::string reason;
        ASSERT_TRUE(shown.scene.pick(shown.system.systemState(), x, y, pick, reason)) << reason;
        ASSERT_EQ(pick.has_value(), images.labels[i] != 0);
        if (!pick || !isSame) {
            continue;
        }
        EXPECT_EQ(pick->part.link, link);
        EXPECT_NEAR(pick->distance, hit.distance, 1e-3);
        const osg::Vec3d point = eye + ray * hit.distance;
        EXPECT_NEAR((osg::Vec3d(pick->point.x(), pick->point.y(), pick->point.z()) - point).length(), 0.0, 1e-3);
        KrCoordinateSystemTransformation pose;
        ASSERT_TRUE(shown.system.manipulatorSystem().manipulators()[0].linkPose(
            link, shown.system.systemState().positionStates()[0], pose));
        const KrVector back = pose.transformPoint(pick->pointInLink);
        EXPECT_NEAR((back - pick->point).length(), 0.0, 1e-6);
        EXPECT_LT(osg::Vec3d(pick->normal.x(), pick->normal.y(), pick->normal.z()) * ray, 1e-4);
    }
    EXPECT_GT(numHits, 1000u);
    // A ray beside a silhouette, and one through the gap between two triangles.
    EXPECT_LT(numEdges, 60u) << "of 10000";
    std::printf("edge pixels: %zu of 10000, %zu hits\n", numEdges, numHits);
}

TEST(KrFrameKinds, PartsAloneAreWhatIsSeenOfThemWithoutTheOthers)
{
    for (const char* const sample : {"/industrial_arm.urdf", "/dual_arm_base.xml"}) {
        SCOPED_TRACE(sample);
        Shown shown(std::string(KR_SAMPLES) + sample);
        const KrManipulatorSystemState& state = shown.system.systemState();
        KrFrameCapture::Options options;
        options.labelLevel = KrLabelTable::Level::Shape;
        const Images all = shown.draw(options);
        KrAmodalMasks masks;
        std::string reason;
        ASSERT_TRUE(shown.scene.drawAmodal(state, options.labelLevel, masks, reason)) << reason;
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        const KrLabelTable table(shown.system.manipulatorSystem(), options.labelLevel);
        ASSERT_EQ(masks.numLabels(), table.size());
        std::size_t numHidden = 0;
        for (std::uint32_t label = 1; label <= table.size(); ++label) {
            // All shapes but one are taken away: those of the scene have their part's node.
            ShapeMasks::showOnly(*shown.scene.window().getNode(), table.part(label));
            const Images alone = shown.draw(options);
            std::vector<unsigned char> mask(kCount);
            masks.mask(label, mask.data());
            std::size_t numWrong = 0;
            std::uint64_t count = 0;
            for (unsigned int i = 0; i < kCount; ++i) {
                // A shape of several links stands in several places, of which one may hide another.
                if (alone.labels[i] != 0 && alone.labels[i] != label) {
                    count += mask[i] == 255;
                    continue;
                }
                const bool isThere = alone.labels[i] == label;
                numWrong += isThere != (mask[i] == 255) || isThere != masks.covers(label, i % kWidth, i / kWidth) ||
                            (all.labels[i] == label && !isThere);
                count += isThere;
                numHidden += isThere && all.labels[i] != label;
            }
            EXPECT_EQ(numWrong, 0u) << label;
            EXPECT_EQ(masks.numPixels(label), count) << label;
        }
        EXPECT_GT(numHidden, 100u);
    }
}

TEST(KrFrameKinds, ArePixelForPixelTheSameHoweverLargeColoursAreDrawn)
{
    // Nothing of this sample is simplified: its surfaces are the same at every size.
    const std::string file = KR_SAMPLES "/industrial_arm.urdf";
    Shown one(file, 1);
    Shown nine(file, 9);
    ASSERT_EQ(nine.scene.factor(), 3u);
    const Images single = one.draw();
    const Images reduced = nine.draw();
    std::size_t numOther = 0;
    for (std::size_t i = 0; i < kCount; ++i) {
        numOther += single.labels[i] != reduced.labels[i] || std::isfinite(single.depth[i]) != (reduced.labels[i] != 0);
    }
    // Edges may fall to the other side by rounding.
    EXPECT_LT(numOther, kCount / 5000);

    KrAmodalMasks masks[2];
    std::optional<KrFrameCapture::Pick> picks[2];
    Shown* const shown[2] = {&one, &nine};
    for (int i = 0; i < 2; ++i) {
        std::string reason;
        const KrManipulatorSystemState& state = shown[i]->system.systemState();
        ASSERT_TRUE(shown[i]->scene.drawAmodal(state, KrLabelTable::Level::Link, masks[i], reason)) << reason;
        ASSERT_TRUE(shown[i]->scene.pick(state, 90, 130, picks[i], reason)) << reason;
        ASSERT_TRUE(picks[i]);
    }
    EXPECT_NEAR(double(masks[0].numPixels(1)), double(masks[1].numPixels(1)), 3.0);
    EXPECT_EQ(picks[0]->part.link, picks[1]->part.link);
    EXPECT_NEAR(picks[0]->distance, picks[1]->distance, 1e-4);
}

TEST(KrFrameKinds, AFrameWithoutColoursIsDescribedByItsOwnPlanes)
{
    Shown shown(KR_SAMPLES "/industrial_arm.urdf", 4);
    Images images = shown.draw();
    KrFrameDescription first;
    ASSERT_TRUE(shown.scene.describe(first));
    KrPovParameters pov = shown.scene.window().getPovParameters();
    pov.setEyepoint(pov.eyepoint() + (pov.eyepoint() - pov.centerOfInterest()));
    shown.scene.window().setPovParameters(pov);
    std::string reason;
    KrFrameCapture::Targets targets = images.targets();
    KrFrameDescription described[2];
    for (unsigned char* const color : {static_cast<unsigned char*>(nullptr), images.color.data()}) {
        targets.color = color;
        ASSERT_TRUE(shown.scene.draw(shown.system.systemState(), {}, targets, reason)) << reason;
        ASSERT_TRUE(shown.scene.describe(described[color ? 1 : 0]));
    }
    EXPECT_GT(described[0].near, first.near + 1.0);
    EXPECT_NEAR(described[0].near, described[1].near, 1e-9);
    EXPECT_NEAR(described[0].far, described[1].far, 1e-9);
    // To the last digit, whatever was drawn before: the same frame as the first one of another scene.
    Shown other(KR_SAMPLES "/industrial_arm.urdf", 4);
    other.scene.window().setPovParameters(pov);
    targets.color = nullptr;
    KrFrameDescription alone;
    ASSERT_TRUE(other.scene.draw(other.system.systemState(), {}, targets, reason) && other.scene.describe(alone));
    EXPECT_EQ(alone.near, described[0].near);
    EXPECT_EQ(alone.far, described[0].far);
    EXPECT_EQ(described[0].width, kWidth);
    EXPECT_EQ(described[0].intrinsics->fx, described[1].intrinsics->fx);
}
