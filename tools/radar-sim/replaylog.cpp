#include "tools/radar-sim/replaylog.h"

#include <QFile>
#include <QList>
#include <QRegularExpression>

#include <algorithm>

namespace
{

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

} // namespace

bool ReplayLog::parseLine(const QByteArray &line, QDateTime *stamp, QByteArray *bytes)
{
    static const QRegularExpression pattern(
        QStringLiteral("^\\[(\\d+)-(\\d{2})-(\\d{2}) (\\d{2}):(\\d{2}):(\\d{2})\\.(\\d{3})\\] "
                       "RecvData:(.*)$"));
    QByteArray text = line;
    while (text.endsWith('\n') || text.endsWith('\r'))
        text.chop(1);
    const QRegularExpressionMatch m = pattern.match(QString::fromLatin1(text));
    if (!m.hasMatch())
        return false;

    const QDate date(m.captured(1).toInt(), m.captured(2).toInt(), m.captured(3).toInt());
    const QTime time(m.captured(4).toInt(), m.captured(5).toInt(), m.captured(6).toInt(),
                     m.captured(7).toInt());
    if (!date.isValid() || !time.isValid())
        return false;

    QByteArray data;
    const QStringList tokens = m.captured(8).split(' ', Qt::SkipEmptyParts);
    for (const QString &token : tokens) {
        if (token.size() != 2)
            return false;
        const int hi = hexValue(token.at(0).toLatin1());
        const int lo = hexValue(token.at(1).toLatin1());
        if (hi < 0 || lo < 0)
            return false;
        data.append(char(hi * 16 + lo));
    }
    if (data.isEmpty())
        return false;
    // Time stamps are wall-clock readings; taken as UTC so that no daylight
    // saving step shifts the gaps between them.
    *stamp = QDateTime(date, time, Qt::UTC);
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
