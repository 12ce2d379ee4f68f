#pragma once

// The byte-level protocol spoken with the radar module: frame envelope,
// checksum, coordinates and the payload layouts of every request and
// response. Plain functions, no I/O, so tests and the module simulator can
// drive them with byte arrays.
//
// Frame: FF EE DD | length (2 bytes, big-endian, = payload + 1) | code |
//        payload | 8-bit sum of code and payload | DD EE FF

#include <QByteArray>
#include <QList>
#include <QPointF>
#include <QRectF>
#include <QString>

#include <array>

enum FunctionCode : quint8 {
    SetBaudrate = 1,
    SetTargetShowType = 2,
    ReadTargetShowType = 3,
    SetArea = 4,
    RepealArea = 5,
    ReadArea = 6,
    TargetReport = 7,
    TargetAreaReport = 8,
    CancelAllArea = 10,
};

namespace frameformat
{

// The envelope: its marks, the offsets of its fields and its sizes. Every
// reader and writer of frames (decoders, the window's link, orv-cli's
// session, radar-sim) takes them from here.
inline constexpr quint8 kHeader[3] = {0xFF, 0xEE, 0xDD};
inline constexpr quint8 kTail[3] = {0xDD, 0xEE, 0xFF};
constexpr int kHeaderSize = 3;
constexpr int kTailSize = 3;
constexpr int kLengthOffset = 3;  // 2 bytes, big-endian, = payload + 1
constexpr int kCodeOffset = 5;    // function code
constexpr int kPayloadOffset = 6; // payload, then the sum, then the tail
// A frame's size is its length field plus this (header, length, sum, tail).
constexpr int kSizeBeyondLength = kLengthOffset + 2 + 1 + kTailSize;

constexpr int kEnvelopeSize = 10;      // header + length + code + sum + tail
constexpr int kMinResponseSize = 11;   // shortest frame the module sends
constexpr int kReadAreaFrameSize = 40; // the module's code 6 response

// Request frame for a function code and its payload (payload.size() + 10 bytes).
QByteArray buildFrame(quint8 code, const QByteArray &payload);

// Each byte as "%02X " (two upper-case hex digits and a space).
QString hexDump(const QByteArray &bytes);
// The same text as Latin-1 bytes (for the diagnostic log).
QByteArray hexDumpLatin1(const QByteArray &bytes);

// Read-only bytes the decoders work on: a whole QByteArray or a frame inside
// a larger buffer, read in place without a copy. Made implicitly from a
// QByteArray, which must outlive the view.
class ByteView
{
public:
    ByteView(const QByteArray &bytes) : bytes(bytes.constData()), length(bytes.size()) {}
    ByteView(const char *data, int size) : bytes(data), length(size) {}

    const char *data() const { return bytes; }
    int size() const { return length; }

private:
    const char *bytes;
    int length;
};

// Byte at offset, or 0 when the offset lies outside the data.
inline quint8 byteAt(ByteView data, int offset)
{
    if (offset < 0 || offset >= data.size())
        return 0;
    return quint8(data.data()[offset]);
}

inline qint8 signedByteAt(ByteView data, int offset)
{
    return qint8(byteAt(data, offset));
}

// True when FF EE DD starts at offset (a position beyond the end never matches).
inline bool hasHeaderAt(ByteView data, int offset)
{
    if (offset < 0 || offset > data.size() - 3)
        return false;
    const char *p = data.data() + offset;
    return quint8(p[0]) == kHeader[0] && quint8(p[1]) == kHeader[1] && quint8(p[2]) == kHeader[2];
}

// Length field of the frame starting at offset, read as the module means it
// (unsigned, big-endian). Missing bytes read 0.
inline int unsignedLength(ByteView data, int offset = 0)
{
    return (byteAt(data, offset + kLengthOffset) << 8) | byteAt(data, offset + kLengthOffset + 1);
}

// Function code of a frame (0 when the frame is too short to hold one).
inline quint8 codeOf(ByteView frame)
{
    return byteAt(frame, kCodeOffset);
}
// Size of the frame whose header starts at offset, from its length field read
// with signed bytes: 256 * s(byte 3) + 9 + s(byte 4). Missing bytes read 0.
int declaredFrameSize(ByteView data, int offset);

// Length field read with signed bytes: 256 * s(byte 3) + s(byte 4).
int signedLength(ByteView frame);
// 8-bit sum of bytes 5 .. 5 + length - 1 (none when length <= 0).
quint8 computeChecksum(ByteView frame);
// True when the computed sum equals byte 5 + length.
bool checksumMatches(ByteView frame);

// Metres to 0.1 m signed byte: truncation toward zero, low 8 bits kept.
qint8 encodeCoordinate(double metres);
inline double decodeCoordinate(qint8 decimetres)
{
    return decimetres * 0.1;
}

QByteArray setAreaPayload(quint8 index, quint8 type, const QRectF &rect);
QByteArray baudRatePayload(int baudRate);

// Response decoders. Offsets are frame offsets; missing bytes read as 0.
bool decodeResult(ByteView frame); // byte 6 == 1

struct SetAreaResponse {
    int number = 0; // 1..3 on the wire
    int type = 0;
    bool ok = false;
};
SetAreaResponse decodeSetAreaResponse(ByteView frame);

struct RepealAreaResponse {
    int number = 0;
    bool ok = false;
};
RepealAreaResponse decodeRepealAreaResponse(ByteView frame);

struct AreaReport {
    int type = 0; // unsigned byte; 2 = no area defined
    QRectF rect;  // first and opposite corner, not normalised
};
std::array<AreaReport, 3> decodeReadAreaResponse(ByteView frame);

int decodeShowType(ByteView frame); // signed byte 6
QList<QPointF> decodeTargets(ByteView frame);
// The same into an existing list, whose storage is reused when nobody else
// holds it (a steady stream of reports then allocates nothing).
void decodeTargetsInto(ByteView frame, QList<QPointF> &targets);
char decodeAreaFlags(ByteView frame);

} // namespace frameformat
