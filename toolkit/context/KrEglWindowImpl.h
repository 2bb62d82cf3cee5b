#pragma once

#include <toolkit/context/KrWindowImpl.h>

#include <memory>

/// A context without a display, drawing into a pbuffer: tries the surfaceless, device and GBM platforms in turn.
///
/// Exactly 8/8/8 colour bits and 32 depth bits, else 24; compatibility profile.
class KrEglWindowImpl : public KrWindowImpl
{
public:
    /// Closed; `open` finds a driver.
    KrEglWindowImpl();
    ~KrEglWindowImpl() override;

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

private:
    struct Private;
    std::unique_ptr<Private> m_private;
};
