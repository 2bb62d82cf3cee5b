#pragma once

#include <osg/Camera>
#include <osg/NodeCallback>
#include <osg/View>

#include <functional>
#include <utility>
#include <vector>

// What a window of several views hangs into its viewer. For use inside the library.

/// Keeps the views where they belong when the main camera moves within a frame: input is handled after `updateScene`.
class KrViewFollower : public osg::View::Slave::UpdateSlaveCallback
{
public:
    /// @param follow  called before each slave is updated, several times a frame
    explicit KrViewFollower(std::function<void()> follow)
        : m_follow(std::move(follow))
    {
    }
    /// The window is gone; its viewer may go on for a while.
    void detach() { m_follow = nullptr; }
    void updateSlave(osg::View& view, osg::View::Slave& slave) override
    {
        if (m_follow) {
            m_follow();
        }
        slave.updateSlaveImplementation(view);
    }

protected:
    ~KrViewFollower() override = default;

private:
    std::function<void()> m_follow;
};

/// Clears the tiles that have no view, whose pixels no camera touches.
class KrEmptyTiles : public osg::Camera::DrawCallback
{
public:
    struct Area
    {
        int x; ///< pixels, from the lower left
        int y;
        int width;
        int height;
    };

    using osg::Camera::DrawCallback::operator();
    void operator()(osg::RenderInfo& renderInfo) const override;

    std::vector<Area> areas;

protected:
    ~KrEmptyTiles() override = default;
};

/// Overlay text lies over the whole window, and every view has it in its scene: the one drawn last shows it, and clears
/// the depths of the whole window. Views before it clear those of their own place.
class KrOverlayOnce : public osg::NodeCallback
{
public:
    void operator()(osg::Node* node, osg::NodeVisitor* visitor) override;

protected:
    ~KrOverlayOnce() override = default;
};
