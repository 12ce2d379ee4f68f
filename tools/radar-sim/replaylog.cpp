#include "tools/radar-sim/replaylog.h"

#include "log/loglinereader.h"

#include <QFile>
#include <QList>

#include <algorithm>

bool ReplayLog::parseLine(const QByteArray &line, QDateTime *stamp, QByteArray *bytes)
{
    QByteArray data;
    const logline::ParsedLine parsed = logline::parseLogLine(line.constData(), line.size(), data);
    // Only whole dumps are played: a dump that breaks off would send a frame
    // the module never sent.
    if (parsed.kind != logline::Kind::RecvData || parsed.truncatedDump || data.isEmpty())
        return false;
    // Time stamps are wall-clock readings; taken as UTC so that no daylight
    // saving step shifts the gaps between them.
    *stamp = QDateTime::fromMSecsSinceEpoch(parsed.msecs, Qt::UTC);
    *bytes = data;
    return true;
}

bool ReplayLog::parse(const QByteArray &text, QString *error)
{
    list.clear();
    skipped = 0;
    QDateTime first;
    qint64 last = 0;
    const QList<QByteArray> lines = text.split('\n');
    for (const QByteArray &line : lines) {
        QDateTime stamp;
        QByteArray bytes;
        if (!parseLine(line, &stamp, &bytes)) {
            if (line.contains("] RecvData:"))
                ++skipped;
            continue;
        }
        if (!first.isValid())
            first = stamp;
        // A clock set back during the session must not make time run backwards.
        last = std::max(last, first.msecsTo(stamp));
        list.append({last, bytes});
    }
    if (list.isEmpty()) {
        if (error)
            *error = "no \"RecvData:\" line with bytes in it";
        return false;
    }
    return true;
}

bool ReplayLog::load(const QString &path, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (error)
            *error = QString("cannot read %1: %2").arg(path, file.errorString());
        return false;
    }
    QString why;
    if (!parse(file.readAll(), &why)) {
        if (error)
            *error = QString("%1: %2").arg(path, why);
        return false;
    }
    return true;
}
