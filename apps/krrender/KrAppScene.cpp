#include "KrAppScene.h"

#include "KrAppAids.h"
#include "KrAppFailure.h"
#include "KrAppMessages.h"

#include <picture/KrLighting.h>

#include <GL/gl.h>
#include <osg/Group>
#include <osg/LightModel>

#include <algorithm>
#include <cstring>

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

unsigned int factorOf(unsigned int samples)
{
    unsigned int factor = 1;
    while ((factor + 1) * (factor + 1) <= samples) {
        ++factor;
    }
    return factor;
}

} // namespace

KrAppScene::KrAppScene(unsigned int width, unsigned int height, unsigned int samples, KrAppMessages& messages)
    : m_messages(messages)
    , m_width(width)
    , m_height(height)
{
    const std::string size = std::to_string(width) + " x " + std::to_string(height) + " pixels";
    m_window.setName("krrender");
    m_window.setHideWindow(true);
    // Small first: the context says what it can draw.
    m_window.setWindowSize(16, 16);
    if (!m_window.init()) {
        throw KrAppFailure(KrAppFailure::CouldNot,
                           "no OpenGL context to draw with (krrender --doctor tells what is missing): " +
                               m_messages.lastReason("no way to one worked"));
    }
    unsigned int largestWidth = 0;
    unsigned int largestHeight = 0;
    largestSize(largestWidth, largestHeight);
    if (width > largestWidth || height > largestHeight) {
        throw KrAppFailure(KrAppFailure::CouldNot, size + " are too many: this driver draws at most " +
                                                       std::to_string(largestWidth) + " x " +
                                                       std::to_string(largestHeight));
    }
    m_factor = factorOf(samples);
    while (m_factor > 1 && (width * m_factor > largestWidth || height * m_factor > largestHeight)) {
        --m_factor;
    }
    resize(m_factor);
}

void KrAppScene::resize(unsigned int factor)
{
    if (factor == m_drawnFactor) {
        return;
    }
    if (!m_window.setWindowSize(m_width * factor, m_height * factor)) {
        throw KrAppFailure(KrAppFailure::CouldNot,
                           "cannot draw " + std::to_string(m_width) + " x " + std::to_string(m_height) +
                               " pixels: " + m_messages.lastReason("the driver refuses that size"));
    }
    m_drawnFactor = factor;
}

void KrAppScene::show(KrStatedSystem& system, const KrVisualizationParameters& parameters, bool isOwnLighting)
{
    m_poses.emplace(system.manipulatorSystem());
    for (const KrShapeStateCacheKey& shape : m_poses->shapes()) {
        system.addChangedShape(shape);
    }
    m_window.setStatedSystem(system, parameters);
    // The window is open, so that the scene has been built, or refused with a message (links too deep for the stack).
    if (system.isNewSystem()) {
        throw KrAppFailure(KrAppFailure::CouldNot, m_messages.lastReason("the scene cannot be built"));
    }
    if (isOwnLighting) {
        lightFromEverywhere(m_window);
    }
}

void KrAppScene::lightFromEverywhere(KrRenderWindow& window)
{
    auto* const model = dynamic_cast<osg::LightModel*>(
        window.getNode()->getOrCreateStateSet()->getAttribute(osg::StateAttribute::LIGHTMODEL));
    if (model) {
        const auto ambient = static_cast<float>(KrLighting::kAmbient);
        model->setAmbientIntensity(osg::Vec4(ambient, ambient, ambient, 1.0f));
    }
}

void KrAppScene::pose(const KrManipulatorSystemState& state)
{
    if (m_poses && !m_poses->shapes().empty()) {
        m_poses->drive(state);
        KrAppAids::follow(m_window);
    }
    m_window.setState(state);
}

void KrAppScene::failToDraw() const
{
    throw KrAppFailure(KrAppFailure::CouldNot,
                       "the picture cannot be drawn: " + m_messages.lastReason("the driver gives no reason"));
}

void KrAppScene::capture(const KrManipulatorSystemState& state, unsigned int flags, KrImage& picture)
{
    pose(state);
    resize(m_factor);
    if (!m_window.renderSceneAndCaptureImage(picture, flags) || picture.empty()) {
        failToDraw();
    }
}

void KrAppScene::draw(const KrManipulatorSystemState& state, KrFrameStream& stream)
{
    pose(state);
    resize(m_factor);
    // Each time: a capture in between would have dropped it.
    m_window.setDrawCallback(&stream);
    if (!m_window.renderScene(true) || stream.numLost() > 0) {
        failToDraw();
    }
}

void KrAppScene::draw(const KrManipulatorSystemState& state, KrImage& picture)
{
    drawLarge(state, m_large);
    average(m_large, m_factor, picture);
}

void KrAppScene::drawLarge(const KrManipulatorSystemState& state, KrImage& picture)
{
    capture(state, KrSGWindow::CaptureColor, picture);
}

void KrAppScene::drawDepth(const KrManipulatorSystemState& state, KrImage& picture)
{
    capture(state, KrSGWindow::CaptureDepth, m_large);
    pick(m_large, m_factor, picture);
}

void KrAppScene::drawDepth(const KrManipulatorSystemState& state, const KrDepthCapture::Options& options,
                           std::vector<float>& depths)
{
    pose(state);
    resize(1);
    if (!m_depthCapture.render(m_window, options, depths)) {
        failToDraw();
    }
}

void KrAppScene::average(const KrImage& large, unsigned int factor, KrImage& small)
{
    const unsigned int channels = large.channels();
    const unsigned int width = large.width() / factor;
    const unsigned int height = large.height() / factor;
    if (small.width() != width || small.height() != height || small.channels() != channels || !small.data()) {
        small.allocate(channels, 0, width, height);
    }
    const std::size_t row = std::size_t(large.width()) * channels;
    const unsigned int count = factor * factor;
    unsigned char* out = small.data();
    for (unsigned int y = 0; y < height; ++y) {
        const unsigned char* const rows = large.data() + std::size_t(y) * factor * row;
        for (unsigned int x = 0; x < width; ++x) {
            for (unsigned int c = 0; c < channels; ++c) {
                unsigned int sum = 0;
                for (unsigned int j = 0; j < factor; ++j) {
                    const unsigned char* in = rows + j * row + std::size_t(x) * factor * channels + c;
                    for (unsigned int i = 0; i < factor; ++i, in += channels) {
                        sum += *in;
                    }
                }
                *out++ = static_cast<unsigned char>((sum + count / 2) / count);
            }
        }
    }
}

void KrAppScene::pick(const KrImage& large, unsigned int factor, KrImage& small)
{
    const unsigned int channels = large.channels();
    small.allocate(channels, 0, large.width() / factor, large.height() / factor);
    const std::size_t row = std::size_t(large.width()) * channels;
    unsigned char* out = small.data();
    for (unsigned int y = 0; y < small.height(); ++y) {
        for (unsigned int x = 0; x < small.width(); ++x, out += channels) {
            std::memcpy(out, large.data() + y * factor * row + std::size_t(x) * factor * channels, channels);
        }
    }
}
