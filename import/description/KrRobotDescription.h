#pragma once

#include <toolkit/math/KrCoordinateSystemTransformation.h>
#include <toolkit/math/KrVector.h>
#include <toolkit/system/KrJointKinematics.h>

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

/// A robot as a file describes it, whatever the file's format: what a format's reader fills in, KrRobotRepair mends and
/// KrRobotBuilder builds from.
///
/// Metres, radians, kilograms, seconds. Readers see to what stands in one element: numbers are finite and within single
/// precision, sizes and masses not negative, words known; what they cannot read they report and leave out. Links have
/// names that differ, joints name both their ends. Everything beyond that is the repair's: until then joints may have
/// no name or one that is there twice, and may lead nowhere or in circles.
struct KrRobotDescription
{
    /// Where an element stands.
    struct Place
    {
        std::size_t file = 0;  ///< index into `files`
        unsigned int line = 0; ///< from 1; 0 where the format knows none
    };

    /// What a material looks like.
    struct Look
    {
        bool hasColor = false;
        std::array<double, 4> color{0.0, 0.0, 0.0, 1.0}; ///< red, green, blue, opacity, each in [0, 1]
        std::string texture;                             ///< an image, as the file names it; empty without one

        bool isEmpty() const { return !hasColor && texture.empty(); }
        bool operator<(const Look& other) const { return key() < other.key(); }
        bool operator==(const Look& other) const { return key() == other.key(); }

    private:
        std::tuple<const bool&, const std::array<double, 4>&, const std::string&> key() const
        {
            return std::tie(hasColor, color, texture);
        }
    };

    /// A look under a name, for every shape that gives the name.
    struct Material
    {
        Place place;
        std::string name;
        Look look;
        bool isGlobal = true; ///< false for one that is defined inside a shape
    };

    /// What a shape says about its material.
    struct MaterialUse
    {
        std::string name;      ///< repaired: of one of `materials`, or empty for the default look
        Look look;             ///< its own, which counts before that of the name; empty when repaired
        bool isBroken = false; ///< it gives a look that could not be read, and that has been reported
    };

    struct Geometry
    {
        enum class Form
        {
            Box,
            Sphere,
            Cylinder,
            Capsule,
            Mesh
        };
        Form form = Form::Box;
        KrVector size;                            ///< of a box: its edges, m
        double radius = 0.0;                      ///< m
        double length = 0.0;                      ///< of a cylinder, and of a capsule without its ends; along z, m
        std::string uri;                          ///< of a mesh, as the file names it
        KrVector scale = KrVector(1.0, 1.0, 1.0); ///< of a mesh; negative mirrors
    };

    /// A visual or collision element.
    struct Shape
    {
        Place place;
        std::string label;                          ///< its place in the link: "visual 1", "collision 2"
        KrCoordinateSystemTransformation placement; ///< shape frame to link frame
        Geometry geometry;
        MaterialUse material; ///< of visuals only
    };

    struct Inertial
    {
        Place place;
        KrCoordinateSystemTransformation frame; ///< of the centre of mass and the axes, to link frame
        double mass = 0.0;                      ///< kg
        std::array<double, 6> inertia{};        ///< ixx, ixy, ixz, iyy, iyz, izz in that frame, kg m^2
    };

    struct Link
    {
        Place place;
        std::string name;
        std::optional<Inertial> inertial;
        std::vector<Shape> visuals;
        std::vector<Shape> collisions;
    };

    struct Joint
    {
        Place place;
        std::string name;
        KrJointKinematics::Type type = KrJointKinematics::Type::Fixed;
        std::string parent;                      ///< link
        std::string child;                       ///< link
        KrCoordinateSystemTransformation origin; ///< child link frame to parent link frame, joint at 0
        KrVector axis = KrVector(1.0, 0.0, 0.0); ///< in the child's frame; of any length before the repair
        bool hasLimits = false;
        double lower = 0.0;           ///< rad or m
        double upper = 0.0;           ///< rad or m
        double maximumEffort = 0.0;   ///< N m or N
        double maximumVelocity = 0.0; ///< rad/s or m/s
        std::string mimicMaster;      ///< the joint that it follows; empty when it moves by itself
        double mimicMultiplier = 1.0;
        double mimicOffset = 0.0; ///< rad or m
    };

    std::vector<std::string> files;  ///< paths; the first one is the description's own
    std::string name;                ///< of the robot
    Place place;                     ///< of the robot's own element
    std::vector<Material> materials; ///< as the file defines them; repaired: those in use, by name
    std::vector<Link> links;         ///< in the order of the file
    std::vector<Joint> joints;       ///< in the order of the file
};
