#pragma once

#include <import/description/KrRobotDescription.h>
#include <import/mesh/KrMeshBuilder.h>
#include <import/mesh/KrMeshLoader.h>
#include <import/report/KrImportReport.h>

#include <boost/shared_ptr.hpp>

#include <map>
#include <set>
#include <string>
#include <vector>

class KrBasePhysicalExtent;
class KrIndividualManipulator;
class KrPathResolver;

/// Makes the extents of a robot's visual and collision elements: primitives, and meshes with their files.
///
/// A mesh file is read once, however many elements name it, and elements that look alike share one extent. A mesh that
/// is missing, or no good, is a line of the report, and a small stand-in takes the place of a visible one.
class KrShapeBuilder
{
public:
    using ExtentPointer = boost::shared_ptr<KrBasePhysicalExtent>;

    /// Of a path in a message, bytes.
    static constexpr std::size_t kMaxPath = 400;

    /// All are borrowed for as long as the builder lives.
    /// @param robot        as KrRobotRepair leaves it
    /// @param loading      how its mesh files are read
    /// @param manipulator  its materials are there; those that shapes need besides are added
    KrShapeBuilder(const KrRobotDescription& robot, KrPathResolver& resolver, const KrMeshLoader::Options& loading,
                   KrIndividualManipulator& manipulator, KrImportReport& report);

    /// Reads the mesh files of all elements at once, so that those that follow find them read.
    void loadMeshes();
    /// Null, after a warning, for an element without a surface.
    ExtentPointer visual(const KrRobotDescription::Link& link, const KrRobotDescription::Shape& shape);
    /// As visual(), but without looks and stand-ins. A mesh that is seen at the same place is the same extent.
    ExtentPointer collision(const KrRobotDescription::Link& link, const KrRobotDescription::Shape& shape);
    /// The one volume that a viewer shows for a link's collision extents; null when there are none.
    ExtentPointer volumeOf(const std::vector<ExtentPointer>& collisions);

    /// Warns of the mesh files so far that declare an up axis other than z.
    void warnOfUpAxes();
    /// The image files that meshes use.
    const std::set<std::string>& textures() const { return m_textures; }

private:
    /// One visual or collision element on its way to an extent.
    struct Element
    {
        const KrRobotDescription::Link& link;
        const KrRobotDescription::Shape& shape;
        std::string material;
        bool isCollision = false;
        std::string name() const { return "link " + link.name + " / " + shape.label; }
    };
    ExtentPointer extentOf(const Element& element);
    ExtentPointer meshOf(const Element& element);
    ExtentPointer builtMesh(const KrMeshLoader::File& file, const Element& element, KrImportReport::Mesh& line);
    const KrMeshBuilder::Result& sharedMesh(const KrMeshFacts& facts, const Element& element,
                                            const KrImportReport::Mesh& line, const std::string& place);
    const KrMeshLoader::File& meshFile(const std::string& path, const Element& element);
    KrMeshLoader::Wish wishOf(const Element& element) const;
    ExtentPointer standIn(const Element& element) const;
    std::string usableMaterial(bool hasCoordinates, const Element& element);
    bool hasTexture(const std::string& material) const;
    void warn(const Element& element, const std::string& text);

    const KrRobotDescription& m_robot;
    KrPathResolver& m_resolver;
    KrMeshLoader m_loader;
    KrIndividualManipulator& m_manipulator;
    KrImportReport& m_report;
    std::set<std::string> m_meshes;                                 ///< paths of files that are in the report
    std::map<std::string, KrMeshBuilder::Result> m_shared;          ///< by everything that makes an extent what it is
    std::map<std::string, std::string> m_visibleMeshes;             ///< keys of m_shared by file, scale and placement
    std::set<const KrBasePhysicalExtent*> m_visibleExtents;         ///< meshes that are seen, and may collide as well
    std::map<const KrBasePhysicalExtent*, ExtentPointer> m_volumes; ///< of visible extents, in the volumes' look
    std::set<std::string> m_textures;
    std::vector<std::string> m_lyingMeshes; ///< files that declare another up axis than z
};
