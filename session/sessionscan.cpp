#include "session/sessionscan.h"

#include "cli/interrupt.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>

namespace
{

bool sameAreas(const std::array<frameformat::AreaReport, 3> &a,
               const std::array<frameformat::AreaReport, 3> &b)
{
    for (int i = 0; i < 3; ++i) {
        if (a[i].type != b[i].type || a[i].rect != b[i].rect)
            return false;
    }
    return true;
}

bool onPlane(qint8 x, qint8 y)
{
    const double mx = x * 0.1, my = y * 0.1;
    return mx >= kPlaneMinX - 1e-9 && mx <= kPlaneMaxX + 1e-9 && my >= kPlaneMinY - 1e-9 &&
           my <= kPlaneMaxY + 1e-9;
}

} // namespace

double SessionFigures::reportsPerSecond() const
{
    if (targetReports < 2 || lastReportMs <= firstReportMs)
        return 0;
    return (targetReports - 1) * 1000.0 / double(lastReportMs - firstReportMs);
}

double SessionFigures::occupiedShare(int i) const
{
    if (i < 0 || i > 2 || areaReports == 0)
        return -1;
    return areaSeconds > 0 ? occupiedSeconds[size_t(i)] / areaSeconds : 0.0;
}

SessionScan::SessionScan(const SessionFilter &filter, HeatMap *heat, TrailStore *trails)
    : filter(filter), heat(heat), trails(trails)
{
}

bool SessionScan::addFile(const QString &path, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (error)
            *error = QString("cannot read %1: %2").arg(path, file.errorString());
        return false;
    }
    ++fig.files;
    LogLineReader reader(&file);
    logline::ParsedLine line;
    qint64 sinceProgress = 0;
    qint64 sinceCheck = 0;
    while (reader.next(line)) {
        if (progress && ++sinceProgress >= 4096) {
            sinceProgress = 0;
            progress(bytesBefore + reader.bytesRead());
        }
        // A flag read every 1024 lines (a fraction of a millisecond): Ctrl-C
        // stops even a scan of gigabytes at once.
        if (++sinceCheck >= 1024) {
            sinceCheck = 0;
            if (Interrupt::requested()) {
                stopped = true;
                if (error)
                    *error = QStringLiteral("interrupted");
                return false;
            }
        }
        if (line.kind != logline::Kind::RecvData)
            continue;
        const qint64 ms = line.msecs;
        if (ms > filter.toMs) {
            ++fig.linesOutsideWindow;
            continue;
        }
        const QByteArray &bytes = reader.bytes();
        const bool inside = ms >= filter.fromMs;
        if (!inside)
            ++fig.linesOutsideWindow;
        // Lines before the window still go through the decoder, for the
        // areas the module held when the window opens; their counts do not.
        const FrameStreamStats before = decoder.stats();
        decoder.feed(bytes.constData(), bytes.size(),
                     [this, ms](frameformat::ByteView frame) { onFrame(frame, ms); });
        if (inside) {
            const FrameStreamStats &after = decoder.stats();
            fig.frames.frames += after.frames - before.frames;
            fig.frames.badSums += after.badSums - before.badSums;
            fig.frames.skippedBytes += after.skippedBytes - before.skippedBytes;
        }
    }
    const LogLineCounts &c = reader.counts();
    fig.lines.lines += c.lines;
    fig.lines.notLogLines += c.notLogLines;
    fig.lines.recvDataLines += c.recvDataLines;
    fig.lines.truncatedDumps += c.truncatedDumps;
    fig.lines.overlongLines += c.overlongLines;
    fig.bytes += reader.bytesRead();
    bytesBefore += reader.bytesRead();
    if (progress)
        progress(bytesBefore);
    if (reader.failed()) {
        if (error)
            *error = QString("cannot read %1: %2").arg(path, file.errorString());
        return false;
    }
    return true;
}

void SessionScan::holdTargets(qint64 untilMs)
{
    if (reportMs < 0)
        return;
    const qint64 held = std::clamp<qint64>(untilMs - reportMs, 0, kHoldMs);
    const double seconds = held / 1000.0;
    fig.presenceSeconds += seconds;
    if (heat && held > 0) {
        for (int k = 0; k < pairCount; ++k) {
            const qint8 x = pairs[size_t(2 * k)], y = pairs[size_t(2 * k + 1)];
            if (x != 0 || y != 0)
                heat->add(x, y, seconds);
        }
    }
}

void SessionScan::holdAreaFlags(qint64 untilMs)
{
    if (flagsMs < 0)
        return;
    const double seconds = std::clamp<qint64>(untilMs - flagsMs, 0, kHoldMs) / 1000.0;
    fig.areaSeconds += seconds;
    for (int i = 0; i < 3; ++i) {
        if (flags & (1 << i))
            fig.occupiedSeconds[size_t(i)] += seconds;
    }
}

void SessionScan::onFrame(frameformat::ByteView frame, qint64 ms)
{
    const int code = frameformat::byteAt(frame, 5);
    const bool inside = ms >= filter.fromMs;
    if (code == ReadArea && frame.size() == frameformat::kReadAreaFrameSize) {
        const auto areas = frameformat::decodeReadAreaResponse(frame);
        if (fig.haveAreas && !sameAreas(areas, fig.areas))
            ++fig.areaChanges;
        fig.areas = areas;
        fig.haveAreas = true;
        fig.areasMs = ms;
        if (inside)
            ++fig.areaReads;
    }
    if (!inside)
        return;
    if (fig.firstMs < 0)
        fig.firstMs = ms;
    fig.lastMs = std::max(fig.lastMs, ms);

    switch (code) {
    case TargetReport: {
        ++fig.targetReports;
        if (reportMs >= 0) {
            const qint64 gap = ms - reportMs;
            if (gap > fig.longestGapMs) {
                fig.longestGapMs = gap;
                fig.longestGapFromMs = reportMs;
            }
            reportStep = std::max<qint64>(gap, 0);
        } else {
            fig.firstReportMs = ms;
        }
        holdTargets(ms);
        fig.lastReportMs = ms;
        reportMs = ms;
        // Pairs from offset 6 while the pair's first byte lies before the
        // sum, as the window reads them.
        pairCount = std::min((frame.size() - frameformat::kEnvelopeSize + 1) / 2, 128);
        int people = 0;
        for (int k = 0; k < pairCount; ++k) {
            const qint8 x = frameformat::signedByteAt(frame, 6 + 2 * k);
            const qint8 y = frameformat::signedByteAt(frame, 7 + 2 * k);
            pairs[size_t(2 * k)] = x;
            pairs[size_t(2 * k + 1)] = y;
            if (x == 0 && y == 0)
                continue; // an empty slot
            ++people;
            ++fig.points;
            if (!onPlane(x, y))
                ++fig.pointsOutside;
        }
        fig.mostPeople = std::max(fig.mostPeople, people);
        if (trails)
            trails->addReport(ms, pairs.data(), pairCount);
        break;
    }
    case TargetAreaReport:
        ++fig.areaReports;
        if (flagsMs >= 0)
            flagsStep = std::max<qint64>(ms - flagsMs, 0);
        holdAreaFlags(ms);
        flagsMs = ms;
        flags = frameformat::decodeAreaFlags(frame);
        break;
    case ReadArea:
        break;
    default:
        ++fig.otherFrames;
        break;
    }
}

void SessionScan::finish()
{
    decoder.finish();
    if (reportMs >= 0)
        holdTargets(reportMs + reportStep);
    if (flagsMs >= 0)
        holdAreaFlags(flagsMs + flagsStep);
    reportMs = -1;
    flagsMs = -1;
}

namespace
{

// The logfile_<n>.txt files of a folder, in the order of n.
QStringList dayFiles(const QString &folder)
{
    static const QRegularExpression logName(QStringLiteral("^logfile_(\\d{1,9})\\.txt$"));
    QList<QPair<qint64, QString>> logs;
    const QDir dir(folder);
    const QStringList names = dir.entryList(QDir::Files | QDir::Readable);
    for (const QString &name : names) {
        const QRegularExpressionMatch m = logName.match(name);
        if (m.hasMatch())
            logs.append({m.captured(1).toLongLong(), dir.filePath(name)});
    }
    std::sort(logs.begin(), logs.end());
    QStringList files;
    for (const auto &log : logs)
        files.append(log.second);
    return files;
}

} // namespace

bool expandLogInputs(const QStringList &arguments, QStringList *files, QString *error)
{
    static const QRegularExpression dayName(QStringLiteral("^\\d{8}$"));
    for (const QString &argument : arguments) {
        const QFileInfo info(argument);
        if (!info.exists()) {
            *error = QString("cannot read %1: no such file or folder").arg(argument);
            return false;
        }
        if (!info.isDir()) {
            files->append(argument);
            continue;
        }
        QStringList found = dayFiles(argument);
        if (found.isEmpty()) {
            // The log folder itself: its day folders (yyyymmdd) in date order.
            const QDir dir(argument);
            const QStringList days = dir.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
            for (const QString &day : days) {
                if (dayName.match(day).hasMatch())
                    found += dayFiles(dir.filePath(day));
            }
        }
        if (found.isEmpty()) {
            *error = QString("cannot read %1: a folder without logfile_<n>.txt files (nor day "
                             "folders holding them)")
                         .arg(argument);
            return false;
        }
        *files += found;
    }
    return true;
}

bool parseLogTime(const QString &text, qint64 *ms)
{
    const QString t = text.trimmed();
    QDateTime dt = QDateTime::fromString(t, Qt::ISODateWithMs);
    if (!dt.isValid()) {
        QString spaced = t;
        if (spaced.size() > 10 && spaced.at(10) == ' ')
            spaced[10] = 'T';
        dt = QDateTime::fromString(spaced, Qt::ISODateWithMs);
    }
    if (!dt.isValid() || t.size() < 10)
        return false;
    const QDate d = dt.date();
    const QTime tm = dt.time();
    *ms = logline::civilMsecs(d.year(), d.month(), d.day(), tm.hour(), tm.minute(), tm.second(),
                              tm.msec());
    return true;
}

QString formatLogTime(qint64 ms)
{
    const QDateTime dt = QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC);
    return dt.toString(QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"));
}
