#pragma once

#include <import/KrImportOptions.h>
#include <toolkit/system/KrStatedSystem.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/// What one file holds, or several of them together: manipulators with names that differ, and their joints and links in
/// one list each. Does not change any more.
class KrPySystem
{
public:
    /// One that is free to move: not fixed, and no follower of another one.
    struct Joint
    {
        std::string name;
        std::string type;   ///< "revolute", "continuous" or "prismatic"
        double lower = 0.0; ///< rad or m; infinite without a limit
        double upper = 0.0;
        std::uint32_t manipulator = 0;
        std::uint32_t index = 0; ///< in the manipulator's position state
    };
    /// A part of a scene.
    struct Part
    {
        std::shared_ptr<const KrPySystem> system;
        KrCoordinateSystemTransformation toWorld;
        std::string name;
    };

    /// Reads a URDF, a native system file or a mesh. One file at a time: others wait.
    ///
    /// Throws KrPyFailure, MissingFile or Format.
    static std::shared_ptr<KrPySystem> load(const std::string& path, const KrImportOptions& options);
    /// Puts several into one world. Throws KrPyFailure (Render) when one cannot be copied.
    /// @param parts  with names that differ
    static std::shared_ptr<KrPySystem> compose(const std::vector<Part>& parts);

    /// What it is made of, in the state of its files: for what does not ask for surfaces.
    const KrStatedSystem& stated() const { return m_system; }
    /// Of the robot in its file; of the file, where it has none.
    const std::string& name() const { return m_name; }
    /// The importer's report as JSON; empty for a composed system.
    const std::string& report() const { return m_report; }
    /// By manipulator. That of the only one is the system's.
    const std::vector<std::string>& robots() const { return m_robots; }
    /// In the order of the columns of positions.
    const std::vector<Joint>& joints() const { return m_joints; }
    /// The link's name in its file. @param link  0: the base, then 1 + joint index
    const std::string& linkName(std::uint32_t manipulator, std::uint32_t link) const
    {
        return m_links[manipulator][link];
    }
    /// The names of all links, by manipulator.
    const std::vector<std::vector<std::string>>& links() const { return m_links; }

    /// The library's sentence about a name that no joint has, with those that resemble it.
    std::string whyNoJoint(const std::string& name) const;

    /// The same, with extents that belong to the calling thread: what is asked of an extent may be reckoned then, and
    /// kept in it. Throws KrPyFailure (Render).
    const KrStatedSystem& ofThread() const;
    /// A system for one renderer on the calling thread. Extents that bend are its own, others the thread's. Throws
    /// KrPyFailure (Render).
    KrStatedSystem forDrawing() const;

private:
    KrPySystem() = default;
    /// Joints and links from m_system. @param baseNames  of the links that are manipulators
    void index(const std::vector<std::string>& baseNames);

    KrStatedSystem m_system;
    std::string m_name;
    std::string m_report;
    std::vector<std::string> m_robots;
    std::vector<Joint> m_joints;
    std::vector<std::vector<std::string>> m_links;
    std::thread::id m_thread = std::this_thread::get_id(); ///< that the extents belong to
    mutable std::mutex m_mutex;
    mutable std::map<std::thread::id, KrStatedSystem> m_copies; ///< for other threads
};
