// libFuzzer target: the settings values that reach the window. The input is
// up to seven values separated by line feeds: X1, X2, Y1, Y2 (group XYAXIS),
// port, baudrate (group comm) and the language index, each stored as the
// text it is (a missing value leaves its key out of the file). The axis
// values are read again at every show of the window; port, baud rate and
// language only when a window is built, so an input with other values for
// those than the current window had builds a new one. Then the window is shown, the plot painted,
// and the set-XY button's slot takes the range edits back to the plot and the file.

#include "fuzz/fuzzwindow.h"

#include "app/mainwindow.h"
#include "view/xyview.h"

#include <QByteArray>
#include <QList>
#include <QMetaObject>
#include <QSettings>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace
{

const char *const kKeys[] = {"XYAXIS/X1", "XYAXIS/X2",     "XYAXIS/Y1",     "XYAXIS/Y2",
                             "comm/port", "comm/baudrate", "language/index"};
constexpr int kKeyCount = 7;
constexpr int kFirstBuildKey = 4;
// Every window keeps its settings object for the life of the process (as
// the tool does across restarts); past this many windows the input only
// shows the existing one again, so a long run stays within its memory.
constexpr int kMaxWindows = 20000;

std::unique_ptr<MainWindow> *setUp()
{
    fuzzwindow::setUpProcess();
    return new std::unique_ptr<MainWindow>(fuzzwindow::makeWindow());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static std::unique_ptr<MainWindow> *window = setUp();
    static int windowsBuilt = 1;

    const QList<QByteArray> fields =
        QByteArray(reinterpret_cast<const char *>(data), int(size)).split('\n');
    {
        QSettings settings(QStringLiteral("./ORV_conf.ini"), QSettings::IniFormat);
        settings.clear();
        for (int k = 0; k < kKeyCount && k < fields.size(); ++k)
            settings.setValue(QLatin1String(kKeys[k]), QString::fromUtf8(fields.at(k)));
    }

    // Port, baud rate and language as the current window was built with.
    static QList<QByteArray> builtWith;
    const QList<QByteArray> buildValues = fields.mid(kFirstBuildKey, kKeyCount - kFirstBuildKey);
    if (fields.size() > kFirstBuildKey && buildValues != builtWith && windowsBuilt < kMaxWindows) {
        builtWith = buildValues;
        window->reset();
        *window = fuzzwindow::makeWindow();
        ++windowsBuilt;
    } else {
        (*window)->hide();
        (*window)->show();
    }
    XYView *view = fuzzwindow::plotOf(window->get());
    fuzzwindow::paintPlot(view);

    QMetaObject::invokeMethod(window->get(), "on_btn_set_xy_clicked", Qt::DirectConnection);
    fuzzwindow::paintPlot(view);
    fuzzwindow::settleEvents(16);
    return 0;
}
