#include <tests/import/Bundle.h>

#include <boost/property_tree/json_parser.hpp>

#include <limits>
#include <sstream>

namespace
{

boost::property_tree::ptree parsed(const std::string& json)
{
    std::istringstream stream(json);
    boost::property_tree::ptree tree;
    boost::property_tree::read_json(stream, tree);
    return tree;
}

KrImportReport sample()
{
    KrImportReport report;
    report.setRobot("r\"2\"\\\n\x01");
    report.setFile("/a/\xC3\xA4\xFF\xED\xA0\x80.urdf"); // an umlaut, a stray byte, a surrogate
    report.counts().links = 3;
    report.counts().missingMeshes = 1;
    report.addWarning("/a/b.dae", "link l / visual 1", "text");
    report.addWarning("/a/b.dae", "link l / visual 1", "text");
    KrImportReport::Mesh mesh;
    mesh.link = "l";
    mesh.element = "visual 1";
    mesh.uri = "package://p/x.stl";
    mesh.tried = {"/one/x.stl", "/two/x.stl"};
    mesh.missing = true;
    mesh.unit = std::numeric_limits<double>::quiet_NaN();
    mesh.scale = KrVector(0.001, -1, std::numeric_limits<double>::infinity());
    report.addMesh(mesh);
    return report;
}

TEST(KrImportReport, JsonIsValidWhateverTheNamesHold)
{
    const boost::property_tree::ptree tree = parsed(sample().json());
    EXPECT_EQ(tree.get<std::string>("robot"), "r\"2\"\\\n\x01");
    EXPECT_EQ(tree.get<std::string>("file"), "/a/\xC3\xA4\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD.urdf");
    EXPECT_EQ(tree.get<std::string>("counts.links"), "3");
    EXPECT_EQ(tree.get_child("warnings").size(), 1u);
    const boost::property_tree::ptree& mesh = tree.get_child("meshes").front().second;
    EXPECT_EQ(mesh.get<std::string>("missing"), "true");
    EXPECT_EQ(mesh.get<std::string>("unit"), "null");
    EXPECT_EQ(mesh.get_child("scale").front().second.data(), "0.001");
    EXPECT_EQ(mesh.get_child("tried").size(), 2u);
    EXPECT_NO_THROW(parsed(KrImportReport().json()));
}

TEST(KrImportReport, TextNamesMissingMeshesWithEveryPathTried)
{
    const std::string text = sample().text();
    for (const char* const part : {"3 links", "1 missing mesh\n", "link l / visual 1: package://p/x.stl",
                                   "tried /one/x.stl", "tried /two/x.stl", "/a/b.dae: link l / visual 1: text"}) {
        EXPECT_NE(text.find(part), std::string::npos) << part << " in\n" << text;
    }
    EXPECT_EQ(text.back(), '\n');
}

TEST(KrImportReport, WritesAWholeFileOrLeavesTheOldOne)
{
    const Bundle bundle;
    const std::string path = bundle.write("report.json", "old");
    ASSERT_TRUE(sample().writeJson(path));
    boost::property_tree::ptree tree;
    boost::property_tree::read_json(path, tree);
    EXPECT_EQ(tree.get<std::string>("counts.links"), "3");

    std::filesystem::create_directories(bundle.path("folder/inside"));
    MessageRecorder messages;
    EXPECT_FALSE(sample().writeJson(bundle.path("gone/report.json")));
    EXPECT_FALSE(sample().writeJson(bundle.path("folder")));
    EXPECT_EQ(messages.count(), 2u);
    std::size_t entries = 0;
    for (const auto& entry : std::filesystem::directory_iterator(bundle.path(""))) {
        (void)entry;
        ++entries;
    }
    EXPECT_EQ(entries, 2u); // nothing half written stays behind
}

} // namespace
