#include "KrPyRenderer.h"

#include "KrPyFailure.h"
#include "KrPySystem.h"

#include <picture/KrLighting.h>
#include <rendCore/plume/KrToolkitFolders.h>
#include <toolkit/foundation/KrPrint.h>

#include <unistd.h>

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

namespace
{

[[noreturn]] void fail(const std::string& sentence)
{
    throw KrPyFailure(KrPyFailure::Kind::Render, sentence);
}

/// Renderers that were dropped on another thread than theirs.
struct Dropped
{
    std::mutex mutex;
    std::vector<std::pair<std::thread::id, KrPyRenderer*>> renderers;
};

/// Never destroyed: the last renderers go when everything else has gone.
Dropped& dropped()
{
    static Dropped* const s_dropped = new Dropped;
    return *s_dropped;
}

/// Closes those of this thread.
void closeDropped()
{
    std::vector<KrPyRenderer*> mine;
    {
        Dropped& list = dropped();
        const std::lock_guard<std::mutex> lock(list.mutex);
        const auto isOther = [](const auto& entry) { return entry.first != std::this_thread::get_id(); };
        const auto first = std::stable_partition(list.renderers.begin(), list.renderers.end(), isOther);
        for (auto entry = first; entry != list.renderers.end(); ++entry) {
            mine.push_back(entry->second);
        }
        list.renderers.erase(first, list.renderers.end());
    }
    for (KrPyRenderer* const renderer : mine) {
        KrPyRenderer::Deleter()(renderer);
    }
}

bool isSame(const KrPyCamera& a, const KrPyCamera& b)
{
    return a.pov == b.pov && a.intrinsics == b.intrinsics;
}

} // namespace

KrFraming::Shown KrPyRenderer::shown(const KrAids& aids, const KrPySystem& system)
{
    return aids.shown(system.ofThread());
}

KrPyRenderer::KrPyRenderer(std::shared_ptr<const KrPySystem> system, const Settings& settings, const KrPyCamera& camera)
    : m_system(std::move(system))
    , m_stated(m_system->forDrawing())
    , m_settings(settings)
    , m_poser(*m_system)
    , m_process(getpid())
    , m_scene(std::make_unique<KrPictureScene>())
{
    closeDropped();
    // Plumes read their shaders from there.
    KrToolkitFolders::setDefault();
    KrRenderParameters render;
    render.setBackgroundColor(m_settings.background);
    KrVisualizationParameters parameters;
    parameters.setPovParameters(camera.pov);
    parameters.setRenderParameters(render);
    std::string reason;
    std::vector<std::string> warnings;
    if (!m_settings.aids.prepare(m_stated, parameters, reason, warnings)) {
        throw KrPyFailure(KrPyFailure::Kind::Name, reason);
    }
    for (const std::string& warning : warnings) {
        Kr::Print::instance()->write(Kr::Print::Warning, "KrPyRenderer - %s.\n", warning.c_str());
    }
    if (!m_scene->open(m_settings.width, m_settings.height, m_settings.samples, reason) ||
        !m_scene->show(m_stated, parameters, reason)) {
        fail(reason);
    }
    KrRenderWindow& window = m_scene->window();
    m_settings.aids.show(window);
    window.setAmbientLight(m_settings.ambient);
    window.setLevelOfDetail(m_settings.levelOfDetail);
    // Each frame depends on its arguments alone.
    window.setSteadyLevels(false);
    if (m_settings.lights) {
        window.loadLight(*m_settings.lights);
    }
    look(camera);
}

void KrPyRenderer::demandUsable() const
{
    if (m_process != getpid()) {
        fail("this renderer cannot draw here: the process was forked after its parent had made it, which graphics "
             "drivers do not survive; start worker processes with spawn (multiprocessing.get_context(\"spawn\")), and "
             "make the renderer in the worker");
    }
    if (m_thread != std::this_thread::get_id()) {
        fail("this renderer belongs to the thread that made it, which is another one; make one in each thread");
    }
}

void KrPyRenderer::demandOpen() const
{
    if (!m_scene) {
        fail("this renderer is closed");
    }
    demandUsable();
}

void KrPyRenderer::demandFrame() const
{
    demandOpen();
    if (m_state == nullptr) {
        fail("this renderer has drawn no frame yet: render() first");
    }
}

void KrPyRenderer::look(const KrPyCamera& camera)
{
    // Most frames have the camera of the one before.
    if (m_camera && isSame(*m_camera, camera)) {
        return;
    }
    KrRenderWindow& window = m_scene->window();
    window.setPovParameters(camera.pov);
    if (!camera.intrinsics) {
        window.clearCameraIntrinsics();
    } else if (!window.setCameraIntrinsics(*camera.intrinsics)) {
        fail("the driver cannot draw with this camera");
    }
    if (!m_settings.lights) {
        window.loadLight(KrLighting::threeLamps(camera.pov));
    }
    m_camera = camera;
}

KrFrameDescription KrPyRenderer::draw(const KrPyPose& pose, const KrPyCamera& camera,
                                      const KrFrameCapture::Options& options, const KrFrameCapture::Targets& targets)
{
    demandOpen();
    look(camera);
    std::string reason;
    m_state = &m_poser.state(pose);
    if (!m_scene->draw(*m_state, options, targets, reason)) {
        fail(reason);
    }
    KrFrameDescription frame;
    m_scene->describe(frame);
    if (camera.intrinsics) {
        frame.intrinsics = camera.intrinsics; // as they were given, not scaled there and back
    }
    frame.rowOrder = KrFrameDescription::RowOrder::TopRowFirst;
    return frame;
}

void KrPyRenderer::drawAgain(const KrPyPose& pose, const KrFrameCapture::Options& options,
                             const KrFrameCapture::Targets& targets, unsigned int count)
{
    demandOpen();
    m_state = &m_poser.state(pose);
    std::string reason;
    for (unsigned int i = 0; i < count; ++i) {
        if (!m_scene->draw(*m_state, options, targets, reason)) {
            fail(reason);
        }
    }
}

std::optional<KrFrameCapture::Pick> KrPyRenderer::pick(unsigned int x, unsigned int y)
{
    demandFrame();
    std::optional<KrFrameCapture::Pick> found;
    std::string reason;
    if (!m_scene->pick(*m_state, x, y, found, reason)) {
        fail(reason);
    }
    return found;
}

void KrPyRenderer::amodal(KrLabelTable::Level level, KrAmodalMasks& masks)
{
    demandFrame();
    std::string reason;
    if (!m_scene->drawAmodal(*m_state, level, masks, reason)) {
        fail(reason);
    }
}

void KrPyRenderer::close()
{
    if (m_scene) {
        demandUsable();
        m_scene.reset();
    }
}

void KrPyRenderer::Deleter::operator()(KrPyRenderer* renderer) const
{
    // A forked process has the memory and not the context, which is its parent's: nothing of it is touched.
    if (renderer->m_process != getpid()) {
        return;
    }
    if (renderer->m_scene && renderer->m_thread != std::this_thread::get_id()) {
        Dropped& list = dropped();
        const std::lock_guard<std::mutex> lock(list.mutex);
        list.renderers.emplace_back(renderer->m_thread, renderer);
        return;
    }
    delete renderer;
}
