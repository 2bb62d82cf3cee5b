#include <rendCore/capture/KrFrameDescription.h>

#include <rendCore/capture/KrOpticalFrame.h>
#include <rendCore/system/KrRenderWindow.h>
#include <rendCore/window/private/KrDrawnProjection.h>

#include <toolkit/foundation/KrLimits.h>
#include <toolkit/foundation/KrPrint.h>
#include <toolkit/foundation/private/KrFileReplacement.h>
#include <toolkit/foundation/private/KrInputFile.h>
#include <toolkit/foundation/private/KrJson.h>
#include <toolkit/xml/KrXmlText.h>

#include <boost/property_tree/json_parser.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <iterator>
#include <sstream>

namespace
{

using Tree = boost::property_tree::ptree;

constexpr const char* kFormat = "krFrameDescription";
constexpr const char* kTopRowFirst = "top row first";
constexpr const char* kBottomRowFirst = "bottom row first";
constexpr unsigned int kDeepestNesting = 32;
constexpr double kSameView = 1e-9;

// Filling.

void describeJoints(const KrIndividualManipulator& manipulator, const KrPositionState& state,
                    KrFrameDescription::Manipulator& out)
{
    const std::vector<const KrManipulatorLink*> links = manipulator.links();
    const std::size_t count = std::min<std::size_t>(links.size(), state.jointPositions().size());
    out.name = manipulator.name();
    out.joints.resize(count);
    for (unsigned int i = 0; i < count; ++i) {
        const KrJointKinematics& joint = links[i]->jointKinematics();
        out.joints[i] = {joint.name(), KrJointKinematics::typeName(joint.type()), state.jointPositions()[i]};
    }
}

void describeState(const KrRenderWindow* window, KrFrameDescription& out)
{
    const KrStatedSystem* const system = window ? window->statedSystem() : nullptr;
    const KrManipulatorSystemState* const state = window ? window->state() : nullptr;
    out.time = state ? state->time() : 0.0;
    out.manipulators.clear();
    if (!system || !state) {
        return;
    }
    const KrXmlVectorType<KrIndividualManipulator>& manipulators = system->manipulatorSystem().manipulators();
    out.manipulators.resize(std::min<std::size_t>(manipulators.size(), state->positionStates().size()));
    for (unsigned int i = 0; i < out.manipulators.size(); ++i) {
        describeJoints(manipulators[i], state->positionStates()[i], out.manipulators[i]);
    }
}

void describeClipping(KrFrameDescription& out)
{
    double left, right, bottom, top;
    if (!out.projection.getFrustum(left, right, bottom, top, out.near, out.far)) {
        out.projection.getOrtho(left, right, bottom, top, out.near, out.far);
    }
}

/// A projection knows its camera but for rounding: one that was set is told as it was set.
bool isProjectionOf(const KrCameraIntrinsics& camera, const osg::Matrixd& projection)
{
    const osg::Matrixd p = camera.projection(1.0, 2.0);
    return p(0, 0) == projection(0, 0) && p(1, 1) == projection(1, 1) && p(2, 0) == projection(2, 0) &&
           p(2, 1) == projection(2, 1);
}

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
    const auto joint = [](const KrFrameDescription::Joint& j) {
        return "\n    " +
               KrJson::Object().string("name", j.name).string("type", j.type).real("position", j.position).text();
    };
    return "\n  {\"name\": " + KrJson::quoted(manipulator.name) +
           ", \"joints\": " + KrJson::array(manipulator.joints, "", joint) + "}";
}

// Reading: each of these gives false, and no change, for what is not there or not of its kind.

/// The parser calls itself for everything that is nested.
bool isShallow(const std::string& json)
{
    unsigned int depth = 0;
    bool isInString = false;
    for (std::size_t i = 0; i < json.size() && depth <= kDeepestNesting; ++i) {
        const char c = json[i];
        if (isInString) {
            i += c == '\\' ? 1 : 0;
            isInString = c != '"';
        } else if (c == '"') {
            isInString = true;
        } else if (c == '[' || c == '{') {
            ++depth;
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return depth <= kDeepestNesting;
}

template <typename Number>
bool toNumber(const Tree& tree, Number& out)
{
    std::string_view text = tree.data();
    Number value{};
    if (!tree.empty() || !KrXmlText::take(text, value) || !KrXmlText::atEnd(text) || !std::isfinite(double(value))) {
        return false;
    }
    out = value;
    return true;
}

template <typename Number>
bool readNumber(const Tree& tree, const char* path, Number& out)
{
    const auto child = tree.get_child_optional(path);
    return child && toNumber(*child, out);
}

template <std::size_t count>
bool readNumbers(const Tree& tree, double (&out)[count])
{
    double values[count] = {};
    std::size_t i = 0;
    for (const auto& item : tree) {
        if (i == count || !toNumber(item.second, values[i++])) {
            return false;
        }
    }
    std::copy(std::begin(values), std::end(values), std::begin(out));
    return i == count;
}

bool readVector(const Tree& tree, const char* path, KrVector& out)
{
    const auto child = tree.get_child_optional(path);
    double v[3];
    if (!child || !readNumbers(*child, v)) {
        return false;
    }
    out.set(v[0], v[1], v[2]);
    return true;
}

bool readMatrix(const Tree& tree, const char* path, osg::Matrixd& out)
{
    const auto child = tree.get_child_optional(path);
    if (!child || child->size() != 4) {
        return false;
    }
    osg::Matrixd matrix;
    int column = 0;
    for (const auto& item : *child) {
        double row[4];
        if (!readNumbers(item.second, row)) {
            return false;
        }
        for (int i = 0; i < 4; ++i) {
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
    if (!readNumber(tree, "picture.width", out.width) || !readNumber(tree, "picture.height", out.height) ||
        out.width == 0 || out.height == 0) {
        return "it tells no picture size";
    }
    readNumber(tree, "picture.channels", out.channels);
    if (tree.get("picture.rowOrder", std::string()) == kTopRowFirst) {
        out.rowOrder = KrFrameDescription::RowOrder::TopRowFirst;
    }
    out.quantity = tree.get("picture.quantity", out.quantity);
    out.unit = tree.get("picture.unit", out.unit);
    return nullptr;
}

const char* readIntrinsics(const Tree& tree, KrFrameDescription& out)
{
    const auto child = tree.get_child_optional("camera.intrinsics");
    if (!child || (child->empty() && child->data() == "null")) {
        return nullptr;
    }
    KrCameraIntrinsics camera;
    camera.width = out.width;
    camera.height = out.height;
    if (!readNumber(*child, "fx", camera.fx) || !readNumber(*child, "fy", camera.fy) ||
        !readNumber(*child, "cx", camera.cx) || !readNumber(*child, "cy", camera.cy) || !camera.isValid()) {
        return "its intrinsics are no camera's";
    }
    out.intrinsics = camera;
    return nullptr;
}

const char* readCamera(const Tree& tree, KrFrameDescription& out)
{
    const bool hasOptical = tree.get_child_optional("camera.worldToOptical").has_value();
    const bool hasOpenGL = tree.get_child_optional("camera.worldToOpenGL").has_value();
    osg::Matrixd optical;
    if ((hasOptical && !readPose(tree, "camera.worldToOptical", optical)) ||
        (hasOpenGL && !readPose(tree, "camera.worldToOpenGL", out.view))) {
        return "its camera pose is no rotation with a translation";
    }
    if (!hasOptical && !hasOpenGL) {
        return "it tells no camera pose";
    }
    if (hasOptical) {
        out.view = KrOpticalFrame::otherConvention(optical);
    }
    readMatrix(tree, "camera.projection", out.projection);
    readNumber(tree, "camera.near", out.near);
    readNumber(tree, "camera.far", out.far);
    KrVector eye, center, up;
    double fieldOfView = 0.0;
    if (readVector(tree, "camera.pointOfView.eyepoint", eye) &&
        readVector(tree, "camera.pointOfView.centerOfInterest", center) &&
        readVector(tree, "camera.pointOfView.up", up) &&
        readNumber(tree, "camera.pointOfView.fieldOfView", fieldOfView)) {
        out.pov.setEyepoint(eye);
        out.pov.setCenterOfInterest(center);
        out.pov.setUp(up);
        out.pov.setFieldOfView(fieldOfView);
    }
    return readIntrinsics(tree, out);
}

const Tree& childrenOf(const Tree& tree, const char* path)
{
    static const Tree none;
    const auto child = tree.get_child_optional(path);
    return child ? *child : none;
}

void readFrame(const Tree& tree, KrFrameDescription& out)
{
    readNumber(tree, "frame.number", out.frameNumber);
    readNumber(tree, "frame.time", out.time);
    for (const auto& item : childrenOf(tree, "manipulators")) {
        KrFrameDescription::Manipulator manipulator;
        manipulator.name = item.second.get("name", std::string());
        for (const auto& entry : childrenOf(item.second, "joints")) {
            KrFrameDescription::Joint joint;
            joint.name = entry.second.get("name", std::string());
            joint.type = entry.second.get("type", std::string());
            readNumber(entry.second, "position", joint.position);
            manipulator.joints.push_back(joint);
        }
        out.manipulators.push_back(manipulator);
    }
}

/// @return null, or what is wrong
const char* parse(const std::string& json, KrFrameDescription& out)
{
    if (!isShallow(json)) {
        return "it is nested too deeply";
    }
    Tree tree;
    std::istringstream stream(json);
    try {
        boost::property_tree::read_json(stream, tree);
    } catch (const boost::property_tree::json_parser_error&) {
        return "it is no JSON";
    }
    // Other programs may leave these two out.
    if (tree.get("format", std::string(kFormat)) != kFormat || tree.get("version", std::string("1")) != "1") {
        return "it is a description of another kind or version";
    }
    if (const char* const failure = readPicture(tree, out)) {
        return failure;
    }
    readFrame(tree, out);
    return readCamera(tree, out);
}

bool isSame(const osg::Matrixd& a, const osg::Matrixd& b)
{
    const double size = 1.0 + osg::Vec3d(a(3, 0), a(3, 1), a(3, 2)).length();
    return std::equal(a.ptr(), a.ptr() + 16, b.ptr(),
                      [size](double x, double y) { return std::abs(x - y) <= kSameView * size; });
}

void refuse(const std::string& name, const std::string& reason)
{
    Kr::Print::instance()->write(Kr::Print::Warning, "KrFrameDescription::readFile - %s: %s.\n", name.c_str(),
                                 reason.c_str());
}

} // namespace

bool KrFrameDescription::fill(const KrSGWindow& window)
{
    osgViewer::Viewer* const viewer = window.getViewer();
    const osg::FrameStamp* const stamp = viewer ? viewer->getFrameStamp() : nullptr;
    if (!stamp || stamp->getFrameNumber() == 0) {
        Kr::Print::instance()->write(Kr::Print::Warning,
                                     "KrFrameDescription::fill - window \"%s\" has drawn no frame yet.\n",
                                     window.getName().c_str());
        return false;
    }
    width = window.windowWidth();
    height = window.windowHeight();
    channels = 3;
    rowOrder = RowOrder::BottomRowFirst;
    quantity = "color";
    unit = "1/255";
    view = viewer->getCamera()->getViewMatrix();
    projection = KrDrawnProjection::of(*viewer);
    describeClipping(*this);
    KrCameraIntrinsics camera;
    const bool isPinhole = KrCameraIntrinsics::fromProjection(projection, width, height, camera);
    intrinsics = isPinhole ? std::optional<KrCameraIntrinsics>(camera) : std::nullopt;
    const KrCameraIntrinsics* const given = window.cameraIntrinsics();
    if (isPinhole && given && isProjectionOf(*given, projection)) {
        intrinsics = given->width == width && given->height == height ? *given : given->scaledTo(width, height);
    }
    pov = window.getPovParameters();
    frameNumber = stamp->getFrameNumber();
    describeState(dynamic_cast<const KrRenderWindow*>(&window), *this);
    return true;
}

void KrFrameDescription::setPictureSize(unsigned int newWidth, unsigned int newHeight)
{
    if (intrinsics) {
        intrinsics = intrinsics->scaledTo(newWidth, newHeight);
    }
    width = newWidth;
    height = newHeight;
}

osg::Matrixd KrFrameDescription::opticalView() const
{
    return KrOpticalFrame::otherConvention(view);
}

KrPovParameters KrFrameDescription::actualPov() const
{
    const osg::ref_ptr<KrSGBaseInputHandler> camera = new KrSGBaseInputHandler(nullptr);
    camera->setPovParameters(pov);
    KrPovParameters actual = pov;
    if (isSame(camera->getInverseMatrix(), view)) {
        return actual;
    }
    KrCoordinateSystemTransformation cameraToWorld;
    if (cameraToWorld.setFrom16(osg::Matrixd::inverse(opticalView()).ptr())) {
        const double distance = pov.viewingDistance();
        KrOpticalFrame::toPov(cameraToWorld, distance > 0.0 ? distance : 1.0, actual);
    }
    return actual;
}

std::string KrFrameDescription::json() const
{
    const char* const order = rowOrder == RowOrder::TopRowFirst ? kTopRowFirst : kBottomRowFirst;
    const std::string picture = KrJson::Object()
                                    .count("width", width)
                                    .count("height", height)
                                    .count("channels", channels)
                                    .string("rowOrder", order)
                                    .string("quantity", quantity)
                                    .string("unit", unit)
                                    .text();
    const std::string frame = KrJson::Object().count("number", frameNumber).real("time", time).text();
    return "{\"format\": " + KrJson::quoted(kFormat) + ",\n\"version\": 1,\n\"picture\": " + picture +
           ",\n\"camera\": {\n  \"intrinsics\": " + (intrinsics ? jsonOf(*intrinsics) : "null") +
           ",\n  \"near\": " + KrJson::number(near) + ", \"far\": " + KrJson::number(far) +
           ",\n  \"worldToOptical\": " + jsonOf(opticalView()) + ",\n  \"worldToOpenGL\": " + jsonOf(view) +
           ",\n  \"projection\": " + jsonOf(projection) + ",\n  \"pointOfView\": " + jsonOf(pov) +
           "},\n\"frame\": " + frame +
           ",\n\"manipulators\": " + KrJson::array(manipulators, "", [](const Manipulator& m) { return jsonOf(m); }) +
           "}\n";
}

bool KrFrameDescription::writeFile(const std::string& path) const
{
    const std::string failure = KrFileReplacement::write(path, json());
    if (!failure.empty()) {
        Kr::Print::instance()->write(Kr::Print::Warning, "KrFrameDescription::writeFile - cannot write %s: %s.\n",
                                     path.c_str(), failure.c_str());
        return false;
    }
    return true;
}

bool KrFrameDescription::readFile(const std::string& path)
{
    KrInputFile file(Kr::Limits::kCameraBytes);
    std::string text;
    if (!file.open(path) || !file.readAll(text)) {
        refuse(path, file.reason());
        return false;
    }
    return readText(text, path);
}

bool KrFrameDescription::readText(const std::string& text, const std::string& name)
{
    KrFrameDescription found;
    const char* const failure = text.size() > Kr::Limits::kCameraBytes ? "it is too large" : parse(text, found);
    if (failure) {
        refuse(name, failure);
        return false;
    }
    *this = found;
    return true;
}
