#pragma once

#include <import/KrImportOptions.h>
#include <import/report/KrImportReport.h>
#include <toolkit/system/KrVisualizableStatedSystem.h>

#include <string>

/// What a file holds that can be drawn: a robot description (URDF), a native system file (visualizableStatedSystem,
/// statedSystem or manipulatorSystem) or a single mesh. Which of them it is, its content says.
struct KrSystemFile
{
    /// What is taken besides systems.
    enum class Accept
    {
        Systems,
        SystemsAndMeshes ///< a mesh becomes a manipulator of one link, both named after the file
    };

    /// What it was.
    enum class Kind
    {
        Robot,
        Native,
        Mesh
    };

    Kind kind = Kind::Robot;
    KrVisualizableStatedSystem system;
    bool hasView = false;  ///< the file brought visualization parameters of its own
    KrImportReport report; ///< of native files what an import would have counted

    /// What a native file names relative to itself (textures) is named in full afterwards. A pipe holds a URDF.
    /// @param options  of an import
    /// @param reason   why not: one sentence without a full stop, in which the path stands
    /// @return false for a file that is not there, is a folder, empty, or holds nothing of what is taken; what this
    ///         object holds is of no use then
    bool read(const std::string& path, const KrImportOptions& options, Accept accept, std::string& reason);

    /// The name of the first element of an XML text, without its prefix; empty when there is none.
    static std::string rootElement(const std::string& text);

private:
    bool readNative(const std::string& path, const std::string& root, std::string& reason);
    void countNative(const std::string& path);
};
