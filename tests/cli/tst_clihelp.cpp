// orv-cli's help texts are laid out once: every line fits 79 columns, and no
// line of a paragraph or of a table cell breaks earlier than it had to (a
// text wrapped twice leaves short lines such as "per" or "of n," between
// long ones).

#include <QtTest>

#ifndef ORV_CLI_BIN
#error "ORV_CLI_BIN must name the orv-cli executable"
#endif

namespace
{

constexpr int kWidth = 79;

int indentOf(const QString &line)
{
    int n = 0;
    while (n < line.size() && line.at(n) == ' ')
        ++n;
    return n;
}

QString firstWord(const QString &line)
{
    return line.trimmed().section(' ', 0, 0);
}

// True when next continues the text of line: next starts in the first column
// right after line's first column (a paragraph), or at the column where a
// cell of line's text starts after two or more spaces (a table such as the
// options').
bool continues(const QString &line, const QString &next)
{
    if (line.trimmed().isEmpty() || next.trimmed().isEmpty())
        return false;
    const int column = indentOf(next);
    if (column == 0)
        return indentOf(line) == 0 && !line.endsWith(':');
    if (column <= indentOf(line) || column >= line.size())
        return false;
    return line.mid(column - 2, 2) == QLatin1String("  ") && line.at(column) != ' ';
}

// What is wrong with the layout of text, one message a line; empty when
// nothing is.
QStringList layoutFaults(const QString &text)
{
    QStringList faults;
    const QStringList lines = text.split('\n');
    for (int i = 0; i < lines.size(); ++i) {
        const QString line = lines.at(i);
        if (line.size() > kWidth)
            faults.append(QString("line %1 is %2 columns wide (at most %3): \"%4\"")
                              .arg(i + 1)
                              .arg(line.size())
                              .arg(kWidth)
                              .arg(line));
        if (line.endsWith(' '))
            faults.append(QString("line %1 ends in a space: \"%2\"").arg(i + 1).arg(line));
        if (i + 1 < lines.size() && continues(line, lines.at(i + 1))) {
            const QString word = firstWord(lines.at(i + 1));
            if (line.size() + 1 + word.size() <= kWidth)
                faults.append(QString("line %1 breaks early: \"%2\" would still fit after \"%3\"")
                                  .arg(i + 1)
                                  .arg(word, line));
        }
    }
    return faults;
}

// What the program orv-cli prints on standard output for these arguments
// (the program, so that every command it registers is seen).
QString output(const QStringList &arguments)
{
    QProcess p;
    p.start(QStringLiteral(ORV_CLI_BIN), arguments);
    if (!p.waitForFinished(30000))
        return QString();
    return QString::fromUtf8(p.readAllStandardOutput());
}

// The commands orv-cli --help lists.
QStringList allCommandNames()
{
    QStringList names;
    const QStringList lines = output({"--help"}).split('\n');
    const int from = lines.indexOf("Commands:");
    for (int i = from + 1; from >= 0 && i < lines.size() && !lines.at(i).isEmpty(); ++i)
        names.append(lines.at(i).trimmed().section(QLatin1String("  "), 0, 0));
    return names;
}

} // namespace

class TestCliHelp : public QObject
{
    Q_OBJECT

private slots:
    void checkerFindsDoubleWrapping();
    void helpIsWrappedOnce_data();
    void helpIsWrappedOnce();
};

// The checker itself: a paragraph wrapped at 86 columns and then again at 79
// leaves a one-word line, which it must report; the same words filled once
// pass.
void TestCliHelp::checkerFindsDoubleWrapping()
{
    const QString twice =
        "Reads the lines of diagnostic log files and prints the time span, reports and\n"
        "per\n"
        "second, the longest gap between two reports.\n";
    const QStringList faults = layoutFaults(twice);
    QCOMPARE(faults.size(), 1);
    QVERIFY2(faults.first().contains("\"second,\" would still fit after \"per\""),
             qPrintable(faults.first()));

    const QString tableTwice =
        "  --range <X>  The plane shown, in metres (default: fitted to what was\n"
        "               seen).\n";
    QCOMPARE(layoutFaults(tableTwice).size(), 1);

    QVERIFY(layoutFaults(QString(kWidth + 1, 'x')).size() == 1);
    const QString once =
        "Reads the lines of diagnostic log files and prints the time span, reports and\n"
        "per second, the longest gap between two reports.\n";
    QVERIFY(layoutFaults(once).isEmpty());
}

void TestCliHelp::helpIsWrappedOnce_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("--help") << QStringList{"--help"};
    QTest::newRow("help areas") << QStringList{"help", "areas"};
    const QStringList names = allCommandNames();
    QVERIFY2(names.size() >= 16, qPrintable("orv-cli --help lists " + names.join(", ")));
    for (const QString &name : names)
        QTest::newRow(qPrintable("help " + name)) << QStringList{"help"} + name.split(' ');
}

void TestCliHelp::helpIsWrappedOnce()
{
    QFETCH(QStringList, arguments);
    const QString text = output(arguments);
    QVERIFY2(text.size() > 100, qPrintable("orv-cli " + arguments.join(' ') + " printed no help"));
    const QStringList faults = layoutFaults(text);
    QVERIFY2(faults.isEmpty(),
             qPrintable("orv-cli " + arguments.join(' ') + ":\n" + faults.join('\n')));
}

QTEST_GUILESS_MAIN(TestCliHelp)
#include "tst_clihelp.moc"
