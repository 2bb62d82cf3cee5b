#include <dataset/KrDatasetRecipe.h>

#include <tests/support/Folder.h>

#include <toolkit/math/KrAngle.h>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <regex>

namespace
{

using Tree = nlohmann::json;

/// Says whether a document keeps to a JSON schema (draft 2020-12), as far as the recipe's one goes.
class Schema
{
public:
    explicit Schema(const Tree& root)
        : m_root(root)
    {
    }
    bool accepts(const Tree& document) const { return accepts(m_root, document); }

private:
    bool any(const Tree& schemas, const Tree& document, std::size_t least, std::size_t most) const
    {
        const auto count = static_cast<std::size_t>(std::count_if(
            schemas.begin(), schemas.end(), [&](const Tree& schema) { return accepts(schema, document); }));
        return count >= least && count <= most;
    }
    bool accepts(const Tree& schema, const Tree& document) const
    {
        for (const auto& [key, value] : schema.items()) {
            if (!holds(schema, key, value, document)) {
                return false;
            }
        }
        return true;
    }
    bool holds(const Tree& schema, const std::string& key, const Tree& value, const Tree& document) const
    {
        if (key == "$ref") {
            return accepts(m_root.at(Tree::json_pointer(value.get<std::string>().substr(1))), document);
        }
        if (key == "type") {
            return value == "integer"  ? document.is_number_integer()
                   : value == "number" ? document.is_number()
                                       : value == document.type_name();
        }
        if (key == "const" || key == "enum") {
            return key == "const" ? document == value : std::find(value.begin(), value.end(), document) != value.end();
        }
        if (key == "anyOf" || key == "oneOf") {
            return any(value, document, 1, key == "oneOf" ? 1 : value.size());
        }
        if (key == "not") {
            return !accepts(value, document);
        }
        if (document.is_number() && (key == "minimum" || key == "maximum")) {
            return key == "minimum" ? document >= value : document <= value;
        }
        if (document.is_string()) {
            const auto text = document.get<std::string>();
            return key == "pattern"     ? std::regex_search(text, std::regex(value.get<std::string>()))
                   : key == "minLength" ? text.size() >= value
                   : key == "maxLength" ? text.size() <= value
                                        : true;
        }
        if (document.is_array()) {
            return key == "items"         ? std::all_of(document.begin(), document.end(),
                                                        [&](const Tree& item) { return accepts(value, item); })
                   : key == "minItems"    ? document.size() >= value
                   : key == "maxItems"    ? document.size() <= value
                   : key == "uniqueItems" ? std::set<Tree>(document.begin(), document.end()).size() == document.size()
                                          : true;
        }
        return !document.is_object() || holdsObject(schema, key, value, document);
    }
    bool holdsObject(const Tree& schema, const std::string& key, const Tree& value, const Tree& document) const
    {
        if (key == "required") {
            return std::all_of(value.begin(), value.end(), [&](const Tree& name) { return document.contains(name); });
        }
        if (key == "dependentRequired") {
            for (const auto& [name, needs] : value.items()) {
                if (document.contains(name) && !holdsObject(schema, "required", needs, document)) {
                    return false;
                }
            }
        }
        for (const auto& [name, member] : document.items()) {
            const bool isKnown = schema.contains("properties") && schema["properties"].contains(name);
            if ((key == "properties" && isKnown && !accepts(value[name], member)) ||
                (key == "additionalProperties" && !isKnown && (value == false || !accepts(value, member)))) {
                return false;
            }
        }
        return true;
    }

    const Tree& m_root;
};

/// Every member that there is.
const Tree& wholeRecipe()
{
    static const Tree recipe = Tree::parse(R"({
      "$schema": "x", "version": 1, "description": "all", "name": "a.b-c", "seed": 18446744073709551615, "count": 10,
      "samplesPerShard": 4, "format": "folders", "size": [64, 48], "samplesPerPixel": 9, "levelOfDetail": 0.5,
      "kinds": ["depth", "color"], "labels": "shape", "leastCovered": 0.01,
      "robots": [{"file": "robots/arm.urdf", "name": "left", "class": "arm", "packagePaths": ["/opt/x", "y"],
        "pose": {"position": [1, [0, "20mm"], "1m"], "rollPitchYaw": [0, 0.5, ["-90deg", "1rad"]]},
        "joints": {"turn": ["-30deg", "30deg"], "slide": "20mm", "both": [0, 1]}}],
      "meshes": [{"file": "/table.obj", "class": "table", "pose": {"position": [0, 0, 0]}, "scale": 0.001}],
      "cameras": [
        {"name": "around", "fieldOfView": "40deg", "shell": {"center": [0, 0, "1m"], "distance": [1, 2],
          "elevation": [0, 1], "azimuth": 0, "roll": [-0.1, 0.1]}},
        {"intrinsics": [60, 61, 32, 24], "robot": "left", "link": "hand", "pose": {"position": [0, 0, 0.1]}},
        {"pose": {}}],
      "lights": {"ambient": [0.1, 0.2], "lamps": [{"azimuth": 0, "elevation": [0, 1], "brightness": [0, 1],
        "color": {"between": ["white", [1, 0.5, 0]]}}]},
      "background": {"pictures": ["a.jpg", "b.png"]},
      "materials": [{"robot": "table", "links": ["table"], "color": {"oneOf": ["red", "#00ff00"]}},
                    {"robot": "left", "color": "blue"}]})");
    return recipe;
}

Tree changed(const std::string& place, const Tree& value)
{
    Tree recipe = wholeRecipe();
    recipe[Tree::json_pointer(place)] = value;
    return recipe;
}

Tree without(const std::string& place)
{
    Tree recipe = wholeRecipe();
    const Tree::json_pointer pointer(place);
    recipe.at(pointer.parent_pointer()).erase(pointer.back());
    return recipe;
}

std::string readAll(const Tree& recipe, KrDatasetRecipe& out)
{
    std::string reason;
    return out.readText(recipe.dump(), "/data", "r.json", reason) ? "" : reason;
}

TEST(KrDatasetRecipe, ReadsEveryMember)
{
    KrDatasetRecipe recipe;
    ASSERT_EQ(readAll(wholeRecipe(), recipe), "");
    EXPECT_EQ(recipe.seed, 18446744073709551615u);
    EXPECT_EQ(recipe.numShards(), 3u);
    EXPECT_EQ(recipe.shard(2).first, 8u);
    EXPECT_EQ(recipe.shard(2).count, 2u);
    EXPECT_TRUE(recipe.kinds.color && recipe.kinds.depth && !recipe.kinds.labels);
    const KrDatasetRecipe::Robot& robot = recipe.robots.at(0);
    EXPECT_EQ(robot.file, "/data/robots/arm.urdf");
    EXPECT_EQ(robot.packagePaths, (std::vector<std::string>{"/opt/x", "/data/y"}));
    EXPECT_EQ(robot.pose.y.high, 0.02);
    EXPECT_EQ(robot.pose.yaw.low, Kr::Angle::radians(-90.0));
    EXPECT_TRUE(robot.joints.at("turn").isAngle && !robot.joints.at("turn").isLength);
    EXPECT_TRUE(robot.joints.at("slide").isLength && !robot.joints.at("slide").isAngle);
    EXPECT_EQ(robot.joints.at("slide").low, 0.02);
    EXPECT_TRUE(robot.joints.at("both").isLength && robot.joints.at("both").isAngle);
    EXPECT_EQ(recipe.meshes.at(0).name, "table");
    EXPECT_EQ(recipe.cameras.at(1).intrinsics->width, 64u);
    EXPECT_EQ(recipe.cameras.at(1).name, "camera1");
    EXPECT_EQ(recipe.cameras.at(0).place, KrDatasetRecipe::Camera::Place::Shell);
    EXPECT_TRUE(recipe.cameras.at(1).isFixed() && !recipe.cameras.at(0).isFixed());
    EXPECT_EQ(recipe.backgroundPictures.at(1), "/data/b.png");
    EXPECT_TRUE(recipe.lights->lamps.at(0).color.isBetween);
    EXPECT_EQ(recipe.materials.at(1).color.colors.at(0), KrColor(0.0, 0.0, 1.0));
}

TEST(KrDatasetRecipe, KeepsToItsSchema)
{
    const Tree json = Tree::parse(contentOf(KR_SCHEMA));
    const Schema schema(json);
    std::vector<std::pair<Tree, bool>> examples = {
        {wholeRecipe(), true},
        {Tree::parse(contentOf(KR_SAMPLE)), true},
        {without("/robots/0/name"), false}, // the reader alone sees that a camera names it
        {without("/meshes/0/class"), true},
        {without("/lights"), true},
        {without("/count"), false},
        {without("/cameras"), false},
        {without("/cameras/0/shell"), false},
        {without("/cameras/0/shell/distance"), false},
        {without("/cameras/1/link"), false},
        {without("/robots/0/file"), false},
        {without("/lights/lamps/0/elevation"), false},
        {changed("/version", 2), false},
        {changed("/count", 0), false},
        {changed("/count", 1.5), false},
        {changed("/count", "7"), false},
        {changed("/seed", -1), false},
        {changed("/samplesPerPixel", 2), false},
        {changed("/size", {640}), false},
        {changed("/size/0", 0), false},
        {changed("/name", "a/b"), false},
        {changed("/name", ".hidden"), false},
        {changed("/kinds", Tree::array()), false},
        {changed("/kinds", {"color", "color"}), false},
        {changed("/kinds/0", "colour"), false},
        {changed("/format", "zip"), false},
        {changed("/leastCovered", 1.5), false},
        {changed("/robots", Tree::array()), false},
        {changed("/robots/0/pose/position", {0, 0}), false},
        {changed("/robots/0/pose/position/0", {1, 2, 3}), false},
        {changed("/cameras/0/intrinsics", {1, 1, 1, 1}), false},
        {changed("/cameras/2/shell", {{"distance", 1}}), false},
        {changed("/cameras/0/robot", "left"), false},
        {changed("/lights/ambient", 2), false},
        {changed("/background", "skyblue"), true},
        {changed("/background", {{"oneOf", {"red"}}, {"between", {"red", "blue"}}}), false},
        {changed("/background", {{"between", {"red"}}}), false},
        {changed("/materials/0/color", {0.1, 0.2, 1.1}), false},
        {changed("/materials/0/links", Tree::array()), false},
        {Tree::array(), false},
    };
    // A member of another name anywhere is refused, and so is null in the place of any value.
    const std::function<void(const Tree&, const std::string&)> visit = [&](const Tree& value, const std::string& at) {
        if (value.is_object() && at != "/robots/0/joints") {
            examples.emplace_back(changed(at + "/unheardOf", 1), false);
        }
        // As JSON pointers know them: of arrays the indices are the names.
        if (value.is_structured()) {
            for (const auto& [name, member] : value.items()) {
                visit(member, at + "/" + name);
            }
        }
        if (!at.empty()) {
            examples.emplace_back(changed(at, nullptr), false);
        }
    };
    visit(wholeRecipe(), "");
    ASSERT_GT(examples.size(), 150u);
    for (const auto& [recipe, isGood] : examples) {
        KrDatasetRecipe read;
        const std::string reason = readAll(recipe, read);
        EXPECT_EQ(reason.empty(), isGood) << recipe.dump() << "\n" << reason;
        if (!recipe.contains("robots") || !recipe["robots"].is_array() || recipe["robots"].empty() ||
            !recipe["robots"][0].is_object() || recipe["robots"][0].contains("name")) {
            EXPECT_EQ(schema.accepts(recipe), isGood) << recipe.dump();
        }
    }
}

TEST(KrDatasetRecipe, SaysInOneSentenceWhereAndWhatIsWrong)
{
    const std::pair<Tree, const char*> cases[] = {
        {changed("/cameras/0/shell/distence", 1),
         "r.json: /cameras/0/shell has no member \"distence\"; did you mean distance?"},
        {changed("/cameras/0/shell/distance", {2, 1}),
         "r.json: /cameras/0/shell/distance must go upwards: 2 is above 1"},
        {changed("/cameras/0/shell/elevation", "20mm"),
         "r.json: /cameras/0/shell/elevation must be an angle: a number in radians, or a text such as \"30deg\""},
        {changed("/materials/1/robot", "lft"),
         "r.json: /materials/1/robot names \"lft\", which is no robot or mesh of this recipe; did you mean left?"},
        {changed("/meshes/0/name", "left"),
         "r.json: /meshes/0 has the name \"left\" of another robot or mesh: give it a \"name\" of its own"},
        {changed("/kinds/0", "normal"),
         "r.json: /kinds/0 must be one of \"color\", \"depth\", \"labels\", \"normals\", \"masks\"; did you mean "
         "normals?"},
        {changed("/version", 2), "r.json: /version must be 1: this program reads no other version"},
    };
    for (const auto& [recipe, sentence] : cases) {
        KrDatasetRecipe read;
        EXPECT_EQ(readAll(recipe, read), sentence);
        EXPECT_EQ(read.count, 0u); // as it was
    }
    const std::pair<std::string, const char*> texts[] = {
        {"", "r.json: it is no JSON: line 1 cannot be read"},
        {"{\n\"version\": 1,\n}", "r.json: it is no JSON: line 3 cannot be read"},
        {"{\"version\": 1, \"count\": 1, \"count\": 2}", "r.json: the member \"count\" is there twice"},
        {std::string(100000, '['), "r.json: it is nested too deeply"},
        {"{\"version\": 1e999}", "r.json: it holds a number that is too large"},
        {std::string(5 << 20, ' '), "r.json: it is too large for a recipe"},
    };
    for (const auto& [text, sentence] : texts) {
        KrDatasetRecipe read;
        std::string reason;
        EXPECT_FALSE(read.readText(text, "", "r.json", reason));
        EXPECT_EQ(reason, sentence);
    }
}

} // namespace
