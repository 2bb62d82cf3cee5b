#pragma once

#include <toolkit/math/KrVector.h>

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

/// What an import found, mended and left out: a value that prints for a person and writes as JSON.
///
/// The importer fills it in as it goes, so that after a failure it holds what was found until then. Copies are
/// independent; nothing here throws but for want of memory.
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
    ///
    /// `rule` is empty where nothing was found, and otherwise one of these, in the order of the search:
    /// - "the absolute path", "relative to the description": the name as it stands;
    /// - "a folder above that bears the package's name": a folder that the description lies in;
    /// - "a folder above whose package.xml gives the name";
    /// - "a folder beside one above": it bears the package's name and lies beside a folder that the description lies
    /// in;
    /// - "a folder of the package's name inside the description's own folders": anywhere in its bundle;
    /// - "the rest of the path below a folder above": the path without the package, under a folder above;
    /// - "the last parts of the path below a folder above": of at least a folder and a file;
    /// - "the same name in another mesh format or spelling": beside one of the paths tried;
    /// - "a package folder": one that the options name, or ROS_PACKAGE_PATH.
    ///
    /// The fifth to the eighth are guesses, of which a warning tells as well. The first three steps for packages end
    /// with
    /// ", the third slash of package:/// left out" where the name was written so.
    struct Mesh
    {
        std::string link;    ///< the name of the link that it belongs to
        std::string element; ///< "visual 1", "collision 2": its place in the link, each kind counted by itself
        std::string uri;     ///< as the robot description gives it
        std::string path;    ///< the file it came from, absolute; empty when none was found
        std::string rule;    ///< how the path was found, see above
        std::vector<std::string> tried;           ///< absolute paths, in the order of the search, the one found last
        double unit = 1.0;                        ///< metres per unit of length in the file
        KrVector scale = KrVector(1.0, 1.0, 1.0); ///< of the description, along the mesh's own axes
        std::size_t triangles = 0;                ///< after degenerate ones were skipped
        std::size_t degenerate = 0;               ///< skipped: their corners lie on a line, or are not finite
        std::size_t groups = 0;                   ///< triangle groups, one for each material
        bool missing = false;                     ///< not found or not usable: a stand-in is drawn for a visible one
        bool isCollision = false;                 ///< collision geometry, otherwise a visible shape
    };

    /// How much of each kind the robot has, after it was mended.
    struct Counts
    {
        std::size_t links = 0;         ///< the base among them
        std::size_t joints = 0;        ///< fixed ones among them
        std::size_t movableJoints = 0; ///< those that are not fixed, mimic joints among them
        std::size_t mimicJoints = 0;   ///< those that follow another one
        std::size_t visuals = 0;       ///< elements, those that draw nothing among them
        std::size_t collisions = 0;    ///< elements
        std::size_t triangles = 0;     ///< of visible shapes, stand-ins among them
        std::size_t materials = 0;     ///< looks, of the robot and of its meshes
        std::size_t textures = 0;      ///< image files in use
        std::size_t missingMeshes = 0; ///< elements, not files
    };

    /// The robot's name; empty until it is known.
    const std::string& robot() const { return m_robot; }
    void setRobot(const std::string& name) { m_robot = name; }
    /// The path of the robot description, as the caller gave it.
    const std::string& file() const { return m_file; }
    void setFile(const std::string& path) { m_file = path; }

    /// For reading, and for the importer to count in.
    const Counts& counts() const { return m_counts; }
    Counts& counts() { return m_counts; }

    /// In the order in which they came up: first what a format's reader finds, then what holds between elements, then
    /// meshes and textures.
    const std::vector<Warning>& warnings() const { return m_warnings; }
    /// A warning with the same file, element and text as an earlier one is not kept twice. Each becomes short lines of
    /// UTF-8, and Kr::Limits::kWarnings are kept, with one more that says so.
    /// @param line  of the element in the file, from 1; 0 where that is not known
    void addWarning(const std::string& file, const std::string& element, const std::string& text,
                    unsigned int line = 0);

    /// One for each mesh element, in the order of the links from the base outwards.
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
