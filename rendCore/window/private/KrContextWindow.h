#pragma once

#include <osgViewer/GraphicsWindow>

#include <functional>
#include <memory>

class KrClientState;
class KrWindow;

/// The viewer's side of a window's context: what the viewer asks of it goes to the window.
///
/// The stock embedded window answers every request with yes and lets a viewer delete GL objects in whatever context
/// happens to be current. This one makes its own context current, and is closed once the window is.
/// For use inside the library.
class KrContextWindow : public osgViewer::GraphicsWindowEmbedded
{
public:
    using Release = std::function<void(osg::State&)>;

    /// @param release  called when it is closed, with the state that is about to go
    KrContextWindow(Traits* traits, KrWindow& window, Release release);

    /// Null in a context of the library's own.
    const std::shared_ptr<KrClientState>& clientState() const { return m_clientState; }

    bool valid() const override { return m_window != nullptr; }
    bool isRealizedImplementation() const override { return m_window != nullptr; }
    bool makeCurrentImplementation() override;
    bool releaseContextImplementation() override;
    void closeImplementation() override;

    /// That of `context` where it is such a window; else null.
    static std::shared_ptr<KrClientState> clientStateOf(osg::GraphicsContext* context);

protected:
    ~KrContextWindow() override;

private:
    KrWindow* m_window;
    Release m_release;
    std::shared_ptr<KrClientState> m_clientState;
};
