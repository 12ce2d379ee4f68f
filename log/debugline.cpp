#include "log/debugline.h"

#include <QLoggingCategory>

#include <cstring>

namespace
{

// "%02X " of every byte value as three UTF-16 characters, in the low six
// bytes of a 64-bit word (the top two are zero), so that one byte of a dump
// is written with one 8-byte store.
struct HexTriples {
    quint64 text[256];
    HexTriples()
    {
        const char digits[] = "0123456789ABCDEF";
        for (int b = 0; b < 256; ++b) {
            const char16_t chars[4] = {char16_t(digits[b >> 4]), char16_t(digits[b & 0x0F]), u' ',
                                       0};
            std::memcpy(&text[b], chars, sizeof text[b]);
        }
    }
};

} // namespace

DebugLine::DebugLine(QStringView label)
{
    text.reserve(256);
    text.append(label);
    text.append(QLatin1Char(' '));
    prefixSize = text.size();
}

bool DebugLine::enabled()
{
    const QLoggingCategory *category = QLoggingCategory::defaultCategory();
    return category == nullptr || category->isDebugEnabled();
}

void DebugLine::output() const
{
    static const QMessageLogContext context(nullptr, 0, nullptr, "default");
    qt_message_output(QtDebugMsg, context, text);
}

void DebugLine::hexDump(const QByteArray &bytes)
{
    if (!enabled())
        return;
    static const HexTriples hex;
    const int n = bytes.size();
    text.resize(prefixSize + 1 + 3 * n + 1);
    QChar *out = text.data() + prefixSize;
    *out++ = QLatin1Char('"');
    const char *in = bytes.constData();
    // Each store also writes one character past its triple; that character
    // is the next triple's first, or the closing quote written last.
    for (int k = 0; k < n; ++k) {
        std::memcpy(static_cast<void *>(out), &hex.text[quint8(in[k])], sizeof hex.text[0]);
        out += 3;
    }
    *out = QLatin1Char('"');
    showsNumber = false;
    output();
}

void DebugLine::number(int value)
{
    if (!enabled())
        return;
    if (!showsNumber || value != shownNumber) {
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

        text.resize(prefixSize + count);
        QChar *out = text.data() + prefixSize;
        while (count > 0)
            *out++ = QLatin1Char(digits[--count]);
        shownNumber = value;
        showsNumber = true;
    }
    output();
}

void DebugLine::point(const QPointF &p)
{
    if (!enabled())
        return;
    // QDebug prints each coordinate through a C-locale text stream in its
    // default notation, which is what QString::number(v, 'g', 6) gives.
    text.truncate(prefixSize);
    text.append(QLatin1String("QPointF("));
    text.append(QString::number(p.x(), 'g', 6));
    text.append(QLatin1Char(','));
    text.append(QString::number(p.y(), 'g', 6));
    text.append(QLatin1Char(')'));
    showsNumber = false;
    output();
}
