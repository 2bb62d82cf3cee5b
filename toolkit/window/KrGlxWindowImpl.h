#pragma once

#include <toolkit/window/KrWindowImpl.h>

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
    KrGlxWindowImpl();
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

private:
    struct Private;
    std::unique_ptr<Private> m_private;
};
