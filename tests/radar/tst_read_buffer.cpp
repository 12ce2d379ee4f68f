// The link's read buffer while a response slot holds the GUI thread in a
// message box: a peer on a real pseudo-terminal streams target reports at
// about the rate of 921600 baud, the first report's slot opens a modal box
// for a few seconds. Meanwhile no readyRead is delivered (the slot that got
// the last one has not returned), so the port buffers what arrives. That
// buffer must stay within its limit and the process must not grow, and once
// the box closes reading must resume with what the peer sends afterwards.

#include "ptypeer.h"
#include "radar/radercommunicate.h"
#include "radar/radercommunicateaccess.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QMessageBox>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

#include <atomic>
#include <cerrno>
#include <thread>
#include <unistd.h>

namespace
{

// The limit the link sets (documented in the README).
constexpr qint64 kLimit = 32768;

// Resident memory of this process in bytes (Linux).
qint64 residentBytes()
{
    QFile statm(QStringLiteral("/proc/self/statm"));
    if (!statm.open(QIODevice::ReadOnly))
        return -1;
    const QList<QByteArray> fields = statm.readAll().split(' ');
    if (fields.size() < 2)
        return -1;
    return fields.at(1).toLongLong() * qint64(sysconf(_SC_PAGESIZE));
}

// A target report (code 7) of `people` targets, all at (x, 4.0 m).
QByteArray targetFrame(int people, qint8 x)
{
    QByteArray payload;
    payload.append(char(0x07));
    for (int i = 0; i < people; ++i) {
        payload.append(char(x));
        payload.append(char(40));
    }
    quint8 sum = 0;
    for (char c : payload)
        sum = quint8(sum + quint8(c));
    QByteArray frame("\xFF\xEE\xDD", 3);
    const int length = payload.size();
    frame.append(char((length >> 8) & 0xFF));
    frame.append(char(length & 0xFF));
    frame.append(payload);
    frame.append(char(sum));
    frame.append("\xDD\xEE\xFF", 3);
    return frame;
}

void quiet(QtMsgType, const QMessageLogContext &, const QString &) {}

// The module's end of a pseudo-terminal, with a thread that writes target reports
// (30 people, 70 bytes) one per millisecond while told to, with x = 1.0 m
// before the hold ends and x = -3.0 m after. A full pseudo-terminal (the
// link not reading) makes the writes wait; nothing is dropped.
class StreamingPeer : public PtyPeer
{
public:
    ~StreamingPeer() { stop(); }

    void start()
    {
        running = true;
        writer = std::thread([this] { run(); });
    }

    void stop()
    {
        running = false;
        if (writer.joinable())
            writer.join();
        closeMaster();
    }

    std::atomic<bool> afterHold{false};
    std::atomic<qint64> written{0};

private:
    void run()
    {
        const QByteArray before = targetFrame(30, 10);
        const QByteArray after = targetFrame(30, -30);
        while (running) {
            const QByteArray &frame = afterHold ? after : before;
            int done = 0;
            while (running && done < frame.size()) {
                const ssize_t n =
                    ::write(master, frame.constData() + done, size_t(frame.size() - done));
                if (n > 0) {
                    done += int(n);
                    written += n;
                } else if (n < 0 && errno != EAGAIN && errno != EINTR) {
                    return;
                } else {
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                }
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    std::atomic<bool> running{false};
    std::thread writer;
};

} // namespace

class TestReadBuffer : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void boundedWhileSlotHeld_data();
    void boundedWhileSlotHeld();
    void limitIsSetOnOpen();

private:
    QTemporaryDir runDir;
};

void TestReadBuffer::initTestCase()
{
    QVERIFY(runDir.isValid());
    QDir::setCurrent(runDir.path());
    qInstallMessageHandler(&quiet);
    // The hex dumps of a stream this fast are not what is tested here.
    RaderCommunicateAccess::setLogEnabled(RaderCommunicate::GetInstance(), false);
    // One box shown and closed before anything is measured: the first one
    // loads fonts and styles once for the process.
    QTimer::singleShot(100, [] {
        if (QWidget *box = QApplication::activeModalWidget())
            box->close();
    });
    QMessageBox::information(nullptr, QStringLiteral("warm-up"), QStringLiteral("warm-up"));
}

void TestReadBuffer::boundedWhileSlotHeld_data()
{
    QTest::addColumn<bool>("messageBox");
    QTest::newRow("message box") << true;
    QTest::newRow("nested event loop") << false;
}

void TestReadBuffer::boundedWhileSlotHeld()
{
    QFETCH(bool, messageBox);
    const int holdMs = 3000;

    StreamingPeer peer;
    QVERIFY(peer.open());
    RaderCommunicate *link = RaderCommunicate::GetInstance();
    QSerialPort *port = RaderCommunicateAccess::port(link);
    QVERIFY(link->OpenSerial(peer.slave, 921600));

    bool held = false;
    qint64 maxAvailable = 0;
    qint64 rssAtHold = 0;
    qint64 maxRss = 0;
    qint64 writtenDuringHold = 0;
    int reportsBefore = 0;
    int reportsAfter = 0;
    QTimer sampler;
    sampler.setInterval(50);
    QObject::connect(&sampler, &QTimer::timeout, [&] {
        maxAvailable = qMax(maxAvailable, port->bytesAvailable());
        maxRss = qMax(maxRss, residentBytes());
    });

    QMetaObject::Connection slot = QObject::connect(
        link, &RaderCommunicate::signal_TargetResp, [&](const QList<QPointF> &targets) {
            if (targets.isEmpty())
                return;
            if (targets.first().x() < 0) {
                ++reportsAfter;
                return;
            }
            ++reportsBefore;
            if (held)
                return;
            held = true;
            rssAtHold = residentBytes();
            const qint64 writtenAtHold = peer.written;
            sampler.start();
            if (messageBox) {
                QTimer::singleShot(holdMs, [] {
                    if (QWidget *box = QApplication::activeModalWidget())
                        box->close();
                });
                QMessageBox::information(nullptr, QStringLiteral("hold"),
                                         QStringLiteral("the GUI thread is held"));
            } else {
                QEventLoop loop;
                QTimer::singleShot(holdMs, &loop, &QEventLoop::quit);
                loop.exec();
            }
            sampler.stop();
            writtenDuringHold = peer.written - writtenAtHold;
            peer.afterHold = true;
        });

    peer.start();
    QTRY_VERIFY_WITH_TIMEOUT(held, 5000);
    // Reading resumed: reports sent after the hold arrive, and keep arriving.
    QTRY_VERIFY_WITH_TIMEOUT(reportsAfter > 0, 5000);
    const int resumed = reportsAfter;
    QTRY_VERIFY2_WITH_TIMEOUT(reportsAfter > resumed, qPrintable(QString::number(reportsAfter)),
                              5000);
    peer.stop();
    QObject::disconnect(slot);
    link->CloseSerial();

    const QString figures = QString("buffered at most %1 bytes, resident memory %2 -> %3 KiB, "
                                    "peer wrote %4 bytes during the hold")
                                .arg(maxAvailable)
                                .arg(rssAtHold / 1024)
                                .arg(maxRss / 1024)
                                .arg(writtenDuringHold);
    fprintf(stderr, "%s\n", qPrintable(figures));
    // The peer kept writing while the link was held (the kernel's buffer
    // takes some), but the port's own buffer stayed at its limit.
    QVERIFY2(maxAvailable > 0, qPrintable(figures));
    QVERIFY2(maxAvailable <= kLimit, qPrintable(figures));
    QVERIFY2(writtenDuringHold > kLimit, qPrintable(figures));
    // Without the limit every small read takes a block of its own: the
    // process grows by many megabytes in three seconds.
    QVERIFY2(maxRss - rssAtHold < 8 * 1024 * 1024, qPrintable(figures));
}

void TestReadBuffer::limitIsSetOnOpen()
{
    StreamingPeer peer;
    QVERIFY(peer.open());
    RaderCommunicate *link = RaderCommunicate::GetInstance();
    QVERIFY(link->OpenSerial(peer.slave, 115200));
    QCOMPARE(RaderCommunicateAccess::port(link)->readBufferSize(), kLimit);
    link->CloseSerial();
}

QTEST_MAIN(TestReadBuffer)
#include "tst_read_buffer.moc"
