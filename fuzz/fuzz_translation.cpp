// libFuzzer target: the translation file reader. The input is a translation
// file's bytes; they are read into a table, every number found and the
// numbers the tool uses are looked up, and the same bytes are read again
// from a real file through load().

#include "fuzz/fuzzwindow.h"
#include "text/translationtable.h"

#include <QBuffer>
#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace
{

void quiet(QtMsgType, const QMessageLogContext &, const QString &) {}

bool setUp()
{
    qInstallMessageHandler(&quiet);
    // The file is written for every input: in memory where possible.
    static QTemporaryDir *dir = new QTemporaryDir(fuzzwindow::fastTemporaryPattern());
    QDir::setCurrent(dir->path());
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static bool ready = setUp();
    Q_UNUSED(ready);

    QByteArray bytes(reinterpret_cast<const char *>(data), int(size));
    TranslationTable table;
    {
        QBuffer buffer(&bytes);
        buffer.open(QIODevice::ReadOnly);
        table.readFrom(buffer);
    }
    const QList<int> numbers = table.numbers();
    // At most one entry per line, and a line is at least one byte.
    if (numbers.size() > int(size))
        std::abort();
    for (int number : numbers)
        table.text(number);
    for (int number = 0; number <= 40; ++number)
        table.text(number);
    // Lookups of missing numbers only add empty entries.
    if (table.numbers().size() > numbers.size() + 41)
        std::abort();

    // The same bytes as the English file, read the way the tool reads it.
    {
        QFile file(QStringLiteral("./ORV_translate_en.txt"));
        if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            file.write(bytes);
    }
    TranslationTable loaded;
    if (!loaded.load(1))
        std::abort();
    if (loaded.numbers() != numbers)
        std::abort();
    for (int number : numbers) {
        if (loaded.text(number) != table.text(number))
            std::abort();
    }
    return 0;
}
