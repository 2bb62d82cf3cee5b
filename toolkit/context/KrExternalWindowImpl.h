#pragma once

#include <toolkit/context/KrWindowImpl.h>

#include <functional>

/// A context that the client owns: a widget's, say. It is never created, closed or switched away from here,
/// except through the client's own callbacks. An exception that a callback throws ends here, as a failure of it.
class KrExternalWindowImpl : public KrWindowImpl
{
public:
    struct Callbacks
    {
        std::function<bool()> makeCurrent; ///< empty: the client's context is always current
        std::function<void()> doneCurrent; ///< empty: nothing is released
        std::function<bool()> isCurrent;   ///< empty: taken as true
        std::function<void()> swapBuffers; ///< empty: the client swaps by itself
        /// Asked before every frame; empty: the one that is bound then.
        std::function<unsigned int()> defaultFramebuffer;
    };

    /// Closed. The callbacks are called from the thread that uses the window, until this object goes.
    explicit KrExternalWindowImpl(Callbacks callbacks);

    const char* kind() const override;
    /// Fails when no context of desktop OpenGL, compatibility profile, is current after `makeCurrent`. With `share`
    /// it fails too when the two contexts do not have their GL objects in common: they are asked, the client is not.
    bool open(const Settings& settings, KrWindowImpl* share, KrWindowReport& report) override;
    bool isOpen() const override;
    void close() override;
    bool makeCurrent() override;
    void releaseCurrent() override;
    bool isCurrent() const override;
    void swapBuffers() override;
    /// Only stored: the client sizes its own surface.
    bool setSize(unsigned int width, unsigned int height) override;
    bool setPosition(int x, int y) override;
    bool setHidden(bool hidden) override;
    bool setTopMost(bool topMost) override;
    bool setTitle(const std::string& name) override;
    bool isStereoSupported() const override;
    /// Its context is current.
    unsigned int defaultFramebuffer() const override;
    void size(unsigned int& width, unsigned int& height) const override;

private:
    bool sharesObjectsWith(KrWindowImpl& other);

    Callbacks m_callbacks;
    bool m_open = false;
    bool m_stereo = false;
    bool m_hasFramebuffers = false; ///< framebuffer objects, as from OpenGL 3.0 on
    unsigned int m_width = 0;
    unsigned int m_height = 0;
};
