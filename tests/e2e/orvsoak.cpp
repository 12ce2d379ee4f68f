// orv-soak: the real tool under Xvfb against radar-sim at 100 Hz with 16
// walking people for a given time. Samples the tool's resident memory
// (VmRSS) every few seconds and checks that after the warm-up it grows by
// no more than 5 MiB, that nothing crashes (the tool still draws, closes
// with exit code 0), and that the log rotates at 5 MiB once it is that big.
// Prints the figures. Exit code 0 when every check holds.

#include "tests/e2e/e2esession.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QThread>

#include <cstdio>

namespace
{

constexpr qint64 kRotateBytes = 5242880; // 5 MiB
constexpr qint64 kMaxGrowthKb = 5 * 1024;

struct Sample {
    double atS = 0;
    qint64 rssKb = 0;
};

int usage()
{
    std::fprintf(stderr, "usage: orv-soak [--seconds N] [--keep]\n"
                         "  --seconds N  length of the run (default 600)\n"
                         "  --keep       keep the run directory (settings, log/) and print it\n");
    return 2;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    int seconds = 600;
    bool keep = false;
    const QStringList args = app.arguments().mid(1);
    for (int i = 0; i < args.size(); ++i) {
        if (args.at(i) == "--seconds" && i + 1 < args.size()) {
            bool ok = false;
            seconds = args.at(++i).toInt(&ok);
            if (!ok || seconds < 10)
                return usage();
        } else if (args.at(i) == "--keep") {
            keep = true;
        } else {
            return usage();
        }
    }
    // Memory is judged after the warm-up: the first minute of a long run,
    // the first 20 s of a one-minute run.
    const int warmUp = seconds >= 180 ? 60 : seconds / 3;
    const int every = seconds >= 180 ? 5 : 2;

    QStringList failures;
    auto check = [&failures](bool ok, const QString &what) {
        if (!ok)
            failures << what;
        return ok;
    };

    e2e::Session s;
    std::printf("orv-soak: %d s, radar-sim at 100 Hz with 16 targets\n", seconds);
    std::fflush(stdout);
    if (!s.startWithOpenLink(115200, {"--rate", "100", "--targets", "16", "--seed", "1"})) {
        std::fprintf(stderr, "orv-soak: %s\n", qPrintable(s.error()));
        return 1;
    }
    const qint64 pid = s.toolPid();
    std::printf("orv-tool pid %lld on display %s, module on %s\n", pid, qPrintable(s.display()),
                qPrintable(s.ptyPath()));

    QList<Sample> samples;
    QElapsedTimer clock;
    clock.start();
    const double cpuAtStart = s.toolCpuSeconds();
    bool alive = true;
    for (int next = 0; next <= seconds; next += every) {
        while (clock.elapsed() < qint64(next) * 1000)
            QThread::msleep(50);
        if (s.toolProcess().state() == QProcess::NotRunning ||
            s.simProcess().state() == QProcess::NotRunning) {
            alive = false;
            break;
        }
        const Sample sample{clock.elapsed() / 1000.0, s.toolResidentKb()};
        samples.append(sample);
        std::printf("  t=%6.1f s  VmRSS %7lld kB\n", sample.atS, sample.rssKb);
        std::fflush(stdout);
    }
    const double cpuUsed = s.toolCpuSeconds() - cpuAtStart;
    const double ranFor = clock.elapsed() / 1000.0;
    check(alive, "orv-tool or radar-sim ended during the run:\n" + s.toolErrorTail());
    if (!alive) {
        std::fprintf(stderr, "orv-soak: FAILED: %s\n", qPrintable(failures.join("\n")));
        return 1;
    }

    // Still drawing at the end.
    QImage shot;
    int discs = 0;
    if (check(s.screenshot(s.runDirectory() + "/end.png", &shot), s.error()))
        discs = e2e::findDiscs(shot, s.windowRect()).size();
    check(discs >= 1, "no target disc on the screen at the end");

    // Close as an operator does; the tool must end cleanly.
    const bool closed = s.closeWindow();
    check(closed, s.error());
    check(closed && s.toolProcess().exitStatus() == QProcess::NormalExit &&
              s.toolProcess().exitCode() == 0,
          QString("orv-tool exit code %1").arg(s.toolProcess().exitCode()));
    s.stopSim();
    const QRegularExpression sentLine("sent (\\d+) target report\\(s\\), (\\d+) area report\\(s\\)"
                                      ", (\\d+) answer\\(s\\); (\\d+) tick\\(s\\) skipped");
    const QRegularExpressionMatch sent = sentLine.match(QString::fromLocal8Bit(s.simOutput()));

    // Memory after the warm-up.
    qint64 base = -1, peak = 0, low = 0, last = 0;
    for (const Sample &x : samples) {
        if (x.atS + 0.5 < warmUp)
            continue;
        if (base < 0)
            base = low = x.rssKb;
        peak = std::max(peak, x.rssKb);
        low = std::min(low, x.rssKb);
        last = x.rssKb;
    }
    const qint64 growth = peak - base;
#ifdef ORV_SANITIZED
    const bool judgeMemory = false; // the sanitizer's own allocator dominates resident memory
#else
    const bool judgeMemory = true;
#endif
    if (judgeMemory)
        check(base > 0 && growth <= kMaxGrowthKb,
              QString("resident memory grew by %1 kB after the warm-up").arg(growth));

    // Log files.
    qint64 totalLog = 0;
    int recvLines = 0;
    QStringList files;
    QMap<QString, qint64> sizes;
    QDirIterator it(s.runDirectory() + "/log", {"logfile_*.txt"}, QDir::Files,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        sizes.insert(path, QFileInfo(path).size());
    }
    // logfile_<n> in the order of n within each day.
    QStringList ordered = sizes.keys();
    std::sort(ordered.begin(), ordered.end(), [](const QString &a, const QString &b) {
        const QString da = QFileInfo(a).path(), db = QFileInfo(b).path();
        if (da != db)
            return da < db;
        return QFileInfo(a).baseName().mid(8).toInt() < QFileInfo(b).baseName().mid(8).toInt();
    });
    for (const QString &path : ordered) {
        totalLog += sizes.value(path);
        QFile f(path);
        if (f.open(QIODevice::ReadOnly)) {
            while (!f.atEnd())
                if (f.readLine().contains("] RecvData:"))
                    ++recvLines;
        }
    }
    // Every file but the newest of a day must have reached 5 MiB and have
    // stopped soon after (whole lines are appended).
    for (int i = 0; i + 1 < ordered.size(); ++i) {
        if (QFileInfo(ordered.at(i)).path() != QFileInfo(ordered.at(i + 1)).path())
            continue;
        const qint64 size = sizes.value(ordered.at(i));
        check(size >= kRotateBytes && size < kRotateBytes + 65536,
              QString("%1 has %2 bytes").arg(ordered.at(i)).arg(size));
    }
    if (totalLog > kRotateBytes + 262144)
        check(ordered.size() >= 2, "the log passed 5 MiB but did not rotate");
    check(recvLines > 0, "no RecvData line in the log");

    std::printf("\nfigures\n");
    std::printf("  run: %.0f s; warm-up %d s; samples every %d s\n", ranFor, warmUp, every);
    std::printf("  VmRSS: first %lld kB, at warm-up %lld kB, after warm-up min %lld kB, "
                "max %lld kB, last %lld kB; growth %lld kB (limit %lld kB%s)\n",
                samples.isEmpty() ? 0 : samples.first().rssKb, base, low, peak, last, growth,
                kMaxGrowthKb, judgeMemory ? "" : ", not judged in a sanitizer build");
    std::printf("  orv-tool CPU: %.1f s user+system over %.0f s (%.1f %% of one core)\n", cpuUsed,
                ranFor, 100.0 * cpuUsed / ranFor);
    if (sent.hasMatch())
        std::printf("  radar-sim sent %s target reports, %s area reports, %s answers; "
                    "%s ticks skipped\n",
                    qPrintable(sent.captured(1)), qPrintable(sent.captured(2)),
                    qPrintable(sent.captured(3)), qPrintable(sent.captured(4)));
    std::printf("  log: %d file(s), %lld bytes, %d RecvData lines\n", int(ordered.size()), totalLog,
                recvLines);
    for (const QString &path : ordered)
        std::printf("    %s  %lld\n", qPrintable(QDir(s.runDirectory()).relativeFilePath(path)),
                    sizes.value(path));
    std::printf("  discs on the screen at the end: %d\n", discs);
    if (keep) {
        // The session owns the directory; copy what matters before it goes.
        const QString kept = QDir::temp().filePath(
            QString("orv-soak-%1").arg(QDateTime::currentDateTime().toString("yyyyMMdd-hhmmss")));
        QDir().mkpath(kept);
        QProcess::execute("cp", {"-r", s.runDirectory() + "/.", kept});
        std::printf("  run directory kept in %s\n", qPrintable(kept));
    }

    if (!failures.isEmpty()) {
        std::printf("\norv-soak: FAILED\n  %s\n", qPrintable(failures.join("\n  ")));
        return 1;
    }
    std::printf("\norv-soak: passed\n");
    return 0;
}
