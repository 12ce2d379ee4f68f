#pragma once

// What the fuzz targets that drive the real window share: an offscreen
// application, a private working directory holding the translation files,
// silent message output, message boxes that close themselves, and a paint of
// the plot into an image.

#include <QByteArray>
#include <QDir>
#include <QFileInfo>
#include <QString>

#include <memory>

class MainWindow;
class QWidget;
class XYView;

namespace fuzzwindow
{

// A QTemporaryDir pattern in memory (/dev/shm) where the system has such a
// folder, else in the usual temporary folder.
inline QString fastTemporaryPattern()
{
    const QFileInfo shm(QStringLiteral("/dev/shm"));
    const QString base = shm.isDir() && shm.isWritable() ? shm.filePath() : QDir::tempPath();
    return base + QStringLiteral("/orv-fuzz-XXXXXX");
}

// Once per process: the offscreen QApplication, the working directory (made
// current), silent Qt messages, the diagnostic log kept from the disk, and
// the box closer. Returns the directory's path.
QString setUpProcess();

// A new shown window (the settings file of the working directory is read as
// the tool reads it).
std::unique_ptr<MainWindow> makeWindow();

XYView *plotOf(MainWindow *window);

// Paints the plot as a paint event would, into an image kept between calls.
void paintPlot(XYView *view);

// Paints what the window has asked to repaint since the last paint, as the
// event loop would: the pending update request of its top-level window is
// delivered, so the widgets paint their dirty regions into the backing store
// (a part of the plot takes its partial paint path).
void paintUpdates(QWidget *window);

// Runs what the event loop has waiting (deferred deletes, queued calls) every
// `every` calls.
void settleEvents(int every);

} // namespace fuzzwindow
