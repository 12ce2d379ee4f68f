// libFuzzer target: the input is a log file. Each line goes through
// parseLogLine() directly, and the whole input through LogLineReader with a
// small line limit, so the overlong-line path is exercised too. Checks what
// must hold for any input: a dump never yields more bytes than its text can
// hold, and the reader accounts for every byte.

#include "log/loglinereader.h"

#include <QBuffer>
#include <QByteArray>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 1 << 20)
        return 0;
    const char *text = reinterpret_cast<const char *>(data);
    const int n = int(size);
    QByteArray bytes;
    int start = 0;
    int lines = 0;
    for (int i = 0; i <= n; ++i) {
        if (i < n && text[i] != '\n')
            continue;
        const int length = i - start + (i < n ? 1 : 0);
        if (length > 0 || i < n) {
            const logline::ParsedLine line = logline::parseLogLine(text + start, length, bytes);
            if (line.kind == logline::Kind::RecvData) {
                if (bytes.size() * 2 > length)
                    std::abort();
                if (line.message < text + start || line.message + line.messageSize > text + i + 1)
                    std::abort();
            } else if (!bytes.isEmpty()) {
                std::abort();
            }
            ++lines;
        }
        start = i + 1;
    }

    QByteArray copy(text, n);
    QBuffer device(&copy);
    device.open(QIODevice::ReadOnly);
    LogLineReader reader(&device, 64);
    logline::ParsedLine line;
    qint64 seen = 0;
    while (reader.next(line))
        ++seen;
    if (reader.bytesRead() != n)
        std::abort();
    if (reader.counts().lines != seen + reader.counts().overlongLines)
        std::abort();
    if (reader.counts().truncatedDumps > reader.counts().recvDataLines)
        std::abort();
    (void)lines;
    return 0;
}
