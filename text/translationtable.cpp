#include "text/translationtable.h"

#include <QByteArray>
#include <QFile>
#include <QIODevice>

#include <cstring>

namespace
{
constexpr int kLineBufferSize = 2048;
constexpr int kNumberLength = 8;
constexpr int kTextOffset = 9;
} // namespace

bool TranslationTable::load(int index)
{
    languageIndex = index;
    texts.clear();
    QFile file(index == 1 ? QStringLiteral("./ORV_translate_en.txt")
                          : QStringLiteral("./ORV_translate_cn.txt"));
    if (!file.open(QIODevice::ReadOnly))
        return false;
    readFrom(file);
    return true;
}

void TranslationTable::readFrom(QIODevice &device)
{
    // One line per entry: eight hexadecimal digits, one separator byte, the
    // UTF-8 text. The buffer is cleared once only, so a line shorter than
    // nine bytes reads its text from what an earlier line left behind; the
    // files are written with every line at least nine bytes long.
    char buffer[kLineBufferSize];
    std::memset(buffer, 0, sizeof buffer);
    while (!device.atEnd()) {
        const qint64 read = device.readLine(buffer, kLineBufferSize);
        if (read < 0)
            break;
        const QString numberField =
            QString::fromLatin1(buffer, static_cast<int>(qstrnlen(buffer, kNumberLength)));
        const int number = numberField.toInt(nullptr, 16);
        QByteArray text(buffer + kTextOffset);
        if (text.endsWith('\n')) {
            text.chop(1);
            if (text.endsWith('\r'))
                text.chop(1);
        }
        texts[number] = QString::fromUtf8(text);
    }
}

QString TranslationTable::text(int number)
{
    return texts[number];
}

TranslationTable &translationTable()
{
    static TranslationTable table;
    return table;
}
