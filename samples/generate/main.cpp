// Makes the files of the folder `samples`:  krGenerateSamples FOLDER
//
// The output depends on nothing but this program: run again, it writes the same bytes.

#include "KrSampleSystems.h"
#include "KrSampleTextures.h"

#include <toolkit/system/KrVisualizableStatedSystem.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

namespace
{

using Pose = std::vector<std::pair<std::string, double>>;

constexpr double kDegree = 3.14159265358979323846 / 180.0;

KrLight directionalLight(const KrVector& towards, double brightness, double highlight)
{
    KrLight light;
    light.setPosition(towards);
    light.setDiffuse({brightness, brightness, brightness});
    light.setSpecular({highlight, highlight, highlight});
    return light;
}

/// From the front right, with a strong light from above the viewer's left and a weak one from the right.
KrVisualizationParameters view(const KrVector& eye, const KrVector& center)
{
    KrVisualizationParameters parameters;
    KrPovParameters pov;
    pov.setEyepoint(eye);
    pov.setCenterOfInterest(center);
    pov.setFieldOfView(30.0 * kDegree);
    parameters.setPovParameters(pov);
    KrLightParameters lights;
    lights.lights().push_back(directionalLight({-0.2, -1.0, 1.2}, 0.62, 0.6));
    lights.lights().push_back(directionalLight({1.0, 0.3, 0.4}, 0.22, 0.1));
    parameters.setLightParameters(lights);
    KrRenderParameters render;
    render.setBackgroundColor({0.93, 0.94, 0.96});
    parameters.setRenderParameters(render);
    return parameters;
}

/// Puts the text of each edit in the place of its element; false when there is no such element.
bool apply(const std::vector<KrSampleEdit>& edits, std::string& document)
{
    for (const KrSampleEdit& edit : edits) {
        const std::string open = "<core:" + edit.element;
        const std::string close = "</core:" + edit.element + ">";
        const std::size_t start = document.find(open);
        if (start == std::string::npos) {
            return false;
        }
        const std::size_t tagEnd = document.find('>', start);
        const bool isEmpty = document[tagEnd - 1] == '/';
        const std::size_t end = isEmpty ? tagEnd + 1 : document.find(close, start) + close.size();
        document.replace(start, end - start, edit.text);
    }
    return true;
}

bool writeText(const std::string& path, const std::string& text)
{
    std::ofstream file(path, std::ios::binary);
    return file.write(text.data(), static_cast<std::streamsize>(text.size())) && file.flush();
}

bool writeSystem(const std::string& path, const std::vector<KrIndividualManipulator>& manipulators, const Pose& pose,
                 const KrVisualizationParameters& parameters, const std::vector<KrSampleEdit>& edits = {})
{
    KrManipulatorSystem system;
    for (const KrIndividualManipulator& manipulator : manipulators) {
        system.manipulators().push_back(manipulator);
    }
    KrVisualizableStatedSystem whole;
    whole.statedSystem() = KrStatedSystem(system);
    whole.visualizationParameters() = parameters;
    bool ok = true;
    for (const auto& [joint, position] : pose) {
        ok = whole.statedSystem().setJointPosition(0, joint, position) && ok;
    }
    std::string document;
    return ok && whole.writeBuffer(document) && apply(edits, document) && writeText(path, document);
}

const Pose kArmPose = {{"joint_1", 0.12}, {"joint_2", 0.50}, {"joint_3", -0.22},     {"joint_4", 0.0},
                       {"joint_5", 1.22}, {"joint_6", 0.5},  {"gripper_left", 0.022}};

const Pose kDualArmPose = {{"torso_lift", 0.14},
                           {"head_pan", 0.15},
                           {"head_tilt", 0.22},
                           {"left_shoulder_pitch", -0.55},
                           {"left_shoulder_roll", 0.22},
                           {"left_shoulder_yaw", -0.30},
                           {"left_elbow", -1.35},
                           {"left_forearm_roll", 0.5},
                           {"left_wrist", 0.15},
                           {"left_grip", 0.35},
                           {"right_shoulder_pitch", -0.20},
                           {"right_shoulder_roll", 0.30},
                           {"right_shoulder_yaw", 0.10},
                           {"right_elbow", -1.05},
                           {"right_wrist", -0.30},
                           {"right_grip", 0.70}};

const Pose kRoverPose = {{"panel_left_hinge", 0.30}, {"panel_right_hinge", 0.30}, {"mast_pan", -0.35},
                         {"mast_tilt", 0.30},        {"antenna_pan", -0.5},       {"antenna_tilt", 0.85},
                         {"arm_shoulder", -0.55},    {"arm_elbow", 1.55},         {"arm_wrist", 0.45}};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    const std::string folder = argv[1];
    const KrSampleRobot arm = sampleIndustrialArm();
    const KrIndividualManipulator floor = sampleWorkshopFloor(0.55, 0.30).manipulator();
    const bool ok =
        writeSystem(folder + "/industrial_arm.xml", {arm.manipulator(), floor}, kArmPose,
                    view({2.9, -2.6, 1.6}, {0.25, 0.0, 0.50})) &&
        arm.writeUrdf(folder, "industrial_arm.urdf", "meshes") &&
        writeSystem(folder + "/dual_arm_base.xml",
                    {sampleDualArmBase().manipulator(), sampleWorkshopFloor(0.60, 0.40).manipulator()}, kDualArmPose,
                    view({3.9, -2.6, 1.9}, {0.0, 0.0, 0.68})) &&
        writeSampleTextures(folder + "/textures") &&
        writeSystem(folder + "/textured_rover.xml",
                    {sampleTexturedRover("textures").manipulator(), sampleDesertPatch("textures").manipulator()},
                    kRoverPose, view({3.4, -3.3, 2.0}, {0.0, 0.0, 0.40})) &&
        writeSystem(folder + "/hose.xml", {sampleHose(), floor}, {{"bend", 1.75}},
                    view({1.55, -2.15, 1.2}, {0.14, 0.0, 0.36}), sampleHoseEdits()) &&
        writeSystem(folder + "/plume.xml", {arm.manipulator(), floor, samplePlume()}, kArmPose,
                    view({2.3, -2.4, 1.1}, {0.36, 0.0, 0.60}), samplePlumeEdits()) &&
        writeSamplePlumeField(folder + "/plume.nrrd");
    return ok ? 0 : 1;
}
