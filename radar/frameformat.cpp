#include "radar/frameformat.h"

#include <cmath>

namespace frameformat
{

namespace
{

const char kHexDigits[] = "0123456789ABCDEF";

} // namespace

QByteArray buildFrame(quint8 code, const QByteArray &payload)
{
    const int n = payload.size();
    QByteArray frame(n + kEnvelopeSize, Qt::Uninitialized);
    char *out = frame.data();
    out[0] = char(kHeader[0]);
    out[1] = char(kHeader[1]);
    out[2] = char(kHeader[2]);
    out[kLengthOffset] = char(((n + 1) >> 8) & 0xFF);
    out[kLengthOffset + 1] = char((n + 1) & 0xFF);
    out[kCodeOffset] = char(code);
    quint8 sum = code;
    const char *in = payload.constData();
    for (int k = 0; k < n; ++k) {
        out[kPayloadOffset + k] = in[k];
        sum = quint8(sum + quint8(in[k]));
    }
    out[kPayloadOffset + n] = char(sum);
    out[kPayloadOffset + n + 1] = char(kTail[0]);
    out[kPayloadOffset + n + 2] = char(kTail[1]);
    out[kPayloadOffset + n + 3] = char(kTail[2]);
    return frame;
}

QByteArray hexDumpLatin1(const QByteArray &bytes)
{
    const int n = bytes.size();
    QByteArray text(n * 3, Qt::Uninitialized);
    char *out = text.data();
    const char *in = bytes.constData();
    for (int k = 0; k < n; ++k) {
        const quint8 b = quint8(in[k]);
        out[3 * k] = kHexDigits[b >> 4];
        out[3 * k + 1] = kHexDigits[b & 0x0F];
        out[3 * k + 2] = ' ';
    }
    return text;
}

QString hexDump(const QByteArray &bytes)
{
    return QString::fromLatin1(hexDumpLatin1(bytes));
}

int declaredFrameSize(ByteView data, int offset)
{
    return 256 * signedByteAt(data, offset + kLengthOffset) + kSizeBeyondLength +
           signedByteAt(data, offset + kLengthOffset + 1);
}

int signedLength(ByteView frame)
{
    // The module's length field is read with signed bytes; only low bytes of
    // 0..127 come out right, which covers every frame the module sends.
    return 256 * signedByteAt(frame, kLengthOffset) + signedByteAt(frame, kLengthOffset + 1);
}

quint8 computeChecksum(ByteView frame)
{
    const int length = signedLength(frame);
    quint8 sum = 0;
    if (length <= 0)
        return sum;
    const int size = frame.size();
    const char *p = frame.data();
    // Bytes past the end of a short frame count as 0, so only the present
    // ones need adding.
    const int end = qMin(kCodeOffset + length, size);
    for (int k = kCodeOffset; k < end; ++k)
        sum = quint8(sum + quint8(p[k]));
    return sum;
}

bool checksumMatches(ByteView frame)
{
    return computeChecksum(frame) == byteAt(frame, kCodeOffset + signedLength(frame));
}

qint8 encodeCoordinate(double metres)
{
    const double scaled = metres * 10.0;
    // Keep the low 8 bits of the value truncated toward zero (two's
    // complement), also outside the signed byte's range.
    if (scaled > -1e9 && scaled < 1e9)
        return qint8(quint8(int(scaled) & 0xFF)); // int() truncates toward zero
    if (!std::isfinite(scaled))
        return 0;
    const int low = int(std::fmod(std::trunc(scaled), 256.0)); // -255 .. 255
    return qint8(quint8(low & 0xFF));
}

QByteArray setAreaPayload(quint8 index, quint8 type, const QRectF &rect)
{
    const double x = rect.x();
    const double y = rect.y();
    const double right = x + rect.width();
    // Only the height is made absolute: the area is expected with its first
    // corner at the larger y, the lower edge lies abs(h) below it.
    const double lower = y - std::fabs(rect.height());

    QByteArray payload(10, Qt::Uninitialized);
    char *out = payload.data();
    out[0] = char(quint8(index + 1));
    out[1] = char(encodeCoordinate(x));
    out[2] = char(encodeCoordinate(y));
    out[3] = char(encodeCoordinate(x));
    out[4] = char(encodeCoordinate(lower));
    out[5] = char(encodeCoordinate(right));
    out[6] = char(encodeCoordinate(lower));
    out[7] = char(encodeCoordinate(right));
    out[8] = char(encodeCoordinate(y));
    out[9] = char(type);
    return payload;
}

QByteArray baudRatePayload(int baudRate)
{
    QByteArray payload(3, Qt::Uninitialized);
    payload[0] = char((baudRate >> 16) & 0xFF);
    payload[1] = char((baudRate >> 8) & 0xFF);
    payload[2] = char(baudRate & 0xFF);
    return payload;
}

bool decodeResult(ByteView frame)
{
    return byteAt(frame, 6) == 1;
}

SetAreaResponse decodeSetAreaResponse(ByteView frame)
{
    SetAreaResponse r;
    r.number = signedByteAt(frame, 6);
    r.type = signedByteAt(frame, 7);
    r.ok = byteAt(frame, 8) == 1;
    return r;
}

RepealAreaResponse decodeRepealAreaResponse(ByteView frame)
{
    RepealAreaResponse r;
    r.number = signedByteAt(frame, 6);
    r.ok = byteAt(frame, 7) == 1;
    return r;
}

std::array<AreaReport, 3> decodeReadAreaResponse(ByteView frame)
{
    std::array<AreaReport, 3> areas;
    for (int k = 0; k < 3; ++k) {
        const int base = 10 * k;
        areas[k].type = byteAt(frame, 7 + base);
        const QPointF first(decodeCoordinate(signedByteAt(frame, 8 + base)),
                            decodeCoordinate(signedByteAt(frame, 9 + base)));
        const QPointF opposite(decodeCoordinate(signedByteAt(frame, 12 + base)),
                               decodeCoordinate(signedByteAt(frame, 13 + base)));
        areas[k].rect = QRectF(first, opposite);
    }
    return areas;
}

int decodeShowType(ByteView frame)
{
    return signedByteAt(frame, 6);
}

void decodeTargetsInto(ByteView frame, QList<QPointF> &targets)
{
    // Pairs start at offset 6 and go on while the pair's first byte lies
    // before the checksum; with an odd payload the last y is the checksum.
    const int size = frame.size();
    const int count = size > kEnvelopeSize ? (size - kEnvelopeSize + 1) / 2 : 0;
    if (!targets.isDetached())
        targets = QList<QPointF>(); // someone else holds it: leave theirs alone
    while (targets.size() > count)
        targets.removeLast();
    targets.reserve(count);
    for (int k = 0; k < count; ++k) {
        const int j = kPayloadOffset + 2 * k;
        const QPointF point(decodeCoordinate(signedByteAt(frame, j)),
                            decodeCoordinate(signedByteAt(frame, j + 1)));
        if (k < targets.size())
            targets[k] = point;
        else
            targets.append(point);
    }
}

QList<QPointF> decodeTargets(ByteView frame)
{
    QList<QPointF> targets;
    decodeTargetsInto(frame, targets);
    return targets;
}

char decodeAreaFlags(ByteView frame)
{
    const int flags = (byteAt(frame, 6) == 1 ? 1 : 0) + (byteAt(frame, 7) == 1 ? 2 : 0) +
                      (byteAt(frame, 8) == 1 ? 4 : 0);
    return char(flags);
}

} // namespace frameformat
