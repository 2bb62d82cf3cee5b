#pragma once

#include <toolkit/system/KrStatedSystem.h>
#include <toolkit/visualization/KrVisualizationParameters.h>
#include <toolkit/window/KrWindow.h>

#include <osg/Matrixd>

#include <cstddef>
#include <utility>
#include <vector>

class KrTriPhysicalExtent;

/// The lower bound: the same triangles, materials, lights and poses, drawn from vertex buffers by plain OpenGL without
/// a scene graph. Textures are left out.
class KrBenchBareScene
{
public:
    /// What is read back after a frame.
    enum class Mode
    {
        Render,
        Color,
        Depth
    };

    KrBenchBareScene() = default;
    ~KrBenchBareScene();
    KrBenchBareScene(const KrBenchBareScene&) = delete;
    KrBenchBareScene& operator=(const KrBenchBareScene&) = delete;

    /// Opens a window of its own and uploads every mesh once. False, after the window's message, without a context.
    /// @param system  borrowed while frames are drawn
    bool open(unsigned int width, unsigned int height, const KrStatedSystem& system);
    /// A new size on the same context; false when it cannot have that size.
    bool setSize(unsigned int width, unsigned int height);
    /// Draws one frame of `state` and waits until it is done.
    void draw(const KrManipulatorSystemState& state, const KrVisualizationParameters& parameters,
              const osg::Matrixd& projection, const osg::Matrixd& view, Mode mode);

    /// The part of the last frame's pixels that differ from the background; the frame was drawn with Mode::Color.
    double coverage(const KrColor& background) const;
    static double coverage(const unsigned char* rgb, std::size_t numPixels, const KrColor& background);

private:
    /// Position and normal.
    struct Vertex
    {
        float data[6];
    };
    /// One triangle group of a link.
    struct Batch
    {
        unsigned int vertexBuffer = 0;
        unsigned int indexBuffer = 0;
        std::size_t first = 0; ///< index in the index buffer
        int count = 0;
        float ambient[4] = {};
        float diffuse[4] = {};
        float specular[4] = {};
        float shininess = 0.0f;
    };
    struct Body
    {
        unsigned int manipulator = 0;
        int joint = -1; ///< joint index of the link, -1 for the base
        std::size_t firstBatch = 0;
        std::size_t numBatches = 0;
    };

    void addBody(unsigned int manipulator, int joint, const KrManipulatorLink& link,
                 const KrIndividualManipulator& owner);
    std::vector<Batch> uploadMesh(const KrTriPhysicalExtent& mesh, const KrIndividualManipulator& owner);
    unsigned int upload(unsigned int target, const void* data, std::size_t size);
    static Vertex vertexOf(const KrVector& position, const KrVector& normal);
    static Batch batchOf(const KrDataMap& look);
    void setLights(const KrVisualizationParameters& parameters) const;
    void drawBody(const Body& body) const;

    KrWindow m_window;
    const KrStatedSystem* m_system = nullptr;
    std::vector<Body> m_bodies;
    std::vector<Batch> m_batches;
    std::vector<unsigned int> m_buffers;
    std::vector<std::pair<const void*, std::vector<Batch>>> m_uploaded; ///< batches of meshes that were seen before
    std::vector<KrCoordinateSystemTransformation> m_poses;
    std::vector<unsigned char> m_pixels;
};
