// radar-sim: plays the radar module on a pseudo-terminal or a serial port.

#include "tools/radar-sim/portlink.h"
#include "tools/radar-sim/ptyport.h"
#include "tools/radar-sim/replaylog.h"
#include "tools/radar-sim/serialdeviceport.h"
#include "tools/radar-sim/simoptions.h"
#include "tools/radar-sim/simrunner.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <csignal>
#include <cstdio>
#include <memory>
#include <unistd.h>

namespace
{

int signalPipe[2] = {-1, -1};

void onTerminate(int)
{
    const char c = 1;
    [[maybe_unused]] const ssize_t n = ::write(signalPipe[1], &c, 1);
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);

    SimOptions options;
    QString error;
    if (!SimOptions::parse(app.arguments().mid(1), &options, &error)) {
        std::fprintf(stderr, "radar-sim: %s\nTry 'radar-sim --help'.\n", qPrintable(error));
        return 2;
    }
    if (options.help) {
        std::fputs(SimOptions::usage().toLocal8Bit().constData(), stdout);
        return 0;
    }

    ReplayLog replay;
    if (!options.replayFile.isEmpty() && !replay.load(options.replayFile, &error)) {
        std::fprintf(stderr, "radar-sim: --replay: %s\n", qPrintable(error));
        return 2;
    }

    std::unique_ptr<SimPort> port;
    if (options.port.isEmpty())
        port = std::make_unique<PtyPort>();
    else
        port = std::make_unique<SerialDevicePort>(options.port, options.baud);

    SimRunner runner(options, std::move(port));
    runner.setReplay(replay);
    if (!runner.start(&error)) {
        std::fprintf(stderr, "radar-sim: %s\n", qPrintable(error));
        return 1;
    }
    // Removed when main() returns, however the run ended (SIGINT, SIGTERM,
    // --disconnect-after, the port lost).
    PortLink link;
    if (!options.link.isEmpty() && !link.create(options.link, runner.simPort()->name(), &error)) {
        std::fprintf(stderr, "radar-sim: %s\n", qPrintable(error));
        return 1;
    }
    // SIGTERM and SIGINT end the run cleanly (port closed, exit code 0), so
    // a script that started the simulator can simply stop it.
    std::unique_ptr<QSocketNotifier> terminate;
    if (::pipe(signalPipe) == 0) {
        terminate = std::make_unique<QSocketNotifier>(signalPipe[0], QSocketNotifier::Read);
        QObject::connect(terminate.get(), &QSocketNotifier::activated, &runner, [&runner] {
            char c = 0;
            [[maybe_unused]] const ssize_t n = ::read(signalPipe[0], &c, 1);
            runner.finish(0);
        });
        std::signal(SIGTERM, onTerminate);
        std::signal(SIGINT, onTerminate);
    }
    // The one line a script reads: the port to open.
    std::printf("%s\n", qPrintable(runner.simPort()->name()));
    std::fflush(stdout);
    return app.exec();
}
