#include "cli/sessionrecorder.h"

#include "radar/frameformat.h"

void SessionRecorder::appendLine(QByteArray &out, const QDateTime &localTime,
                                 const QByteArray &bytes)
{
    const QDate d = localTime.date();
    const QTime t = localTime.time();
    out.append(QString::asprintf("[%d-%02d-%02d %02d:%02d:%02d.%03d] RecvData:", d.year(),
                                 d.month(), d.day(), t.hour(), t.minute(), t.second(), t.msec())
                   .toLatin1());
    out.append(frameformat::hexDumpLatin1(bytes));
    out.append('\n');
}

bool SessionRecorder::open(const QString &path, QString *error)
{
    file.setFileName(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        if (error)
            *error = QString("cannot write %1: %2").arg(path, file.errorString());
        return false;
    }
    return true;
}

bool SessionRecorder::write(const QDateTime &localTime, const QByteArray &bytes)
{
    line.clear();
    appendLine(line, localTime, bytes);
    return file.write(line) == line.size() && file.flush();
}

bool SessionRecorder::close(QString *error)
{
    const bool ok = file.flush() && file.error() == QFileDevice::NoError;
    if (!ok && error)
        *error = QString("cannot write %1: %2").arg(file.fileName(), file.errorString());
    file.close();
    return ok;
}
