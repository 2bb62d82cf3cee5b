// What the classes' own self tests check: round trips and invariants here, and the scenes that each class draws.

#include <rendCore/aids/KrRenderAxis.h>
#include <rendCore/aids/KrRenderBoundingVolumes.h>
#include <rendCore/aids/KrRenderMassProperties.h>
#include <rendCore/aids/KrRenderMorphLink.h>
#include <rendCore/appearance/KrSGTexture.h>
#include <rendCore/base/KrMathRoutine.h>
#include <rendCore/base/KrTransformation.h>
#include <rendCore/capture/KrDepthCapture.h>
#include <rendCore/capture/KrFrameStream.h>
#include <rendCore/capture/KrRender2DSampleTool.h>
#include <rendCore/capture/KrRenderCaptureManager.h>
#include <rendCore/model/KrRenderDeformationShape.h>
#include <rendCore/model/KrRenderIntraLink.h>
#include <rendCore/model/KrRenderManipulator.h>
#include <rendCore/model/KrRenderSelection.h>
#include <rendCore/model/KrTextureMarker.h>
#include <rendCore/plume/KrRenderGridPhysicalExtent.h>
#include <rendCore/selftest/KrSelfTest.h>
#include <rendCore/system/KrMultiRenderWindow.h>
#include <rendCore/system/KrRenderWindow.h>
#include <rendCore/window/KrSGBaseInputHandler.h>

#include <toolkit/foundation/KrPrint.h>
#include <toolkit/math/KrAngle.h>
#include <toolkit/math/KrColor.h>
#include <toolkit/math/KrOrientation.h>

#include <osg/Geometry>
#include <osg/LightSource>
#include <osg/Texture1D>

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <string>
#include <vector>

namespace
{

/// Says the first thing that is wrong with a class, once.
class Check
{
public:
    explicit Check(const char* className)
        : m_className(className)
    {
    }
    /// `what` is what should be.
    Check& that(bool isTrue, const char* what)
    {
        if (!isTrue) {
            fail(std::string(what) + ": this is not so");
        }
        return *this;
    }
    /// Nothing is drawn once something is wrong.
    // Without a folder, so that no picture is written.
    Check& draws(std::initializer_list<const char*> scenes)
    {
        for (const char* const scene : scenes) {
            const KrSelfTest* const test = KrSelfTest::find(scene);
            const KrSelfTest::Result result = m_passed && test ? (*test)("") : KrSelfTest::Result();
            if (!result.passed) {
                fail("scene \"" + std::string(scene) + "\": " + result.message);
            }
        }
        return *this;
    }
    bool passed() const { return m_passed; }

private:
    void fail(const std::string& what)
    {
        // The first fault alone, as in KrSelfTestRun.
        if (m_passed) {
            Kr::Print::instance()->write(Kr::Print::Warning, "%s::selfTest - %s.\n", m_className, what.c_str());
        }
        m_passed = false;
    }

    const char* m_className;
    bool m_passed = true;
};

/// For numbers of about 1 that went through single precision at most once.
bool isNear(double a, double b)
{
    return std::fabs(a - b) <= 1e-6;
}

bool isNear(const osg::Vec3d& a, const osg::Vec3d& b)
{
    return (a - b).length() <= 1e-5; // cameras are turned in single precision
}

// The tolerance is the one of vectors, for the same reason.
bool isNear(const osg::Matrixd& a, const osg::Matrixd& b)
{
    for (int i = 0; i < 16; ++i) {
        if (std::fabs(a.ptr()[i] - b.ptr()[i]) > 1e-5) {
            return false;
        }
    }
    return true;
}

/// `size` x `size` doubles; the diagonal's places are size + 1 apart, whichever way the matrix is read.
bool isIdentity(const double* matrix, int size)
{
    for (int i = 0; i < size * size; ++i) {
        if (!isNear(matrix[i], i % (size + 1) == 0 ? 1.0 : 0.0)) {
            return false;
        }
    }
    return true;
}

/// Counts the link nodes below `group`, and whether they are numbered in the order in which they are met.
bool countLinks(const osg::Group& group, unsigned int& next)
{
    bool isInOrder = true;
    for (unsigned int i = 0; i < group.getNumChildren(); ++i) {
        const auto* const link = dynamic_cast<const KrRenderLink*>(group.getChild(i));
        // The base link has a reserved index and is not counted.
        if (link && link->getJointIndex() != KrRenderLink::kBaseJointIndex) {
            isInOrder = isInOrder && link->getJointIndex() == next;
            ++next;
        }
        // Pre-order: the link itself was counted before what hangs under it.
        if (const osg::Group* const child = group.getChild(i)->asGroup()) {
            isInOrder = countLinks(*child, next) && isInOrder;
        }
    }
    return isInOrder;
}

} // namespace

bool KrMathRoutine::selfTest() const
{
    const double a[3] = {1.0, 2.0, 3.0};
    const double b[3] = {-2.0, 0.5, 4.0};
    double cross[3] = {};
    vectorCross(a, b, cross);
    double sum[3] = {};
    vectorAdd(a, b, sum);
    // A sum and its difference are exact for these numbers, and compared so.
    double back[3] = {};
    vectorSub(sum, b, back);
    double unit[3] = {};
    vectorNormalization(a, unit);
    // Its determinant is 7: it has an inverse, and none of its elements lie symmetrically, so that a transpose shows.
    const double matrix[9] = {2.0, 1.0, 0.0, 0.0, 3.0, 1.0, 1.0, 0.0, 1.0};
    double inverse[9] = {};
    double product[9] = {};
    const bool hasInverse = matrixInv3(matrix, inverse) && matrixMultiply(matrix, 3, 3, inverse, 3, 3, product);
    double transpose[9] = {};
    double twice[9] = {};
    matrixTranspose(matrix, 3, 3, transpose);
    matrixTranspose(transpose, 3, 3, twice);
    float best = 0.0f;
    // Three points of a parabola give its vertex at once: the search ends where the formula says, not by luck.
    const auto parabola = [](float x) { return (x - 1.5f) * (x - 1.5f) + 2.0f; };
    // The middle of the bracket is lower than both ends, as the search asks.
    const float lowest = parabolicSearch(0.0f, 1.0f, 4.0f, parabola(0.0f), parabola(1.0f), parabola(4.0f), parabola,
                                         1e-3f, 0.0f, 4.0f, 50, &best);
    return Check("KrMathRoutine")
        // The first component is 2 * 4 - 3 * 0.5: right angles alone would let a wrong sign through.
        .that(isNear(vectorDot(cross, a), 0.0) && isNear(vectorDot(cross, b), 0.0) && isNear(cross[0], 6.5),
              "a cross product is at right angles to its operands")
        .that(std::equal(a, a + 3, back), "a sum less one operand is the other")
        .that(isNear(vectorNorm(unit), 1.0) && isNear(unit[0] * std::sqrt(14.0), 1.0), "a unit vector has length 1")
        .that(hasInverse && isIdentity(product, 3), "a matrix times its inverse is the identity")
        .that(isNear(transpose[1], 0.0) && isNear(transpose[3], 1.0) && std::equal(matrix, matrix + 9, twice),
              "a transpose transposed is the matrix")
        .that(std::fabs(lowest - 2.0f) < 1e-3f && std::fabs(best - 1.5f) < 1e-2f, "a parabola's minimum is found")
        // Halves go away from zero.
        .that(rndToLong(-2.5) == -3 && ifOdd(7) && !ifOdd(8), "numbers are rounded and told apart")
        .passed();
}

bool KrTransformation::selfTest() const
{
    // Kept: the translation is no part of an inverse (`KrTransformation::inverse`), so that it is set again below.
    const double turned[9] = {0, -1, 0, 1, 0, 0, 0, 0, 1}; // a quarter turn about z
    KrTransformation a;
    a.setRotation(turned);
    a.setTranslate(KrVector(1.0, 2.0, 3.0));
    KrTransformation back;
    a.inverse(back);
    KrTransformation twice;
    back.inverse(twice);
    twice.setTranslate(KrVector(1.0, 2.0, 3.0));
    float roll = 0.0f, pitch = 0.0f, yaw = 0.0f;
    a.getRotation(roll, pitch, yaw);
    // x twice too long, y leaning, z five times too long.
    KrTransformation skewed;
    // x along x, y in the x-y plane: the frame that Gram-Schmidt makes of these is the identity.
    skewed.setRotation(KrVector(2.0, 0.0, 0.0), KrVector(1.0, 3.0, 0.0), KrVector(0.0, 0.0, 5.0));
    double rotation[9] = {};
    const bool isMended = skewed.orthoNormal();
    skewed.getRotation(rotation);
    return Check("KrTransformation")
        .that(twice == a, "the inverse of the inverse is the transformation")
        .that(a * KrVector(1.0, 0.0, 0.0) == KrVector(1.0, 3.0, 3.0), "a point is turned and moved")
        .that(isNear(roll, 0.0) && isNear(pitch, 0.0) && std::fabs(yaw - 1.5707963f) < 1e-5f, "a yaw is read back")
        .that(isMended && isIdentity(rotation, 3), "skewed axes become a frame")
        .passed();
}

bool KrRenderTypes::selfTest()
{
    // The numbers come back exactly where nothing is normalised: what is compared with ==
    // passes through no arithmetic.
    const KrVector vector(1.5, -2.25, 1e-9);
    // A unit axis, (1, 2, -2) being 3 long: the quaternion is of length 1, and normalising it changes rounding only.
    const osg::Quat turn(0.3, osg::Vec3d(1.0, 2.0, -2.0) / 3.0);
    KrOrientation orientation;
    // This direction alone normalises.
    osg2ec(turn, orientation);
    const osg::Quat back = ec2osg(orientation);
    // Turned, then moved: row vectors are multiplied from the left.
    const osg::Matrixd matrix = osg::Matrixd::rotate(turn) * osg::Matrixd::translate(4.0, 5.0, 6.0);
    KrTransformation transformation;
    osg2ec(matrix, transformation);
    KrVector translation;
    transformation.getTranslate(translation);
    return Check("KrRenderTypes")
        .that(ec2osg(KrColor(0.1, 0.2, 0.3, 0.4)) == osg::Vec4d(0.1, 0.2, 0.3, 0.4), "a colour keeps its channels")
        .that(osg2ec(ec2osg(vector)) == vector, "a vector comes back as it was")
        .that((back.asVec4() - turn.asVec4()).length() < 1e-12, "an orientation comes back as it was")
        .that(ec2osg(transformation) == matrix && translation == KrVector(4.0, 5.0, 6.0),
              "a transformation comes back as it was")
        .passed();
}

bool KrLightProperties::selfTest() const
{
    KrLight spot;
    spot.setDiffuse(KrColor(0.25, 0.5, 0.75));
    // The toolkit's angles are radians, those of OpenGL degrees.
    spot.setSpotCutoff(0.25 * Kr::Angle::kPi);
    KrLightProperties lamp;
    // Not number 0, which is the root's own.
    lamp.setLightPara(spot, 1);
    const osg::ref_ptr<osg::LightSource> source = lamp.setGL();
    // Kept: `setGL` gives the light source the first time alone; the window adds what it gives to its scene.
    const bool isMadeOnce = source.valid() && lamp.setGL() == nullptr && source->getLight() == lamp.light();
    const KrLightProperties copy(lamp);
    return Check("KrLightProperties")
        .that(isMadeOnce, "one light source is made")
        .that(copy == lamp, "a copy is equal")
        .that(lamp.spotCutoff() == 45.0f, "a cone's angle is in degrees")
        .that(isMadeOnce && lamp.light()->getDiffuse() == osg::Vec4(0.25f, 0.5f, 0.75f, 1.0f),
              "the scene's light has the colour")
        .passed();
}

bool KrSGTexture::selfTest() const
{
    KrImage picture;
    // Every byte is 7. Rows of nine bytes lie without gaps: a picture that is padded to four would have others there.
    picture.allocate(3, 7, 3, 5);
    KrSGTexture texture;
    const bool isLoaded = texture.loadFromImage(picture, KrTextureParameters());
    const osg::Image* const pixels = isLoaded && texture.getTexture() ? texture.getTexture()->getImage(0) : nullptr;
    // A copy shares texture object and state set.
    const KrSGTexture copy(texture);
    return Check("KrSGTexture")
        .that(pixels && pixels->s() == 3 && pixels->t() == 5, "a size that is no power of two is kept")
        .that(pixels && *pixels->data(2, 4) == 7, "the pixels are the picture's")
        .that(texture.getState() &&
                  texture.getState()->getTextureAttribute(0, osg::StateAttribute::TEXTURE) == texture.getTexture(),
              "the state set has the texture on unit 0")
        .that(copy == texture, "a copy is equal")
        .draws({"textures"})
        .passed();
}

bool KrSGBaseInputHandler::selfTest() const
{
    KrPovParameters pov;
    pov.setEyepoint(KrVector(4.0, -3.0, 2.0));
    pov.setCenterOfInterest(KrVector(1.0, 1.0, 1.0));
    const osg::ref_ptr<KrSGBaseInputHandler> handler = new KrSGBaseInputHandler(nullptr);
    handler->setPovParameters(pov);
    const osg::Matrixd matrix = handler->getMatrix();
    KrPovParameters back;
    handler->getPovParameters(back);
    // A matrix says nothing of the distance to the centre of interest: the handler keeps the one that it has.
    handler->setByInverseMatrix(handler->getInverseMatrix());
    // A camera of OpenGL looks along its own -z.
    const osg::Vec3d ahead = osg::Vec3d(0.0, 0.0, -pov.viewingDistance()) * matrix;
    return Check("KrSGBaseInputHandler")
        .that(isNear(matrix.getTrans(), osg::Vec3d(4.0, -3.0, 2.0)), "the camera stands at the eye point")
        .that(isNear(ahead, osg::Vec3d(1.0, 1.0, 1.0)), "the camera looks at the centre of interest")
        .that(isNear(matrix * handler->getInverseMatrix(), osg::Matrixd()), "the two matrices are inverse")
        .that(isNear(KrRenderTypes::ec2osg(back.eyepoint()), osg::Vec3d(4.0, -3.0, 2.0)) &&
                  back.centerOfInterest() == pov.centerOfInterest(),
              "the point of view is read back")
        .that(isNear(handler->getMatrix(), matrix), "a camera that is set by its own matrix stays")
        .passed();
}

bool KrSGWindow::selfTest() const
{
    // Never opened: nothing of this needs a context. The scenes below open windows of their own.
    KrSGWindow window;
    // Kept: no height, no ratio; 1 takes its place, of which a projection can be made.
    window.setWindowSize(640, 0);
    // The last argument means the secondary mask, which the first one's accessor leaves out.
    window.setDisplayMask(KrRenderTypes::CenterOfInterestMarker, true, true);
    return Check("KrSGWindow")
        .that(window.aspectRatio() == 1.0, "a window without height has the aspect ratio 1")
        .that(window.displayMask() == KrRenderTypes::SceneContent &&
                  !window.displayMask(KrRenderTypes::CenterOfInterestMarker),
              "markers are in the secondary mask")
        .that(!window.getViewer(), "a window that was never opened has no viewer")
        .draws({"materials", "overlay"})
        .passed();
}

bool KrRenderWindow::selfTest() const
{
    KrRenderWindow window;
    const bool isFresh =
        !window.statedSystem() && !window.state() && !window.systemReady() && !window.getGuideTrans(0, 0);
    // Empty, and good enough to be kept: the window borrows it.
    const KrStatedSystem system;
    return Check("KrRenderWindow")
        .that(isFresh, "a new window has no system")
        .that(window.setStatedSystem(system) && window.systemReady() && window.statedSystem() == &system,
              "a window keeps the system that it is given")
        .draws({"links", "windows"})
        .passed();
}

bool KrMultiRenderWindow::selfTest() const
{
    // Without a hint as many views stand side by side as the largest window holds, KrMultiRenderWindow::kLargestSize.
    KrMultiRenderWindow window(600, 400, 5);
    const bool isLaidOut = window.getNumWindows() == 5 && window.windowWidth() == 1800 && window.windowHeight() == 800;
    // Three rows of two, the last of which is half empty.
    window.setNumColumnsHint(2);
    return Check("KrMultiRenderWindow")
        .that(isLaidOut, "five views stand in three columns where no more fit")
        .that(window.windowWidth() == 1200 && window.windowHeight() == 1200, "a hint decides the columns")
        .draws({"tiles"})
        .passed();
}

bool KrRenderCaptureManager::selfTest() const
{
    const osg::ref_ptr<KrRenderCaptureManager> manager = new KrRenderCaptureManager;
    // The period in milliseconds, which a float holds exactly here.
    manager->setFrameRate(25.0f);
    // Kept: a size with a zero means no scaling, and both become zero, for which the next frame's size is taken.
    manager->setCaptureSize(640, 0);
    return Check("KrRenderCaptureManager")
        .that(manager->m_framePeriodMs == 40.0f, "a rate has its period")
        .that(manager->m_captureWidth == 0 && manager->m_captureHeight == 0, "half a size is none")
        .draws({"orientation"})
        .passed();
}

bool KrRenderManipulator::selfTest() const
{
    // Joint positions of a state lie in this order: a link that is numbered otherwise would
    // take another one's position.
    unsigned int numLinks = 0;
    const bool isInOrder = countLinks(*this, numLinks);
    bool hasShapes = true;
    for (const auto& entry : m_map) {
        hasShapes = hasShapes && entry.second.valid() && entry.second->getNumParents() > 0;
    }
    return Check("KrRenderManipulator")
        .that(isInOrder && numLinks == m_numTotalLinks, "links are numbered in depth-first pre-order")
        .that(hasShapes, "every shape of the map hangs in the scene")
        .draws({"links"})
        .passed();
}

bool KrRenderLink::selfTest() const
{
    // Shapes hang under it and move with it.
    const osg::ref_ptr<osg::MatrixTransform> frame = getDhFrame();
    // A shape of the map that hangs nowhere would be changed and never seen.
    bool hasShapes = true;
    for (const auto& entry : m_map) {
        hasShapes = hasShapes && entry.second.valid() && entry.second->getNumParents() > 0;
    }
    return Check("KrRenderLink")
        .that(frame.valid() && containsNode(frame), "the DH frame hangs under the link")
        .that(!getMatrix().isNaN() && (!frame || !frame->getMatrix().isNaN()), "poses are numbers")
        .that(hasShapes, "every shape of the map hangs in the scene")
        .draws({"links"})
        .passed();
}

bool KrRenderIntraLink::selfTest() const
{
    bool arePlaced = true;
    for (const osg::ref_ptr<osg::MatrixTransform>& node : m_intraLinks) {
        // A place is null where an intra-link has no shape to draw.
        arePlaced = arePlaced && (!node || !node->getMatrix().isNaN());
    }
    return Check("KrRenderIntraLink")
        .that(m_intraLinks.size() == m_manipulator->intraLinks().count(), "every intra-link has its entry")
        .that(arePlaced, "poses are numbers")
        .draws({"links"})
        .passed();
}

bool KrRenderShape::selfTest() const
{
    bool hasNormals = true;
    bool isBounded = true;
    for (unsigned int i = 0; i < getNumDrawables(); ++i) {
        const osg::Geometry* const geometry = getDrawable(i)->asGeometry();
        // Only where both arrays are there can they disagree.
        if (geometry && geometry->getVertexArray() && geometry->getNormalArray()) {
            hasNormals = hasNormals &&
                         geometry->getNormalArray()->getNumElements() == geometry->getVertexArray()->getNumElements();
        }
        const osg::BoundingBox& box = getDrawable(i)->getBoundingBox();
        // The near and far planes follow from the bounds of what is drawn: an endless one would take them with it.
        isBounded = isBounded && (!box.valid() || std::isfinite(box.radius()));
    }
    return Check("KrRenderShape")
        .that(hasNormals, "every vertex has a normal")
        .that(isBounded, "every drawable ends somewhere")
        .draws({"primitives"})
        .passed();
}

bool KrRenderDeformationShape::selfTest() const
{
    bool isDirect = true;
    for (unsigned int i = 0; i < getNumDrawables(); ++i) {
        // A list keeps the vertices of the frame that it was made in, so that the shape would never bend.
        isDirect = isDirect && !getDrawable(i)->getUseDisplayList();
    }
    return Check("KrRenderDeformationShape")
        .that(isDirect, "what bends is in no display list")
        .draws({"deformation"})
        .passed();
}

bool KrRenderSelection::selfTest()
{
    // A key may name a shape that is not drawn, and then there is no node.
    setSelected(nullptr, KrShapeStateCacheKey()); // harmless
    setNonselected(nullptr, 0.5f, false);
    return Check("KrRenderSelection").draws({"selection", "transparency"}).passed();
}

bool KrRenderAxis::selfTest()
{
    const osg::ref_ptr<osg::Node> axis = linkAxis(false);
    return Check("KrRenderAxis")
        // Kept: one node for all links and windows: `scaleAxis` changes them all with one call.
        .that(axis.valid() && axis == linkAxis(false) && axis->getNodeMask() == KrRenderTypes::LinkAxes,
              "there is one axis node, with its mask")
        .draws({"axes"})
        .passed();
}

bool KrRenderBoundingVolumes::selfTest()
{
    // A window without a system has no manipulator node.
    init(nullptr, KrMaterialMap()); // harmless
    return Check("KrRenderBoundingVolumes").draws({"volumes"}).passed();
}

bool KrRenderMassProperties::selfTest()
{
    init(nullptr); // harmless
    return Check("KrRenderMassProperties").draws({"mass"}).passed();
}

bool KrRenderMorphLink::selfTest()
{
    return Check("KrRenderMorphLink")
        .that(!updateVertexTexture(nullptr), "no manipulator has no texture")
        .draws({"morph"})
        .passed();
}

bool KrRenderGridPhysicalExtent::selfTest()
{
    KrXmlVectorVector colours;
    colours.push_back(KrVector(1.0, 0.5, 0.0));
    const osg::ref_ptr<osg::Texture1D> table = createLUTTexture(colours);
    const osg::Image* const texels = table ? table->getImage() : nullptr;
    return Check("KrRenderGridPhysicalExtent")
        // 0.5 * 255 is cut off, not rounded.
        .that(texels && texels->data()[0] == 255 && texels->data()[1] == 127 && texels->data()[2] == 0,
              "a table of colours becomes texels")
        .draws({"plume"})
        .passed();
}

bool KrRender2DSampleTool::selfTest()
{
    std::vector<std::vector<double>> map = {{7.0}};
    return Check("KrRender2DSampleTool")
        .that(!get2DMap(KrStatedSystem(), KrCoordinateSystemTransformation(), 1, 1, 1.0, 1.0, 0.5, map) &&
                  map.size() == 1 && map[0][0] == 7.0,
              "a map that cannot be is refused")
        .draws({"rangemap"})
        .passed();
}

bool KrTextureMarker::selfTest() const
{
    return Check("KrTextureMarker")
        .that(m_image.valid() && m_image->s() > 0 && m_image->t() > 0, "the texture has its pixels")
        .draws({"marks"})
        .passed();
}

bool KrFrameStream::selfTest() const
{
    // Two are read by turns: a third would wait for the first.
    return Check("KrFrameStream").that(numInFlight() <= 2, "two frames wait at most").draws({"stream"}).passed();
}

bool KrDepthCapture::selfTest() const
{
    return Check("KrDepthCapture")
        // 0 until a first capture has asked the driver.
        .that(m_depthBits == 0 || errorBound(1.0) > 0.0, "a depth has an error")
        .draws({"depth"})
        .passed();
}
