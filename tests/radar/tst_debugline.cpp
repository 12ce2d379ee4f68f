// The link's fast debug lines must read exactly as qDebug() prints the same
// arguments: each row writes a line both ways and compares what the message
// handler received.

#include "radar/debugline.h"
#include "radar/frameformat.h"

#include <QDebug>
#include <QLoggingCategory>
#include <QStringList>
#include <QtTest>

#include <climits>

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
                                 << frameformat::buildFrame(ReadArea, QByteArray());
        QTest::newRow("longer than the reserved buffer")
            << QByteArray("recvData:") << QByteArray(700, '\xC3');
    }
    void hexDumpReadsAsQDebug()
    {
        QFETCH(QByteArray, label);
        QFETCH(QByteArray, bytes);
        qDebug() << label.constData() << frameformat::hexDump(bytes);
        debugline::hexDump(label.constData(), bytes);
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
        debugline::number(label.constData(), value);
        compareLastTwo();
    }

    // A handler that keeps the text it was given keeps it unchanged when the
    // next line is written.
    void keptLinesStayIntact()
    {
        debugline::hexDump("recvData:", QByteArray::fromHex("FFEEDD"));
        debugline::number("code:", 7);
        QCOMPARE(captured.size(), 2);
        QCOMPARE(captured[0].text, QStringLiteral("recvData: \"FF EE DD \""));
        QCOMPARE(captured[1].text, QStringLiteral("code: 7"));
    }

    void nothingWhileDebugIsOff()
    {
        QLoggingCategory::setFilterRules("default.debug=false");
        QVERIFY(!debugline::enabled());
        debugline::hexDump("recvData:", QByteArray("abc"));
        debugline::number("code:", 1);
        QCOMPARE(captured.size(), 0);
        QLoggingCategory::setFilterRules(QString());
        QVERIFY(debugline::enabled());
        debugline::number("code:", 1);
        QCOMPARE(captured.size(), 1);
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
