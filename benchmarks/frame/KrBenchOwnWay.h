#pragma once

#include "KrBenchWay.h"

#include <rendCore/system/KrRenderWindow.h>

/// What is measured: a render window, and what a client asks of it in each frame.
class KrBenchOwnWay : public KrBenchWay
{
public:
    /// Borrows `task`.
    /// @param levelPixels  as KrSGWindow::setLevelOfDetail
    /// @param isDirect     as KrSGWindow::setDirectDrawing
    explicit KrBenchOwnWay(const KrBenchTask& task, float levelPixels = 0.0f, bool isDirect = true);

    void open(unsigned int width, unsigned int height) override;
    void setSize(unsigned int width, unsigned int height) override;
    void draw(unsigned int frame, Mode mode) override;
    const unsigned char* pixels() const override { return m_image.data(); }
    osg::Matrixd projection() const override;
    osg::Matrixd view() const override;
    std::string renderer() const override { return m_window.report().renderer; }
    bool isSoftware() const override { return m_window.report().isSoftware; }

private:
    const KrBenchTask& m_task;
    KrRenderWindow m_window;
    KrImage m_image;
    bool m_isPosed = false;
};
