#pragma once

// Strict stream decoding of radar frames, for programs that must not lose a
// frame (orv-cli, the module simulator). Unlike the window's receive scan it
// reads the length field unsigned, checks the sum and the tail, resumes right
// after every frame and never gives up on a stream: every complete frame with
// a good sum that appears in the bytes is delivered, whatever the chunking.
//
// A candidate frame is a header FF EE DD with a length of 1 or more whose
// whole frame fits in maxFrameSize bytes and ends in DD EE FF. A candidate
// whose sum is wrong is counted in badSums and skipped whole; anything else
// that is not part of a frame is counted in skippedBytes, one byte at a time.

#include "radar/frameformat.h"

#include <QByteArray>
#include <QList>

struct FrameStreamStats {
    qint64 frames = 0;       // complete frames with a good sum
    qint64 badSums = 0;      // complete frames whose sum was wrong
    qint64 skippedBytes = 0; // bytes outside every frame (noise, broken headers)
};

namespace frameformat
{

// Largest frame the module can send: 128 targets of 2 bytes plus the envelope,
// with room to spare. Longer declared lengths are taken as noise.
constexpr int kDefaultMaxFrameSize = 1024;

// What scanFrames found at one position.
enum class Candidate {
    Frame,      // a complete frame with a good sum
    BadSum,     // a complete frame whose sum is wrong
    NotAFrame,  // no frame starts here
    Incomplete, // a frame may start here but its bytes are not all there yet
};

// Classifies the bytes at offset; size receives the frame's size for Frame and
// BadSum.
Candidate classifyAt(ByteView data, int offset, int maxFrameSize, int &size);

// Scans data and calls onFrame(ByteView frame) for every good frame, in
// order. Returns how many leading bytes are consumed; the rest (at most
// maxFrameSize - 1 bytes, the start of an unfinished frame or of a header)
// must be presented again with the bytes that follow.
template <typename OnFrame>
int scanFrames(ByteView data, int maxFrameSize, FrameStreamStats &stats, OnFrame &&onFrame)
{
    const int size = data.size();
    const char *bytes = data.data();
    int pos = 0;
    while (pos < size) {
        if (quint8(bytes[pos]) != 0xFF) {
            ++stats.skippedBytes;
            ++pos;
            continue;
        }
        int frameSize = 0;
        switch (classifyAt(data, pos, maxFrameSize, frameSize)) {
        case Candidate::Frame:
            ++stats.frames;
            onFrame(ByteView(bytes + pos, frameSize));
            pos += frameSize;
            break;
        case Candidate::BadSum:
            ++stats.badSums;
            pos += frameSize;
            break;
        case Candidate::NotAFrame:
            ++stats.skippedBytes;
            ++pos;
            break;
        case Candidate::Incomplete:
            return pos;
        }
    }
    return pos;
}

} // namespace frameformat

// Keeps the carry-over between chunks for scanFrames.
class FrameDecoder
{
public:
    explicit FrameDecoder(int maxFrameSize = frameformat::kDefaultMaxFrameSize);

    // Decodes the chunk together with what was kept from earlier chunks and
    // calls onFrame(frameformat::ByteView) for every good frame.
    template <typename OnFrame> void feed(const char *data, int size, OnFrame &&onFrame)
    {
        if (pending.isEmpty()) {
            const int used = frameformat::scanFrames(frameformat::ByteView(data, size), maxSize,
                                                     counts, onFrame);
            pending = QByteArray(data + used, size - used);
            return;
        }
        pending.append(data, size);
        const int used = frameformat::scanFrames(pending, maxSize, counts, onFrame);
        pending.remove(0, used);
    }

    // Convenience form: the good frames of this chunk as byte arrays.
    QList<QByteArray> feed(const QByteArray &chunk);

    // Bytes kept for an unfinished frame (never more than maxFrameSize - 1).
    int pendingBytes() const { return pending.size(); }
    // Counts the kept bytes as skipped and forgets them (end of stream).
    void finish();
    void reset();

    const FrameStreamStats &stats() const { return counts; }
    int maxFrameSize() const { return maxSize; }

private:
    int maxSize;
    QByteArray pending;
    FrameStreamStats counts;
};
