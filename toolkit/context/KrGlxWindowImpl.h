#pragma once

#include <toolkit/context/KrWindowEvent.h>
#include <toolkit/context/KrWindowImpl.h>

#include <memory>

/// A window on an X display; hidden, it draws the same pixels into a pbuffer.
///
/// Exactly 8/8/8 colour bits and 32 depth bits where the server has them, else 24; compatibility profile. X errors
/// become failures of the operation that caused them. When the server itself goes away, the process lives on and
/// `makeCurrent` fails from then on.
///
/// The user resizes the window as he likes: `size` follows, as of the last `swapBuffers`.
class KrGlxWindowImpl : public KrWindowImpl
{
public:
    /// @param samples  to draw for each pixel, which smooths edges: the server's nearest number, where it has any; 0
    ///                 draws pixels as an off-screen window does. A window that shares another's objects has that
    ///                 one's. With samples no metric depth is captured, and captured colours are smooth or not as
    ///                 the driver likes.
    explicit KrGlxWindowImpl(unsigned int samples = 0);
    ~KrGlxWindowImpl() override;

    const char* kind() const override;
    bool open(const Settings& settings, KrWindowImpl* share, KrWindowReport& report) override;
    bool isOpen() const override;
    void close() override;
    bool makeCurrent() override;
    void releaseCurrent() override;
    bool isCurrent() const override;
    void swapBuffers() override;
    bool setSize(unsigned int width, unsigned int height) override;
    bool setPosition(int x, int y) override;
    bool setHidden(bool hidden) override;
    bool setTopMost(bool topMost) override;
    bool setTitle(const std::string& name) override;
    bool isStereoSupported() const override;
    unsigned int defaultFramebuffer() const override;
    void size(unsigned int& width, unsigned int& height) const override;

    /// True once the user has asked the window manager to close the window, which stays open for that; as of the last
    /// `swapBuffers`.
    bool isCloseRequested() const;

    /// The oldest event that was not taken yet; false when there is none. The first call begins to listen to mouse and
    /// keys; whoever listens goes on taking events.
    bool nextEvent(KrWindowEvent& event);
    /// Sleeps until there is an event to take.
    /// @param seconds  at most this long, in [0, 1e6]
    /// @return false when there is none: the time is over, a signal came, or the server is gone
    bool waitForEvent(double seconds);
    /// Asks the window manager to put the window away; without one nothing happens. False for a hidden window.
    bool minimise();
    /// True while the window manager keeps the window from the screen; it can be drawn and read all the same. As of the
    /// last event that was looked for.
    bool isMinimised() const;
    /// True once the X server has gone.
    bool isLost() const;

private:
    struct Private;
    std::unique_ptr<Private> m_private;
};
