#include <tests/import/Collada.h>

#include <import/mesh/KrColladaText.h>
#include <import/mesh/KrMeshFile.h>

#include <regex>

namespace
{

std::string replaced(std::string text, const std::string& from, const std::string& to)
{
    const std::size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

/// The clause of the refusal; empty when the file is good.
std::string refusal(std::string text)
{
    KrColladaText::Mesh mesh;
    std::string why;
    return KrColladaText::clean(std::move(text), mesh, why) ? "" : why;
}

/// What a picture gets to see of it.
KrMeshData read(const std::string& text)
{
    const Bundle bundle;
    KrMeshData data;
    std::string why;
    EXPECT_TRUE(KrMeshFile::read(bundle.write("a.dae", text), {}, data, why)) << why;
    return data;
}

} // namespace

TEST(KrColladaText, SaysWhatIsDamaged)
{
    const std::string dae = Collada().text();
    const auto inScene = [&dae](const std::string& node) {
        return replaced(dae, "</visual_scene>", node + "</visual_scene>");
    };
    std::string deep;
    for (int i = 0; i < 300; ++i) {
        deep += "<extra>";
    }
    for (int i = 0; i < 300; ++i) {
        deep += "</extra>";
    }
    const std::pair<std::string, std::string> cases[] = {
        {dae, ""},
        {dae.substr(0, dae.size() / 2), "it is no XML: line 1: "},
        {" ", "it is empty"},
        {replaced(dae, "<p>0 1", "<p>0 0.5"), "something else than indices in an element <p>"},
        {replaced(dae, "stride=\"3\"", "stride=\"999\""),
         "stride or offset of an accessor is no number or far too high"},
        {replaced(dae, "<triangles count=\"12\"", "<triangles count=\"1e9\""), "an element <triangles> is no number"},
        {replaced(dae, "offset=\"0\"", "offset=\"-1\""), "the offset or set of an input"},
        {replaced(dae, "count=\"108\"", "count=\"109\""), "holds fewer numbers than it declares"},
        {replaced(dae, "count=\"36\"", "count=\"37\""), "an accessor reaches beyond its array"},
        {replaced(dae, "</p>", "</p><p>0 1 2</p>"), "<triangles> does not hold as many lists as it declares"},
        {inScene("<node id=\"x\"><instance_node url=\"#x\"/></node>"), "its nodes place one another deeper than 200"},
        {inScene("<node id=\"a&#10;b\"><instance_node url=\"#a&#10;b\"/></node>"), "place one another deeper"},
        {replaced(dae, "<asset>", "<asset>" + deep), "its elements are nested deeper than 200"}};
    for (const auto& [text, part] : cases) {
        const std::string why = refusal(text);
        EXPECT_EQ(why.empty(), part.empty()) << why;
        EXPECT_NE(why.find(part), std::string::npos) << why;
    }
}

TEST(KrColladaText, EntitiesAndFloodsOfElementsAreRefusedBeforeTheyGrow)
{
    std::string laughs = "<!DOCTYPE COLLADA [<!ENTITY a \"haha\">";
    for (char c = 'b'; c < 'z'; ++c) {
        laughs += std::string("<!ENTITY ") + c + " \"";
        for (int i = 0; i < 10; ++i) {
            laughs += std::string("&") + static_cast<char>(c - 1) + ";";
        }
        laughs += "\">";
    }
    // In an attribute it would be expanded while the file is read.
    const std::string body = "]><COLLADA version=\"&y;\"><up_axis>&y;</up_axis></COLLADA>";
    EXPECT_EQ(refusal(laughs + body), "it declares entities, which are not read");
    EXPECT_EQ(refusal("<!DOCTYPE COLLADA [<!ENTITY x SYSTEM \"file:///etc/hostname\">]><COLLADA>&x;</COLLADA>"),
              "it declares entities, which are not read");
    EXPECT_EQ(
        refusal("<!DOCTYPE COLLADA>" + replaced(Collada().text(), "<?xml version=\"1.0\" encoding=\"utf-8\"?>", "")),
        "");
    std::string flood(std::size_t{5} * 9000000, '<');
    for (std::size_t i = 0; i < flood.size(); i += 5) {
        flood.replace(i, 5, "<p/>\n");
    }
    EXPECT_EQ(refusal("<COLLADA>" + flood + "</COLLADA>"), "it has more than 4000000 elements");
}

TEST(KrColladaText, WhatTheMeshLibraryReadsIsWhatWasLookedAt)
{
    const std::string dae = Collada().text();
    // A reader that stops at the comment sees one index, one that does not, all.
    const std::string commented =
        replaced(replaced(dae, "<p>0 1 2 ", "<p>0 <!-- x -->1 <![CDATA[2]]> "), "0.000000 ", "0.000000 <?a b?>");
    EXPECT_EQ(read(commented).vertices.size(), read(dae).vertices.size());
    EXPECT_EQ(refusal(replaced(dae, "<p>0 1 2 ", "<p>0 <!-- x -->1 <![CDATA[0.5]]> ")),
              "there is something else than indices in an element <p>");
    // References stand for characters, in names as well.
    EXPECT_EQ(read(replaced(dae, "source=\"#p-a\"", "source=\"#&#112;-a\"")).vertices.size(), 8u);
    KrColladaText::Mesh mesh;
    std::string why;
    ASSERT_TRUE(KrColladaText::clean(std::string(dae), mesh, why)) << why;
    EXPECT_EQ(mesh.upAxis, "Z_UP");
    EXPECT_EQ(mesh.text + "\n", dae.substr(dae.find("<COLLADA")));
    // Comments between elements are cut out, wherever they stand.
    KrColladaText::Mesh cut;
    const std::string remarked = replaced(replaced(dae, "<asset>", "<asset><!-- x > y -->"), "<p>0", "<p><!--p-->0");
    ASSERT_TRUE(KrColladaText::clean(
        "<!-- a -->" + replaced(remarked, "<?xml version=\"1.0\" encoding=\"utf-8\"?>", "") + "<!-- b -->\n", cut, why))
        << why;
    EXPECT_EQ(cut.text, mesh.text);
    KrColladaText::Mesh again;
    ASSERT_TRUE(KrColladaText::clean(std::string(mesh.text), again, why)) << why;
    EXPECT_EQ(again.text, mesh.text);
}

TEST(KrColladaText, WhatIsPlainIsChangedAsWhatIsNot)
{
    Collada file;
    const std::string dae = file.text();
    const std::size_t library = dae.find("<library_geometries");
    const std::string skins = "<library_controllers><controller id=\"c\"><!-- x --><skin source=\"#d\"/></controller>"
                              "<controller id=\"d\"><skin source=\"#it's\"/></controller></library_controllers>";
    std::string skinned = dae;
    skinned.insert(library, skins);
    const std::string scene = "<instance_controller url='#c'><bind_material/></instance_controller>"
                              "<instance_controller/>";
    skinned = replaced(skinned, "</visual_scene>", "<node>" + scene + "</node></visual_scene>");
    // The second geometry uses the names of the first one.
    std::string twice = dae;
    const std::size_t begin = dae.find("<geometry ");
    const std::size_t end = dae.find("</geometry>") + 11;
    twice.insert(end, replaced(dae.substr(begin, end - begin), "<geometry id=\"", "<geometry id=\"second-"));
    for (const std::string& text : {skinned, twice}) {
        KrColladaText::Mesh plain;
        KrColladaText::Mesh other;
        std::string why;
        ASSERT_TRUE(KrColladaText::clean(std::string(text), plain, why)) << why;
        // A type of document has the whole file written anew.
        const std::string typed = "<!DOCTYPE COLLADA>" + text.substr(text.find("?>") + 2);
        ASSERT_TRUE(KrColladaText::clean(std::string(typed), other, why)) << why;
        // Of elements with nothing in them the writer makes one tag.
        const std::regex ends("></\\w+>|/>");
        EXPECT_EQ(std::regex_replace(plain.text, ends, ""), std::regex_replace(other.text, ends, ""));
        EXPECT_EQ(plain.text.find("controller"), std::string::npos);
        EXPECT_EQ(plain.text.find("url=\"#it's\"") != std::string::npos, text == skinned);
        EXPECT_EQ(plain.text.find("-of-geometry-") != std::string::npos, text == twice);
    }
}

TEST(KrColladaText, OtherEncodingsAndLongArraysAreRead)
{
    Collada file;
    file.materials = {"gr\xFCn"};
    file.techniques = {lambert("0 1 0 1")};
    const KrMeshData undeclared = read(file.text());
    EXPECT_EQ(undeclared.groups.at(0).name, "gr\xC3\xBCn");
    EXPECT_EQ(undeclared.warnings, std::vector<std::string>{"it is no UTF-8; it is read as Latin-1"});
    const KrMeshData declared = read(replaced(file.text(), "\"utf-8\"", "\"ISO-8859-1\""));
    EXPECT_EQ(declared.groups.at(0).name, "gr\xC3\xBCn");
    EXPECT_TRUE(declared.warnings.empty());

    for (const char* const declaration : {"version='1.0' standalone='no' encoding='utf-8'", "encoding=\"UTF-8\"", ""}) {
        const std::string text = file.text();
        const std::string odd = std::string("<?xml ") + declaration + text.substr(text.find("?>"));
        EXPECT_EQ(read(odd).groups.at(0).name, "gr\xC3\xBCn") << declaration;
    }

    // More than an XML reader takes by itself: a mesh of some 500000 vertices.
    std::string zeros;
    for (int i = 0; i < 6000000; ++i) {
        zeros += "0 ";
    }
    const std::string source = "<source id=\"long\"><float_array id=\"long-a\" count=\"6000000\">" + zeros +
                               "</float_array></source><vertices id=\"v\">";
    EXPECT_EQ(refusal(replaced(Collada().text(), "<vertices id=\"v\">", source)), "");
}
