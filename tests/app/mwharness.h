#pragma once

// Shared pieces of the main-window tests: a pseudo-terminal that plays the
// radar module, a run directory with the translation files, an answerer for
// message boxes, and captures of the debug output and the diagnostic log.

#include <QByteArray>
#include <QList>
#include <QMessageBox>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QTimer>

#include <memory>

#include "app/mainwindow.h"
#include "tests/support/ptymaster.h"
#include "view/xyview.h"
class QWidget;

namespace mw
{

// The master side of a pseudo-terminal in raw, non-blocking mode. The tool
// opens the slave side through its real serial port.
class PtyModule
{
public:
    PtyModule();

    bool isOpen() const { return pty.isOpen(); }
    QString slavePath() const { return pty.path(); }
    // The name the port list shows for it ("pts/N").
    QString portName() const;

    void send(const QByteArray &bytes);
    // Processes events for ms milliseconds and returns what arrived.
    QByteArray collect(int ms);
    // Processes events until `count` complete frames have arrived (or the
    // time is up) and returns the complete frames received so far.
    QList<QByteArray> waitForFrames(int count, int timeoutMs = 3000);
    // Drops whatever is queued.
    void drain(int ms = 50);
    void closeMaster() { pty.closeMaster(); }

private:
    void readAvailable();

    PtyMaster pty; // holds the slave open too: no hang-up between the tool's opens
    QByteArray received;
};

// Splits complete frames (FF EE DD, big-endian length, ... , DD EE FF) off the
// front of buffer; bytes before a header are dropped.
QList<QByteArray> takeFrames(QByteArray &buffer);
// "FF EE DD 00" -> bytes.
QByteArray hexBytes(const char *text);
QString hexText(const QByteArray &bytes);
QStringList hexTexts(const QList<QByteArray> &frames);

// A message box seen by the answerer.
struct BoxSeen {
    QString title;
    QString text;
    QMessageBox::StandardButtons buttons;
    QMessageBox::StandardButton defaultButton = QMessageBox::NoButton;
};

// Answers every application-modal message box from a timer: with the queued
// button when there is one, otherwise with its escape button.
class BoxAnswerer
{
public:
    BoxAnswerer();
    void answerNext(QMessageBox::StandardButton button) { queue.append(button); }
    QList<BoxSeen> seen;

private:
    void poll();
    QTimer timer;
    QList<QMessageBox::StandardButton> queue;
};

// Qt debug/warning output of the whole process, kept for inspection.
void installDebugCapture();
QStringList debugMessages();
void clearDebugMessages();
int countDebug(const QString &fragment);
int countDebugStartingWith(const QString &prefix);

// Diagnostic log lines written through Logger::instance().
void installLogCapture();
QStringList logLines();
void clearLogLines();

// The text of a number as the delivered translation file has it
// (0 Chinese, 1 English), read independently of the tool.
QString expectedText(int language, int number);

// A fresh working directory below root, made current; with or without the
// two translation files. Settings lines (INI text) are written when given.
QString enterRunDir(QTemporaryDir &root, bool withTranslations, const QByteArray &settings = {});
// The settings file as the tool has written it so far (pending writes of the
// process are flushed first).
QString settingsValue(const QString &key);
QByteArray settingsFileText();

// Finds a child widget by object name.
template <class T> T *child(QWidget *parent, const char *name)
{
    return parent ? parent->findChild<T *>(QString::fromLatin1(name)) : nullptr;
}

// Constructs and shows the window with the pseudo-terminal listed as a port
// and selected in the port combo box.
std::unique_ptr<MainWindow> makeWindow(PtyModule *module, bool show = true);

// Selects the module's port and baud rate and presses the open button; true
// when the link is up and the read-areas request arrived.
bool openLink(MainWindow *window, PtyModule &module, const QString &baud = "9600");

// What each test case of a window test sets up and takes down: a run
// directory with the translation files, the module on a pseudo-terminal, the
// message-box answerer and the shown window. Test classes derive from it
// (after QObject) and call it from their initTestCase, init and cleanup.
class WindowFixture
{
protected:
    // initTestCase(): captures of the debug output and the log.
    void setUpCase();
    // init(): a fresh run directory, module, answerer and window.
    void setUpWindow();
    // cleanup(): closes the window, which must close the link, then drops the
    // answerer and the module.
    void tearDownWindow();

    template <class T> T *w(const char *name) { return child<T>(window.get(), name); }
    XYView *view() { return w<XYView>("widget_XY"); }

    QTemporaryDir root;
    std::unique_ptr<PtyModule> module;
    std::unique_ptr<BoxAnswerer> boxes;
    std::unique_ptr<MainWindow> window;
};

// A 40-byte area report (code 6) from three (type, x1, y1, x2, y2) records
// in decimetres.
struct AreaWire {
    int type;
    int x1, y1, x2, y2;
};
QByteArray areaReportFrame(const AreaWire &a0, const AreaWire &a1, const AreaWire &a2);

} // namespace mw
