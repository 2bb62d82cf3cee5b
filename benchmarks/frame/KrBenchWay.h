#pragma once

#include <toolkit/system/KrStatedSystem.h>
#include <toolkit/visualization/KrVisualizationParameters.h>

#include <osg/Matrixd>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

/// What all ways are to draw. Borrowed by them while they live.
struct KrBenchTask
{
    KrStatedSystem system;
    std::vector<KrManipulatorSystemState> states; ///< one for each frame, over and over
    KrVisualizationParameters parameters;
    bool isStill = false;     ///< the first state in every frame
    bool cull = false;        ///< back faces are left out
    float levelPixels = 0.0f; ///< error that "levels" may show

    const KrManipulatorSystemState& stateOf(unsigned int frame) const
    {
        return states[isStill ? 0 : frame % states.size()];
    }
};

/// One way of drawing a task, with a context of its own. Several may be open at a time, and take turns.
class KrBenchWay
{
public:
    /// What is read back after a frame.
    enum class Mode
    {
        Render,
        Color,
        Depth
    };

    /// The names of all ways: "ours" first; "graph", ours with every traversal of the scene graph; "levels", ours with
    /// levels of detail; "groups" and "merged", plain OpenGL.
    static const std::vector<std::string>& names();
    /// The way of that name, closed. Throws KrBenchFailure for any other.
    static std::unique_ptr<KrBenchWay> make(const std::string& name, const KrBenchTask& task);

    virtual ~KrBenchWay() = default;
    /// Opens the context and builds everything that does not change from frame to frame. Throws KrBenchFailure.
    virtual void open(unsigned int width, unsigned int height) = 0;
    /// A new size on the same context. Throws KrBenchFailure.
    virtual void setSize(unsigned int width, unsigned int height) = 0;
    /// Draws frame 0, 1, 2, ... and waits until it is done.
    virtual void draw(unsigned int frame, Mode mode) = 0;
    /// Rows of three bytes from the bottom up: the last frame, which was drawn with Mode::Color.
    virtual const unsigned char* pixels() const = 0;
    /// By which the last frame was drawn.
    virtual osg::Matrixd projection() const = 0;
    virtual osg::Matrixd view() const = 0;
    /// The driver, and whether it draws without a graphics card.
    virtual std::string renderer() const = 0;
    virtual bool isSoftware() const = 0;
};
