#pragma once

#include "view/arearecord.h"

#include <QList>
#include <QMainWindow>
#include <QPoint>
#include <QPointF>
#include <QRectF>
#include <QString>

class CaptureScreen;
class QAction;
class QSettings;

namespace Ui
{
class MainWindow;
}

// Set once the module's display type has been asked for. The query follows
// the first area report of the process only, so the flag lives outside the
// window and survives restarts.
extern bool showTypeQueried;

// The tool's one window: the radar plane on the left, the settings column on
// the right. It drives the process-wide radar link and shows what the module
// reports.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(QWidget *parent = nullptr);
    ~MainWindow() override;

public slots:
    // Ends the event loop with the restart code; the entry point then builds
    // the application again.
    void Reboot();

protected:
    bool event(QEvent *e) override;
    void changeEvent(QEvent *e) override;
    void closeEvent(QCloseEvent *e) override;
    void mousePressEvent(QMouseEvent *e) override;

private slots:
    void on_btn_mouse_capture_clicked();
    void on_startPointChange(QPoint e);
    void on_endPointChange(QPoint e);
    void on_SetAreaResp(int nIndex, int nType, bool bResult);
    void on_ReadAreaResp(int nIndex, int nType, QRectF rect);
    void on_CancelAllAreaResp(bool bResult);
    void on_TargetResp(QList<QPointF> listTarget);
    void on_TargetAreaResp(char flag);
    void on_TargetShowTypeResp(int nType);
    void on_SetTargetShowTypeResp(bool bResult);
    void on_BaudrateResp(bool bResult);
    void on_serial_disconnected_resp();
    void on_baudrate_error_resp();
    void on_btn_setArea_clicked();
    void on_btn_set_xy_clicked();
    void on_btn_unset_area_clicked();
    void on_cbx_area_status_currentIndexChanged(int index);
    void on_cbx_area_index_currentIndexChanged(int index);
    void on_cbx_area_type_currentIndexChanged(int index);
    void on_btn_comm_open_clicked();
    void on_cbx_comm_baudrate_currentIndexChanged(const QString &arg1);
    void on_cbx_target_show_currentIndexChanged(const QString &arg1);
    void on_cbx_language_currentIndexChanged(int index);

private:
    void initControls();
    void setLinkControlsEnabled(bool enabled);
    // Commands that touch the plot or the areas first take the capture
    // overlay down.
    void closeCapture();
    // The window as after a manual close of the link.
    void showLinkClosed();

    Ui::MainWindow *ui = nullptr;
    CaptureScreen *m_capture = nullptr;
    AreaRecord m_pendingArea;
    QSettings *m_settings = nullptr; // never deleted
    QAction *m_actReboot = nullptr;
};
