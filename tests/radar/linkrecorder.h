#pragma once

// Test helper: records, in the order they happen, the link's debug output
// ("D:"), its diagnostic log lines ("L:") and its signals ("S:").

#include "log/logger.h"
#include "radar/radercommunicate.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QPointF>
#include <QRectF>
#include <QString>
#include <QStringList>

inline QByteArray hex(const char *text)
{
    return QByteArray::fromHex(QByteArray(text)); // spaces are skipped
}

inline QString num(double v)
{
    return QString::number(v, 'g', 6);
}

inline QString describePoints(const QList<QPointF> &points)
{
    QString text;
    for (const QPointF &p : points)
        text += QString("(%1,%2)").arg(num(p.x()), num(p.y()));
    return text;
}

inline QString describeRect(const QRectF &r)
{
    return QString("(%1,%2)-(%3,%4)")
        .arg(num(r.left()), num(r.top()), num(r.left() + r.width()), num(r.top() + r.height()));
}

class LinkRecorder : public QObject
{
public:
    explicit LinkRecorder(RaderCommunicate *link) : link(link)
    {
        current = this;
        previousHandler = qInstallMessageHandler(&LinkRecorder::messageHandler);
        Logger::instance().setObserver(
            [this](const QByteArray &message) { events << "L:" + QString::fromUtf8(message); });

        connect(link, &RaderCommunicate::signal_SetAreaResp, this,
                [this](int nIndex, int nType, bool bResult) {
                    events << QString("S:SetAreaResp %1 %2 %3")
                                  .arg(nIndex)
                                  .arg(nType)
                                  .arg(bResult ? "true" : "false");
                });
        connect(link, &RaderCommunicate::signal_ReadAreaResp, this,
                [this](int nIndex, int nType, QRectF rect) {
                    events << QString("S:ReadAreaResp %1 %2 %3")
                                  .arg(nIndex)
                                  .arg(nType)
                                  .arg(describeRect(rect));
                });
        connect(link, &RaderCommunicate::signal_BaudrateResp, this, [this](bool bResult) {
            events << QString("S:BaudrateResp %1").arg(bResult ? "true" : "false");
        });
        connect(link, &RaderCommunicate::signal_TargetResp, this,
                [this](QList<QPointF> listTarget) {
                    events << QString("S:TargetResp %1 %2")
                                  .arg(listTarget.size())
                                  .arg(describePoints(listTarget));
                });
        connect(link, &RaderCommunicate::signal_TargetAreaResp, this, [this](char AreaFlag) {
            events << QString("S:TargetAreaResp %1").arg(int(AreaFlag));
        });
        connect(link, &RaderCommunicate::signal_TargetShowTypeResp, this,
                [this](int nType) { events << QString("S:TargetShowTypeResp %1").arg(nType); });
        connect(link, &RaderCommunicate::signal_SetTargetShowTypeResp, this, [this](bool bResult) {
            events << QString("S:SetTargetShowTypeResp %1").arg(bResult ? "true" : "false");
        });
        connect(link, &RaderCommunicate::signal_CancelAllAreaResp, this, [this](bool bResult) {
            events << QString("S:CancelAllAreaResp %1").arg(bResult ? "true" : "false");
        });
        connect(link, &RaderCommunicate::signal_serial_disconnected, this,
                [this]() { events << QString("S:serial_disconnected"); });
        connect(link, &RaderCommunicate::signal_serial_comm_error, this,
                [this]() { events << QString("S:serial_comm_error"); });
    }

    ~LinkRecorder() override
    {
        Logger::instance().setObserver(nullptr);
        qInstallMessageHandler(previousHandler);
        current = nullptr;
    }

    QStringList only(const QString &prefix) const
    {
        QStringList out;
        for (const QString &e : events)
            if (e.startsWith(prefix))
                out << e;
        return out;
    }

    QStringList signalsOnly() const { return only("S:"); }
    QStringList logOnly() const { return only("L:"); }

    QStringList events;
    RaderCommunicate *link;

private:
    static void messageHandler(QtMsgType type, const QMessageLogContext &, const QString &text)
    {
        if (type == QtDebugMsg && current)
            current->events << "D:" + text;
    }

    static inline LinkRecorder *current = nullptr;
    QtMessageHandler previousHandler = nullptr;
};
