#pragma once

// Cuts a fuzz input into reads as a serial port hands them over: each read is
// led by one byte whose low six bits give its length (0..63), so the fuzzer
// chooses where the line splits frames as well as the bytes themselves.

#include <QByteArray>

#include <cstddef>
#include <cstdint>

template <typename Read> void forEachRead(const std::uint8_t *data, std::size_t size, Read &&read)
{
    std::size_t pos = 0;
    while (pos < size) {
        const std::size_t wanted = data[pos] & 0x3F;
        ++pos;
        const std::size_t n = wanted < size - pos ? wanted : size - pos;
        read(QByteArray(reinterpret_cast<const char *>(data + pos), int(n)));
        pos += n;
    }
}
