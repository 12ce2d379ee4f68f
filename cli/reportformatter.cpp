#include "cli/reportformatter.h"

#include <QDateTime>

namespace
{

void appendInt(QByteArray &out, int value)
{
    char digits[12];
    int n = 0;
    unsigned v = value < 0 ? unsigned(-value) : unsigned(value);
    do {
        digits[n++] = char('0' + v % 10);
        v /= 10;
    } while (v != 0);
    if (value < 0)
        out.append('-');
    while (n > 0)
        out.append(digits[--n]);
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
    if (decimetres < 0) {
        out.append('-');
        decimetres = -decimetres;
    }
    appendInt(out, decimetres / 10);
    out.append('.');
    out.append(char('0' + decimetres % 10));
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
    switch (format) {
    case Format::Text:
        out.append(" targets ");
        appendInt(out, pairs);
        out.append(':');
        for (int i = 0; i < pairs; ++i) {
            out.append(" (");
            appendMetres(out, qint8(p[2 * i]));
            out.append(", ");
            appendMetres(out, qint8(p[2 * i + 1]));
            out.append(')');
        }
        break;
    case Format::Csv:
        out.append(",targets,");
        appendInt(out, pairs);
        out.append(',');
        for (int i = 0; i < pairs; ++i) {
            if (i > 0)
                out.append(';');
            appendMetres(out, qint8(p[2 * i]));
            out.append(' ');
            appendMetres(out, qint8(p[2 * i + 1]));
        }
        out.append(",,,");
        break;
    case Format::Jsonl:
        out.append("\",\"kind\":\"targets\",\"targets\":[");
        for (int i = 0; i < pairs; ++i) {
            if (i > 0)
                out.append(',');
            out.append('[');
            appendMetres(out, qint8(p[2 * i]));
            out.append(',');
            appendMetres(out, qint8(p[2 * i + 1]));
            out.append(']');
        }
        out.append("]}");
        break;
    }
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
                appendInt(out, k + 1);
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
