#include <rendCore/capture/KrFrameDescription.h>

#include <rendCore/capture/KrOpticalFrame.h>
#include <rendCore/capture/private/KrFrameDescriptionJson.h>
#include <rendCore/model/KrLabelTable.h>
#include <rendCore/system/KrRenderWindow.h>
#include <rendCore/window/KrSGBaseInputHandler.h>
#include <rendCore/window/private/KrDrawnProjection.h>

#include <toolkit/foundation/KrLimits.h>
#include <toolkit/foundation/KrPrint.h>
#include <toolkit/foundation/private/KrFileReplacement.h>
#include <toolkit/foundation/private/KrInputFile.h>

#include <osg/FrameStamp>
#include <osgViewer/Viewer>

#include <algorithm>
#include <cmath>

namespace
{

constexpr double kSameView = 1e-9; // of a view's translation, and of 1 where that is small

void describeJoints(const KrIndividualManipulator& manipulator, const KrPositionState& state,
                    KrFrameDescription::Manipulator& out)
{
    const std::vector<const KrManipulatorLink*> links = manipulator.links();
    // A state and a system may disagree: what both have is described.
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
    // A plain scene window has neither system nor state.
    const KrStatedSystem* const system = window ? window->statedSystem() : nullptr;
    const KrManipulatorSystemState* const state = window ? window->state() : nullptr;
    out.time = state ? state->time() : 0.0;
    // A description may be filled again for the next frame.
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

/// A projection knows its camera but for rounding: one that was set is told as it was set.
bool isProjectionOf(const KrCameraIntrinsics& camera, const osg::Matrixd& projection)
{
    // The planes are any: their entries are not compared.
    const osg::Matrixd p = camera.projection(1.0, 2.0);
    return p(0, 0) == projection(0, 0) && p(1, 1) == projection(1, 1) && p(2, 0) == projection(2, 0) &&
           p(2, 1) == projection(2, 1);
}

bool isSame(const osg::Matrixd& a, const osg::Matrixd& b)
{
    // The tolerance grows with the distance of the camera, whose digits it shares.
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
    // Near and far plane are fitted when a frame is drawn: without one there is no projection to tell.
    if (!stamp || stamp->getFrameNumber() == 0) {
        Kr::Print::instance()->write(Kr::Print::Warning,
                                     "KrFrameDescription::fill - window \"%s\" has drawn no frame yet.\n",
                                     window.getName().c_str());
        return false;
    }
    // A description is of a colour picture until who stores another one says so.
    width = window.windowWidth();
    height = window.windowHeight();
    channels = 3;
    rowOrder = RowOrder::BottomRowFirst;
    quantity = "color";
    unit = "1/255";
    axes.clear();
    labels.clear();
    view = viewer->getCamera()->getViewMatrix();
    setProjection(KrDrawnProjection::of(*viewer));
    levelOfDetail = static_cast<double>(window.levelOfDetail());
    KrCameraIntrinsics camera;
    const bool isPinhole = KrCameraIntrinsics::fromProjection(projection, width, height, camera);
    // An orthographic picture has no focal length.
    intrinsics = isPinhole ? std::optional<KrCameraIntrinsics>(camera) : std::nullopt;
    const KrCameraIntrinsics* const given = window.cameraIntrinsics();
    if (isPinhole && given && isProjectionOf(*given, projection)) {
        // What was set is told to its last digit, for the size of this picture.
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
        // The same view in other pixels; the pose does not change.
        intrinsics = intrinsics->scaledTo(newWidth, newHeight);
    }
    levelOfDetail = width == 0 ? levelOfDetail : levelOfDetail * newWidth / width;
    width = newWidth;
    height = newHeight;
}

void KrFrameDescription::setProjection(const osg::Matrixd& drawn)
{
    projection = drawn;
    double left, right, bottom, top;
    // Each of the two knows its own kind of projection only.
    if (!projection.getFrustum(left, right, bottom, top, near, far)) {
        projection.getOrtho(left, right, bottom, top, near, far);
    }
}

void KrFrameDescription::setLabels(const KrLabelTable& table)
{
    labels.clear();
    for (std::uint32_t id = 1; id <= table.size(); ++id) {
        const KrLabelTable::Part& part = table.part(id);
        const bool isShape = table.level() == KrLabelTable::Level::Shape;
        labels.push_back({id, part.manipulator, part.link, isShape ? std::optional(part.shapeIndex) : std::nullopt});
    }
}

osg::Matrixd KrFrameDescription::opticalView() const
{
    return KrOpticalFrame::otherConvention(view);
}

KrPovParameters KrFrameDescription::actualPov() const
{
    // Made as a window makes its camera, so that the comparison is with what a window would do.
    const osg::ref_ptr<KrSGBaseInputHandler> camera = new KrSGBaseInputHandler(nullptr);
    camera->setPovParameters(pov);
    KrPovParameters actual = pov;
    // Told as it was given where the window has followed it: eye point and centre have digits that a matrix has lost.
    if (isSame(camera->getInverseMatrix(), view)) {
        return actual;
    }
    KrCoordinateSystemTransformation cameraToWorld;
    if (cameraToWorld.setFrom16(osg::Matrixd::inverse(opticalView()).ptr())) {
        // A view says nothing of the distance to the centre of interest: the one that was given is kept.
        const double distance = pov.viewingDistance();
        KrOpticalFrame::toPov(cameraToWorld, distance > 0.0 ? distance : 1.0, actual);
    }
    return actual;
}

std::string KrFrameDescription::json() const
{
    return KrFrameDescriptionJson::text(*this);
}

bool KrFrameDescription::writeFile(const std::string& path) const
{
    // Whole or not at all: a reader never meets half a description.
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
    // Within a limit before anything is parsed: the file is anybody's.
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
    const char* const failure =
        text.size() > Kr::Limits::kCameraBytes ? "it is too large" : KrFrameDescriptionJson::parse(text, found);
    if (failure) {
        refuse(name, failure);
        return false;
    }
    // Only now: a refusal changes nothing.
    *this = found;
    return true;
}
