#pragma once

// The area file of orv-cli: the three detection areas of a module (and
// optionally its display type) as JSON, for backup, restore and verify.
//
//   {
//     "format": "orv-areas",
//     "version": 1,
//     "display": "area",
//     "areas": [
//       {"number": 1, "type": "detect", "from": [-1.5, 3.0], "to": [1.5, 1.0]},
//       {"number": 2, "type": "unset"},
//       {"number": 3, "type": "exclude", "from": [2.0, 7.0], "to": [4.0, 5.0]}
//     ]
//   }
//
// Corners are in metres, x -8..8, y 0..8 (the window's limits). Reading
// refuses anything else with a message naming the place (line and column for
// JSON syntax, the field for the rest).

#include <QByteArray>
#include <QList>
#include <QPointF>
#include <QString>

struct AreaEntry {
    enum Kind { Detect, Exclude, Unset };

    int number = 1; // 1..3
    Kind kind = Unset;
    QPointF from; // metres; the window's start corner (upper left)
    QPointF to;   // metres; the end corner (lower right)

    // Module area type: detect 0, exclude 1.
    int moduleType() const { return kind == Exclude ? 1 : 0; }
    static QString kindName(Kind kind);
};

class AreaFile
{
public:
    static constexpr const char *kFormatName = "orv-areas";
    static constexpr int kVersion = 1;
    static constexpr qint64 kMaxFileSize = 1024 * 1024;

    bool hasDisplay = false;
    int display = 0;        // module value: 2 area mode, 1 tracking mode, other as is
    QList<AreaEntry> areas; // at most three, each number once, ascending

    // Parses JSON text; name is what messages call the file. On failure
    // *error reads "NAME:LINE:COLUMN: ..." or "NAME: FIELD: ...".
    static bool parse(const QByteArray &text, const QString &name, AreaFile *file, QString *error);
    static bool load(const QString &path, AreaFile *file, QString *error);

    QByteArray toJson() const;
    // Writes the file whole or not at all (QSaveFile); "-" writes to stdout.
    bool save(const QString &path, QString *error) const;

    // The window's range checks for a corner coordinate.
    static bool xInRange(double x) { return x >= -8.0 && x <= 8.0; }
    static bool yInRange(double y) { return y >= 0.0 && y <= 8.0; }

    // Display type value for a name ("area" 2, "track" 1), -1 when unknown.
    static int displayValue(const QString &name);
    // "area", "track" or the number.
    static QString displayName(int value);

    // 1-based line and column of a byte offset in text.
    static void lineAndColumn(const QByteArray &text, int offset, int *line, int *column);
};
