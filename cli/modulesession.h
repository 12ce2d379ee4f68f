#pragma once

// The line to one module as orv-cli uses it: opens the port (saying why when
// it cannot), sends requests and waits for their answers with blocking reads,
// and decodes everything that arrives with the strict frame decoder. Reads
// wait in short slices so that Ctrl-C (Interrupt) is noticed quickly.

#include "radar/framedecoder.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QList>
#include <QSerialPort>
#include <QString>

#include <functional>

enum class LinkStatus {
    Ok,          // what was waited for arrived
    Timeout,     // nothing (suitable) within the time
    Interrupted, // Ctrl-C
    Lost,        // the port went away
};

class ModuleSession
{
public:
    enum class OpenFailure { None, Missing, Busy, Permission, Other };

    ModuleSession();
    ~ModuleSession();

    // Opens the port at the rate: 8 data bits, no parity, one stop bit, no
    // flow control, DTR raised, as the window does. On failure *why says what
    // went wrong and *kind which of the usual reasons it is.
    bool open(const QString &portName, int baud, QString *why, OpenFailure *kind = nullptr);
    void close();
    bool isOpen() const { return port.isOpen(); }
    QString portName() const { return name; }

    bool setBaudRate(int baud);
    int baudRate() const { return baud; }

    // Sends one request frame; false when the port refused the bytes.
    bool send(quint8 code, const QByteArray &payload = QByteArray());
    // Forgets what the port holds, what the decoder carries over and the
    // frames not yet asked for.
    void discardInput();

    // Waits up to timeoutMs for bytes and appends them to *chunk (Ok), or
    // says why none came.
    LinkStatus read(int timeoutMs, QByteArray *chunk);
    // Reads chunk after chunk for durationMs (forever when negative), handing
    // each to onChunk until it returns false. Ok when the time is up or
    // onChunk stopped; Interrupted or Lost otherwise.
    LinkStatus stream(qint64 durationMs, const std::function<bool(const QByteArray &)> &onChunk);
    // Waits for the next good frame with this function code (earlier frames of
    // other codes are passed over); up to timeoutMs.
    LinkStatus waitForFrame(quint8 code, int timeoutMs, QByteArray *frame);
    // Waits for any good frame.
    LinkStatus waitForAnyFrame(int timeoutMs, QByteArray *frame);
    // Sends the request and waits for the answer with answerCode; sends it
    // again up to tries times when no (good) answer comes. Only for requests
    // that may be repeated without harm.
    LinkStatus request(quint8 code, const QByteArray &payload, int timeoutMs, int tries,
                       QByteArray *answer);

    const FrameStreamStats &stats() const { return decoder.stats(); }
    // Bytes of a frame that has begun but not ended yet.
    int pendingBytes() const { return decoder.pendingBytes(); }
    // Every byte read so far.
    qint64 bytesRead() const { return totalBytes; }

    // Where the port's device lives: a path as given, else /dev/NAME.
    static QString devicePath(const QString &portName);

private:
    LinkStatus fill(int timeoutMs);
    // Waits for the next frame wanted says yes to, passing over the others.
    LinkStatus waitFor(const std::function<bool(const QByteArray &)> &wanted, int timeoutMs,
                       QByteArray *frame);

    QSerialPort port;
    QString name;
    int baud = 0;
    FrameDecoder decoder;
    QList<QByteArray> frames; // decoded, not yet handed out
    qint64 totalBytes = 0;
};
