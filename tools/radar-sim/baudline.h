#pragma once

#include <QByteArray>
#include <QtGlobal>

// What a serial line carries, 8N1 (ten bits on the line per byte), and what
// it makes of bytes when the two ends are set to different rates.
class BaudLine
{
public:
    static constexpr int kBitsPerByte = 10;

    // Bytes per second the line carries at this rate.
    static double bytesPerSecond(int baud) { return baud > 0 ? double(baud) / kBitsPerByte : 0.0; }
    // Microseconds the line is busy with this many bytes at this rate.
    static qint64 lineTimeUs(qint64 bytes, int baud);

    // What a receiver set to readRate gets from bytes sent at sentRate when
    // the rates differ: about as many bytes as its own clock frames while
    // they pass (fewer for a slower receiver, at most two per byte for a
    // faster one), none of them 0xFF, so that no frame header can appear in
    // them. readRate 0 (not known) counts as one byte per byte sent. The
    // result depends only on the bytes and on what was garbled before.
    QByteArray garble(const QByteArray &bytes, int sentRate, int readRate);

private:
    quint32 state = 0x9E3779B9u;
    double carry = 0.0; // fraction of a received byte left from the last call
};
