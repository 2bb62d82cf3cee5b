#include <KrQtRenderWidget.h>

#include <tests/support/Systems.h>

#include <gtest/gtest.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QImage>
#include <QMouseEvent>
#include <QVBoxLayout>
#include <QWheelEvent>

#include <cstdlib>
#include <memory>

namespace
{

/// Lets the application work until `condition` holds, some seconds at most.
template <typename Condition>
bool waitFor(const Condition& condition)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition() && timer.elapsed() < 10000) {
        QApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return condition();
}

void mouse(QWidget& widget, QEvent::Type type, QPointF place, Qt::MouseButton button, Qt::MouseButtons buttons)
{
    QMouseEvent event(type, place, widget.mapToGlobal(place), button, buttons, Qt::NoModifier);
    QApplication::sendEvent(&widget, &event);
}

void drag(QWidget& widget, QPointF from, QPointF to)
{
    mouse(widget, QEvent::MouseButtonPress, from, Qt::LeftButton, Qt::LeftButton);
    mouse(widget, QEvent::MouseMove, to, Qt::NoButton, Qt::LeftButton);
    mouse(widget, QEvent::MouseButtonRelease, to, Qt::LeftButton, Qt::NoButton);
}

/// Pixels that are rather red, rather green and those of the white background.
struct Colours
{
    explicit Colours(const QImage& image)
    {
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                const QRgb pixel = image.pixel(x, y);
                red += qRed(pixel) > 60 && qRed(pixel) > 2 * qGreen(pixel);
                green += qGreen(pixel) > 60 && qGreen(pixel) > 2 * qRed(pixel);
                white += qRed(pixel) == 255 && qGreen(pixel) == 255 && qBlue(pixel) == 255;
            }
        }
    }
    bool showTheRobot() const { return red > 1000 && green > 1000 && white > 10000; }
    int red = 0;
    int green = 0;
    int white = 0;
};

TEST(KrQtRenderWidgetTest, ShowsOrbitsResizesMovesAndCloses)
{
    const KrStatedSystem system(Systems::twoBoxes());
    auto first = std::make_unique<QWidget>();
    auto* const firstLayout = new QVBoxLayout(first.get());
    auto* const widget = new KrQtRenderWidget;
    firstLayout->addWidget(widget);
    widget->show(system);
    first->resize(400, 300);
    first->show();
    ASSERT_TRUE(waitFor([widget] { return widget->numContexts() == 1 && widget->window().systemReady(); }));

    const QImage start = widget->grabFramebuffer();
    EXPECT_EQ(start.width(), qRound(widget->width() * widget->devicePixelRatioF()));
    EXPECT_TRUE(Colours(start).showTheRobot()) << Colours(start).red << " " << Colours(start).green;
    EXPECT_EQ(widget->grabFramebuffer(), start) << "nothing moved";

    drag(*widget, QPointF(100, 100), QPointF(160, 130));
    const QImage turned = widget->grabFramebuffer();
    EXPECT_NE(turned, start);
    EXPECT_TRUE(Colours(turned).showTheRobot());
    QWheelEvent wheel(QPointF(190, 140), widget->mapToGlobal(QPointF(190, 140)), QPoint(), QPoint(0, 120), Qt::NoButton,
                      Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(widget, &wheel);
    EXPECT_LT(Colours(widget->grabFramebuffer()).white, Colours(turned).white) << "nearer is larger";

    first->resize(640, 480);
    ASSERT_TRUE(waitFor([widget] { return widget->width() > 500; }));
    const QImage larger = widget->grabFramebuffer();
    EXPECT_EQ(widget->window().windowWidth(), static_cast<unsigned int>(larger.width()));
    EXPECT_EQ(widget->window().windowHeight(), static_cast<unsigned int>(larger.height()));
    EXPECT_TRUE(Colours(larger).showTheRobot());

    // Another top-level window: another context, the same picture.
    auto second = std::make_unique<QWidget>();
    auto* const secondLayout = new QVBoxLayout(second.get());
    secondLayout->addWidget(widget);
    second->resize(640, 480);
    second->show();
    ASSERT_TRUE(waitFor([widget] { return widget->numContexts() == 2 && widget->window().isInitialized(); }));
    ASSERT_TRUE(waitFor([widget, &larger] { return widget->grabFramebuffer().size() == larger.size(); }));
    const QImage moved = widget->grabFramebuffer();
    EXPECT_EQ(moved, larger);
    if (const char* const file = std::getenv("KR_TEST_PICTURE")) {
        moved.convertToFormat(QImage::Format_RGB888).save(QString::fromLocal8Bit(file));
    }
    first.reset();
    QApplication::processEvents();
    EXPECT_EQ(widget->grabFramebuffer(), moved) << "the old place is gone";
    second->close();
    second.reset();
}

} // namespace

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    KrQtRenderWidget::setFormat();
    const QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
