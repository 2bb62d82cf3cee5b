#pragma once

#include "KrSampleSolid.h"

#include <toolkit/math/KrColor.h>
#include <toolkit/system/KrJointKinematics.h>
#include <toolkit/system/KrManipulatorSystem.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

/// What a surface looks like.
struct KrSampleMaterial
{
    KrColor color;
    double specular = 0.2;   ///< brightness of the highlight, 0 to 1
    double shininess = 30.0; ///< 0 to 128
    std::string texture;     ///< a picture beside the system file; empty for none
};

/// A simple body that stands for a link in collision checks.
struct KrSampleVolume
{
    enum class Kind
    {
        Box,     ///< size: edge lengths
        Cylinder ///< size.x: radius, size.y: length, about the z axis
    };
    Kind kind = Kind::Box;
    KrVector size;
    KrVector center;
    KrVector rollPitchYaw; ///< rad
};

/// A link of a sample robot: the one description from which the native system and the URDF are made.
struct KrSampleLink
{
    std::string name;
    int parent = -1; ///< index in the robot's list, lower than the link's own; -1 for the base

    // The joint that moves it.
    std::string joint;
    KrJointKinematics::Type type = KrJointKinematics::Type::Fixed;
    KrVector origin;
    KrVector originRollPitchYaw; ///< rad
    KrVector axis = KrVector(0.0, 0.0, 1.0);
    double lower = 0.0, upper = 0.0;     ///< rad or m
    double velocity = 0.0, effort = 0.0; ///< rad/s or m/s, N m or N
    std::string mimicMaster;
    double mimicMultiplier = 1.0;

    /// Bodies with the name of their material.
    std::vector<std::pair<std::string, KrSampleSolid>> parts;
    int sharesShapeOf = -1;  ///< index of an earlier link whose shape this one shares; -1 for none
    double density = 1500.0; ///< kg/m^3 of the whole, hollow spaces included
    std::vector<KrSampleVolume> volumes;

    void add(const std::string& material, const KrSampleSolid& solid) { parts.emplace_back(material, solid); }
};

/// Mass, centre of mass and inertia (Ixx, Iyy, Izz, Ixy, Ixz, Iyz about the centre) of bodies of even density.
struct KrSampleMass
{
    double mass = 0.0;
    KrVector center;
    std::array<double, 6> inertia{};
};

class KrSampleRobot
{
public:
    std::string name;
    std::map<std::string, KrSampleMaterial> materials;
    std::vector<KrSampleLink> links;

    /// Appends a link and gives its index.
    int add(const KrSampleLink& link);

    /// The robot as a manipulator of the toolkit: one mesh a link, a group for each material.
    KrIndividualManipulator manipulator() const;
    /// Integrates over the tetrahedra between the origin and each triangle.
    KrSampleMass mass(const KrSampleLink& link) const;
    /// The link whose parts are drawn: itself or the one it shares with.
    const KrSampleLink& shapeOwner(const KrSampleLink& link) const;

    /// Writes `path` and, under the folder `meshes` beside it, an OBJ file for each link that has parts.
    bool writeUrdf(const std::string& folder, const std::string& file, const std::string& meshes) const;
};
