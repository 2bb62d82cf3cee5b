#pragma once

#include "KrBenchWay.h"

#include <toolkit/window/KrWindow.h>

#include <cstdint>

class KrTriPhysicalExtent;

/// The lower bounds: the same triangles, lights, matrices and poses, drawn from buffers by plain OpenGL without a scene
/// graph, with no call that changes nothing. Textures are left out, and so is what blending would take.
class KrBenchBareWay : public KrBenchWay
{
public:
    /// How often the driver is called.
    enum class Calls
    {
        AGroup, ///< one call for each triangle group, its material before it
        AMesh   ///< one call for each mesh: the groups' diffuse colours lie at the vertices, as ambient ones, too, and
                ///< the highlight is the first group's
    };

    /// Borrows `task`.
    KrBenchBareWay(const KrBenchTask& task, Calls calls);
    ~KrBenchBareWay() override;
    KrBenchBareWay(const KrBenchBareWay&) = delete;
    KrBenchBareWay& operator=(const KrBenchBareWay&) = delete;

    void open(unsigned int width, unsigned int height) override;
    void setSize(unsigned int width, unsigned int height) override;
    void draw(unsigned int frame, Mode mode) override;
    const unsigned char* pixels() const override { return m_pixels.data(); }
    osg::Matrixd projection() const override;
    osg::Matrixd view() const override;
    std::string renderer() const override { return m_window.report().renderer; }
    bool isSoftware() const override { return m_window.report().isSoftware; }

private:
    struct Vertex
    {
        float position[3];
        float normal[3];
        std::uint8_t color[4]; ///< diffuse

        bool operator==(const Vertex& other) const;
    };
    struct VertexHash
    {
        std::size_t operator()(const Vertex& vertex) const;
    };
    /// What lighting multiplies; emission is left out.
    struct Look
    {
        float ambient[4] = {};
        float diffuse[4] = {};
        float specular[4] = {};
        float shininess = 0.0f;
    };
    /// What one call draws.
    struct Batch
    {
        std::size_t offset = 0; ///< in the index buffer, bytes
        int count = 0;
        Look look;
    };
    /// A mesh in the driver's memory: what links share is there once.
    struct Mesh
    {
        const void* source = nullptr;
        unsigned int arrays = 0;    ///< vertex array object
        unsigned int indexType = 0; ///< GL_UNSIGNED_SHORT or GL_UNSIGNED_INT
        std::vector<Batch> batches;
    };
    /// A mesh and what it moves with.
    struct Body
    {
        unsigned int manipulator = 0;
        int joint = -1; ///< joint index of the link, -1 for the base
        std::size_t mesh = 0;
        KrCoordinateSystemTransformation dhFrame; ///< DH frame to link frame
    };

    void addLink(unsigned int manipulator, int joint, const KrManipulatorLink& link,
                 const KrCoordinateSystemTransformation& dhFrame);
    std::size_t meshOf(const KrTriPhysicalExtent& source, const KrIndividualManipulator& owner);
    Mesh upload(const KrTriPhysicalExtent& source, const KrIndividualManipulator& owner);
    void uploadBuffers(Mesh& mesh, const std::vector<Vertex>& vertices, const std::vector<std::uint32_t>& indices);
    void uploadBuffer(unsigned int target, const void* data, std::size_t size);
    static Look lookOf(const KrTriPhysicalExtent& mesh, unsigned int group, const KrIndividualManipulator& owner);

    void setFixedState();
    void setLights() const;
    void setLook(const Look& look);
    void drawMesh(const Mesh& mesh);
    void readBack(Mode mode);

    const KrBenchTask& m_task;
    Calls m_calls;
    KrWindow m_window;
    std::vector<Mesh> m_meshes;
    std::vector<Body> m_bodies;
    std::vector<unsigned int> m_buffers;
    bool m_isFixedStateSet = false; ///< since the size was set
    Look m_look;                    ///< as the driver has it
    unsigned int m_arrays = 0;      ///< bound now
    std::vector<KrCoordinateSystemTransformation> m_poses;
    std::vector<unsigned char> m_pixels;
};
