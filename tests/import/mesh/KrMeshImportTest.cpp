#include <tests/import/Collada.h>

#include <import/mesh/KrMeshFile.h>
#include <toolkit/image/KrImage.h>
#include <toolkit/math/KrAngle.h>

#include <algorithm>
#include <cmath>
#include <set>

namespace
{

using Kr::Angle::kPi;

class KrMeshImportTest : public ::testing::Test
{
protected:
    /// A robot of one link with the given mesh file.
    Imported importMesh(const std::string& name, const std::string& content, const std::string& scale = "",
                        const std::string& rest = "")
    {
        bundle.write(name, content);
        Imported result = import(bundle.write("arm.urdf", meshRobot(name, scale, rest)));
        EXPECT_TRUE(result.ok) << result.printed;
        EXPECT_EQ(result.printed, "");
        return result;
    }
    static std::vector<std::string> groupNames(const KrTriPhysicalExtent& mesh)
    {
        std::vector<std::string> names;
        for (unsigned int i = 0; i < mesh.numGroupNames(); ++i) {
            names.push_back(mesh.groupName(i));
        }
        return names;
    }
    static KrDataMap look(const KrTriPhysicalExtent& mesh, const std::string& group)
    {
        const KrDataMap* const found = mesh.materialMap().find(group);
        return found ? *found : KrDataMap();
    }
    static double red(const KrTriPhysicalExtent& mesh, const std::string& group)
    {
        return real(look(mesh, group), "krDiffuseRed");
    }

    static std::string repeated(const std::string& text, int times)
    {
        std::string result;
        for (int i = 0; i < times; ++i) {
            result += text;
        }
        return result;
    }
    /// Nodes of which each places the next one twice.
    static std::string doublings()
    {
        std::string result;
        for (int i = 0; i < 40; ++i) {
            const std::string next = "<instance_node url=\"#d" + std::to_string(i + 1) + "\"/>";
            result += "<node id=\"d" + std::to_string(i) + "\">" + next + next + "</node>";
        }
        return result + "<node id=\"d40\"/>";
    }
    /// Two pixels, black and orange.
    static void writeHalves(const std::string& path)
    {
        KrImage image;
        image.allocate(3, 0, 2, 1);
        image.data()[3] = 255;
        image.data()[4] = 102;
        ASSERT_TRUE(image.writeFile(path, KrImage::TopRowFirst));
    }
    /// One triangle; `primitive` and `rest` go where a material is named and defined.
    static std::string gltf(const std::string& primitive, const std::string& rest)
    {
        return "{\"asset\":{\"version\":\"2.0\"},\"scene\":0,\"scenes\":[{\"nodes\":[0]}],\"nodes\":[{\"mesh\":0}],"
               "\"meshes\":[{\"primitives\":[{\"attributes\":{\"POSITION\":0},\"indices\":1" +
               primitive +
               "}]}],\"accessors\":[{\"bufferView\":0,\"componentType\":5126,\"count\":3,\"type\":\"VEC3\"},"
               "{\"bufferView\":1,\"componentType\":5123,\"count\":3,\"type\":\"SCALAR\"}],"
               "\"bufferViews\":[{\"buffer\":0,\"byteLength\":36},{\"buffer\":0,\"byteOffset\":36,\"byteLength\":6}],"
               "\"buffers\":[{\"byteLength\":42,\"uri\":\"data:application/octet-stream;base64,"
               "AAAAAAAAAAAAAAAAAACAPwAAAAAAAAAAAAAAAAAAgD8AAAAAAAABAAIA\"}]" +
               rest + "}";
    }

    Bundle bundle;
};

TEST_F(KrMeshImportTest, StlNormalsComeFromTheTrianglesWhateverTheFileClaims)
{
    for (const char* const normal : {"0 0 0", "0 0 1", "nan nan nan", "3 0 0"}) {
        const Imported in = importMesh("a.stl", stl(box(1, 2, 3), normal));
        EXPECT_NEAR(volume(in.mesh("base")), 6.0, 1e-5) << normal;
        EXPECT_NEAR(worstNormal(in.mesh("base")), 1.0, 1e-6) << normal;
        EXPECT_EQ(in.mesh("base").vertices().size(), 8u);
    }
    for (const char* const name : {"b.STL", "c.Stl"}) {
        EXPECT_NEAR(volume(importMesh(name, binaryStl(box(1, 2, 3))).mesh("base")), 6.0, 1e-5) << name;
    }
    // Both zeros are one place.
    const std::vector<Corners> square = {{KrVector(0, 0, 0), KrVector(1, 0, 0), KrVector(1, 1, 0)},
                                         {KrVector(-0.0, 0, -0.0), KrVector(1, 1, 0), KrVector(0, 1, 0)}};
    EXPECT_EQ(importMesh("d.stl", stl(square)).mesh("base").vertices().size(), 4u);
    EXPECT_EQ(importMesh("e.stl", binaryStl(square)).mesh("base").vertices().size(), 4u);
}

TEST_F(KrMeshImportTest, BadNormalsAreComputedAndGoodOnesKept)
{
    Collada file;
    for (const char* const normal : {"", "0 0 0", "0 0 12", "0 0 0.5"}) {
        file.normal = normal;
        EXPECT_NEAR(worstNormal(importMesh("a.dae", file.text()).mesh("base")), 1.0, 1e-6) << normal;
    }
    file.normal = "0.6 0 0.8";
    const Imported in = importMesh("a.dae", file.text());
    const KrTriPhysicalExtent& mesh = in.mesh("base");
    ASSERT_EQ(mesh.normals().size(), 1u);
    EXPECT_NEAR(mesh.normals()[0].x(), 0.6, 1e-6);
    EXPECT_NEAR(mesh.normals()[0].z(), 0.8, 1e-6);
}

TEST_F(KrMeshImportTest, ComputedNormalsBlendAcrossBluntEdgesOnly)
{
    // A 16-sided and a 6-sided prism: 22.5 and 60 degrees between sides.
    for (const int sides : {16, 6}) {
        std::vector<Corners> prism;
        for (int i = 0; i < sides; ++i) {
            const double a = 2.0 * kPi * i / sides, b = 2.0 * kPi * (i + 1) / sides;
            const KrVector p(std::cos(a), std::sin(a), 0), q(std::cos(b), std::sin(b), 0), up(0, 0, 1);
            prism.push_back({p, q, q + up});
            prism.push_back({p, q + up, p + up});
        }
        const Imported in = importMesh("a.stl", binaryStl(prism));
        const double lean = sides == 16 ? std::cos(kPi / sides) : 1.0;
        EXPECT_NEAR(worstNormal(in.mesh("base")), lean, 1e-3) << sides;
    }
}

TEST_F(KrMeshImportTest, DegenerateTrianglesAreSkippedAndCounted)
{
    std::vector<Corners> triangles = box(1, 2, 3);
    triangles.push_back({KrVector(0, 0, 0), KrVector(1, 1, 1), KrVector(1, 1, 1)});
    triangles.push_back({KrVector(0, 0, 0), KrVector(1, 1, 1), KrVector(2, 2, 2)});
    const Imported in = importMesh("a.stl", stl(triangles));
    EXPECT_EQ(in.mesh("base").numTriangles(), 12u);
    ASSERT_EQ(in.report.meshes().size(), 1u);
    EXPECT_EQ(in.report.meshes()[0].degenerate, 2u);
    EXPECT_EQ(in.report.meshes()[0].triangles, 12u);
    EXPECT_EQ(in.report.counts().triangles, 12u);

    // Tiny is not degenerate.
    EXPECT_EQ(importMesh("b.stl", binaryStl(box(1e-6, 2e-6, 3e-6))).mesh("base").numTriangles(), 12u);
    const Imported flat = importMesh("c.stl", stl({{KrVector(), KrVector(), KrVector()}}));
    EXPECT_EQ(flat.robot().numShapes(), 0u);
    EXPECT_EQ(flat.warnings("robot", "nothing to draw"), 1u);
    EXPECT_EQ(flat.report.counts().missingMeshes, 0u);
}

TEST_F(KrMeshImportTest, MirroringTurnsTheWindingAndKeepsNormalsOutside)
{
    const std::string content = stl(box(1, 2, 3));
    for (const char* const scale : {"-1 1 1", "1 -2 1", "-1 -1 -1", "-1 -1 1", "0.5 3 -0.1"}) {
        const Imported in = importMesh("a.stl", content, scale);
        EXPECT_GT(volume(in.mesh("base")), 0.0) << scale;
        EXPECT_NEAR(worstNormal(in.mesh("base")), 1.0, 1e-6) << scale;
    }
    // Normals of the file's own: outside stays outside. The triangle leans, so that the scale turns its normal.
    Collada file;
    file.box = {{KrVector(0, 0, 0), KrVector(1, 0, 1), KrVector(0, 1, 0)}};
    file.normal = "-0.70710678 0 0.70710678";
    for (const char* const scale : {"1 1 1", "-1 1 1", "2 1 1", "1 1 -3"}) {
        EXPECT_NEAR(worstNormal(importMesh("a.dae", file.text(), scale).mesh("base")), 1.0, 1e-6) << scale;
    }
    file.matrix = "-2 0 0 5  0 1 0 0  0 0 1 0  0 0 0 1";
    const Imported in = importMesh("a.dae", file.text());
    EXPECT_NEAR(worstNormal(in.mesh("base")), 1.0, 1e-6);
    file.box = box(1, 2, 3);
    file.normal = "";
    EXPECT_NEAR(volume(importMesh("a.dae", file.text()).mesh("base")), 12.0, 1e-4);
}

TEST_F(KrMeshImportTest, ScaleTakesOneOrThreeNumbers)
{
    const std::string content = stl(box(1, 2, 3));
    EXPECT_NEAR(volume(importMesh("a.stl", content, "0.1").mesh("base")), 0.006, 1e-8);
    EXPECT_NEAR(volume(importMesh("a.stl", content, " 0.1  2,1 ").mesh("base")), 1.2, 1e-6);
    for (const char* const scale : {"1 2", "nan", "big", "1 1 1 1", "inf 1 1", ""}) {
        const Imported in = importMesh("a.stl", content, scale);
        EXPECT_NEAR(volume(in.mesh("base")), 6.0, 1e-5) << scale;
        EXPECT_EQ(in.warnings("link base / visual 1", "scale"), *scale ? 1u : 0u) << scale;
    }
    const Imported none = importMesh("a.stl", content, "1 0 1");
    EXPECT_EQ(none.robot().numShapes(), 0u);
    EXPECT_EQ(none.warnings("link base / visual 1", "leaves nothing"), 1u);
}

TEST_F(KrMeshImportTest, DaeUnitIsAppliedAndUpAxisIsNot)
{
    Collada file;
    file.unit = "<unit meter=\"0.01\" name=\"centimeter\"/>";
    for (const char* const axis : {"X_UP", "Y_UP", "Z_UP"}) {
        file.upAxis = axis;
        const Imported in = importMesh("a.Dae", file.text(), "2");
        KrVector highest;
        for (const KrVector& v : in.mesh("base").vertices()) {
            highest.set(std::max(highest.x(), v.x()), std::max(highest.y(), v.y()), std::max(highest.z(), v.z()));
        }
        EXPECT_NEAR(highest.x(), 0.02, 1e-7) << axis;
        EXPECT_NEAR(highest.y(), 0.04, 1e-7) << axis;
        EXPECT_NEAR(highest.z(), 0.06, 1e-7) << axis;
        EXPECT_NEAR(in.report.meshes().at(0).unit, 0.01, 1e-7);
        EXPECT_EQ(in.report.meshes().at(0).scale, KrVector(2, 2, 2));
        EXPECT_EQ(in.warnings("robot", "a.Dae declares another up axis"), axis[0] == 'Z' ? 0u : 1u);
    }
}

TEST_F(KrMeshImportTest, GeometriesMayNumberTheirArraysAlike)
{
    // The second geometry has more vertices, the third fewer; all call their arrays by the same names.
    Collada file;
    std::string text = file.text();
    const std::size_t begin = text.find("<geometry");
    const std::size_t end = text.find("</library_geometries>");
    std::string more;
    for (const std::size_t corners : {24u, 4u}) {
        Collada other;
        other.box.resize(corners % box(1, 2, 3).size(), other.box[0]);
        if (corners == 24u) {
            other.box = box(1, 1, 1);
            other.box.insert(other.box.end(), file.box.begin(), file.box.end());
        }
        std::string geometry = other.text();
        geometry = geometry.substr(geometry.find("<geometry"));
        geometry = geometry.substr(0, geometry.find("</library_geometries>"));
        more += geometry.replace(geometry.find("\"g\""), 3, "\"g" + std::to_string(corners) + "\"");
    }
    text.insert(end, more);
    const std::string nodes =
        "<node><instance_geometry url=\"#g24\"/></node><node><instance_geometry url=\"#g4\"/></node>";
    text.insert(text.find("</visual_scene>"), nodes);
    ASSERT_LT(begin, end);
    const Imported in = importMesh("a.dae", text);
    EXPECT_EQ(in.mesh("base").numTriangles(), 12u + 24u + 4u) << in.report.text();
}

TEST_F(KrMeshImportTest, CamerasLightsAndLinesAreDropped)
{
    Collada file;
    file.extraMesh = "<lines count=\"1\"><input semantic=\"VERTEX\" source=\"#v\" offset=\"0\"/><p>0 7</p></lines>";
    file.libraries =
        "<library_cameras><camera id=\"c\"><optics><technique_common><perspective><xfov>40</xfov><znear>1</znear>"
        "<zfar>9</zfar></perspective></technique_common></optics></camera></library_cameras><library_lights>"
        "<light id=\"l\"><technique_common><point><color>1 1 1</color></point></technique_common></light>"
        "</library_lights>";
    file.extraNodes = "<node><translate>100 0 0</translate><instance_camera url=\"#c\"/></node>"
                      "<node><instance_light url=\"#l\"/></node>";
    const Imported in = importMesh("a.dae", file.text());
    EXPECT_EQ(in.mesh("base").numTriangles(), 12u);
    EXPECT_EQ(in.mesh("base").numGroupNames(), 1u);
    EXPECT_TRUE(in.report.warnings().empty()) << in.report.text();
}

TEST_F(KrMeshImportTest, EveryMaterialIsAGroupAndNoEmptyNameIsShared)
{
    Collada file;
    file.materials = {"paint", "", "", "paint"};
    file.techniques = {lambert("1 0 0 1"), lambert("0.75 0 0 1"), lambert("0.5 0 0 1"), lambert("0.25 0 0 1")};
    const std::string both = "<material name=\"paint\"><color rgba=\"0 1 0 1\"/></material>";
    const Imported in = importMesh("a.dae", file.text(), "", both);
    const KrTriPhysicalExtent& mesh = in.mesh("base");
    const std::vector<std::string> names = groupNames(mesh);
    ASSERT_EQ(names.size(), 4u);
    std::set<double> reds;
    for (const std::string& name : names) {
        EXPECT_FALSE(name.empty());
        reds.insert(std::round(100 * red(mesh, name)));
        // Lit: a map of diffuse values alone attaches no material.
        EXPECT_GE(real(look(mesh, name), "krAmbientRed"), 0.0);
        EXPECT_GE(real(look(mesh, name), "krShininess"), 0.0);
    }
    EXPECT_EQ(reds, (std::set<double>{25, 50, 75, 100})); // each its own, none the robot's green
}

TEST_F(KrMeshImportTest, TheMeshsMaterialWinsThenTheRobotsThenTheDefault)
{
    const std::string green = "<material name=\"green\"><color rgba=\"0 1 0 0.5\"/></material>";
    Collada plain;
    const std::string obj = "v 0 0 0\nv 1 0 0\nv 0 1 0\nusemtl red\nf 1 2 3\n";
    struct Case
    {
        std::string name;
        std::string content;
    };
    bundle.write("red.mtl", "newmtl red\nKd 1 0 0\n");
    // The last one names a library that is not there: its material says nothing.
    const std::string ply = "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\nproperty "
                            "float z\nelement face 1\nproperty list uchar int vertex_index\nend_header\n"
                            "0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n";
    for (const Case& c : {Case{"a.stl", stl(box(1, 1, 1))}, Case{"a.dae", plain.text()},
                          Case{"a.obj", "mtllib gone.mtl\n" + obj}, Case{"a.ply", ply},
                          Case{"a.off", "OFF\n3 1 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n"}, Case{"a.gltf", gltf("", "")}}) {
        Imported in = importMesh(c.name, c.content, "", green);
        ASSERT_EQ(groupNames(in.mesh("base")), std::vector<std::string>{"green"}) << c.name;
        EXPECT_EQ(in.mesh("base").materialMap().size(), 0u) << c.name;
        EXPECT_EQ(real(in.look("green"), "krDiffuseGreen"), 1.0);
        EXPECT_EQ(real(in.look("green"), "krDiffuseAlpha"), 0.5);
        in = importMesh(c.name, c.content);
        EXPECT_EQ(groupNames(in.mesh("base")), std::vector<std::string>{""}) << c.name;
        EXPECT_EQ(in.robot().materialMap().size(), 0u);
    }
    // A glTF material needs no name.
    const std::string redGltf =
        gltf(",\"material\":0", ",\"materials\":[{\"pbrMetallicRoughness\":{\"baseColorFactor\":[1,0,0,1]}}]");
    for (const Case& c : {Case{"b.obj", "mtllib red.mtl\n" + obj}, Case{"b.gltf", redGltf}}) {
        const Imported in = importMesh(c.name, c.content, "", green);
        ASSERT_EQ(in.mesh("base").numGroupNames(), 1u);
        EXPECT_EQ(red(in.mesh("base"), in.mesh("base").groupName(0)), 1.0) << c.name;
    }
}

TEST_F(KrMeshImportTest, OpacityZeroEverywhereIsReadAsOpaque)
{
    Collada file;
    file.materials = {"a", "b"};
    file.techniques = {lambert("1 0 0 1", opacity("0")), lambert("0 1 0 1", opacity("0"))};
    const Imported in = importMesh("a.dae", file.text());
    EXPECT_EQ(real(look(in.mesh("base"), "a"), "krDiffuseAlpha"), 1.0);
    EXPECT_EQ(real(look(in.mesh("base"), "b"), "krDiffuseAlpha"), 1.0);
    EXPECT_EQ(in.warnings("link base / visual 1", "opacity 0"), 1u);

    file.techniques[1] = lambert("0 1 0 1", opacity("0.25"));
    const Imported glass = importMesh("a.dae", file.text());
    EXPECT_EQ(real(look(glass.mesh("base"), "a"), "krDiffuseAlpha"), 0.0);
    EXPECT_EQ(real(look(glass.mesh("base"), "b"), "krDiffuseAlpha"), 0.25);
}

TEST_F(KrMeshImportTest, TexturesAreFoundFromTheMeshAndMissingOnesLeaveTheColour)
{
    Collada file;
    file.materials = {"skin"};
    file.techniques = {textured()};
    file.hasCoordinates = true;
    bundle.write("meshes/skin image.png", "image");
    bundle.write("textures/far.png", "image");
    std::string image;

    file.libraries = textureLibrary("skin%20image.png");
    Imported in = importMesh("meshes/a.dae", file.text());
    EXPECT_TRUE(look(in.mesh("base"), "skin").string("krTextureFilename", image));
    EXPECT_EQ(image, bundle.path("meshes/skin image.png"));
    EXPECT_EQ(red(in.mesh("base"), "skin"), 1.0); // white: the image is not darkened
    ASSERT_EQ(in.mesh("base").textureCoordinates().size(), 36u);
    EXPECT_EQ(in.mesh("base").textureCoordinates()[0], KrPlanarVector(0.25, 0.75));
    EXPECT_EQ(in.report.counts().textures, 1u);

    file.libraries = textureLibrary("C:\\work\\far.png");
    in = importMesh("meshes/b.dae", file.text());
    EXPECT_TRUE(look(in.mesh("base"), "skin").string("krTextureFilename", image));
    EXPECT_EQ(image, bundle.path("textures/far.png"));

    file.libraries = textureLibrary("gone.png");
    in = importMesh("meshes/c.dae", file.text());
    EXPECT_FALSE(look(in.mesh("base"), "skin").string("krTextureFilename", image));
    EXPECT_EQ(in.warnings("link base / visual 1", "gone.png\" is missing"), 1u);

    // Half black, half orange.
    file.libraries = textureLibrary("../halves.png");
    writeHalves(bundle.path("halves.png"));
    file.hasCoordinates = false;
    in = importMesh("meshes/d.dae", file.text());
    EXPECT_FALSE(look(in.mesh("base"), "skin").string("krTextureFilename", image));
    EXPECT_NEAR(red(in.mesh("base"), "skin"), 0.5, 1e-6);
    EXPECT_NEAR(real(look(in.mesh("base"), "skin"), "krDiffuseGreen"), 0.2, 1e-6);
    EXPECT_NEAR(real(look(in.mesh("base"), "skin"), "krAmbientBlue"), 0.0, 1e-6);
    EXPECT_EQ(in.warnings("link base / visual 1", "without texture coordinates"), 1u);
    EXPECT_EQ(in.mesh("base").numTriangles(), 12u);
}

TEST_F(KrMeshImportTest, TheRobotsTextureNeedsCoordinatesToo)
{
    writeHalves(bundle.path("wood.png"));
    const std::string wood = "<material name=\"wood\"><texture filename=\"wood.png\"/></material>";
    Collada file;
    std::string image;
    Imported in = importMesh("a.dae", file.text(), "", wood);
    EXPECT_EQ(groupNames(in.mesh("base")), std::vector<std::string>{"wood without texture"});
    EXPECT_FALSE(in.look("wood without texture").string("krTextureFilename", image));
    EXPECT_NEAR(real(in.look("wood without texture"), "krDiffuseRed"), 0.5, 1e-6);
    EXPECT_EQ(in.warnings("link base / visual 1", "no texture coordinates; its mean colour is used"), 1u);

    file.hasCoordinates = true;
    in = importMesh("b.dae", file.text(), "", wood);
    EXPECT_EQ(groupNames(in.mesh("base")), std::vector<std::string>{"wood"});
    EXPECT_TRUE(in.look("wood").string("krTextureFilename", image));
    EXPECT_EQ(in.mesh("base").textureCoordinates().size(), 36u);
}

TEST_F(KrMeshImportTest, BadMeshesBecomeMarkedStandIns)
{
    std::filesystem::create_directories(bundle.path("folder.stl"));
    const std::string noise = "\x7f\x45\x4c\x46\x01\x02\xff\xfe\x00\x00nothing like a mesh";
    std::string cut = binaryStl(box(1, 1, 1));
    cut.resize(200);
    const std::pair<std::string, std::string> files[] = {{"a.stl", ""},
                                                         {"b.stl", noise},
                                                         {"c.dae", noise},
                                                         {"d.obj", noise},
                                                         {"e.dae", "<COLLADA><asset>"},
                                                         {"f.xyz", "x"},
                                                         {"g.stl", cut},
                                                         {"h.glb", noise},
                                                         {"i.stl", std::string(84, '\xff')}};
    for (const auto& [name, content] : files) {
        const Imported in = importMesh(name, content);
        ASSERT_EQ(in.report.counts().missingMeshes, 1u) << name;
        EXPECT_TRUE(in.report.meshes()[0].missing);
        EXPECT_EQ(in.report.meshes()[0].path, bundle.path(name));
        EXPECT_EQ(in.warnings("link base / visual 1", "cannot be read"), 1u) << name;
        EXPECT_EQ(in.mesh("base").numGroupNames(), 1u);
        EXPECT_NE(in.robot().materialMap().find(in.mesh("base").groupName(0)), nullptr) << name;
        EXPECT_LT(volume(in.mesh("base")), 0.001);
    }
    for (const char* const uri : {"folder.stl", "gone.stl", "", "package://a/none.stl", "http://localhost/x.stl"}) {
        const Imported in = import(bundle.write("arm.urdf", meshRobot(uri)));
        ASSERT_TRUE(in.ok) << uri;
        ASSERT_EQ(in.report.meshes().size(), 1u);
        const KrImportReport::Mesh& line = in.report.meshes()[0];
        EXPECT_TRUE(line.missing && line.path.empty()) << uri;
        EXPECT_EQ(line.link, "base");
        EXPECT_EQ(line.uri, uri);
        EXPECT_EQ(in.mesh("base").numTriangles(), 12u);
        EXPECT_EQ(in.warnings("link base / visual 1", "not found"), 1u);
        for (const std::string& tried : line.tried) {
            EXPECT_NE(in.report.text().find(tried), std::string::npos);
        }
    }
}

TEST_F(KrMeshImportTest, DamagedCountsAndIndicesCostNeitherMemoryNorTheProcess)
{
    const auto replaced = [](std::string text, const std::string& from, const std::string& to) {
        const std::size_t at = text.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        return at == std::string::npos ? text : text.replace(at, from.size(), to);
    };
    const std::string dae = Collada().text();
    const std::string ply =
        "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\nproperty float "
        "z\nelement face 1\nproperty list uchar int vertex_index\nend_header\n0 0 0\n1 0 0\n0 1 0\n";
    const std::string corners = "0 0 0\n1 0 0\n0 1 0\n";
    const std::pair<std::string, std::string> files[] = {
        {"a.dae", replaced(dae, "<p>0 1", "<p>0 0.5 1")},
        {"b.dae", replaced(dae, "stride=\"3\"", "stride=\"99999999999\"")},
        {"c.dae", replaced(dae, "<triangles count=\"12\"", "<triangles count = '999999999'")},
        {"d.dae", replaced(dae, "offset=\"0\"", "offset=\"-1\"")},
        {"a.ply", replaced(ply, "vertex 3", "vertex 4000000000") + "3 0 1 2\n"},
        {"b.ply", ply + "4000000000 0 1 2\n"},
        {"c.ply", ply + "3 0 1 4000\n"},
        {"d.ply", ply + "4 0 1 2 3\n"},
        {"g.dae", replaced(dae, "count=\"108\"", "count=\"nan\"")},
        {"h.dae", replaced(dae, "count=\"108\"", "count=\"999\"")},
        {"i.dae", replaced(dae, "count=\"36\"", "count=\"37\"")},
        {"j.dae", replaced(dae, "<triangles count=\"12\"", "<triangles count=\"\"")},
        {"k.dae", replaced(replaced(dae, "<triangles count=\"12\"", "<polygons"), "</triangles>", "</polygons>")},
        {"m.dae", replaced(replaced(dae, "<triangles ", "<polylist "), "</triangles>", "</polylist>")},
        {"l.dae", replaced(dae, "</p>", "</p><p>0 1 2</p>")},
        {"a.xml", replaced(dae, "count=\"108\"", "count=\"nan\"")},
        {"a.mesh2", replaced(dae, "count=\"108\"", "count=\"nan\"")},
        {"b.mesh2", ply.substr(0, 54)},
        {"c.mesh2", "OFF\n3 1 0\n" + corners + "0\n0\n"},
        {"g.ply", ply.substr(0, 54)},
        {"h.ply", replaced(ply, "float z", "flo z") + "3 0 1 2\n"},
        {"i.ply", replaced(ply, " vertex_index\nend_header", "")},
        {"j.ply", replaced(ply, "list uchar int vertex_index", "list uchaex_")},
        {"k.ply", replaced(replaced(ply, "ascii", "binary_little_endian"), "face 1", "face 0")},
        {"a.off", "OFF\n4000000000 1 0\n0 0 0\n"},
        {"b.off", "OFF\n3 1 0\n" + corners + "0\n0\n"},
        {"c.off", "OFF\n3 1 0\n" + corners + "3 0 1 3\n"},
        {"d.off", "OFF\n3 1 0\n" + corners + "3 0 1\n"},
        {"e.off", "OFF\n3 2 0\n" + corners + "3 0 1 2\n"},
        {"f.off", "OFF\n"},
        {"n.dae", replaced(dae, "</visual_scene>", "<node id=\"x\"><instance_node url=\"#x\"/></node></visual_scene>")},
        {"o.dae",
         replaced(dae, "</visual_scene>", "<node id=\"x\"><instance_node url=\"#&#120;\"/></node></visual_scene>")},
        {"p.dae", replaced(dae, "</visual_scene>", doublings() + "</visual_scene>")},
        {"q.dae", replaced(dae, "<asset>", "<asset>" + repeated("<extra>", 100000))},
        {"r.dae", replaced(dae, "<technique_common><accessor",
                           "<Name_array id=\"p-a\" count=\"1\">x</Name_array><technique_common><accessor")},
        {"a.gltf", replaced(gltf("", ""), "\"count\":3", "\"count\" : 99999999999")},
        {"b.gltf", replaced(gltf("", ""), "\"count\":3", "\"count\":4")},
        {"c.gltf", replaced(gltf("", ""), "\"POSITION\":0", "\"POSITION\":1")},
        {"d.gltf", replaced(gltf("", ""), "\"byteLength\"", "\"byteOffset\":30,\"byteLength\"")},
    };
    for (const auto& [name, content] : files) {
        EXPECT_EQ(importMesh(name, content).report.counts().missingMeshes, 1u) << name;
    }
    // A face without corners beside a whole one.
    const Imported in = importMesh("e.ply", replaced(ply, "face 1", "face 2") + "3 0 1 2\n0\n");
    EXPECT_EQ(in.mesh("base").numTriangles(), 1u);
    EXPECT_EQ(importMesh("f.ply", ply + "3 0 1 2\n").mesh("base").numTriangles(), 1u);
    EXPECT_EQ(importMesh("e.dae", dae).mesh("base").numTriangles(), 12u);
    EXPECT_EQ(importMesh("g.off", "OFF\n# made by hand\n3 1 0\n\n" + corners + "3 0 1 2 255 0 0\n")
                  .mesh("base")
                  .numTriangles(),
              1u);
}

TEST_F(KrMeshImportTest, SkinsAndAnimationsAreLeftOutAndTheirMeshesKept)
{
    Collada file;
    // Its weights, and those of the animation, would be read from where nothing is.
    file.libraries = "<library_animations><animation><source id=\"as\"><float_array id=\"as-a\" "
                     "count=\"9\">1</float_array></source></animation></library_animations>"
                     "<library_controllers><controller id=\"c\"><skin source=\"#g\"><vertex_weights "
                     "count=\"nan\"><vcount>1</vcount><v>9 9</v></vertex_weights></skin></controller>"
                     "</library_controllers>";
    file.extraNodes = "<node><translate>0 0 10</translate><instance_controller "
                      "url=\"#c\"><skeleton>#b</skeleton></instance_controller></node>"
                      "<node><translate>0 0 20</translate><instance_controller url=\"#c\"/></node>";
    const Imported in = importMesh("a.dae", file.text());
    EXPECT_EQ(in.mesh("base").numTriangles(), 36u);
    EXPECT_NEAR(volume(in.mesh("base")), 18.0, 1e-6);
}

TEST_F(KrMeshImportTest, OneColourOfAllVerticesIsALookAndOthersAreTold)
{
    const auto ply = [](const std::string& last, const std::string& comment = "") {
        return "ply\nformat ascii 1.0\n" + comment +
               "element vertex 3\nproperty float x\nproperty float y\nproperty float z\nproperty uchar red\nproperty "
               "uchar green\nproperty uchar blue\nelement face 1\nproperty list uchar int vertex_index\nend_header\n"
               "0 0 0 255 0 0\n1 0 0 255 0 0\n0 1 0 " +
               last + "\n3 0 1 2\n";
    };
    const std::string green = "<material name=\"green\"><color rgba=\"0 1 0 1\"/></material>";
    Imported in = importMesh("a.ply", ply("255 0 0"), "", green);
    ASSERT_EQ(in.mesh("base").numGroupNames(), 1u);
    EXPECT_EQ(red(in.mesh("base"), in.mesh("base").groupName(0)), 1.0);
    EXPECT_EQ(in.warnings("link base / visual 1", "colours"), 0u);
    in = importMesh("b.ply", ply("0 0 255"), "", green);
    EXPECT_EQ(groupNames(in.mesh("base")), std::vector<std::string>{"green"});
    EXPECT_EQ(in.warnings("link base / visual 1", "colours of its vertices"), 1u);
    // The file has a look of its own: that of its texture.
    in = importMesh("c.ply", ply("255 0 0", "comment TextureFile gone.png\n"), "", green);
    EXPECT_EQ(red(in.mesh("base"), in.mesh("base").groupName(0)), 1.0);
    EXPECT_EQ(in.warnings("link base / visual 1", "colours of its vertices"), 1u);
}

TEST_F(KrMeshImportTest, WhatNoTriangleUsesCostsNothingAndInstancesAreBounded)
{
    // 3 of 30000 vertices are used.
    const auto file = [](int instances) {
        std::string nodes, list;
        for (int i = 0; i < instances; ++i) {
            nodes += (i ? ",{\"mesh\":0}" : "{\"mesh\":0}");
            list += (i ? "," : "") + std::to_string(i);
        }
        std::string bytes(30000 * 20, '\0');
        const float one = 1.0f;
        std::memcpy(&bytes[12], &one, 4);
        std::memcpy(&bytes[28], &one, 4);
        const std::uint16_t indices[3] = {0, 1, 2};
        bytes.append(reinterpret_cast<const char*>(indices), 6);
        return std::pair(
            "{\"asset\":{\"version\":\"2.0\"},\"scene\":0,\"scenes\":[{\"nodes\":[" + list + "]}],\"nodes\":[" + nodes +
                "],\"meshes\":[{\"primitives\":[{\"attributes\":{\"POSITION\":0,\"TEXCOORD_0\":1},\"indices\":2}]}],"
                "\"accessors\":[{\"bufferView\":0,\"componentType\":5126,\"count\":30000,\"type\":\"VEC3\"},"
                "{\"bufferView\":1,\"componentType\":5126,\"count\":30000,\"type\":\"VEC2\"},"
                "{\"bufferView\":2,\"componentType\":5123,\"count\":3,\"type\":\"SCALAR\"}],\"bufferViews\":["
                "{\"buffer\":0,\"byteLength\":360000},{\"buffer\":0,\"byteOffset\":360000,\"byteLength\":240000},"
                "{\"buffer\":0,\"byteOffset\":600000,\"byteLength\":6}],"
                "\"buffers\":[{\"byteLength\":600006,\"uri\":\"a.bin\"}]}",
            bytes);
    };
    bundle.write("a.bin", file(1).second);
    KrMeshData data;
    std::string why;
    ASSERT_TRUE(KrMeshFile::read(bundle.write("a.gltf", file(500).first), {}, data, why)) << why;
    EXPECT_EQ(data.vertices.size(), 3u);
    EXPECT_EQ(data.textureCoordinates.size(), 3u);
    EXPECT_EQ(data.groups.at(0).triangles.size(), 500u);
    EXPECT_FALSE(KrMeshFile::read(bundle.write("b.gltf", file(3000).first), {}, data, why));
    EXPECT_NE(why.find("vertices"), std::string::npos) << why;
}

TEST_F(KrMeshImportTest, WhatIsTooFarToBeDrawnIsAStandInAndSaysWhy)
{
    const Imported in = importMesh("a.obj", "v 0 0 0\nv 1e37 0 0\nv 0 1e37 0\nf 1 2 3\n", "1e5");
    EXPECT_EQ(in.report.counts().missingMeshes, 1u);
    EXPECT_EQ(in.warnings("link base / visual 1", "too far away"), 1u);
    EXPECT_LT(volume(in.mesh("base")), 0.001);
}

TEST_F(KrMeshImportTest, LinksShareOneExtentOnlyWhenEverythingIsTheSame)
{
    bundle.write("a.stl", stl(box(1, 2, 3)));
    const auto visual = [](const std::string& scale, const std::string& x, const std::string& material) {
        return "<visual><origin xyz=\"" + x + " 0 0\"/><geometry><mesh filename=\"a.stl\" scale=\"" + scale +
               "\"/></geometry><material name=\"" + material + "\"/></visual>";
    };
    const Imported in = import(bundle.write(
        "arm.urdf", robot("<material name=\"p\"><color rgba=\"1 0 0 1\"/></material><material name=\"q\"><color "
                          "rgba=\"0 1 0 1\"/></material><link name=\"base\">" +
                          visual("1", "0", "p") + visual("1", "0", "p") + visual("2", "0", "p") +
                          visual("1", "1", "p") + visual("1", "0", "q") + "</link>")));
    const auto extent = [&in](unsigned int i) { return in.robot().shape(i)->physicalExtent(); };
    EXPECT_EQ(extent(0), extent(1));
    for (unsigned int i = 2; i < 5; ++i) {
        EXPECT_NE(extent(0), extent(i)) << i;
    }
    EXPECT_NEAR(extent(3)->placement().translation().x(), 1.0, 1e-12);
}

} // namespace
