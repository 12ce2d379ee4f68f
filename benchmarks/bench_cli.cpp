// orv-cli's hot paths: the strict frame stream decoder on a stream of
// reports, and the jsonl line of a 128-target report. Each is measured next
// to the straightforward way of doing the same (a search for the header with
// QByteArray::indexOf and copies; a QJsonDocument per line), so the figures
// compare within one run.

#include "cli/reportformatter.h"
#include "radar/framedecoder.h"
#include "radar/frameformat.h"

#include <QByteArray>
#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <benchmark/benchmark.h>

#include <random>

namespace
{

QByteArray report(int targets, std::mt19937 &random)
{
    QByteArray payload;
    for (int t = 0; t < targets; ++t) {
        payload.append(char(int(random() % 161) - 80));
        payload.append(char(random() % 81));
    }
    return frameformat::buildFrame(TargetReport, payload);
}

// About 1 MiB of target reports (1 to 128 targets) each followed by an area
// report, as the module sends them; with noise, 1 to 8 bytes between frames.
QByteArray reportStream(bool noise)
{
    std::mt19937 random(5);
    QByteArray stream;
    while (stream.size() < (1 << 20)) {
        stream += report(1 + int(random() % 128), random);
        stream += frameformat::buildFrame(TargetAreaReport, QByteArray("\x01\x00\x00", 3));
        if (noise) {
            const int n = 1 + int(random() % 8);
            for (int k = 0; k < n; ++k)
                stream.append(char(random() % 0xFF)); // never 0xFF
        }
    }
    return stream;
}

// The straightforward way: find the header, copy the frame out, check its
// sum and tail, keep the rest in a growing buffer.
int naiveScan(QByteArray &pending, const QByteArray &chunk)
{
    static const QByteArray header("\xFF\xEE\xDD", 3);
    pending += chunk;
    int frames = 0;
    for (;;) {
        const int start = pending.indexOf(header);
        if (start < 0) {
            pending = pending.right(2);
            return frames;
        }
        if (pending.size() - start < 5) {
            pending.remove(0, start);
            return frames;
        }
        const int length = (quint8(pending.at(start + 3)) << 8) | quint8(pending.at(start + 4));
        const int total = length + 9;
        if (pending.size() - start < total) {
            pending.remove(0, start);
            return frames;
        }
        const QByteArray frame = pending.mid(start, total);
        if (frame.endsWith("\xDD\xEE\xFF") && frameformat::checksumMatches(frame)) {
            ++frames;
            pending.remove(0, start + total);
        } else {
            pending.remove(0, start + 1);
        }
    }
}

void BM_StrictDecoder(benchmark::State &state)
{
    const QByteArray stream = reportStream(state.range(1) != 0);
    const int chunk = int(state.range(0));
    qint64 frames = 0;
    for (auto _ : state) {
        FrameDecoder decoder;
        for (int pos = 0; pos < stream.size(); pos += chunk) {
            decoder.feed(stream.constData() + pos, qMin(chunk, stream.size() - pos),
                         [&frames](frameformat::ByteView frame) { frames += frame.size() > 0; });
        }
    }
    benchmark::DoNotOptimize(frames);
    state.SetBytesProcessed(state.iterations() * stream.size());
}
BENCHMARK(BM_StrictDecoder)
    ->ArgNames({"chunk", "noise"})
    ->Args({64, 0})
    ->Args({4096, 0})
    ->Args({4096, 1});

void BM_NaiveScan(benchmark::State &state)
{
    const QByteArray stream = reportStream(state.range(1) != 0);
    const int chunk = int(state.range(0));
    qint64 frames = 0;
    for (auto _ : state) {
        QByteArray pending;
        for (int pos = 0; pos < stream.size(); pos += chunk)
            frames += naiveScan(pending, stream.mid(pos, chunk));
    }
    benchmark::DoNotOptimize(frames);
    state.SetBytesProcessed(state.iterations() * stream.size());
}
BENCHMARK(BM_NaiveScan)
    ->ArgNames({"chunk", "noise"})
    ->Args({64, 0})
    ->Args({4096, 0})
    ->Args({4096, 1});

const qint64 kNow = QDateTime::currentMSecsSinceEpoch();

void BM_JsonlLine128(benchmark::State &state)
{
    std::mt19937 random(3);
    const QByteArray frame = report(128, random);
    ReportFormatter formatter(ReportFormatter::Format::Jsonl);
    QByteArray out;
    qint64 at = kNow;
    for (auto _ : state) {
        out.clear();
        formatter.append(out, at += 10, frame);
        benchmark::DoNotOptimize(out.constData());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_JsonlLine128);

void BM_JsonlLine128QJsonDocument(benchmark::State &state)
{
    std::mt19937 random(3);
    const QByteArray frame = report(128, random);
    qint64 at = kNow;
    for (auto _ : state) {
        const QList<QPointF> targets = frameformat::decodeTargets(frame);
        QJsonArray list;
        for (const QPointF &p : targets)
            list.append(QJsonArray{p.x(), p.y()});
        QJsonObject o;
        o["time"] = QDateTime::fromMSecsSinceEpoch(at += 10, Qt::UTC).toString(Qt::ISODateWithMs);
        o["kind"] = "targets";
        o["targets"] = list;
        const QByteArray out = QJsonDocument(o).toJson(QJsonDocument::Compact) + '\n';
        benchmark::DoNotOptimize(out.constData());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_JsonlLine128QJsonDocument);

} // namespace

BENCHMARK_MAIN();
