#pragma once

#include <import/KrSystemFile.h>

#include <string>

class KrAppMessages;

/// The system that the command line names, read and ready to be posed.
struct KrAppRobot : KrSystemFile
{
    /// Reads a URDF or a native system file; "-" is the standard input. Throws KrAppFailure (CouldNot): see
    /// KrSystemFile::read.
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
};
