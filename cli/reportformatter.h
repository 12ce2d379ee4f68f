#pragma once

// One output line per report frame for orv-cli watch: target reports (code 7)
// with the targets in metres and area reports (code 8) with the occupancy of
// areas 1..3, each stamped with the host time (ISO 8601, UTC, milliseconds).
//
//   text   2026-11-22T15:05:00.123Z targets 2: (1.5, 3.0) (-1.0, 2.0)
//          2026-11-22T15:05:00.125Z areas occupied: 1 3
//   csv    time,kind,count,targets,area1,area2,area3
//          2026-11-22T15:05:00.123Z,targets,2,1.5 3.0;-1.0 2.0,,,
//          2026-11-22T15:05:00.125Z,areas,,,1,0,1
//   jsonl  {"time":"...","kind":"targets","targets":[[1.5,3.0],[-1.0,2.0]]}
//          {"time":"...","kind":"areas","occupied":[true,false,true]}

#include "radar/frameformat.h"

#include <QByteArray>
#include <QString>

class ReportFormatter
{
public:
    enum class Format { Text, Csv, Jsonl };

    explicit ReportFormatter(Format format = Format::Text) : format(format) {}

    static bool parseFormat(const QString &name, Format *format);

    // The CSV header line (with its newline); empty for the other formats.
    QByteArray header() const;
    // Appends the line of one frame to out; false (nothing appended) when the
    // frame is not a report.
    bool append(QByteArray &out, qint64 msSinceEpoch, frameformat::ByteView frame);

    // 2026-11-22T15:05:00.123Z
    void appendTime(QByteArray &out, qint64 msSinceEpoch);
    // Decimetres as metres with one decimal: -15 -> -1.5.
    static void appendMetres(QByteArray &out, int decimetres);

private:
    void appendTargets(QByteArray &out, frameformat::ByteView frame) const;
    void appendAreas(QByteArray &out, frameformat::ByteView frame) const;

    Format format;
    // The time text up to the seconds, kept while the second stays the same.
    qint64 cachedSecond = -1;
    QByteArray cachedPrefix;
};
