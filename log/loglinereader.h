#pragma once

// Reading diagnostic log files (and orv-cli recordings, which use the same
// line format) back: "[yyyy-mm-dd hh:mm:ss.mmm] message", one line each, LF
// or CR LF. Lines whose message is "RecvData:" followed by a hex dump ("%02X "
// per byte) carry the bytes the tool received.
//
// parseLogLine() reads one line and is what tests and the fuzzer drive;
// LogLineReader streams a whole file through it in constant memory.

#include <QByteArray>
#include <QtGlobal>

class QIODevice;

namespace logline
{

enum class Kind {
    NotALogLine, // no "[yyyy-mm-dd hh:mm:ss.mmm] " stamp with a valid date and time
    Message,     // a stamped line of any other kind
    RecvData,    // a stamped "RecvData:" line; its bytes are in the parse result
};

struct ParsedLine {
    Kind kind = Kind::NotALogLine;
    // The stamp as milliseconds since 1970-01-01 00:00, the wall-clock reading
    // taken as it stands (no time zone): differences are real durations as
    // long as the clock was not changed.
    qint64 msecs = 0;
    // RecvData only: the dump stopped or broke before the end of the line (a
    // lone hex digit, or something that is not a hex byte). The bytes before
    // the break are kept.
    bool truncatedDump = false;
    // Message and RecvData: the text after the stamp's "] " (points into the
    // line handed in).
    const char *message = nullptr;
    int messageSize = 0;
};

// Parses one line (a trailing CR, LF or CR LF is ignored). For RecvData lines
// the dumped bytes are written to bytes, which is resized (its storage is
// reused from call to call); for other kinds bytes is left empty.
ParsedLine parseLogLine(const char *data, int size, QByteArray &bytes);

// Milliseconds since 1970-01-01 of a date and time, proleptic Gregorian, no
// time zone; the same scale as ParsedLine::msecs.
qint64 civilMsecs(int year, int month, int day, int hour, int minute, int second, int ms);

} // namespace logline

struct LogLineCounts {
    qint64 lines = 0;          // every line, empty ones included
    qint64 notLogLines = 0;    // lines without a valid stamp (skipped)
    qint64 recvDataLines = 0;  // "RecvData:" lines
    qint64 truncatedDumps = 0; // "RecvData:" lines whose dump broke off
    qint64 overlongLines = 0;  // lines longer than the reader's limit (skipped whole)
};

// Streams the lines of a device, parsing each with parseLogLine(). Memory
// stays bounded: the read buffer grows only up to maxLineLength, and a line
// longer than that is skipped whole and counted.
class LogLineReader
{
public:
    static constexpr int kDefaultMaxLineLength = 4 * 1024 * 1024;

    explicit LogLineReader(QIODevice *device, int maxLineLength = kDefaultMaxLineLength);

    // Reads and parses the next line; false at the end of the device. The
    // line's bytes (RecvData) and message stay valid until the next call.
    bool next(logline::ParsedLine &line);

    const QByteArray &bytes() const { return dumpBytes; }
    const LogLineCounts &counts() const { return tally; }
    // Bytes consumed from the device so far.
    qint64 bytesRead() const { return consumed; }
    // True when the device reported a read error.
    bool failed() const { return readError; }

private:
    bool fill();
    bool nextRawLine(const char **data, int *size);

    QIODevice *device;
    int maxLine;
    QByteArray buffer;
    int start = 0; // first unread byte in buffer
    int end = 0;   // one past the last valid byte in buffer
    bool atEnd = false;
    bool readError = false;
    qint64 consumed = 0;
    QByteArray dumpBytes;
    LogLineCounts tally;
};
