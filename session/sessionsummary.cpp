#include "session/sessionsummary.h"

#include <QJsonArray>

namespace
{

QString stamp(qint64 ms)
{
    return ms < 0 ? QString("-") : formatLogTime(ms);
}

QString areaTypeName(int type)
{
    if (type == 0)
        return QStringLiteral("detect");
    if (type == 1)
        return QStringLiteral("exclude");
    if (type == 2)
        return QStringLiteral("unset");
    return QString::number(type);
}

QJsonArray corner(double x, double y)
{
    return QJsonArray{qRound(x * 10) / 10.0, qRound(y * 10) / 10.0};
}

} // namespace

QString sessionSummaryText(const SessionFigures &f)
{
    QString t;
    auto row = [&t](const QString &name, const QString &value) {
        t += QString("%1 %2\n").arg(name + ":", -26).arg(value);
    };
    row("files", QString::number(f.files));
    row("bytes read", QString::number(f.bytes));
    row("first frame", stamp(f.firstMs));
    row("last frame", stamp(f.lastMs));
    row("duration (s)",
        QString::number(f.firstMs < 0 ? 0.0 : (f.lastMs - f.firstMs) / 1000.0, 'f', 3));
    row("target reports", QString::number(f.targetReports));
    row("reports per second", QString::number(f.reportsPerSecond(), 'f', 2));
    row("longest gap (s)",
        QString("%1%2")
            .arg(f.longestGapMs / 1000.0, 0, 'f', 3)
            .arg(f.longestGapFromMs < 0 ? QString() : " from " + stamp(f.longestGapFromMs)));
    row("area-presence reports", QString::number(f.areaReports));
    row("read-area answers", QString::number(f.areaReads));
    row("people at most at once", QString::number(f.mostPeople));
    row("points", QString::number(f.points));
    row("points outside the plane", QString::number(f.pointsOutside));
    row("good frames", QString::number(f.frames.frames));
    row("checksum failures", QString::number(f.frames.badSums));
    row("bytes outside frames", QString::number(f.frames.skippedBytes));
    row("lines", QString::number(f.lines.lines));
    row("lines skipped", QString::number(f.lines.notLogLines + f.lines.overlongLines));
    row("RecvData lines", QString::number(f.lines.recvDataLines));
    row("truncated dumps", QString::number(f.lines.truncatedDumps));
    for (int i = 0; i < 3; ++i) {
        const double share = f.occupiedShare(i);
        row(QString("area %1 occupied (s)").arg(i + 1),
            share < 0 ? QString("not reported")
                      : QString("%1 (%2 %)")
                            .arg(f.occupiedSeconds[size_t(i)], 0, 'f', 1)
                            .arg(share * 100, 0, 'f', 1));
    }
    if (f.haveAreas) {
        for (int i = 0; i < 3; ++i) {
            const frameformat::AreaReport &a = f.areas[size_t(i)];
            row(QString("area %1 held").arg(i + 1), a.type == 2
                                                        ? QString("unset")
                                                        : QString("%1 from %2,%3 to %4,%5")
                                                              .arg(areaTypeName(a.type))
                                                              .arg(a.rect.left(), 0, 'f', 1)
                                                              .arg(a.rect.top(), 0, 'f', 1)
                                                              .arg(a.rect.right(), 0, 'f', 1)
                                                              .arg(a.rect.bottom(), 0, 'f', 1));
        }
    } else {
        row("areas held", "no read-area answer in the log");
    }
    return t;
}

QJsonObject sessionSummaryJson(const SessionFigures &f)
{
    QJsonObject o;
    o["files"] = f.files;
    o["bytesRead"] = double(f.bytes);
    o["firstFrame"] = f.firstMs < 0 ? QJsonValue() : QJsonValue(formatLogTime(f.firstMs));
    o["lastFrame"] = f.lastMs < 0 ? QJsonValue() : QJsonValue(formatLogTime(f.lastMs));
    o["durationSeconds"] = f.firstMs < 0 ? 0.0 : (f.lastMs - f.firstMs) / 1000.0;
    o["targetReports"] = double(f.targetReports);
    o["reportsPerSecond"] = f.reportsPerSecond();
    o["longestGapSeconds"] = f.longestGapMs / 1000.0;
    o["longestGapFrom"] =
        f.longestGapFromMs < 0 ? QJsonValue() : QJsonValue(formatLogTime(f.longestGapFromMs));
    o["areaPresenceReports"] = double(f.areaReports);
    o["readAreaAnswers"] = double(f.areaReads);
    o["mostPeopleAtOnce"] = f.mostPeople;
    o["points"] = double(f.points);
    o["pointsOutsidePlane"] = double(f.pointsOutside);
    o["goodFrames"] = double(f.frames.frames);
    o["checksumFailures"] = double(f.frames.badSums);
    o["bytesOutsideFrames"] = double(f.frames.skippedBytes);
    o["lines"] = double(f.lines.lines);
    o["linesSkipped"] = double(f.lines.notLogLines + f.lines.overlongLines);
    o["recvDataLines"] = double(f.lines.recvDataLines);
    o["truncatedDumps"] = double(f.lines.truncatedDumps);
    QJsonArray occupancy;
    for (int i = 0; i < 3; ++i) {
        QJsonObject a;
        a["number"] = i + 1;
        const double share = f.occupiedShare(i);
        a["occupiedSeconds"] = f.occupiedSeconds[size_t(i)];
        a["occupiedShare"] = share < 0 ? QJsonValue() : QJsonValue(share);
        occupancy.append(a);
    }
    o["occupancy"] = occupancy;
    if (f.haveAreas) {
        QJsonArray held;
        for (int i = 0; i < 3; ++i) {
            const frameformat::AreaReport &a = f.areas[size_t(i)];
            QJsonObject area;
            area["number"] = i + 1;
            area["type"] = areaTypeName(a.type);
            if (a.type != 2) {
                area["from"] = corner(a.rect.left(), a.rect.top());
                area["to"] = corner(a.rect.right(), a.rect.bottom());
            }
            held.append(area);
        }
        o["areasHeld"] = held;
    } else {
        o["areasHeld"] = QJsonValue();
    }
    return o;
}
