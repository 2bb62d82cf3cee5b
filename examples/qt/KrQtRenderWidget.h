#pragma once

// OpenSceneGraph's headers before Qt's.
#include <rendCore/input/KrOrbitInputHandler.h>
#include <rendCore/system/KrRenderWindow.h>

#include <QOpenGLWidget>

#include <memory>

/// A widget that shows a stated system and lets the user walk around it: a render window in the widget's context.
///
/// The render window opens with the widget's context and closes with it; where the widget gets a new one, after
/// moving to another top-level window, the scene is built again and the point of view stays. `setFormat` must have run
/// before the application object is made.
class KrQtRenderWidget : public QOpenGLWidget
{
public:
    /// The default format of all OpenGL surfaces: what the render window needs.
    static void setFormat();

    explicit KrQtRenderWidget(QWidget* parent = nullptr);
    ~KrQtRenderWidget() override;

    /// @param system  borrowed: outlives the widget, or its showing of another one
    void show(const KrStatedSystem& system);
    using QOpenGLWidget::show;

    KrRenderWindow& window() { return m_window; }
    KrOrbitInputHandler& camera() { return *m_camera; }
    /// How many contexts the widget has had.
    int numContexts() const { return m_numContexts; }

protected:
    void initializeGL() override;
    void resizeGL(int width, int height) override;
    void paintGL() override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;

private:
    void loadSystem();
    void shut();
    int pixels(int length) const;
    QPointF normalized(const QPointF& position) const;

    KrRenderWindow m_window;
    osg::ref_ptr<KrOrbitInputHandler> m_camera;
    const KrStatedSystem* m_system = nullptr;
    KrLightParameters m_lamps;
    QPointF m_last; ///< of a drag, logical pixels
    bool m_isFramed = false;
    int m_numContexts = 0;
};
