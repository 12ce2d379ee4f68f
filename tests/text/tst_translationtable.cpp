// Translation table: the line format read byte by byte, the choice of file by
// language index, lookups, and the two shipped language files.
#include "text/translationtable.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#ifndef ORV_TRANSLATION_DIR
#error "ORV_TRANSLATION_DIR must name the directory of the shipped translation files"
#endif

typedef QMap<int, QString> TextMap;
Q_DECLARE_METATYPE(TextMap)

namespace
{

TextMap contentsOf(TranslationTable &table)
{
    TextMap map;
    const QList<int> keys = table.numbers();
    for (int key : keys)
        map.insert(key, table.text(key));
    return map;
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    return file.write(bytes) == bytes.size();
}

// Changes the working directory for one test and puts it back.
struct WorkingDirectory {
    QString previous = QDir::currentPath();
    explicit WorkingDirectory(const QString &path) { QDir::setCurrent(path); }
    ~WorkingDirectory() { QDir::setCurrent(previous); }
};

} // namespace

class TestTranslationTable : public QObject
{
    Q_OBJECT

private slots:
    void readLines_data();
    void readLines();
    void loadPicksFile_data();
    void loadPicksFile();
    void missingFile();
    void loadReplacesTable();
    void missingNumberInsertsEmpty();
    void singleInstance();
    void shippedFiles_data();
    void shippedFiles();
    void shippedChineseLayoutTexts();
    void shippedFilesLoadByIndex();
};

void TestTranslationTable::readLines_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<TextMap>("expected");

    QTest::newRow("LF") << QByteArray("00000001 One\n00000002 Two\n")
                        << TextMap{{1, "One"}, {2, "Two"}};
    QTest::newRow("CR LF") << QByteArray("00000001 One\r\n0000001F Title\r\n")
                           << TextMap{{1, "One"}, {31, "Title"}};
    QTest::newRow("last line without LF")
        << QByteArray("00000001 One\n00000003 Three") << TextMap{{1, "One"}, {3, "Three"}};
    QTest::newRow("CR without LF is text")
        << QByteArray("00000003 Three\r") << TextMap{{3, "Three\r"}};
    QTest::newRow("inner CR kept") << QByteArray("00000003 a\rb\n") << TextMap{{3, "a\rb"}};
    QTest::newRow("duplicate number: later wins")
        << QByteArray("0000000B first\n0000000C other\n0000000B second\n")
        << TextMap{{11, "second"}, {12, "other"}};
    QTest::newRow("lower-case hex") << QByteArray("0000001f x\n") << TextMap{{31, "x"}};
    QTest::newRow("0x prefix") << QByteArray("0x00001F y\n") << TextMap{{31, "y"}};
    QTest::newRow("surrounding blanks") << QByteArray("   1F    z\n") << TextMap{{31, "z"}};
    QTest::newRow("negative number") << QByteArray("-000001F n\n") << TextMap{{-31, "n"}};
    QTest::newRow("unparsable number is 0")
        << QByteArray("zzzzzzzz bad\n00000001 ok\n") << TextMap{{0, "bad"}, {1, "ok"}};
    QTest::newRow("number above int is 0") << QByteArray("FFFFFFFF big\n") << TextMap{{0, "big"}};
    QTest::newRow("any separator byte")
        << QByteArray("00000002\tTab\n00000003XText\n") << TextMap{{2, "Tab"}, {3, "Text"}};
    QTest::newRow("separator only the ninth byte")
        << QByteArray("00000002  two spaces\n") << TextMap{{2, " two spaces"}};
    QTest::newRow("UTF-8 text") << QByteArray("00000001 中文\n00000002 区域类型：\n")
                                << TextMap{{1, QString::fromUtf8("中文")},
                                           {2, QString::fromUtf8("区域类型：")}};
    QTest::newRow("empty text after separator") << QByteArray("00000004 \n") << TextMap{{4, ""}};
    QTest::newRow("nine bytes: LF as separator")
        << QByteArray("00000001 Hello\n00000004\n") << TextMap{{1, "Hello"}, {4, ""}};
    QTest::newRow("short line picks up an earlier line's bytes")
        << QByteArray("00000001 Hello World\n0000002\n")
        << TextMap{{1, "Hello World"}, {2, "Hello World"}};
    QTest::newRow("short line picks up the last longer line")
        << QByteArray("00000001 abcdefghij\n00000002 xy\n0000003\n")
        << TextMap{{1, "abcdefghij"}, {2, "xy"}, {3, "xy"}};
    QTest::newRow("short last line without LF") << QByteArray("00000001 Hello World\n00000002")
                                                << TextMap{{1, "Hello World"}, {2, "Hello World"}};
    QTest::newRow("short first line reads a cleared buffer")
        << QByteArray("0000007\n") << TextMap{{7, ""}};
    QTest::newRow("empty file") << QByteArray() << TextMap{};

    // 2047 bytes fit the buffer: the rest of a longer line is a line of its own.
    const QByteArray fill(2047 - 9, 'a');
    QTest::newRow("long line split into two entries")
        << (QByteArray("00000005 ") + fill + QByteArray("00000006 tail\n00000007 next\n"))
        << TextMap{{5, QString::fromLatin1(fill)}, {6, "tail"}, {7, "next"}};
    const QByteArray longB(2100, 'b');
    QTest::newRow("long line rest with a bad number")
        << (QByteArray("00000005 ") + longB + "\n")
        << TextMap{{5, QString(2038, QLatin1Char('b'))},
                   {0, QString(2100 - 2038 - 9, QLatin1Char('b'))}};
    const QByteArray exact(2047 - 9 - 1, 'c');
    QTest::newRow("line of exactly 2047 bytes")
        << (QByteArray("00000008 ") + exact + "\n") << TextMap{{8, QString::fromLatin1(exact)}};
}

void TestTranslationTable::readLines()
{
    QFETCH(QByteArray, bytes);
    QFETCH(TextMap, expected);

    QBuffer buffer(&bytes);
    QVERIFY(buffer.open(QIODevice::ReadOnly));
    TranslationTable table;
    table.readFrom(buffer);
    const TextMap actual = contentsOf(table);
    QCOMPARE(actual.keys(), expected.keys());
    for (auto it = expected.cbegin(); it != expected.cend(); ++it)
        QCOMPARE(actual.value(it.key()), it.value());
}

void TestTranslationTable::loadPicksFile_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("expected");
    QTest::newRow("0 Chinese") << 0 << "CN";
    QTest::newRow("1 English") << 1 << "EN";
    QTest::newRow("2 Chinese") << 2 << "CN";
    QTest::newRow("-1 Chinese") << -1 << "CN";
    QTest::newRow("1000 Chinese") << 1000 << "CN";
}

void TestTranslationTable::loadPicksFile()
{
    QFETCH(int, index);
    QFETCH(QString, expected);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    QVERIFY(writeFile(dir.filePath("ORV_translate_cn.txt"), "00000001 CN\n00000002 only cn\n"));
    QVERIFY(writeFile(dir.filePath("ORV_translate_en.txt"), "00000001 EN\n00000003 only en\n"));
    WorkingDirectory cwd(dir.path());

    TranslationTable table;
    QVERIFY(table.load(index));
    QCOMPARE(table.currentLanguage(), index);
    QCOMPARE(table.text(1), expected);
    QCOMPARE(table.numbers(),
             expected == QLatin1String("EN") ? QList<int>({1, 3}) : QList<int>({1, 2}));
}

void TestTranslationTable::missingFile()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    QVERIFY(writeFile(dir.filePath("ORV_translate_en.txt"), "00000001 EN\n"));
    WorkingDirectory cwd(dir.path());

    TranslationTable table;
    QVERIFY(table.load(1));
    QCOMPARE(table.numbers().size(), 1);

    // No Chinese file: false, the table is emptied, the index is still taken.
    QCOMPARE(table.load(0), false);
    QCOMPARE(table.currentLanguage(), 0);
    QVERIFY(table.numbers().isEmpty());
    QCOMPARE(table.text(1), QString());

    QVERIFY(QFile::remove(dir.filePath("ORV_translate_en.txt")));
    QCOMPARE(table.load(1), false);
    QCOMPARE(table.currentLanguage(), 1);
    QVERIFY(table.numbers().isEmpty());
}

void TestTranslationTable::loadReplacesTable()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    QVERIFY(writeFile(dir.filePath("ORV_translate_cn.txt"), "00000001 CN\n00000002 two\n"));
    QVERIFY(writeFile(dir.filePath("ORV_translate_en.txt"), "00000001 EN\n"));
    WorkingDirectory cwd(dir.path());

    TranslationTable table;
    QVERIFY(table.load(0));
    QCOMPARE(table.text(9), QString()); // adds an empty entry 9
    QCOMPARE(table.numbers(), QList<int>({1, 2, 9}));
    QVERIFY(table.load(1));
    QCOMPARE(table.numbers(), QList<int>({1}));
    QCOMPARE(table.text(1), QStringLiteral("EN"));
}

void TestTranslationTable::missingNumberInsertsEmpty()
{
    QByteArray bytes("00000001 One\n");
    QBuffer buffer(&bytes);
    QVERIFY(buffer.open(QIODevice::ReadOnly));
    TranslationTable table;
    table.readFrom(buffer);
    QCOMPARE(table.numbers(), QList<int>({1}));
    QCOMPARE(table.text(27), QString());
    QCOMPARE(table.numbers(), QList<int>({1, 27}));
    QCOMPARE(table.text(1), QStringLiteral("One"));
    QCOMPARE(table.numbers(), QList<int>({1, 27}));
}

void TestTranslationTable::singleInstance()
{
    TranslationTable &a = translationTable();
    TranslationTable &b = translationTable();
    QCOMPARE(&a, &b);
    QByteArray bytes("00000011 shared\n");
    QBuffer buffer(&bytes);
    QVERIFY(buffer.open(QIODevice::ReadOnly));
    a.readFrom(buffer);
    QCOMPARE(translationTable().text(17), QStringLiteral("shared"));
}

void TestTranslationTable::shippedFiles_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::newRow("Chinese") << "ORV_translate_cn.txt";
    QTest::newRow("English") << "ORV_translate_en.txt";
}

void TestTranslationTable::shippedFiles()
{
    QFETCH(QString, fileName);
    QFile file(QStringLiteral(ORV_TRANSLATION_DIR) + QLatin1Char('/') + fileName);
    QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(file.fileName()));
    const QByteArray bytes = file.readAll();

    // LF line ends, each line at least nine bytes and valid UTF-8.
    QVERIFY(!bytes.contains('\r'));
    QVERIFY(bytes.endsWith('\n'));
    QCOMPARE(QString::fromUtf8(bytes).toUtf8(), bytes);
    QVERIFY(!QString::fromUtf8(bytes).contains(QChar::ReplacementCharacter));
    const QList<QByteArray> lines = bytes.left(bytes.size() - 1).split('\n');
    QCOMPARE(lines.size(), 39);
    for (const QByteArray &line : lines)
        QVERIFY2(line.size() >= 9, line.constData());

    file.seek(0);
    TranslationTable table;
    table.readFrom(file);
    QList<int> expected;
    for (int n = 1; n <= 39; ++n)
        expected.append(n);
    QCOMPARE(table.numbers(), expected);
    for (int n = 1; n <= 39; ++n) {
        QVERIFY2(!table.text(n).trimmed().isEmpty(), qPrintable(QString::number(n)));
        QVERIFY2(table.text(n) == table.text(n).trimmed(), qPrintable(QString::number(n)));
    }
    QVERIFY(table.text(30).contains(QStringLiteral("%1")));
    // The message with the rate reads well once filled in.
    QVERIFY(table.text(30).arg(115200).contains(QStringLiteral("115200")));
    for (int n = 1; n <= 39; ++n) {
        if (n != 30)
            QVERIFY2(!table.text(n).contains(QLatin1Char('%')), qPrintable(QString::number(n)));
    }
    QCOMPARE(table.text(1), QString::fromUtf8("中文"));
    QCOMPARE(table.text(2), QStringLiteral("English"));
    // Texts compared against each other must differ: open/close, the two
    // display types, the two area types, the two statuses.
    QVERIFY(table.text(11) != table.text(12));
    QVERIFY(table.text(7) != table.text(8));
    QVERIFY(table.text(3) != table.text(4));
    QVERIFY(table.text(5) != table.text(6));
    QVERIFY(table.text(33) != table.text(34));
    // The corner messages name their ranges.
    QVERIFY(table.text(35).contains(QStringLiteral("-8")));
    QVERIFY(table.text(36).contains(QStringLiteral("-8")));
    QVERIFY(table.text(37).contains(QStringLiteral("0")) && table.text(37).contains("8"));
    QVERIFY(table.text(38).contains(QStringLiteral("0")) && table.text(38).contains("8"));
}

void TestTranslationTable::shippedChineseLayoutTexts()
{
    QFile file(QStringLiteral(ORV_TRANSLATION_DIR "/ORV_translate_cn.txt"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    TranslationTable table;
    table.readFrom(file);
    // The window's built-in Chinese texts, by the number that replaces them.
    const QMap<int, const char *> builtIn = {
        {28, "串口设置"},   {9, "串口号："},         {10, "波特率："},        {11, "打开"},
        {13, "坐标设置"},   {14, "X轴范围（米）："}, {15, "Y轴范围（米）："}, {16, "设置"},
        {17, "目标显示："}, {18, "区域设置"},        {19, "区域编号："},      {20, "区域状态："},
        {21, "区域类型："}, {22, "区域位置"},        {23, "起点(X,Y)："},     {24, "终点(X,Y)："},
        {25, "鼠标框选"},   {26, "撤销所有区域"},    {29, "语言："}};
    for (auto it = builtIn.cbegin(); it != builtIn.cend(); ++it)
        QCOMPARE(table.text(it.key()), QString::fromUtf8(it.value()));
    // Texts without a built-in counterpart are Chinese too.
    for (int n : {3, 4, 5, 6, 7, 8, 12, 27, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39}) {
        const QString text = table.text(n);
        bool han = false;
        for (const QChar c : text)
            han = han || (c.unicode() >= 0x4E00 && c.unicode() <= 0x9FFF);
        QVERIFY2(han, qPrintable(QString::number(n)));
    }
}

void TestTranslationTable::shippedFilesLoadByIndex()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    for (const char *name : {"ORV_translate_cn.txt", "ORV_translate_en.txt"})
        QVERIFY(QFile::copy(QStringLiteral(ORV_TRANSLATION_DIR "/") + QLatin1String(name),
                            dir.filePath(QLatin1String(name))));
    WorkingDirectory cwd(dir.path());
    TranslationTable table;
    QVERIFY(table.load(1));
    const QString english = table.text(11);
    QVERIFY(table.load(0));
    QCOMPARE(table.text(11), QString::fromUtf8("打开"));
    QVERIFY(english != table.text(11));
    QCOMPARE(table.numbers().size(), 39);
}

QTEST_GUILESS_MAIN(TestTranslationTable)
#include "tst_translationtable.moc"
