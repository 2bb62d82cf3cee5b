#pragma once

#include <rendCore/draw/private/KrMeshArena.h>

#include <osg/Drawable>
#include <osg/Matrixd>

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

/// What one view shows of one manipulator, in one frame: ranges of an arena's meshes, each with its
/// place. It stands in no scene: the cull pass hands it to the view, and fills it anew once the view has let go.
class KrMeshBatch : public osg::Drawable
{
public:
    struct Item
    {
        osg::Matrixd modelView;
        const KrMeshArena::Mesh* mesh = nullptr; ///< borrowed from the arena
        std::size_t level = 0;
        float depth = 0.0f; ///< of what is nearest of a body that may be drawn without its back faces; 0 for others, m
        std::array<std::uint32_t, 4> part = {}; ///< what pixels get of it where no colours are drawn
        osg::ref_ptr<const osg::StateSet>
            look; ///< a material between what stands above all and the mesh; null for none
    };

    KrMeshBatch();
    KrMeshBatch(const KrMeshBatch& other, const osg::CopyOp& copyOp);

    /// Empties the batch, keeping the memory of its items.
    /// @param fronts              of the arena, under the light model of what stands above
    /// @param areBackFacesCulled  by what stands above, for all of it
    /// @param partUniform         null: colours are drawn; else the uniform, four numbers, that is given each item's
    ///                            part: the program is that of what stands above, and looks are left out. Static
    void begin(const KrMeshArena& arena, const osg::ref_ptr<const KrMeshArena::FrontStates>& fronts,
               bool areBackFacesCulled, const char* partUniform);
    void add(const Item& item) { m_items.push_back(item); }
    /// Says that this batch is drawn right behind `before`, of the same arena, with nothing between them that draws or
    /// changes the projection. Both go to the view in this frame, which lets them go together.
    void follow(KrMeshBatch& before) { before.m_next = this; }

    void drawImplementation(osg::RenderInfo& renderInfo) const override;
    /// With the vertex array object of the batch, where the driver's hint asks for one for each drawable.
    osg::VertexArrayState* createVertexArrayStateImplementation(osg::RenderInfo& renderInfo) const override;
    META_Node(rendCore, KrMeshBatch)

        protected : ~KrMeshBatch() override;

private:
    class Eye;
    /// Together with those that follow it there is too little to look through all of it first, or it would not help.
    static constexpr std::uint64_t kNoPass = std::numeric_limits<std::uint64_t>::max();

    std::size_t sift(Eye& eye, double near, const osg::GLExtensions& gl) const;
    std::size_t numIndices() const;
    void addToPass(Eye& eye, double near) const;
    KrMeshArena::Faces facesOf(const Item& item, double near) const;
    void drawParts(osg::State& state) const;

    osg::ref_ptr<const KrMeshArena> m_arena;
    osg::ref_ptr<const KrMeshArena::FrontStates> m_fronts;
    bool m_areBackFacesCulled = false;
    const char* m_partUniform = nullptr;
    std::vector<Item> m_items;
    const KrMeshBatch* m_next = nullptr; ///< drawn right behind this one; null for none
    // Where the items were looked through.
    mutable std::uint64_t m_pass = 0; ///< its number, or kNoPass; 0 before it is known
    mutable std::size_t m_firstSeen = 0;
};
