#pragma once

#include <QByteArray>

#include <cstdio>

// Writes bytes to a stream and flushes it at once, so that a script reading
// the other end sees each line when it is written; false when not all went.
// Header-only: the area file (which the fuzzers compile on its own) uses it.
inline bool writeAndFlush(FILE *stream, const QByteArray &bytes)
{
    const bool whole =
        std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream) == size_t(bytes.size());
    return std::fflush(stream) == 0 && whole;
}
