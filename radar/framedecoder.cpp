#include "radar/framedecoder.h"

#include <QtGlobal>

namespace frameformat
{

Candidate classifyAt(ByteView data, int offset, int maxFrameSize, int &size)
{
    const int available = data.size() - offset;
    const char *p = data.data() + offset;
    // Header bytes that are there must match; missing ones may still come.
    for (int k = 0; k < kHeaderSize; ++k) {
        if (k >= available)
            return Candidate::Incomplete;
        if (quint8(p[k]) != kHeader[k])
            return Candidate::NotAFrame;
    }
    if (available < kLengthOffset + 2)
        return Candidate::Incomplete;
    const int length = unsignedLength(ByteView(p, available));
    const int total = length + kSizeBeyondLength;
    if (length < 1 || total > maxFrameSize)
        return Candidate::NotAFrame;
    if (available < total)
        return Candidate::Incomplete;
    for (int k = 0; k < kTailSize; ++k)
        if (quint8(p[total - kTailSize + k]) != kTail[k])
            return Candidate::NotAFrame;
    quint8 sum = 0;
    for (int k = kCodeOffset; k < kCodeOffset + length; ++k)
        sum = quint8(sum + quint8(p[k]));
    size = total;
    return sum == quint8(p[kCodeOffset + length]) ? Candidate::Frame : Candidate::BadSum;
}

} // namespace frameformat

FrameDecoder::FrameDecoder(int maxFrameSize)
    : maxSize(qMax(maxFrameSize, frameformat::kEnvelopeSize))
{
}

QList<QByteArray> FrameDecoder::feed(const QByteArray &chunk)
{
    QList<QByteArray> frames;
    feed(chunk.constData(), chunk.size(), [&frames](frameformat::ByteView frame) {
        frames.append(QByteArray(frame.data(), frame.size()));
    });
    return frames;
}

void FrameDecoder::finish()
{
    counts.skippedBytes += pending.size();
    pending.clear();
}

void FrameDecoder::reset()
{
    pending.clear();
    counts = FrameStreamStats();
}
