#include <tests/import/Bundle.h>

#include <import/mesh/KrMeshFile.h>

#include <toolkit/foundation/private/KrText.h>

#include <sys/stat.h>

namespace
{

const char* const kTriangle = "v 0 0 0\nv 1 0 0\nv 0 1 0\n";

class KrMeshSourceTest : public ::testing::Test
{
protected:
    bool read(const std::string& name, const std::string& content)
    {
        data = KrMeshData();
        why.clear();
        return KrMeshFile::read(bundle.write(name, content), limits, data, why);
    }
    std::size_t numTriangles() const
    {
        std::size_t count = 0;
        for (const KrMeshData::Group& group : data.groups) {
            count += group.triangles.size();
        }
        return count;
    }
    std::size_t warnings(const std::string& part) const
    {
        return static_cast<std::size_t>(
            std::count_if(data.warnings.begin(), data.warnings.end(),
                          [&part](const std::string& text) { return text.find(part) != std::string::npos; }));
    }
    static std::string gltf(const std::string& nodes, const std::string& meshes, const std::string& uri)
    {
        return "{\"asset\":{\"version\":\"2.0\"},\"scene\":0,\"scenes\":[{\"nodes\":[0]}],\"nodes\":" + nodes +
               ",\"meshes\":" + meshes +
               ",\"accessors\":[{\"bufferView\":0,\"componentType\":5126,\"count\":3,\"type\":\"VEC3\"}],"
               "\"bufferViews\":[{\"buffer\":0,\"byteLength\":36}],\"buffers\":[{\"byteLength\":36" +
               (uri.empty() ? "" : ",\"uri\":\"" + uri + "\"") + "}]}";
    }
    /// Three corners of a triangle, as a buffer.
    static std::string corners()
    {
        const float numbers[9] = {0, 0, 0, 1, 0, 0, 0, 1, 0};
        return std::string(reinterpret_cast<const char*>(numbers), sizeof numbers);
    }
    static std::string chunk(const std::string& kind, const std::string& content)
    {
        std::string bytes(4, '\0');
        const auto size = static_cast<std::uint32_t>(content.size());
        std::memcpy(bytes.data(), &size, 4);
        return bytes + kind + content;
    }

    Bundle bundle;
    KrMeshLimits limits;
    KrMeshData data;
    std::string why;
};

const std::string kOneNode = "[{\"mesh\":0}]";
const std::string kPrimitive = "{\"attributes\":{\"POSITION\":0}}";

TEST_F(KrMeshSourceTest, StatementsBeforeTheFirstMaterialBelongToNone)
{
    for (const char* const library : {"map_Kd a.png\n", "a 1\n", "disp x\n", "Kd 1 0 0\nmap_bump -bm 2\nnorm y", ""}) {
        bundle.write("a.mtl", library);
        ASSERT_TRUE(read("a.obj", std::string("mtllib a.mtl\n") + kTriangle + "f 1 2 3\n")) << library << why;
        EXPECT_EQ(numTriangles(), 1u);
        EXPECT_EQ(warnings("before its first material"), *library ? 1u : 0u);
    }
    bundle.write("a.mtl", "Kd 0 1 0\nnewmtl red\nKd 1 0 0\nmap_Kd -s 1 1 -clamp on skin a.png\n");
    bundle.write("skin a.png", "image");
    ASSERT_TRUE(read("a.obj", std::string("mtllib a.mtl\n") + kTriangle + "vt 0 0\nusemtl red\nf 1/1 2/1 3/1\n"));
    EXPECT_EQ(real(data.groups.at(0).look, "krDiffuseRed"), 1.0);
    EXPECT_EQ(data.textures, std::vector<std::string>{bundle.path("skin a.png")});
}

TEST_F(KrMeshSourceTest, ContentAndExtensionTellTheFormatAndNoOtherIsRead)
{
    // An index of -1 ends the process in a reader that is not among ours.
    const std::string x3d = "<?xml version=\"1.0\"?><X3D><Scene><Shape><IndexedFaceSet coordIndex=\"0 1 -2 -1\">"
                            "<Coordinate point=\"0 0 0 1 0 0 0 1 0\"/></IndexedFaceSet></Shape></Scene></X3D>";
    EXPECT_FALSE(read("a.x3d", x3d));
    EXPECT_EQ(why, "it is in none of the formats that are read: STL, OBJ, DAE, PLY, OFF, glTF, GLB");
    for (const char* const name : {"a.obj", "a.dae", "a.stl", "a.gltf", "a.ply", "a.off", "a.glb"}) {
        EXPECT_FALSE(read(name, x3d)) << name;
    }
    for (const char* const name : {"b.stl", "b.obj", "b.dae", "b.mesh"}) {
        ASSERT_TRUE(read(name, binaryStl(box(1, 1, 1)))) << name << ": " << why;
        EXPECT_EQ(numTriangles(), 12u) << name;
    }
    EXPECT_TRUE(read("c.obj", kTriangle + std::string("f 1 2 3\n")));
    EXPECT_FALSE(read("c.txt", kTriangle + std::string("f 1 2 3\n")));
    EXPECT_TRUE(read("d.stl", "OFF\n3 1 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n")) << why;
}

TEST_F(KrMeshSourceTest, PipesAndDevicesAreNoMeshesAndNotWaitedFor)
{
    ASSERT_EQ(mkfifo(bundle.path("pipe").c_str(), 0600), 0);
    ASSERT_TRUE(read("a.obj", std::string("mtllib pipe\n") + kTriangle + "f 1 2 3\n")) << why;
    EXPECT_EQ(warnings("material library \"pipe\" cannot be read: it is no regular file"), 1u);
    EXPECT_FALSE(read("a.gltf", gltf(kOneNode, "[{\"primitives\":[" + kPrimitive + "]}]", "pipe")));
    EXPECT_EQ(why, "its buffer \"pipe\" cannot be read: it is no regular file");
    for (const std::string& path : {bundle.path("pipe"), std::string("/dev/zero"), std::string("/dev/tty")}) {
        EXPECT_FALSE(KrMeshFile::read(path, limits, data, why)) << path;
    }
    EXPECT_EQ(import(bundle.write("a.urdf", meshRobot("/dev/zero"))).report.counts().missingMeshes, 1u);
    EXPECT_EQ(import(bundle.write("a.urdf", meshRobot("pipe"))).report.counts().missingMeshes, 1u);
}

TEST_F(KrMeshSourceTest, OddObjFilesAreReadAndBrokenOnesRefused)
{
    // Relative indices, a corner without the texture coordinates that others have, lines in parts, further numbers.
    ASSERT_TRUE(read("a.obj",
                     "v 0 0 0 1 9\r\nv .5e1 +0 0\\\n\nv 0 1 0\nvt 0\nf -3 -2 -1\nf 1/1 2//9 3/7/1 #end\nl 1 2\n"
                     "f 1 2\np 1\ns off\ng\no\nusemtl\ncall x\n"))
        << why;
    EXPECT_EQ(numTriangles(), 2u);
    EXPECT_EQ(data.vertices.size(), 3u);
    ASSERT_TRUE(read("b.obj", "f 1 2 3\n" + std::string(kTriangle))) << why; // what comes later is there, too
    EXPECT_EQ(numTriangles(), 1u);
    for (const char* const face :
         {"f 1 2 4", "f 0 1 2", "f -4 1 2", "f 1 2 99999999999999999999", "f a b c", "f 1 2 "}) {
        EXPECT_FALSE(read("c.obj", std::string(kTriangle) + face + "\n")) << face;
    }
    // Faces of many materials in turn: one group for each.
    std::string turns = kTriangle;
    for (int i = 0; i < 1000; ++i) {
        turns += "usemtl m" + std::to_string(i % 3) + "\nf 1 2 3\n";
    }
    ASSERT_TRUE(read("d.obj", turns)) << why;
    EXPECT_EQ(data.groups.size(), 3u);
    EXPECT_EQ(numTriangles(), 1000u);
}

TEST_F(KrMeshSourceTest, NamesOfMaterialsAreUtf8)
{
    bundle.write("a.mtl", "newmtl gr\xFCn\nKd 0 1 0\n");
    ASSERT_TRUE(read("a.obj", std::string("mtllib a.mtl\n") + kTriangle + "usemtl gr\xFCn\nf 1 2 3\n")) << why;
    EXPECT_EQ(data.groups.at(0).name, "gr\xC3\xBCn");
    EXPECT_EQ(real(data.groups.at(0).look, "krDiffuseGreen"), 1.0);
    EXPECT_EQ(warnings("names of materials are no UTF-8"), 1u);
    bundle.write("b.mtl", "newmtl " + std::string(5000, 'x') + "\nKd 0 1 0\n");
    ASSERT_TRUE(
        read("b.obj", "mtllib b.mtl\n" + std::string(kTriangle) + "usemtl " + std::string(5000, 'x') + "\nf 1 2 3\n"));
    EXPECT_LE(data.groups.at(0).name.size(), 200u);
    EXPECT_TRUE(data.groups.at(0).hasLook);
}

TEST_F(KrMeshSourceTest, StlFilesOfAllKindsAreRead)
{
    const std::string text = stl(box(1, 1, 1));
    const std::string bytes = binaryStl(box(1, 1, 1));
    EXPECT_TRUE(read("a.stl", bytes + "one letter more"));
    EXPECT_EQ(numTriangles(), 12u);
    std::string solid = bytes;
    solid.replace(0, 5, "solid"); // as some exporters begin binary files
    EXPECT_TRUE(read("b.stl", solid));
    EXPECT_EQ(numTriangles(), 12u);
    EXPECT_FALSE(read("c.stl", text + "facet normal 0 0 1 outer loop vertex 1 2 3 vertex"));
    EXPECT_TRUE(read("c.stl", text + "facet normal 0 0 1 outer loop vertex 1 2 3\n"));
    EXPECT_EQ(numTriangles(), 12u);
    EXPECT_EQ(warnings("ends inside a facet"), 1u);
    EXPECT_FALSE(read("d.stl", bytes.substr(0, bytes.size() - 1)));
    EXPECT_EQ(why, "it declares 12 triangles and holds 11");
    EXPECT_FALSE(read("e.stl", "solid vertex\nfacet normal 0 0 1\nouter loop\nvertex 1 2\nvertex 1 2 3\n"));
    EXPECT_FALSE(read("f.stl", "solid\nendsolid\n"));
}

TEST_F(KrMeshSourceTest, OffFilesMayHaveLargeFacesAndMoreBehindThem)
{
    const std::string vertices = "0 0 0\n2 0 0\n2 1 0\n2 2 0\n1 2 0\n0 2 0\n0 1.5 0\n0 1 0\n0 .5 0\n0 .2 0\n";
    const std::string face = "10 0 1 2 3 4 5 6 7 8 9 255 0 0\n";
    std::string behind;
    for (int i = 0; i < 100; ++i) {
        behind += "0\n99 1\n";
    }
    for (const char* const head : {"OFF\n10 1 0\n", "10 1 0\n", "# a\nOFF 10 1\n"}) {
        ASSERT_TRUE(read("a.off", head + vertices + face + behind)) << why;
        EXPECT_EQ(numTriangles(), 8u);
        EXPECT_EQ(data.vertices.size(), 10u);
    }
    ASSERT_TRUE(
        read("b.off", "CN4OFF\n3 1 0\n0 0 0 2 0 0 1 1 0 0\n2 0 0 2 0 0 1 1 0 0\n0 2 0 2 0 0 1 1 0 0\n3 0 1 2\n"))
        << why;
    EXPECT_EQ(data.vertices.at(1), KrVector(1, 0, 0));
    EXPECT_EQ(real(data.groups.at(0).look, "krDiffuseRed"), 1.0);
    EXPECT_EQ(real(data.groups.at(0).look, "krDiffuseGreen"), 0.0);
}

TEST_F(KrMeshSourceTest, BinaryGltfIsReadAndOddTreesEnd)
{
    const std::string meshes = "[{\"primitives\":[" + kPrimitive + "]}]";
    const std::string body = chunk("JSON", gltf(kOneNode, meshes, "")) + chunk(std::string("BIN\0", 4), corners());
    std::string header = "glTF" + std::string(8, '\0');
    header[4] = 2;
    ASSERT_TRUE(read("a.glb", header + body)) << why;
    EXPECT_EQ(numTriangles(), 1u);
    for (std::size_t size = 0; size < header.size() + body.size(); size += 7) {
        read("b.glb", (header + body).substr(0, size)); // however it ends, it comes back
    }
    // Nodes that hold one another, or one twice: each has one place.
    bundle.write("a.bin", corners());
    ASSERT_TRUE(
        read("a.gltf", gltf("[{\"mesh\":0,\"children\":[1,1,0]},{\"mesh\":0,\"children\":[0,1]}]", meshes, "a.bin")))
        << why;
    EXPECT_EQ(numTriangles(), 2u);
    std::string chain = "[";
    for (int i = 1; i <= 3000; ++i) {
        chain += "{\"children\":[" + std::to_string(i) + "]},";
    }
    EXPECT_FALSE(read("b.gltf", gltf(chain + "{\"mesh\":0}]", meshes, "a.bin")));
    EXPECT_NE(why.find("nested deeper"), std::string::npos) << why;
    EXPECT_FALSE(read("c.gltf", "{\"asset\":" + std::string(100000, '[')));
    std::string crowd = kOneNode;
    for (int i = 0; i < 100000; ++i) {
        crowd.insert(1, "{},");
    }
    EXPECT_FALSE(read("d.gltf", gltf(crowd, meshes, "a.bin"))); // minutes, otherwise
}

TEST_F(KrMeshSourceTest, LimitsAreTheClientsAndTold)
{
    limits.maxTriangles = 11;
    bundle.write("a.bin", corners());
    std::string many;
    for (int i = 0; i < 40; ++i) {
        many += (i ? "," : "") + kPrimitive;
    }
    const std::pair<std::string, std::string> files[] = {
        {"a.stl", stl(box(1, 1, 1))},
        {"b.stl", binaryStl(box(1, 1, 1))},
        {"c.obj", std::string(kTriangle) + "f 1 2 3 1 2 3 1 2 3 1 2 3 1 2\n"},
        {"d.gltf", gltf(kOneNode, "[{\"primitives\":[" + many + "]}]", "a.bin")}};
    for (const auto& [name, content] : files) {
        EXPECT_FALSE(read(name, content)) << name;
        EXPECT_NE(why.find("more than 11 triangles"), std::string::npos) << why;
    }
    limits.maxTriangles = 1000;
    for (const auto& [name, content] : files) {
        EXPECT_TRUE(read(name, content)) << name << ": " << why;
    }
    limits.maxBytes = 100;
    EXPECT_FALSE(read("a.stl", stl(box(1, 1, 1))));
    EXPECT_EQ(why, "it is larger than 100 bytes");
    // Side files count, too.
    bundle.write("a.mtl", std::string(101, '#'));
    EXPECT_TRUE(read("a.obj", std::string("mtllib a.mtl\n") + kTriangle + "f 1 2 3\n")) << why;
    EXPECT_EQ(warnings("cannot be read: it is larger than 100 bytes"), 1u);
}

TEST_F(KrMeshSourceTest, PolygonsOfTooManyCornersAreRefused)
{
    // Cutting it up would take the square of this.
    std::string polygon = kTriangle + std::string("f");
    for (int i = 0; i < 200000; ++i) {
        polygon += i % 3 == 0 ? " 1" : i % 3 == 1 ? " 2" : " 3";
    }
    EXPECT_FALSE(read("a.obj", polygon + "\n"));
    EXPECT_NE(why.find("corners"), std::string::npos) << why;
}

} // namespace
