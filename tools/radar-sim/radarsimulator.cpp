#include "tools/radar-sim/radarsimulator.h"

#include "radar/frameformat.h"

#include <algorithm>

using frameformat::byteAt;

RadarSimulator::RadarSimulator(int baudRate)
    : currentBaudRate(baudRate), decoder(kMaxRequestLength + frameformat::kEnvelopeSize - 1)
{
}

QString RadarSimulator::codeName(int code)
{
    switch (code) {
    case SetBaudrate:
        return "SetBaudrate";
    case SetTargetShowType:
        return "SetTargetShowType";
    case ReadTargetShowType:
        return "ReadTargetShowType";
    case SetArea:
        return "SetArea";
    case RepealArea:
        return "RepealArea";
    case ReadArea:
        return "ReadArea";
    case TargetReport:
        return "TargetReport";
    case TargetAreaReport:
        return "TargetAreaReport";
    case CancelAllArea:
        return "CancelAllArea";
    default:
        return "unknown";
    }
}

QList<RadarSimulator::Reply> RadarSimulator::receive(const QByteArray &bytes)
{
    QList<Reply> replies;
    const qint64 badBefore = decoder.stats().badSums;
    decoder.feed(bytes.constData(), bytes.size(), [this, &replies](frameformat::ByteView frame) {
        replies.append(handleRequest(QByteArray(frame.data(), frame.size())));
    });
    const qint64 bad = decoder.stats().badSums - badBefore;
    if (bad > 0) {
        Reply dropped;
        dropped.description = QString("%1 request(s) with a wrong sum dropped").arg(bad);
        replies.append(dropped);
    }
    return replies;
}

QByteArray RadarSimulator::resultFrame(quint8 code, const QByteArray &payload) const
{
    return frameformat::buildFrame(code, payload);
}

RadarSimulator::Reply RadarSimulator::handleRequest(const QByteArray &frame)
{
    Reply reply;
    const int length = frameformat::unsignedLength(frame);
    const QByteArray payload = frame.mid(frameformat::kPayloadOffset, std::max(0, length - 1));
    reply.code = frameformat::codeOf(frame);
    const QString request = QString("request %1 (%2) %3")
                                .arg(reply.code)
                                .arg(codeName(reply.code))
                                .arg(frameformat::hexDump(frame).trimmed());
    QString outcome;

    switch (reply.code) {
    case SetBaudrate: {
        const int rate = payload.size() == 3 ? (byteAt(payload, 0) << 16) |
                                                   (byteAt(payload, 1) << 8) | byteAt(payload, 2)
                                             : 0;
        const bool ok = !answerBaudNg && rate > 0;
        reply.frames.append(resultFrame(SetBaudrate, QByteArray(1, char(ok ? kOk : kNg))));
        if (ok)
            reply.newBaudRate = rate;
        outcome = ok ? QString("baud rate %1 OK").arg(rate) : QString("baud rate %1 NG").arg(rate);
        break;
    }
    case SetTargetShowType: {
        const int type = payload.isEmpty() ? 0 : byteAt(payload, 0);
        const bool ok = type >= 1 && type <= 3;
        if (ok)
            currentShowType = type;
        reply.frames.append(resultFrame(SetTargetShowType, QByteArray(1, char(ok ? kOk : kNg))));
        outcome = QString("show type %1 %2").arg(type).arg(ok ? "OK" : "NG");
        break;
    }
    case ReadTargetShowType:
        reply.frames.append(
            resultFrame(ReadTargetShowType, QByteArray(1, char(quint8(currentShowType)))));
        outcome = QString("show type is %1").arg(currentShowType);
        break;
    case SetArea: {
        const int number = qint8(byteAt(payload, 0));
        const int type = qint8(byteAt(payload, 9));
        const bool ok =
            payload.size() >= 10 && number >= 1 && number <= kAreaCount && (type == 0 || type == 1);
        if (ok) {
            Area &a = areas[size_t(number - 1)];
            a.defined = true;
            a.type = quint8(type);
            for (int k = 0; k < 8; ++k)
                a.corners[size_t(k)] = qint8(byteAt(payload, 1 + k));
        }
        QByteArray answer;
        answer.append(char(quint8(number)));
        answer.append(char(quint8(type)));
        answer.append(char(ok ? kOk : kNg));
        reply.frames.append(resultFrame(SetArea, answer));
        outcome = QString("area %1 type %2 %3").arg(number).arg(type).arg(ok ? "OK" : "NG");
        break;
    }
    case RepealArea: {
        const int number = qint8(byteAt(payload, 0));
        const bool ok = !payload.isEmpty() && number >= 1 && number <= kAreaCount;
        if (ok)
            areas[size_t(number - 1)] = Area();
        QByteArray answer;
        answer.append(char(quint8(number)));
        answer.append(char(ok ? kOk : kNg));
        reply.frames.append(resultFrame(RepealArea, answer));
        outcome = QString("repeal area %1 %2").arg(number).arg(ok ? "OK" : "NG");
        break;
    }
    case ReadArea: {
        // Three 10-byte records: area number, type (2 = not defined), four corners.
        QByteArray answer;
        for (int k = 0; k < kAreaCount; ++k) {
            const Area &a = areas[size_t(k)];
            answer.append(char(k + 1));
            answer.append(char(a.defined ? a.type : 2));
            for (int c = 0; c < 8; ++c)
                answer.append(char(a.defined ? a.corners[size_t(c)] : 0));
        }
        reply.frames.append(resultFrame(ReadArea, answer));
        outcome = "areas read";
        break;
    }
    case CancelAllArea:
        for (Area &a : areas)
            a = Area();
        reply.frames.append(resultFrame(CancelAllArea, QByteArray(1, char(kOk))));
        outcome = "all areas cancelled";
        break;
    default:
        outcome = "no answer";
        break;
    }
    reply.description = request + " -> " + outcome;
    return reply;
}

bool RadarSimulator::presetArea(int number, int type, const QRectF &rect)
{
    const QByteArray payload = frameformat::setAreaPayload(quint8(number - 1), quint8(type), rect);
    const Reply reply = handleRequest(frameformat::buildFrame(SetArea, payload));
    return !reply.frames.isEmpty() && frameformat::decodeSetAreaResponse(reply.frames.first()).ok;
}

QByteArray RadarSimulator::targetReport(const QVector<QPointF> &targets) const
{
    QByteArray payload;
    payload.reserve(targets.size() * 2);
    for (const QPointF &p : targets) {
        payload.append(char(frameformat::encodeCoordinate(p.x())));
        payload.append(char(frameformat::encodeCoordinate(p.y())));
    }
    return frameformat::buildFrame(TargetReport, payload);
}

bool RadarSimulator::contains(const Area &a, qint8 x, qint8 y) const
{
    if (!a.defined)
        return false;
    // The box spanned by the four corners, whichever way round they came.
    int xMin = a.corners[0], xMax = a.corners[0];
    int yMin = a.corners[1], yMax = a.corners[1];
    for (size_t c = 2; c < 8; c += 2) {
        xMin = std::min<int>(xMin, a.corners[c]);
        xMax = std::max<int>(xMax, a.corners[c]);
        yMin = std::min<int>(yMin, a.corners[c + 1]);
        yMax = std::max<int>(yMax, a.corners[c + 1]);
    }
    return x >= xMin && x <= xMax && y >= yMin && y <= yMax;
}

quint8 RadarSimulator::occupancy(const QVector<QPointF> &targets) const
{
    // Compared on the 0.1 m values sent, so the report agrees with the targets.
    quint8 mask = 0;
    for (const QPointF &p : targets) {
        const qint8 x = frameformat::encodeCoordinate(p.x());
        const qint8 y = frameformat::encodeCoordinate(p.y());
        for (int k = 0; k < kAreaCount; ++k)
            if (contains(areas[size_t(k)], x, y))
                mask = quint8(mask | (1u << k));
    }
    return mask;
}

QByteArray RadarSimulator::areaReport(const QVector<QPointF> &targets) const
{
    const quint8 mask = occupancy(targets);
    QByteArray payload;
    for (int k = 0; k < kAreaCount; ++k)
        payload.append(char((mask >> k) & 1));
    return frameformat::buildFrame(TargetAreaReport, payload);
}
