// Draws a robot description, seen from in front of it:  draw_robot URDF PICTURE
#include <import/KrRobotImporter.h>
#include <rendCore/system/KrRenderWindow.h>

#include <toolkit/system/KrStatedSystem.h>

#include <osg/ComputeBoundsVisitor>
#include <osg/Group>

#include <cmath>
#include <cstdio>

namespace
{

/// From the robot towards the eye: it faces +x, and z is up.
const KrVector kTowardsEye(1.0, -0.8, 0.6);

/// A point of view from which the whole scene is seen; the scene must have been drawn once.
KrPovParameters frame(const KrRenderWindow& window)
{
    osg::ComputeBoundsVisitor visitor;
    visitor.setTraversalMask(KrRenderTypes::SceneContent); // not the markers
    window.getNode()->accept(visitor);
    const osg::BoundingBox box = visitor.getBoundingBox();

    // A ball of radius r fills a cone of angle a when its middle is r / sin(a / 2) away.
    KrPovParameters pov;
    const double distance = static_cast<double>(box.radius()) / std::sin(0.5 * pov.fieldOfView());
    pov.setCenterOfInterest(KrRenderTypes::osg2ec(box.center()));
    pov.setEyepoint(pov.centerOfInterest() + distance / kTowardsEye.length() * kTowardsEye);
    return pov;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s URDF PICTURE\n", argv[0]);
        return 2;
    }
    KrStatedSystem system;
    KrImportReport report;
    const bool read = KrRobotImporter::readFile(argv[1], KrImportOptions(), system, report);
    std::printf("%s", report.text().c_str());
    if (!read) {
        return 1;
    }

    KrRenderWindow window;
    window.setWindowSize(800, 600);
    window.setStatedSystem(system);
    window.setState(system.systemState());
    if (!window.renderScene(false)) {
        return 1;
    }
    KrLightParameters lights;
    lights.lights().resize(1);
    lights.lights()[0].setPosition(kTowardsEye + KrVector(0.0, -0.5, 0.5)); // a little from the side and from above
    lights.lights()[0].setDiffuse(KrColor(0.7, 0.7, 0.7));
    window.loadLight(lights);
    window.setPovParameters(frame(window));

    KrImage image;
    const bool drawn = window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor) &&
                       image.writeFile(argv[2], KrImage::BottomRowFirst);
    return drawn ? 0 : 1;
}
