#pragma once

class KrGlxWindowImpl;
class KrSGWindow;

/// What the user does with a scene window on the screen: hands mouse and keys to the window's viewer, and follows the
/// size that the user gives it. Of a window of several views each gets its share; a rest of less than a pixel for each
/// is taken off.
///
///     window.renderScene(true);
///     KrWindowInput input(window);
///     while (!input.isCloseRequested()) {
///         if (input.take())
///             window.renderScene(true);
///         input.wait(1.0);
///     }
///
/// Mouse and keys are handled by the viewer's event handlers and by the window's input handler (KrOrbitInputHandler,
/// for one) in the next frame. Pictures are drawn only when something happened. A window that is no GLX window has no
/// user: nothing ever happens to it here. One that is not open counts as closed.
class KrWindowInput
{
public:
    /// @param window  borrowed, outlives this object; may be opened and closed meanwhile
    explicit KrWindowInput(KrSGWindow& window);

    /// Takes everything that happened since the last call. Nothing of it needs the frame that this asks for, but what
    /// is not drawn is not seen; motions of the mouse with no button held are noted and ask for none.
    /// @return true when a frame is due
    bool take();
    /// Sleeps until something happens; all the time where nothing can, for the window is not open or no GLX window.
    /// @param seconds  at most this long; a million at most
    /// @return false when nothing did: the time is over, a signal came, or the display is gone
    bool wait(double seconds);
    /// True once the user has asked for the window to be closed, or the display is gone, and while the window is not
    /// open.
    bool isCloseRequested() const;

private:
    KrGlxWindowImpl* impl() const;

    KrSGWindow& m_window;
    bool m_isHeld = false; ///< a button of the mouse
};
