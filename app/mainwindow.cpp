#include "app/mainwindow.h"

#include "app/restartloop.h"
#include "log/logger.h"
#include "radar/radercommunicate.h"
#include "text/translationtable.h"
#include "ui_mainwindow.h"
#include "view/capturescreen.h"
#include "view/xyview.h"

#include <QAction>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QDebug>
#include <QEvent>
#include <QLineEdit>
#include <QMessageBox>
#include <QMouseEvent>
#include <QSettings>
#include <QStringList>

bool showTypeQueried = false;

namespace
{

// Language-dependent text by number.
QString uiText(int number)
{
    return translationTable().text(number);
}

RaderCommunicate *theLink()
{
    return RaderCommunicate::GetInstance();
}

// cbx_area_status position <-> area status: position 0 is "set" (1),
// position 1 "not set" (2).
int statusFromPosition(int position)
{
    if (position == 0)
        return 1;
    if (position == 1)
        return 2;
    return 0;
}

int positionFromStatus(int status)
{
    return status == 1 ? 0 : 1;
}

QString oneDecimal(double value)
{
    return QString::number(value, 'f', 1);
}

// Writes the plane point under widget pixel p of the plot into two edits.
void showPlanePoint(const XYView *view, QPoint p, QLineEdit *xEdit, QLineEdit *yEdit)
{
    double x = 0;
    double y = 0;
    view->pixelToValue(p, &x, &y);
    xEdit->setText(oneDecimal(x));
    yEdit->setText(oneDecimal(y));
}

} // namespace

MainWindow::MainWindow(QWidget *parent) : QMainWindow(parent)
{
    ui = new Ui::MainWindow;
    ui->setupUi(this);

    m_capture = new CaptureScreen();

    m_settings = new QSettings("./ORV_conf.ini", QSettings::IniFormat);

    const int languageIndex = m_settings->value("language/index").toInt();
    translationTable().load(languageIndex);

    initControls();

    // The link registers QList<QPointF> for the string-based connections.
    RaderCommunicate *radar = theLink();
    // The signatures are kept exactly as written (Qt normalises them).
    // clang-format off
    connect(m_capture, SIGNAL(startPointChange(QPoint)), this, SLOT(on_startPointChange(QPoint)));
    connect(m_capture, SIGNAL(endPointChange(QPoint)), this, SLOT(on_endPointChange(QPoint)));
    connect(radar, SIGNAL(signal_SetAreaResp(int, int , bool )), this,
            SLOT(on_SetAreaResp(int,int,bool)));
    connect(radar, SIGNAL(signal_ReadAreaResp(int, int, QRectF)), this,
            SLOT(on_ReadAreaResp(int, int, QRectF)));
    connect(radar, SIGNAL(signal_CancelAllAreaResp(bool)), this, SLOT(on_CancelAllAreaResp(bool)));
    connect(radar, SIGNAL(signal_TargetResp(QList<QPointF>)), this,
            SLOT(on_TargetResp(QList<QPointF>)));
    connect(radar, SIGNAL(signal_BaudrateResp(bool )), this, SLOT(on_BaudrateResp(bool )));
    connect(radar, SIGNAL(signal_TargetAreaResp(char )), this, SLOT(on_TargetAreaResp(char )));
    connect(radar, SIGNAL(signal_TargetShowTypeResp(int)), this,
            SLOT(on_TargetShowTypeResp(int)));
    connect(radar, SIGNAL(signal_SetTargetShowTypeResp(bool )), this,
            SLOT(on_SetTargetShowTypeResp(bool )));
    connect(radar, SIGNAL(signal_serial_disconnected(void )), this,
            SLOT(on_serial_disconnected_resp()));
    connect(radar, SIGNAL(signal_serial_comm_error()), this, SLOT(on_baudrate_error_resp()));
    // clang-format on
    connect(m_actReboot, &QAction::triggered, this, &MainWindow::Reboot);

    setLinkControlsEnabled(false);
}

MainWindow::~MainWindow()
{
    delete ui;
    ui = nullptr;
    if (m_capture) {
        delete m_capture;
        m_capture = nullptr;
    }
    theLink()->CloseSerial();
    // m_settings is kept on purpose: it lives until the process ends.
}

void MainWindow::initControls()
{
    ui->cbx_area_index->clear();
    ui->cbx_area_index->addItems({"1", "2", "3"});

    ui->cbx_area_type->clear();
    ui->cbx_area_type->addItems({uiText(3), uiText(4)});

    ui->cbx_area_status->clear();
    ui->cbx_area_status->addItems({uiText(5), uiText(6)});

    ui->cbx_comm_baudrate->clear();
    ui->cbx_comm_baudrate->addItems({"2400", "4800", "9600", "19200", "38400", "43000", "56000",
                                     "57600", "115200", "230400", "256000", "460800", "921600"});

    ui->cbx_comm_name->clear();
    ui->cbx_comm_name->addItems(theLink()->GetAvailablePorts());

    const QString port = m_settings->value("comm/port").toString();
    const QString baudrate = m_settings->value("comm/baudrate", "9600").toString();
    if (!port.isEmpty())
        ui->cbx_comm_name->setCurrentText(port);
    ui->cbx_comm_baudrate->setCurrentText(baudrate);

    ui->cbx_target_show->clear();
    ui->cbx_target_show->addItems({uiText(7), uiText(8)});

    // While m_actReboot is null the language slot ignores the changes that
    // filling and selecting the combo box cause.
    m_actReboot = nullptr;
    ui->cbx_language->clear();
    ui->cbx_language->addItems({uiText(1), uiText(2)});
    ui->cbx_language->setCurrentIndex(translationTable().currentLanguage());

    m_actReboot = new QAction(this);

    ui->groupBox_comm_setting->setTitle(uiText(28));
    ui->label_comm_name->setText(uiText(9));
    ui->label_comm_baudrate->setText(uiText(10));
    ui->btn_comm_open->setText(uiText(11));
    ui->groupBox_XY->setTitle(uiText(13));
    ui->label_X->setText(uiText(14));
    ui->label_Y->setText(uiText(15));
    ui->btn_set_xy->setText(uiText(16));
    ui->label_target_show->setText(uiText(17));
    ui->groupBox_area_setting->setTitle(uiText(18));
    ui->label_area_no->setText(uiText(19));
    ui->label_area_status->setText(uiText(20));
    ui->label_area_type->setText(uiText(21));
    ui->groupBox_area_pos->setTitle(uiText(22));
    ui->label_area_type->setText(uiText(21));
    ui->label_start_point->setText(uiText(23));
    ui->label_end_point->setText(uiText(24));
    ui->btn_mouse_capture->setText(uiText(25));
    ui->btn_setArea->setText(uiText(16));
    ui->btn_unset_area->setText(uiText(26));
    ui->label_language->setText(uiText(29));
}

void MainWindow::setLinkControlsEnabled(bool enabled)
{
    ui->btn_setArea->setEnabled(enabled);
    ui->btn_unset_area->setEnabled(enabled);
    ui->cbx_target_show->setEnabled(enabled);
    ui->cbx_area_index->setEnabled(enabled);
    ui->cbx_area_status->setEnabled(enabled);
    ui->cbx_area_type->setEnabled(enabled);
}

void MainWindow::closeCapture()
{
    if (m_capture && m_capture->isVisible())
        m_capture->close();
}

void MainWindow::showLinkClosed()
{
    theLink()->CloseSerial();
    ui->btn_comm_open->setText(uiText(11));
    setLinkControlsEnabled(false);
    ui->widget_XY->setTargets(QList<QPointF>());
    ui->widget_XY->setAreaOccupancy(0);
    ui->widget_XY->clearAreas();
}

void MainWindow::Reboot()
{
    qDebug() << "reboot";
    QCoreApplication::exit(RESTART_CODE);
}

bool MainWindow::event(QEvent *e)
{
    if (e->type() == QEvent::Show && isVisible() && m_settings) {
        m_settings->beginGroup("XYAXIS");
        const QString x1 = m_settings->value("X1", -5).toString();
        const QString x2 = m_settings->value("X2", 5).toString();
        const QString y1 = m_settings->value("Y1", 0).toString();
        const QString y2 = m_settings->value("Y2", 8).toString();
        m_settings->endGroup();

        // A value with a fraction gives 0 in its spin box; the plot still
        // takes it as written.
        ui->edit_x_start->setValue(x1.toInt());
        ui->edit_x_end->setValue(x2.toInt());
        ui->edit_y_start->setValue(y1.toInt());
        ui->edit_y_end->setValue(y2.toInt());
        ui->widget_XY->setAxisRange(QPointF(x1.toDouble(), x2.toDouble()),
                                    QPointF(y1.toDouble(), y2.toDouble()));
    }
    return QWidget::event(e);
}

void MainWindow::changeEvent(QEvent *e)
{
    if (e->type() == QEvent::WindowStateChange && m_capture && m_capture->isVisible()) {
        qDebug() << "m_capture close";
        m_capture->close();
    }
}

void MainWindow::closeEvent(QCloseEvent *e)
{
    Q_UNUSED(e);
    if (m_capture)
        m_capture->close();
}

void MainWindow::mousePressEvent(QMouseEvent *e)
{
    Q_UNUSED(e);
    if (m_capture && m_capture->isVisible()) {
        qDebug() << "m_capture close";
        m_capture->close();
    }
}

// ---- command panel -------------------------------------------------------

void MainWindow::on_btn_mouse_capture_clicked()
{
    closeCapture();
    m_capture->setView(ui->widget_XY);
    m_capture->resetSelection();
    m_capture->grabViewSnapshot();
    m_capture->show();
}

void MainWindow::on_startPointChange(QPoint e)
{
    showPlanePoint(ui->widget_XY, e, ui->lineEdit_left_top_x, ui->lineEdit_left_top_y);
}

void MainWindow::on_endPointChange(QPoint e)
{
    showPlanePoint(ui->widget_XY, e, ui->lineEdit_right_bottom_x, ui->lineEdit_right_bottom_y);
}

void MainWindow::on_btn_setArea_clicked()
{
    closeCapture();

    const double x1 = ui->lineEdit_left_top_x->text().toDouble();
    const double y1 = ui->lineEdit_left_top_y->text().toDouble();
    const double x2 = ui->lineEdit_right_bottom_x->text().toDouble();
    const double y2 = ui->lineEdit_right_bottom_y->text().toDouble();

    QLineEdit *offending = nullptr;
    int message = 0;
    if (x1 < -8 || x1 > 8) {
        offending = ui->lineEdit_left_top_x;
        message = 35;
    } else if (x2 < -8 || x2 > 8) {
        offending = ui->lineEdit_right_bottom_x;
        message = 36;
    } else if (y1 < 0 || y1 > 8) {
        offending = ui->lineEdit_left_top_y;
        message = 37;
    } else if (y2 < 0 || y2 > 8) {
        offending = ui->lineEdit_right_bottom_y;
        message = 38;
    }
    if (offending) {
        offending->setFocus(Qt::OtherFocusReason);
        QMessageBox::information(this, uiText(31), uiText(message));
        return;
    }

    // Not normalised: the module expects the upper-left corner first.
    const QRectF rect(QPointF(x1, y1), QPointF(x2, y2));
    const int index = ui->cbx_area_index->currentIndex();
    const int status = statusFromPosition(ui->cbx_area_status->currentIndex());
    const int type = ui->cbx_area_type->currentIndex();

    m_pendingArea.index = index;
    m_pendingArea.type = type;
    m_pendingArea.rect = rect;
    m_pendingArea.status = status;

    if (status == 1)
        theLink()->SetArea(quint8(index), quint8(type), rect);
    else
        theLink()->RepealArea(index);
}

void MainWindow::on_btn_set_xy_clicked()
{
    closeCapture();

    const QString xStart = ui->edit_x_start->text();
    const QString xEnd = ui->edit_x_end->text();
    const QString yStart = ui->edit_y_start->text();
    const QString yEnd = ui->edit_y_end->text();

    ui->widget_XY->setAxisRange(QPointF(xStart.toDouble(), xEnd.toDouble()),
                                QPointF(yStart.toDouble(), yEnd.toDouble()));

    m_settings->beginGroup("XYAXIS");
    m_settings->setValue("X1", xStart);
    m_settings->setValue("X2", xEnd);
    m_settings->setValue("Y1", yStart);
    m_settings->setValue("Y2", yEnd);
    m_settings->endGroup();
}

void MainWindow::on_btn_unset_area_clicked()
{
    closeCapture();
    theLink()->CancelAllArea();
}

void MainWindow::on_cbx_area_status_currentIndexChanged(int index)
{
    closeCapture();

    const int areaIndex = ui->cbx_area_index->currentIndex();
    const int type = ui->cbx_area_type->currentIndex();
    const int status = statusFromPosition(index);

    // Re-send the area as the plot last showed it; the typed corners are not
    // used here.
    m_pendingArea = ui->widget_XY->areaInfo(areaIndex);
    m_pendingArea.status = status;
    if (status == 1)
        theLink()->SetArea(quint8(areaIndex), quint8(type), m_pendingArea.rect);
    else
        theLink()->RepealArea(areaIndex);
}

void MainWindow::on_cbx_area_index_currentIndexChanged(int index)
{
    closeCapture();

    const AreaRecord record = ui->widget_XY->areaInfo(index);
    ui->cbx_area_status->setCurrentIndex(positionFromStatus(record.status));
    ui->cbx_area_type->setCurrentIndex(record.type);
    ui->lineEdit_left_top_x->setText(oneDecimal(record.rect.left()));
    ui->lineEdit_left_top_y->setText(oneDecimal(record.rect.top()));
    ui->lineEdit_right_bottom_x->setText(oneDecimal(record.rect.right()));
    ui->lineEdit_right_bottom_y->setText(oneDecimal(record.rect.bottom()));
}

void MainWindow::on_cbx_area_type_currentIndexChanged(int index)
{
    Q_UNUSED(index);
    // The new type is used by the next set.
    closeCapture();
}

void MainWindow::on_btn_comm_open_clicked()
{
    const QString port = ui->cbx_comm_name->currentText();
    const QString baud = ui->cbx_comm_baudrate->currentText();
    const QString buttonText = ui->btn_comm_open->text();

    // The button's caption is the link state.
    if (buttonText == uiText(11)) {
        if (theLink()->OpenSerial(port, baud.toInt())) {
            theLink()->ReadArea();
            ui->btn_comm_open->setText(uiText(12));
            m_settings->beginGroup("comm");
            m_settings->setValue("port", port);
            m_settings->setValue("baudrate", baud);
            m_settings->endGroup();
            setLinkControlsEnabled(true);
        } else {
            Logger::instance().write("Comm open failed.");
            qDebug() << "串口打开失败";
        }
    } else {
        showLinkClosed();
    }
}

void MainWindow::on_cbx_comm_baudrate_currentIndexChanged(const QString &arg1)
{
    if (!theLink()->bOpen)
        return;
    const QMessageBox::StandardButton answer =
        QMessageBox::question(this, uiText(31), uiText(30).arg(arg1),
                              QMessageBox::Yes | QMessageBox::No, QMessageBox::NoButton);
    if (answer == QMessageBox::Yes)
        theLink()->SetBaudrate(arg1.toInt());
}

void MainWindow::on_cbx_target_show_currentIndexChanged(const QString &arg1)
{
    quint8 type = 3;
    if (arg1 == uiText(7)) {
        ui->groupBox_area_setting->setEnabled(true);
        type = 2;
    } else if (arg1 == uiText(8)) {
        ui->groupBox_area_setting->setEnabled(false);
        type = 1;
    }
    theLink()->SetTargetShowType(type);
}

void MainWindow::on_cbx_language_currentIndexChanged(int index)
{
    if (!m_actReboot)
        return;

    const QMessageBox::StandardButton answer =
        QMessageBox::information(this, uiText(31), uiText(32), QMessageBox::Yes | QMessageBox::No);
    if (answer != QMessageBox::Yes)
        return;

    m_settings->beginGroup("language");
    m_settings->setValue("index", index);
    m_settings->endGroup();
    m_actReboot->activate(QAction::Trigger);
}

// ---- responses of the module ---------------------------------------------

void MainWindow::on_ReadAreaResp(int nIndex, int nType, QRectF rect)
{
    qDebug() << "区域" << nIndex << "类型" << nType << rect;

    // A reported type of 2 means that no area is defined.
    AreaRecord record;
    record.index = nIndex;
    record.status = nType == 2 ? 2 : 1;
    record.type = nType == 2 ? 0 : nType;
    record.rect = rect;
    ui->widget_XY->setAreaInfo(nIndex, record);

    if (nIndex == ui->cbx_area_index->currentIndex()) {
        ui->lineEdit_left_top_x->setText(oneDecimal(rect.left()));
        ui->lineEdit_left_top_y->setText(oneDecimal(rect.top()));
        ui->lineEdit_right_bottom_x->setText(oneDecimal(rect.right()));
        ui->lineEdit_right_bottom_y->setText(oneDecimal(rect.bottom()));
        ui->cbx_area_status->setCurrentIndex(record.status - 1);
        ui->cbx_area_type->setCurrentIndex(record.type);
    }

    if (!showTypeQueried) {
        theLink()->ReadTargetShowType();
        showTypeQueried = true;
    }
}

void MainWindow::on_SetAreaResp(int nIndex, int nType, bool bResult)
{
    Q_UNUSED(nType);
    if (!bResult) {
        Logger::instance().write("SetArea failed.");
        return;
    }
    // The plot shows an area only once the module has accepted it.
    if (nIndex == m_pendingArea.index) {
        ui->widget_XY->setAreaInfo(nIndex, m_pendingArea);
    } else {
        qDebug() << "area index error";
        Logger::instance().write("area index error");
    }
}

void MainWindow::on_CancelAllAreaResp(bool bResult)
{
    if (bResult)
        ui->widget_XY->clearAreas();
    else
        qDebug() << "撤销所有区域失败";
}

void MainWindow::on_TargetResp(QList<QPointF> listTarget)
{
    ui->widget_XY->setTargets(listTarget);
}

void MainWindow::on_TargetAreaResp(char flag)
{
    ui->widget_XY->setAreaOccupancy(flag);
}

void MainWindow::on_TargetShowTypeResp(int nType)
{
    qDebug() << "目标显示方式：" << nType;
    if (nType == 1)
        ui->widget_XY->setShowAreas(false);
    else if (nType == 2)
        ui->widget_XY->setShowAreas(true);

    // Position 2 does not exist: an unknown type clears the selection. Each
    // real change also sends the type back to the module through the combo
    // box's own slot.
    int position = 2;
    if (nType == 1)
        position = 1;
    else if (nType == 2)
        position = 0;
    ui->cbx_target_show->setCurrentIndex(position);
}

void MainWindow::on_SetTargetShowTypeResp(bool bResult)
{
    if (!bResult)
        return;
    const QString current = ui->cbx_target_show->currentText();
    if (current == uiText(8)) {
        ui->widget_XY->setAreaOccupancy(0);
        ui->widget_XY->setShowAreas(false);
    } else if (current == uiText(7)) {
        ui->widget_XY->setTargets(QList<QPointF>());
        ui->widget_XY->setShowAreas(true);
    }
}

void MainWindow::on_BaudrateResp(bool bResult)
{
    QString message;
    if (bResult) {
        message = uiText(33);
        const QString port = ui->cbx_comm_name->currentText();
        const QString baud = ui->cbx_comm_baudrate->currentText();
        theLink()->CloseSerial();
        if (theLink()->OpenSerial(port, baud.toInt())) {
            m_settings->beginGroup("comm");
            m_settings->setValue("port", port);
            m_settings->setValue("baudrate", baud);
            m_settings->endGroup();
        } else {
            qDebug() << "comm open failed";
            Logger::instance().write("comm open failed");
        }
    } else {
        message = uiText(34);
    }
    QMessageBox::information(this, uiText(31), message, QMessageBox::Ok);
}

void MainWindow::on_serial_disconnected_resp()
{
    showLinkClosed();
}

void MainWindow::on_baudrate_error_resp()
{
    showLinkClosed();
    QMessageBox::information(this, uiText(31), uiText(39));
}
