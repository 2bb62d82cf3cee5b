#include "KrQtRenderWidget.h"

#include <picture/KrFraming.h>
#include <picture/KrLighting.h>
#include <toolkit/context/KrExternalWindowImpl.h>
#include <toolkit/math/KrAngle.h>

#include <QMouseEvent>
#include <QOpenGLContext>
#include <QSurfaceFormat>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

using Kr::Angle::kPi;

void KrQtRenderWidget::setFormat()
{
    QSurfaceFormat format;
    // What the render core draws with; later profiles lack a part of it.
    format.setProfile(QSurfaceFormat::CompatibilityProfile);
    format.setVersion(2, 1);
    format.setDepthBufferSize(24);
    format.setStencilBufferSize(8);
    format.setSamples(0); // captures read the frame's own buffer
    QSurfaceFormat::setDefaultFormat(format);
}

KrQtRenderWidget::KrQtRenderWidget(QWidget* parent)
    : QOpenGLWidget(parent)
    , m_camera(new KrOrbitInputHandler(&m_window))
{
    KrExternalWindowImpl::Callbacks callbacks;
    callbacks.makeCurrent = [this] {
        makeCurrent();
        // Qt does not say whether it worked.
        return QOpenGLContext::currentContext() && QOpenGLContext::currentContext() == context();
    };
    callbacks.doneCurrent = [this] { doneCurrent(); };
    callbacks.isCurrent = [this] { return context() && QOpenGLContext::currentContext() == context(); };
    callbacks.defaultFramebuffer = [this] { return defaultFramebufferObject(); };
    // The widget swaps by itself.
    m_window.setImpl(std::make_unique<KrExternalWindowImpl>(callbacks));
    m_window.setInputHandler(m_camera);
    m_window.setAmbientLight(KrLighting::ambientLight());
}

// Here, while the widget still has its context; the base class gives that up when nothing of this one is left.
KrQtRenderWidget::~KrQtRenderWidget()
{
    if (context()) {
        disconnect(context(), nullptr, this, nullptr);
    }
    shut();
}

void KrQtRenderWidget::show(const KrStatedSystem& system)
{
    m_system = &system;
    // With the next frame, when the scene has an extent.
    m_isFramed = false;
    if (m_window.isInitialized()) {
        loadSystem();
        update();
    }
}

void KrQtRenderWidget::loadSystem()
{
    if (!m_system) {
        return;
    }
    m_window.setStatedSystem(*m_system);
    m_window.loadLight(m_lamps);
}

void KrQtRenderWidget::initializeGL()
{
    ++m_numContexts;
    // A widget that moves into another window gets another context.
    connect(context(), &QOpenGLContext::aboutToBeDestroyed, this, [this] { shut(); });
    m_window.setWindowSize(static_cast<unsigned int>(pixels(width())), static_cast<unsigned int>(pixels(height())));
    if (m_window.init()) {
        loadSystem();
    }
}

void KrQtRenderWidget::resizeGL(int width, int height)
{
    m_window.setWindowSize(static_cast<unsigned int>(pixels(width)), static_cast<unsigned int>(pixels(height)));
}

void KrQtRenderWidget::paintGL()
{
    if (!m_window.isInitialized()) {
        return; // said by init
    }
    m_window.renderScene(false);
    if (!m_isFramed && m_system) {
        // The scene has an extent from its first frame on.
        m_camera->lookFrom(KrFraming::kAzimuth, KrFraming::kElevation);
        m_camera->fit();
        m_lamps = KrLighting::threeLamps(m_window.getPovParameters()); // and stay there when the camera moves on
        m_window.loadLight(m_lamps);
        m_isFramed = true;
        m_window.renderScene(false);
    }
}

void KrQtRenderWidget::shut()
{
    // In its own context: what the window holds there cannot be freed in another.
    if (m_window.isInitialized()) {
        makeCurrent();
        m_window.closeWindow();
        doneCurrent();
    }
}

/// A length of the widget in device pixels.
int KrQtRenderWidget::pixels(int length) const
{
    return std::max(1, qRound(length * devicePixelRatioF()));
}

/// From -1 (left, bottom) to 1 (right, top).
QPointF KrQtRenderWidget::normalized(const QPointF& position) const
{
    return QPointF(2.0 * position.x() / std::max(1, width()) - 1.0, 1.0 - 2.0 * position.y() / std::max(1, height()));
}

void KrQtRenderWidget::mousePressEvent(QMouseEvent* event)
{
    m_last = event->position();
}

void KrQtRenderWidget::mouseMoveEvent(QMouseEvent* event)
{
    const QPointF step = event->position() - m_last;
    m_last = event->position();
    const double perHeight = 1.0 / std::max(1, height());
    const bool shift = event->modifiers().testFlag(Qt::ShiftModifier);
    if (event->buttons() & Qt::MiddleButton || (shift && event->buttons() & Qt::LeftButton)) {
        m_camera->pan(2.0 * step.x() / std::max(1, width()), -2.0 * step.y() * perHeight);
    } else if (event->buttons() & Qt::LeftButton) {
        // The height of the widget is half a turn.
        m_camera->orbit(-kPi * step.x() * perHeight, kPi * step.y() * perHeight);
    } else if (event->buttons() & Qt::RightButton) {
        // The height of the widget is a factor of e^3, about 20.
        m_camera->zoomAt(std::exp(-3.0 * step.y() * perHeight), 0.0, 0.0);
    }
    update();
}

void KrQtRenderWidget::mouseDoubleClickEvent(QMouseEvent* event)
{
    const QPointF place = normalized(event->position());
    m_camera->centerOnSurface(place.x(), place.y());
    update();
}

void KrQtRenderWidget::wheelEvent(QWheelEvent* event)
{
    const QPointF place = normalized(event->position());
    // 120 are one notch of a wheel.
    m_camera->zoomAt(std::pow(1.2, event->angleDelta().y() / 120.0), place.x(), place.y());
    update();
}
