// libFuzzer target: the input, cut into chunks by its own bytes (each chunk is
// a length byte, low 6 bits, followed by that many bytes), goes through the
// link's receive scan and frame decoder.

#include "fuzz/fuzzreads.h"
#include "radar/radercommunicate.h"
#include "radar/radercommunicateaccess.h"

#include <QByteArray>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace
{

void quiet(QtMsgType, const QMessageLogContext &, const QString &) {}

RaderCommunicate *setUp()
{
    qInstallMessageHandler(&quiet);
    RaderCommunicate *link = RaderCommunicate::GetInstance();
    // The scan is the target here; the logger is exercised by its own tests
    // and would only queue millions of lines.
    RaderCommunicateAccess::setLogEnabled(link, false);
    return link;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static RaderCommunicate *link = setUp();

    forEachRead(data, size, [](const QByteArray &read) {
        link->ReceiveBytes(read);
        // Only an unfinished frame (it starts with a header) may wait with
        // more than 128 bytes, and no length declares more than 32,648.
        const QByteArray pending = link->PendingBytes();
        const bool unfinished = pending.startsWith("\xFF\xEE\xDD");
        if ((pending.size() > 128 && !unfinished) || pending.size() > 32648)
            std::abort();
    });
    // Every frame decoder also sees the whole input as one frame.
    link->ParseFrame(QByteArray(reinterpret_cast<const char *>(data), int(size)));
    link->CloseSerial(); // each input starts with an empty carry-over
    return 0;
}
