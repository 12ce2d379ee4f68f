#pragma once

// Link health over a stretch of time: frames by function code, bad sums,
// bytes outside frames and the longest silence between reads.

#include "radar/framedecoder.h"

#include <QByteArray>
#include <QString>

#include <array>

class LinkStats
{
public:
    // A read of bytes at atMs (milliseconds since the start of the measure).
    void addChunk(qint64 atMs, const QByteArray &bytes);
    // The end of the measure at atMs (closes the last silence).
    void finish(qint64 atMs);

    qint64 durationMs() const { return endMs; }
    qint64 bytes() const { return byteCount; }
    qint64 reads() const { return readCount; }
    qint64 framesWithCode(int code) const { return perCode[size_t(code & 0xFF)]; }
    const FrameStreamStats &frames() const { return decoder.stats(); }
    qint64 longestSilenceMs() const { return longestGapMs; }

    QString text() const;
    QByteArray json() const;

    static QString codeName(int code);

private:
    FrameDecoder decoder;
    std::array<qint64, 256> perCode{};
    qint64 byteCount = 0;
    qint64 readCount = 0;
    qint64 lastMs = 0;
    qint64 longestGapMs = 0;
    qint64 endMs = 0;
};
