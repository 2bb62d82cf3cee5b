#pragma once

#include <import/mesh/KrMeshBuilder.h>
#include <import/mesh/KrMeshLimits.h>

#include <toolkit/foundation/private/KrHeldMessages.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

/// Reads the mesh files of a robot and makes extents of them: on all cores, and each file once, whatever names it goes
/// by.
///
/// What is wanted is told first, then loaded at once, then asked for in the order of the description. What a file or a
/// mesh had to say on the way is kept with it, so that messages come in that order, too. What was not told is loaded
/// when it is asked for.
///
/// The limits hold for all files that are read at the same time together: each of them may have its part, and one that
/// needs more is read alone when the others are done.
class KrMeshLoader
{
public:
    /// How a shape wants the mesh of a file.
    struct Wish
    {
        KrVector scale = KrVector(1.0, 1.0, 1.0);
        bool useLooks = true;         ///< as in KrMeshBuilder::Options
        std::string material;         ///< for triangles without a look of their own
        bool hasTexture = false;      ///< that material
        bool hasPlainTexture = false; ///< the material of plainName(material)
        bool operator<(const Wish& other) const;
    };
    /// What there is to say of a mesh file besides its surface.
    struct Facts
    {
        double unit = 1.0; ///< as in KrMeshData
        std::string upAxis;
        std::vector<std::string> textures;
        std::vector<std::string> warnings;
        std::size_t numLooks = 0;
        bool hasPlainGroups = false; ///< triangles without a look
        bool hasTextureCoordinates = false;
    };
    struct File
    {
        bool isRead = false;
        std::string why; ///< it is not
        Facts facts;
        KrHeldMessages::List messages;
    };
    struct Mesh
    {
        KrMeshBuilder::Result result; ///< its extent without a placement
        KrHeldMessages::List messages;
        bool isTaken = false; ///< the extent belongs to a shape; the next one has to copy it
    };

    explicit KrMeshLoader(const KrMeshLimits& limits);
    ~KrMeshLoader();

    /// The name of a material's stand-in for surfaces without texture coordinates.
    static std::string plainName(const std::string& material) { return material + " without texture"; }

    /// Tells what will be asked for.
    void want(const std::string& path, const Wish& wish);
    /// Loads what was told. Nothing is thrown: what fails, memory too, costs its file.
    void load();

    /// Borrowed for as long as the loader lives.
    const File& file(const std::string& path);
    /// The same for all names of one content, where that is all that the mesh is made of.
    const std::string& identity(const std::string& path);
    /// Of a file that is read. Borrowed as well; the caller marks what it takes.
    Mesh& mesh(const std::string& path, const Wish& wish);

private:
    struct Job;

    Job& jobOf(const std::string& path);
    std::vector<Job*> uniqueJobs();
    void run(const std::vector<Job*>& jobs);
    void runJob(Job& job, const KrMeshLimits& limits, bool isAlone);

    KrMeshLimits m_limits;
    std::map<std::string, std::unique_ptr<Job>> m_jobs; ///< by path
};
