#include "log/loglinereader.h"

#include <QIODevice>

#include <cstring>

namespace logline
{

namespace
{

// Value of n decimal digits at p, or -1 when one of them is not a digit.
int digits(const char *p, int n)
{
    int value = 0;
    for (int k = 0; k < n; ++k) {
        const char c = p[k];
        if (c < '0' || c > '9')
            return -1;
        value = value * 10 + (c - '0');
    }
    return value;
}

int hexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

bool leapYear(int y)
{
    return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

int daysInMonth(int y, int m)
{
    static const int days[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return m == 2 && leapYear(y) ? 29 : days[m - 1];
}

// "[yyyy-mm-dd hh:mm:ss.mmm] " is 26 bytes.
constexpr int kStampSize = 26;

} // namespace

qint64 civilMsecs(int year, int month, int day, int hour, int minute, int second, int ms)
{
    // Days since 1970-01-01 of a Gregorian date (era arithmetic, valid for
    // every year of four digits).
    const int y = month <= 2 ? year - 1 : year;
    const int era = (y >= 0 ? y : y - 399) / 400;
    const int yoe = y - era * 400;
    const int mp = (month + 9) % 12;
    const int doy = (153 * mp + 2) / 5 + day - 1;
    const int doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    const qint64 days = qint64(era) * 146097 + doe - 719468;
    return ((days * 24 + hour) * 60 + minute) * 60000LL + second * 1000LL + ms;
}

ParsedLine parseLogLine(const char *data, int size, QByteArray &bytes)
{
    ParsedLine out;
    bytes.resize(0);
    while (size > 0 && (data[size - 1] == '\n' || data[size - 1] == '\r'))
        --size;
    if (size < kStampSize - 1)
        return out;
    const char *p = data;
    if (p[0] != '[' || p[5] != '-' || p[8] != '-' || p[11] != ' ' || p[14] != ':' || p[17] != ':' ||
        p[20] != '.' || p[24] != ']')
        return out;
    const int year = digits(p + 1, 4);
    const int month = digits(p + 6, 2);
    const int day = digits(p + 9, 2);
    const int hour = digits(p + 12, 2);
    const int minute = digits(p + 15, 2);
    const int second = digits(p + 18, 2);
    const int ms = digits(p + 21, 3);
    if (year < 1 || month < 1 || month > 12 || day < 1 || day > daysInMonth(year, month) ||
        hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 59 || ms < 0)
        return out;
    // The message follows after one blank; a line cut right after the "]" is
    // a stamped line with an empty message.
    if (size > kStampSize - 1 && p[25] != ' ')
        return out;

    out.msecs = civilMsecs(year, month, day, hour, minute, second, ms);
    out.kind = Kind::Message;
    out.message = p + qMin(size, kStampSize);
    out.messageSize = size - int(out.message - p);

    static const char tag[] = "RecvData:";
    const int tagSize = int(sizeof(tag)) - 1;
    if (out.messageSize < tagSize || std::memcmp(out.message, tag, tagSize) != 0)
        return out;
    out.kind = Kind::RecvData;

    // "%02X " per byte; the last byte may come without its blank.
    const char *q = out.message + tagSize;
    const char *stop = out.message + out.messageSize;
    bytes.resize(int(stop - q) / 3 + 1);
    char *write = bytes.data();
    while (q < stop) {
        if (*q == ' ') { // extra blanks are tolerated
            ++q;
            continue;
        }
        const int hi = hexDigit(q[0]);
        const int lo = q + 1 < stop ? hexDigit(q[1]) : -1;
        if (hi < 0 || lo < 0 || (q + 2 < stop && q[2] != ' ')) {
            out.truncatedDump = true;
            break;
        }
        *write++ = char(hi * 16 + lo);
        q += 2;
    }
    bytes.resize(int(write - bytes.data()));
    return out;
}

} // namespace logline

LogLineReader::LogLineReader(QIODevice *device, int maxLineLength)
    : device(device), maxLine(qMax(maxLineLength, 64)), buffer(qMin(maxLine, 1 << 20), '\0')
{
}

bool LogLineReader::fill()
{
    if (atEnd)
        return false;
    if (start > 0) {
        std::memmove(buffer.data(), buffer.constData() + start, size_t(end - start));
        end -= start;
        start = 0;
    }
    if (end == buffer.size()) {
        if (buffer.size() >= maxLine)
            return false;
        buffer.resize(qMin(maxLine, buffer.size() * 2));
    }
    const qint64 got = device->read(buffer.data() + end, buffer.size() - end);
    if (got < 0)
        readError = true;
    if (got <= 0) {
        atEnd = true;
        return false;
    }
    end += int(got);
    return true;
}

bool LogLineReader::nextRawLine(const char **data, int *size)
{
    bool skipping = false; // inside an overlong line
    int scanned = 0;       // bytes after start already known to hold no newline
    for (;;) {
        const char *from = buffer.constData() + start;
        const void *nl = std::memchr(from + scanned, '\n', size_t(end - start - scanned));
        if (nl) {
            const int length = int(static_cast<const char *>(nl) - from) + 1;
            start += length;
            consumed += length;
            if (skipping) {
                skipping = false;
                scanned = 0;
                continue;
            }
            *data = from;
            *size = length;
            return true;
        }
        scanned = end - start;
        if (fill())
            continue;
        if (atEnd) {
            // The last line of a file may lack its newline.
            const int length = end - start;
            if (length == 0)
                return false;
            start = end;
            consumed += length;
            if (skipping)
                return false;
            *data = buffer.constData() + end - length;
            *size = length;
            return true;
        }
        // The buffer is full and holds no newline: the line is too long.
        if (!skipping) {
            skipping = true;
            ++tally.lines;
            ++tally.overlongLines;
        }
        consumed += end - start;
        start = end = 0;
        scanned = 0;
    }
}

bool LogLineReader::next(logline::ParsedLine &line)
{
    const char *data = nullptr;
    int size = 0;
    if (!nextRawLine(&data, &size))
        return false;
    ++tally.lines;
    line = logline::parseLogLine(data, size, dumpBytes);
    switch (line.kind) {
    case logline::Kind::NotALogLine:
        ++tally.notLogLines;
        break;
    case logline::Kind::RecvData:
        ++tally.recvDataLines;
        if (line.truncatedDump)
            ++tally.truncatedDumps;
        break;
    case logline::Kind::Message:
        break;
    }
    return true;
}
