#pragma once

#include <rendCore/draw/private/KrSiftingPass.h>

#include <osg/Array>
#include <osg/LightModel>
#include <osg/PrimitiveSet>
#include <osg/Referenced>
#include <osg/StateSet>
#include <osg/Vec4>
#include <osg/ref_ptr>

#include <cstdint>
#include <deque>
#include <map>
#include <vector>

namespace osg
{
class GLBufferObject;
class GLExtensions;
class State;
class VertexArrayState;
} // namespace osg
class KrDrawPace;
class KrIndexedMesh;

/// The meshes of a scene in one vertex buffer and two index buffers, and the state sets that they are drawn with.
///
/// Drawing one mesh after another changes no binding: what differs is a range of indices. Groups of a mesh that differ
/// in nothing but their colour are one range, with the colour at the vertices. Scene thread only; the GL objects are
/// made for each context that draws and go with `releaseGLObjects`.
class KrMeshArena : public osg::Referenced
{
public:
    /// What one group of a mesh looks like.
    struct Look
    {
        unsigned int states = 0; ///< number of a state set of this arena
        osg::Vec4 color;         ///< at the vertices
    };

    /// Triangles to be drawn with one call.
    struct Run
    {
        std::uint32_t first = 0; ///< in the index buffer of the mesh
        std::int32_t count = 0;
        mutable std::vector<KrTriangleSieve> sieves; ///< of KrTriangleSieve::kMostIndices each, made when first needed
    };
    /// Groups of a mesh that follow one another and share a state set.
    struct Part
    {
        unsigned int states = 0;
        std::vector<Run> levels; ///< as the mesh's errors
    };
    struct Mesh
    {
        std::int32_t baseVertex = 0;
        bool isWide = false; ///< indices of 32 bits
        bool isClosed = false;
        std::vector<float> errors;  ///< of each level, m; 0 first
        std::vector<float> changes; ///< of pictures by each level; 0 first
        std::vector<Part> parts;
    };

    KrMeshArena();

    /// Whether pixels are the same in whatever order triangles are drawn, as far as `states` has a say.
    static bool isOrderFree(const osg::StateSet& states);

    /// The number of a state set that draws as `states` does, but for the colour, which `look` is given together with
    /// the number. False when it cannot be drawn from here: what is translucent is sorted by depth, each for itself.
    bool findLook(const osg::StateSet& states, const osg::Vec4& color, Look& look);
    /// The state sets for meshes that show their fronts only. They light these only, which takes half the time.
    struct FrontStates : public osg::Referenced
    {
        osg::ref_ptr<osg::LightModel> light; ///< null where the scene's is for fronts as it is
        struct States
        {
            osg::ref_ptr<osg::StateSet> fronts;     ///< where something else leaves the backs out
            osg::ref_ptr<osg::StateSet> frontsOnly; ///< leaves the backs out itself
        };
        std::vector<States> states; ///< by the numbers of the arena's
    };
    /// Those under what the scene says of light, for all numbers that are there until now.
    /// @param model  null where it says nothing
    osg::ref_ptr<const FrontStates> fronts(const osg::LightModel* model);
    /// Which faces are drawn.
    enum class Faces
    {
        Both,
        Fronts,     ///< something else leaves the backs out
        FrontsOnly, ///< leaves the backs out itself
    };
    /// Borrowed.
    const osg::StateSet* states(unsigned int number, Faces faces, const FrontStates& fronts) const;
    /// Leaves back faces out, without any look. Borrowed.
    const osg::StateSet* solid() const { return m_solid; }
    bool isTextured(unsigned int number) const { return m_states[number].isTextured; }
    /// Whether what is drawn so hides what is behind it, as far as the state set has a say.
    bool isHiding(unsigned int number) const { return m_states[number].isHiding; }

    /// Whether the buffers stay in the range of what the scene graph counts them with, whatever the looks are.
    bool hasRoomFor(const KrIndexedMesh& mesh) const;
    /// Copies a mesh. `looks` has one entry for each group that is drawn, the first groups of the mesh. Borrowed from
    /// the arena.
    const Mesh& add(const KrIndexedMesh& mesh, const std::vector<Look>& looks);

    /// Of all meshes, in the form in which they are drawn.
    std::size_t numVertices() const { return m_vertices->size(); }

    /// For the drawables that draw from here: none of the state sets, which they apply on their own.
    osg::StateSet* base() const { return m_base; }
    /// For above them where nothing is lit: the one colour of a group is that of every pixel then, and interpolating
    /// between equal colours rounds.
    osg::StateSet* flat() const { return m_flat; }

    /// What a drawable that draws from here needs for its calls.
    struct Binding
    {
        const osg::GLExtensions* gl = nullptr;
        osg::VertexArrayState* arrays = nullptr;
        osg::GLBufferObject* narrow = nullptr; ///< indices of 16 bits; null for none
        osg::GLBufferObject* wide = nullptr;
        KrDrawPace* pace = nullptr; ///< null where the driver does not draw with the processor
    };
    /// Whether the driver of the context has what `draw` calls.
    static bool isSupported(const osg::State& state);
    /// Before the first `draw` of a drawable, and where texture coordinates are needed or no longer. The context is
    /// current.
    Binding bind(osg::State& state, bool isTextured) const;
    /// The pass in which runs are looked through before they are drawn. Borrowed.
    KrSiftingPass& sifting() const { return m_sifting; }
    /// Adds a run to the pass.
    void sift(const Mesh& mesh, const Run& run, const KrTriangleSieve::View& view) const;
    /// @param view      null for every triangle; else what does not show need not be drawn
    /// @param nextSeen  where the run stands in the pass, set to the next one's place. What stands nowhere in it is
    ///                  looked through now
    void draw(const Binding& binding, const Mesh& mesh, const Run& run, const KrTriangleSieve::View* view,
              std::size_t& nextSeen) const;
    /// After the last one.
    static void unbind(osg::State& state);

    void resizeGLObjectBuffers(unsigned int maxSize);
    void releaseGLObjects(osg::State* state) const;

protected:
    ~KrMeshArena() override;

private:
    struct States
    {
        osg::ref_ptr<osg::StateSet> set;
        bool isTextured = false;
        bool isHiding = false;
    };
    /// By what they set, not by their address.
    struct ComesBefore
    {
        bool operator()(const States& a, const States& b) const;
    };

    unsigned int number(const osg::ref_ptr<osg::StateSet>& states, bool isTextured);
    const std::vector<KrTriangleSieve>& sieves(const Mesh& mesh, const Run& run) const;
    template <typename Index>
    void makeSieves(const Mesh& mesh, const Run& run, const Index* indices) const;
    template <typename Index>
    void drawSeen(const Binding& binding, const Mesh& mesh, const Run& run, const KrTriangleSieve::View& view,
                  std::size_t& nextSeen, const Index* indices, std::vector<Index>& corners) const;
    static void draw(const Binding& binding, const Mesh& mesh, std::size_t first, std::size_t count);

    osg::ref_ptr<osg::StateSet> m_base;
    osg::ref_ptr<osg::StateSet> m_flat;
    osg::ref_ptr<osg::StateSet> m_solid;
    std::vector<States> m_states;
    std::map<States, unsigned int, ComesBefore> m_numbers;
    std::vector<osg::ref_ptr<FrontStates>> m_fronts; ///< of the last few light models, the last one first
    std::deque<Mesh> m_meshes;                       ///< never moved: they are borrowed
    osg::ref_ptr<osg::Vec3Array> m_vertices;
    osg::ref_ptr<osg::Vec3Array> m_normals;
    osg::ref_ptr<osg::Vec4Array> m_colors;
    osg::ref_ptr<osg::Vec2Array> m_textureCoordinates;
    osg::ref_ptr<osg::DrawElementsUShort> m_narrow;
    osg::ref_ptr<osg::DrawElementsUInt> m_wide;
    // On their way to the driver.
    mutable KrSiftingPass m_sifting;
    mutable std::vector<GLushort> m_narrowCorners;
    mutable std::vector<GLuint> m_wideCorners;
};
