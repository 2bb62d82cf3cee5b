#pragma once

#include "KrSampleRobot.h"

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
