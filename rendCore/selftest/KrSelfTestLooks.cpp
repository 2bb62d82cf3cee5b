// The self tests of what shapes look like: solids, materials, textures, blending, selection, kinematics.

#include <rendCore/selftest/private/KrSelfTestRun.h>
#include <rendCore/selftest/private/KrSelfTestScenes.h>

#include <toolkit/extent/KrCapsulePhysicalExtent.h>
#include <toolkit/extent/KrConePhysicalExtent.h>
#include <toolkit/extent/KrCylinderPhysicalExtent.h>
#include <toolkit/extent/KrEllipsoidPhysicalExtent.h>
#include <toolkit/extent/KrSpherePhysicalExtent.h>

#include <osg/Math>

#include <boost/make_shared.hpp>

#include <cmath>

namespace
{

using Run = KrSelfTestRun;
using Colour = KrSelfTestRun::Colour;

/// A diffuse colour that also glows a little, so that its dark side stands out from the background.
KrDataMap shaded(const Colour& colour, double glowing)
{
    KrDataMap map;
    const char* const names[3] = {"Red", "Green", "Blue"};
    for (unsigned int k = 0; k < 3; ++k) {
        map.setReal(std::string("krDiffuse") + names[k], (1.0 - glowing) * colour[k]);
        map.setReal(std::string("krEmission") + names[k], glowing * colour[k]);
    }
    return map;
}

/// The part of the picture inside a rectangle of the plane y = 0 that is not black.
// In pixels, so that it can be compared with an area; -1, which is no area, for a rectangle outside the picture.
double litInside(const KrImage& picture, const KrSelfTestView& view, double x, double z, double halfWidth,
                 double halfHeight)
{
    KrImage part;
    const KrSelfTestView::Pixel low = view.at(x - halfWidth, z - halfHeight);
    KrImageBlock block;
    block.x = static_cast<unsigned int>(low.column);
    block.y = static_cast<unsigned int>(low.row);
    block.width = static_cast<unsigned int>(2.0 * halfWidth * view.scale());
    block.height = static_cast<unsigned int>(2.0 * halfHeight * view.scale());
    return picture.getSubimage(block, part) ? Run::coverage(part) * part.width() * part.height() : -1.0;
}

} // namespace

void KrSelfTestScenes::primitives(KrSelfTestRun& run)
{
    struct Solid
    {
        const char* what;
        boost::shared_ptr<KrBasePhysicalExtent> extent;
        double x;
        double z;
        double area; ///< of its outline, square metres
        Colour colour;
    };
    // The outline of a box is its front face; what curves shows its silhouette at about its middle.
    const double front = 20.0 / 19.5; // the box's front face is that much nearer
    const Solid solids[] = {
        {"the sphere", boost::make_shared<KrSpherePhysicalExtent>(0.6), -2.0, 1.0, osg::PI * 0.36, {1.0, 0.2, 0.2}},
        {"the box", Run::box(KrVector(1.0, 1.0, 1.2), KrVector(), ""), 0.0, 1.0, 1.2 * front * front, {0.2, 1.0, 0.2}},
        {"the cylinder", boost::make_shared<KrCylinderPhysicalExtent>(0.4, 1.2), 2.0, 1.0, 0.96, {0.3, 0.3, 1.0}},
        {"the capsule",
         boost::make_shared<KrCapsulePhysicalExtent>(0.35, 0.6),
         -2.0,
         -1.0,
         0.7 * 0.6 + osg::PI * 0.35 * 0.35,
         {1.0, 1.0, 0.2}},
        // The eye is above its foot, of which it sees half the disc below the triangle.
        {"the cone",
         boost::make_shared<KrConePhysicalExtent>(0.6, 0.0, 1.2),
         0.0,
         -1.0,
         0.72 + 0.5 * osg::PI * 0.6 * (0.6 * 1.6 / 20.0),
         {0.2, 1.0, 1.0}},
        {"the ellipsoid",
         boost::make_shared<KrEllipsoidPhysicalExtent>(KrVector(0.8, 0.5, 0.4)),
         2.0,
         -1.0,
         osg::PI * 0.32,
         {1.0, 0.3, 1.0}},
    };
    // Brighter than what counts as background on every solid, so that the unlit half counts in the areas.
    constexpr double kGlow = 0.2;
    KrIndividualManipulator robot("solids");
    for (const Solid& solid : solids) {
        robot.materialMap().set(std::string(solid.what), shaded(solid.colour, kGlow));
        robot.addShape(Run::place(solid.extent, KrVector(solid.x, 0.0, solid.z), solid.what));
    }
    const KrStatedSystem system = Run::systemOf(robot);
    const KrSelfTestView view;
    KrRenderWindow window;
    if (!run.open(window, system, view)) {
        return;
    }
    // From the right, the eye's side and above, by equal parts: 1 / sqrt 3 each.
    run.light(window, KrVector(1.0, -1.0, 1.0));
    // Six per cent of an area below: solids are drawn as facets inside their surface, and edges fall between pixels.
    const KrImage picture = run.capture(window, "solids");
    const double squareMetre = view.scale() * view.scale();
    for (const Solid& solid : solids) {
        const double seen = litInside(picture, view, solid.x, solid.z, 0.98, 0.98) / squareMetre;
        run.expectNear(seen, solid.area, 0.06 * solid.area, (std::string(solid.what) + ": its area, m^2").c_str());
    }
    // Lambert's law on the sphere: in its middle the normal is 1 / sqrt 3 along the light, and there all along it.
    const double third = 0.6 / std::sqrt(3.0);
    const auto lit = [&solids](double cosine) {
        Colour colour = solids[0].colour;
        for (double& channel : colour) {
            channel *= kGlow + (1.0 - kGlow) * cosine;
        }
        return colour;
    };
    run.expectColour(picture, view.at(-2.0, 1.0, -0.6), lit(1.0 / std::sqrt(3.0)), 0.03, "the sphere's middle");
    run.expectColour(picture, view.at(-2.0 + third, 1.0 + third, -third), lit(1.0), 0.03, "the sphere's lit side");
    run.expectColour(picture, view.at(-2.0 - third, 1.0 - third, -third), lit(0.0), 0.03, "the sphere's dark side");
}

void KrSelfTestScenes::materials(KrSelfTestRun& run)
{
    const Colour emission = {0.2, 0.6, 0.9};
    const Colour diffuse = {0.9, 0.3, 0.1};
    const Colour ambient = {0.5, 1.0, 0.75};
    const Colour specular = {0.7, 0.7, 0.0};
    const char* const channels[3] = {"Red", "Green", "Blue"};
    // One plate for each of the four colours, so that a channel that goes into the wrong one is seen.
    KrDataMap maps[4];
    maps[0] = Run::glow(emission);
    maps[1] = shaded(diffuse, 0.0);
    for (unsigned int k = 0; k < 3; ++k) {
        maps[2].setReal(std::string("krAmbient") + channels[k], ambient[k]);
        maps[3].setReal(std::string("krSpecular") + channels[k], specular[k]);
    }
    maps[3].setReal("krShininess", 2.0); // a wide highlight: it covers the plate
    KrIndividualManipulator robot("plates");
    for (unsigned int i = 0; i < 4; ++i) {
        robot.materialMap().set("plate " + std::to_string(i), maps[i]);
        // The front of a plate lies 0.05 m before the plane y = 0, where `plate` below looks.
        robot.addShape(Run::box(KrVector(1.2, 0.1, 2.0), KrVector(-2.25 + 1.5 * i, 0.0, 0.0),
                                ("plate " + std::to_string(i)).c_str()));
    }
    const KrStatedSystem system = Run::systemOf(robot);
    const KrSelfTestView view;
    KrRenderWindow window;
    if (!run.open(window, system, view)) {
        return;
    }
    // Light along the view: N L = 1, and N H nearly so, all over the plates.
    run.light(window, KrVector(0.0, -1.0, 0.0));
    const KrImage picture = run.capture(window, "plates");
    const auto plate = [&view](unsigned int i) { return view.at(-2.25 + 1.5 * i, 0.4, -0.05); };
    run.expectColour(picture, plate(0), emission, Run::kColourTolerance, "a glowing plate");
    run.expectColour(picture, plate(1), diffuse, Run::kColourTolerance, "a diffuse plate in full light");
    // A window's light from everywhere is a half.
    run.expectColour(picture, plate(2), {0.5 * ambient[0], 0.5 * ambient[1], 0.5 * ambient[2]}, Run::kColourTolerance,
                     "a plate with an ambient colour");
    run.expectColour(picture, plate(3), specular, Run::kColourTolerance, "a shining plate that mirrors the lamp");

    window.setViewerAttribute(KrSGWindow::Lighting, false);
    // What colour it has instead is not the material's to say: only that it changes is asked.
    run.expect(Run::colourAt(run.capture(window, "unlit"), plate(3)) != Run::colourAt(picture, plate(3)),
               "without lighting nothing shines");
    window.setViewerAttribute(KrSGWindow::Lighting, true);
    run.expectSame(run.capture(window, "plates"), picture, "lighting switched off and on");
}

void KrSelfTestScenes::textures(KrSelfTestRun& run)
{
    // Red lower left, green lower right, blue upper left, white upper right.
    constexpr unsigned int kSize = 64;
    // No two alike: a picture that is mirrored, upside down or turned has another colour somewhere.
    const Colour quarters[4] = {{1.0, 0.0, 0.0}, {0.0, 1.0, 0.0}, {0.0, 0.0, 1.0}, {1.0, 1.0, 1.0}};
    KrImage pattern;
    pattern.allocate(3, 0, kSize, kSize);
    for (std::size_t i = 0; i < std::size_t(kSize) * kSize; ++i) {
        const Colour& colour = quarters[(i % kSize < kSize / 2 ? 0 : 1) + (i / kSize < kSize / 2 ? 0 : 2)];
        for (std::size_t k = 0; k < 3; ++k) {
            pattern.data()[3 * i + k] = static_cast<unsigned char>(255.0 * colour[k]);
        }
    }
    // By way of a file: the reader's order of rows is part of what can be wrong.
    const std::string file = run.scratchFile("pattern.png");
    if (!run.expect(pattern.writeFile(file, KrImage::BottomRowFirst), "a picture can be written and read")) {
        return;
    }
    // The texture is multiplied with the lit colour, and white leaves it as it is.
    KrDataMap textured = Run::glow({1.0, 1.0, 1.0});
    textured.setString("krTextureFilename", file);
    KrIndividualManipulator robot("sheets");
    robot.addShape(boost::shared_ptr<KrBasePhysicalExtent>(Run::sheet(-2.5, -0.5, -1.0, 1.0, 0.0, textured)));
    robot.addShape(
        boost::shared_ptr<KrBasePhysicalExtent>(Run::sheet(0.5, 2.5, -1.0, 1.0, 0.0, Run::glow({0.25, 0.5, 0.75}))));
    const KrStatedSystem system = Run::systemOf(robot);
    const KrSelfTestView view;
    KrRenderWindow window;
    if (!run.open(window, system, view)) {
        return;
    }
    const KrImage picture = run.capture(window, "sheets");
    const char* const names[4] = {"the lower left quarter of the texture", "the lower right quarter of the texture",
                                  "the upper left quarter of the texture", "the upper right quarter of the texture"};
    for (unsigned int i = 0; i < 4; ++i) {
        const double x = i % 2 == 0 ? -2.0 : -1.0;
        const double z = i < 2 ? -0.5 : 0.5;
        run.expectColour(picture, view.at(x, z), quarters[i], Run::kColourTolerance, names[i]);
    }
    run.expectColour(picture, view.at(1.5, 0.0), {0.25, 0.5, 0.75}, Run::kColourTolerance, "a sheet without a texture");
    // Two sheets of 2 m by 2 m.
    run.expectCoverage(picture, view.coverage(8.0), 0.03, "two sheets");

    window.setViewerAttribute(KrSGWindow::Texturing, false);
    run.expectColour(run.capture(window, "untextured"), view.at(-2.0, -0.5), {1.0, 1.0, 1.0}, Run::kColourTolerance,
                     "the sheet with texturing switched off");
}

void KrSelfTestScenes::transparency(KrSelfTestRun& run)
{
    KrIndividualManipulator robot = Run::robot();
    KrDataMap glass = Run::glow({1.0, 0.0, 0.0});
    // Kept: the diffuse alpha alone decides that a material is translucent, and all colours are blended by it: a client
    // writes one key.
    glass.setReal("krDiffuseAlpha", 0.5);
    // From the eye: a white post, a red pane, a green wall on the left, another pane behind it.
    // The panes come first on purpose: drawn in this order, the wall would be hidden by the
    // depth of the pane before it.
    robot.addShape(boost::shared_ptr<KrBasePhysicalExtent>(Run::sheet(-1.5, 1.5, -0.8, 0.8, 0.0, glass)));
    robot.addShape(boost::shared_ptr<KrBasePhysicalExtent>(Run::sheet(-2.0, 2.0, 1.0, 1.8, 2.0, glass)));
    robot.addShape(Run::box(KrVector(2.5, 0.1, 4.0), KrVector(-1.25, 1.0, 0.0), "green"));
    robot.addShape(Run::box(KrVector(0.3, 0.1, 4.0), KrVector(1.2, -1.0, 0.0), "white"));
    const KrStatedSystem system = Run::systemOf(robot);
    const KrSelfTestView view;
    KrRenderWindow window;
    if (!run.open(window, system, view)) {
        return;
    }
    window.setBackgroundColor(KrColor(0.0, 0.0, 1.0));
    const KrImage picture = run.capture(window, "panes");
    run.expectColour(picture, view.at(-0.8, 0.0), {0.5, 0.5, 0.0}, Run::kColourTolerance, "a pane before a wall");
    run.expectColour(picture, view.at(0.6, 0.0), {0.5, 0.0, 0.5}, Run::kColourTolerance,
                     "a pane before the background");
    run.expectColour(picture, view.at(1.2, 0.0, -1.0), {1.0, 1.0, 1.0}, Run::kColourTolerance, "a post before a pane");
    run.expectColour(picture, view.at(-1.0, 1.3, 1.0), {0.0, 1.0, 0.0}, Run::kColourTolerance, "a wall before a pane");
    run.expectColour(picture, view.at(0.6, 1.4, 2.0), {0.5, 0.0, 0.5}, Run::kColourTolerance, "a pane beside a wall");
}

void KrSelfTestScenes::selection(KrSelfTestRun& run)
{
    KrIndividualManipulator robot = Run::robot();
    // Sheets: of a solid the far side would be blended, too.
    robot.addShape(boost::shared_ptr<KrBasePhysicalExtent>(
        Run::sheet(-2.25, -0.75, -0.75, 0.75, 0.0, Run::glow({1.0, 0.0, 0.0}))));
    robot.addShape(
        boost::shared_ptr<KrBasePhysicalExtent>(Run::sheet(0.75, 2.25, -0.75, 0.75, 0.0, Run::glow({0.0, 1.0, 0.0}))));
    KrStatedSystem system = Run::systemOf(robot);
    const KrSelfTestView view;
    KrRenderWindow window;
    if (!run.open(window, system, view)) {
        return;
    }
    constexpr double kOpacity = 0.25;
    const KrSelfTestView::Pixel left = view.at(-1.5, 0.0);
    const KrSelfTestView::Pixel right = view.at(1.5, 0.0);
    const KrImage before = run.capture(window, "plain");
    run.expectColour(before, left, {1.0, 0.0, 0.0}, Run::kColourTolerance, "the red sheet");
    run.expectColour(before, right, {0.0, 1.0, 0.0}, Run::kColourTolerance, "the green sheet");

    // Kept: the number is how much of what is not selected remains, 1 being opaque; documents and clients have it so.
    system.setTransparency(kOpacity);
    system.selectShape(KrShapeStateCacheKey(0, KrShapeStateCacheKey::kBaseLink, 0));
    const KrImage onBlack = run.capture(window, "selected");
    run.expect(Run::colourAt(onBlack, left)[0] > 0.9 && Run::colourAt(onBlack, left)[2] < 0.5,
               "the selected sheet stays red");
    window.setBackgroundColor(KrColor(0.0, 0.0, 1.0));
    const KrImage onBlue = run.capture(window, "selected on blue");
    // Two backgrounds, whose difference holds the background's share alone, whatever colour the sheet itself has got.
    run.expectNear(Run::colourAt(onBlue, right)[2] - Run::colourAt(onBlack, right)[2], 1.0 - kOpacity, 0.02,
                   "what the faded sheet lets through");
    run.expectNear(Run::colourAt(onBlue, left)[2] - Run::colourAt(onBlack, left)[2], 0.0, 0.01,
                   "what the selected sheet lets through");

    window.setBackgroundColor(KrColor(0.0, 0.0, 0.0));
    system.clearSelection();
    // A selection changes state sets and scene nodes: all of it has to be undone.
    run.expectSame(run.capture(window, "restored"), before, "the selection taken back");
}

void KrSelfTestScenes::links(KrSelfTestRun& run)
{
    const auto link = [](const char* name, double x, const char* colour) {
        KrManipulatorLink result(name);
        result.jointKinematics().setName(name);
        result.jointKinematics().setType(KrJointKinematics::Type::Continuous);
        result.jointKinematics().setAxis(KrVector(0.0, -1.0, 0.0)); // counter-clockwise as it is seen
        KrCoordinateSystemTransformation origin;
        origin.setTranslation(KrVector(x, 0.0, 0.0));
        result.jointKinematics().setOrigin(origin);
        result.addShape(Run::box(KrVector(1.2, 0.2, 0.2), KrVector(0.6, 0.0, 0.0), colour));
        return result;
    };
    KrIndividualManipulator robot = Run::robot();
    // Below the joints, where neither pose nor rod comes.
    robot.addShape(Run::box(KrVector(0.4, 0.4, 0.4), KrVector(0.0, 0.0, -0.6), "grey"));
    KrManipulatorLink upper = link("upper", 0.0, "red");
    upper.addChildLink(link("lower", 1.2, "green"));
    robot.addChildLink(upper);
    // A rod from the base, 1.6 m up, to a point of the lower link.
    KrIntraLink rod("", KrVector(0.0, 0.0, 1.6), "lower", KrVector(0.6, 0.0, 0.0));
    rod.setShape(boost::make_shared<KrShape>(Run::box(KrVector(0.6, 0.1, 0.2), KrVector(0.3, 0.0, 0.0), "yellow")));
    robot.intraLinks().addIntraLink(rod);
    KrStatedSystem system = Run::systemOf(robot);
    const KrSelfTestView view;
    KrRenderWindow window;
    if (!run.open(window, system, view)) {
        return;
    }
    // Of both signs and either side: an angle of the wrong sign, or one that is added up wrongly, misses the patches.
    const double poses[2][2] = {{0.7, -1.2}, {2.4, 0.9}}; // rad
    for (const double* const pose : {poses[0], poses[1]}) {
        system.setJointPosition(0, "upper", pose[0]);
        system.setJointPosition(0, "lower", pose[1]);
        // The window keeps a copy of the state: a change to the system alone moves nothing.
        window.setState(system.systemState());
        const KrImage picture = run.capture(window, pose == poses[0] ? "first pose" : "second pose");
        const auto along = [](double x, double z, double angle, double distance) {
            return KrVector(x + distance * std::cos(angle), 0.0, z + distance * std::sin(angle));
        };
        const KrVector elbow = along(0.0, 0.0, pose[0], 1.2);
        run.expectColour(picture, view.at(along(0.0, 0.0, pose[0], 0.5)), {1.0, 0.0, 0.0}, Run::kColourTolerance,
                         "the upper link");
        run.expectColour(picture, view.at(along(elbow.x(), elbow.z(), pose[0] + pose[1], 0.9)), {0.0, 1.0, 0.0},
                         Run::kColourTolerance, "the lower link");
        run.expectColour(picture, view.at(0.0, -0.6), {0.5, 0.5, 0.5}, Run::kColourTolerance, "the base");
        const KrVector end = along(elbow.x(), elbow.z(), pose[0] + pose[1], 0.6);
        const double towardsEnd = std::atan2(end.z() - 1.6, end.x());
        run.expectColour(picture, view.at(along(0.0, 1.6, towardsEnd, 0.2)), {1.0, 1.0, 0.0}, Run::kColourTolerance,
                         "the rod");
    }
}
