// libFuzzer target: the whole receive chain. The input, cut into chunks by its
// own bytes (a length byte, low 6 bits, then that many bytes), goes through
// the link's receive entry point; the frames it holds reach the real main
// window's response slots through the window's own connections, and after
// every input the window paints what those slots asked to repaint, as the
// event loop would (the plot's partial paints included; a forced paint of the
// whole plot after every input took most of the time and never took
// the partial path). The window is built once, offscreen.

#include "fuzz/fuzzreads.h"
#include "fuzz/fuzzwindow.h"

#include "app/mainwindow.h"
#include "radar/radercommunicate.h"
#include "radar/radercommunicateaccess.h"

#include <QByteArray>
#include <QMetaObject>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace
{

struct Chain {
    std::unique_ptr<MainWindow> window;
    RaderCommunicate *link = nullptr;
};

Chain *setUp()
{
    fuzzwindow::setUpProcess();
    auto *chain = new Chain;
    chain->link = RaderCommunicate::GetInstance();
    // The link's hex dumps of every chunk are not the target here (the log
    // has tests and a benchmark of its own).
    RaderCommunicateAccess::setLogEnabled(chain->link, false);
    chain->window = fuzzwindow::makeWindow();

    // An accepted baud-rate change reopens the port, which pauses 100 ms
    // after every open: that answer reaches the window's slot for its first
    // few times only (the refused answer always does), or the fuzzer would
    // spend its time asleep.
    QObject::disconnect(chain->link, SIGNAL(signal_BaudrateResp(bool)), chain->window.get(),
                        SLOT(on_BaudrateResp(bool)));
    MainWindow *window = chain->window.get();
    QObject::connect(chain->link, &RaderCommunicate::signal_BaudrateResp, window,
                     [window](bool bResult) {
                         static int accepted = 0;
                         if (bResult && ++accepted > 8)
                             return;
                         QMetaObject::invokeMethod(window, "on_BaudrateResp", Qt::DirectConnection,
                                                   Q_ARG(bool, bResult));
                     });
    return chain;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static Chain *chain = setUp();

    forEachRead(data, size, [](const QByteArray &read) { chain->link->ReceiveBytes(read); });
    fuzzwindow::paintUpdates(chain->window.get());

    // Back to a closed link with an empty plot for the next input (what the
    // window does when the port goes away).
    QMetaObject::invokeMethod(chain->window.get(), "on_serial_disconnected_resp",
                              Qt::DirectConnection);
    fuzzwindow::settleEvents(64);
    return 0;
}
