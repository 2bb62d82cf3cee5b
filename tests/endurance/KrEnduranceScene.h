#pragma once

#include "KrEnduranceState.h"

#include <rendCore/system/KrRenderWindow.h>
#include <toolkit/system/KrPoseDriver.h>
#include <toolkit/system/KrVisualizableStatedSystem.h>

#include <memory>
#include <string>
#include <vector>

/// A window, the system that it shows, and the state that describes both.
class KrEnduranceScene
{
public:
    using Bytes = std::vector<unsigned char>;

    /// Reads the system and opens the window; false when one of the two fails.
    bool open(const KrEnduranceState& state);
    /// Another system into the window that is open; the camera and what is switched on stay.
    bool load(const std::string& system);
    /// The same system built anew.
    void reload();
    void close() { m_window->closeWindow(); }
    /// After `close`.
    bool reopen();

    // Each makes the window follow one change of state().
    KrEnduranceState& state() { return m_state; }
    void applySize();
    void applyTarget() { m_window->setOffScreenRendering(m_state.isOffScreen); }
    void applyLook();
    void applyCamera();
    void applyPose();
    void applySelection();

    /// The colours and then the depths of the window; empty when a frame cannot be drawn or OpenGL reports an error.
    Bytes picture();

    KrRenderWindow& window() { return *m_window; }
    KrStatedSystem& system() { return m_file.statedSystem(); }
    /// The keys of all shapes.
    std::vector<KrShapeStateCacheKey> shapes() const;
    double radius() const { return m_radius; }          ///< of the scene, m
    const KrVector& middle() const { return m_middle; } ///< of the scene

private:
    bool readSystem();
    void show();
    void applyAll();

    KrEnduranceState m_state;
    KrVisualizableStatedSystem m_file;
    std::unique_ptr<KrPoseDriver> m_poses;
    std::unique_ptr<KrRenderWindow> m_window = std::make_unique<KrRenderWindow>();
    double m_radius = 1.0;
    KrVector m_middle;
};
