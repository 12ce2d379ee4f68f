#pragma once

#include <QByteArray>
#include <QList>

#include <random>

// Turns each outgoing frame into the writes that go on the line: optional
// garbage before it, an optional wrong sum, optional random chunking, and
// the pauses after each write.
class FaultInjector
{
public:
    struct Settings {
        int noiseBytes = 0;       // garbage bytes written before every frame
        double badChecksum = 0.0; // probability that a frame's sum is wrong
        bool split = false;       // write the frame in 2 to 4 chunks
        int frameGapMs = 5;       // pause after the last write of a frame
        int chunkPauseMs = 2;     // pause after noise and after each non-final chunk
    };

    // One write on the line and the pause before the next one.
    struct Chunk {
        QByteArray bytes;
        int pauseAfterMs = 0;
    };

    FaultInjector(const Settings &settings, quint32 seed);

    QList<Chunk> prepare(const QByteArray &frame);

    // The same frame with its sum byte (the 4th byte from the end) changed.
    static QByteArray corruptChecksum(const QByteArray &frame);

    const Settings &settings() const { return config; }
    int corruptedFrames() const { return corrupted; }

private:
    quint32 below(quint32 n); // uniform in 0 .. n-1

    Settings config;
    std::mt19937 rng;
    int corrupted = 0;
};
