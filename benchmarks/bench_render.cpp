// orv-cli summary and render on a generated session: the log-line parse, the
// scan of a one-hour log (3 people walking, 10 reports/s, written the way the
// window logs them) and drawing its picture.
//
//   bench_render                          the benchmarks
//   bench_render --write-logs DIR HOURS   writes HOURS of such a log into
//                                         DIR/logfile_<n>.txt, 5 MiB each

#include "log/loglinereader.h"
#include "radar/frameformat.h"
#include "render/sessionpicture.h"
#include "session/sessionscan.h"
#include "tools/radar-sim/replaylog.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstring>

namespace
{

QByteArray stamp(qint64 ms)
{
    return QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC)
        .toString("[yyyy-MM-dd hh:mm:ss.zzz] ")
        .toLatin1();
}

// Writes `hours` of a session into dir as 5 MiB log files, with the lines the
// window writes around every received frame. Returns the bytes written.
qint64 writeLogs(const QString &dir, double hours)
{
    const qint64 start = logline::civilMsecs(2026, 11, 21, 0, 0, 0, 0);
    const qint64 reports = qint64(hours * 36000);
    int fileNumber = 0;
    QFile file;
    qint64 total = 0;
    auto open = [&]() {
        file.close();
        file.setFileName(QDir(dir).filePath(QString("logfile_%1.txt").arg(fileNumber++)));
        if (!file.open(QIODevice::WriteOnly))
            qFatal("cannot write %s", qPrintable(file.fileName()));
    };
    open();
    QByteArray areaPayload(30, '\0');
    const qint8 corners[3][4] = {{-30, 60, 0, 30}, {10, 40, 30, 20}, {0, 0, 0, 0}};
    for (int k = 0; k < 3; ++k) {
        areaPayload[10 * k] = char(k + 1);
        areaPayload[10 * k + 1] = char(k == 2 ? 2 : k);
        areaPayload[10 * k + 2] = char(corners[k][0]);
        areaPayload[10 * k + 3] = char(corners[k][1]);
        areaPayload[10 * k + 6] = char(corners[k][2]);
        areaPayload[10 * k + 7] = char(corners[k][3]);
    }
    QByteArray text;
    text += stamp(start) + "RecvData:" +
            frameformat::hexDumpLatin1(frameformat::buildFrame(ReadArea, areaPayload)) + "\n";
    for (qint64 i = 0; i < reports; ++i) {
        const qint64 ms = start + 100 * i;
        const double t = i * 0.1;
        QByteArray payload;
        int flags = 0;
        for (int p = 0; p < 3; ++p) {
            const double x = 4.0 * std::sin(t / (37.0 + 11 * p) + p);
            const double y = 4.0 + 3.5 * std::sin(t / (53.0 + 7 * p) + 2 * p);
            const qint8 dx = qint8(std::lround(x * 10)), dy = qint8(std::lround(y * 10));
            payload.append(char(dx));
            payload.append(char(dy));
            if (dx >= -30 && dx <= 0 && dy >= 30 && dy <= 60)
                flags |= 1;
            if (dx >= 10 && dx <= 30 && dy >= 20 && dy <= 40)
                flags |= 2;
        }
        QByteArray flagPayload(3, '\0');
        for (int a = 0; a < 3; ++a)
            flagPayload[a] = char((flags >> a) & 1);
        const QByteArray s = stamp(ms);
        text += s + "RecvData:" +
                frameformat::hexDumpLatin1(frameformat::buildFrame(TargetReport, payload)) + "\n";
        text += s + "start parse one frame.\n";
        text += s + "function code:7\n";
        text += s + "targetList size:3\n";
        const QByteArray s2 = stamp(ms + 5);
        text += s2 + "RecvData:" +
                frameformat::hexDumpLatin1(frameformat::buildFrame(TargetAreaReport, flagPayload)) +
                "\n";
        text += s2 + "start parse one frame.\n";
        text += s2 + "function code:8\n";
        if (text.size() > 64 * 1024) {
            if (file.size() + text.size() > 5 * 1024 * 1024) {
                total += file.size();
                open();
            }
            file.write(text);
            text.clear();
        }
    }
    file.write(text);
    total += file.size();
    file.close();
    return total;
}

QTemporaryDir *hourDir()
{
    static QTemporaryDir *dir = [] {
        auto *d = new QTemporaryDir;
        writeLogs(d->path(), 1.0);
        return d;
    }();
    return dir;
}

QStringList hourFiles()
{
    QStringList files;
    QString error;
    expandLogInputs({hourDir()->path()}, &files, &error);
    return files;
}

void BM_ParseLogLine(benchmark::State &state)
{
    const QByteArray line = "[2026-11-21 08:00:00.000] RecvData:FF EE DD 00 07 07 1E 28 EC 32 0A "
                            "14 B9 DD EE FF \n";
    QByteArray bytes;
    for (auto _ : state) {
        const logline::ParsedLine parsed =
            logline::parseLogLine(line.constData(), line.size(), bytes);
        benchmark::DoNotOptimize(parsed);
    }
    state.SetBytesProcessed(state.iterations() * line.size());
}
BENCHMARK(BM_ParseLogLine);

// The same line through radar-sim's replay reader (a regular expression and
// QDateTime), for comparison.
void BM_ParseLogLineRegex(benchmark::State &state)
{
    const QByteArray line = "[2026-11-21 08:00:00.000] RecvData:FF EE DD 00 07 07 1E 28 EC 32 0A "
                            "14 B9 DD EE FF \n";
    for (auto _ : state) {
        QDateTime when;
        QByteArray bytes;
        benchmark::DoNotOptimize(ReplayLog::parseLine(line, &when, &bytes));
    }
    state.SetBytesProcessed(state.iterations() * line.size());
}
BENCHMARK(BM_ParseLogLineRegex);

// summary: the scan alone.
void BM_ScanOneHour(benchmark::State &state)
{
    const QStringList files = hourFiles();
    qint64 bytes = 0;
    for (auto _ : state) {
        SessionScan scan{SessionFilter()};
        for (const QString &f : files)
            scan.addFile(f, nullptr);
        scan.finish();
        bytes = scan.figures().bytes;
        benchmark::DoNotOptimize(scan.figures().targetReports);
    }
    state.SetBytesProcessed(state.iterations() * bytes);
    state.counters["MB"] = bytes / 1e6;
}
BENCHMARK(BM_ScanOneHour)->Unit(benchmark::kMillisecond);

// render: the scan with heat map and trails, then the PNG picture.
void BM_RenderOneHour(benchmark::State &state)
{
    const QStringList files = hourFiles();
    const QString out = hourDir()->filePath("hour.png");
    for (auto _ : state) {
        HeatMap heat;
        TrailStore trails;
        SessionScan scan(SessionFilter(), &heat, &trails);
        for (const QString &f : files)
            scan.addFile(f, nullptr);
        scan.finish();
        const SessionPicture picture(scan.figures(), heat, trails, {}, PictureOptions());
        QString error;
        savePicture(picture, out, false, &error);
    }
}
BENCHMARK(BM_RenderOneHour)->Unit(benchmark::kMillisecond);

// The picture alone, from a scanned hour.
void BM_DrawPicture(benchmark::State &state)
{
    HeatMap heat;
    TrailStore trails;
    SessionScan scan(SessionFilter(), &heat, &trails);
    for (const QString &f : hourFiles())
        scan.addFile(f, nullptr);
    scan.finish();
    const SessionPicture picture(scan.figures(), heat, trails, {}, PictureOptions());
    QImage img(picture.size(), QImage::Format_ARGB32_Premultiplied);
    for (auto _ : state) {
        QPainter painter(&img);
        RenderCanvas canvas;
        picture.draw(canvas);
        canvas.paint(&painter);
    }
}
BENCHMARK(BM_DrawPicture)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    if (argc == 4 && std::strcmp(argv[1], "--write-logs") == 0) {
        QDir().mkpath(argv[2]);
        const qint64 bytes = writeLogs(argv[2], std::atof(argv[3]));
        std::printf("%lld bytes\n", static_cast<long long>(bytes));
        return 0;
    }
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
