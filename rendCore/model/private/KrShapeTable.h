#pragma once

#include <rendCore/draw/private/KrMeshArena.h>

#include <osg/BoundingBox>
#include <osg/Material>
#include <osg/StateSet>
#include <osg/observer_ptr>
#include <osg/ref_ptr>

#include <cstdint>
#include <map>
#include <vector>

namespace osg
{
class Node;
}
class KrGroupGeometry;
class KrRenderShape;

/// The meshes of a scene as they are drawn: an arena, and what it has of each shape.
///
/// Shared by the manipulators of a scene, so that robots that share shapes share buffers. Scene thread only.
class KrShapeTable : public osg::Referenced
{
public:
    /// One group of a shape as it was taken over; a group that looks otherwise since then is drawn by the graph.
    struct Group
    {
        const KrGroupGeometry* geometry = nullptr;
        std::uint64_t version = 0;
        osg::ref_ptr<const osg::StateSet> states;
        // What the state set said.
        osg::StateSet::AttributeList attributes;
        osg::StateSet::ModeList modes;
        osg::StateSet::TextureAttributeList textures;
        osg::StateSet::TextureModeList textureModes;
        int renderingHint = 0;
        int binNumber = 0;
        const osg::Material* material = nullptr; ///< that of `states`; null for none
        osg::ref_ptr<const osg::Material> look;  ///< what it said
        osg::BoundingBox box;                    ///< in the shape's frame, m
    };
    struct Entry
    {
        osg::observer_ptr<KrRenderShape> shape; ///< it may go before the table does
        std::vector<Group> groups;
        const KrMeshArena::Mesh* mesh = nullptr; ///< null where the arena does not have it
        std::size_t numVertices = 0;             ///< that the arena has of it
        bool isTranslucent = false;              ///< all of it: drawn behind what is opaque, by the graph
        // What `isAsTaken` found last, and when.
        unsigned int checkedIn = 0;
        bool wasAsTaken = false;
    };

    /// So many vertices are kept in any case.
    static constexpr std::size_t kFewVertices = 65536;
    static constexpr std::size_t kFewEntries = 256; ///< the same of shapes

    KrShapeTable();

    const KrMeshArena& arena() const { return *m_arena; }
    /// As the arena's.
    osg::ref_ptr<const KrMeshArena::FrontStates> fronts(const osg::LightModel* model) { return m_arena->fronts(model); }
    void resizeGLObjectBuffers(unsigned int maxSize) { m_arena->resizeGLObjectBuffers(maxSize); }
    void releaseGLObjects(osg::State* state) const { m_arena->releaseGLObjects(state); }
    /// Takes the shape over where that was not tried before. Borrowed from the table until its generation changes.
    Entry& entry(KrRenderShape& shape);
    bool hasLevels() const { return m_hasLevels; }
    /// Makes the levels that the shapes' meshes lack, on all cores, once levels are demanded; otherwise they are made
    /// one by one as the shapes are taken over. Those that were taken over are not looked at: that takes time for each
    /// vertex, and a client may exchange one of many shapes with every frame.
    /// @param shapes  null ones are left out
    void makeLevels(const std::vector<osg::ref_ptr<KrRenderShape>>& shapes) const;
    /// Takes all shapes over anew where their coarser levels were left out until now.
    void demandLevels();
    /// Counts from 1 on how often all shapes were taken over anew: for their levels, and where so many of them are gone
    /// that it is worth the memory.
    unsigned int generation() const { return m_generation; }
    /// Before a view culls the first manipulator of a frame, and before each further one.
    void beginFrame(const void* view, unsigned int frame);
    /// Whether the shape says what it said when it was taken over. Looks once a frame, however many links share it.
    bool isAsTaken(Entry& entry) const;
    /// Whether a node does nothing but carry what is below it, and perhaps give it a material.
    static bool isPlain(const osg::Node& node);

protected:
    ~KrShapeTable() override;

private:
    bool isKnown(const KrRenderShape& shape) const;
    void takeOver(Entry& entry) const;
    void takeAllOver();
    void dropWhatIsGone();

    bool m_hasLevels = false;
    unsigned int m_generation = 1;
    std::size_t m_mostVertices = kFewVertices; ///< of the arena, before it is asked what of it is gone
    std::size_t m_mostEntries = kFewEntries;   ///< the same of shapes
    const void* m_view = nullptr;              ///< of the frame at hand; a name only
    unsigned int m_viewFrame = 0;
    unsigned int m_frame = 0; ///< counts frames of all views
    osg::ref_ptr<KrMeshArena> m_arena;
    std::map<const KrRenderShape*, Entry> m_entries;
};
