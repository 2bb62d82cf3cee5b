#include <rendCore/window/private/KrSceneViewer.h>

void KrSceneViewer::renderingTraversals()
{
    // Those that the frame before has entered; this one enters its own.
    m_drawing.swap(participants);
    participants.clear();
    for (const std::weak_ptr<KrFrameParticipant>& entered : m_drawing) {
        if (const std::shared_ptr<KrFrameParticipant> participant = entered.lock()) {
            participant->beginDrawing();
        }
    }
    osgViewer::Viewer::renderingTraversals();
    for (const std::weak_ptr<KrFrameParticipant>& entered : m_drawing) {
        if (const std::shared_ptr<KrFrameParticipant> participant = entered.lock()) {
            participant->endDrawing();
        }
    }
}
