#pragma once

// Writes received bytes as the diagnostic log's "RecvData:" lines, so that a
// recording reads like the window's log and radar-sim --replay plays it:
//   [2026-11-22 15:05:00.123] RecvData:FF EE DD 00 05 07 0A 1E F6 14 39 DD EE FF
// Each read is one line, stamped with the local time it arrived. Lines are
// written as they come, so an interrupted recording keeps what it has.

#include <QByteArray>
#include <QDateTime>
#include <QFile>
#include <QString>

class SessionRecorder
{
public:
    static void appendLine(QByteArray &out, const QDateTime &localTime, const QByteArray &bytes);

    bool open(const QString &path, QString *error);
    bool write(const QDateTime &localTime, const QByteArray &bytes);
    bool close(QString *error);
    QString errorString() const { return file.errorString(); }

private:
    QFile file;
    QByteArray line;
};
