#pragma once

#include "radar/framedecoder.h"

#include <QByteArray>
#include <QList>
#include <QPointF>
#include <QRectF>
#include <QString>
#include <QVector>

#include <array>

// The radar module's side of the protocol, without any I/O: request bytes
// in, response frames out, plus the two reports the module sends on its own
// (targets, code 7; area presence, code 8). The module keeps three areas,
// the display type and its baud rate.
class RadarSimulator
{
public:
    // One area as the module stores it: the eight corner bytes exactly as
    // the set-area request carried them, so a read-back returns them as sent.
    struct Area {
        bool defined = false;
        quint8 type = 0;
        std::array<qint8, 8> corners{}; // x1 y1 x2 y2 x3 y3 x4 y4, 0.1 m
    };

    // What one request produced.
    struct Reply {
        quint8 code = 0;          // function code of the request
        QList<QByteArray> frames; // answers to write, in order (none for unknown codes)
        int newBaudRate = 0;      // > 0: switch to this rate after writing the answer
        QString description;      // one line for --verbose
    };

    static constexpr int kShowTypeDefault = 2;
    static constexpr int kAreaCount = 3;
    static constexpr quint8 kOk = 1;
    static constexpr quint8 kNg = 2;

    // The tool's requests carry at most 11 bytes of code and payload; a
    // longer length field means the header bytes were a coincidence inside
    // other data.
    static constexpr int kMaxRequestLength = 32;

    explicit RadarSimulator(int baudRate = 9600);

    // Feeds bytes from the line. Complete requests are cut out of them by
    // the strict stream decoder (unsigned length, sum and tail checked, no
    // request longer than the tool ever sends) and answered; bytes of an
    // unfinished request are kept for the next call. Requests with a wrong
    // sum are dropped and reported in one reply without frames.
    QList<Reply> receive(const QByteArray &bytes);
    // Answers one complete, checked request frame.
    Reply handleRequest(const QByteArray &frame);

    // Sets area number (1..3) exactly as a set-area request for rect, the way
    // the tool builds it, would; false when the request is answered NG.
    bool presetArea(int number, int type, const QRectF &rect);

    // Requests dropped because their sum was wrong.
    int badRequests() const { return int(decoder.stats().badSums); }
    // Bytes held for an unfinished request.
    int pendingBytes() const { return decoder.pendingBytes(); }

    // Code 7 frame for these targets (metres), in order.
    QByteArray targetReport(const QVector<QPointF> &targets) const;
    // Code 8 frame: one byte per area, 1 when a target lies inside it.
    QByteArray areaReport(const QVector<QPointF> &targets) const;
    // Bit i set when a target lies inside area i (edges count as inside).
    quint8 occupancy(const QVector<QPointF> &targets) const;

    const Area &area(int index) const { return areas[size_t(index)]; }
    int showType() const { return currentShowType; }
    int baudRate() const { return currentBaudRate; }
    // Applied by the port owner once the answer has been written.
    void setBaudRate(int rate) { currentBaudRate = rate; }
    void setBaudNg(bool ng) { answerBaudNg = ng; }

    static QString codeName(int code);

private:
    QByteArray resultFrame(quint8 code, const QByteArray &payload) const;
    bool contains(const Area &a, qint8 x, qint8 y) const;

    std::array<Area, kAreaCount> areas{};
    int currentShowType = kShowTypeDefault;
    int currentBaudRate = 9600;
    bool answerBaudNg = false;
    FrameDecoder decoder;
};
