// Shows a robot description in a Qt window:  qt_viewer ROBOT [--screenshot PICTURE]
#include "KrQtRenderWidget.h"

#include <import/KrRobotImporter.h>

#include <QApplication>
#include <QTimer>

#include <cstdio>
#include <cstring>

int main(int argc, char** argv)
{
    // Before the application is made, as Qt asks.
    KrQtRenderWidget::setFormat();
    const QApplication application(argc, argv);
    const bool wantsPicture = argc == 4 && std::strcmp(argv[2], "--screenshot") == 0;
    if (argc != 2 && !wantsPicture) {
        std::fprintf(stderr, "usage: %s ROBOT [--screenshot PICTURE]\n", argv[0]);
        return 2;
    }
    KrStatedSystem system;
    KrImportReport report;
    const bool isRead = KrRobotImporter::readFile(argv[1], KrImportOptions(), system, report);
    std::printf("%s", report.text().c_str());
    if (!isRead) {
        return 1;
    }

    // Behind the system, which it borrows, so that it goes first.
    KrQtRenderWidget widget;
    widget.resize(800, 600);
    widget.setWindowTitle(QString::fromLocal8Bit(argv[1]));
    widget.show(system);
    widget.show();
    if (wantsPicture) {
        const QString file = QString::fromLocal8Bit(argv[3]);
        // A moment later, when the first frames have been shown.
        QTimer::singleShot(300, &widget, [&widget, file] {
            QApplication::exit(widget.grabFramebuffer().convertToFormat(QImage::Format_RGB888).save(file) ? 0 : 1);
        });
    }
    return QApplication::exec();
}
