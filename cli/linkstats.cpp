#include "cli/linkstats.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

void LinkStats::addChunk(qint64 atMs, const QByteArray &chunk)
{
    longestGapMs = qMax(longestGapMs, atMs - lastMs);
    lastMs = atMs;
    ++readCount;
    byteCount += chunk.size();
    decoder.feed(chunk.constData(), chunk.size(),
                 [this](frameformat::ByteView frame) { ++perCode[frameformat::byteAt(frame, 5)]; });
}

void LinkStats::finish(qint64 atMs)
{
    endMs = qMax(atMs, lastMs);
    longestGapMs = qMax(longestGapMs, endMs - lastMs);
    // Bytes of an unfinished frame at the end count as outside frames.
    decoder.finish();
}

QString LinkStats::codeName(int code)
{
    switch (code) {
    case 1:
        return QStringLiteral("baud-rate answer");
    case 2:
        return QStringLiteral("display-type answer");
    case 3:
        return QStringLiteral("display type");
    case 4:
        return QStringLiteral("set-area answer");
    case 5:
        return QStringLiteral("cancel-area answer");
    case 6:
        return QStringLiteral("areas");
    case 7:
        return QStringLiteral("target report");
    case 8:
        return QStringLiteral("area report");
    case 10:
        return QStringLiteral("cancel-all answer");
    default:
        return QStringLiteral("unknown");
    }
}

QString LinkStats::text() const
{
    const double seconds = endMs / 1000.0;
    auto rate = [seconds](qint64 n) {
        return seconds > 0 ? QString::number(n / seconds, 'f', 1) : QStringLiteral("-");
    };
    QString t;
    t += QString("duration              %1 s\n").arg(seconds, 0, 'f', 3);
    t += QString("bytes                 %1 (%2 /s) in %3 reads\n")
             .arg(byteCount)
             .arg(rate(byteCount))
             .arg(readCount);
    t += QString("frames                %1 (%2 /s)\n")
             .arg(decoder.stats().frames)
             .arg(rate(decoder.stats().frames));
    for (int code = 0; code < 256; ++code) {
        if (perCode[size_t(code)] == 0)
            continue;
        t += QString("  code %1 %2%3 (%4 /s)\n")
                 .arg(code, -3)
                 .arg(codeName(code), -20)
                 .arg(perCode[size_t(code)])
                 .arg(rate(perCode[size_t(code)]));
    }
    t += QString("bad sums              %1\n").arg(decoder.stats().badSums);
    t += QString("bytes outside frames  %1\n").arg(decoder.stats().skippedBytes);
    t += QString("longest silence       %1 s\n").arg(longestGapMs / 1000.0, 0, 'f', 3);
    return t;
}

QByteArray LinkStats::json() const
{
    const double seconds = endMs / 1000.0;
    QJsonObject o;
    o["durationSeconds"] = seconds;
    o["bytes"] = double(byteCount);
    o["reads"] = double(readCount);
    o["frames"] = double(decoder.stats().frames);
    QJsonArray codes;
    for (int code = 0; code < 256; ++code) {
        if (perCode[size_t(code)] == 0)
            continue;
        QJsonObject c;
        c["code"] = code;
        c["name"] = codeName(code);
        c["frames"] = double(perCode[size_t(code)]);
        c["perSecond"] = seconds > 0 ? perCode[size_t(code)] / seconds : 0.0;
        codes.append(c);
    }
    o["byCode"] = codes;
    o["badSums"] = double(decoder.stats().badSums);
    o["bytesOutsideFrames"] = double(decoder.stats().skippedBytes);
    o["longestSilenceSeconds"] = longestGapMs / 1000.0;
    return QJsonDocument(o).toJson(QJsonDocument::Indented);
}
