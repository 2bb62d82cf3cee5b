#include <toolkit/material/KrDataMap.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace
{

namespace fs = std::filesystem;

TEST(KrDataMap, FindsATextureBesideTheDocumentThatNamesIt)
{
    const fs::path folder = fs::path(testing::TempDir()) / "KrDataMapTest";
    fs::create_directories(folder / "textures");
    std::ofstream(folder / "textures" / "here.png") << "a picture";
    std::string text;
    for (const std::string name : {"textures/here.png", "textures/missing.png", "/etc/elsewhere.png"}) {
        KrDataMap map;
        map.setString("krTextureFilename", name);
        const std::string file = (folder / "map.xml").string();
        ASSERT_TRUE(map.writeFile(file));
        KrDataMap back;
        ASSERT_TRUE(back.readFile(file));
        ASSERT_TRUE(back.string("krTextureFilename", text));
        EXPECT_EQ(text, name == "textures/here.png" ? (folder / name).string() : name);
    }
    fs::remove_all(folder);
}

} // namespace
