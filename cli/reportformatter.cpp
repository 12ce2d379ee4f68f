#include "cli/reportformatter.h"

#include <QDateTime>

namespace
{

// The digits of a count (0 or more).
char *putInt(char *d, int value)
{
    char digits[12];
    int n = 0;
    do {
        digits[n++] = char('0' + value % 10);
        value /= 10;
    } while (value != 0);
    while (n > 0)
        *d++ = digits[--n];
    return d;
}

// A signed byte of decimetres as metres with one decimal (-12.8 .. 12.7).
char *putMetres(char *d, int decimetres)
{
    if (decimetres < 0) {
        *d++ = '-';
        decimetres = -decimetres;
    }
    const int whole = decimetres / 10;
    if (whole >= 10)
        *d++ = char('0' + whole / 10);
    *d++ = char('0' + whole % 10);
    *d++ = '.';
    *d++ = char('0' + decimetres % 10);
    return d;
}

bool occupied(frameformat::ByteView frame, int area)
{
    return frameformat::byteAt(frame, 6 + area) == 1;
}

} // namespace

bool ReportFormatter::parseFormat(const QString &name, Format *format)
{
    if (name == QLatin1String("text"))
        *format = Format::Text;
    else if (name == QLatin1String("csv"))
        *format = Format::Csv;
    else if (name == QLatin1String("jsonl"))
        *format = Format::Jsonl;
    else
        return false;
    return true;
}

QByteArray ReportFormatter::header() const
{
    if (format == Format::Csv)
        return QByteArrayLiteral("time,kind,count,targets,area1,area2,area3\n");
    return QByteArray();
}

void ReportFormatter::appendMetres(QByteArray &out, int decimetres)
{
    char text[8];
    out.append(text, int(putMetres(text, decimetres) - text));
}

void ReportFormatter::appendTime(QByteArray &out, qint64 msSinceEpoch)
{
    const qint64 second = msSinceEpoch >= 0 ? msSinceEpoch / 1000 : (msSinceEpoch - 999) / 1000;
    if (second != cachedSecond) {
        cachedSecond = second;
        cachedPrefix = QDateTime::fromSecsSinceEpoch(second, Qt::UTC)
                           .toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss"))
                           .toLatin1();
    }
    const int ms = int(msSinceEpoch - second * 1000);
    out.append(cachedPrefix);
    out.append('.');
    out.append(char('0' + ms / 100));
    out.append(char('0' + ms / 10 % 10));
    out.append(char('0' + ms % 10));
    out.append('Z');
}

void ReportFormatter::appendTargets(QByteArray &out, frameformat::ByteView frame) const
{
    // Pairs of signed decimetres fill the payload; a stray odd byte is no target.
    const int pairs = (frame.size() - frameformat::kEnvelopeSize) / 2;
    const char *p = frame.data() + 6;
    // Written straight into the line's storage: a target takes at most 16
    // characters in any format ("(-12.8, -12.8) ").
    const int start = out.size();
    out.resize(start + 64 + 16 * pairs);
    char *d = out.data() + start;
    auto put = [&d](const char *text) {
        while (*text)
            *d++ = *text++;
    };
    switch (format) {
    case Format::Text:
        put(" targets ");
        d = putInt(d, pairs);
        *d++ = ':';
        for (int i = 0; i < pairs; ++i) {
            put(" (");
            d = putMetres(d, qint8(p[2 * i]));
            put(", ");
            d = putMetres(d, qint8(p[2 * i + 1]));
            *d++ = ')';
        }
        break;
    case Format::Csv:
        put(",targets,");
        d = putInt(d, pairs);
        *d++ = ',';
        for (int i = 0; i < pairs; ++i) {
            if (i > 0)
                *d++ = ';';
            d = putMetres(d, qint8(p[2 * i]));
            *d++ = ' ';
            d = putMetres(d, qint8(p[2 * i + 1]));
        }
        put(",,,");
        break;
    case Format::Jsonl:
        put("\",\"kind\":\"targets\",\"targets\":[");
        for (int i = 0; i < pairs; ++i) {
            if (i > 0)
                *d++ = ',';
            *d++ = '[';
            d = putMetres(d, qint8(p[2 * i]));
            *d++ = ',';
            d = putMetres(d, qint8(p[2 * i + 1]));
            *d++ = ']';
        }
        put("]}");
        break;
    }
    out.resize(int(d - out.constData()));
}

void ReportFormatter::appendAreas(QByteArray &out, frameformat::ByteView frame) const
{
    switch (format) {
    case Format::Text: {
        out.append(" areas occupied:");
        bool any = false;
        for (int k = 0; k < 3; ++k) {
            if (occupied(frame, k)) {
                out.append(' ');
                out.append(char('1' + k));
                any = true;
            }
        }
        if (!any)
            out.append(" none");
        break;
    }
    case Format::Csv:
        out.append(",areas,,");
        for (int k = 0; k < 3; ++k)
            out.append(occupied(frame, k) ? ",1" : ",0");
        break;
    case Format::Jsonl:
        out.append("\",\"kind\":\"areas\",\"occupied\":[");
        for (int k = 0; k < 3; ++k) {
            if (k > 0)
                out.append(',');
            out.append(occupied(frame, k) ? "true" : "false");
        }
        out.append("]}");
        break;
    }
}

bool ReportFormatter::append(QByteArray &out, qint64 msSinceEpoch, frameformat::ByteView frame)
{
    const quint8 code = frameformat::byteAt(frame, 5);
    if (code != TargetReport && code != TargetAreaReport)
        return false;
    if (format == Format::Jsonl)
        out.append("{\"time\":\"");
    appendTime(out, msSinceEpoch);
    if (code == TargetReport)
        appendTargets(out, frame);
    else
        appendAreas(out, frame);
    out.append('\n');
    return true;
}
