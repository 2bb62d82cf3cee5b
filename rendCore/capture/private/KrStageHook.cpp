#include <rendCore/capture/private/KrStageHook.h>

#include <rendCore/window/private/KrRenderStages.h>

#include <osgUtil/RenderStage>

#include <utility>

KrStageHook::KrStageHook(Reader reader)
    : m_reader(std::move(reader))
{
}

KrStageHook::~KrStageHook() = default;

bool KrStageHook::attach(osg::Camera& camera)
{
    osgUtil::RenderStage* const stage = KrRenderStages::of(camera);
    if (!stage) {
        return false;
    }
    m_camera = &camera;
    // An application's own drawing goes on, inside of this.
    m_previous = stage->getDrawCallback();
    stage->setDrawCallback(this);
    return true;
}

void KrStageHook::detach()
{
    // Somebody who is called in the frame may have closed the window, and the stage has gone with it.
    osgUtil::RenderStage* const stage = m_camera.valid() ? KrRenderStages::of(*m_camera) : nullptr;
    if (stage) {
        stage->setDrawCallback(m_previous);
    }
    m_previous = nullptr;
    m_camera = nullptr;
}

void KrStageHook::drawImplementation(osgUtil::RenderBin* bin, osg::RenderInfo& renderInfo,
                                     osgUtil::RenderLeaf*& previous)
{
    if (m_previous.valid()) {
        m_previous->drawImplementation(bin, renderInfo, previous);
    } else {
        bin->drawImplementation(renderInfo, previous);
    }
    m_reader(*bin, renderInfo);
}
