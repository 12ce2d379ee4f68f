#include "radar/framedecoder.h"

#include <QtGlobal>

namespace frameformat
{

Candidate classifyAt(ByteView data, int offset, int maxFrameSize, int &size)
{
    const int available = data.size() - offset;
    const char *p = data.data() + offset;
    // Header bytes that are there must match; missing ones may still come.
    static const quint8 header[3] = {0xFF, 0xEE, 0xDD};
    for (int k = 0; k < 3; ++k) {
        if (k >= available)
            return Candidate::Incomplete;
        if (quint8(p[k]) != header[k])
            return Candidate::NotAFrame;
    }
    if (available < 5)
        return Candidate::Incomplete;
    const int length = (quint8(p[3]) << 8) | quint8(p[4]);
    const int total = length + 9;
    if (length < 1 || total > maxFrameSize)
        return Candidate::NotAFrame;
    if (available < total)
        return Candidate::Incomplete;
    if (quint8(p[total - 3]) != 0xDD || quint8(p[total - 2]) != 0xEE ||
        quint8(p[total - 1]) != 0xFF)
        return Candidate::NotAFrame;
    quint8 sum = 0;
    for (int k = 5; k < 5 + length; ++k)
        sum = quint8(sum + quint8(p[k]));
    size = total;
    return sum == quint8(p[5 + length]) ? Candidate::Frame : Candidate::BadSum;
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
