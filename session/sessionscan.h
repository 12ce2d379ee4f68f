#pragma once

// Reads diagnostic logs (or orv-cli recordings) of a session and turns their
// "RecvData:" lines into figures, a presence heat map and trails. The bytes
// of all lines, file after file, form one stream for the strict frame
// decoder, so a frame split over two lines is still found; a frame belongs to
// the time stamp of the line that completes it.
//
// Time: a target report (and an area-presence report) holds from its own
// stamp until the next report of its kind, but at most kHoldMs, so a pause in
// the log adds no presence. The last report holds as long as the one before.

#include "log/loglinereader.h"
#include "radar/framedecoder.h"
#include "session/heatmap.h"
#include "session/trailstore.h"

#include <QString>
#include <QStringList>

#include <array>
#include <functional>
#include <limits>

struct SessionFilter {
    qint64 fromMs = std::numeric_limits<qint64>::min(); // line stamps, see logline::ParsedLine
    qint64 toMs = std::numeric_limits<qint64>::max();
};

// The plane a window can show at most: x -8..8 m, y 0..12 m. Points beyond it
// are counted (they are still drawn when the picture's range holds them).
constexpr double kPlaneMinX = -8.0, kPlaneMaxX = 8.0, kPlaneMinY = 0.0, kPlaneMaxY = 12.0;

struct SessionFigures {
    int files = 0;
    qint64 bytes = 0;
    LogLineCounts lines;     // over all files, whatever their time
    FrameStreamStats frames; // from lines inside the time window
    qint64 linesOutsideWindow = 0;

    qint64 firstMs = -1; // first and last good frame inside the window
    qint64 lastMs = -1;
    qint64 targetReports = 0; // code 7
    qint64 areaReports = 0;   // code 8
    qint64 areaReads = 0;     // code 6 answers inside the window
    qint64 otherFrames = 0;
    qint64 firstReportMs = -1;
    qint64 lastReportMs = -1;
    qint64 longestGapMs = 0; // between two target reports
    qint64 longestGapFromMs = -1;

    int mostPeople = 0;         // most non-empty points in one report
    qint64 points = 0;          // non-empty points reported
    qint64 pointsOutside = 0;   // of which outside the plane above
    double presenceSeconds = 0; // time covered by target reports

    double areaSeconds = 0; // time covered by area-presence reports
    std::array<double, 3> occupiedSeconds{{0, 0, 0}};

    // The module's areas: its last read-area answer up to the window's end.
    bool haveAreas = false;
    std::array<frameformat::AreaReport, 3> areas{};
    qint64 areasMs = -1;
    int areaChanges = 0; // answers that differed from the one before

    double reportsPerSecond() const;
    // Share 0..1 of the area-presence time during which area i was occupied;
    // -1 when no area-presence report was seen.
    double occupiedShare(int i) const;
};

class SessionScan
{
public:
    static constexpr qint64 kHoldMs = 1000;

    // heat and trails may be null (a summary needs neither).
    SessionScan(const SessionFilter &filter, HeatMap *heat = nullptr, TrailStore *trails = nullptr);

    // Reads one file. False (with the reason) when it cannot be opened or
    // read; what was read before a read error is kept. Also false when
    // Ctrl-C or SIGTERM arrives (Interrupt), then interrupted() is true.
    bool addFile(const QString &path, QString *error);
    bool interrupted() const { return stopped; }
    // Ends the stream: the last reports get their time. Call once, at the end.
    void finish();

    const SessionFigures &figures() const { return fig; }

    // Called with the bytes read so far (all files) now and then.
    std::function<void(qint64)> progress;

private:
    void onFrame(frameformat::ByteView frame, qint64 ms);
    void holdTargets(qint64 untilMs);
    void holdAreaFlags(qint64 untilMs);

    SessionFilter filter;
    HeatMap *heat;
    TrailStore *trails;
    FrameDecoder decoder;
    SessionFigures fig;
    qint64 bytesBefore = 0; // bytes of the files already read
    bool stopped = false;

    // The report that holds now.
    qint64 reportMs = -1;
    qint64 reportStep = 0; // time since the report before it
    int pairCount = 0;
    std::array<qint8, 2 * 128> pairs{};
    qint64 flagsMs = -1;
    qint64 flagsStep = 0;
    int flags = 0;
};

// Expands the command line's LOG arguments: a file stands for itself, a
// folder for its logfile_<n>.txt files in the order of n, and a folder
// without such files (the log folder itself) for those of its day folders
// (yyyymmdd) in date order. False (with the reason) when an argument is
// missing or a folder holds no logs.
bool expandLogInputs(const QStringList &arguments, QStringList *files, QString *error);

// Parses --from/--to values: ISO 8601 date-times (2026-11-21T08:00,
// 2026-11-21 08:00:05.250) or a date alone (midnight), on the log's own
// clock. False for anything else.
bool parseLogTime(const QString &text, qint64 *ms);
// A stamp on the log's clock as "yyyy-mm-dd hh:mm:ss.zzz".
QString formatLogTime(qint64 ms);
