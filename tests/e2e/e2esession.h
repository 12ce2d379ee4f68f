#pragma once

// One session of the real program on a virtual X server against radar-sim:
// start Xvfb, the simulator and orv-tool in a fresh run directory, find the
// window, click through the X server, photograph the screen, read the tool's
// CPU time and memory, and close the window as a window manager would. Shared
// by the end-to-end tests, the soak run and the window CPU benchmark.

#include <QElapsedTimer>
#include <QImage>
#include <QList>
#include <QPoint>
#include <QProcess>
#include <QRect>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>

#ifndef ORV_TOOL_BIN
#error "ORV_TOOL_BIN must name the orv-tool executable"
#endif
#ifndef RADAR_SIM_BIN
#error "RADAR_SIM_BIN must name the radar-sim executable"
#endif

namespace e2e
{

extern const char kWindowTitle[];

// A started program that is always stopped when the object goes.
struct Child {
    QProcess process;
    ~Child() { stop(); }
    void stop(int graceMs = 3000);
};

// The plot's edges in screen pixels, found from its axis lines.
struct PlotBox {
    int left = 0, right = 0, top = 0, bottom = 0;
    bool valid() const { return right - left > 200 && bottom - top > 200; }
    // Screen pixel of a plane point with the default ranges x -5..5, y 0..8.
    QPointF pixelOf(const QPointF &metres) const;
};

struct Blob {
    double cx = 0, cy = 0;
    int pixels = 0;
};

// Image analysis on a screenshot, inside the window's rectangle.
PlotBox findPlot(const QImage &img, const QRect &window);
QList<Blob> findDiscs(const QImage &img, const QRect &window); // target colour 0,255,100
QPoint openButtonCentre(const QImage &img, const QRect &window);
// The open button's pixels (61 x 31 around its centre); null when not found.
QImage openButtonPicture(const QImage &img, const QRect &window);
// True when the screenshot shows exactly one disc for each person (metres) at
// the pixel the plot gives its point, each disc of a 20-pixel disc's size;
// otherwise false, with what was found in `why`.
bool discsStandAt(const QImage &img, const QRect &window, const QList<QPointF> &people,
                  QString *why);
// radar-sim's arguments for people standing still at these points.
QStringList standingPeopleArgs(const QList<QPointF> &people);
QPoint baudRateComboCentre(const QImage &img, const QRect &window);

// X helpers for windows that a session did not start itself.
// Runs an X client program on the display; its standard output.
QString runOnDisplay(const QString &display, const QString &program, const QStringList &args,
                     int *exitCode = nullptr);
// The id of the tool's window (by its title), empty while there is none.
QString findToolWindow(const QString &display);
// The window's rectangle on the screen (empty when xdotool knows no such window).
QRect windowGeometry(const QString &display, const QString &windowId);
// WM_DELETE_WINDOW to the window, as a window manager sends it on close.
bool sendWindowDelete(const QString &display, const QString &windowId);

class Session
{
public:
    Session();
    ~Session();

    // Every step returns false and sets error() when it fails.
    bool startXvfb();
    bool startSim(const QStringList &args);
    // Translation files and a settings file choosing the sim's port.
    bool prepareRunDir(int baudRate, int languageIndex);
    bool startTool();
    // Another orv-tool build to start instead of this one (before startTool;
    // prepareRunDir copies the translation files from beside it).
    void setToolProgram(const QString &path) { toolProgram = path; }
    // Where the tool's stderr goes (before startTool); by default a file in
    // the run directory, read by toolErrorTail().
    void setToolStderr(const QString &path) { toolStderr = path; }
    bool waitForWindow(int timeoutMs = 20000);
    // Milliseconds from startTool until waitForWindow found the window (before
    // its wait for the first paint); -1 until then.
    qint64 windowShownMs() const { return windowShown; }
    bool screenshot(const QString &path, QImage *image);
    bool click(const QPoint &p);
    // Screenshot, find the open button, click it.
    bool clickOpenButton(const QString &screenshotPath);
    // clickOpenButton, then wait for the module to hear the tool's first
    // request (read areas).
    bool openLink(const QString &screenshotPath);
    // All of the above in a row, for a run that just needs the tool with an
    // open link: Xvfb, the simulator at baudRate with simArgs, a run directory
    // with that rate and language 1, the tool and its window, the link opened
    // (the screenshot before the click is before-open.png in the run directory).
    bool startWithOpenLink(int baudRate, const QStringList &simArgs);
    // The id of a top-level window with exactly this title, once it exists;
    // empty when none appeared in time.
    QString waitForWindowTitled(const QString &title, int timeoutMs);
    bool windowExists(const QString &id);
    // The window's rectangle on the screen; empty when it is not known.
    QRect windowGeometry(const QString &id);
    // Gives the window the keyboard focus and types the keys (xdotool names
    // separated by spaces, such as "Up Return"); with an empty id the keys go
    // where the keyboard is now (an open list, say).
    bool typeKeys(const QString &id, const QString &keys);
    // Three clicks in a row: selects the paragraph under the mouse in a text
    // that can be selected, which puts it on the X primary selection.
    bool tripleClick(const QPoint &p);
    // The text of the X primary selection (UTF-8), empty when there is none.
    QString primarySelection(int timeoutMs = 3000);
    // Waits until the simulator's stderr holds this text; false when it did not in time.
    bool waitForSimOutput(const QByteArray &text, int timeoutMs);
    // WM_DELETE_WINDOW to the tool's window; then waits for the tool to end.
    bool closeWindow(int timeoutMs = 10000);
    // The simulator's stderr so far (it runs with --verbose).
    QByteArray simOutput();
    // Stops the simulator (SIGTERM: it prints its figures and exits 0).
    bool stopSim();

    QString error() const { return lastError; }
    QString display() const { return displayName; }
    QString ptyPath() const { return simPort; }
    QString listedPortName() const { return portListName; }
    QString runDirectory() const { return runDir->path(); }
    QRect windowRect() const { return window; }
    qint64 toolPid() const { return tool.process.processId(); }
    // The tool's user + system CPU seconds so far (from /proc); -1 when they
    // cannot be read.
    double toolCpuSeconds() const;
    // The tool's resident memory (VmRSS) in kB; -1 when it cannot be read.
    qint64 toolResidentKb() const;
    QProcess &toolProcess() { return tool.process; }
    QProcess &simProcess() { return sim.process; }
    // Last lines the tool wrote on standard error (kept in the run directory).
    QString toolErrorTail(int lines = 20) const;
    // Everything the tool wrote on standard error so far.
    QString toolErrorText() const;

private:
    bool fail(const QString &message);
    QString runX(const QString &program, const QStringList &args, int *exitCode = nullptr);

    Child xvfb;
    Child sim;
    Child tool;
    std::unique_ptr<QTemporaryDir> runDir;
    QString displayName;
    QString simPort;
    QString portListName;
    QString windowId;
    QRect window;
    QByteArray simErr;
    QString lastError;
    QString toolProgram = QStringLiteral(ORV_TOOL_BIN);
    QString toolStderr;
    QElapsedTimer toolClock;
    qint64 windowShown = -1;
};

} // namespace e2e
