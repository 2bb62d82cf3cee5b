#pragma once

#include <osg/Camera>
#include <osg/observer_ptr>
#include <osg/ref_ptr>
#include <osgUtil/RenderBin>

#include <functional>

/// Calls somebody when a camera has been drawn, while its target is still bound and nothing lies over it. For use
/// inside the library.
class KrStageHook : public osgUtil::RenderBin::DrawCallback
{
public:
    /// May throw no exceptions: the scene graph's drawing knows none.
    using Reader = std::function<void(osgUtil::RenderBin& bin, osg::RenderInfo& renderInfo)>;

    explicit KrStageHook(Reader reader);

    /// Before a frame. False for a camera that is not drawn.
    bool attach(osg::Camera& camera);
    /// Behind it: what was there before is put back. The camera may have gone.
    void detach();

    void drawImplementation(osgUtil::RenderBin* bin, osg::RenderInfo& renderInfo,
                            osgUtil::RenderLeaf*& previous) override;

protected:
    ~KrStageHook() override;

private:
    Reader m_reader;
    osg::observer_ptr<osg::Camera> m_camera;
    osg::ref_ptr<osgUtil::RenderBin::DrawCallback> m_previous;
};
