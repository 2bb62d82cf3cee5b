#include <rendCore/window/private/KrSceneViewer.h>

#include <rendCore/window/private/KrDrawnProjection.h>

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
    const osg::Matrixd projection = getCamera()->getProjectionMatrix();
    osgViewer::Viewer::renderingTraversals();
    // Culling has fitted its planes to what was drawn. Fitted anew from those, the last digits of depths would depend
    // on the frames before. What a callback of the frame has set otherwise stays.
    if (KrDrawnProjection::isSameButForDepth(getCamera()->getProjectionMatrix(), projection)) {
        getCamera()->setProjectionMatrix(projection);
    }
    for (const std::weak_ptr<KrFrameParticipant>& entered : m_drawing) {
        if (const std::shared_ptr<KrFrameParticipant> participant = entered.lock()) {
            participant->endDrawing();
        }
    }
}
