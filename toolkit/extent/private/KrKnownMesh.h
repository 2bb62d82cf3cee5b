#pragma once

#include <toolkit/extent/KrTriPhysicalExtent.h>

#include <functional>

/// The lists of a mesh, for those who know them to be good: KrTriPhysicalExtent::setMesh() would look through all of
/// them once more, and that takes longer than to read them.
struct KrKnownMesh
{
    KrXmlVectorVector vertices;
    KrXmlVectorVector normals;
    KrXmlVectorType<KrPlanarVector> textureCoordinates;
    KrXmlVectorType<KrTriPhysicalExtent::Group> groups;

    /// Whether setMesh() would leave the numbers as they are: vertices can be drawn, normals have length 1. Nothing is
    /// said of the triangles.
    bool areNumbersWhole() const;

    /// Moves the lists into a mesh as they are. Every index of their triangles leads to something, numbers are whole.
    /// @param indexedMesh  consistent and made of these lists; null has it made on first use
    void moveTo(KrTriPhysicalExtent& mesh, const std::shared_ptr<const KrIndexedMesh>& indexedMesh);

    /// The same with lists that are made when somebody asks for them: for meshes that few look at.
    /// @param make  gives a mesh that has them; called once at most, by any thread, and forgotten then. What it makes
    ///              them of is its own: they do not follow changes that come behind this call
    static void moveLater(std::function<KrTriPhysicalExtent()> make, KrTriPhysicalExtent& mesh);
};
