#include "tools/radar-sim/baudline.h"

#include <algorithm>
#include <cmath>

qint64 BaudLine::lineTimeUs(qint64 bytes, int baud)
{
    if (baud <= 0 || bytes <= 0)
        return 0;
    return (bytes * kBitsPerByte * 1000000 + baud - 1) / baud;
}

QByteArray BaudLine::garble(const QByteArray &bytes, int sentRate, int readRate)
{
    if (bytes.isEmpty())
        return QByteArray();
    double perByte = 1.0;
    if (sentRate > 0 && readRate > 0)
        perByte = std::min(2.0, double(readRate) / double(sentRate));
    const double total = carry + perByte * bytes.size();
    const int count = int(std::floor(total));
    carry = total - count;

    QByteArray out(count, Qt::Uninitialized);
    for (int k = 0; k < count; ++k) {
        // The sent byte under the receiver's k-th start bit, mixed with a
        // running xorshift state: what a wrong sampling clock reads from it.
        const int from = int(std::min(double(bytes.size() - 1), k / perByte));
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        quint8 b = quint8((state >> 24) ^ quint8(bytes.at(from)));
        if (b == 0xFF)
            b = 0xFE;
        out[k] = char(b);
    }
    return out;
}
