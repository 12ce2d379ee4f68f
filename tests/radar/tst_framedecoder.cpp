// The strict stream decoder: every good frame of a stream, whatever the
// chunking, with noise, bad sums and broken headers counted.

#include "radar/framedecoder.h"

#include <QRandomGenerator>
#include <QtTest>

using namespace frameformat;

namespace
{

QByteArray hex(const char *text)
{
    return QByteArray::fromHex(QByteArray(text));
}

QByteArray targetFrame(int seed)
{
    QByteArray payload;
    for (int k = 0; k < 2 * (seed % 5); ++k)
        payload.append(char(seed * 7 + k));
    return buildFrame(TargetReport, payload);
}

QByteArray withBadSum(QByteArray frame)
{
    frame[frame.size() - 4] = char(frame.at(frame.size() - 4) + 1);
    return frame;
}

QList<QByteArray> feedInChunks(FrameDecoder &decoder, const QByteArray &stream, int chunk)
{
    QList<QByteArray> frames;
    for (int pos = 0; pos < stream.size(); pos += chunk)
        frames += decoder.feed(stream.mid(pos, chunk));
    return frames;
}

} // namespace

class TestFrameDecoder : public QObject
{
    Q_OBJECT

private slots:
    void stream_data();
    void stream();
    void everyChunkingGivesTheSameFrames();
    void carryOverIsBounded();
    void falseHeaderDoesNotHideFrames();
    void finishCountsKeptBytes();
    void randomStreamsAgainstTheirMaking();
};

void TestFrameDecoder::stream_data()
{
    QTest::addColumn<QByteArray>("stream");
    QTest::addColumn<int>("frames");
    QTest::addColumn<int>("badSums");
    QTest::addColumn<int>("skipped");
    QTest::addColumn<int>("pending");

    const QByteArray report = hex("FF EE DD 00 05 07 0A 1E F6 14 39 DD EE FF");
    const QByteArray ok = hex("FF EE DD 00 02 01 01 02 DD EE FF");
    QTest::newRow("one frame") << report << 1 << 0 << 0 << 0;
    QTest::newRow("back to back, none lost") << report + ok + report << 3 << 0 << 0 << 0;
    QTest::newRow("noise around") << QByteArray("xyz") + report + QByteArray("\x01\x02", 2) + ok
                                  << 2 << 0 << 5 << 0;
    QTest::newRow("bad sum skipped whole") << withBadSum(report) + ok << 1 << 1 << 0 << 0;
    QTest::newRow("wrong tail is no frame")
        << hex("FF EE DD 00 02 01 01 02 DD EE 00") << 0 << 0 << 11 << 0;
    QTest::newRow("zero length is no frame")
        << hex("FF EE DD 00 00 00 DD EE FF") + ok << 1 << 0 << 9 << 0;
    QTest::newRow("length beyond the limit is no frame")
        << hex("FF EE DD 7F FF") + ok << 1 << 0 << 5 << 0;
    QTest::newRow("unfinished frame kept") << report + ok.left(7) << 1 << 0 << 0 << 7;
    QTest::newRow("header start kept") << report + hex("FF EE") << 1 << 0 << 0 << 2;
    QTest::newRow("length byte 0x80 read unsigned")
        << buildFrame(TargetReport, QByteArray(0x80, '\x01')) << 1 << 0 << 0 << 0;
    QTest::newRow("empty") << QByteArray() << 0 << 0 << 0 << 0;
}

void TestFrameDecoder::stream()
{
    QFETCH(QByteArray, stream);
    QFETCH(int, frames);
    QFETCH(int, badSums);
    QFETCH(int, skipped);
    QFETCH(int, pending);

    FrameDecoder decoder;
    const QList<QByteArray> found = decoder.feed(stream);
    QCOMPARE(found.size(), frames);
    QCOMPARE(decoder.stats().frames, qint64(frames));
    QCOMPARE(decoder.stats().badSums, qint64(badSums));
    QCOMPARE(decoder.stats().skippedBytes, qint64(skipped));
    QCOMPARE(decoder.pendingBytes(), pending);
    for (const QByteArray &frame : found)
        QVERIFY(checksumMatches(frame));
}

void TestFrameDecoder::everyChunkingGivesTheSameFrames()
{
    QByteArray stream;
    QList<QByteArray> expected;
    for (int k = 0; k < 40; ++k) {
        const QByteArray frame = targetFrame(k);
        stream += frame;
        expected << frame;
        if (k % 3 == 0)
            stream += QByteArray("\xFF\x00\xEE", 3);
        if (k % 7 == 0)
            stream += withBadSum(targetFrame(k + 1));
    }
    for (int chunk = 1; chunk <= 64; ++chunk) {
        FrameDecoder decoder;
        QCOMPARE(feedInChunks(decoder, stream, chunk), expected);
        QCOMPARE(decoder.stats().badSums, qint64(6));
        QCOMPARE(decoder.pendingBytes(), 0);
    }
}

void TestFrameDecoder::carryOverIsBounded()
{
    // A header claiming the largest accepted frame waits for its bytes, never
    // for more.
    FrameDecoder decoder(64);
    QByteArray stream = hex("FF EE DD 00 37"); // 0x37 + 9 = 64 bytes
    stream += QByteArray(200, '\x00');
    for (int pos = 0; pos < stream.size(); ++pos) {
        decoder.feed(stream.mid(pos, 1));
        QVERIFY2(decoder.pendingBytes() < 64, qPrintable(QString::number(decoder.pendingBytes())));
    }
    QCOMPARE(decoder.stats().frames, qint64(0));
    QCOMPARE(decoder.stats().skippedBytes + decoder.pendingBytes(), qint64(stream.size()));
}

void TestFrameDecoder::falseHeaderDoesNotHideFrames()
{
    // Noise that looks like the header of a long frame, with real frames in
    // the bytes it claims.
    QByteArray stream = hex("FF EE DD 00 40");
    QList<QByteArray> expected;
    for (int k = 0; k < 6; ++k) {
        expected << targetFrame(k + 1);
        stream += expected.last();
    }
    FrameDecoder decoder;
    QCOMPARE(feedInChunks(decoder, stream, 3), expected);
    QCOMPARE(decoder.stats().skippedBytes, qint64(5));
}

void TestFrameDecoder::finishCountsKeptBytes()
{
    FrameDecoder decoder;
    decoder.feed(hex("FF EE DD 00 05 07"));
    QCOMPARE(decoder.pendingBytes(), 6);
    decoder.finish();
    QCOMPARE(decoder.pendingBytes(), 0);
    QCOMPARE(decoder.stats().skippedBytes, qint64(6));
    decoder.reset();
    QCOMPARE(decoder.stats().skippedBytes, qint64(0));
}

void TestFrameDecoder::randomStreamsAgainstTheirMaking()
{
    // Streams made of good frames, bad-sum frames and noise without header
    // bytes: the decoder must find exactly what went in.
    QRandomGenerator rng(1234);
    for (int run = 0; run < 200; ++run) {
        QByteArray stream;
        QList<QByteArray> expected;
        qint64 noise = 0;
        int bad = 0;
        for (int piece = 0; piece < 30; ++piece) {
            const int kind = rng.bounded(3);
            if (kind == 0) {
                const int n = rng.bounded(1, 6);
                for (int k = 0; k < n; ++k)
                    stream.append(char(rng.bounded(0, 0xFF))); // never 0xFF
                noise += n;
            } else {
                QByteArray payload(rng.bounded(0, 300), Qt::Uninitialized);
                for (char &c : payload)
                    c = char(rng.bounded(256));
                const QByteArray frame = buildFrame(quint8(rng.bounded(1, 11)), payload);
                if (kind == 1) {
                    expected << frame;
                    stream += frame;
                } else {
                    ++bad;
                    stream += withBadSum(frame);
                }
            }
        }
        FrameDecoder decoder;
        QCOMPARE(feedInChunks(decoder, stream, rng.bounded(1, 100)), expected);
        QCOMPARE(decoder.stats().badSums, qint64(bad));
        QCOMPARE(decoder.stats().skippedBytes, noise);
    }
}

QTEST_APPLESS_MAIN(TestFrameDecoder)
#include "tst_framedecoder.moc"
