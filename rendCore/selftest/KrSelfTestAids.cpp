// The self tests of aids and special geometry: axes, volumes, masses, morph links, plumes, bending shapes, marks.

#include <rendCore/aids/KrRenderMorphLink.h>
#include <rendCore/model/KrRenderLink.h>
#include <rendCore/model/KrRenderManipulator.h>
#include <rendCore/model/KrTextureMarker.h>
#include <rendCore/selftest/private/KrSelfTestRun.h>
#include <rendCore/selftest/private/KrSelfTestScenes.h>

#include <toolkit/deformation/KrDeformationPhysicalExtent.h>
#include <toolkit/extent/KrSpherePhysicalExtent.h>
#include <toolkit/grid/KrGridPhysicalExtent.h>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Image>
#include <osg/Math>
#include <osg/Program>
#include <osg/Uniform>
#include <osgUtil/UpdateVisitor>

#include <boost/make_shared.hpp>

#include <cmath>

namespace
{

using Run = KrSelfTestRun;
using Colour = KrSelfTestRun::Colour;
using Pixel = KrSelfTestView::Pixel;

KrCoordinateSystemTransformation translation(double x, double y, double z)
{
    KrCoordinateSystemTransformation pose;
    pose.setTranslation(KrVector(x, y, z));
    return pose;
}

/// A link at `origin` that turns counter-clockwise as it is seen.
KrManipulatorLink turningLink(const char* name, const KrVector& origin)
{
    KrManipulatorLink link(name);
    link.jointKinematics().setName(name);
    link.jointKinematics().setType(KrJointKinematics::Type::Continuous);
    link.jointKinematics().setAxis(KrVector(0.0, -1.0, 0.0));
    link.jointKinematics().setOrigin(translation(origin.x(), origin.y(), origin.z()));
    return link;
}

} // namespace

void KrSelfTestScenes::axes(KrSelfTestRun& run)
{
    KrCoordinateSystemTransformation base;
    base.setRollPitchYaw(0.5, -0.3, 0.7);
    base.setTranslation(KrVector(-1.2, 0.0, -0.6));
    KrIndividualManipulator robot = Run::robot();
    // Turned about all three axes: an axis that is drawn in the wrong frame misses its place.
    robot.setPlacement(base);
    // `base * origin` is the base's frame, turned as it is and moved by (1.2, 0, 0.5) in the
    // world: the two do not overlap.
    const KrCoordinateSystemTransformation origin = base.inverse() * translation(1.2, 0.0, 0.5) * base;
    KrManipulatorLink link("link");
    link.jointKinematics().setOrigin(origin);
    robot.addChildLink(link);
    const KrStatedSystem system = Run::systemOf(robot);
    const KrSelfTestView view;
    constexpr double kLength = 0.6; // m
    KrVisualizationParameters parameters;
    parameters.setPovParameters(view.pov());
    KrRenderParameters render;
    render.setBackgroundColor(KrColor(0.0, 0.0, 0.0));
    // The axes' length is a visualization parameter, and these bring point of view and background with them.
    parameters.setRenderParameters(render);
    KrGUIObjectParameters sizes;
    sizes.setAxisScale(kLength);
    parameters.setGUIObjectParameters(sizes);
    KrRenderWindow window;
    window.setVisualizationParameters(parameters);
    if (!run.open(window, system, view)) {
        return;
    }
    run.expectNear(Run::coverage(run.capture(window, "off")), 0.0, 0.0, "what is seen while axes are off");
    window.setDisplayMask(KrRenderTypes::LinkAxes, true, false);
    const KrImage picture = run.capture(window, "on");

    const KrVector directions[3] = {KrVector(1.0, 0.0, 0.0), KrVector(0.0, 1.0, 0.0), KrVector(0.0, 0.0, 1.0)};
    const char* const names[3] = {"a link's x axis", "a link's y axis", "a link's z axis"};
    const char* const baseNames[3] = {"the base's x axis", "the base's y axis", "the base's z axis"};
    // Lines are three pixels wide: their colour stands out in the mean of three by three.
    const auto isLine = [&](const KrCoordinateSystemTransformation& frame, unsigned int axis, double distance) {
        const Colour seen = Run::colourAt(picture, view.at(frame.transformPoint(directions[axis] * distance)), 1);
        // Red, green, blue for x, y, z.
        return seen[axis] > 0.5 && seen[(axis + 1) % 3] < 0.3 && seen[(axis + 2) % 3] < 0.3;
    };
    const KrCoordinateSystemTransformation linkFrame = base * origin;
    for (unsigned int axis = 0; axis < 3 && picture.data(); ++axis) {
        run.expect(isLine(linkFrame, axis, 0.7 * kLength) && !isLine(linkFrame, axis, 1.3 * kLength), names[axis]);
        // Kept: the axes of a base are twice as long as those of a link, which tells the two apart in a picture.
        run.expect(isLine(base, axis, 1.7 * kLength) && !isLine(base, axis, 2.3 * kLength), baseNames[axis]);
    }
}

void KrSelfTestScenes::volumes(KrSelfTestRun& run)
{
    KrIndividualManipulator robot = Run::robot();
    const auto ball = boost::make_shared<KrSpherePhysicalExtent>(0.5);
    ball->setMaterialName("white");
    const auto shape = boost::make_shared<KrShape>(boost::shared_ptr<KrBasePhysicalExtent>(ball));
    // Of its own, and not the computed ones: it is the innermost, and the only one that is shown.
    shape->addBoundingVolume(
        boost::make_shared<KrShape>(Run::box(KrVector(2.4, 0.2, 1.6), KrVector(0.3, 0.0, 0.2), "volume")));
    robot.addShape(shape);
    // Volumes look as the data map of their material says, not as the ball's does.
    robot.dataMaps().set(std::string("volume"), Run::glow({0.0, 1.0, 0.0}));
    const KrStatedSystem system = Run::systemOf(robot);
    const KrSelfTestView view;
    KrRenderWindow window;
    if (!run.open(window, system, view)) {
        return;
    }
    const KrImage before = run.capture(window, "off");
    // A volume is drawn only when the mask asks for it.
    run.expectCoverage(before, view.coverage(osg::PI * 0.25), 0.06, "the ball alone");
    window.setDisplayMask(KrRenderTypes::BoundingVolumes, true, false);
    const KrImage picture = run.capture(window, "on");
    run.expectCoverage(picture, view.coverage(2.4 * 1.6, -0.1), 0.04, "the volume");
    run.expectColour(picture, view.at(1.2, 0.8, -0.1), {0.0, 1.0, 0.0}, Run::kColourTolerance,
                     "the volume's right side");
    // The ball reaches 0.5 m towards the eye, its volume 0.1 m: what is nearer is seen.
    run.expectColour(picture, view.at(0.0, 0.0), {1.0, 1.0, 1.0}, Run::kColourTolerance, "the ball before its volume");
    window.setDisplayMask(KrRenderTypes::BoundingVolumes, false, false);
    run.expectSame(run.capture(window, "off"), before, "volumes switched off again");
}

void KrSelfTestScenes::mass(KrSelfTestRun& run)
{
    // Semi-axes 0.9 m, 30 degrees above x, 0.4 m along y and 0.3 m: I1 = m / 5 (a2^2 + a3^2) and so on.
    constexpr double kMass = 5.0;
    const double c = std::cos(osg::PI / 6.0);
    const double s = std::sin(osg::PI / 6.0);
    // The mass of 5 kg and the fifth of the formula cancel.
    const double i1 = 0.16 + 0.09;
    const double i2 = 0.81 + 0.09;
    const double i3 = 0.81 + 0.16;
    KrIndividualManipulator robot("robot");
    robot.massProperties().setMass(kMass);
    robot.massProperties().setCenterOfMass(KrVector(0.5, 0.0, 0.3));
    robot.massProperties().setInertia(
        // R diag(i1, i2, i3) R' for the turn of 30 degrees about y: Ixx, Iyy, Izz, Ixy, Ixz, Iyz.
        {i1 * c * c + i3 * s * s, i2, i1 * s * s + i3 * c * c, 0.0, (i1 - i3) * c * s, 0.0});
    const KrStatedSystem system = Run::systemOf(robot);
    const KrSelfTestView view;
    KrRenderWindow window;
    if (!run.open(window, system, view)) {
        return;
    }
    run.light(window, KrVector(0.0, -1.0, 0.0));
    run.expectNear(Run::coverage(run.capture(window, "off")), 0.0, 0.0, "what is seen while masses are off");
    window.setDisplayMask(KrRenderTypes::MassProperties, true, false);
    const KrImage picture = run.capture(window, "on");
    run.expectCoverage(picture, view.coverage(osg::PI * 0.9 * 0.3), 0.06, "the ellipsoid");
    if (!picture.data()) {
        return;
    }
    // In metres along the ellipsoid's own long and short axis; shading changes how bright it
    // is, not that blue prevails.
    const auto isBlue = [&](double along, double across) {
        const Colour seen = Run::colourAt(picture, view.at(0.5 + along * c - across * s, 0.3 + along * s + across * c));
        return seen[2] > 0.1 && seen[2] > 1.5 * seen[0] && seen[2] > 1.5 * seen[1];
    };
    run.expect(isBlue(0.8, 0.0) && isBlue(-0.8, 0.0) && isBlue(0.0, 0.22), "the ellipsoid is where its mass is");
    run.expect(!isBlue(1.0, 0.0) && !isBlue(0.0, 0.4) && !isBlue(0.0, -0.4), "the ellipsoid is no larger");
}

void KrSelfTestScenes::morph(KrSelfTestRun& run)
{
    // The application's textures are set aside meanwhile: ours is not to take their place.
    struct TableRestorer
    {
        TableRestorer() { kept.swap(KrRenderMorphLink::m_MorphTextureMap); }
        ~TableRestorer() { kept.swap(KrRenderMorphLink::m_MorphTextureMap); }
        std::map<unsigned int, osg::ref_ptr<MorphTexture>> kept;
    };
    const TableRestorer table;

    KrIndividualManipulator robot("robot");
    KrManipulatorLink upper = turningLink("upper", KrVector(0.0, 0.0, 0.0));
    upper.addChildLink(turningLink("lower", KrVector(1.2, 0.0, 0.0)));
    robot.addChildLink(upper);
    // Kept: a texture has one texel for each link, and joints are written by that width. Two matrices take eight.
    while (robot.numJoints() < 8) {
        robot.addChildLink(KrManipulatorLink("spare"));
    }
    KrStatedSystem system = Run::systemOf(robot);
    const double angles[2] = {0.8, -1.4}; // rad
    system.setJointPosition(0, "upper", angles[0]);
    system.setJointPosition(0, "lower", angles[1]);
    const osg::ref_ptr<KrRenderManipulator> manipulator =
        new KrRenderManipulator(system.manipulatorSystem().manipulators()[0], 0);
    // No window loads this manipulator: its links take their poses from this traversal.
    osgUtil::UpdateVisitor update;
    KrRenderLink::updateState(&update, &system.systemState());
    manipulator->accept(update);
    // The matrices are relative to the manipulator, in joint order: the upper link's first.
    const osg::ref_ptr<MorphTexture> texture = KrRenderMorphLink::updateVertexTexture(manipulator);
    if (!run.expect(texture && texture->getImage(), "there is a texture of link matrices")) {
        return;
    }
    // Kept: the texture's own numbers are what the image's format says, from 0 to 1; applications choose another one,
    // as here, before their shaders read it.
    texture->setInternalFormat(GL_RGBA32F_ARB);
    // Texels are numbers: a mean of two neighbours is none of them.
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);

    // Three bars of the same vertices: of the upper link (red), the lower one (green), and halfway between (blue).
    const osg::ref_ptr<osg::Geometry> bars = new osg::Geometry;
    const osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    const osg::ref_ptr<osg::Vec4Array> colours = new osg::Vec4Array;
    const osg::ref_ptr<osg::Vec3Array> weights = new osg::Vec3Array; // index, index, weight of the second
    for (unsigned int bar = 0; bar < 3; ++bar) {
        const float share = bar == 0 ? 0.0f : bar == 1 ? 1.0f : 0.5f;
        const float corners[4][2] = {{0.2f, -0.15f}, {1.0f, -0.15f}, {1.0f, 0.15f}, {0.2f, 0.15f}};
        for (const auto& corner : corners) {
            // In the frame of whichever link moves them.
            vertices->push_back(osg::Vec3(corner[0], 0.0f, corner[1]));
            colours->push_back(osg::Vec4(bar == 0 ? 1.0f : 0.0f, bar == 1 ? 1.0f : 0.0f, bar == 2 ? 1.0f : 0.0f, 1.0f));
            weights->push_back(osg::Vec3(0.0f, 1.0f, share));
        }
    }
    bars->setVertexArray(vertices);
    bars->setColorArray(colours, osg::Array::BIND_PER_VERTEX);
    bars->setTexCoordArray(0, weights);
    bars->addPrimitiveSet(new osg::DrawArrays(GL_QUADS, 0, 12));
    // The program moves the vertices: where they seem to be says nothing.
    bars->setInitialBound(osg::BoundingBox(-3.0f, -3.0f, -3.0f, 3.0f, 3.0f, 3.0f));
    const osg::ref_ptr<osg::Program> program = new osg::Program;
    program->addShader(new osg::Shader(osg::Shader::VERTEX, R"(
uniform sampler1D matrixTexture;
uniform float textureSize;
mat4 matrixOf(float index)
{
    float first = 4.0 * index + 0.5;
    return mat4(texture1D(matrixTexture, first / textureSize), texture1D(matrixTexture, (first + 1.0) / textureSize),
                texture1D(matrixTexture, (first + 2.0) / textureSize),
                texture1D(matrixTexture, (first + 3.0) / textureSize));
}
void main()
{
    vec3 weights = gl_MultiTexCoord0.xyz;
    vec4 place = (1.0 - weights.z) * (matrixOf(weights.x) * gl_Vertex) + weights.z * (matrixOf(weights.y) * gl_Vertex);
    gl_Position = gl_ModelViewProjectionMatrix * place;
    gl_FrontColor = gl_Color;
    gl_BackColor = gl_Color;
}
)"));
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, "void main() { gl_FragColor = gl_Color; }\n"));
    osg::StateSet* const states = bars->getOrCreateStateSet();
    states->setAttributeAndModes(program);
    states->setTextureAttribute(0, texture);
    states->addUniform(new osg::Uniform("matrixTexture", 0));
    states->addUniform(new osg::Uniform("textureSize", static_cast<float>(texture->getImage()->s())));
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(bars);
    const osg::ref_ptr<osg::Group> scene = new osg::Group;
    scene->addChild(geode);

    const KrSelfTestView view;
    KrSGWindow window;
    if (!run.open(window, view)) {
        return;
    }
    // A scene window takes any group: there is no system in it.
    window.setNode(scene);
    window.renderScene(true); // the texture knows its size from then on, and takes all matrices
    KrRenderMorphLink::updateVertexTexture(manipulator);
    const KrImage picture = run.capture(window, "bars");
    const KrVector first(0.6 * std::cos(angles[0]), 0.0, 0.6 * std::sin(angles[0]));
    const double turn = angles[0] + angles[1];
    const KrVector second(1.2 * std::cos(angles[0]) + 0.6 * std::cos(turn), 0.0,
                          1.2 * std::sin(angles[0]) + 0.6 * std::sin(turn));
    run.expectColour(picture, view.at(first), {1.0, 0.0, 0.0}, Run::kColourTolerance, "the upper link's bar");
    run.expectColour(picture, view.at(second), {0.0, 1.0, 0.0}, Run::kColourTolerance, "the lower link's bar");
    // Half of each place: blending is linear in the vertices, so a middle goes to the middle of its two places.
    run.expectColour(picture, view.at((first + second) * 0.5), {0.0, 0.0, 1.0}, Run::kColourTolerance,
                     "the bar halfway between");
}

void KrSelfTestScenes::plume(KrSelfTestRun& run)
{
    // An even red field of 2 m on blue, with a green box in it.
    constexpr double kLevel = 0.05;
    // Even, so that only the length of a ray counts and the steps of the ray casting do not.
    const auto grid = boost::make_shared<KrGridPhysicalExtent>();
    grid->setGrid(KrVector(-1.0, -1.0, -1.0), KrVector(1.0, 1.0, 1.0), 8, 8, 8, std::vector<double>(512, kLevel));
    KrXmlVectorVector red;
    // One entry: every level has this colour.
    red.push_back(KrVector(1.0, 0.0, 0.0));
    grid->setLookupTable(red);
    KrIndividualManipulator robot = Run::robot();
    robot.addShape(boost::shared_ptr<KrBasePhysicalExtent>(grid));
    robot.addShape(Run::box(KrVector(0.5, 0.4, 0.5), KrVector(0.6, 0.0, 0.5), "green"));
    const KrStatedSystem system = Run::systemOf(robot);
    const KrSelfTestView view;
    KrRenderWindow window;
    if (!run.open(window, system, view)) {
        return;
    }
    // Blue, so that what the plume lets through differs from its own colour.
    window.setBackgroundColor(KrColor(0.0, 0.0, 1.0));
    const KrImage picture = run.capture(window, "even field");
    // What a ray keeps of the light from behind, docs/plumes.md: the level's density over a box of 2 m.
    const auto kept = [](double length) {
        // Beer's law: the density times the length that the light passes through.
        return std::exp(-100.0 * kLevel * kLevel * (3.0 - 2.0 * kLevel) * length / 2.0);
    };
    // 0.03: the rays are not quite parallel to the box's sides, and go in steps.
    run.expectColour(picture, view.at(-0.4, -0.3), {1.0 - kept(2.0), 0.0, kept(2.0)}, 0.03, "light through the plume");
    // The box's front is 0.8 m behind the front of the plume.
    run.expectColour(picture, view.at(0.6, 0.5, -0.2), {1.0 - kept(0.8), kept(0.8), 0.0}, 0.03,
                     "a box inside the plume");
    run.expectColour(picture, view.at(-1.4, 0.0), {0.0, 0.0, 1.0}, 0.01, "light beside the plume");
}

void KrSelfTestScenes::deformation(KrSelfTestRun& run)
{
    const auto extent = boost::make_shared<KrDeformationPhysicalExtent>();
    extent->setMesh(*Run::sheet(-2.0, 2.0, -0.2, 0.2, 0.0, Run::glow({1.0, 1.0, 0.0}), 24));
    std::vector<KrVector> raised = extent->vertices();
    for (KrVector& vertex : raised) {
        // Nothing at the left end, one metre at the right end.
        vertex.setZ(vertex.z() + 0.25 * (vertex.x() + 2.0));
    }
    KrIndividualManipulator robot("robot");
    // Only shapes of deformable links follow their extent.
    robot.setDeformable(true);
    robot.addShape(boost::shared_ptr<KrBasePhysicalExtent>(extent));
    KrStatedSystem system = Run::systemOf(robot);
    const KrSelfTestView view;
    KrRenderWindow window;
    if (!run.expect(extent->setPose("raised", raised), "a pose can be given") || !run.open(window, system, view)) {
        return;
    }
    const Colour yellow = {1.0, 1.0, 0.0};
    const Colour black = {0.0, 0.0, 0.0};
    const KrImage before = run.capture(window, "straight");
    run.expectColour(before, view.at(1.5, 0.0), yellow, Run::kColourTolerance, "the straight strip");
    run.expectCoverage(before, view.coverage(4.0 * 0.4), 0.05, "the straight strip");

    // Bending is no change of the system: the window updates the shapes that it is told of.
    system.addChangedShape(KrShapeStateCacheKey(0, KrShapeStateCacheKey::kBaseLink, 0));
    extent->setWeight(0, 1.0);
    const KrImage bent = run.capture(window, "raised");
    run.expectColour(bent, view.at(1.5, 0.875), yellow, Run::kColourTolerance, "the raised end of the strip");
    run.expectColour(bent, view.at(1.5, 0.0), black, Run::kColourTolerance, "where the strip was");
    run.expectColour(bent, view.at(-1.9, 0.025), yellow, Run::kColourTolerance, "the fixed end of the strip");

    extent->cutByPlane(0, KrVector(0.0, 0.0, 0.0), KrVector(1.0, 0.0, 0.0));
    // Piece 1 is the one on the side that the normal points to.
    extent->setPieceOffset(1, translation(0.4, 0.0, -0.5));
    const KrImage cut = run.capture(window, "cut");
    run.expectColour(cut, view.at(0.2, 0.55), black, Run::kColourTolerance, "the gap of a cut");
    run.expectColour(cut, view.at(1.9, 0.375), yellow, Run::kColourTolerance, "the piece that was moved");
    run.expectColour(cut, view.at(-0.2, 0.45), yellow, Run::kColourTolerance, "the piece that stayed");

    // To the byte below: neither cut nor pose may leave anything behind.
    extent->clearCuts();
    extent->setWeight(0, 0.0);
    run.expectSame(run.capture(window, "straight"), before, "a strip that is whole and straight again");
}

void KrSelfTestScenes::marks(KrSelfTestRun& run)
{
    // White: the marks' texture is multiplied with the material.
    const boost::shared_ptr<KrTriPhysicalExtent> mesh =
        Run::sheet(-1.5, 1.5, -1.5, 1.5, 0.0, Run::glow({1.0, 1.0, 1.0}));
    KrIndividualManipulator robot("robot");
    robot.addShape(boost::shared_ptr<KrBasePhysicalExtent>(mesh));
    const KrStatedSystem system = Run::systemOf(robot);
    const KrSelfTestView view;
    KrRenderWindow window;
    if (!run.open(window, system, view)) {
        return;
    }
    const KrImage before = run.capture(window, "unmarked");
    // An extent knows what draws it once the first frame has loaded the scene.
    const boost::shared_ptr<KrRenderShape> shape = mesh->renderShape().lock();
    const osg::ref_ptr<KrTextureMarker> marker = shape ? KrTextureMarker::of(*shape, 256, 256) : nullptr;
    if (!run.expect(marker.valid(), "a shape can be marked")) {
        return;
    }
    // The sheet is 3 m wide, its lower left corner is u = v = 0.
    const auto at = [&view](double u, double v) { return view.at(-1.5 + 3.0 * u, -1.5 + 3.0 * v); };
    KrTextureMarker::Brush brush;
    brush.radius = 0.06f;
    // Hard to the rim: the middle of the stroke is of the full colour.
    brush.hardness = 1.0f;
    brush.color = osg::Vec4(1.0f, 0.0f, 0.0f, 1.0f);
    run.expect(marker->stroke({osg::Vec2(0.2f, 0.2f), osg::Vec2(0.2f, 0.6f)}, brush), "a stroke is taken");
    // A stamp, blue on its left, green on its right.
    const osg::ref_ptr<osg::Image> stamp = new osg::Image;
    stamp->allocateImage(16, 16, 1, GL_RGB, GL_UNSIGNED_BYTE);
    for (int t = 0; t < 16; ++t) {
        for (int s = 0; s < 16; ++s) {
            unsigned char* const p = stamp->data(s, t);
            p[0] = 0;
            p[1] = s < 8 ? 0 : 255;
            p[2] = s < 8 ? 255 : 0;
        }
    }
    KrTextureMarker::Placement placement;
    placement.centre = osg::Vec2(0.7f, 0.7f);
    placement.size = osg::Vec2(0.4f, 0.2f);
    run.expect(marker->stamp(stamp, placement), "a stamp is taken");
    const KrImage picture = run.capture(window, "marked");
    run.expectColour(picture, at(0.2, 0.4), {1.0, 0.0, 0.0}, Run::kColourTolerance, "the stroke");
    run.expectColour(picture, at(0.2, 0.8), {1.0, 1.0, 1.0}, Run::kColourTolerance, "beyond the stroke");
    run.expectColour(picture, at(0.6, 0.7), {0.0, 0.0, 1.0}, Run::kColourTolerance, "the stamp's left half");
    run.expectColour(picture, at(0.8, 0.7), {0.0, 1.0, 0.0}, Run::kColourTolerance, "the stamp's right half");
    run.expectColour(picture, at(0.8, 0.2), {1.0, 1.0, 1.0}, Run::kColourTolerance, "an unmarked place");
    KrTextureMarker::detach(*shape);
    run.expectSame(run.capture(window, "unmarked"), before, "the marks taken off");
}
