// What a frame costs in which every vertex of a mesh moves, the drawing itself left out:
//   krDeformationBenchmark [VERTICES [FRAMES]]        20,000 vertices and 200 frames by default
// A pose is blended in, normals are made anew and the shape's arrays are filled. Ends with an error when that
// allocates.
#include <rendCore/model/KrRenderDeformationShape.h>

#include <tests/support/Allocations.h>

#include <toolkit/deformation/KrDeformationPhysicalExtent.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace
{

constexpr std::uint32_t kPerRow = 100;

/// A sheet of `numRows` times kPerRow vertices, 1 cm apart, and a pose in which it is a wave.
bool setSheet(KrDeformationPhysicalExtent& extent, std::uint32_t numRows)
{
    KrXmlVectorVector vertices;
    KrXmlVectorType<KrTriangle> triangles;
    for (std::uint32_t i = 0; i < numRows * kPerRow; ++i) {
        vertices.push_back(KrVector(0.01 * (i % kPerRow), 0.01 * (i / kPerRow), 0.0));
        if (i % kPerRow + 1 < kPerRow && i / kPerRow + 1 < numRows) {
            triangles.push_back(KrTriangle(i, i + 1, i + 1 + kPerRow));
            triangles.push_back(KrTriangle(i, i + 1 + kPerRow, i + kPerRow));
        }
    }
    KrXmlVectorType<KrTriPhysicalExtent::Group> groups;
    groups.push_back(KrTriPhysicalExtent::Group(KrXmlBasicType<std::string>("sheet"), triangles));
    KrTriPhysicalExtent mesh;
    if (!mesh.setMesh(vertices, KrXmlVectorVector(), KrXmlVectorType<KrPlanarVector>(), groups)) {
        return false;
    }
    extent.setMesh(mesh, KrDeformationPhysicalExtent::Smoothing::Smooth);
    std::vector<KrVector> wave = extent.vertices();
    for (KrVector& vertex : wave) {
        vertex.setZ(0.1 * std::sin(20.0 * vertex.x()));
    }
    return extent.setPose("wave", wave);
}

} // namespace

int main(int argc, char** argv)
{
    const int numVertices = argc > 1 ? std::atoi(argv[1]) : 20000;
    const int numFrames = argc > 2 ? std::atoi(argv[2]) : 200;
    KrDeformationPhysicalExtent extent;
    if (argc > 3 || numVertices < 200 || numFrames < 1 ||
        !setSheet(extent, static_cast<std::uint32_t>(numVertices) / kPerRow)) {
        std::fprintf(stderr, "usage: %s [VERTICES, 200 or more [FRAMES]]\n", argv[0]);
        return 2;
    }
    const osg::ref_ptr<KrRenderShape> shape = new KrRenderDeformationShape(&extent, KrMaterialMap());
    extent.setWeight(0, 1.0);
    shape->update(&extent);
    std::vector<double> milliseconds(static_cast<std::size_t>(numFrames));
    // Behind the first update, which makes the arrays.
    const std::size_t allocated = Allocations::now().withNew;
    for (std::size_t frame = 0; frame < milliseconds.size(); ++frame) {
        const auto start = std::chrono::steady_clock::now();
        extent.setWeight(0, 0.5 + 0.5 * std::sin(0.1 * static_cast<double>(frame)));
        shape->update(&extent);
        const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
        milliseconds[frame] = took.count();
    }
    const std::size_t allocations = Allocations::now().withNew - allocated;
    std::sort(milliseconds.begin(), milliseconds.end());
    std::printf("%zu vertices: %.2f ms a frame (median of %d, fastest %.2f), %zu allocations\n", extent.points().size(),
                milliseconds[milliseconds.size() / 2], numFrames, milliseconds.front(), allocations);
    // The figures are the machine's; this is ours.
    return allocations == 0 ? 0 : 1;
}
