#include <tests/support/MessageRecorder.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/math/KrAngle.h>
#include <toolkit/math/KrColor.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace
{

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

using Mesh = KrTriPhysicalExtent;
using Groups = KrXmlVectorType<Mesh::Group>;
using Coordinates = KrXmlVectorType<KrPlanarVector>;

KrTriangle withNormals(const KrTriangle& triangle, std::uint32_t a, std::uint32_t b, std::uint32_t c)
{
    KrTriangle result;
    result.setCorner(0, triangle.vertex(0), a, triangle.textureCoordinate(0));
    result.setCorner(1, triangle.vertex(1), b, triangle.textureCoordinate(1));
    result.setCorner(2, triangle.vertex(2), c, triangle.textureCoordinate(2));
    return result;
}

Groups group(const std::vector<KrTriangle>& triangles, const std::string& name = "paint")
{
    return Groups({Mesh::Group(name, KrXmlVectorType<KrTriangle>(triangles))});
}

KrXmlVectorVector square()
{
    return KrXmlVectorVector({{0, 0, 0}, {2, 0, 0}, {2, 2, 0}, {0, 2, 0}});
}

} // namespace

TEST(KrTriPhysicalExtent, MissingNormalsAreFlatOnesAndLinesAreLeftOut)
{
    Mesh mesh;
    Groups groups = group({KrTriangle(0, 1, 2), KrTriangle(0, 2, 2), KrTriangle(0, 4, 2), KrTriangle(3, 2, 0)});
    groups.push_back(Mesh::Group(std::string("rest"), {}));
    KrXmlVectorVector vertices = square();
    vertices.push_back({1, 1, 0});
    ASSERT_TRUE(mesh.setMesh(vertices, {}, {}, groups));
    ASSERT_EQ(mesh.numTriangles(), 2u);
    const KrTriangle& up = mesh.groups()[0].second()[0];
    const KrTriangle& down = mesh.groups()[0].second()[1];
    for (unsigned int corner = 0; corner < 3; ++corner) {
        EXPECT_EQ(mesh.normals()[up.normal(corner)], KrVector(0, 0, 1));
        EXPECT_EQ(mesh.normals()[down.normal(corner)], KrVector(0, 0, -1));
        EXPECT_EQ(up.textureCoordinate(corner), 0u);
    }
    EXPECT_EQ(mesh.numGroupNames(), 2u);
    EXPECT_EQ(mesh.groupName(1), "rest");
    EXPECT_EQ(mesh.groupName(2), "");
    EXPECT_TRUE(mesh.isChanged());
    EXPECT_TRUE(mesh.selfTest());
}

TEST(KrTriPhysicalExtent, GivenNormalsAreMadeUnitAndZeroOnesComputed)
{
    Mesh mesh;
    const KrXmlVectorVector normals({{0, 0, 10}, {0, 0, 0}, {1e-200, 0, 0}});
    ASSERT_TRUE(mesh.setMesh(square(), normals, {}, group({withNormals(KrTriangle(0, 1, 2), 0, 1, 2)})));
    const KrTriangle& triangle = mesh.groups()[0].second()[0];
    EXPECT_EQ(mesh.normals()[triangle.normal(0)], KrVector(0, 0, 1));
    EXPECT_EQ(mesh.normals()[triangle.normal(1)], KrVector(0, 0, 1));
    EXPECT_EQ(mesh.normals()[triangle.normal(2)], KrVector(1, 0, 0));
    EXPECT_TRUE(mesh.selfTest());

    // Normals of single precision keep their digits: what is written is what was there.
    const KrVector rough(0.6000000238418579, 0.800000011920929, 0.0);
    ASSERT_TRUE(
        mesh.setMesh(square(), KrXmlVectorVector({rough}), {}, group({withNormals(KrTriangle(0, 1, 2), 0, 0, 0)})));
    EXPECT_EQ(mesh.normals()[0], rough);
}

TEST(KrTriPhysicalExtent, TinyAndNeedleTrianglesStay)
{
    Mesh mesh;
    const KrXmlVectorVector vertices({{0, 0, 0}, {1e-9, 0, 0}, {0, 1e-9, 0}, {1, 0, 0}, {1, 1e-6, 0}});
    ASSERT_TRUE(mesh.setMesh(vertices, {}, {}, group({KrTriangle(0, 1, 2), KrTriangle(0, 3, 4)})));
    EXPECT_EQ(mesh.numTriangles(), 2u);
    // Three corners on a slanted line, not exactly on it in floating point.
    const KrXmlVectorVector line({{0, 0, 0}, {0.1, 0.1, 0.1}, {0.3, 0.3, 0.3}});
    ASSERT_TRUE(mesh.setMesh(line, {}, {}, group({KrTriangle(0, 1, 2)})));
    EXPECT_EQ(mesh.numTriangles(), 0u);
    EXPECT_TRUE(mesh.triExtent());
}

TEST(KrTriPhysicalExtent, BadMeshesGiveOneMessageAndNoChange)
{
    Mesh mesh;
    ASSERT_TRUE(mesh.setMesh(square(), {}, {}, group({KrTriangle(0, 1, 2)})));
    const Mesh before = mesh;
    KrXmlVectorVector badVertices = square();
    badVertices[3] = KrVector(0, kNaN, 0);
    KrTriangle badCoordinate(0, 1, 2);
    badCoordinate.setCorner(2, 2, 0, 1);
    const KrXmlVectorVector up({{0, 0, 1}});
    const KrTriangle good = withNormals(KrTriangle(0, 1, 2), 0, 0, 0);
    struct Case
    {
        KrXmlVectorVector vertices, normals;
        Coordinates coordinates;
        Groups groups;
        const char* told;
    };
    const Case cases[] = {
        {square(), {}, {}, group({KrTriangle(0, 1, 2), KrTriangle(0, 4, 2)}), "triangle 1 uses vertex 4 of 4"},
        {square(), {}, {}, group({KrTriangle(0, 1, 0xFFFFFFFFu)}), "vertex 4294967295 of 4"},
        {{}, {}, {}, group({KrTriangle()}), "vertex 0 of 0"},
        {square(), up, {}, group({good, withNormals(good, 0, 0, 1)}), "triangle 1 uses normal 1 of 1"},
        {square(), up, Coordinates({{0, 0}}), group({withNormals(badCoordinate, 0, 0, 0)}),
         "texture coordinate 1 of 1"},
        {badVertices, {}, {}, group({KrTriangle(0, 1, 2)}), "vertex 3 is not finite"},
        {square(), KrXmlVectorVector({{0, 0, 1}, {0, 0, kNaN}}), {}, group({good}), "normal 1 is not finite"},
        {square(), up, Coordinates({{kNaN, 0}}), group({good}), "texture coordinate 0 is not finite"},
    };
    for (const Case& test : cases) {
        MessageRecorder messages;
        EXPECT_FALSE(mesh.setMesh(test.vertices, test.normals, test.coordinates, test.groups, "arm.stl")) << test.told;
        EXPECT_EQ(messages.only().find("KrTriPhysicalExtent::setMesh - arm.stl: "), 0u) << messages.only();
        EXPECT_NE(messages.only().find(test.told), std::string::npos) << messages.only();
        EXPECT_TRUE(mesh == before);
    }
}

TEST(KrTriPhysicalExtent, IsItsOwnMeshFormUntilItIsPlaced)
{
    Mesh mesh;
    ASSERT_TRUE(mesh.setMesh(square(), {}, {}, group({KrTriangle(0, 1, 2)})));
    mesh.setMaterial("paint", KrDataMap::material(KrColor(1, 0, 0)));
    EXPECT_EQ(mesh.triExtent().get(), &mesh);
    const Mesh copy(mesh);
    EXPECT_EQ(copy.triExtent().get(), &copy);

    KrCoordinateSystemTransformation pose;
    pose.setAxisAngle({1, 0, 0}, Kr::Angle::kPi / 2.0);
    pose.setTranslation({0, 0, 5});
    mesh.setPlacement(pose);
    const boost::shared_ptr<const Mesh> placed = mesh.triExtent();
    EXPECT_EQ(placed.get(), mesh.triExtent().get());
    EXPECT_TRUE(placed->placement().isIdentity());
    EXPECT_LT((placed->vertices()[2] - KrVector(2, 0, 7)).length(), 1e-12);
    EXPECT_LT((placed->normals()[0] - KrVector(0, -1, 0)).length(), 1e-12);
    EXPECT_NE(placed->materialMap().find(std::string("paint")), nullptr);
    EXPECT_EQ(placed->groupName(0), "paint");
    EXPECT_EQ(mesh.vertices()[2], KrVector(2, 2, 0));
}

TEST(KrTriPhysicalExtent, CopiesShareTheirListsUntilOneGetsOthers)
{
    static Mesh original;
    ASSERT_TRUE(original.setMesh(square(), {}, {}, group({KrTriangle(0, 1, 2)})));
    Mesh copy(original);
    EXPECT_EQ(&copy.vertices(), &original.vertices());
    ASSERT_TRUE(copy.setMesh(KrXmlVectorVector({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}}), {}, {}, group({{0, 1, 2}})));
    EXPECT_EQ(original.vertices(), square());

    // An object that is new with such a copy in it, which a document is read into where it is.
    struct Holder : KrXmlObjectOf<Holder, KrXmlCompoundType>
    {
        KrXmlToken token() const override { return {KrXmlNamespace::core(), "holder"}; }
        void registerComponents() override { registerComponent({KrXmlNamespace::core(), "held"}, held); }
        Mesh held = original;
    };
    Holder written;
    written.held = copy;
    Holder read;
    std::string text;
    ASSERT_TRUE(written.writeBuffer(text));
    ASSERT_TRUE(read.readBuffer(text.data(), text.size()));
    EXPECT_EQ(read.held.vertices(), copy.vertices());
    EXPECT_EQ(original.vertices(), square());
}

TEST(KrTriPhysicalExtent, XmlIsCheckedLikeEverythingElse)
{
    Mesh mesh;
    Coordinates coordinates({{0, 0}, {1, 0}, {1, 1}, {0, 1}});
    KrXmlVectorVector normals({{0, 0, 1}, {0, 0, 1}, {0, 0, 1}, {0, 0, 1}});
    ASSERT_TRUE(mesh.setMesh(square(), normals, coordinates, group({KrTriangle(0, 1, 2), KrTriangle(0, 2, 3)})));
    mesh.setMaterial("paint", KrDataMap::blueColor());
    EXPECT_TRUE(mesh.selfTest());
    EXPECT_TRUE(Mesh().selfTest());

    const auto readText = [&mesh](const std::string& vertices, const std::string& triangles) {
        const std::string text = "<mesh xmlns=\"" + KrXmlNamespace::core() + "\">\n<vertices>" + vertices +
                                 "</vertices><groups><pair><first>paint</first><second>" + triangles +
                                 "</second></pair></groups></mesh>";
        return mesh.readBuffer(text.data(), text.size(), "test.xml");
    };
    Mesh before;
    ASSERT_TRUE(before.setMesh(mesh.vertices(), mesh.normals(), mesh.textureCoordinates(), mesh.groups()));
    before.setMaterialMap(mesh.materialMap());
    for (const auto& [vertices, triangles] :
         {std::pair("0 0 0 1 0 0 1 1 0", "0 0 0 1 0 0 3 0 0"), std::pair("0 0 0 1 0 nan 1 1 0", "0 0 0 1 0 0 2 0 0"),
          std::pair("0 0 0 1 0 1e39 1 1 0", "0 0 0 1 0 0 2 0 0"), std::pair("0 0 0 1 0 0 1 1", "0 0 0 1 0 0 2 0 0"),
          std::pair("0 0 0 1 0 0 1 1 0", "0 0 0 1 0 0 2 0"), std::pair("0 0 0 1 0 0 1 1 0", "0 0 0 1 0 0 -1 0 0")}) {
        MessageRecorder messages;
        EXPECT_FALSE(readText(vertices, triangles)) << vertices << " / " << triangles;
        EXPECT_EQ(messages.only().find("KrXmlReader - test.xml, line "), 0u) << messages.only();
        EXPECT_TRUE(mesh == before);
    }
    ASSERT_TRUE(readText("0 0 0 1 0 0 1 1 0", "0 0 0 1 0 0 2 0 0"));
    EXPECT_EQ(mesh.normals().size(), 1u);
    EXPECT_EQ(mesh.normals()[0], KrVector(0, 0, 1));
    EXPECT_TRUE(mesh.materialMap().empty());
}
