// Draws a system file from four sides, in one picture:  multi_view SYSTEM.xml PICTURE
#include <rendCore/system/KrMultiRenderWindow.h>

#include <toolkit/system/KrVisualizableStatedSystem.h>

#include <osg/ComputeBoundsVisitor>
#include <osg/Group>

#include <cmath>
#include <cstdio>

namespace
{

/// Looks from the direction `towardsEye`. A ball of radius r fills a cone of angle a when its middle is r / sin(a / 2)
/// away; a robot is slimmer than the ball about it.
KrPovParameters look(const osg::BoundingBox& box, const KrVector& towardsEye, const KrVector& up)
{
    KrPovParameters pov;
    const double distance = 0.75 * static_cast<double>(box.radius()) / std::sin(0.5 * pov.fieldOfView());
    pov.setCenterOfInterest(KrRenderTypes::osg2ec(box.center()));
    pov.setEyepoint(pov.centerOfInterest() + distance / towardsEye.length() * towardsEye);
    pov.setUp(up);
    return pov;
}

osg::BoundingBox boundsOf(const KrRenderWindow& window)
{
    osg::ComputeBoundsVisitor visitor;
    visitor.setTraversalMask(KrRenderTypes::SceneContent); // not the markers
    window.getNode()->accept(visitor);
    return visitor.getBoundingBox();
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s SYSTEM.xml PICTURE\n", argv[0]);
        return 2;
    }
    KrVisualizableStatedSystem system;
    if (!system.readFile(argv[1])) {
        return 1;
    }
    KrMultiRenderWindow window;
    window.setNumColumnsHint(2);
    window.setWindowParams(320, 240, 4); // of one view; the picture has 640 x 480 pixels
    KrXmlVectorType<KrPovParameters> views;
    views.resize(4);
    window.setPovParametersVector(views);
    window.setVisualizableStatedSystem(system);
    if (!window.renderScene(false)) { // opens the window, builds the scene and poses it
        return 1;
    }

    const osg::BoundingBox box = boundsOf(window);
    const KrVector z(0.0, 0.0, 1.0);
    views[0] = look(box, KrVector(1.0, 0.0, 0.0), z);                   // front: the robot faces +x
    views[1] = look(box, KrVector(0.0, -1.0, 0.0), z);                  // its right side
    views[2] = look(box, KrVector(0.0, 0.0, 1.0), KrVector(0, 1.0, 0)); // above
    views[3] = look(box, KrVector(1.0, -0.8, 0.6), z);
    window.setPovParametersVector(views);
    window.setPovParameters(views[0]); // view 0 is the window's own

    KrLightParameters lights;
    lights.lights().resize(1);
    lights.lights()[0].setPosition(KrVector(1.0, -1.0, 1.5)); // one lamp for all views
    lights.lights()[0].setDiffuse(KrColor(0.7, 0.7, 0.7));
    window.loadLight(lights);

    KrImage image;
    const bool drawn =
        window.captureWindow(image, KrSGWindow::CaptureColor) && image.writeFile(argv[2], KrImage::BottomRowFirst);
    return drawn ? 0 : 1;
}
