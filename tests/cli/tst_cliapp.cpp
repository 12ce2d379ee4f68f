// orv-cli's command dispatch, help and command-line checks, without a port:
// every case here ends before a port would be opened.

#include "cli/cliapp.h"
#include "cli/exitcode.h"

#include <QtTest>

#include <cstdio>

namespace
{

QString readAll(FILE *f)
{
    std::fflush(f);
    std::rewind(f);
    QByteArray bytes;
    char buffer[4096];
    size_t n = 0;
    while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0)
        bytes.append(buffer, int(n));
    return QString::fromUtf8(bytes);
}

struct Outcome {
    int code = -1;
    QString out;
    QString err;
};

// A command that records that it ran, to check dispatch and registration.
class EchoCommand : public CliCommand
{
public:
    QString name() const override { return QStringLiteral("echo words"); }
    QString summary() const override { return QStringLiteral("repeat the words"); }
    QString synopsis() const override { return QStringLiteral("WORD..."); }
    void addOptions(QCommandLineParser &parser) override
    {
        parser.addOption({"loud", "Upper case."});
    }
    int run(CliContext &context) override
    {
        QString text = context.parser.positionalArguments().join(' ');
        if (context.parser.isSet("loud"))
            text = text.toUpper();
        context.print(text + "\n");
        return 7;
    }
    // Its own table, written without the heading.
    QString exitCodes() const override { return QStringLiteral("  7    repeated\n"); }
    // Written as two lines of one paragraph.
    QString details() const override
    {
        return QStringLiteral("Prints the words\nseparated by spaces.");
    }
};

Outcome runCli(const QStringList &args, bool withEcho = false)
{
    FILE *out = std::tmpfile();
    FILE *err = std::tmpfile();
    Outcome o;
    {
        CliApp app(out, err);
        registerBuiltinCommands(app);
        if (withEcho)
            app.add<EchoCommand>();
        o.code = app.run(args);
    }
    o.out = readAll(out);
    o.err = readAll(err);
    std::fclose(out);
    std::fclose(err);
    return o;
}

const QStringList kCommands = {"ports",         "probe",        "show",        "areas backup",
                               "areas restore", "areas verify", "areas clear", "areas set",
                               "areas unset",   "mode",         "baud",        "watch",
                               "record",        "stats"};

} // namespace

class TestCliApp : public QObject
{
    Q_OBJECT

private slots:
    void overviewListsCommandsAndExitCodes();
    void noArgumentsIsAUsageError();
    void version();
    void helpForEachCommand_data();
    void helpForEachCommand();
    void groupHelp();
    void unknownCommands_data();
    void unknownCommands();
    void badCommandLines_data();
    void badCommandLines();
    void anAddedCommandIsDispatched();
};

void TestCliApp::overviewListsCommandsAndExitCodes()
{
    for (const QStringList &args :
         {QStringList{"--help"}, QStringList{"-h"}, QStringList{"help"}}) {
        const Outcome o = runCli(args);
        QCOMPARE(o.code, 0);
        QVERIFY(o.err.isEmpty());
        QVERIFY(o.out.startsWith("Usage: orv-cli COMMAND"));
        for (const QString &c : kCommands)
            QVERIFY2(o.out.contains("  " + c + " "), qPrintable(c));
        for (const char *code : {"  0 ", "  1 ", "  2 ", "  3 ", "  4 ", "  130 "})
            QVERIFY2(o.out.contains(code), code);
        QVERIFY(o.out.contains("--baud N|auto"));
        QVERIFY(o.out.contains("dialout") || o.out.contains("permission"));
        QVERIFY(o.out.contains("but probe"));
        QVERIFY(o.out.contains("1..16777215"));
        QVERIFY(o.out.contains("-v, --version"));
        for (const QString &line : o.out.split('\n'))
            QVERIFY2(line.size() <= 80, qPrintable(line));
    }
}

void TestCliApp::noArgumentsIsAUsageError()
{
    const Outcome o = runCli({});
    QCOMPARE(o.code, int(ExitUsage));
    QVERIFY(o.out.isEmpty());
    QVERIFY(o.err.startsWith("Usage: orv-cli"));
}

void TestCliApp::version()
{
    const Outcome o = runCli({"--version"});
    QCOMPARE(o.code, 0);
    QVERIFY2(QRegularExpression("^orv-cli \\d+\\.\\d+").match(o.out).hasMatch(), qPrintable(o.out));
    const Outcome v = runCli({"-v"});
    QCOMPARE(v.code, 0);
    QCOMPARE(v.out, o.out);
}

void TestCliApp::helpForEachCommand_data()
{
    QTest::addColumn<QString>("command");
    for (const QString &c : kCommands)
        QTest::newRow(qPrintable(c)) << c;
}

void TestCliApp::helpForEachCommand()
{
    QFETCH(QString, command);
    const QStringList words = command.split(' ');
    const Outcome a = runCli(QStringList{"help"} + words);
    const Outcome b = runCli(words + QStringList{"--help"});
    const Outcome c = runCli(words + QStringList{"-h", "--port", "x"});
    QCOMPARE(a.code, 0);
    QCOMPARE(b.code, 0);
    QCOMPARE(c.code, 0);
    QCOMPARE(a.out, b.out);
    QCOMPARE(a.out, c.out);
    QVERIFY(a.err.isEmpty());
    QVERIFY2(a.out.startsWith("Usage: orv-cli " + command), qPrintable(a.out));
    QVERIFY(a.out.contains("Exit codes:"));
    QVERIFY(a.out.contains("--help"));
    if (command != "ports") {
        QVERIFY2(a.out.contains("--port"), qPrintable(a.out));
        QCOMPARE(a.out.contains("--baud"), command != "probe");
        if (command == "probe")
            QVERIFY(a.out.contains("10..10000"));
        if (command == "show")
            QVERIFY(a.out.contains("It is not an area file"));
        QVERIFY(a.out.contains("  130 "));
    } else {
        QVERIFY(a.out.contains("the device path"));
        QVERIFY(a.out.contains("serial number"));
        // ports opens nothing: no module codes.
        QVERIFY(a.out.contains("  2 "));
        for (const char *code : {"  1 ", "  3 ", "  4 ", "  130 "})
            QVERIFY2(!a.out.contains(code), code);
    }
    for (const QString &line : a.out.split('\n'))
        QVERIFY2(line.size() <= 80, qPrintable(line));
}

void TestCliApp::groupHelp()
{
    for (const QStringList &args : {QStringList{"help", "areas"}, QStringList{"areas", "--help"}}) {
        const Outcome o = runCli(args);
        QCOMPARE(o.code, 0);
        for (const char *sub : {"backup", "restore", "verify", "clear", "set", "unset"})
            QVERIFY2(o.out.contains(QString("areas ") + sub), sub);
    }
    const Outcome bare = runCli({"areas"});
    QCOMPARE(bare.code, int(ExitUsage));
    QVERIFY(bare.err.contains("areas restore"));
    const Outcome wrong = runCli({"areas", "erase"});
    QCOMPARE(wrong.code, int(ExitUsage));
    QVERIFY(wrong.err.contains("unknown subcommand \"areas erase\""));
}

void TestCliApp::unknownCommands_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("message");
    QTest::newRow("word") << QStringList{"frobnicate"} << "unknown command \"frobnicate\"";
    QTest::newRow("option first") << QStringList{"--port", "x"} << "unknown option --port";
    QTest::newRow("help for nothing")
        << QStringList{"help", "nothing"} << "unknown command \"nothing\"";
}

void TestCliApp::unknownCommands()
{
    QFETCH(QStringList, args);
    QFETCH(QString, message);
    const Outcome o = runCli(args);
    QCOMPARE(o.code, int(ExitUsage));
    QVERIFY(o.out.isEmpty());
    QVERIFY2(o.err.contains(message), qPrintable(o.err));
}

void TestCliApp::badCommandLines_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("message");
    const QStringList p{"--port", "/dev/null-port"};

    QTest::newRow("unknown option") << QStringList{"show", "--bogus"} << "bogus";
    QTest::newRow("port missing") << QStringList{"show"} << "--port P is required";
    QTest::newRow("port empty") << QStringList{"show", "--port", ""} << "--port needs a port name";
    QTest::newRow("baud word") << QStringList{"show", "--baud", "fast"} + p << "--baud: \"fast\"";
    QTest::newRow("baud zero") << QStringList{"show", "--baud", "0"} + p << "--baud: \"0\"";
    QTest::newRow("baud too big") << QStringList{"show", "--baud", "16777216"} + p << "--baud";
    QTest::newRow("probe takes no baud") << QStringList{"probe", "--baud", "9600"} + p << "baud";
    QTest::newRow("probe listen") << QStringList{"probe", "--listen", "0"} + p << "--listen";
    QTest::newRow("ports argument") << QStringList{"ports", "extra"} << "unexpected argument";
    QTest::newRow("show argument") << QStringList{"show", "now"} + p << "unexpected argument";
    QTest::newRow("backup without -o") << QStringList{"areas", "backup"} + p << "-o FILE";
    QTest::newRow("restore without file")
        << QStringList{"areas", "restore"} + p << "area file is missing";
    QTest::newRow("restore missing file")
        << QStringList{"areas", "restore", "/nonexistent/site.json"} + p << "cannot read";
    QTest::newRow("verify two files")
        << QStringList{"areas", "verify", "a", "b"} + p << "unexpected argument \"b\"";
    QTest::newRow("set without number") << QStringList{"areas", "set"} + p << "area number";
    QTest::newRow("set area 4") << QStringList{"areas",  "set", "4",    "--type", "detect",
                                               "--from", "0,1", "--to", "1,0"} +
                                       p
                                << "\"4\" is not an area number";
    QTest::newRow("set without type")
        << QStringList{"areas", "set", "1", "--from", "0,1", "--to", "1,0"} + p << "--type";
    QTest::newRow("set type unset")
        << QStringList{"areas", "set", "1", "--type", "unset", "--from", "0,1", "--to", "1,0"} + p
        << "not detect or exclude";
    QTest::newRow("set without to")
        << QStringList{"areas", "set", "1", "--type", "detect", "--from", "0,1"} + p
        << "--to X,Y is required";
    QTest::newRow("set corner words")
        << QStringList{"areas", "set", "1", "--type", "detect", "--from", "a,b", "--to", "1,0"} + p
        << "--from: \"a,b\" is not a corner";
    QTest::newRow("set x out of range")
        << QStringList{"areas", "set", "1", "--type", "exclude", "--from=-8.5,1", "--to", "1,0"} + p
        << "x -8.5 is outside -8..8 m";
    QTest::newRow("set negative x as the next word")
        << QStringList{"areas", "set", "1", "--type", "exclude", "--from", "-9,3", "--to", "1,0"} +
               p
        << "--from: x -9 is outside -8..8 m";
    QTest::newRow("set y out of range")
        << QStringList{"areas", "set", "1", "--type", "exclude", "--from", "0,1", "--to", "1,8.2"} +
               p
        << "y 8.2 is outside 0..8 m";
    QTest::newRow("unset 0") << QStringList{"areas", "unset", "0"} + p << "not an area number";
    QTest::newRow("mode word") << QStringList{"mode", "tracking"} + p << "not a display type";
    QTest::newRow("baud missing") << QStringList{"baud"} + p << "new baud rate is missing";
    QTest::newRow("baud not a window rate")
        << QStringList{"baud", "11520"} + p << "\"11520\" is not one of the rates";
    QTest::newRow("watch format") << QStringList{"watch", "--format", "json"} + p
                                  << "--format: \"json\"";
    QTest::newRow("watch duration") << QStringList{"watch", "--duration", "-1"} + p << "--duration";
    QTest::newRow("watch count") << QStringList{"watch", "--count", "0"} + p << "--count";
    QTest::newRow("record without -o") << QStringList{"record"} + p << "-o FILE is required";
    QTest::newRow("stats duration")
        << QStringList{"stats", "--duration", "soon"} + p << "--duration";
}

void TestCliApp::badCommandLines()
{
    QFETCH(QStringList, args);
    QFETCH(QString, message);
    const Outcome o = runCli(args);
    QCOMPARE(o.code, int(ExitUsage));
    QVERIFY(o.out.isEmpty());
    QVERIFY2(o.err.startsWith("orv-cli "), qPrintable(o.err));
    QVERIFY2(o.err.contains(message), qPrintable(o.err));
    // Nothing hints at a port problem: the port was never opened.
    QVERIFY2(!o.err.contains("cannot open"), qPrintable(o.err));
}

void TestCliApp::anAddedCommandIsDispatched()
{
    Outcome o = runCli({"echo", "words", "a", "b", "--loud"}, true);
    QCOMPARE(o.code, 7);
    QCOMPARE(o.out, QString("A B\n"));
    o = runCli({"--help"}, true);
    QVERIFY(QRegularExpression("\n  echo words +repeat the words\n").match(o.out).hasMatch());
    o = runCli({"help", "echo", "words"}, true);
    QVERIFY(o.out.startsWith("Usage: orv-cli echo words WORD..."));
    QVERIFY(o.out.contains("--loud"));
    QVERIFY2(o.out.contains("\nPrints the words separated by spaces.\n"), qPrintable(o.out));
    QVERIFY2(o.out.endsWith("\nExit codes:\n  7    repeated\n"), qPrintable(o.out));
    o = runCli({"echo"}, true);
    QCOMPARE(o.code, int(ExitUsage));
}

QTEST_GUILESS_MAIN(TestCliApp)
#include "tst_cliapp.moc"
