// libFuzzer target: the strict frame stream decoder. The input's first byte
// picks the largest frame size and the cut points (from a small generator
// seeded by it); the rest is the stream. Fed in chunks it must give exactly
// the frames and counts of one feed, every frame delivered must be whole with
// a good sum, and what it keeps must stay below the largest frame size.

#include "radar/framedecoder.h"
#include "radar/frameformat.h"

#include <QByteArray>
#include <QList>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace
{

void check(bool condition)
{
    if (!condition)
        std::abort();
}

bool wellFormed(const QByteArray &frame, int maxFrameSize)
{
    if (frame.size() < frameformat::kEnvelopeSize || frame.size() > maxFrameSize)
        return false;
    // The length is read unsigned here, as the strict decoder reads it (the
    // window's checksumMatches reads it signed, wrong for low bytes >= 0x80).
    const int length = (quint8(frame.at(3)) << 8) | quint8(frame.at(4));
    if (!frameformat::hasHeaderAt(frame, 0) || length + 9 != frame.size() ||
        !frame.endsWith("\xDD\xEE\xFF"))
        return false;
    quint8 sum = 0;
    for (int k = 5; k < 5 + length; ++k)
        sum = quint8(sum + quint8(frame.at(k)));
    return sum == quint8(frame.at(5 + length));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size < 1)
        return 0;
    const std::uint8_t control = data[0];
    const int maxFrameSize =
        (control & 1) ? frameformat::kDefaultMaxFrameSize : 10 + (control >> 1);
    const QByteArray stream(reinterpret_cast<const char *>(data + 1), int(size - 1));

    FrameDecoder whole(maxFrameSize);
    const QList<QByteArray> expected = whole.feed(stream);
    check(whole.pendingBytes() < whole.maxFrameSize());
    for (const QByteArray &frame : expected)
        check(wellFormed(frame, whole.maxFrameSize()));

    FrameDecoder chunked(maxFrameSize);
    QList<QByteArray> got;
    std::uint32_t state = control * 2654435761u + 1;
    int pos = 0;
    while (pos < stream.size()) {
        state = state * 1664525u + 1013904223u;
        const int n = qMin(int((state >> 24) % 23), stream.size() - pos);
        chunked.feed(stream.constData() + pos, n, [&got](frameformat::ByteView frame) {
            got.append(QByteArray(frame.data(), frame.size()));
        });
        check(chunked.pendingBytes() < chunked.maxFrameSize());
        pos += n;
    }
    check(got == expected);

    whole.finish();
    chunked.finish();
    check(whole.pendingBytes() == 0 && chunked.pendingBytes() == 0);
    const FrameStreamStats &a = whole.stats();
    const FrameStreamStats &b = chunked.stats();
    check(a.frames == b.frames && a.badSums == b.badSums && a.skippedBytes == b.skippedBytes);
    check(a.frames == expected.size());
    // Every byte is in a good frame, a bad-sum frame or counted as skipped.
    qint64 inFrames = 0;
    for (const QByteArray &frame : expected)
        inFrames += frame.size();
    check(inFrames + a.skippedBytes <= stream.size());
    check(a.badSums * frameformat::kEnvelopeSize + inFrames + a.skippedBytes <= stream.size());
    return 0;
}
