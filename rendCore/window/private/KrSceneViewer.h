#pragma once

#include <rendCore/base/private/KrDrawSettings.h>

#include <osgViewer/Viewer>

/// The viewer of a window of this library: it carries what the window says about drawing.
class KrSceneViewer : public osgViewer::Viewer, public KrDrawSettings
{
public:
    void renderingTraversals() override;

protected:
    ~KrSceneViewer() override = default;

private:
    std::vector<std::weak_ptr<KrFrameParticipant>> m_drawing; ///< those of the frame at hand
};
