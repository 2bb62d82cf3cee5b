#pragma once

#include <toolkit/extent/KrBasePhysicalExtent.h>
#include <toolkit/extent/KrTriangle.h>
#include <toolkit/material/KrMaterialMap.h>
#include <toolkit/math/KrPlanarVector.h>
#include <toolkit/math/KrXmlVectorVector.h>
#include <toolkit/xml/KrXmlPairType.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

class KrIndexedMesh;
struct KrKnownMesh;

/// A triangle mesh in named groups, each group with one material.
///
/// Validated where it is made: every index is in range, every number finite, every corner has a normal. Copies share
/// the lists of the mesh for as long as neither is set anew; several threads may look at them.
class KrTriPhysicalExtent : public KrXmlObjectOf<KrTriPhysicalExtent, KrBasePhysicalExtent>
{
public:
    using Group = KrXmlPairType<KrXmlBasicType<std::string>, KrXmlVectorType<KrTriangle>>;

    KrTriPhysicalExtent() = default;

    /// In the extent's own frame, m; normals have length 1. Borrowed until the mesh is set anew.
    const KrXmlVectorVector& vertices() const { return m_lists.get().vertices; }
    const KrXmlVectorVector& normals() const { return m_lists.get().normals; }
    /// Empty for a mesh without texture coordinates.
    const KrXmlVectorType<KrPlanarVector>& textureCoordinates() const { return m_lists.get().textureCoordinates; }
    const KrXmlVectorType<Group>& groups() const { return m_lists.get().groups; }
    std::size_t numTriangles() const;

    unsigned int numGroupNames() const override;
    std::string groupName(unsigned int i) const override;

    /// Looks of the groups, by group name; asked before the manipulator's material map.
    const KrMaterialMap& materialMap() const { return m_materialMap; }
    void setMaterial(const std::string& groupName, const KrDataMap& material);
    void setMaterialMap(const KrMaterialMap& materials);

    /// Sets the whole mesh. Empty `normals` are computed: one per triangle (flat), and the triangles'
    /// normal indices are set; so are single normals of length zero. Triangles whose corners lie on a line are left out
    /// where their normal would have to be computed. Other normals are scaled to length 1. Without texture coordinates
    /// the triangles' indices into them become 0.
    /// @return false, after one message that names `name` and what is wrong; the mesh is then as it was
    bool setMesh(const KrXmlVectorVector& vertices, const KrXmlVectorVector& normals,
                 const KrXmlVectorType<KrPlanarVector>& textureCoordinates, const KrXmlVectorType<Group>& groups,
                 const std::string& name = "mesh");
    /// The same, moving the lists in: for large meshes.
    bool setMesh(KrXmlVectorVector&& vertices, KrXmlVectorVector&& normals,
                 KrXmlVectorType<KrPlanarVector>&& textureCoordinates, KrXmlVectorType<Group>&& groups,
                 const std::string& name = "mesh");

    boost::shared_ptr<const KrTriPhysicalExtent> triExtent() const override;
    /// A copy with the vertices and normals moved by `pose`, its placement the identity.
    boost::shared_ptr<KrTriPhysicalExtent> transformed(const KrCoordinateSystemTransformation& pose) const;

    /// The mesh with shared vertices, as it is drawn; never null. Made on first use, kept until the mesh is set anew,
    /// shared with copies. Several threads may ask one extent.
    std::shared_ptr<const KrIndexedMesh> indexedMesh() const;
    /// The same with coarser levels, which take a few microseconds a triangle to make; nobody who asks for the mesh
    /// without them waits for that.
    std::shared_ptr<const KrIndexedMesh> indexedMeshWithLevels() const;
    /// Gives the mesh a form that was made of the same lists before; null has it made on next use.
    /// @return false for one that is not consistent or has other groups; the form is then as it was
    bool setIndexedMesh(const std::shared_ptr<const KrIndexedMesh>& indexedMesh);

    bool read(KrXmlReader& reader) override;
    KrXmlToken token() const override;
    void registerComponents() override;

protected:
    bool completeRead(KrXmlReader& reader) override;
    boost::shared_ptr<KrTriPhysicalExtent> makeTriangles() const override;
    boost::shared_ptr<const KrTriPhysicalExtent> makePlacedTriangles() const override;

private:
    friend struct KrKnownMesh;

    struct Lists
    {
        KrXmlVectorVector vertices;
        KrXmlVectorVector normals;
        KrXmlVectorType<KrPlanarVector> textureCoordinates;
        KrXmlVectorType<Group> groups;
    };

    /// The lists of the mesh, which its copies share: who changes them takes new ones. They may be made by whoever asks
    /// for them first. Never without lists, which is why nothing is moved out of it.
    class SharedLists
    {
    public:
        SharedLists() = default;
        explicit SharedLists(Lists&& lists);
        explicit SharedLists(std::function<KrTriPhysicalExtent()> make);
        SharedLists(const SharedLists& other) = default;
        SharedLists& operator=(const SharedLists& other) = default;

        const Lists& get() const
        {
            if (!m_kept->isMade.load(std::memory_order_acquire)) {
                make();
            }
            return m_kept->lists;
        }
        /// To be filled by their only owner.
        Lists& own() { return m_kept->lists; }

    private:
        struct Kept
        {
            Lists lists;
            std::atomic<bool> isMade{true};
            std::mutex mutex;
            std::function<KrTriPhysicalExtent()> make; ///< a mesh that has them; none when they are made
        };
        void make() const;

        std::shared_ptr<Kept> m_kept = std::make_shared<Kept>();
    };

    /// The indexed mesh, if there is one yet, and the lock under which it is made. Copies share what is there.
    class KeptIndexedMesh
    {
    public:
        KeptIndexedMesh() = default;
        KeptIndexedMesh(const KeptIndexedMesh& other);
        KeptIndexedMesh& operator=(const KeptIndexedMesh& other);

        std::shared_ptr<const KrIndexedMesh> get(const KrTriPhysicalExtent& mesh);
        std::shared_ptr<const KrIndexedMesh> getWithLevels(const KrTriPhysicalExtent& mesh);
        void set(const std::shared_ptr<const KrIndexedMesh>& indexedMesh);
        /// Null where it was not made yet.
        std::shared_ptr<const KrIndexedMesh> made() const;

    private:
        std::mutex m_levelsMutex; ///< of who makes levels; taken before the other one
        mutable std::mutex m_mutex;
        std::shared_ptr<const KrIndexedMesh> m_mesh;
    };

    SharedLists m_lists;
    KrMaterialMap m_materialMap;
    mutable KeptIndexedMesh m_indexedMesh;
};
