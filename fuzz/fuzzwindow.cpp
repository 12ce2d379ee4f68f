#include "fuzz/fuzzwindow.h"

#include "app/mainwindow.h"
#include "view/xyview.h"

#include <QApplication>
#include <QDialog>
#include <QDir>
#include <QEvent>
#include <QFile>
#include <QMetaObject>
#include <QPainter>
#include <QTemporaryDir>

#ifndef ORV_TRANSLATION_DIR
#error "ORV_TRANSLATION_DIR must name the folder of the translation files"
#endif

namespace fuzzwindow
{
namespace
{

void quiet(QtMsgType, const QMessageLogContext &, const QString &) {}

// Every dialog (the window's message boxes) is answered as soon as its own
// event loop runs: a slot that opens one returns at once, as if the operator
// had dismissed it, and the window's code stays as it is.
class BoxCloser : public QObject
{
protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Show) {
            if (auto *dialog = qobject_cast<QDialog *>(watched))
                QMetaObject::invokeMethod(dialog, "done", Qt::QueuedConnection, Q_ARG(int, 0));
        }
        return false;
    }
};

} // namespace

QString setUpProcess()
{
    static int argc = 1;
    static char name[] = "fuzz";
    static char *argv[] = {name, nullptr};
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    qInstallMessageHandler(&quiet);

    // Kept for the life of the process, like the application. In memory
    // where the system has such a folder: the settings file is written and
    // synced to disk for nearly every input.
    static QTemporaryDir *dir = new QTemporaryDir(fastTemporaryPattern());
    QDir::setCurrent(dir->path());
    for (const char *file : {"ORV_translate_cn.txt", "ORV_translate_en.txt"})
        QFile::copy(QStringLiteral(ORV_TRANSLATION_DIR "/") + file, dir->filePath(file));
    // A file where the log's folder would be: the logger cannot open its
    // files and drops its lines instead of filling the disk over millions of
    // inputs (it still formats and queues every line).
    QFile blocker(dir->filePath("log"));
    blocker.open(QIODevice::WriteOnly);

    static QApplication *app = new QApplication(argc, argv);
    app->installEventFilter(new BoxCloser);
    return dir->path();
}

std::unique_ptr<MainWindow> makeWindow()
{
    std::unique_ptr<MainWindow> window(new MainWindow);
    window->show();
    QCoreApplication::processEvents();
    return window;
}

XYView *plotOf(MainWindow *window)
{
    return window->findChild<XYView *>(QStringLiteral("widget_XY"));
}

void paintPlot(XYView *view)
{
    static QImage image;
    if (image.size() != view->size())
        image = QImage(view->size(), QImage::Format_ARGB32_Premultiplied);
    view->render(&image);
}

void paintUpdates(QWidget *window)
{
    QCoreApplication::sendPostedEvents(window, QEvent::UpdateRequest);
}

void settleEvents(int every)
{
    static int calls = 0;
    if (++calls % every != 0)
        return;
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCoreApplication::processEvents();
}

} // namespace fuzzwindow
