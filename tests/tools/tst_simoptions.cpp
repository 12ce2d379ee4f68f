// radar-sim's command line, word for word: the messages and exit codes a
// script or user sees for each kind of mistake, and the values taken.

#include "tools/radar-sim/simoptions.h"

#include <QProcess>
#include <QtTest>

class TestSimOptions : public QObject
{
    Q_OBJECT

private slots:
    void messages_data();
    void messages();
    void valuesInEveryForm();
    void valuesThatLookLikeOptions();
    void lastValueWins();
    void helpShortAndLong();
    void programExitCodes_data();
    void programExitCodes();
};

void TestSimOptions::messages_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("message");

    QTest::newRow("unknown long") << QStringList{"--frobnicate"} << "unknown option --frobnicate";
    QTest::newRow("unknown long with value")
        << QStringList{"--frobnicate=3"} << "unknown option --frobnicate";
    QTest::newRow("unknown short") << QStringList{"-x"} << "unknown option -x";
    QTest::newRow("single-dash word") << QStringList{"-rate", "5"} << "unknown option -rate";
    QTest::newRow("single-dash help word") << QStringList{"-help"} << "unknown option -help";
    QTest::newRow("unknown after good")
        << QStringList{"--rate", "5", "--frobnicate"} << "unknown option --frobnicate";
    QTest::newRow("stray word") << QStringList{"now"} << "unexpected argument \"now\"";
    QTest::newRow("stray word after options")
        << QStringList{"--split", "later"} << "unexpected argument \"later\"";
    QTest::newRow("value missing") << QStringList{"--seed"} << "option --seed needs a value";
    QTest::newRow("value missing after good")
        << QStringList{"--rate", "5", "--area"} << "option --area needs a value";
    QTest::newRow("flag with value") << QStringList{"--split=1"} << "option --split takes no value";
    QTest::newRow("help with value") << QStringList{"--help=yes"} << "option --help takes no value";
    QTest::newRow("empty port") << QStringList{"--port="} << "option --port needs a port name";
    QTest::newRow("empty replay") << QStringList{"--replay", ""}
                                  << "option --replay needs a file name";
    QTest::newRow("empty link") << QStringList{"--link="} << "option --link needs a path";
    QTest::newRow("baud") << QStringList{"--baud", "0"}
                          << "--baud: \"0\" is not a baud rate (1..16777215)";
    QTest::newRow("rate") << QStringList{"--rate", "lots"}
                          << "--rate: \"lots\" is not a rate in Hz (0..1000)";
    QTest::newRow("targets") << QStringList{"--targets=500"}
                             << "--targets: \"500\" is not a count (0..128)";
    QTest::newRow("fixed") << QStringList{"--fixed", "1;2"}
                           << "--fixed: \"1;2\" is not a point X,Y in metres (each -12.8..12.7)";
    QTest::newRow("area") << QStringList{"--area", "5,0,-1,2,1,1"}
                          << "--area: \"5,0,-1,2,1,1\" is not N,TYPE,X1,Y1,X2,Y2 (N 1..3, TYPE 0 "
                             "or 1, corners in metres, each -12.8..12.7)";
    QTest::newRow("area corners") << QStringList{"--area", "1,0,1,1,-1,2"}
                                  << "--area: \"1,0,1,1,-1,2\": the first corner must be the "
                                     "upper-left one (X1 < X2, Y1 > Y2)";
    QTest::newRow("seed") << QStringList{"--seed", "-1"}
                          << "--seed: \"-1\" is not a number (0..4294967295)";
    QTest::newRow("noise") << QStringList{"--noise", "5000"}
                           << "--noise: \"5000\" is not a byte count (0..4096)";
    QTest::newRow("bad checksum") << QStringList{"--bad-checksum", "2"}
                                  << "--bad-checksum: \"2\" is not a probability (0..1)";
    QTest::newRow("disconnect") << QStringList{"--disconnect-after", "0"}
                                << "--disconnect-after: \"0\" is not a positive number of seconds";
    QTest::newRow("settle") << QStringList{"--settle", "10001"}
                            << "--settle: \"10001\" is not a time in ms (0..10000)";
    QTest::newRow("gap") << QStringList{"--gap", "x"}
                         << "--gap: \"x\" is not a pause in ms (0..1000)";
    QTest::newRow("first bad value named") << QStringList{"--rate", "lots", "--targets", "500"}
                                           << "--rate: \"lots\" is not a rate in Hz (0..1000)";
    QTest::newRow("first bad value named, other order")
        << QStringList{"--targets", "500", "--rate", "lots"}
        << "--targets: \"500\" is not a count (0..128)";
    QStringList many;
    for (int i = 0; i < 129; ++i)
        many << "--fixed"
             << "1,2";
    QTest::newRow("too many points") << many << "--fixed: at most 128 points";
    QTest::newRow("targets and points") << QStringList{"--targets", "2", "--fixed", "1,2"}
                                        << "--targets 2 does not match the 1 --fixed point(s)";
    QTest::newRow("replay and seed")
        << QStringList{"--replay", "x.txt", "--seed", "4"}
        << "--replay plays the recorded bytes as they are; it cannot be combined with --seed";
}

void TestSimOptions::messages()
{
    QFETCH(QStringList, args);
    QFETCH(QString, message);

    SimOptions o;
    o.rate = -7.0; // untouched on failure
    QString error;
    QVERIFY(!SimOptions::parse(args, &o, &error));
    QCOMPARE(error, message);
    QCOMPARE(o.rate, -7.0);
}

void TestSimOptions::valuesInEveryForm()
{
    SimOptions o;
    QString error;
    QVERIFY2(SimOptions::parse({"--rate=2.5",
                                "--targets",
                                "7",
                                "--seed=12",
                                "--split",
                                "--verbose",
                                "--baud-ng",
                                "--any-baud",
                                "--noise",
                                "3",
                                "--gap=0",
                                "--settle",
                                "50",
                                "--disconnect-after=1.5",
                                "--baud",
                                "115200",
                                "--bad-checksum=0.25",
                                "--port",
                                "/dev/ttyS9",
                                "--link",
                                "/tmp/ttyLINK"},
                               &o, &error),
             qPrintable(error));
    QCOMPARE(o.rate, 2.5);
    QCOMPARE(o.targets, 7);
    QVERIFY(o.targetsGiven);
    QCOMPARE(o.seed, 12u);
    QVERIFY(o.seedGiven);
    QVERIFY(o.split && o.verbose && o.baudNg && o.anyBaud && !o.help);
    QCOMPARE(o.noise, 3);
    QCOMPARE(o.gapMs, 0);
    QCOMPARE(o.settleMs, 50);
    QCOMPARE(o.disconnectAfter, 1.5);
    QCOMPARE(o.baud, 115200);
    QCOMPARE(o.badChecksum, 0.25);
    QCOMPARE(o.port, QString("/dev/ttyS9"));
    QCOMPARE(o.link, QString("/tmp/ttyLINK"));
}

void TestSimOptions::valuesThatLookLikeOptions()
{
    // A negative coordinate after --fixed or --area is a value, not an option.
    SimOptions o;
    QString error;
    QVERIFY2(SimOptions::parse({"--fixed", "-1.5,2", "--fixed=-3,4"}, &o, &error),
             qPrintable(error));
    QCOMPARE(o.fixed, (QVector<QPointF>{{-1.5, 2.0}, {-3.0, 4.0}}));
    // Taken as --area's value, and then found wrong as one.
    QVERIFY(!SimOptions::parse({"--area", "-1,0,-2,3,-1,2"}, &o, &error));
    QCOMPARE(error, QString("--area: \"-1,0,-2,3,-1,2\" is not N,TYPE,X1,Y1,X2,Y2 (N 1..3, "
                            "TYPE 0 or 1, corners in metres, each -12.8..12.7)"));
}

void TestSimOptions::lastValueWins()
{
    SimOptions o;
    QString error;
    QVERIFY(SimOptions::parse(
        {"--rate", "5", "--rate", "6", "--area", "2,1,-1,2,1,1", "--area", "1,0,-2,3,2,1"}, &o,
        &error));
    QCOMPARE(o.rate, 6.0);
    // --area and --fixed repeat: every one is kept, in command-line order.
    QCOMPARE(o.areas.size(), 2);
    QCOMPARE(o.areas.at(0).number, 2);
    QCOMPARE(o.areas.at(1).number, 1);
}

void TestSimOptions::helpShortAndLong()
{
    for (const char *word : {"-h", "--help"}) {
        SimOptions o;
        QString error;
        QVERIFY(SimOptions::parse({"--rate", "5", word}, &o, &error));
        QVERIFY(o.help);
    }
}

void TestSimOptions::programExitCodes_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("standardError");

    QTest::newRow("unknown option")
        << QStringList{"--frobnicate"} << 2
        << "radar-sim: unknown option --frobnicate\nTry 'radar-sim --help'.\n";
    QTest::newRow("missing value") << QStringList{"--rate"} << 2
                                   << "radar-sim: option --rate needs a value\n"
                                      "Try 'radar-sim --help'.\n";
    QTest::newRow("bad value") << QStringList{"--noise", "-1"} << 2
                               << "radar-sim: --noise: \"-1\" is not a byte count (0..4096)\n"
                                  "Try 'radar-sim --help'.\n";
    QTest::newRow("missing replay") << QStringList{"--replay", "/nonexistent/replay.txt"} << 2
                                    << "radar-sim: --replay: cannot read /nonexistent/replay.txt";
    QTest::newRow("port that is not there")
        << QStringList{"--port", "/nonexistent/ttyUSB9"} << 1 << "radar-sim: ";
}

void TestSimOptions::programExitCodes()
{
    QFETCH(QStringList, args);
    QFETCH(int, code);
    QFETCH(QString, standardError);

    QProcess p;
    p.start(QStringLiteral(RADAR_SIM_BIN), args);
    QVERIFY(p.waitForFinished(10000));
    QCOMPARE(p.exitStatus(), QProcess::NormalExit);
    QCOMPARE(p.exitCode(), code);
    QVERIFY(p.readAllStandardOutput().isEmpty());
    const QString err = QString::fromLocal8Bit(p.readAllStandardError());
    if (standardError.endsWith('\n'))
        QCOMPARE(err, standardError);
    else
        QVERIFY2(err.startsWith(standardError), qPrintable(err));
}

QTEST_GUILESS_MAIN(TestSimOptions)
#include "tst_simoptions.moc"
