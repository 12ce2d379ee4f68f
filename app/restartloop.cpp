#include "app/restartloop.h"

#include "app/mainwindow.h"

#include <QApplication>

int RESTART_CODE = -10;

int execApplication(QApplication &app)
{
    Q_UNUSED(app);
    return QApplication::exec();
}

int runRestartLoop(int &argc, char **argv, const std::function<int(QApplication &)> &exec)
{
    for (;;) {
        int result = 0;
        {
            QApplication app(argc, argv);
            // Declared after the application, so it is destroyed before it.
            MainWindow window;
            window.show();
            result = exec(app);
        }
        if (result != RESTART_CODE)
            return 0;
    }
}
