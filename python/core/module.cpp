// krrendcore._core: what the Python package calls of the libraries. The package checks and explains; its own classes
// are what a user sees.
#include "KrPyArray.h"
#include "KrPyCamera.h"
#include "KrPyDataset.h"
#include "KrPyFailure.h"
#include "KrPyMessages.h"
#include "KrPyRenderer.h"
#include "KrPySystem.h"
#include "KrPyText.h"

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <picture/KrLighting.h>
#include <toolkit/foundation/KrReason.h>
#include <toolkit/image/private/KrPngEncoder.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace
{

using Bases = std::vector<std::pair<std::uint32_t, py::array_t<double>>>;
using Indices = py::array_t<std::uint32_t, py::array::c_style>;
using Numbers = py::array_t<double, py::array::c_style>;
using Triple = std::array<double, 3>;

[[noreturn]] void refuse(const std::string& sentence)
{
    throw KrPyFailure(KrPyFailure::Kind::Argument, sentence);
}

KrVector vectorOf(const Triple& v)
{
    return {v[0], v[1], v[2]};
}

KrColor colorOf(const Triple& v, const std::string& name)
{
    for (const double channel : v) {
        // Written so that NaN fails, too.
        if (!(channel >= 0.0 && channel <= 1.0)) {
            refuse(name + ": each channel of a colour lies between 0 and 1, not at " + std::to_string(channel));
        }
    }
    return {v[0], v[1], v[2]};
}

Triple tripleOf(const KrVector& v)
{
    return {v.x(), v.y(), v.z()};
}

KrPyPose poseOf(const KrPySystem& system, const Indices& joints, const Numbers& positions, const Bases& bases)
{
    if (joints.ndim() != 1 || positions.ndim() != 1 || joints.size() != positions.size()) {
        refuse("there are " + std::to_string(positions.size()) + " positions for " + std::to_string(joints.size()) +
               " joints");
    }
    KrPyPose pose;
    pose.joints.assign(joints.data(), joints.data() + joints.size());
    pose.positions.assign(positions.data(), positions.data() + positions.size());
    for (std::size_t i = 0; i < pose.joints.size(); ++i) {
        if (pose.joints[i] >= system.joints().size()) {
            refuse("there is no joint of number " + std::to_string(pose.joints[i]));
        }
        if (!std::isfinite(pose.positions[i])) {
            refuse("the position of joint \"" + system.joints()[pose.joints[i]].name + "\" is not finite");
        }
    }
    for (const auto& [manipulator, matrix] : bases) {
        if (manipulator >= system.robots().size()) {
            refuse("there is no robot of number " + std::to_string(manipulator));
        }
        pose.bases.emplace_back(manipulator,
                                KrPyArray::pose(matrix, "the pose of \"" + system.robots()[manipulator] + "\""));
    }
    return pose;
}

/// Pairs of a manipulator's number and a link's name, in the order of `fk`.
py::list linksOf(const KrPySystem& system)
{
    py::list links;
    for (std::size_t i = 0; i < system.links().size(); ++i) {
        for (const std::string& name : system.links()[i]) {
            links.append(py::make_tuple(i, krPyText(name)));
        }
    }
    return links;
}

py::list jointsOf(const KrPySystem& system)
{
    py::list joints;
    for (const KrPySystem::Joint& joint : system.joints()) {
        joints.append(py::make_tuple(joint.manipulator, krPyText(joint.name), joint.type, joint.lower, joint.upper));
    }
    return joints;
}

/// Link frames to the world frame: (links, 4, 4).
Numbers forwardKinematics(const KrPySystem& system, const Indices& joints, const Numbers& positions, const Bases& bases)
{
    KrPyPoser poser(system);
    const KrManipulatorSystemState& state = poser.state(poseOf(system, joints, positions, bases));
    std::vector<KrCoordinateSystemTransformation> toWorld;
    std::vector<KrCoordinateSystemTransformation> poses;
    const auto& manipulators = system.stated().manipulatorSystem().manipulators();
    for (unsigned int i = 0; i < manipulators.size(); ++i) {
        const KrPositionState& own = state.positionStates()[i];
        toWorld.push_back(manipulators[i].placement() * own.baseTransformation());
        manipulators[i].linkPoses(own, poses);
        for (const KrCoordinateSystemTransformation& linkToManipulator : poses) {
            toWorld.push_back(manipulators[i].placement() * linkToManipulator);
        }
    }
    Numbers result({static_cast<py::ssize_t>(toWorld.size()), py::ssize_t(4), py::ssize_t(4)});
    for (std::size_t i = 0; i < toWorld.size(); ++i) {
        KrPyArray::write(toWorld[i], result.mutable_data() + 16 * i);
    }
    return result;
}

std::shared_ptr<KrPySystem> load(const py::bytes& path, const std::vector<py::bytes>& packagePaths, bool useCache)
{
    const std::string file = path;
    KrImportOptions options;
    options.packagePaths.assign(packagePaths.begin(), packagePaths.end());
    options.useCache = useCache;
    std::shared_ptr<KrPySystem> system;
    krPyRun([&] { system = KrPySystem::load(file, options); });
    return system;
}

using PartOfScene = std::tuple<std::shared_ptr<KrPySystem>, py::array_t<double>, std::string>;

std::shared_ptr<KrPySystem> compose(const std::vector<PartOfScene>& entries)
{
    std::vector<KrPySystem::Part> parts;
    for (const auto& [system, pose, name] : entries) {
        parts.push_back({system, KrPyArray::pose(pose, "the pose of \"" + name + "\""), name});
    }
    std::shared_ptr<KrPySystem> scene;
    krPyRun([&] { scene = KrPySystem::compose(parts); });
    return scene;
}

KrAids aidsOf(const std::vector<std::string>& names, const std::vector<std::string>& highlight, double fade,
              bool shapes, const std::optional<double>& axisLength)
{
    KrAids aids;
    for (const std::string& name : names) {
        if (!aids.add(name)) {
            refuse("there is no aid \"" + name + "\": axes, volumes, mass and collision are there");
        }
    }
    if (!(fade >= 0.0 && fade <= 1.0)) {
        refuse("fade is an opacity between 0 and 1, not " + std::to_string(fade));
    }
    if (axisLength && !(*axisLength > 0.0 && std::isfinite(*axisLength))) {
        refuse("axis_length is a length above 0, m, not " + std::to_string(*axisLength));
    }
    aids.selected = highlight;
    aids.fade = fade;
    aids.shapes = shapes;
    aids.axisScale = axisLength;
    return aids;
}

KrPyCamera fit(const KrPySystem& system, const KrAids& aids, const Indices& joints, const Numbers& positions,
               const Bases& bases, double azimuth, double elevation, double fieldOfView, double aspectRatio)
{
    if (positions.ndim() != 2) {
        refuse("positions are rows, one for each pose");
    }
    std::vector<KrPyPose> poses;
    for (py::ssize_t i = 0; i < positions.shape(0); ++i) {
        poses.push_back(
            poseOf(system, joints, Numbers(positions.shape(1), positions.data() + i * positions.shape(1)), bases));
    }
    KrPyCamera camera;
    krPyRun([&] {
        camera = KrPyCamera::fit(system, poses, KrPyRenderer::shown(aids, system), azimuth, elevation, fieldOfView,
                                 aspectRatio);
    });
    return camera;
}

KrPyCamera lookAt(const Triple& eye, const Triple& target, const Triple& up, double fieldOfView)
{
    KrPyCamera camera;
    krPyRun([&] { camera = KrPyCamera::lookAt(vectorOf(eye), vectorOf(target), vectorOf(up), fieldOfView); });
    return camera;
}

KrPyCamera pinhole(const py::array_t<double>& k, const py::array_t<double>& pose, unsigned int width,
                   unsigned int height)
{
    if (k.ndim() != 2 || k.shape(0) != 3 || k.shape(1) != 3) {
        refuse("K is no 3 x 3 matrix");
    }
    if (k.at(0, 1) != 0.0 || k.at(1, 0) != 0.0 || k.at(2, 0) != 0.0 || k.at(2, 1) != 0.0 || k.at(2, 2) != 1.0) {
        refuse("K is not [[fx, 0, cx], [0, fy, cy], [0, 0, 1]]");
    }
    const KrCameraIntrinsics intrinsics{width, height, k.at(0, 0), k.at(1, 1), k.at(0, 2), k.at(1, 2)};
    const KrCoordinateSystemTransformation opticalToWorld = KrPyArray::pose(pose, "T_world_camera");
    KrPyCamera camera;
    krPyRun([&] { camera = KrPyCamera::pinhole(intrinsics, opticalToWorld); });
    return camera;
}

/// One light's numbers, in the order of krrendcore.Light.
using LightNumbers = std::tuple<Triple, bool, Triple, Triple, Triple, bool, Triple>;

KrLightParameters lightsOf(const std::vector<LightNumbers>& all)
{
    constexpr std::size_t kMostLights = 8; // that OpenGL has
    if (all.size() > kMostLights) {
        refuse("there are " + std::to_string(all.size()) + " lights, 8 at most");
    }
    const KrReason said;
    KrLightParameters lights;
    for (const auto& [position, positional, diffuse, specular, ambient, atEye, attenuation] : all) {
        KrLight light;
        light.setPositional(positional);
        light.setAtEye(atEye);
        if (!light.setPosition(vectorOf(position)) || !light.setDiffuse(colorOf(diffuse, "diffuse")) ||
            !light.setSpecular(colorOf(specular, "specular")) || !light.setAmbient(colorOf(ambient, "ambient")) ||
            !light.setConstantAttenuation(attenuation[0]) || !light.setLinearAttenuation(attenuation[1]) ||
            !light.setQuadraticAttenuation(attenuation[2])) {
            refuse("there is no such light: " + said.text("its numbers are not finite"));
        }
        lights.lights().push_back(light);
    }
    if (all.empty()) {
        // A window without lights is lit by OpenGL's first one: a black one takes its place.
        KrLight black;
        black.setDiffuse({0.0, 0.0, 0.0});
        black.setSpecular({0.0, 0.0, 0.0});
        lights.lights().push_back(black);
    }
    return lights;
}

using RendererPointer = std::unique_ptr<KrPyRenderer, KrPyRenderer::Deleter>;

RendererPointer open(const std::shared_ptr<KrPySystem>& system, const KrPyCamera& camera, unsigned int width,
                     unsigned int height, unsigned int samples, const Triple& background, const Triple& ambient,
                     const std::optional<std::vector<LightNumbers>>& lights, const KrAids& aids, float levelOfDetail)
{
    KrPyRenderer::Settings settings;
    settings.width = width;
    settings.height = height;
    settings.samples = samples;
    settings.background = colorOf(background, "background");
    settings.ambient = colorOf(ambient, "ambient");
    settings.aids = aids;
    settings.levelOfDetail = levelOfDetail;
    if (!(levelOfDetail >= 0.0f && std::isfinite(levelOfDetail))) {
        refuse("level_of_detail is an error in pixels, 0 or more, not " + std::to_string(levelOfDetail));
    }
    RendererPointer renderer;
    krPyRun([&] {
        if (lights) {
            settings.lights = lightsOf(*lights);
        }
        renderer.reset(new KrPyRenderer(system, settings, camera));
    });
    return renderer;
}

KrLabelTable::Level levelOf(const std::string& name)
{
    if (name == "robot") {
        return KrLabelTable::Level::Manipulator;
    }
    if (name != "link" && name != "shape") {
        refuse("label_level is robot, link or shape, not \"" + name + "\"");
    }
    return name == "link" ? KrLabelTable::Level::Link : KrLabelTable::Level::Shape;
}

KrFrameCapture::Options optionsOf(const std::string& labelLevel, bool worldNormals, bool euclideanDepth)
{
    KrFrameCapture::Options options;
    options.labelLevel = levelOf(labelLevel);
    options.normalFrame = worldNormals ? KrFrameCapture::NormalFrame::World : KrFrameCapture::NormalFrame::Optical;
    options.depthKind = euclideanDepth ? KrDepthCapture::Kind::Euclidean : KrDepthCapture::Kind::Planar;
    return options;
}

KrFrameCapture::Targets targetsOf(const KrPyRenderer& renderer, const py::object& color, const py::object& depth,
                                  const py::object& labels, const py::object& normals)
{
    KrFrameCapture::Targets targets;
    targets.width = renderer.settings().width;
    targets.height = renderer.settings().height;
    const py::ssize_t rows = targets.height;
    const py::ssize_t columns = targets.width;
    targets.color = KrPyArray::target<std::uint8_t>(color, "color", {rows, columns, 3});
    targets.depth = KrPyArray::target<float>(depth, "depth", {rows, columns});
    targets.labels = KrPyArray::target<std::uint32_t>(labels, "labels", {rows, columns});
    targets.normals = KrPyArray::target<float>(normals, "normals", {rows, columns, 3});
    return targets;
}

KrFrameDescription draw(KrPyRenderer& renderer, const Indices& joints, const Numbers& positions, const Bases& bases,
                        const KrPyCamera& camera, const KrFrameCapture::Options& options, const py::object& color,
                        const py::object& depth, const py::object& labels, const py::object& normals)
{
    const KrFrameCapture::Targets targets = targetsOf(renderer, color, depth, labels, normals);
    const KrPyPose pose = poseOf(renderer.system(), joints, positions, bases);
    KrFrameDescription frame;
    krPyRun([&] { frame = renderer.draw(pose, camera, options, targets); });
    return frame;
}

/// For benchmarks: `count` frames by the library alone.
void drawAgain(KrPyRenderer& renderer, const KrFrameCapture::Options& options, const py::object& color,
               const py::object& depth, const py::object& labels, const py::object& normals, unsigned int count)
{
    const KrFrameCapture::Targets targets = targetsOf(renderer, color, depth, labels, normals);
    krPyRun([&] { renderer.drawAgain(KrPyPose(), options, targets, count); });
}

/// Refuses what `draw` would refuse of an array for all frames.
void check(const py::object& array, const std::string& kind, const std::vector<py::ssize_t>& shape)
{
    if (array.is_none()) {
        refuse(kind + " is no numpy array");
    }
    if (kind == "color") {
        KrPyArray::target<std::uint8_t>(array, kind, shape);
    } else if (kind == "labels") {
        KrPyArray::target<std::uint32_t>(array, kind, shape);
    } else {
        KrPyArray::target<float>(array, kind, shape);
    }
}

/// The part's link as its file has it. Bodies between links have names of their own; manipulators as a whole none.
std::string linkOf(const KrPySystem& system, const KrLabelTable::Part& part)
{
    const std::vector<std::string>& links = system.links()[part.manipulatorIndex];
    return part.link.empty() || part.linkIndex >= links.size() ? part.link : links[part.linkIndex];
}

/// (robot's number, link's name, shape's number) for the labels 1, 2, ...
py::list labelsOf(const KrPySystem& system, const std::string& level)
{
    const KrLabelTable table(system.stated().manipulatorSystem(), levelOf(level));
    py::list labels;
    for (std::uint32_t label = 1; label <= table.size(); ++label) {
        const KrLabelTable::Part& part = table.part(label);
        labels.append(py::make_tuple(
            part.manipulatorIndex, krPyText(system.linkName(part.manipulatorIndex, part.linkIndex)), part.shapeIndex));
    }
    return labels;
}

/// (robot's number, link's name, shape's number, point in the world, in the link, normal in the world, distance).
py::object pick(KrPyRenderer& renderer, unsigned int x, unsigned int y)
{
    std::optional<KrFrameCapture::Pick> found;
    krPyRun([&] { found = renderer.pick(x, y); });
    if (!found) {
        return py::none();
    }
    const KrPySystem& system = renderer.system();
    return py::make_tuple(found->part.manipulatorIndex, krPyText(linkOf(system, found->part)), found->part.shapeIndex,
                          tripleOf(found->point), tripleOf(found->pointInLink), tripleOf(found->normal),
                          found->distance);
}

/// (labels, height, width)
py::array_t<bool> amodal(KrPyRenderer& renderer, const std::string& level)
{
    KrAmodalMasks masks;
    const KrLabelTable::Level wanted = levelOf(level);
    krPyRun([&] { renderer.amodal(wanted, masks); });
    py::array_t<bool> result({static_cast<py::ssize_t>(masks.numLabels()), static_cast<py::ssize_t>(masks.height()),
                              static_cast<py::ssize_t>(masks.width())});
    auto* const out = reinterpret_cast<unsigned char*>(result.mutable_data());
    krPyRun([&] {
        const std::size_t size = std::size_t(masks.width()) * masks.height();
        for (std::uint32_t label = 1; label <= masks.numLabels(); ++label) {
            unsigned char* const mask = out + (label - 1) * size;
            masks.mask(label, mask);
            // numpy's truth is 1.
            std::for_each(mask, mask + size, [](unsigned char& byte) { byte &= 1; });
        }
    });
    return result;
}

Numbers intrinsicsOf(const KrFrameDescription& frame)
{
    Numbers matrix({3, 3});
    // Only an orthographic camera has none, and no renderer here makes one.
    const KrCameraIntrinsics k = frame.intrinsics.value_or(KrCameraIntrinsics());
    const double entries[9] = {k.fx, 0.0, k.cx, 0.0, k.fy, k.cy, 0.0, 0.0, 1.0};
    std::copy(std::begin(entries), std::end(entries), matrix.mutable_data());
    return matrix;
}

Numbers cameraPoseOf(const KrFrameDescription& frame)
{
    const osg::Matrixd opticalToWorld = osg::Matrixd::inverse(frame.opticalView());
    Numbers matrix({4, 4});
    for (int row = 0; row < 4; ++row) {
        for (int column = 0; column < 4; ++column) {
            // Those of OpenSceneGraph are for row vectors.
            matrix.mutable_at(row, column) = opticalToWorld(column, row);
        }
    }
    return matrix;
}

/// A PNG file of a (height, width, 3) or (height, width) array of bytes.
py::bytes png(const py::array_t<std::uint8_t, py::array::c_style>& picture)
{
    if (picture.ndim() < 2 || picture.ndim() > 3 || (picture.ndim() == 3 && picture.shape(2) != 3) ||
        picture.size() == 0) {
        refuse("a picture is an array (height, width, 3) or (height, width)");
    }
    KrPngEncoder::Picture source;
    source.samples = picture.data();
    source.height = static_cast<unsigned int>(picture.shape(0));
    source.width = static_cast<unsigned int>(picture.shape(1));
    source.channels = picture.ndim() == 3 ? 3 : 1;
    std::vector<std::uint8_t> file;
    krPyRun([&] {
        const std::string reason = KrPngEncoder().encode(source, file);
        if (!reason.empty()) {
            throw KrPyFailure(KrPyFailure::Kind::Render, reason);
        }
    });
    return {reinterpret_cast<const char*>(file.data()), file.size()};
}

} // namespace

PYBIND11_MODULE(_core, module)
{
    KrPyFailure::registerTranslator();
    module.doc() = "What krrendcore calls of the libraries; not for use by itself.";

    py::class_<KrPySystem, std::shared_ptr<KrPySystem>>(module, "System")
        .def_property_readonly("name", [](const KrPySystem& system) { return krPyText(system.name()); })
        .def_property_readonly("report", [](const KrPySystem& system) { return krPyText(system.report()); })
        .def_property_readonly("robots",
                               [](const KrPySystem& system) {
                                   py::list names;
                                   for (const std::string& name : system.robots()) {
                                       names.append(krPyText(name));
                                   }
                                   return names;
                               })
        .def_property_readonly("links", linksOf)
        .def_property_readonly("joints", jointsOf)
        .def("labels", labelsOf, py::arg("level"))
        .def(
            "why_no_joint",
            [](const KrPySystem& system, const std::string& name) { return krPyText(system.whyNoJoint(name)); },
            py::arg("name"))
        .def("fk", forwardKinematics, py::arg("joints"), py::arg("positions"), py::arg("bases"));
    py::class_<KrPyCamera>(module, "Camera");
    py::class_<KrAids>(module, "Aids")
        .def(py::init(&aidsOf), py::arg("names"), py::arg("highlight"), py::arg("fade"), py::arg("shapes"),
             py::arg("axis_length"));
    py::class_<KrFrameCapture::Options>(module, "Options")
        .def(py::init(&optionsOf), py::arg("label_level"), py::arg("world_normals"), py::arg("euclidean_depth"));
    py::class_<KrFrameDescription>(module, "Description")
        .def("K", intrinsicsOf)
        .def("T_world_camera", cameraPoseOf)
        .def("json", [](const KrFrameDescription& frame) { return krPyText(frame.json()); });
    py::class_<KrPyRenderer, RendererPointer>(module, "Renderer")
        .def(py::init(&open), py::arg("system"), py::arg("camera"), py::arg("width"), py::arg("height"),
             py::arg("samples"), py::arg("background"), py::arg("ambient"), py::arg("lights"), py::arg("aids"),
             py::arg("level_of_detail"))
        .def("draw", draw, py::arg("joints"), py::arg("positions"), py::arg("bases"), py::arg("camera"),
             py::arg("options"), py::arg("color"), py::arg("depth"), py::arg("labels"), py::arg("normals"))
        .def("draw_again", drawAgain, py::arg("options"), py::arg("color"), py::arg("depth"), py::arg("labels"),
             py::arg("normals"), py::arg("count"))
        .def("pick", pick, py::arg("x"), py::arg("y"))
        .def("amodal", amodal, py::arg("level"))
        .def("close", [](KrPyRenderer& renderer) { krPyRun([&] { renderer.close(); }); });

    module.def("load", load, py::arg("path"), py::arg("package_paths"), py::arg("use_cache"));
    module.def("compose", compose, py::arg("parts"));
    module.def("fit", fit, py::arg("system"), py::arg("aids"), py::arg("joints"), py::arg("positions"),
               py::arg("bases"), py::arg("azimuth"), py::arg("elevation"), py::arg("field_of_view"),
               py::arg("aspect_ratio"));
    module.def("look_at", lookAt, py::arg("eye"), py::arg("target"), py::arg("up"), py::arg("field_of_view"));
    module.def("pinhole", pinhole, py::arg("K"), py::arg("T_world_camera"), py::arg("width"), py::arg("height"));
    module.def("check", check, py::arg("array"), py::arg("kind"), py::arg("shape"));
    module.def("png", png, py::arg("picture"));
    krPyBindDataset(module);
    const auto light = KrLighting::ambientLight();
    module.attr("AMBIENT") = py::make_tuple(light.red(), light.green(), light.blue());
    const auto background = KrLighting::background();
    module.attr("BACKGROUND") = py::make_tuple(background.red(), background.green(), background.blue());
}
