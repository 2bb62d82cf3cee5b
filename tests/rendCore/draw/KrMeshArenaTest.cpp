#include <rendCore/draw/private/KrMeshArena.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/extent/private/KrIndexedMesh.h>

#include <osg/Material>

#include <gtest/gtest.h>

#include <memory>

namespace
{

const osg::Vec4 kRed(1, 0, 0, 1), kBlue(0, 0, 1, 1);

/// A strip of four triangles; the first two are a group, the others one each.
std::shared_ptr<const KrIndexedMesh> strip()
{
    KrXmlVectorVector vertices, normals;
    for (int i = 0; i < 6; ++i) {
        vertices.push_back({1.0 * i, 1.0 * (i % 2), 0.0});
        normals.push_back({0.1 * i, 0.0, 1.0});
    }
    KrXmlVectorType<KrTriPhysicalExtent::Group> groups;
    const std::vector<KrTriangle> triangles[] = {
        {KrTriangle(0, 1, 2), KrTriangle(1, 2, 3)}, {KrTriangle(2, 3, 4)}, {KrTriangle(3, 4, 5)}};
    for (const std::vector<KrTriangle>& group : triangles) {
        groups.push_back({std::to_string(groups.size()), KrXmlVectorType<KrTriangle>(group)});
    }
    KrTriPhysicalExtent mesh;
    EXPECT_TRUE(mesh.setMesh(vertices, normals, {}, groups));
    return mesh.indexedMesh();
}

KrMeshArena::Look lookOf(KrMeshArena& arena, const osg::Vec4& color, float shininess)
{
    const osg::ref_ptr<osg::StateSet> states = new osg::StateSet;
    const osg::ref_ptr<osg::Material> material = new osg::Material;
    material->setAmbient(osg::Material::FRONT_AND_BACK, color);
    material->setDiffuse(osg::Material::FRONT_AND_BACK, color);
    material->setShininess(osg::Material::FRONT_AND_BACK, shininess);
    states->setAttribute(material);
    KrMeshArena::Look look;
    EXPECT_TRUE(arena.findLook(*states, color, look));
    return look;
}

} // namespace

TEST(KrMeshArena, VerticesAreThereOnceForEachColourThatMeetsThere)
{
    const osg::ref_ptr<KrMeshArena> arena = new KrMeshArena;
    const KrMeshArena::Look red = lookOf(*arena, kRed, 5), blue = lookOf(*arena, kBlue, 5),
                            dull = lookOf(*arena, kRed, 1);
    EXPECT_EQ(red.states, blue.states) << "colours are the vertices'";
    EXPECT_NE(red.states, dull.states);
    EXPECT_EQ(lookOf(*arena, kBlue, 1).states, dull.states);

    const KrMeshArena::Mesh& first = arena->add(*strip(), {red, blue, dull});
    ASSERT_EQ(first.parts.size(), 2u) << "groups that follow one another are one where only the colour differs";
    EXPECT_EQ(first.parts[0].levels[0].count, 9);
    EXPECT_EQ(first.parts[1].levels[0].count, 3);
    EXPECT_EQ(first.parts[1].levels[0].first, first.parts[0].levels[0].first + 9);
    // Six vertices are red somewhere, three are blue somewhere.
    EXPECT_EQ(arena->add(*strip(), {red, red, red}).baseVertex, first.baseVertex + 9);
    EXPECT_EQ(arena->add(*strip(), {red, dull, red}).parts.size(), 3u) << "the order of the groups is kept";
    EXPECT_EQ(arena->add(*strip(), {red}).baseVertex, first.baseVertex + 9 + 6 + 6);
}
