#include <rendCore/capture/private/KrFrameDescriptionJson.h>

#include <rendCore/capture/KrFrameDescription.h>
#include <rendCore/capture/KrOpticalFrame.h>

#include <toolkit/foundation/private/KrJson.h>
#include <toolkit/xml/KrXmlText.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <iterator>

namespace
{

using Tree = nlohmann::json;

// The words of the format: docs/camera.md tells them to readers in other languages.
constexpr const char* kFormat = "krFrameDescription";
constexpr const char* kTopRowFirst = "top row first";
constexpr const char* kBottomRowFirst = "bottom row first";
constexpr int kDeepestNesting = 32; // of arrays and objects; a description itself has four

// Writing.

/// The rows of the matrix that multiplies column vectors; the scene graph's multiplies row vectors.
std::string jsonOf(const osg::Matrixd& matrix)
{
    const std::array<int, 4> indices = {0, 1, 2, 3};
    return KrJson::array(indices, " ", [&](int row) {
        return KrJson::array(indices, " ", [&](int column) { return KrJson::number(matrix(column, row)); });
    });
}

std::string jsonOf(const KrVector& v)
{
    return KrJson::array(std::array<double, 3>{v.x(), v.y(), v.z()}, " ", KrJson::number);
}

std::string jsonOf(const KrCameraIntrinsics& camera)
{
    return KrJson::Object()
        .real("fx", camera.fx)
        .real("fy", camera.fy)
        .real("cx", camera.cx)
        .real("cy", camera.cy)
        // Said in the file, because programs differ in it: the middle of the first pixel is at 0.5, not at 0.
        .real("pixelCenter", 0.5)
        .text();
}

std::string jsonOf(const KrPovParameters& pov)
{
    return KrJson::Object()
        .raw("eyepoint", jsonOf(pov.eyepoint()))
        .raw("centerOfInterest", jsonOf(pov.centerOfInterest()))
        .raw("up", jsonOf(pov.up()))
        .real("fieldOfView", pov.fieldOfView())
        .text();
}

std::string jsonOf(const KrFrameDescription::Manipulator& manipulator)
{
    // One joint a line: two descriptions can be compared line by line.
    const auto joint = [](const KrFrameDescription::Joint& j) {
        return "\n    " +
               KrJson::Object().string("name", j.name).string("type", j.type).real("position", j.position).text();
    };
    return "\n  {\"name\": " + KrJson::quoted(manipulator.name) +
           ", \"joints\": " + KrJson::array(manipulator.joints, "", joint) + "}";
}

/// Nothing for a picture without labels, which most are.
std::string jsonOf(const std::vector<KrFrameDescription::Label>& labels)
{
    const auto line = [](const KrFrameDescription::Label& label) {
        KrJson::Object object;
        object.count("id", label.id).string("manipulator", label.manipulator);
        if (!label.link.empty()) {
            object.string("link", label.link);
        }
        if (label.shape) {
            object.count("shape", *label.shape);
        }
        if (!label.color.empty()) {
            object.string("color", label.color);
        }
        return "\n  " + object.text();
    };
    return labels.empty() ? "" : ",\n\"labels\": " + KrJson::array(labels, "", line);
}

// Reading: each of these gives false, and no change, for what is not there or not of its kind.

/// The library reads -0 as a whole number, which has no such zero, but -0.0 as it is. What is in strings stays.
std::string withSignedZeros(const std::string& json)
{
    std::string result;
    bool isInString = false;
    for (std::size_t i = 0; i < json.size(); ++i) {
        result += json[i];
        if (isInString && json[i] == '\\' && i + 1 < json.size()) {
            // A quote behind a backslash does not end a string.
            result += json[++i];
        } else if (json[i] == '"') {
            isInString = !isInString;
        } else if (!isInString && json.compare(i, 2, "-0") == 0) {
            // Only a whole zero is changed: "-0.5" is read rightly, and the 0 of "1e-0" is an exponent.
            const bool isExponent = i > 0 && std::strchr("eE", json[i - 1]) != nullptr;
            const bool isWhole = i + 2 == json.size() || std::strchr(".eE0123456789", json[i + 2]) == nullptr;
            result += isWhole && !isExponent ? "0.0" : "0";
            ++i;
        }
    }
    return result;
}

/// Null when there is nothing at that place ("/camera/near").
const Tree* find(const Tree& tree, const char* path)
{
    // Paths are literals of this file: they always parse.
    const Tree::json_pointer pointer(path);
    return tree.contains(pointer) ? &tree.at(pointer) : nullptr;
}

/// The text of a plain value; `otherwise` when it is not there, and nothing for what is no plain value.
std::string textAt(const Tree& tree, const char* path, const std::string& otherwise = "")
{
    const Tree* const item = find(tree, path);
    // Arrays and objects are no text, whatever they hold.
    if (item == nullptr || item->is_structured()) {
        return item == nullptr ? otherwise : "";
    }
    return item->is_string() ? item->get<std::string>() : item->dump();
}

template <typename Number>
bool toNumber(const Tree& item, Number& out)
{
    // Programs that keep all values as texts write numbers in quotes.
    const std::string all = textAt(item, "");
    std::string_view text = all;
    Number value{};
    // One number, finite, and nothing behind it.
    if (!KrXmlText::take(text, value) || !KrXmlText::atEnd(text) || !std::isfinite(double(value))) {
        return false;
    }
    out = value;
    return true;
}

template <typename Number>
bool readNumber(const Tree& tree, const char* path, Number& out)
{
    const Tree* const item = find(tree, path);
    return item != nullptr && toNumber(*item, out);
}

/// The items of an array or object; none of anything else.
const Tree& childrenOf(const Tree& tree, const char* path)
{
    // A missing list and an empty one are read alike.
    static const Tree none = Tree::array();
    const Tree* const item = find(tree, path);
    return item != nullptr && item->is_structured() ? *item : none;
}

template <std::size_t count>
bool readNumbers(const Tree& tree, double (&out)[count])
{
    double values[count] = {};
    std::size_t i = 0;
    for (const Tree& item : childrenOf(tree, "")) {
        // Too many are as wrong as too few.
        if (i == count || !toNumber(item, values[i++])) {
            return false;
        }
    }
    std::copy(std::begin(values), std::end(values), std::begin(out));
    return i == count;
}

// Three numbers and no more.
bool readVector(const Tree& tree, const char* path, KrVector& out)
{
    double v[3];
    if (!readNumbers(childrenOf(tree, path), v)) {
        return false;
    }
    out.set(v[0], v[1], v[2]);
    return true;
}

bool readMatrix(const Tree& tree, const char* path, osg::Matrixd& out)
{
    // Kept as it was unless all of it is there.
    const Tree& rows = childrenOf(tree, path);
    if (rows.size() != 4) {
        return false;
    }
    osg::Matrixd matrix;
    int column = 0;
    for (const Tree& item : rows) {
        double row[4];
        if (!readNumbers(item, row)) {
            return false;
        }
        for (int i = 0; i < 4; ++i) {
            // A row of the file is a column here: the file multiplies column vectors.
            matrix(i, column) = row[i];
        }
        ++column;
    }
    out = matrix;
    return true;
}

/// A rotation and a translation.
bool readPose(const Tree& tree, const char* path, osg::Matrixd& out)
{
    osg::Matrixd matrix;
    KrCoordinateSystemTransformation pose;
    const bool isPose = readMatrix(tree, path, matrix) && matrix(0, 3) == 0.0 && matrix(1, 3) == 0.0 &&
                        matrix(2, 3) == 0.0 && matrix(3, 3) == 1.0 && pose.setFrom16(matrix.ptr());
    if (isPose) {
        out = matrix;
    }
    return isPose;
}

const char* readPicture(const Tree& tree, KrFrameDescription& out)
{
    if (!readNumber(tree, "/picture/width", out.width) || !readNumber(tree, "/picture/height", out.height) ||
        out.width == 0 || out.height == 0) {
        return "it tells no picture size";
    }
    // May be missing: the value of a new description stands.
    readNumber(tree, "/picture/channels", out.channels);
    // Other words leave the order that is OpenGL's.
    if (textAt(tree, "/picture/rowOrder") == kTopRowFirst) {
        out.rowOrder = KrFrameDescription::RowOrder::TopRowFirst;
    }
    out.quantity = textAt(tree, "/picture/quantity", out.quantity);
    out.unit = textAt(tree, "/picture/unit", out.unit);
    out.axes = textAt(tree, "/picture/axes", out.axes);
    return nullptr;
}

const char* readIntrinsics(const Tree& tree, KrFrameDescription& out)
{
    const Tree* const child = find(tree, "/camera/intrinsics");
    if (child == nullptr || child->is_null()) {
        return nullptr;
    }
    KrCameraIntrinsics camera;
    // Read before: intrinsics are for the picture of this description.
    camera.width = out.width;
    camera.height = out.height;
    if (!readNumber(*child, "/fx", camera.fx) || !readNumber(*child, "/fy", camera.fy) ||
        !readNumber(*child, "/cx", camera.cx) || !readNumber(*child, "/cy", camera.cy) || !camera.isValid()) {
        return "its intrinsics are no camera's";
    }
    out.intrinsics = camera;
    return nullptr;
}

const char* readCamera(const Tree& tree, KrFrameDescription& out)
{
    const bool hasOptical = find(tree, "/camera/worldToOptical") != nullptr;
    const bool hasOpenGL = find(tree, "/camera/worldToOpenGL") != nullptr;
    osg::Matrixd optical;
    if ((hasOptical && !readPose(tree, "/camera/worldToOptical", optical)) ||
        (hasOpenGL && !readPose(tree, "/camera/worldToOpenGL", out.view))) {
        return "its camera pose is no rotation with a translation";
    }
    if (!hasOptical && !hasOpenGL) {
        return "it tells no camera pose";
    }
    // Both are written, for readers of either convention; where they differ the optical one counts.
    if (hasOptical) {
        out.view = KrOpticalFrame::otherConvention(optical);
    }
    // May be missing, too: intrinsics tell the same, but for the planes.
    readMatrix(tree, "/camera/projection", out.projection);
    readNumber(tree, "/camera/near", out.near);
    readNumber(tree, "/camera/far", out.far);
    readNumber(tree, "/camera/levelOfDetail", out.levelOfDetail);
    KrVector eye, center, up;
    double fieldOfView = 0.0;
    if (readVector(tree, "/camera/pointOfView/eyepoint", eye) &&
        readVector(tree, "/camera/pointOfView/centerOfInterest", center) &&
        readVector(tree, "/camera/pointOfView/up", up) &&
        readNumber(tree, "/camera/pointOfView/fieldOfView", fieldOfView)) {
        // All four or none: half a point of view would be mixed with another.
        out.pov.setEyepoint(eye);
        out.pov.setCenterOfInterest(center);
        out.pov.setUp(up);
        out.pov.setFieldOfView(fieldOfView);
    }
    return readIntrinsics(tree, out);
}

void readFrame(const Tree& tree, KrFrameDescription& out)
{
    readNumber(tree, "/frame/number", out.frameNumber);
    readNumber(tree, "/frame/time", out.time);
    for (const Tree& item : childrenOf(tree, "/manipulators")) {
        KrFrameDescription::Manipulator manipulator;
        manipulator.name = textAt(item, "/name");
        for (const Tree& entry : childrenOf(item, "/joints")) {
            KrFrameDescription::Joint joint;
            joint.name = textAt(entry, "/name");
            joint.type = textAt(entry, "/type");
            readNumber(entry, "/position", joint.position);
            // What is missing stays empty or 0: a joint without a position is no reason to refuse the camera.
            manipulator.joints.push_back(joint);
        }
        out.manipulators.push_back(manipulator);
    }
    for (const Tree& item : childrenOf(tree, "/labels")) {
        KrFrameDescription::Label label;
        unsigned int shape = 0;
        readNumber(item, "/id", label.id);
        label.manipulator = textAt(item, "/manipulator");
        label.link = textAt(item, "/link");
        if (readNumber(item, "/shape", shape)) {
            label.shape = shape;
        }
        label.color = textAt(item, "/color");
        out.labels.push_back(label);
    }
}

} // namespace

std::string KrFrameDescriptionJson::text(const KrFrameDescription& frame)
{
    const char* const order =
        frame.rowOrder == KrFrameDescription::RowOrder::TopRowFirst ? kTopRowFirst : kBottomRowFirst;
    KrJson::Object picture;
    picture.count("width", frame.width)
        .count("height", frame.height)
        .count("channels", frame.channels)
        .string("rowOrder", order)
        .string("quantity", frame.quantity)
        .string("unit", frame.unit);
    if (!frame.axes.empty()) {
        picture.string("axes", frame.axes);
    }
    const std::string when = KrJson::Object().count("number", frame.frameNumber).real("time", frame.time).text();
    return "{\"format\": " + KrJson::quoted(kFormat) + ",\n\"version\": 1,\n\"picture\": " + picture.text() +
           ",\n\"camera\": {\n  \"intrinsics\": " + (frame.intrinsics ? jsonOf(*frame.intrinsics) : "null") +
           ",\n  \"near\": " + KrJson::number(frame.near) + ", \"far\": " + KrJson::number(frame.far) +
           ",\n  \"levelOfDetail\": " + KrJson::number(frame.levelOfDetail) +
           ",\n  \"worldToOptical\": " + jsonOf(frame.opticalView()) + ",\n  \"worldToOpenGL\": " + jsonOf(frame.view) +
           ",\n  \"projection\": " + jsonOf(frame.projection) + ",\n  \"pointOfView\": " + jsonOf(frame.pov) +
           "},\n\"frame\": " + when + ",\n\"manipulators\": " +
           KrJson::array(frame.manipulators, "", [](const KrFrameDescription::Manipulator& m) { return jsonOf(m); }) +
           jsonOf(frame.labels) + "}\n";
}

const char* KrFrameDescriptionJson::parse(const std::string& json, KrFrameDescription& out)
{
    bool isDeep = false;
    // A tree that is deep takes stack when it goes: what is nested deeper is not built.
    const auto isShallow = [&isDeep](int depth, Tree::parse_event_t event, const Tree&) {
        const bool isStart = event == Tree::parse_event_t::array_start || event == Tree::parse_event_t::object_start;
        isDeep = isDeep || (isStart && depth >= kDeepestNesting);
        return !isDeep;
    };
    // The last argument: a discarded tree in place of an exception.
    const Tree tree = Tree::parse(withSignedZeros(json), isShallow, false);
    if (isDeep) {
        return "it is nested too deeply";
    }
    if (tree.is_discarded()) {
        return "it is no JSON";
    }
    // Other programs may leave these two out.
    if (textAt(tree, "/format", kFormat) != kFormat || textAt(tree, "/version", "1") != "1") {
        return "it is a description of another kind or version";
    }
    if (const char* const failure = readPicture(tree, out)) {
        return failure;
    }
    // Frame and joints cannot fail, the camera can.
    readFrame(tree, out);
    return readCamera(tree, out);
}
