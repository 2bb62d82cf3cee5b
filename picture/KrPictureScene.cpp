#include <picture/KrPictureScene.h>

#include <picture/KrAids.h>
#include <picture/KrDownscale.h>
#include <picture/KrLighting.h>
#include <rendCore/capture/KrFrameDescription.h>
#include <rendCore/capture/KrFrameStream.h>
#include <toolkit/foundation/KrReason.h>

#include <GL/gl.h>

#include <algorithm>

namespace
{

/// The largest width and height that the current context draws.
void largestSize(unsigned int& width, unsigned int& height)
{
    GLint viewport[2] = {0, 0};
    GLint texture = 0;
    glGetIntegerv(GL_MAX_VIEWPORT_DIMS, viewport);
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &texture); // drivers lay a window's pixels out like a texture
    width = static_cast<unsigned int>(std::min(viewport[0], texture));
    height = static_cast<unsigned int>(std::min(viewport[1], texture));
}

/// Along each side: the largest whole one whose square is not above `samples`.
unsigned int factorOf(unsigned int samples)
{
    unsigned int factor = 1;
    while ((factor + 1) * (factor + 1) <= samples) {
        ++factor;
    }
    return factor;
}

std::string sizeText(unsigned int width, unsigned int height)
{
    return std::to_string(width) + " x " + std::to_string(height);
}

/// What drawing fails by lies in the driver: the libraries' messages are the reason.
bool failToDraw(const KrReason& said, std::string& reason)
{
    reason = "the picture cannot be drawn: " + said.text("the driver gives no reason");
    return false;
}

} // namespace

KrPictureScene::KrPictureScene()
{
    m_window.setHideWindow(true);
    // Small first: the context says what it can draw.
    m_window.setWindowSize(16, 16);
}

bool KrPictureScene::open(unsigned int width, unsigned int height, unsigned int samples, std::string& reason)
{
    const KrReason said;
    if (!m_window.init()) {
        reason = "no OpenGL context to draw with: " + said.text("no way to one worked");
        return false;
    }
    unsigned int largestWidth = 0;
    unsigned int largestHeight = 0;
    largestSize(largestWidth, largestHeight);
    if (width > largestWidth || height > largestHeight) {
        reason = sizeText(width, height) + " pixels are too many: this driver draws at most " +
                 sizeText(largestWidth, largestHeight);
        return false;
    }
    // Of the picture; the window is as many times larger as the factor says.
    m_width = width;
    m_height = height;
    m_factor = factorOf(samples);
    // Fewer samples rather than no picture.
    while (m_factor > 1 && (width * m_factor > largestWidth || height * m_factor > largestHeight)) {
        --m_factor;
    }
    return resize(m_factor, reason);
}

bool KrPictureScene::resize(unsigned int factor, std::string& reason)
{
    // Most frames are as large as the one before, and cost nothing here.
    if (factor == m_drawnFactor) {
        return true;
    }
    const KrReason said;
    if (!m_window.setWindowSize(m_width * factor, m_height * factor)) {
        reason = "cannot draw " + sizeText(m_width, m_height) + " pixels: " + said.text("the driver refuses that size");
        return false;
    }
    m_drawnFactor = factor;
    return true;
}

bool KrPictureScene::show(KrStatedSystem& system, const KrVisualizationParameters& parameters, std::string& reason)
{
    const KrReason said;
    // Borrowed: pose() asks it whether it has changed.
    m_system = &system;
    // Which shapes bend is looked up once for a system.
    m_poses.emplace(system.manipulatorSystem());
    // Shapes that bend are told before the scene is built.
    system.addChangedShapes(m_poses->shapes());
    m_window.setStatedSystem(system, parameters);
    // The window is open, so that the scene has been built, or refused with a message (links too deep for the stack).
    if (system.isNewSystem()) {
        reason = said.text("the scene cannot be built");
        return false;
    }
    return true;
}

bool KrPictureScene::show(KrStatedSystem& system, std::string& reason, const KrVector& towardsEye)
{
    // A height of 0, before the scene is opened, must not divide.
    const double aspectRatio = static_cast<double>(m_width) / std::max(1u, m_height);
    KrFraming framing(towardsEye, KrVector(0.0, 0.0, 1.0), KrFraming::kFieldOfView, aspectRatio);
    framing.add(system.manipulatorSystem(), system.systemState());
    KrRenderParameters render;
    render.setBackgroundColor(KrLighting::background());
    KrVisualizationParameters parameters;
    parameters.setPovParameters(framing.pov());
    parameters.setRenderParameters(render);
    if (!show(system, parameters, reason)) {
        return false;
    }
    // Behind the scene, whose point of view the lamps stand by.
    KrLighting::light(m_window);
    return true;
}

void KrPictureScene::pose(const KrManipulatorSystemState& state)
{
    m_isColorless = false; // until a drawing knows better
    if (m_poses && m_system->isNewSystem()) {
        m_poses.emplace(m_system->manipulatorSystem()); // a link that was selected may have got shapes of its own
    }
    // Robots of which nothing bends pay nothing here.
    if (m_poses && !m_poses->shapes().empty()) {
        m_poses->drive(state);
        KrAids::follow(m_window);
    }
    m_window.setState(state);
}

bool KrPictureScene::capture(const KrManipulatorSystemState& state, unsigned int flags, KrImage& picture,
                             std::string& reason)
{
    const KrReason said;
    pose(state);
    // Depths draw without samples, see below: back to the size of pictures.
    if (!resize(m_factor, reason)) {
        return false;
    }
    if (!m_window.renderSceneAndCaptureImage(picture, flags) || picture.empty()) {
        return failToDraw(said, reason);
    }
    return true;
}

bool KrPictureScene::draw(const KrManipulatorSystemState& state, KrFrameStream& stream, std::string& reason)
{
    const KrReason said;
    pose(state);
    if (!resize(m_factor, reason)) {
        return false;
    }
    // Each time: a capture in between would have dropped it.
    m_window.setDrawCallback(&stream);
    return (m_window.renderScene(true) && stream.numLost() == 0) || failToDraw(said, reason);
}

bool KrPictureScene::draw(const KrManipulatorSystemState& state, KrImage& picture, std::string& reason)
{
    if (!drawLarge(state, m_large, reason)) {
        return false;
    }
    KrDownscale::average(m_large, m_factor, picture);
    return true;
}

bool KrPictureScene::drawLarge(const KrManipulatorSystemState& state, KrImage& picture, std::string& reason)
{
    return capture(state, KrSGWindow::CaptureColor, picture, reason);
}

bool KrPictureScene::drawDepth(const KrManipulatorSystemState& state, KrImage& picture, std::string& reason)
{
    if (!capture(state, KrSGWindow::CaptureDepth, m_large, reason)) {
        return false;
    }
    KrDownscale::pick(m_large, m_factor, picture);
    return true;
}

bool KrPictureScene::drawDepth(const KrManipulatorSystemState& state, const KrDepthCapture::Options& options,
                               std::vector<float>& depths, std::string& reason)
{
    const KrReason said;
    pose(state);
    // Without samples: the mean of two depths lies on neither surface.
    return resize(1, reason) && (m_depthCapture.render(m_window, options, depths) || failToDraw(said, reason));
}

bool KrPictureScene::draw(const KrManipulatorSystemState& state, const KrFrameCapture::Options& options,
                          const KrFrameCapture::Targets& targets, std::string& reason)
{
    const KrReason said;
    pose(state);
    if (!resize(m_factor, reason)) {
        return false;
    }
    KrFrameCapture::Options scaled = options;
    scaled.reduction = m_factor;
    KrFrameCapture::Targets drawn = targets;
    const bool isSmoothed = targets.color && m_factor > 1;
    if (isSmoothed) {
        m_largeColors.resize(std::size_t(m_width) * m_factor * m_height * m_factor * 3);
        drawn.color = m_largeColors.data();
    }
    if (!m_frameCapture.render(m_window, scaled, drawn)) {
        return failToDraw(said, reason);
    }
    m_isColorless = !targets.color && (targets.depth || targets.labels || targets.normals);
    if (isSmoothed) {
        KrDownscale::average(m_largeColors.data(), std::size_t(m_width) * m_factor * 3, m_factor, m_width, m_height, 3,
                             targets.color);
    }
    return true;
}

bool KrPictureScene::describe(KrFrameDescription& frame) const
{
    if (!frame.fill(m_window)) {
        return false;
    }
    // The window knows its latest frame of colours, which may be an older one.
    if (m_isColorless) {
        frame.setProjection(m_frameCapture.projection());
    }
    if (frame.width != m_width || frame.height != m_height) {
        frame.setPictureSize(m_width, m_height);
    }
    return true;
}

bool KrPictureScene::pick(const KrManipulatorSystemState& state, unsigned int x, unsigned int y,
                          std::optional<KrFrameCapture::Pick>& pick, std::string& reason)
{
    const KrReason said;
    pose(state);
    if (x >= m_width || y >= m_height) {
        reason = "pixel (" + std::to_string(x) + ", " + std::to_string(y) + ") lies outside of the picture of " +
                 sizeText(m_width, m_height);
        return false;
    }
    return resize(m_factor, reason) &&
           (m_frameCapture.pick(m_window, x, y, m_factor, pick) || failToDraw(said, reason));
}

bool KrPictureScene::drawAmodal(const KrManipulatorSystemState& state, KrLabelTable::Level level, KrAmodalMasks& masks,
                                std::string& reason)
{
    const KrReason said;
    pose(state);
    return resize(m_factor, reason) &&
           (m_frameCapture.renderAmodal(m_window, level, m_factor, masks) || failToDraw(said, reason));
}
