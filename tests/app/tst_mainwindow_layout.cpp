// The main window as built: widget tree, geometry, fonts, styles, built-in
// and translated texts, what start-up restores from the settings file, and
// that nothing is sent to the module while the window is being built.

#include "mwharness.h"

#include "app/mainwindow.h"
#include "radar/radercommunicate.h"
#include "ui_mainwindow.h"
#include "view/xyaxis.h"
#include "view/xyview.h"

#include <QAbstractButton>
#include <QBoxLayout>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QMetaMethod>
#include <QPushButton>
#include <QScrollArea>
#include <QSerialPortInfo>
#include <QSettings>
#include <QSpinBox>
#include <QTest>

using namespace mw;

namespace
{

const char *const kSong = "宋体";

QString shownText(QWidget *w)
{
    if (auto *label = qobject_cast<QLabel *>(w))
        return label->text();
    if (auto *button = qobject_cast<QAbstractButton *>(w))
        return button->text();
    if (auto *group = qobject_cast<QGroupBox *>(w))
        return group->title();
    return QStringLiteral("<no text>");
}

QStringList itemsOf(QComboBox *combo)
{
    QStringList items;
    for (int i = 0; i < combo->count(); ++i)
        items << combo->itemText(i);
    return items;
}

// Widgets whose built-in text initControls replaces, with the text number.
const QList<QPair<const char *, int>> kTranslated = {
    {"groupBox_comm_setting", 28},
    {"label_comm_name", 9},
    {"label_comm_baudrate", 10},
    {"btn_comm_open", 11},
    {"groupBox_XY", 13},
    {"label_X", 14},
    {"label_Y", 15},
    {"btn_set_xy", 16},
    {"label_target_show", 17},
    {"groupBox_area_setting", 18},
    {"label_area_no", 19},
    {"label_area_status", 20},
    {"label_area_type", 21},
    {"groupBox_area_pos", 22},
    {"label_start_point", 23},
    {"label_end_point", 24},
    {"btn_mouse_capture", 25},
    {"btn_setArea", 16},
    {"btn_unset_area", 26},
    {"label_language", 29},
};

} // namespace

class TestMainWindowLayout : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir root;
    std::unique_ptr<PtyModule> module;
    std::unique_ptr<MainWindow> cnWindow;
    std::unique_ptr<MainWindow> enWindow;

private slots:
    void initTestCase()
    {
        installDebugCapture();
        installLogCapture();
        QVERIFY(root.isValid());
        module.reset(new PtyModule);
        QVERIFY(module->isOpen());
        // The delivered translation files hold every text number.
        for (int n = 1; n <= 39; ++n) {
            QVERIFY2(!expectedText(0, n).isEmpty(), qPrintable(QString::number(n)));
            QVERIFY2(!expectedText(1, n).isEmpty(), qPrintable(QString::number(n)));
        }
        enterRunDir(root, true);
        cnWindow = makeWindow(module.get());
        QVERIFY(cnWindow);
        enterRunDir(root, true, "[language]\nindex=1\n");
        enWindow = makeWindow(module.get());
        QVERIFY(enWindow);
    }

    void cleanupTestCase()
    {
        cnWindow.reset();
        enWindow.reset();
    }

    // ---- the class interface -----------------------------------------------

    void slotsInDeclaredOrder_data()
    {
        QTest::addColumn<int>("methodIndex");
        QTest::addColumn<QByteArray>("signature");
        QTest::addColumn<int>("access");
        const char *names[] = {"Reboot()",
                               "on_btn_mouse_capture_clicked()",
                               "on_startPointChange(QPoint)",
                               "on_endPointChange(QPoint)",
                               "on_SetAreaResp(int,int,bool)",
                               "on_ReadAreaResp(int,int,QRectF)",
                               "on_CancelAllAreaResp(bool)",
                               "on_TargetResp(QList<QPointF>)",
                               "on_TargetAreaResp(char)",
                               "on_TargetShowTypeResp(int)",
                               "on_SetTargetShowTypeResp(bool)",
                               "on_BaudrateResp(bool)",
                               "on_serial_disconnected_resp()",
                               "on_baudrate_error_resp()",
                               "on_btn_setArea_clicked()",
                               "on_btn_set_xy_clicked()",
                               "on_btn_unset_area_clicked()",
                               "on_cbx_area_status_currentIndexChanged(int)",
                               "on_cbx_area_index_currentIndexChanged(int)",
                               "on_cbx_area_type_currentIndexChanged(int)",
                               "on_btn_comm_open_clicked()",
                               "on_cbx_comm_baudrate_currentIndexChanged(QString)",
                               "on_cbx_target_show_currentIndexChanged(QString)",
                               "on_cbx_language_currentIndexChanged(int)"};
        for (int i = 0; i < 24; ++i)
            QTest::addRow("%d %s", i, names[i])
                << i << QByteArray(names[i])
                << int(i == 0 ? QMetaMethod::Public : QMetaMethod::Private);
    }

    void slotsInDeclaredOrder()
    {
        QFETCH(int, methodIndex);
        QFETCH(QByteArray, signature);
        QFETCH(int, access);
        const QMetaObject &mo = MainWindow::staticMetaObject;
        QCOMPARE(mo.methodCount() - mo.methodOffset(), 24);
        const QMetaMethod m = mo.method(mo.methodOffset() + methodIndex);
        QCOMPARE(m.methodSignature(), signature);
        QCOMPARE(int(m.methodType()), int(QMetaMethod::Slot));
        QCOMPARE(int(m.access()), access);
    }

    // ---- widget tree -------------------------------------------------------

    void widgetTree_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("className");
        QTest::addColumn<QString>("parentName");
        QTest::addColumn<QRect>("geometry");
        // Font A (family and size) or B (size only) set on the widget itself;
        // '-' for widgets that set none. Below a style sheet Qt does not hand
        // the family down to children, so only what is set is checked.
        QTest::addColumn<char>("font");
        QTest::addColumn<int>("alignment");

        const int centre = int(Qt::AlignCenter);
        const int left = int(Qt::AlignLeft | Qt::AlignVCenter);
        auto row = [&](const char *name, const char *cls, const char *parent, QRect g, char font,
                       int align) {
            QTest::newRow(name) << QString(name) << QString(cls) << QString(parent) << g << font
                                << align;
        };
        row("centralWidget", "QWidget", "MainWindow", QRect(), '-', 0);
        row("widget", "QWidget", "centralWidget", QRect(), '-', 0);
        row("widget_XY", "XYView", "widget", QRect(), '-', 0);
        row("scrollArea", "QScrollArea", "widget", QRect(), '-', 0);
        row("widget_setting", "QWidget", "scrollAreaWidgetContents", QRect(), '-', 0);
        row("groupBox_comm_setting", "QGroupBox", "widget_setting", QRect(), 'A', 0);
        row("cbx_comm_name", "QComboBox", "groupBox_comm_setting", QRect(140, 30, 69, 22), 'B', 0);
        row("label_comm_name", "QLabel", "groupBox_comm_setting", QRect(10, 32, 131, 20), 'B',
            centre);
        row("cbx_comm_baudrate", "QComboBox", "groupBox_comm_setting", QRect(140, 60, 69, 22), 'B',
            0);
        row("label_comm_baudrate", "QLabel", "groupBox_comm_setting", QRect(10, 62, 131, 20), 'B',
            centre);
        row("btn_comm_open", "QPushButton", "groupBox_comm_setting", QRect(80, 92, 61, 31), '-', 0);
        row("groupBox_XY", "QGroupBox", "widget_setting", QRect(), 'A', 0);
        row("widget_4", "QWidget", "groupBox_XY", QRect(0, 20, 231, 121), '-', 0);
        row("edit_y_start", "QSpinBox", "widget_4", QRect(130, 40, 42, 22), 'B', 0);
        row("edit_x_start", "QSpinBox", "widget_4", QRect(130, 10, 42, 22), 'B', 0);
        row("label_Y", "QLabel", "widget_4", QRect(10, 40, 121, 20), 'B', centre);
        row("label_X", "QLabel", "widget_4", QRect(10, 10, 121, 20), 'B', centre);
        row("btn_set_xy", "QPushButton", "widget_4", QRect(70, 80, 71, 31), '-', 0);
        row("edit_x_end", "QSpinBox", "widget_4", QRect(180, 10, 42, 22), 'B', 0);
        row("edit_y_end", "QSpinBox", "widget_4", QRect(180, 40, 42, 22), 'B', 0);
        row("groupBox_5", "QGroupBox", "widget_setting", QRect(), '-', 0);
        row("label_target_show", "QLabel", "groupBox_5", QRect(0, 10, 101, 31), '-', centre);
        row("cbx_target_show", "QComboBox", "groupBox_5", QRect(100, 10, 131, 31), 'B', 0);
        row("groupBox_area_setting", "QGroupBox", "widget_setting", QRect(), 'A', 0);
        row("widget_5", "QWidget", "groupBox_area_setting", QRect(0, 20, 241, 321), '-', 0);
        row("cbx_area_index", "QComboBox", "widget_5", QRect(130, 10, 101, 22), 'B', 0);
        row("label_area_no", "QLabel", "widget_5", QRect(10, 5, 111, 31), 'B', left);
        row("cbx_area_type", "QComboBox", "widget_5", QRect(110, 90, 121, 22), 'B', 0);
        row("label_area_status", "QLabel", "widget_5", QRect(10, 41, 121, 41), 'B', left);
        row("label_area_type", "QLabel", "widget_5", QRect(10, 81, 101, 41), 'B', left);
        row("cbx_area_status", "QComboBox", "widget_5", QRect(130, 50, 101, 22), 'B', 0);
        row("groupBox_area_pos", "QGroupBox", "widget_5", QRect(10, 130, 221, 141), 'B', 0);
        row("btn_mouse_capture", "QPushButton", "groupBox_area_pos", QRect(20, 100, 111, 31), '-',
            0);
        row("label_start_point", "QLabel", "groupBox_area_pos", QRect(20, 25, 101, 31), 'B',
            centre);
        row("lineEdit_left_top_x", "QLineEdit", "groupBox_area_pos", QRect(130, 29, 31, 21), 'B',
            0);
        row("lineEdit_left_top_y", "QLineEdit", "groupBox_area_pos", QRect(180, 29, 31, 21), 'B',
            0);
        row("label_9", "QLabel", "groupBox_area_pos", QRect(170, 40, 16, 20), '-', left);
        row("lineEdit_right_bottom_x", "QLineEdit", "groupBox_area_pos", QRect(130, 60, 31, 21),
            'B', 0);
        row("lineEdit_right_bottom_y", "QLineEdit", "groupBox_area_pos", QRect(180, 60, 31, 21),
            'B', 0);
        row("label_end_point", "QLabel", "groupBox_area_pos", QRect(20, 55, 101, 31), 'B', centre);
        row("label_11", "QLabel", "groupBox_area_pos", QRect(170, 70, 16, 20), '-', left);
        row("btn_setArea", "QPushButton", "widget_5", QRect(90, 280, 71, 31), '-', 0);
        row("btn_unset_area", "QPushButton", "groupBox_area_setting", QRect(60, 350, 131, 31), '-',
            0);
        row("groupBox_6", "QGroupBox", "widget_setting", QRect(), '-', 0);
        row("label_language", "QLabel", "groupBox_6", QRect(10, 10, 81, 31), 'B', centre);
        row("cbx_language", "QComboBox", "groupBox_6", QRect(110, 10, 101, 31), 'B', 0);
    }

    void widgetTree()
    {
        QFETCH(QString, name);
        QFETCH(QString, className);
        QFETCH(QString, parentName);
        QFETCH(QRect, geometry);
        QFETCH(char, font);
        QFETCH(int, alignment);

        const QList<QWidget *> found = cnWindow->findChildren<QWidget *>(name);
        QCOMPARE(found.size(), 1);
        QWidget *w = found.first();
        QCOMPARE(QString(w->metaObject()->className()), className);
        QVERIFY(w->parentWidget());
        QCOMPARE(w->parentWidget()->objectName(), parentName);
        if (!geometry.isNull())
            QCOMPARE(w->geometry(), geometry);
        if (font == 'A') {
            QCOMPARE(w->font().family(), QString::fromUtf8(kSong));
            QCOMPARE(w->font().pointSize(), 12);
        } else if (font == 'B') {
            QCOMPARE(w->font().pointSize(), 10);
        }
        if (alignment) {
            auto *label = qobject_cast<QLabel *>(w);
            QVERIFY(label);
            QCOMPARE(int(label->alignment()), alignment);
        }
    }

    void groupBoxes_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("position");
        QTest::addColumn<int>("minimumHeight");
        QTest::addColumn<bool>("ownFont");
        QTest::newRow("comm") << "groupBox_comm_setting" << 0 << 140 << true;
        QTest::newRow("XY") << "groupBox_XY" << 1 << 150 << true;
        QTest::newRow("5") << "groupBox_5" << 2 << 50 << false;
        QTest::newRow("area") << "groupBox_area_setting" << 3 << 400 << true;
        QTest::newRow("6") << "groupBox_6" << 4 << 50 << false;
    }

    void groupBoxes()
    {
        QFETCH(QString, name);
        QFETCH(int, position);
        QFETCH(int, minimumHeight);
        QFETCH(bool, ownFont);
        auto *box = cnWindow->findChild<QGroupBox *>(name);
        QVERIFY(box);
        auto *stack = cnWindow->findChild<QVBoxLayout *>("verticalLayout_3");
        QVERIFY(stack);
        QCOMPARE(stack->count(), 5);
        QCOMPARE(stack->itemAt(position)->widget(), static_cast<QWidget *>(box));
        QCOMPARE(box->minimumHeight(), minimumHeight);
        QCOMPARE(box->sizePolicy().horizontalPolicy(), QSizePolicy::Preferred);
        QCOMPARE(box->sizePolicy().verticalPolicy(), QSizePolicy::Fixed);
        // Font A is set on the box itself (family and size resolved).
        QCOMPARE(bool(box->font().resolve() & QFont::FamilyResolved), ownFont);
        if (ownFont) {
            QCOMPARE(box->font().family(), QString::fromUtf8(kSong));
            QCOMPARE(box->font().pointSize(), 12);
        }
    }

    void styleSheets_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("styleSheet");
        QTest::newRow("MainWindow") << "MainWindow"
                                    << "#MainWindow\n{\n   background:rgb(255, 255, 255)\n}";
        QTest::newRow("centralWidget") << "centralWidget"
                                       << "#centralWidget\n{\n   background:rgb(255, 255, 255)\n}";
        QTest::newRow("scrollArea") << "scrollArea"
                                    << "#scrollArea\n{\n   background:rgb(255, 255, 255);\n}";
        QTest::newRow("scrollAreaWidgetContents")
            << "scrollAreaWidgetContents"
            << "#scrollAreaWidgetContents\n{\n   background:rgb(255, 255, 255)\n}";
        QTest::newRow("widget_setting") << "widget_setting"
                                        << "";
        QTest::newRow("widget_4") << "widget_4"
                                  << "#widget_4\n{\nborder:none;\n}\n";
    }

    void styleSheets()
    {
        QFETCH(QString, name);
        QFETCH(QString, styleSheet);
        QWidget *w = name == "MainWindow" ? cnWindow.get() : cnWindow->findChild<QWidget *>(name);
        QVERIFY(w);
        QCOMPARE(w->styleSheet(), styleSheet);
    }

    void sizes_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QSize>("minimumSize");
        QTest::addColumn<int>("hPolicy");
        QTest::addColumn<int>("vPolicy");
        const int pref = QSizePolicy::Preferred;
        QTest::newRow("widget") << "widget" << QSize(800, 600) << pref << pref;
        QTest::newRow("scrollArea") << "scrollArea" << QSize(260, 0) << int(QSizePolicy::Fixed)
                                    << int(QSizePolicy::Expanding);
        QTest::newRow("widget_setting") << "widget_setting" << QSize(240, 0)
                                        << int(QSizePolicy::Fixed) << int(QSizePolicy::Expanding);
        QTest::newRow("label_comm_baudrate") << "label_comm_baudrate" << QSize(0, 0)
                                             << int(QSizePolicy::Fixed) << int(QSizePolicy::Fixed);
    }

    void sizes()
    {
        QFETCH(QString, name);
        QFETCH(QSize, minimumSize);
        QFETCH(int, hPolicy);
        QFETCH(int, vPolicy);
        QWidget *w = cnWindow->findChild<QWidget *>(name);
        QVERIFY(w);
        QCOMPARE(w->minimumSize(), minimumSize);
        QCOMPARE(int(w->sizePolicy().horizontalPolicy()), hPolicy);
        QCOMPARE(int(w->sizePolicy().verticalPolicy()), vPolicy);
    }

    void layouts_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("owner");
        QTest::addColumn<int>("spacing");
        QTest::addColumn<QString>("margins");
        QTest::newRow("verticalLayout") << "verticalLayout"
                                        << "centralWidget" << 6 << QString("11,11,11,11");
        QTest::newRow("horizontalLayout") << "horizontalLayout"
                                          << "widget" << 6 << QString("9,9,9,9");
        QTest::newRow("verticalLayout_2")
            << "verticalLayout_2"
            << "scrollAreaWidgetContents" << 6 << QString("11,11,11,11");
        QTest::newRow("verticalLayout_3") << "verticalLayout_3"
                                          << "widget_setting" << 2 << QString("0,0,0,9");
    }

    void layouts()
    {
        QFETCH(QString, name);
        QFETCH(QString, owner);
        QFETCH(int, spacing);
        QFETCH(QString, margins);
        auto *ownerWidget = cnWindow->findChild<QWidget *>(owner);
        QVERIFY(ownerWidget);
        QLayout *layout = ownerWidget->layout();
        QVERIFY(layout);
        QCOMPARE(layout->objectName(), name);
        QCOMPARE(layout->spacing(), spacing);
        const QMargins m = layout->contentsMargins();
        QCOMPARE(QString("%1,%2,%3,%4").arg(m.left()).arg(m.top()).arg(m.right()).arg(m.bottom()),
                 margins);
    }

    void plotAndColumn()
    {
        auto *row = cnWindow->findChild<QHBoxLayout *>("horizontalLayout");
        QVERIFY(row);
        QCOMPARE(row->count(), 2);
        QCOMPARE(row->itemAt(0)->widget(), cnWindow->findChild<QWidget *>("widget_XY"));
        QCOMPARE(row->itemAt(1)->widget(), cnWindow->findChild<QWidget *>("scrollArea"));
        QCOMPARE(row->stretch(0), 8);
        QCOMPARE(row->stretch(1), 0);
        auto *scroll = cnWindow->findChild<QScrollArea *>("scrollArea");
        QVERIFY(scroll->widgetResizable());
        QCOMPARE(scroll->verticalScrollBarPolicy(), Qt::ScrollBarAsNeeded);
        QCOMPARE(scroll->widget()->objectName(), QString("scrollAreaWidgetContents"));
        auto *column = cnWindow->findChild<QVBoxLayout *>("verticalLayout_2");
        QCOMPARE(column->count(), 1);
        QCOMPARE(column->itemAt(0)->widget()->objectName(), QString("widget_setting"));
        QCOMPARE(cnWindow->centralWidget()->objectName(), QString("centralWidget"));
        auto *outer = cnWindow->findChild<QVBoxLayout *>("verticalLayout");
        QCOMPARE(outer->itemAt(0)->widget()->objectName(), QString("widget"));
    }

    void windowBeforeShow()
    {
        enterRunDir(root, true);
        std::unique_ptr<MainWindow> w = makeWindow(module.get(), false);
        QCOMPARE(w->objectName(), QString("MainWindow"));
        QCOMPARE(w->size(), QSize(1267, 863));
        QCOMPARE(w->windowTitle(), QString("ORV_KM7318_TOOL_V1.02"));
        QCOMPARE(cnWindow->windowTitle(), QString("ORV_KM7318_TOOL_V1.02"));
        QCOMPARE(enWindow->windowTitle(), QString("ORV_KM7318_TOOL_V1.02"));
        // The contents of the settings column as placed before any layout pass.
        Ui::MainWindow ui;
        QMainWindow plain;
        ui.setupUi(&plain);
        QCOMPARE(plain.objectName(), QString("MainWindow"));
        QCOMPARE(ui.scrollAreaWidgetContents->objectName(), QString("scrollAreaWidgetContents"));
    }

    void spinBoxes_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("minimum");
        QTest::addColumn<int>("maximum");
        QTest::addColumn<int>("value");
        QTest::addColumn<bool>("enabled");
        QTest::newRow("edit_x_start") << "edit_x_start" << -8 << 0 << -5 << true;
        QTest::newRow("edit_x_end") << "edit_x_end" << 0 << 8 << 5 << true;
        QTest::newRow("edit_y_start") << "edit_y_start" << 0 << 8 << 0 << false;
        QTest::newRow("edit_y_end") << "edit_y_end" << 0 << 12 << 8 << true;
    }

    void spinBoxes()
    {
        QFETCH(QString, name);
        QFETCH(int, minimum);
        QFETCH(int, maximum);
        QFETCH(int, value);
        QFETCH(bool, enabled);
        // Built-in values (before the window restores the settings) ...
        Ui::MainWindow ui;
        QMainWindow plain;
        ui.setupUi(&plain);
        auto *built = plain.findChild<QSpinBox *>(name);
        QVERIFY(built);
        QCOMPARE(built->minimum(), minimum);
        QCOMPARE(built->maximum(), maximum);
        QCOMPARE(built->value(), value);
        QCOMPARE(built->isEnabled(), enabled);
        QCOMPARE(built->displayIntegerBase(), 10);
        // ... and in the shown window started without a settings file.
        auto *shown = cnWindow->findChild<QSpinBox *>(name);
        QVERIFY(shown);
        QCOMPARE(shown->minimum(), minimum);
        QCOMPARE(shown->maximum(), maximum);
        QCOMPARE(shown->value(), value);
        QCOMPARE(shown->isEnabled(), enabled);
    }

    // ---- texts -------------------------------------------------------------

    void builtInTexts_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("text");
        auto row = [](const char *name, const char *text) {
            QTest::newRow(name) << QString(name) << QString::fromUtf8(text);
        };
        row("groupBox_comm_setting", "串口设置");
        row("label_comm_name", "串口号：");
        row("label_comm_baudrate", "波特率：");
        row("btn_comm_open", "打开");
        row("groupBox_XY", "坐标设置");
        row("label_X", "X轴范围（米）：");
        row("label_Y", "Y轴范围（米）：");
        row("btn_set_xy", "设置");
        row("groupBox_5", "");
        row("label_target_show", "目标显示：");
        row("groupBox_area_setting", "区域设置");
        row("label_area_no", "区域编号：");
        row("label_area_status", "区域状态：");
        row("label_area_type", "区域类型：");
        row("groupBox_area_pos", "区域位置");
        row("label_start_point", "起点(X,Y)：");
        row("label_end_point", "终点(X,Y)：");
        row("label_9", ",");
        row("label_11", ",");
        row("btn_mouse_capture", "鼠标框选");
        row("btn_setArea", "设置");
        row("btn_unset_area", "撤销所有区域");
        row("groupBox_6", "");
        row("label_language", "语言：");
    }

    void builtInTexts()
    {
        QFETCH(QString, name);
        QFETCH(QString, text);
        Ui::MainWindow ui;
        QMainWindow plain;
        ui.setupUi(&plain);
        QCOMPARE(plain.windowTitle(), QString("ORV_KM7318_TOOL_V1.02"));
        QCOMPARE(ui.cbx_comm_baudrate->currentText(), QString());
        QWidget *w = plain.findChild<QWidget *>(name);
        QVERIFY(w);
        QCOMPARE(shownText(w), text);
    }

    void translatedTexts_data()
    {
        QTest::addColumn<int>("language");
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("number");
        for (int language : {0, 1})
            for (const auto &entry : kTranslated)
                QTest::addRow("%s %s", language ? "en" : "cn", entry.first)
                    << language << QString(entry.first) << entry.second;
    }

    void translatedTexts()
    {
        QFETCH(int, language);
        QFETCH(QString, name);
        QFETCH(int, number);
        MainWindow *window = language ? enWindow.get() : cnWindow.get();
        QWidget *w = window->findChild<QWidget *>(name);
        QVERIFY(w);
        QCOMPARE(shownText(w), expectedText(language, number));
        // Untranslated texts stay as built.
        QCOMPARE(shownText(window->findChild<QWidget *>("label_9")), QString(","));
        QCOMPARE(shownText(window->findChild<QWidget *>("groupBox_5")), QString());
    }

    void comboItems_data()
    {
        QTest::addColumn<int>("language");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QStringList>("items");
        for (int l : {0, 1}) {
            const char *tag = l ? "en" : "cn";
            QTest::addRow("%s area index", tag)
                << l << "cbx_area_index" << QStringList{"1", "2", "3"};
            QTest::addRow("%s area type", tag)
                << l << "cbx_area_type" << QStringList{expectedText(l, 3), expectedText(l, 4)};
            QTest::addRow("%s area status", tag)
                << l << "cbx_area_status" << QStringList{expectedText(l, 5), expectedText(l, 6)};
            QTest::addRow("%s baud rate", tag)
                << l << "cbx_comm_baudrate"
                << QStringList{"2400",  "4800",   "9600",   "19200",  "38400",  "43000", "56000",
                               "57600", "115200", "230400", "256000", "460800", "921600"};
            QTest::addRow("%s target show", tag)
                << l << "cbx_target_show" << QStringList{expectedText(l, 7), expectedText(l, 8)};
            QTest::addRow("%s language", tag)
                << l << "cbx_language" << QStringList{expectedText(l, 1), expectedText(l, 2)};
        }
    }

    void comboItems()
    {
        QFETCH(int, language);
        QFETCH(QString, name);
        QFETCH(QStringList, items);
        MainWindow *window = language ? enWindow.get() : cnWindow.get();
        auto *combo = window->findChild<QComboBox *>(name);
        QVERIFY(combo);
        QCOMPARE(itemsOf(combo), items);
    }

    void portListFromTheLink()
    {
        // The link's list: the system's ports that could be opened, in the
        // system's order, then the extra port. (Another program holding a
        // system port at that moment leaves it out, so those are checked
        // for order only.)
        const QStringList items = itemsOf(cnWindow->findChild<QComboBox *>("cbx_comm_name"));
        QVERIFY(!items.isEmpty());
        QCOMPARE(items.last(), module->portName());
        QStringList system;
        for (const QSerialPortInfo &info : QSerialPortInfo::availablePorts())
            system << info.portName();
        int last = -1;
        for (int i = 0; i + 1 < items.size(); ++i) {
            const int at = system.indexOf(items[i]);
            QVERIFY2(at > last, qPrintable(items[i]));
            last = at;
        }
        QCOMPARE(items.count(module->portName()), 1);
    }

    // ---- start-up state ----------------------------------------------------

    void startsWithoutSettingsFile()
    {
        enterRunDir(root, true);
        QVERIFY(!QFile::exists("ORV_conf.ini"));
        std::unique_ptr<MainWindow> w = makeWindow(nullptr);
        QVERIFY(w);
        auto *ports = child<QComboBox>(w.get(), "cbx_comm_name");
        if (ports->count() > 0)
            QCOMPARE(ports->currentIndex(), 0);
        QCOMPARE(child<QComboBox>(w.get(), "cbx_comm_baudrate")->currentText(), QString("9600"));
        QCOMPARE(child<QSpinBox>(w.get(), "edit_x_start")->value(), -5);
        QCOMPARE(child<QSpinBox>(w.get(), "edit_x_end")->value(), 5);
        QCOMPARE(child<QSpinBox>(w.get(), "edit_y_start")->value(), 0);
        QCOMPARE(child<QSpinBox>(w.get(), "edit_y_end")->value(), 8);
        auto *view = child<XYView>(w.get(), "widget_XY");
        QCOMPARE(view->horizontalAxis()->minimum(), -5.0);
        QCOMPARE(view->horizontalAxis()->maximum(), 5.0);
        QCOMPARE(view->verticalAxis()->minimum(), 0.0);
        QCOMPARE(view->verticalAxis()->maximum(), 8.0);
        QCOMPARE(child<QComboBox>(w.get(), "cbx_language")->currentIndex(), 0);
        QCOMPARE(child<QLabel>(w.get(), "label_comm_name")->text(), expectedText(0, 9));
        QCOMPARE(child<QPushButton>(w.get(), "btn_comm_open")->text(), expectedText(0, 11));
        // The link is closed: the six link-dependent controls are disabled.
        for (const char *name : {"btn_setArea", "btn_unset_area", "cbx_target_show",
                                 "cbx_area_index", "cbx_area_status", "cbx_area_type"})
            QVERIFY2(!child<QWidget>(w.get(), name)->isEnabled(), name);
        QVERIFY(child<QWidget>(w.get(), "btn_comm_open")->isEnabled());
        QVERIFY(child<QWidget>(w.get(), "groupBox_area_setting")->isEnabled());
        // Filling the combo boxes ran their slots: area 1 is selected, its
        // stored record (all zero) was copied into the corner edits.
        QCOMPARE(child<QComboBox>(w.get(), "cbx_area_index")->currentIndex(), 0);
        QCOMPARE(child<QComboBox>(w.get(), "cbx_area_status")->currentIndex(), 0);
        QCOMPARE(child<QComboBox>(w.get(), "cbx_area_type")->currentIndex(), 0);
        QCOMPARE(child<QComboBox>(w.get(), "cbx_target_show")->currentIndex(), 0);
        for (const char *name : {"lineEdit_left_top_x", "lineEdit_left_top_y",
                                 "lineEdit_right_bottom_x", "lineEdit_right_bottom_y"})
            QCOMPARE(child<QLineEdit>(w.get(), name)->text(), QString("0.0"));
        QVERIFY(!RaderCommunicate::GetInstance()->bOpen);
    }

    void storedCommSettings_data()
    {
        QTest::addColumn<QByteArray>("settings");
        QTest::addColumn<bool>("expectSecondModule");
        QTest::addColumn<QString>("baud");
        QTest::newRow("stored port and rate")
            << QByteArray("[comm]\nport=@SECOND@\nbaudrate=115200\n") << true << "115200";
        QTest::newRow("port not in the list")
            << QByteArray("[comm]\nport=ttyNOSUCHPORT\nbaudrate=19200\n") << false << "19200";
        QTest::newRow("rate not in the list")
            << QByteArray("[comm]\nport=@SECOND@\nbaudrate=2401\n") << true << "2400";
        QTest::newRow("unusual rate from the list")
            << QByteArray("[comm]\nbaudrate=43000\n") << false << "43000";
        QTest::newRow("empty rate") << QByteArray("[comm]\nbaudrate=\n") << false << "2400";
    }

    void storedCommSettings()
    {
        QFETCH(QByteArray, settings);
        QFETCH(bool, expectSecondModule);
        QFETCH(QString, baud);
        PtyModule first;
        PtyModule second;
        QVERIFY(first.isOpen() && second.isOpen());
        settings.replace("@SECOND@", second.portName().toLocal8Bit());
        enterRunDir(root, true, settings);
        qputenv("ORV_EXTRA_PORTS",
                (first.slavePath() + QDir::listSeparator() + second.slavePath()).toLocal8Bit());
        MainWindow w;
        auto *ports = child<QComboBox>(&w, "cbx_comm_name");
        QVERIFY(ports->findText(first.portName()) >= 0);
        QVERIFY(ports->findText(second.portName()) > 0);
        if (expectSecondModule)
            QCOMPARE(ports->currentText(), second.portName());
        else
            QCOMPARE(ports->currentIndex(), 0);
        QCOMPARE(child<QComboBox>(&w, "cbx_comm_baudrate")->currentText(), baud);
    }

    void noPortsIgnoresStoredPort()
    {
        qunsetenv("ORV_EXTRA_PORTS");
        if (!RaderCommunicate::GetInstance()->GetAvailablePorts().isEmpty())
            QSKIP("this machine has serial ports that can be opened");
        enterRunDir(root, true, "[comm]\nport=pts/0\nbaudrate=9600\n");
        MainWindow w;
        auto *ports = child<QComboBox>(&w, "cbx_comm_name");
        QCOMPARE(ports->count(), 0);
        QCOMPARE(ports->currentText(), QString());
    }

    void languageIndex_data()
    {
        QTest::addColumn<QByteArray>("settings");
        QTest::addColumn<int>("language");
        QTest::addColumn<int>("comboIndex");
        QTest::newRow("no file") << QByteArray() << 0 << 0;
        QTest::newRow("0") << QByteArray("[language]\nindex=0\n") << 0 << 0;
        QTest::newRow("1") << QByteArray("[language]\nindex=1\n") << 1 << 1;
        QTest::newRow("2") << QByteArray("[language]\nindex=2\n") << 0 << -1;
        QTest::newRow("-1") << QByteArray("[language]\nindex=-1\n") << 0 << -1;
        QTest::newRow("not a number") << QByteArray("[language]\nindex=abc\n") << 0 << 0;
    }

    void languageIndex()
    {
        QFETCH(QByteArray, settings);
        QFETCH(int, language);
        QFETCH(int, comboIndex);
        enterRunDir(root, true, settings);
        MainWindow w;
        QCOMPARE(child<QComboBox>(&w, "cbx_language")->currentIndex(), comboIndex);
        QCOMPARE(child<QLabel>(&w, "label_comm_name")->text(), expectedText(language, 9));
        QCOMPARE(child<QComboBox>(&w, "cbx_area_type")->itemText(1), expectedText(language, 4));
        QVERIFY(expectedText(0, 9) != expectedText(1, 9));
    }

    void withoutTranslationFiles()
    {
        enterRunDir(root, false);
        MainWindow w;
        for (const auto &entry : kTranslated)
            QCOMPARE(shownText(w.findChild<QWidget *>(entry.first)), QString());
        for (const char *name :
             {"cbx_area_type", "cbx_area_status", "cbx_target_show", "cbx_language"}) {
            auto *combo = child<QComboBox>(&w, name);
            QCOMPARE(itemsOf(combo), QStringList({QString(), QString()}));
        }
        QCOMPARE(itemsOf(child<QComboBox>(&w, "cbx_area_index")), QStringList({"1", "2", "3"}));
        QCOMPARE(child<QComboBox>(&w, "cbx_comm_baudrate")->count(), 13);
        QCOMPARE(w.windowTitle(), QString("ORV_KM7318_TOOL_V1.02"));
        QCOMPARE(shownText(w.findChild<QWidget *>("label_11")), QString(","));
    }

    void storedAxisWithFraction()
    {
        enterRunDir(root, true, "[XYAXIS]\nX1=-2.5\nX2=6\nY1=0\nY2=10\n");
        std::unique_ptr<MainWindow> w = makeWindow(nullptr);
        QVERIFY(w);
        QCOMPARE(child<QSpinBox>(w.get(), "edit_x_start")->value(), 0);
        QCOMPARE(child<QSpinBox>(w.get(), "edit_x_end")->value(), 6);
        QCOMPARE(child<QSpinBox>(w.get(), "edit_y_end")->value(), 10);
        auto *view = child<XYView>(w.get(), "widget_XY");
        QCOMPARE(view->horizontalAxis()->minimum(), -2.5);
        QCOMPARE(view->horizontalAxis()->maximum(), 6.0);
        QCOMPARE(view->verticalAxis()->minimum(), 0.0);
        QCOMPARE(view->verticalAxis()->maximum(), 10.0);
    }

    void axesReadAgainAtEveryShow()
    {
        enterRunDir(root, true);
        std::unique_ptr<MainWindow> w = makeWindow(nullptr);
        QVERIFY(w);
        auto *view = child<XYView>(w.get(), "widget_XY");
        QCOMPARE(view->horizontalAxis()->maximum(), 5.0);
        w->hide();
        {
            QSettings edit("./ORV_conf.ini", QSettings::IniFormat);
            edit.setValue("XYAXIS/X2", "7");
            edit.setValue("XYAXIS/Y2", "11");
        }
        // Hidden: not read.
        QCOMPARE(child<QSpinBox>(w.get(), "edit_x_end")->value(), 5);
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w.get()));
        QCOMPARE(child<QSpinBox>(w.get(), "edit_x_end")->value(), 7);
        QCOMPARE(child<QSpinBox>(w.get(), "edit_y_end")->value(), 11);
        QCOMPARE(view->horizontalAxis()->maximum(), 7.0);
        QCOMPARE(view->verticalAxis()->maximum(), 11.0);
    }

    void constructionWithLinkClosedSendsNothing()
    {
        PtyModule listener;
        QVERIFY(listener.isOpen());
        enterRunDir(root, true);
        clearDebugMessages();
        std::unique_ptr<MainWindow> w = makeWindow(&listener);
        QVERIFY(w);
        QCOMPARE(child<QComboBox>(w.get(), "cbx_comm_name")->currentText(), listener.portName());
        QCOMPARE(listener.collect(300), QByteArray());
        QCOMPARE(countDebug("SendData"), 0);
        // Filling the language combo did not ask anything.
        QCOMPARE(countDebug("reboot"), 0);
    }
};

QTEST_MAIN(TestMainWindowLayout)
#include "tst_mainwindow_layout.moc"
