#pragma once

#include "KrSampleRobot.h"

#include <string>
#include <vector>

// The sample systems. Each robot stands on the xy plane, z up, and looks along +x; metres.

/// Six axes, 1.2 m reach, with a parallel gripper.
KrSampleRobot sampleIndustrialArm();
/// A floor to stand on, with a darker disc under the robot.
KrSampleRobot sampleWorkshopFloor(double radius, double discRadius);

/// A wheeled base with a lifting torso, a head and two arms with three-fingered hands.
KrSampleRobot sampleDualArmBase();

/// Six wheels on rockers, a mast and a small arm; `textures` is the folder of its pictures, relative to the file.
KrSampleRobot sampleTexturedRover(const std::string& textures);
/// A patch of desert.
KrSampleRobot sampleDesertPatch(const std::string& textures);

/// What a sample's file says in place of an element that the toolkit wrote: short forms that are read only.
struct KrSampleEdit
{
    std::string element; ///< name, without prefix, of the first one
    std::string text;    ///< the whole element
};

/// A ribbed hose on a stand that bends with the joint "bend" (0 to 2.6 rad), painted; its edits cut it.
KrIndividualManipulator sampleHose();
std::vector<KrSampleEdit> sampleHoseEdits();

/// Smoke above a burner, in front of where the arm stands; its edits name the file of values.
KrIndividualManipulator samplePlume();
std::vector<KrSampleEdit> samplePlumeEdits();
bool writeSamplePlumeField(const std::string& path);
