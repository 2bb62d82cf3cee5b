#include <dataset/private/KrDatasetRecipeJson.h>

#include <dataset/KrDatasetFormat.h>
#include <dataset/KrDatasetRecipe.h>

#include <picture/KrFraming.h>
#include <picture/KrLighting.h>
#include <picture/KrValueText.h>
#include <toolkit/foundation/KrLimits.h>
#include <toolkit/foundation/private/KrText.h>
#include <toolkit/math/KrAngle.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <initializer_list>
#include <limits>
#include <set>

namespace
{

using Tree = nlohmann::json;
using Recipe = KrDatasetRecipe;
using Range = Recipe::Range;

constexpr int kDeepestNesting = 16;
constexpr double kFarthest = 1e6; // m: far beyond what can be drawn, and safe to reckon with
constexpr double kMostTurn = 1e3; // rad

/// What is wrong, and where; it does not leave this file.
struct Wrong
{
    std::string sentence;
};

/// A number as a person writes it.
std::string shown(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

/// A value of the recipe together with its place in it.
class Item
{
public:
    Item(const Tree& tree, std::string place)
        : m_tree(tree)
        , m_place(std::move(place))
    {
    }

    [[noreturn]] void refuse(const std::string& why) const
    {
        throw Wrong{(m_place.empty() ? std::string("the recipe") : m_place) + " " + why};
    }

    bool isArray() const { return m_tree.is_array(); }
    bool isObject() const { return m_tree.is_object(); }
    bool isString() const { return m_tree.is_string(); }

    /// Refuses what is no object, and members of other names than these.
    void allow(const std::vector<std::string>& names) const
    {
        if (!m_tree.is_object()) {
            refuse("must be an object {...}");
        }
        for (const auto& [name, value] : m_tree.items()) {
            if (std::find(names.begin(), names.end(), name) == names.end()) {
                const std::string quoted = "\"" + KrText::oneLine(name, Kr::Limits::kMessageName) + "\"";
                refuse("has no member " + quoted + KrValueText::suggestion(name, names));
            }
        }
    }

    bool has(const char* name) const { return m_tree.is_object() && m_tree.contains(name); }
    Item at(const char* name) const
    {
        if (!has(name)) {
            refuse("needs the member \"" + std::string(name) + "\"");
        }
        return Item(m_tree.at(name), m_place + "/" + name);
    }

    /// The items of an array of `least` to `most`.
    std::vector<Item> list(std::size_t least, std::size_t most) const
    {
        if (!m_tree.is_array() || m_tree.size() < least || m_tree.size() > most) {
            const std::string count =
                least == most ? std::to_string(least) : std::to_string(least) + " to " + std::to_string(most);
            refuse("must be an array of " + count + " items");
        }
        std::vector<Item> items;
        for (std::size_t i = 0; i < m_tree.size(); ++i) {
            items.emplace_back(m_tree[i], m_place + "/" + std::to_string(i));
        }
        return items;
    }

    /// The members of an object, each under a name of the user's own.
    std::vector<std::pair<std::string, Item>> members() const
    {
        if (!m_tree.is_object()) {
            refuse("must be an object {...}");
        }
        std::vector<std::pair<std::string, Item>> result;
        for (const auto& [name, value] : m_tree.items()) {
            result.emplace_back(name, Item(value, m_place + "/" + KrText::oneLine(name, Kr::Limits::kMessageName)));
        }
        return result;
    }

    std::string text() const
    {
        if (!m_tree.is_string() || m_tree.get_ref<const std::string&>().empty()) {
            refuse("must be a text that is not empty");
        }
        const std::string& value = m_tree.get_ref<const std::string&>();
        if (value.size() > Kr::Limits::kPathBytes || value.find('\0') != std::string::npos) {
            refuse("is too long, or holds a zero byte");
        }
        return value;
    }

    /// Part of file names and of labels' names.
    std::string name() const
    {
        constexpr std::size_t kLongest = 64;
        const std::string value = text();
        const auto isPlain = [](unsigned char c) { return std::isalnum(c) != 0 || c == '_' || c == '-' || c == '.'; };
        if (value.size() > kLongest || value.front() == '.' || !std::all_of(value.begin(), value.end(), isPlain)) {
            refuse("must be a name of up to 64 letters, digits, '_', '-' and '.', not beginning with '.'");
        }
        return value;
    }

    /// One of `words`.
    std::string word(const std::vector<std::string>& words) const
    {
        const std::string value = text();
        if (std::find(words.begin(), words.end(), value) == words.end()) {
            std::string all;
            for (const std::string& each : words) {
                all += (all.empty() ? "\"" : ", \"") + each + "\"";
            }
            refuse("must be one of " + all + KrValueText::suggestion(value, words));
        }
        return value;
    }

    std::uint64_t count(std::uint64_t least, std::uint64_t most) const
    {
        if (!m_tree.is_number_unsigned() || m_tree.get<std::uint64_t>() < least || m_tree.get<std::uint64_t>() > most) {
            refuse("must be a whole number from " + std::to_string(least) + " to " + std::to_string(most));
        }
        return m_tree.get<std::uint64_t>();
    }

    double number(double least, double most) const
    {
        const double value = m_tree.is_number() ? m_tree.get<double>() : std::nan("");
        return checked(value, least, most);
    }

    /// A number, or a text with its unit: "30deg", "20mm".
    double quantity(KrValueText::Unit wanted, double least, double most) const
    {
        if (!m_tree.is_string()) {
            return number(least, most);
        }
        double value = 0.0;
        KrValueText::Unit unit = KrValueText::Unit::Plain;
        if (!KrValueText::position(text(), value, unit) || (unit != wanted && unit != KrValueText::Unit::Plain)) {
            refuse(wanted == KrValueText::Unit::Angle ? "must be an angle: a number in radians, or a text such as "
                                                        "\"30deg\""
                                                      : "must be a length: a number in metres, or a text such as "
                                                        "\"20mm\"");
        }
        return checked(value, least, most);
    }

    /// One quantity, or the lowest and the highest.
    Range range(KrValueText::Unit unit, double least, double most) const
    {
        if (!isArray()) {
            const double value = quantity(unit, least, most);
            return {value, value};
        }
        const std::vector<Item> ends = list(2, 2);
        const Range result = {ends[0].quantity(unit, least, most), ends[1].quantity(unit, least, most)};
        if (result.low > result.high) {
            refuse("must go upwards: " + shown(result.low) + " is above " + shown(result.high));
        }
        return result;
    }
    Range angles() const { return range(KrValueText::Unit::Angle, -kMostTurn, kMostTurn); }
    Range lengths() const { return range(KrValueText::Unit::Length, -kFarthest, kFarthest); }
    Range parts() const { return range(KrValueText::Unit::Plain, 0.0, 1.0); }

private:
    double checked(double value, double least, double most) const
    {
        // Written so that what is no number fails, too.
        if (!(value >= least && value <= most)) {
            refuse("must be a number from " + shown(least) + " to " + shown(most));
        }
        return value;
    }

    const Tree& m_tree;
    std::string m_place; ///< JSON pointer
};

/// Whether every object names each member once: of two, one would be lost without a word.
bool parseTree(const std::string& json, Tree& tree, std::string& why)
{
    std::vector<std::set<std::string>> names;
    const auto look = [&](int depth, Tree::parse_event_t event, const Tree& value) {
        // What is left out has no end that would be told.
        if (!why.empty()) {
            return false;
        }
        const bool isStart = event == Tree::parse_event_t::array_start || event == Tree::parse_event_t::object_start;
        if (isStart && depth >= kDeepestNesting) {
            why = "it is nested too deeply";
        } else if (event == Tree::parse_event_t::object_start) {
            names.emplace_back();
        } else if (event == Tree::parse_event_t::object_end) {
            names.pop_back();
        } else if (event == Tree::parse_event_t::key && !names.back().insert(value.get<std::string>()).second) {
            why = "the member \"" + KrText::oneLine(value.get<std::string>(), Kr::Limits::kMessageName) +
                  "\" is there twice";
        }
        return why.empty();
    };
    try {
        tree = Tree::parse(json, look);
    } catch (const Tree::parse_error& error) {
        // Where in the file is what the user needs; the rest of the library's text is for programmers.
        const std::size_t end = std::min(error.byte, json.size());
        const auto line = 1 + std::count(json.begin(), json.begin() + static_cast<std::ptrdiff_t>(end), '\n');
        why = why.empty() ? "it is no JSON: line " + std::to_string(line) + " cannot be read" : why;
    } catch (const Tree::out_of_range&) {
        why = why.empty() ? "it holds a number that is too large" : why;
    }
    return why.empty();
}

class Reader
{
public:
    Reader(const std::string& folder, Recipe& out)
        : m_folder(folder)
        , m_out(out)
    {
    }

    void read(const Item& all);

private:
    void readSize(const Item& size);
    void readKinds(const Item& kinds);
    Recipe::JointRange jointRange(const Item& item) const;
    void readRobot(const Item& item);
    void readMesh(const Item& item);
    void readCamera(const Item& item, std::size_t number);
    void readShell(const Item& item, Recipe::Camera& camera);
    void readBackground(const Item& item);
    void readLights(const Item& item);
    void readMaterial(const Item& item);
    Recipe::Pose pose(const Item& item, const char* member) const;
    KrColor color(const Item& item) const;
    Recipe::Colors colors(const Item& item) const;
    std::string path(const Item& item) const;
    std::string uniqueName(const Item& item, const std::string& file);
    void refuseUnknownRobot(const Item& item, const std::string& name) const;

    const std::string& m_folder;
    Recipe& m_out;
    std::vector<std::string> m_names; ///< of robots and meshes
    std::set<std::string> m_cameraNames;
};

void Reader::read(const Item& all)
{
    all.allow({"$schema",       "version",         "description", "name",       "seed",
               "count",         "samplesPerShard", "format",      "size",       "kinds",
               "labels",        "leastCovered",    "robots",      "meshes",     "samplesPerPixel",
               "levelOfDetail", "cameras",         "lights",      "background", "materials"});
    // The version first: of another one nothing else is known.
    if (all.at("version").count(0, std::numeric_limits<std::uint64_t>::max()) != 1) {
        all.at("version").refuse("must be 1: this program reads no other version");
    }
    for (const char* const name : {"$schema", "description"}) {
        if (all.has(name)) {
            all.at(name).text();
        }
    }
    m_out.name = all.has("name") ? all.at("name").name() : m_out.name;
    m_out.seed = all.has("seed") ? all.at("seed").count(0, std::numeric_limits<std::uint64_t>::max()) : m_out.seed;
    m_out.count = all.at("count").count(1, Recipe::kMostSamples);
    if (all.has("samplesPerShard")) {
        m_out.samplesPerShard = all.at("samplesPerShard").count(1, Recipe::kMostSamples);
    }
    if (m_out.numShards() > Recipe::kMostShards) {
        all.refuse("asks for " + std::to_string(m_out.numShards()) + " shards, more than " +
                   std::to_string(Recipe::kMostShards) + ": raise \"samplesPerShard\"");
    }
    m_out.format = all.has("format") ? all.at("format").word(KrDatasetFormat::names()) : m_out.format;
    if (all.has("size")) {
        readSize(all.at("size"));
    }
    if (all.has("samplesPerPixel")) {
        const std::uint64_t n = all.at("samplesPerPixel").count(1, 16);
        if (n != 1 && n != 4 && n != 9 && n != 16) {
            all.at("samplesPerPixel").refuse("must be 1, 4, 9 or 16");
        }
        m_out.samplesPerPixel = static_cast<unsigned int>(n);
    }
    m_out.levelOfDetail = all.has("levelOfDetail") ? all.at("levelOfDetail").number(0.0, 100.0) : 0.0;
    if (all.has("kinds")) {
        readKinds(all.at("kinds"));
    }
    if (all.has("labels")) {
        const std::string level = all.at("labels").word({"link", "shape", "manipulator"});
        m_out.labelLevel = level == "link"    ? Recipe::LabelLevel::Link
                           : level == "shape" ? Recipe::LabelLevel::Shape
                                              : Recipe::LabelLevel::Manipulator;
    }
    if (all.has("leastCovered")) {
        m_out.leastCovered = all.at("leastCovered").number(0.0, 1.0);
    }
    if (!all.has("robots") && !all.has("meshes")) {
        all.refuse("needs \"robots\" or \"meshes\": there is nothing to draw");
    }
    for (const Item& robot : all.has("robots") ? all.at("robots").list(1, Recipe::kMostRobots) : std::vector<Item>()) {
        readRobot(robot);
    }
    for (const Item& mesh : all.has("meshes") ? all.at("meshes").list(1, Recipe::kMostRobots) : std::vector<Item>()) {
        readMesh(mesh);
    }
    // Behind the robots, which carry some of them.
    for (const Item& camera : all.at("cameras").list(1, Recipe::kMostCameras)) {
        readCamera(camera, m_out.cameras.size());
    }
    m_out.background.colors = {KrLighting::background()};
    if (all.has("background")) {
        readBackground(all.at("background"));
    }
    if (all.has("lights")) {
        readLights(all.at("lights"));
    }
    if (all.has("materials")) {
        for (const Item& material : all.at("materials").list(0, Kr::Limits::kLinks)) {
            readMaterial(material);
        }
    }
}

void Reader::readSize(const Item& size)
{
    const std::vector<Item> sides = size.list(2, 2);
    m_out.width = static_cast<unsigned int>(sides[0].count(1, Recipe::kLargestSize));
    m_out.height = static_cast<unsigned int>(sides[1].count(1, Recipe::kLargestSize));
}

void Reader::readKinds(const Item& kinds)
{
    m_out.kinds.color = false;
    for (const Item& item : kinds.list(1, 5)) {
        const std::string kind = item.word({"color", "depth", "labels", "normals", "masks"});
        bool& isWanted = kind == "color"     ? m_out.kinds.color
                         : kind == "depth"   ? m_out.kinds.depth
                         : kind == "labels"  ? m_out.kinds.labels
                         : kind == "normals" ? m_out.kinds.normals
                                             : m_out.kinds.masks;
        if (isWanted) {
            item.refuse("is in the list twice");
        }
        isWanted = true;
    }
}

std::string Reader::path(const Item& item) const
{
    const std::string given = item.text();
    // The path's own rule: one that is absolute stays.
    return std::filesystem::absolute(std::filesystem::path(m_folder) / given).lexically_normal().string();
}

std::string Reader::uniqueName(const Item& item, const std::string& file)
{
    std::string name = item.has("name") ? item.at("name").name() : std::string();
    if (name.empty()) {
        // As plain as a name that is given: it becomes part of other names.
        for (const char c : std::filesystem::path(file).stem().string()) {
            name += std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' ? c : '_';
        }
        name.resize(std::min<std::size_t>(name.size(), 64));
    }
    if (name.empty() || std::find(m_names.begin(), m_names.end(), name) != m_names.end()) {
        item.refuse("has the name \"" + name + "\" of another robot or mesh: give it a \"name\" of its own");
    }
    m_names.push_back(name);
    return name;
}

Recipe::Pose Reader::pose(const Item& item, const char* member) const
{
    Recipe::Pose result;
    if (!item.has(member)) {
        return result;
    }
    const Item given = item.at(member);
    given.allow({"position", "rollPitchYaw"});
    if (given.has("position")) {
        const std::vector<Item> xyz = given.at("position").list(3, 3);
        result.x = xyz[0].lengths();
        result.y = xyz[1].lengths();
        result.z = xyz[2].lengths();
    }
    if (given.has("rollPitchYaw")) {
        const std::vector<Item> angles = given.at("rollPitchYaw").list(3, 3);
        result.roll = angles[0].angles();
        result.pitch = angles[1].angles();
        result.yaw = angles[2].angles();
    }
    return result;
}

Recipe::JointRange Reader::jointRange(const Item& item) const
{
    // Whether the joint turns or slides is known when the robot has been read; what the texts mean is kept until then.
    const std::vector<Item> ends = item.isArray() ? item.list(2, 2) : std::vector<Item>{item};
    Recipe::JointRange result;
    for (const Item& end : ends) {
        double value = 0.0;
        KrValueText::Unit unit = KrValueText::Unit::Plain;
        const bool hasUnit = end.isString() && KrValueText::position(end.text(), value, unit);
        result.isAngle = result.isAngle && !(hasUnit && unit == KrValueText::Unit::Length);
        result.isLength = result.isLength && !(hasUnit && unit == KrValueText::Unit::Angle);
    }
    static_cast<Range&>(result) = result.isAngle ? item.angles() : item.lengths();
    return result;
}

void Reader::readRobot(const Item& item)
{
    item.allow({"file", "name", "class", "packagePaths", "pose", "joints"});
    Recipe::Robot robot;
    robot.file = path(item.at("file"));
    robot.name = uniqueName(item, robot.file);
    robot.className = item.has("class") ? item.at("class").name() : robot.name;
    if (item.has("packagePaths")) {
        for (const Item& folder : item.at("packagePaths").list(0, 1000)) {
            robot.packagePaths.push_back(path(folder));
        }
    }
    robot.pose = pose(item, "pose");
    if (item.has("joints")) {
        for (const auto& [name, range] : item.at("joints").members()) {
            robot.joints[name] = jointRange(range);
        }
    }
    m_out.robots.push_back(robot);
}

void Reader::readMesh(const Item& item)
{
    item.allow({"file", "name", "class", "pose", "scale"});
    Recipe::Mesh mesh;
    mesh.file = path(item.at("file"));
    mesh.name = uniqueName(item, mesh.file);
    mesh.className = item.has("class") ? item.at("class").name() : mesh.name;
    mesh.pose = pose(item, "pose");
    mesh.scale = item.has("scale") ? item.at("scale").number(1e-6, 1e6) : 1.0;
    m_out.meshes.push_back(mesh);
}

void Reader::refuseUnknownRobot(const Item& item, const std::string& name) const
{
    if (std::find(m_names.begin(), m_names.end(), name) == m_names.end()) {
        item.refuse("names \"" + name + "\", which is no robot or mesh of this recipe" +
                    KrValueText::suggestion(name, m_names));
    }
}

void Reader::readShell(const Item& item, Recipe::Camera& camera)
{
    item.allow({"center", "distance", "elevation", "azimuth", "roll"});
    if (item.has("center")) {
        const std::vector<Item> xyz = item.at("center").list(3, 3);
        const auto coordinate = [&](std::size_t i) {
            return xyz[i].quantity(KrValueText::Unit::Length, -kFarthest, kFarthest);
        };
        camera.center = KrVector(coordinate(0), coordinate(1), coordinate(2));
    }
    constexpr double kNearest = 1e-3; // m
    constexpr double kQuarter = 0.5 * Kr::Angle::kPi;
    camera.distance = item.at("distance").range(KrValueText::Unit::Length, kNearest, kFarthest);
    camera.elevation = item.has("elevation") ? item.at("elevation").range(KrValueText::Unit::Angle, -kQuarter, kQuarter)
                                             : Range{KrFraming::kElevation, KrFraming::kElevation};
    camera.azimuth = item.has("azimuth") ? item.at("azimuth").angles() : Range{-Kr::Angle::kPi, Kr::Angle::kPi};
    camera.roll = item.has("roll") ? item.at("roll").angles() : Range();
}

void Reader::readCamera(const Item& item, std::size_t number)
{
    item.allow({"name", "fieldOfView", "intrinsics", "pose", "shell", "robot", "link"});
    Recipe::Camera camera;
    camera.name = item.has("name") ? item.at("name").name() : "camera" + std::to_string(number);
    if (!m_cameraNames.insert(camera.name).second) {
        item.refuse("has the name \"" + camera.name + "\" of another camera");
    }
    if (item.has("fieldOfView") && item.has("intrinsics")) {
        item.refuse("has \"fieldOfView\" and \"intrinsics\", which say the same: give one of them");
    }
    camera.fieldOfView = item.has("fieldOfView")
                             ? item.at("fieldOfView").quantity(KrValueText::Unit::Angle, Kr::Angle::radians(0.1), 3.1)
                             : KrFraming::kFieldOfView;
    if (item.has("intrinsics")) {
        const std::vector<Item> numbers = item.at("intrinsics").list(4, 4);
        constexpr double kMost = 1e7; // pixels
        KrCameraIntrinsics lens;
        lens.width = m_out.width;
        lens.height = m_out.height;
        lens.fx = numbers[0].number(1e-3, kMost);
        lens.fy = numbers[1].number(1e-3, kMost);
        lens.cx = numbers[2].number(-kMost, kMost);
        lens.cy = numbers[3].number(-kMost, kMost);
        camera.intrinsics = lens;
    }
    if (item.has("pose") == item.has("shell")) {
        item.refuse("needs either \"pose\" or \"shell\"");
    }
    if (item.has("shell")) {
        if (item.has("robot") || item.has("link")) {
            item.refuse("is carried by a link with \"pose\", not with \"shell\"");
        }
        readShell(item.at("shell"), camera);
    } else {
        camera.pose = pose(item, "pose");
        camera.place = item.has("robot") ? Recipe::Camera::Place::Link : Recipe::Camera::Place::World;
        if (item.has("robot") != item.has("link")) {
            item.refuse("needs \"robot\" and \"link\" together");
        }
        if (item.has("robot")) {
            camera.robot = item.at("robot").name();
            refuseUnknownRobot(item.at("robot"), camera.robot);
            camera.link = item.at("link").text();
        }
    }
    m_out.cameras.push_back(camera);
}

KrColor Reader::color(const Item& item) const
{
    if (item.isArray()) {
        const std::vector<Item> rgb = item.list(3, 3);
        return {rgb[0].number(0.0, 1.0), rgb[1].number(0.0, 1.0), rgb[2].number(0.0, 1.0)};
    }
    KrColor result;
    if (!item.isString() || !KrValueText::color(item.text(), result)) {
        item.refuse("must be a colour: a name, \"#rrggbb\" or [red, green, blue] from 0 to 1" +
                    (item.isString() ? KrValueText::suggestion(item.text(), KrValueText::colorNames()) : ""));
    }
    return result;
}

Recipe::Colors Reader::colors(const Item& item) const
{
    if (!item.isObject()) {
        return {{color(item)}, false};
    }
    item.allow({"oneOf", "between"});
    if (item.has("oneOf") == item.has("between")) {
        item.refuse("needs either \"oneOf\" or \"between\"");
    }
    Recipe::Colors result;
    result.isBetween = item.has("between");
    const Item list = item.at(result.isBetween ? "between" : "oneOf");
    for (const Item& each : result.isBetween ? list.list(2, 2) : list.list(1, Recipe::kMostColors)) {
        result.colors.push_back(color(each));
    }
    return result;
}

void Reader::readBackground(const Item& item)
{
    if (!item.has("pictures")) {
        m_out.background = colors(item);
        return;
    }
    item.allow({"pictures"});
    for (const Item& picture : item.at("pictures").list(1, Recipe::kMostPictures)) {
        m_out.backgroundPictures.push_back(path(picture));
    }
}

void Reader::readLights(const Item& item)
{
    item.allow({"ambient", "lamps"});
    Recipe::Lights lights;
    lights.ambient =
        item.has("ambient") ? item.at("ambient").parts() : Range{KrLighting::kAmbient, KrLighting::kAmbient};
    if (item.has("lamps")) {
        for (const Item& each : item.at("lamps").list(0, Recipe::kMostLamps)) {
            each.allow({"azimuth", "elevation", "brightness", "color"});
            Recipe::Lamp lamp;
            constexpr double kQuarter = 0.5 * Kr::Angle::kPi;
            lamp.azimuth = each.has("azimuth") ? each.at("azimuth").angles() : Range{-Kr::Angle::kPi, Kr::Angle::kPi};
            lamp.elevation = each.at("elevation").range(KrValueText::Unit::Angle, -kQuarter, kQuarter);
            lamp.brightness = each.has("brightness") ? each.at("brightness").parts() : Range{0.7, 0.7};
            lamp.color = each.has("color") ? colors(each.at("color")) : Recipe::Colors{{KrColor(1.0, 1.0, 1.0)}, false};
            lights.lamps.push_back(lamp);
        }
    }
    m_out.lights = lights;
}

void Reader::readMaterial(const Item& item)
{
    item.allow({"robot", "links", "color"});
    Recipe::Material material;
    material.robot = item.at("robot").name();
    refuseUnknownRobot(item.at("robot"), material.robot);
    if (item.has("links")) {
        for (const Item& link : item.at("links").list(1, Kr::Limits::kLinks)) {
            material.links.push_back(link.text());
        }
    }
    material.color = colors(item.at("color"));
    m_out.materials.push_back(material);
}

} // namespace

std::string KrDatasetRecipeJson::parse(const std::string& json, const std::string& folder, KrDatasetRecipe& out)
{
    Tree tree;
    std::string why;
    try {
        if (parseTree(json, tree, why)) {
            Reader(folder, out).read(Item(tree, ""));
        }
    } catch (const Wrong& wrong) {
        why = wrong.sentence;
    } catch (const std::exception& error) {
        why = error.what();
    }
    return why;
}
