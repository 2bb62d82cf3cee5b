#pragma once

#include <import/KrImportOptions.h>
#include <import/report/KrImportReport.h>
#include <toolkit/system/KrVisualizableStatedSystem.h>

#include <string>

class KrAppMessages;

/// The system that the command line names, read and ready to be posed.
struct KrAppRobot
{
    KrVisualizableStatedSystem system;
    bool hasView = false; ///< the file brought visualization parameters of its own
    KrImportReport report;

    /// Reads a URDF or a native system file (visualizableStatedSystem, statedSystem or manipulatorSystem).
    ///
    /// What a native file names relative to itself (textures) is named in full afterwards.
    /// A pipe holds a URDF. Throws KrAppFailure (CouldNot): no such file, a folder, empty, binary, no system in it.
    /// @param options  of an import
    void read(const std::string& file, const KrImportOptions& options, KrAppMessages& messages);

    KrStatedSystem& statedSystem() { return system.statedSystem(); }
    const KrStatedSystem& statedSystem() const { return system.statedSystem(); }
    const KrXmlVectorType<KrIndividualManipulator>& manipulators() const
    {
        return statedSystem().manipulatorSystem().manipulators();
    }
    /// Whether there is anything to see without an aid: a surface or a field.
    bool hasVisibleShape() const;
    std::size_t numCollisionShapes() const;
    /// Of all visible shapes; a field has none.
    std::size_t numTriangles() const;

    /// The name of the first element of an XML text, without its prefix; empty when there is none.
    static std::string rootElement(const std::string& text);
};
