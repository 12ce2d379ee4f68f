// The real-window test's image and window helpers for shell tests:
//   orv-e2e-probe open-button SHOT.png X Y W H   prints "x y", the open button's centre
//   orv-e2e-probe button-ink SHOT.png X Y W H    prints the number of dark pixels of the
//                                                open button's caption (0: no text)
//   orv-e2e-probe discs SHOT.png X Y W H         prints the number of target discs
//   orv-e2e-probe close DISPLAY WINDOW-ID        WM_DELETE_WINDOW to the window
// X Y W H: the window's rectangle on the screenshot. Exit 0 done, 1 failed, 2 usage.

#include "tests/e2e/e2esession.h"

#include <QCoreApplication>
#include <QImage>

#include <cstdio>

namespace
{

int usage()
{
    std::fputs("usage: orv-e2e-probe open-button|button-ink|discs SHOT.png X Y W H\n"
               "       orv-e2e-probe close DISPLAY WINDOW-ID\n",
               stderr);
    return 2;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments().mid(1);
    if (args.size() == 3 && args[0] == "close")
        return e2e::sendWindowDelete(args[1], args[2]) ? 0 : 1;
    if (args.size() != 6)
        return usage();
    QImage shot;
    if (!shot.load(args[1])) {
        std::fprintf(stderr, "orv-e2e-probe: cannot read %s\n", qPrintable(args[1]));
        return 1;
    }
    const QRect window = QRect(args[2].toInt(), args[3].toInt(), args[4].toInt(), args[5].toInt())
                             .intersected(shot.rect());
    if (args[0] == "discs") {
        std::printf("%d\n", int(e2e::findDiscs(shot, window).size()));
        return 0;
    }
    const QPoint centre = e2e::openButtonCentre(shot, window);
    if (centre.isNull()) {
        std::fputs("orv-e2e-probe: the settings column was not found\n", stderr);
        return 1;
    }
    if (args[0] == "open-button") {
        std::printf("%d %d\n", centre.x(), centre.y());
        return 0;
    }
    if (args[0] == "button-ink") {
        // Inside the button, away from its frame: the caption's pixels.
        int ink = 0;
        for (int y = centre.y() - 10; y <= centre.y() + 10; ++y)
            for (int x = centre.x() - 26; x <= centre.x() + 26; ++x) {
                const QRgb c = shot.pixel(x, y);
                ink += qRed(c) < 128 && qGreen(c) < 128 && qBlue(c) < 128 ? 1 : 0;
            }
        std::printf("%d\n", ink);
        return 0;
    }
    return usage();
}
