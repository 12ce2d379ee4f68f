#include "tools/radar-sim/faultinjector.h"

#include <algorithm>
#include <vector>

FaultInjector::FaultInjector(const Settings &settings, quint32 seed) : config(settings), rng(seed)
{
}

quint32 FaultInjector::below(quint32 n)
{
    return n == 0 ? 0 : quint32(rng() % n);
}

QByteArray FaultInjector::corruptChecksum(const QByteArray &frame)
{
    QByteArray out = frame;
    if (out.size() >= 4) {
        const int at = out.size() - 4;
        out[at] = char(quint8(out.at(at)) + 1);
    }
    return out;
}

QList<FaultInjector::Chunk> FaultInjector::prepare(const QByteArray &frame)
{
    QList<Chunk> out;
    if (config.noiseBytes > 0) {
        // Never 0xFF, so the garbage cannot start a header of its own.
        QByteArray noise(config.noiseBytes, Qt::Uninitialized);
        for (int k = 0; k < noise.size(); ++k)
            noise[k] = char(below(0xFF));
        out.append({noise, config.chunkPauseMs});
    }

    QByteArray bytes = frame;
    if (config.badChecksum > 0.0 && double(rng()) / 4294967296.0 < config.badChecksum) {
        bytes = corruptChecksum(bytes);
        ++corrupted;
    }

    if (config.split && bytes.size() >= 2) {
        const int pieces = std::min<int>(bytes.size(), 2 + int(below(3)));
        // pieces - 1 distinct cut positions in 1 .. size-1.
        std::vector<int> cuts;
        while (int(cuts.size()) < pieces - 1) {
            const int c = 1 + int(below(quint32(bytes.size() - 1)));
            if (std::find(cuts.begin(), cuts.end(), c) == cuts.end())
                cuts.push_back(c);
        }
        std::sort(cuts.begin(), cuts.end());
        int from = 0;
        for (int c : cuts) {
            out.append({bytes.mid(from, c - from), config.chunkPauseMs});
            from = c;
        }
        out.append({bytes.mid(from), config.frameGapMs});
    } else {
        out.append({bytes, config.frameGapMs});
    }
    return out;
}
