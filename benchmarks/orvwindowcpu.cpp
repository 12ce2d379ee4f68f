// orv-window-cpu: CPU time of the real tool in a real (virtual) X window
// while it draws a live radar-sim stream. Each tool gets its own Xvfb,
// radar-sim (--rate, --targets, fixed seed) and run directory; the link is
// opened by clicking the open button through the X server; after a warm-up
// the tool's user+system CPU time (/proc/<pid>/stat) is read at the start
// and end of each measuring window. Given a second orv-tool binary
// (--compare), both run at the same time and are measured over the same
// windows, so machine load affects both alike.
//
// At the end it checks that each tool kept up: the mouse is moved over the
// plot a few times and the crosshair must follow within --mouse-wait ms,
// the simulator's count of reports it had to skip because the line was
// still full is read, and the target reports decoded (the tool's log) are
// compared with the ones sent.

#include "tests/e2e/e2esession.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QThread>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

namespace
{

bool isCrosshairRed(QRgb c)
{
    return qRed(c) > 200 && qGreen(c) < 60 && qBlue(c) < 60;
}

struct Run {
    QString label;
    QString program;
    std::unique_ptr<e2e::Session> session;
    double startupMs = 0;
    std::vector<double> percent; // per window, % of one core
    qint64 rssKb = 0;
    int mouseFollowed = 0;
    int mouseTried = 0;
    qint64 sentReports = -1;
    qint64 skippedTicks = -1;
    qint64 decodedReports = -1;
};

QString range(std::vector<double> v, double scale, int decimals)
{
    if (v.empty())
        return "-";
    std::sort(v.begin(), v.end());
    const double median =
        v.size() % 2 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
    return QString("%1 (%2-%3)")
        .arg(median * scale, 0, 'f', decimals)
        .arg(v.front() * scale, 0, 'f', decimals)
        .arg(v.back() * scale, 0, 'f', decimals);
}

// Target reports the tool decoded, from its log files ("function code:7").
qint64 decodedTargetReports(const QString &runDir)
{
    qint64 n = 0;
    QDirIterator it(runDir + "/log", {"logfile_*.txt"}, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        QFile f(it.next());
        if (!f.open(QIODevice::ReadOnly))
            continue;
        while (!f.atEnd())
            if (f.readLine().contains("] function code:7"))
                ++n;
    }
    return n;
}

bool start(Run &run, const QStringList &simArgs)
{
    run.session = std::make_unique<e2e::Session>();
    e2e::Session &s = *run.session;
    s.setToolProgram(run.program);
    s.setToolStderr(QProcess::nullDevice());
    if (!s.startWithOpenLink(115200, simArgs))
        return false;
    run.startupMs = double(s.windowShownMs());
    return true;
}

// Moves the mouse to a few points of the plot; the crosshair's vertical line
// must be on the screen at that column after waitMs.
void checkMouse(Run &run, int waitMs)
{
    e2e::Session &s = *run.session;
    QImage shot;
    if (!s.screenshot(s.runDirectory() + "/plot.png", &shot))
        return;
    const e2e::PlotBox plot = e2e::findPlot(shot, s.windowRect());
    if (!plot.valid())
        return;
    const QPointF points[] = {{-3.7, 1.3}, {2.2, 6.6}, {0.4, 3.1}, {-1.1, 5.4}, {4.1, 2.2}};
    for (const QPointF &m : points) {
        const QPoint p = plot.pixelOf(m).toPoint();
        ++run.mouseTried;
        QProcess move;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("DISPLAY", s.display());
        move.setProcessEnvironment(env);
        move.start("xdotool", {"mousemove", QString::number(p.x()), QString::number(p.y())});
        move.waitForFinished(5000);
        QThread::msleep(waitMs);
        if (!s.screenshot(s.runDirectory() + "/mouse.png", &shot))
            continue;
        // The vertical line at the mouse's column, well away from the mouse.
        int red = 0;
        for (int y = plot.top + 2; y < plot.bottom - 2; ++y)
            red += isCrosshairRed(shot.pixel(p.x(), y)) ? 1 : 0;
        if (red > (plot.bottom - plot.top) / 2)
            ++run.mouseFollowed;
    }
}

void finish(Run &run)
{
    e2e::Session &s = *run.session;
    s.stopSim();
    const QRegularExpression sentLine("sent (\\d+) target report\\(s\\), (\\d+) area report\\(s\\)"
                                      ", (\\d+) answer\\(s\\); (\\d+) tick\\(s\\) skipped");
    const QRegularExpressionMatch m = sentLine.match(QString::fromLocal8Bit(s.simOutput()));
    if (m.hasMatch()) {
        run.sentReports = m.captured(1).toLongLong();
        run.skippedTicks = m.captured(4).toLongLong();
    }
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName("orv-window-cpu");
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "CPU time of orv-tool per report period, in a real window under Xvfb against radar-sim.\n"
        "With --compare, a second orv-tool build runs at the same time and is measured over the\n"
        "same windows. The tools' standard error goes to /dev/null; debug output stays on\n"
        "unless --no-debug is given. Each orv-tool needs its translation files beside it, as\n"
        "the build puts them. Needs Xvfb, xdotool and ImageMagick's import.\n"
        "Exit codes: 0 measured, 1 a tool or its session could not be set up or ended early,\n"
        "2 bad command line.");
    parser.addHelpOption();
    const QCommandLineOption rateOpt("rate", "Reports per second (radar-sim --rate; default 10).",
                                     "hz", "10");
    const QCommandLineOption targetsOpt("targets", "People (radar-sim --targets; default 3).", "n",
                                        "3");
    const QCommandLineOption warmOpt(
        "warmup", "Seconds after opening before measuring (default 5).", "s", "5");
    const QCommandLineOption windowOpt("window", "Seconds per measuring window (default 10).", "s",
                                       "10");
    const QCommandLineOption roundsOpt("rounds", "Measuring windows (default 3).", "n", "3");
    const QCommandLineOption toolOpt("tool", "orv-tool to measure (default: this build's).", "path",
                                     QStringLiteral(ORV_TOOL_BIN));
    const QCommandLineOption compareOpt("compare", "A second orv-tool to measure beside it.",
                                        "path");
    const QCommandLineOption noDebugOpt(
        "no-debug", "Start the tools with QT_LOGGING_RULES=default.debug=false.");
    const QCommandLineOption mouseOpt(
        "mouse-wait", "Milliseconds the crosshair may take to follow the mouse (default 200).",
        "ms", "200");
    parser.addOptions({rateOpt, targetsOpt, warmOpt, windowOpt, roundsOpt, toolOpt, compareOpt,
                       noDebugOpt, mouseOpt});
    parser.process(app);

    bool ok = true;
    const double rate = parser.value(rateOpt).toDouble(&ok);
    bool okTargets = false, okWarm = false, okWindow = false, okRounds = false, okMouse = false;
    const int targets = parser.value(targetsOpt).toInt(&okTargets);
    const int warmup = parser.value(warmOpt).toInt(&okWarm);
    const int window = parser.value(windowOpt).toInt(&okWindow);
    const int rounds = parser.value(roundsOpt).toInt(&okRounds);
    const int mouseWait = parser.value(mouseOpt).toInt(&okMouse);
    if (!ok || rate <= 0 || !okTargets || targets < 0 || !okWarm || warmup < 0 || !okWindow ||
        window < 1 || !okRounds || rounds < 1 || !okMouse || mouseWait < 0) {
        std::fprintf(stderr, "orv-window-cpu: bad option value (see --help)\n");
        return 2;
    }

    if (parser.isSet(noDebugOpt))
        qputenv("QT_LOGGING_RULES", "default.debug=false");
    else
        qunsetenv("QT_LOGGING_RULES");

    std::vector<Run> runs;
    auto addRun = [&runs](const QString &label, const QString &program) {
        runs.emplace_back();
        runs.back().label = label;
        runs.back().program = QFileInfo(program).absoluteFilePath();
    };
    addRun("tool", parser.value(toolOpt));
    if (parser.isSet(compareOpt))
        addRun("compare", parser.value(compareOpt));
    for (const Run &r : runs) {
        if (!QFileInfo(r.program).isExecutable()) {
            std::fprintf(stderr, "orv-window-cpu: %s is not an executable\n",
                         qPrintable(r.program));
            return 2;
        }
    }

    const QStringList simArgs{
        "--rate", parser.value(rateOpt), "--targets", QString::number(targets), "--seed", "1"};
    std::printf("orv-window-cpu: %g reports/s, %d people, debug output %s, warm-up %d s, "
                "%d window(s) of %d s\n",
                rate, targets, parser.isSet(noDebugOpt) ? "off" : "on", warmup, rounds, window);
    for (Run &r : runs) {
        std::printf("  %-8s %s\n", qPrintable(r.label), qPrintable(r.program));
        if (!start(r, simArgs)) {
            std::fprintf(stderr, "orv-window-cpu: %s: %s\n", qPrintable(r.label),
                         qPrintable(r.session->error()));
            return 1;
        }
    }
    std::fflush(stdout);
    QThread::sleep(unsigned(warmup));

    for (int round = 0; round < rounds; ++round) {
        std::vector<double> before;
        for (Run &r : runs)
            before.push_back(r.session->toolCpuSeconds());
        QElapsedTimer t;
        t.start();
        QThread::sleep(unsigned(window));
        const double seconds = t.elapsed() / 1000.0;
        std::printf("  window %d:", round + 1);
        for (size_t k = 0; k < runs.size(); ++k) {
            Run &r = runs[k];
            if (r.session->toolProcess().state() == QProcess::NotRunning) {
                std::fprintf(stderr, "\norv-window-cpu: %s ended during the run\n",
                             qPrintable(r.label));
                return 1;
            }
            const double used = r.session->toolCpuSeconds() - before[k];
            r.percent.push_back(100.0 * used / seconds);
            std::printf("  %s %.2f %% (%.3f ms per report)", qPrintable(r.label), r.percent.back(),
                        10.0 * r.percent.back() / rate);
        }
        std::printf("\n");
        std::fflush(stdout);
    }

    for (Run &r : runs) {
        r.rssKb = r.session->toolResidentKb();
        checkMouse(r, mouseWait);
    }
    for (Run &r : runs)
        finish(r);
    // The logger writes its batches every 5 s; with the stream stopped the
    // rest reaches the files at its next check.
    QThread::sleep(7);
    for (Run &r : runs)
        r.decodedReports = decodedTargetReports(r.session->runDirectory());

    std::printf("\nresults (median and range over the windows)\n");
    for (const Run &r : runs) {
        std::printf("  %s: %s %% of one core; %s ms CPU per report period\n", qPrintable(r.label),
                    qPrintable(range(r.percent, 1.0, 2)),
                    qPrintable(range(r.percent, 10.0 / rate, 3)));
        std::printf("    window shown %.0f ms after start; VmRSS %lld kB\n", r.startupMs, r.rssKb);
        std::printf("    crosshair followed the mouse within %d ms: %d of %d\n", mouseWait,
                    r.mouseFollowed, r.mouseTried);
        std::printf("    target reports sent %lld, decoded %lld; ticks skipped (line full) %lld\n",
                    r.sentReports, r.decodedReports, r.skippedTicks);
    }
    for (Run &r : runs)
        r.session->closeWindow();
    return 0;
}
