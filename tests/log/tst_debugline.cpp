// Debug lines must read exactly as qDebug() prints the same arguments: each
// row writes a line both ways and compares what the message handler received.

#include "log/debugline.h"

#include <QDebug>
#include <QLoggingCategory>
#include <QStringList>
#include <QtTest>

#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>

namespace
{

struct Captured {
    QtMsgType type;
    QString category;
    QString text;
};

QList<Captured> captured;

void capture(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    captured.append({type, QString::fromLatin1(context.category), text});
}

// The dump as the radar link renders it, "%02X " per byte, built here
// independently of the line's own table.
QString hexText(const QByteArray &bytes)
{
    QString text;
    for (char b : bytes)
        text += QString::asprintf("%02X ", unsigned(quint8(b)));
    return text;
}

QByteArray allByteValues()
{
    QByteArray bytes;
    for (int b = 0; b < 256; ++b)
        bytes.append(char(b));
    return bytes;
}

} // namespace

class TestDebugLine : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        captured.clear();
        previous = qInstallMessageHandler(&capture);
    }
    void cleanup()
    {
        qInstallMessageHandler(previous);
        QLoggingCategory::setFilterRules(QString());
    }

    void hexDumpReadsAsQDebug_data()
    {
        QTest::addColumn<QByteArray>("label");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("empty") << QByteArray("recvData:") << QByteArray();
        QTest::newRow("one byte") << QByteArray("recvData:") << QByteArray(1, '\x0A');
        QTest::newRow("frame") << QByteArray("recvData:")
                               << QByteArray::fromHex("FFEEDD00020101 02DDEEFF");
        QTest::newRow("every byte value") << QByteArray("last part Data:") << allByteValues();
        QTest::newRow("request") << QByteArray("SendData:")
                                 << QByteArray::fromHex("FFEEDD000106 06DDEEFF");
        QTest::newRow("longer than the reserved buffer")
            << QByteArray("recvData:") << QByteArray(700, '\xC3');
    }
    void hexDumpReadsAsQDebug()
    {
        QFETCH(QByteArray, label);
        QFETCH(QByteArray, bytes);
        qDebug() << label.constData() << hexText(bytes);
        DebugLine line(QString::fromLatin1(label));
        line.hexDump(bytes);
        compareLastTwo();
    }

    void numberReadsAsQDebug_data()
    {
        QTest::addColumn<QByteArray>("label");
        QTest::addColumn<int>("value");
        QTest::newRow("zero") << QByteArray("code:") << 0;
        QTest::newRow("one digit") << QByteArray("code:") << 7;
        QTest::newRow("ten") << QByteArray("code:") << 10;
        QTest::newRow("largest signed byte") << QByteArray("code:") << 127;
        QTest::newRow("negative") << QByteArray("code:") << -1;
        QTest::newRow("smallest signed byte") << QByteArray("code:") << -128;
        QTest::newRow("count") << QByteArray("targetList size:") << 128;
        QTest::newRow("largest int") << QByteArray("targetList size:") << INT_MAX;
        QTest::newRow("smallest int") << QByteArray("targetList size:") << INT_MIN;
    }
    void numberReadsAsQDebug()
    {
        QFETCH(QByteArray, label);
        QFETCH(int, value);
        qDebug() << label.constData() << value;
        DebugLine line(QString::fromLatin1(label));
        line.number(value);
        compareLastTwo();
    }

    void pointReadsAsQDebug_data()
    {
        QTest::addColumn<QPointF>("point");
        const double inf = std::numeric_limits<double>::infinity();
        QTest::newRow("origin") << QPointF(0, 0);
        QTest::newRow("negative zero") << QPointF(-0.0, 0.0);
        QTest::newRow("decoded decimetres") << QPointF(-12 * 0.1, 37 * 0.1);
        QTest::newRow("six digits") << QPointF(123456.5, -0.000123456789);
        QTest::newRow("exponents") << QPointF(1e-7, 1e21);
        QTest::newRow("extremes") << QPointF(5e-324, -1.7976931348623157e308);
        QTest::newRow("infinities") << QPointF(inf, -inf);
        QTest::newRow("not a number") << QPointF(std::nan(""), 1.0);
    }
    void pointReadsAsQDebug()
    {
        QFETCH(QPointF, point);
        qDebug() << "TargetPos" << point;
        DebugLine line(u"TargetPos");
        line.point(point);
        compareLastTwo();
    }

    // Many points, coordinates as the module reports them and arbitrary ones.
    void manyPointsReadAsQDebug()
    {
        DebugLine line(u"TargetPos");
        std::mt19937_64 random(11);
        for (int k = 0; k < 20000; ++k) {
            captured.clear();
            double x, y;
            if (k % 2 == 0) {
                x = int(random() % 256 - 128) * 0.1;
                y = int(random() % 256 - 128) * 0.1;
            } else {
                const quint64 bits[2] = {random(), random()};
                std::memcpy(&x, &bits[0], sizeof x);
                std::memcpy(&y, &bits[1], sizeof y);
            }
            qDebug() << "TargetPos" << QPointF(x, y);
            line.point(QPointF(x, y));
            QCOMPARE(captured.size(), 2);
            QCOMPARE(captured[1].text, captured[0].text);
        }
    }

    // One line object writes line after line, each as qDebug() would, and a
    // handler that keeps a text it was given keeps it unchanged.
    void successiveLines()
    {
        DebugLine line(u"recvData:");
        line.hexDump(QByteArray::fromHex("FFEEDD0102"));
        line.hexDump(QByteArray::fromHex("0A"));
        line.number(7);
        line.number(7);
        line.number(-12);
        line.hexDump(QByteArray());
        line.number(-12);
        line.hexDump(QByteArray(300, '\x5A')); // beyond the reserved size
        line.point(QPointF(1.5, -2));
        line.number(3);
        const QStringList expected = {"recvData: \"FF EE DD 01 02 \"",
                                      "recvData: \"0A \"",
                                      "recvData: 7",
                                      "recvData: 7",
                                      "recvData: -12",
                                      "recvData: \"\"",
                                      "recvData: -12",
                                      "recvData: \"" + QString("5A ").repeated(300) + "\"",
                                      "recvData: QPointF(1.5,-2)",
                                      "recvData: 3"};
        QStringList texts;
        for (const Captured &c : qAsConst(captured))
            texts.append(c.text);
        QCOMPARE(texts, expected);
    }

    void nothingWhileDebugIsOff()
    {
        QLoggingCategory::setFilterRules("default.debug=false");
        QVERIFY(!DebugLine::enabled());
        DebugLine line(u"code:");
        line.hexDump(QByteArray("abc"));
        line.number(1);
        QCOMPARE(captured.size(), 0);
        QLoggingCategory::setFilterRules(QString());
        QVERIFY(DebugLine::enabled());
        line.number(1);
        QCOMPARE(captured.size(), 1);
        QCOMPARE(captured[0].text, QStringLiteral("code: 1"));
    }

private:
    void compareLastTwo()
    {
        QCOMPARE(captured.size(), 2);
        const Captured &expected = captured[0];
        const Captured &actual = captured[1];
        QCOMPARE(actual.text, expected.text);
        QCOMPARE(int(actual.type), int(QtDebugMsg));
        QCOMPARE(actual.category, expected.category);
    }

    QtMessageHandler previous = nullptr;
};

QTEST_GUILESS_MAIN(TestDebugLine)
#include "tst_debugline.moc"
