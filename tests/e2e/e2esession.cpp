#include "tests/e2e/e2esession.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSerialPort>
#include <QThread>
#include <QVector>

#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include <cmath>
#include <unistd.h>

namespace e2e
{

const char kWindowTitle[] = "ORV_KM7318_TOOL_V1.02";

namespace
{

bool isWhite(QRgb c)
{
    return qRed(c) > 240 && qGreen(c) > 240 && qBlue(c) > 240;
}

bool isAxisInk(QRgb c)
{
    // Axis lines: black at alpha 200 on white; grid lines (alpha 100) are lighter.
    return qRed(c) < 110 && qGreen(c) < 110 && qBlue(c) < 110;
}

bool isDiscColour(QRgb c)
{
    return qRed(c) <= 12 && qGreen(c) >= 243 && std::abs(qBlue(c) - 100) <= 12;
}

} // namespace

void Child::stop(int graceMs)
{
    if (process.state() == QProcess::NotRunning)
        return;
    process.terminate();
    if (!process.waitForFinished(graceMs)) {
        process.kill();
        process.waitForFinished(3000);
    }
}

QPointF PlotBox::pixelOf(const QPointF &metres) const
{
    return QPointF(left + (metres.x() + 5.0) / 10.0 * (right - left),
                   bottom - metres.y() / 8.0 * (bottom - top));
}

PlotBox findPlot(const QImage &img, const QRect &window)
{
    // The longest horizontal run of axis ink is the bottom axis (its right
    // end is the plot's right edge); the longest vertical run is the left
    // axis (its top is the plot's top). The bottom run also takes in the y
    // axis's 5-pixel tick at 0, so the left edge comes from the vertical line.
    PlotBox box;
    int best = 0;
    for (int y = window.top(); y <= window.bottom(); ++y) {
        int run = 0;
        for (int x = window.left(); x <= window.right(); ++x) {
            run = isAxisInk(img.pixel(x, y)) ? run + 1 : 0;
            if (run > best) {
                best = run;
                box.bottom = y;
                box.right = x;
            }
        }
    }
    best = 0;
    for (int x = window.left(); x <= window.right(); ++x) {
        int run = 0;
        for (int y = window.top(); y <= window.bottom(); ++y) {
            run = isAxisInk(img.pixel(x, y)) ? run + 1 : 0;
            if (run > best) {
                best = run;
                box.top = y - run + 1;
                box.left = x;
            }
        }
    }
    return box;
}

QList<Blob> findDiscs(const QImage &img, const QRect &window)
{
    QList<Blob> blobs;
    const int w = img.width();
    QVector<char> seen(w * img.height(), 0);
    for (int y = window.top(); y <= window.bottom(); ++y) {
        for (int x = window.left(); x <= window.right(); ++x) {
            if (seen[y * w + x] || !isDiscColour(img.pixel(x, y)))
                continue;
            Blob b;
            QVector<QPoint> stack{QPoint(x, y)};
            seen[y * w + x] = 1;
            while (!stack.isEmpty()) {
                const QPoint p = stack.takeLast();
                b.cx += p.x();
                b.cy += p.y();
                ++b.pixels;
                for (const QPoint d : {QPoint(1, 0), QPoint(-1, 0), QPoint(0, 1), QPoint(0, -1)}) {
                    const QPoint q = p + d;
                    if (!window.contains(q) || seen[q.y() * w + q.x()] ||
                        !isDiscColour(img.pixel(q)))
                        continue;
                    seen[q.y() * w + q.x()] = 1;
                    stack.append(q);
                }
            }
            b.cx /= b.pixels;
            b.cy /= b.pixels;
            if (b.pixels >= 150) // a whole 20-pixel disc is about 300 pixels
                blobs.append(b);
        }
    }
    return blobs;
}

QPoint openButtonCentre(const QImage &img, const QRect &window)
{
    // The settings column's scroll area: its left frame line runs the whole
    // height of the window's content. The open button sits at (80, 92),
    // 61 x 31, in the first group box, which starts one frame pixel and the
    // 11-pixel margin inside the scroll area; the scroll area's top is the
    // 11 + 9 pixels of layout margins below the window's top.
    const int top = window.top() + 25;
    const int bottom = window.top() + std::min(835, window.height() - 30);
    for (int x = window.left() + window.width() / 2; x < window.right(); ++x) {
        int ink = 0;
        for (int y = top; y <= bottom; ++y)
            ink += isWhite(img.pixel(x, y)) ? 0 : 1;
        if (ink >= (bottom - top + 1) * 98 / 100)
            return QPoint(x + 1 + 11 + 80 + 61 / 2, window.top() + 20 + 1 + 11 + 92 + 31 / 2);
    }
    return QPoint();
}

QImage openButtonPicture(const QImage &img, const QRect &window)
{
    const QPoint c = openButtonCentre(img, window);
    if (c.isNull())
        return QImage();
    return img.copy(QRect(c - QPoint(30, 15), QSize(61, 31)));
}

bool discsStandAt(const QImage &img, const QRect &window, const QList<QPointF> &people,
                  QString *why)
{
    const PlotBox plot = findPlot(img, window);
    if (!plot.valid()) {
        *why = QString("plot not found: %1 %2 %3 %4")
                   .arg(plot.left)
                   .arg(plot.top)
                   .arg(plot.right)
                   .arg(plot.bottom);
        return false;
    }
    const QList<Blob> discs = findDiscs(img, window);
    QString where;
    for (const Blob &b : discs)
        where += QString(" (%1,%2)").arg(b.cx, 0, 'f', 1).arg(b.cy, 0, 'f', 1);
    if (discs.size() != people.size()) {
        *why = QString("%1 discs for %2 people:%3").arg(discs.size()).arg(people.size()).arg(where);
        return false;
    }
    for (const QPointF &person : people) {
        const QPointF e = plot.pixelOf(person);
        bool found = false;
        for (const Blob &b : discs)
            found = found || (std::abs(b.cx - e.x()) <= 3.0 && std::abs(b.cy - e.y()) <= 3.0);
        if (!found) {
            *why = QString("no disc at (%1,%2) for (%3,%4); discs:%5")
                       .arg(e.x(), 0, 'f', 1)
                       .arg(e.y(), 0, 'f', 1)
                       .arg(person.x())
                       .arg(person.y())
                       .arg(where);
            return false;
        }
    }
    for (const Blob &b : discs) {
        if (b.pixels < 200 || b.pixels > 420) { // 20-pixel discs
            *why = QString("a disc of %1 pixels").arg(b.pixels);
            return false;
        }
    }
    return true;
}

QStringList standingPeopleArgs(const QList<QPointF> &people)
{
    QStringList args;
    for (const QPointF &p : people)
        args << "--fixed" << QString("%1,%2").arg(p.x()).arg(p.y());
    return args;
}

QPoint baudRateComboCentre(const QImage &img, const QRect &window)
{
    // In the same group box as the open button: the combo at (140, 60), 69 x 22.
    const QPoint button = openButtonCentre(img, window);
    if (button.isNull())
        return button;
    return button + QPoint((140 + 69 / 2) - (80 + 61 / 2), (60 + 22 / 2) - (92 + 31 / 2));
}

QString runOnDisplay(const QString &display, const QString &program, const QStringList &args,
                     int *exitCode)
{
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("DISPLAY", display);
    p.setProcessEnvironment(env);
    p.start(program, args);
    const bool done = p.waitForFinished(15000);
    if (exitCode)
        *exitCode = done && p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    return QString::fromLocal8Bit(p.readAllStandardOutput());
}

QString findToolWindow(const QString &display)
{
    return runOnDisplay(display, "xdotool", {"search", "--name", kWindowTitle})
        .split('\n', Qt::SkipEmptyParts)
        .value(0);
}

QRect windowGeometry(const QString &display, const QString &windowId)
{
    QRect r;
    const QString geometry =
        runOnDisplay(display, "xdotool", {"getwindowgeometry", "--shell", windowId});
    for (const QString &line : geometry.split('\n', Qt::SkipEmptyParts)) {
        const QString key = line.section('=', 0, 0);
        const int value = line.section('=', 1).toInt();
        if (key == "X")
            r.moveLeft(value);
        else if (key == "Y")
            r.moveTop(value);
        else if (key == "WIDTH")
            r.setWidth(value);
        else if (key == "HEIGHT")
            r.setHeight(value);
    }
    return r;
}

bool sendWindowDelete(const QString &display, const QString &windowId)
{
    Display *d = XOpenDisplay(display.toLocal8Bit().constData());
    if (!d)
        return false;
    const Window w = Window(windowId.toULong());
    XEvent e{};
    e.xclient.type = ClientMessage;
    e.xclient.window = w;
    e.xclient.message_type = XInternAtom(d, "WM_PROTOCOLS", False);
    e.xclient.format = 32;
    e.xclient.data.l[0] = long(XInternAtom(d, "WM_DELETE_WINDOW", False));
    e.xclient.data.l[1] = CurrentTime;
    const Status sent = XSendEvent(d, w, False, NoEventMask, &e);
    XFlush(d);
    XCloseDisplay(d);
    return sent != 0;
}

Session::Session() : runDir(std::make_unique<QTemporaryDir>()) {}

Session::~Session()
{
    tool.stop();
    sim.stop();
    xvfb.stop();
}

bool Session::fail(const QString &message)
{
    lastError = message;
    return false;
}

QString Session::runX(const QString &program, const QStringList &args, int *exitCode)
{
    return runOnDisplay(displayName, program, args, exitCode);
}

bool Session::startXvfb()
{
    // Xvfb picks a free display and writes its number on the given descriptor.
    xvfb.process.start("Xvfb", {"-displayfd", "1", "-screen", "0", "1600x1000x24", "-nolisten",
                                "tcp", "-noreset"});
    if (!xvfb.process.waitForStarted(5000))
        return fail("Xvfb did not start (is the xvfb package installed?)");
    QElapsedTimer t;
    t.start();
    while (!xvfb.process.canReadLine() && t.elapsed() < 10000)
        xvfb.process.waitForReadyRead(100);
    const QString number = QString::fromLatin1(xvfb.process.readLine()).trimmed();
    if (number.isEmpty())
        return fail("Xvfb did not report its display");
    displayName = ":" + number;
    return true;
}

bool Session::startSim(const QStringList &args)
{
    sim.process.start(QStringLiteral(RADAR_SIM_BIN), QStringList{"--verbose"} + args);
    if (!sim.process.waitForStarted(5000))
        return fail("radar-sim did not start");
    QElapsedTimer t;
    t.start();
    while (!sim.process.canReadLine() && t.elapsed() < 5000)
        sim.process.waitForReadyRead(100);
    simPort = QString::fromLocal8Bit(sim.process.readLine()).trimmed();
    if (!simPort.startsWith("/dev/"))
        return fail("radar-sim printed no port: " + simPort + " " + QString(simOutput()));
    QSerialPort naming; // the name under which the tool lists the port
    naming.setPortName(simPort);
    portListName = naming.portName();
    return true;
}

bool Session::prepareRunDir(int baudRate, int languageIndex)
{
    if (!runDir->isValid())
        return fail("no temporary run directory");
    const QString binDir = QFileInfo(toolProgram).absolutePath();
    for (const char *name : {"ORV_translate_cn.txt", "ORV_translate_en.txt"})
        if (!QFile::copy(binDir + "/" + name, runDir->filePath(name)))
            return fail(QString("cannot copy %1 from %2").arg(name, binDir));
    QFile ini(runDir->filePath("ORV_conf.ini"));
    if (!ini.open(QIODevice::WriteOnly))
        return fail("cannot write the settings file");
    ini.write(QString("[comm]\nport=%1\nbaudrate=%2\n\n[language]\nindex=%3\n")
                  .arg(portListName)
                  .arg(baudRate)
                  .arg(languageIndex)
                  .toUtf8());
    return true;
}

bool Session::startTool()
{
    toolClock.start();
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("DISPLAY", displayName);
    env.insert("QT_QPA_PLATFORM", "xcb");
    env.insert("ORV_EXTRA_PORTS", simPort);
    tool.process.setProcessEnvironment(env);
    tool.process.setWorkingDirectory(runDir->path());
    // The tool echoes every log line on stderr: keep it out of the test output.
    tool.process.setStandardOutputFile(QProcess::nullDevice());
    tool.process.setStandardErrorFile(toolStderr.isEmpty() ? runDir->filePath("tool-stderr.txt")
                                                           : toolStderr);
    tool.process.start(toolProgram, QStringList());
    if (!tool.process.waitForStarted(5000))
        return fail("orv-tool did not start");
    return true;
}

bool Session::waitForWindow(int timeoutMs)
{
    QElapsedTimer t;
    t.start();
    while (windowId.isEmpty() && t.elapsed() < timeoutMs) {
        windowId = findToolWindow(displayName);
        if (windowId.isEmpty()) {
            if (tool.process.state() == QProcess::NotRunning)
                return fail("orv-tool ended before showing its window:\n" + toolErrorTail());
            QThread::msleep(200);
        }
    }
    if (windowId.isEmpty())
        return fail("the tool's window did not appear");
    window = windowGeometry(windowId);
    if (window.width() <= 0 || window.height() <= 0)
        return fail("no geometry for the window " + windowId);
    windowShown = toolClock.elapsed();
    // First paint: the settings column is on the screen.
    QImage shot;
    t.restart();
    while (t.elapsed() < timeoutMs) {
        if (!screenshot(runDir->filePath("first-paint.png"), &shot))
            return false;
        if (!openButtonCentre(shot, window).isNull())
            return true;
        QThread::msleep(200);
    }
    return fail("the tool's window was not painted");
}

bool Session::screenshot(const QString &path, QImage *image)
{
    int rc = -1;
    runX("import", {"-window", "root", path}, &rc);
    if (rc != 0)
        return fail("import failed for " + path);
    *image = QImage(path);
    if (image->isNull())
        return fail("cannot read the screenshot " + path);
    window = window.intersected(image->rect());
    return true;
}

bool Session::click(const QPoint &p)
{
    int rc = -1;
    runX("xdotool", {"mousemove", QString::number(p.x()), QString::number(p.y()), "click", "1"},
         &rc);
    return rc == 0 || fail("xdotool click failed");
}

bool Session::clickOpenButton(const QString &screenshotPath)
{
    QImage shot;
    if (!screenshot(screenshotPath, &shot))
        return false;
    const QPoint button = openButtonCentre(shot, window);
    if (button.isNull())
        return fail("the settings column was not found on the screen");
    return click(button);
}

bool Session::openLink(const QString &screenshotPath)
{
    if (!clickOpenButton(screenshotPath))
        return false;
    if (!waitForSimOutput("request 6 (ReadArea)", 5000))
        return fail("the module heard no request after the click: " + QString(simErr));
    return true;
}

bool Session::startWithOpenLink(int baudRate, const QStringList &simArgs)
{
    return startXvfb() && startSim(QStringList{"--baud", QString::number(baudRate)} + simArgs) &&
           prepareRunDir(baudRate, 1) && startTool() && waitForWindow() &&
           openLink(runDir->filePath("before-open.png"));
}

bool Session::waitForSimOutput(const QByteArray &text, int timeoutMs)
{
    QElapsedTimer t;
    t.start();
    while (!simErr.contains(text) && t.elapsed() < timeoutMs) {
        sim.process.waitForReadyRead(100);
        simErr += sim.process.readAllStandardError();
    }
    return simErr.contains(text);
}

QString Session::waitForWindowTitled(const QString &title, int timeoutMs)
{
    const QString pattern = "^" + QRegularExpression::escape(title) + "$";
    QElapsedTimer t;
    t.start();
    for (;;) {
        const QString id =
            runX("xdotool", {"search", "--name", pattern}).split('\n', Qt::SkipEmptyParts).value(0);
        if (!id.isEmpty() || t.elapsed() >= timeoutMs)
            return id;
        QThread::msleep(100);
    }
}

bool Session::windowExists(const QString &id)
{
    int rc = -1;
    runX("xdotool", {"getwindowname", id}, &rc);
    return rc == 0;
}

bool Session::typeKeys(const QString &id, const QString &keys)
{
    QStringList args;
    if (!id.isEmpty())
        args << "windowfocus"
             << "--sync" << id;
    args << "key"
         << "--clearmodifiers" << keys.split(' ', Qt::SkipEmptyParts);
    int rc = -1;
    runX("xdotool", args, &rc);
    return rc == 0 || fail("xdotool could not type " + keys);
}

QRect Session::windowGeometry(const QString &id)
{
    return e2e::windowGeometry(displayName, id);
}

bool Session::tripleClick(const QPoint &p)
{
    int rc = -1;
    runX("xdotool",
         {"mousemove", QString::number(p.x()), QString::number(p.y()), "click", "--repeat", "3",
          "--delay", "60", "1"},
         &rc);
    return rc == 0 || fail("xdotool triple click failed");
}

QString Session::primarySelection(int timeoutMs)
{
    Display *d = XOpenDisplay(displayName.toLocal8Bit().constData());
    if (!d)
        return QString();
    // Ask the selection's owner to put its text on a window of our own.
    const Window w = XCreateSimpleWindow(d, DefaultRootWindow(d), 0, 0, 1, 1, 0, 0, 0);
    const Atom selection = XA_PRIMARY;
    const Atom utf8 = XInternAtom(d, "UTF8_STRING", False);
    const Atom property = XInternAtom(d, "ORV_E2E_SELECTION", False);
    XConvertSelection(d, selection, utf8, property, w, CurrentTime);
    XFlush(d);
    QString text;
    QElapsedTimer t;
    t.start();
    while (t.elapsed() < timeoutMs) {
        if (!XPending(d)) {
            QThread::msleep(20);
            continue;
        }
        XEvent e;
        XNextEvent(d, &e);
        if (e.type != SelectionNotify || e.xselection.selection != selection)
            continue;
        if (e.xselection.property != None) {
            Atom type = None;
            int format = 0;
            unsigned long items = 0;
            unsigned long rest = 0;
            unsigned char *data = nullptr;
            if (XGetWindowProperty(d, w, property, 0, 1 << 20, True, AnyPropertyType, &type,
                                   &format, &items, &rest, &data) == Success &&
                data) {
                if (format == 8)
                    text = QString::fromUtf8(reinterpret_cast<const char *>(data), int(items));
                XFree(data);
            }
        }
        break;
    }
    XDestroyWindow(d, w);
    XCloseDisplay(d);
    return text;
}

bool Session::closeWindow(int timeoutMs)
{
    if (!sendWindowDelete(displayName, windowId))
        return fail("WM_DELETE_WINDOW could not be sent to " + displayName);
    if (!tool.process.waitForFinished(timeoutMs) && tool.process.state() != QProcess::NotRunning)
        return fail("the tool did not exit after its window was closed");
    return true;
}

QByteArray Session::simOutput()
{
    sim.process.waitForReadyRead(10);
    simErr += sim.process.readAllStandardError();
    return simErr;
}

bool Session::stopSim()
{
    sim.process.terminate();
    if (!sim.process.waitForFinished(5000))
        return fail("radar-sim did not stop on SIGTERM");
    simErr += sim.process.readAllStandardError();
    return true;
}

double Session::toolCpuSeconds() const
{
    QFile f(QString("/proc/%1/stat").arg(toolPid()));
    if (!f.open(QIODevice::ReadOnly))
        return -1.0;
    const QByteArray text = f.readAll();
    // Fields after the command name (which is in parentheses).
    const QList<QByteArray> fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
    const double ticks = double(::sysconf(_SC_CLK_TCK));
    return (fields.value(11).toDouble() + fields.value(12).toDouble()) / ticks;
}

qint64 Session::toolResidentKb() const
{
    QFile f(QString("/proc/%1/status").arg(toolPid()));
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : f.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLongLong();
    return -1;
}

QString Session::toolErrorText() const
{
    QFile f(runDir->filePath("tool-stderr.txt"));
    if (!f.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromUtf8(f.readAll());
}

QString Session::toolErrorTail(int lines) const
{
    QFile f(runDir->filePath("tool-stderr.txt"));
    if (!f.open(QIODevice::ReadOnly))
        return QString();
    if (f.size() > 20000)
        f.seek(f.size() - 20000);
    const QStringList all = QString::fromUtf8(f.readAll()).split('\n');
    return all.mid(std::max(0, int(all.size()) - lines)).join('\n');
}

} // namespace e2e
