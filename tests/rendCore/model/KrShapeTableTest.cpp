#include <rendCore/model/private/KrShapeTable.h>

#include <rendCore/model/KrRenderShape.h>

#include <tests/support/ShapeTestMesh.h>
#include <toolkit/extent/private/KrIndexedMesh.h>

#include <gtest/gtest.h>

#include <osg/StateSet>
#include <osg/observer_ptr>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace
{

/// A shape of so many triangles in a row, all of one look, and the mesh that it borrows.
struct Body
{
    Body(std::size_t numTriangles, double z)
    {
        EXPECT_TRUE(ShapeTestMesh::setTriangles(*mesh, std::vector<std::string>(numTriangles, "all"), z));
        shape = new KrRenderShape(mesh.get(), KrMaterialMap());
    }
    std::unique_ptr<KrTriPhysicalExtent> mesh = std::make_unique<KrTriPhysicalExtent>();
    osg::ref_ptr<KrRenderShape> shape;
};

} // namespace

// A client may exchange a shape with every frame, for as long as a scene lives.
TEST(KrShapeTable, GivesBackTheMemoryOfShapesThatAreGone)
{
    const osg::ref_ptr<KrShapeTable> table = new KrShapeTable;
    const Body kept(2, 0.0);
    ASSERT_NE(table->entry(*kept.shape).mesh, nullptr);
    constexpr std::size_t kTriangles = 2000;
    std::size_t most = 0;
    const unsigned int before = table->generation();
    for (int i = 1; i <= 60; ++i) {
        const Body exchanged(kTriangles, i);
        const KrShapeTable::Entry& entry = table->entry(*exchanged.shape);
        ASSERT_NE(entry.mesh, nullptr);
        // At the address of the one before, most of the time.
        ASSERT_EQ(entry.groups.front().version, exchanged.shape->groupVersion(0));
        most = std::max(most, table->arena().numVertices());
    }
    EXPECT_LT(most, KrShapeTable::kFewVertices + 3 * 3 * kTriangles);
    EXPECT_NE(table->generation(), before) << "who borrowed the old ones would not ask again";
    const KrShapeTable::Entry& entry = table->entry(*kept.shape);
    ASSERT_NE(entry.mesh, nullptr);
    EXPECT_EQ(entry.mesh->parts.front().levels.front().count, 6);
    EXPECT_EQ(entry.numVertices, 5u) << "neighbours share a corner";
}

// The whole is copied seldom however many there are.
TEST(KrShapeTable, LeavesShapesWhereTheyAreWhileTheyLive)
{
    const osg::ref_ptr<KrShapeTable> table = new KrShapeTable;
    std::vector<Body> all;
    for (int i = 0; i < 40; ++i) {
        all.emplace_back(2000, i);
        table->entry(*all.back().shape);
    }
    EXPECT_EQ(table->arena().numVertices(), 40u * 4001) << "neighbours share a corner";
    EXPECT_EQ(table->generation(), 1u);
}

// Whatever comes first: the client's change, or the table.
TEST(KrShapeTable, LeavesShapesToTheGraphWhoseArraysAreNewerThanTheMesh)
{
    const osg::ref_ptr<KrShapeTable> table = new KrShapeTable;
    for (const bool isTaken : {true, false}) {
        const Body body(2, 0.0);
        if (isTaken) {
            KrShapeTable::Entry& entry = table->entry(*body.shape);
            table->beginFrame(nullptr, 0);
            EXPECT_TRUE(table->isAsTaken(entry));
        }
        body.shape->getDrawable(0)->asGeometry()->getVertexArray()->dirty();
        KrShapeTable::Entry& entry = table->entry(*body.shape);
        table->beginFrame(nullptr, 1);
        EXPECT_FALSE(entry.mesh != nullptr && table->isAsTaken(entry)) << isTaken;
    }
}

// On all cores, whose number does not show.
TEST(KrShapeTable, MakesTheLevelsOfAllShapesBeforeItTakesThemOver)
{
    std::vector<Body> all;
    std::vector<osg::ref_ptr<KrRenderShape>> shapes = {nullptr};
    for (int i = 0; i < 20; ++i) {
        all.emplace_back(200 + i, i);
        shapes.push_back(all.back().shape);
    }
    const osg::ref_ptr<KrShapeTable> table = new KrShapeTable;
    table->makeLevels(shapes);
    EXPECT_FALSE(all.front().mesh->indexedMesh()->areLevelsMade) << "nobody has asked for any";
    table->demandLevels();
    table->makeLevels(shapes);
    for (const Body& body : all) {
        const auto made = body.mesh->indexedMesh();
        ASSERT_TRUE(made->areLevelsMade);
        const Body alone(body.mesh->numTriangles(), static_cast<double>(&body - all.data()));
        EXPECT_EQ(alone.mesh->indexedMeshWithLevels()->vertices, made->vertices);
        EXPECT_EQ(alone.mesh->indexedMeshWithLevels()->indices, made->indices);
        EXPECT_EQ(table->entry(*body.shape).mesh->parts.front().levels.size(), made->levels.size());
    }
    // What is drawn already costs nothing where another shape comes.
    ASSERT_TRUE(all.front().mesh->setIndexedMesh(nullptr));
    all.emplace_back(200, 20.0);
    shapes.push_back(all.back().shape);
    table->makeLevels(shapes);
    EXPECT_TRUE(all.back().mesh->indexedMesh()->areLevelsMade);
    EXPECT_FALSE(all.front().mesh->indexedMesh()->areLevelsMade);
}

// Also of those that have no vertices there: what is translucent is drawn by the graph.
TEST(KrShapeTable, ForgetsShapesThatItDoesNotDraw)
{
    const osg::ref_ptr<KrShapeTable> table = new KrShapeTable;
    std::vector<osg::observer_ptr<osg::StateSet>> looks;
    for (int round = 0; round < 8; ++round) {
        // All at once, so that none has the address of another one.
        std::vector<Body> all;
        for (int i = 0; i < 200; ++i) {
            all.emplace_back(1, i);
            osg::StateSet* const look = all.back().shape->getDrawable(0)->getStateSet();
            look->setRenderingHint(osg::StateSet::TRANSPARENT_BIN);
            ASSERT_EQ(table->entry(*all.back().shape).mesh, nullptr);
            looks.emplace_back(look);
        }
    }
    const auto numKept = std::count_if(looks.begin(), looks.end(), [](const auto& look) { return look.valid(); });
    EXPECT_LT(numKept, 700);
}
