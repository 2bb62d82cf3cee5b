#pragma once

#include "KrPyCamera.h"
#include "KrPyPose.h"

#include <picture/KrAids.h>
#include <picture/KrPictureScene.h>
#include <rendCore/capture/KrFrameCapture.h>
#include <rendCore/capture/KrFrameDescription.h>
#include <toolkit/math/KrColor.h>
#include <toolkit/visualization/KrLightParameters.h>

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>
#include <thread>

class KrPySystem;

/// A window without a display that draws one system, for one thread of one process.
///
/// Every function throws KrPyFailure (Render) with a sentence that says why not.
class KrPyRenderer
{
public:
    struct Settings
    {
        unsigned int width = 0;   ///< pixels
        unsigned int height = 0;  ///< pixels
        unsigned int samples = 1; ///< drawn pixels for each of a picture: 1, 4, 9 or 16
        KrColor background;
        KrColor ambient;
        std::optional<KrLightParameters> lights; ///< without them three lamps stand about each frame's camera
        KrAids aids;
        float levelOfDetail = 0.0f; ///< pixels
    };

    /// Opens the window. Also throws KrPyFailure (Name) for links to highlight that are not there.
    KrPyRenderer(std::shared_ptr<const KrPySystem> system, const Settings& settings, const KrPyCamera& camera);
    KrPyRenderer(const KrPyRenderer&) = delete;
    KrPyRenderer& operator=(const KrPyRenderer&) = delete;

    /// What is shown, for a camera that is to be fitted.
    static KrFraming::Shown shown(const KrAids& aids, const KrPySystem& system);

    /// Draws one frame into the memory of `targets`, and tells what it shows.
    KrFrameDescription draw(const KrPyPose& pose, const KrPyCamera& camera, const KrFrameCapture::Options& options,
                            const KrFrameCapture::Targets& targets);
    /// Calls the library `count` times and nothing else: what Python adds to a frame is measured by that.
    void drawAgain(const KrPyPose& pose, const KrFrameCapture::Options& options, const KrFrameCapture::Targets& targets,
                   unsigned int count);
    /// The nearest surface behind a pixel of the latest frame; none where there is nothing.
    std::optional<KrFrameCapture::Pick> pick(unsigned int x, unsigned int y);
    /// Every part of the latest frame drawn alone.
    void amodal(KrLabelTable::Level level, KrAmodalMasks& masks);

    /// What it was made of and with.
    const KrPySystem& system() const { return *m_system; }
    const Settings& settings() const { return m_settings; }

    /// Closes the window. Harmless when it is closed.
    void close();

    /// For whoever holds the last pointer, on any thread, in any process, at any time: what cannot be closed there
    /// waits for the next renderer of its own thread, or stays.
    struct Deleter
    {
        /// Throws nothing.
        void operator()(KrPyRenderer* renderer) const;
    };

private:
    void demandUsable() const;
    void demandOpen() const;
    void demandFrame() const;
    void look(const KrPyCamera& camera);

    const std::shared_ptr<const KrPySystem> m_system;
    KrStatedSystem m_stated; ///< what the window shows; borrowed by it
    const Settings m_settings;
    std::optional<KrPyCamera> m_camera; ///< that the window has
    KrPyPoser m_poser;
    const KrManipulatorSystemState* m_state = nullptr; ///< of the latest frame
    const std::thread::id m_thread = std::this_thread::get_id();
    const pid_t m_process;
    std::unique_ptr<KrPictureScene> m_scene; ///< null when it is closed. Goes first
};
