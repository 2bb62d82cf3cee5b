#pragma once

#include <toolkit/math/KrVector.h>

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

/// What an import found, mended and left out: a value that prints for a person and writes as JSON.
class KrImportReport
{
public:
    /// One thing that was mended, guessed or left out.
    struct Warning
    {
        std::string file;      ///< the file that holds the element
        std::string element;   ///< "link arm_2 / visual 1", "joint wrist"; empty for the file as a whole
        std::string text;      ///< one sentence
        unsigned int line = 0; ///< of the element in the file, from 1; 0 where that is not known. Not printed
    };

    /// One mesh of one visual or collision element.
    struct Mesh
    {
        std::string link;
        std::string element;            ///< "visual 1", "collision 2"
        std::string uri;                ///< as the robot description gives it
        std::string path;               ///< the file it came from; empty when none was found
        std::string rule;               ///< how the path was found: "package folder", "relative to the file", ...
        std::vector<std::string> tried; ///< the paths that were tried, in that order, the one found last
        double unit = 1.0;              ///< metres per unit of length in the file
        KrVector scale = KrVector(1.0, 1.0, 1.0);
        std::size_t triangles = 0; ///< after degenerate ones were skipped
        std::size_t degenerate = 0;
        std::size_t groups = 0;   ///< triangle groups, one for each material
        bool missing = false;     ///< not found or not readable: a stand-in is drawn instead
        bool isCollision = false; ///< a bounding volume, otherwise a visible shape
    };

    /// How much of each kind the robot has.
    struct Counts
    {
        std::size_t links = 0;
        std::size_t joints = 0;
        std::size_t movableJoints = 0;
        std::size_t mimicJoints = 0;
        std::size_t visuals = 0;
        std::size_t collisions = 0;
        std::size_t triangles = 0; ///< of visible shapes
        std::size_t materials = 0; ///< looks, of the robot and of its meshes
        std::size_t textures = 0;  ///< image files in use
        std::size_t missingMeshes = 0;
    };

    const std::string& robot() const { return m_robot; }
    void setRobot(const std::string& name) { m_robot = name; }
    const std::string& file() const { return m_file; }
    void setFile(const std::string& path) { m_file = path; }

    const Counts& counts() const { return m_counts; }
    Counts& counts() { return m_counts; }

    const std::vector<Warning>& warnings() const { return m_warnings; }
    /// A warning with the same file, element and text as an earlier one is not kept twice. Each becomes short lines of
    /// UTF-8, and Kr::Limits::kWarnings are kept.
    void addWarning(const std::string& file, const std::string& element, const std::string& text,
                    unsigned int line = 0);

    const std::vector<Mesh>& meshes() const { return m_meshes; }
    void addMesh(const Mesh& mesh) { m_meshes.push_back(mesh); }

    /// Several lines for a person to read, the last one ended: counts, missing meshes with every path tried, warnings.
    std::string text() const;
    /// One JSON object, UTF-8; bytes that are no UTF-8 become U+FFFD, numbers that are not finite become null.
    std::string json() const;
    /// Writes json() to a file that is complete or as it was before. False, after one message, when that cannot be.
    bool writeJson(const std::string& path) const;

private:
    std::string m_robot;
    std::string m_file;
    Counts m_counts;
    std::vector<Warning> m_warnings;
    std::set<std::string> m_seen; ///< of the warnings, so that none is kept twice
    std::vector<Mesh> m_meshes;
};
