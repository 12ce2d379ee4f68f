// The small pieces every orv-cli command shares: the exit-code table, how a
// link that ended early is worded, --duration, and writing with a flush.

#include "cli/clicommand.h"
#include "cli/exitcode.h"
#include "cli/modulecommand.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <cstdio>

namespace
{

// Everything written to a temporary stream so far.
QByteArray contents(FILE *stream)
{
    std::fflush(stream);
    const long size = std::ftell(stream);
    QByteArray bytes(int(size), '\0');
    std::rewind(stream);
    const size_t got = std::fread(bytes.data(), 1, size_t(size), stream);
    bytes.resize(int(got));
    std::fseek(stream, 0, SEEK_END);
    return bytes;
}

} // namespace

class TestCliHelpers : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(dir.isValid()); }
    void tableLayout();
    void moduleTable();
    void linkEnd_data();
    void linkEnd();
    void durations_data();
    void durations();
    void writeAndFlushWritesAll();

private:
    // A new file to write to and read back (std::tmpfile() wants the root
    // folder on Windows).
    FILE *scratch()
    {
        const QString path = dir.filePath(QString("scratch-%1").arg(++files));
        return std::fopen(QFile::encodeName(path).constData(), "w+b");
    }

    QTemporaryDir dir;
    int files = 0;
};

void TestCliHelpers::tableLayout()
{
    const QString table =
        exitCodeTable({{0, "done"}, {2, "one line,\nand another"}, {130, "interrupted"}});
    QCOMPARE(table, QString("Exit codes:\n"
                            "  0    done\n"
                            "  2    one line,\n"
                            "       and another\n"
                            "  130  interrupted\n"));
}

void TestCliHelpers::moduleTable()
{
    const QStringList lines = moduleExitCodeTable().split('\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 7);
    QCOMPARE(lines.first(), QString("Exit codes:"));
    const int codes[] = {ExitDone,      ExitRefused,  ExitUsage,
                         ExitPortError, ExitNoAnswer, ExitInterrupted};
    for (int k = 0; k < 6; ++k) {
        const QString code = QString::number(codes[k]);
        QVERIFY2(lines.at(k + 1).startsWith("  " + code + " "), qPrintable(lines.at(k + 1)));
        QCOMPARE(lines.at(k + 1).indexOf(QRegularExpression("[a-z]")), 7);
        QVERIFY(lines.at(k + 1).size() <= 80);
    }
    QVERIFY(moduleExitCodeTable().contains(kExitMeaningPort));
}

void TestCliHelpers::linkEnd_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("say");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("message");

    QTest::newRow("ok") << int(LinkStatus::Ok) << true << int(ExitDone) << QString();
    QTest::newRow("timeout") << int(LinkStatus::Timeout) << true << int(ExitDone) << QString();
    QTest::newRow("interrupted, said") << int(LinkStatus::Interrupted) << true
                                       << int(ExitInterrupted) << "orv-cli watch: interrupted\n";
    QTest::newRow("interrupted, quiet")
        << int(LinkStatus::Interrupted) << false << int(ExitInterrupted) << QString();
    QTest::newRow("lost") << int(LinkStatus::Lost) << false << int(ExitNoAnswer)
                          << "orv-cli watch: the port /dev/pts/9 went away after 3 line(s)\n";
}

void TestCliHelpers::linkEnd()
{
    QFETCH(int, status);
    QFETCH(bool, say);
    QFETCH(int, code);
    QFETCH(QString, message);

    FILE *out = scratch();
    FILE *err = scratch();
    QVERIFY(out && err);
    QCommandLineParser parser;
    CliContext context("watch", parser, out, err);
    QCOMPARE(::linkEnd(context, "/dev/pts/9", LinkStatus(status), " after 3 line(s)", say), code);
    QCOMPARE(QString::fromUtf8(contents(err)), message);
    QVERIFY(contents(out).isEmpty());
    std::fclose(out);
    std::fclose(err);
}

void TestCliHelpers::durations_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<qint64>("ms");

    QTest::newRow("seconds") << "10" << true << qint64(10000);
    QTest::newRow("decimals") << "0.25" << true << qint64(250);
    QTest::newRow("spaces") << " 2 " << true << qint64(2000);
    QTest::newRow("rounded") << "0.0014" << true << qint64(1);
    QTest::newRow("zero") << "0" << false << qint64(-1);
    QTest::newRow("below a millisecond") << "0.0004" << false << qint64(-1);
    QTest::newRow("negative") << "-1" << false << qint64(-1);
    QTest::newRow("word") << "long" << false << qint64(-1);
    QTest::newRow("infinite") << "inf" << false << qint64(-1);
    QTest::newRow("too long") << "1e8" << false << qint64(-1);
}

void TestCliHelpers::durations()
{
    QFETCH(QString, text);
    QFETCH(bool, ok);
    QFETCH(qint64, ms);

    qint64 got = -1;
    QCOMPARE(parseDuration(text, &got), ok);
    if (ok)
        QCOMPARE(got, ms);
}

void TestCliHelpers::writeAndFlushWritesAll()
{
    FILE *stream = scratch();
    QVERIFY(stream);
    QVERIFY(writeAndFlush(stream, "first line\n"));
    QVERIFY(writeAndFlush(stream, QByteArray("second\0line\n", 12)));
    QCOMPARE(contents(stream), QByteArray("first line\nsecond\0line\n", 23));
    std::fclose(stream);
}

QTEST_GUILESS_MAIN(TestCliHelpers)
#include "tst_clihelpers.moc"
