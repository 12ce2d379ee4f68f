#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QVector>

// The received bytes of a recorded session: the "RecvData:" lines of a
// diagnostic log file ("[YYYY-MM-DD hh:mm:ss.zzz] RecvData:" and a hex dump
// "%02X " per byte), each with its time relative to the first such line.
class ReplayLog
{
public:
    struct Entry {
        qint64 offsetMs = 0; // since the first entry; never decreasing
        QByteArray bytes;    // one chunk as the tool read it
    };

    // false with *error set when the file cannot be read or holds no
    // usable "RecvData:" line.
    bool load(const QString &path, QString *error);
    // The same on the text of a log file.
    bool parse(const QByteArray &text, QString *error);

    // One line; true when it is a well-formed "RecvData:" line with bytes.
    static bool parseLine(const QByteArray &line, QDateTime *stamp, QByteArray *bytes);

    const QVector<Entry> &entries() const { return list; }
    // Lines that looked like "RecvData:" lines but could not be read.
    int skippedLines() const { return skipped; }
    qint64 durationMs() const { return list.isEmpty() ? 0 : list.last().offsetMs; }

private:
    QVector<Entry> list;
    int skipped = 0;
};
