#include "radar/debugline.h"

#include <QLoggingCategory>
#include <QString>

#include <cstring>

namespace debugline
{

namespace
{

// "%02X " of every byte value, as the characters a dump is made of.
struct HexTriples {
    char16_t text[256][3];
    HexTriples()
    {
        const char digits[] = "0123456789ABCDEF";
        for (int b = 0; b < 256; ++b) {
            text[b][0] = char16_t(digits[b >> 4]);
            text[b][1] = char16_t(digits[b & 0x0F]);
            text[b][2] = u' ';
        }
    }
};

// The text of the line being built; its storage is kept from line to line.
QString &lineBuffer()
{
    thread_local QString text = [] {
        QString s;
        s.reserve(512);
        return s;
    }();
    return text;
}

// Starts a line of `size` characters with label and a space; returns where
// the rest goes.
QChar *startLine(const char *label, int size)
{
    QString &text = lineBuffer();
    text.resize(size);
    QChar *out = text.data();
    for (; *label; ++label)
        *out++ = QLatin1Char(*label);
    *out++ = QLatin1Char(' ');
    return out;
}

void output()
{
    static const QMessageLogContext context(nullptr, 0, nullptr, "default");
    qt_message_output(QtDebugMsg, context, lineBuffer());
}

} // namespace

bool enabled()
{
    const QLoggingCategory *category = QLoggingCategory::defaultCategory();
    return category == nullptr || category->isDebugEnabled();
}

void hexDump(const char *label, const QByteArray &bytes)
{
    if (!enabled())
        return;
    const int n = bytes.size();
    const int labelSize = int(std::strlen(label));
    QChar *out = startLine(label, labelSize + 1 + 3 * n + 2);
    *out++ = QLatin1Char('"');
    static const HexTriples hex;
    const char *in = bytes.constData();
    for (int k = 0; k < n; ++k) {
        std::memcpy(out, hex.text[quint8(in[k])], sizeof hex.text[0]);
        out += 3;
    }
    *out = QLatin1Char('"');
    output();
}

void number(const char *label, int value)
{
    if (!enabled())
        return;
    // Decimal digits, last first; the magnitude is taken unsigned so the
    // most negative int is printed right too.
    char digits[12];
    int count = 0;
    unsigned int magnitude = value < 0 ? 0u - unsigned(value) : unsigned(value);
    do {
        digits[count++] = char('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    if (value < 0)
        digits[count++] = '-';

    const int labelSize = int(std::strlen(label));
    QChar *out = startLine(label, labelSize + 1 + count);
    while (count > 0)
        *out++ = QLatin1Char(digits[--count]);
    output();
}

} // namespace debugline
