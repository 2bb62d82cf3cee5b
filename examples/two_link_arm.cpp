// Builds an arm of two links in code and draws ten poses of it, without a display:  two_link_arm [FOLDER]
#include <picture/KrLighting.h>
#include <rendCore/system/KrRenderWindow.h>

#include <toolkit/extent/KrCapsulePhysicalExtent.h>
#include <toolkit/system/KrStatedSystem.h>

#include <boost/make_shared.hpp>

#include <string>

/// A rod 0.5 m long, hinged `height` metres up its parent's z axis; a positive angle leans it towards +x.
static KrManipulatorLink makeRod(const std::string& name, const std::string& joint, double height)
{
    KrCoordinateSystemTransformation hinge, middle;
    hinge.setTranslation({0.0, 0.0, height});
    middle.setTranslation({0.0, 0.0, 0.25});

    const auto rod = boost::make_shared<KrCapsulePhysicalExtent>(0.05, 0.5);
    rod->setPlacement(middle);
    rod->setMaterialName("orange");

    KrManipulatorLink link(name);
    link.addShape(rod);
    link.jointKinematics().setName(joint);
    link.jointKinematics().setType(KrJointKinematics::Type::Continuous);
    link.jointKinematics().setOrigin(hinge);
    link.jointKinematics().setAxis({0.0, 1.0, 0.0});
    return link;
}

int main(int argc, char** argv)
{
    KrIndividualManipulator arm("arm");
    arm.materialMap().set(std::string("orange"), KrDataMap::material(KrColor(0.9, 0.45, 0.1)));
    // addChildLink() gives the link that now belongs to the arm: the forearm hangs on that one.
    arm.addChildLink(makeRod("upper arm", "shoulder", 0.0)).addChildLink(makeRod("forearm", "elbow", 0.5));
    KrManipulatorSystem manipulators;
    manipulators.manipulators().push_back(arm);
    KrStatedSystem system(manipulators);

    KrPovParameters pov; // metres, z up
    pov.setEyepoint({0.4, -2.2, 1.0});
    pov.setCenterOfInterest({0.3, 0.0, 0.45});

    KrRenderWindow window;
    window.setWindowSize(640, 480);
    window.setStatedSystem(system);
    window.setPovParameters(pov); // this and the light after the system
    KrLighting::light(window);    // as seen from there

    for (int i = 0; i < 10; ++i) {
        system.setJointPosition(0, "shoulder", 0.05 * i); // radians
        system.setJointPosition(0, "elbow", 0.2 * i);
        // The window draws the state that it is given, not what the system has become.
        window.setState(system.systemState());
        const std::string file = std::string(argc > 1 ? argv[1] : ".") + "/pose" + std::to_string(i) + ".png";
        KrImage image;
        if (!window.renderSceneAndCaptureImage(image, KrSGWindow::CaptureColor) ||
            !image.writeFile(file, KrImage::BottomRowFirst)) {
            return 1;
        }
    }
    return 0;
}
