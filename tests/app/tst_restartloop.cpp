// The entry point's loop: the application and the window are built again
// while the event loop ends with the restart code, and the language switch
// goes through it. The event loop is replaced by a function of the test.

#include "mwharness.h"

#include "app/mainwindow.h"
#include "app/restartloop.h"
#include "radar/radercommunicate.h"

#include <QApplication>
#include <QComboBox>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QTest>

using namespace mw;

namespace
{

QList<MainWindow *> mainWindows()
{
    QList<MainWindow *> found;
    for (QWidget *top : QApplication::topLevelWidgets())
        if (auto *w = qobject_cast<MainWindow *>(top))
            found << w;
    return found;
}

struct Args {
    char name[9] = "orv-tool";
    char *argv[2] = {name, nullptr};
    int argc = 1;
};

} // namespace

class TestRestartLoop : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir root;

private slots:
    void initTestCase()
    {
        installDebugCapture();
        QVERIFY(root.isValid());
        QCOMPARE(RESTART_CODE, -10);
    }

    void loop_data()
    {
        QTest::addColumn<QList<int>>("codes");
        QTest::addColumn<int>("builds");
        QTest::newRow("restart, then quit") << QList<int>{-10, 0} << 2;
        QTest::newRow("quit") << QList<int>{0} << 1;
        QTest::newRow("10 is not the restart code") << QList<int>{10} << 1;
        QTest::newRow("other code") << QList<int>{1} << 1;
        QTest::newRow("-9") << QList<int>{-9} << 1;
        QTest::newRow("two restarts, then 3") << QList<int>{-10, -10, 3} << 3;
    }

    void loop()
    {
        QFETCH(QList<int>, codes);
        QFETCH(int, builds);
        enterRunDir(root, true);
        qunsetenv("ORV_EXTRA_PORTS");
        QVERIFY(!QCoreApplication::instance());

        Args args;
        int calls = 0;
        QStringList problems;
        QPointer<MainWindow> previous;
        const int result = runRestartLoop(args.argc, args.argv, [&](QApplication &app) {
            if (&app != qApp)
                problems << "exec got another application";
            if (previous)
                problems << "the previous window is still alive";
            const QList<MainWindow *> windows = mainWindows();
            if (windows.size() != 1)
                problems << QString("%1 main windows").arg(windows.size());
            else if (!windows.first()->isVisible())
                problems << "the window is not shown";
            else if (!windows.first()->findChild<QPushButton *>("btn_comm_open"))
                problems << "the window has no widgets";
            if (!windows.isEmpty())
                previous = windows.first();
            return codes.value(calls++, 0);
        });
        QCOMPARE(result, 0);
        QCOMPARE(calls, builds);
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join("; ")));
        // Window and application are gone.
        QVERIFY(previous.isNull());
        QVERIFY(!QCoreApplication::instance());
    }

    void languageChangeRestartsOnce()
    {
        PtyModule module;
        QVERIFY(module.isOpen());
        enterRunDir(root, true);
        qputenv("ORV_EXTRA_PORTS", module.slavePath().toLocal8Bit());
        clearDebugMessages();

        Args args;
        int calls = 0;
        int firstCode = 0;
        QStringList problems;
        const int result = runRestartLoop(args.argc, args.argv, [&](QApplication &) {
            ++calls;
            const QList<MainWindow *> windows = mainWindows();
            if (windows.size() != 1) {
                problems << "no single window";
                return 0;
            }
            MainWindow *window = windows.first();
            if (!QTest::qWaitForWindowExposed(window))
                problems << "window not exposed";
            if (calls == 1) {
                BoxAnswerer boxes;
                boxes.answerNext(QMessageBox::Yes);
                if (!openLink(window, module, "115200"))
                    problems << "the link did not open";
                QTimer::singleShot(
                    0, [window] { child<QComboBox>(window, "cbx_language")->setCurrentIndex(1); });
                QTimer guard;
                guard.setSingleShot(true);
                QObject::connect(&guard, &QTimer::timeout, [] { QCoreApplication::exit(1); });
                guard.start(5000);
                firstCode = QApplication::exec();
                if (boxes.seen.size() != 1 || boxes.seen.first().text != expectedText(0, 32))
                    problems << "the language question was not asked once";
                return firstCode;
            }
            // The rebuilt window: English, the stored port and rate, link closed.
            if (RaderCommunicate::GetInstance()->bOpen)
                problems << "the link is still open";
            if (child<QLabel>(window, "label_comm_name")->text() != expectedText(1, 9))
                problems << "not in English";
            if (child<QComboBox>(window, "cbx_language")->currentIndex() != 1)
                problems << "language combo not at English";
            // The port is listed (so it was released) and selected.
            if (child<QComboBox>(window, "cbx_comm_name")->currentText() != module.portName())
                problems << "stored port not selected";
            if (child<QComboBox>(window, "cbx_comm_baudrate")->currentText() != "115200")
                problems << "stored baud rate not selected";
            if (child<QPushButton>(window, "btn_comm_open")->text() != expectedText(1, 11))
                problems << "open button does not say open";
            for (const char *name : {"btn_setArea", "btn_unset_area", "cbx_target_show",
                                     "cbx_area_index", "cbx_area_status", "cbx_area_type"})
                if (child<QWidget>(window, name)->isEnabled())
                    problems << QString("%1 enabled").arg(name);
            if (!openLink(window, module, "115200"))
                problems << "the link does not open again";
            return 0;
        });
        QCOMPARE(result, 0);
        QCOMPARE(firstCode, -10);
        QCOMPARE(calls, 2);
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join("; ")));
        QCOMPARE(countDebug("reboot"), 1);
        QVERIFY(!RaderCommunicate::GetInstance()->bOpen);
        const QByteArray file = settingsFileText();
        QVERIFY(file.contains("[language]"));
        QVERIFY(file.contains("index=1"));
        QVERIFY(file.contains("baudrate=115200"));
    }
};

QTEST_APPLESS_MAIN(TestRestartLoop)
#include "tst_restartloop.moc"
