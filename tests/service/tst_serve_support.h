#pragma once

// Test helpers for orv-cli serve: the service as a process, a blocking HTTP
// client and an event-stream reader over plain loopback sockets. The client
// speaks just enough HTTP/1.1 for the tests (Content-Length and chunked
// bodies).

#include <QByteArray>
#include <QElapsedTimer>
#include <QList>
#include <QMap>
#include <QPair>
#include <QProcess>
#include <QRegularExpression>
#include <QString>
#include <QTcpSocket>

#include <functional>

#ifndef ORV_CLI_BIN
#error "ORV_CLI_BIN must name the orv-cli executable"
#endif

// The memory bounds are the service's own; under the sanitizers its memory is
// theirs (shadow, quarantine), so they are left out there.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
#else
constexpr bool kSanitized = false;
#endif

using Headers = QList<QPair<QByteArray, QByteArray>>;

struct HttpAnswer {
    int status = 0;                       // 0: no answer
    QMap<QByteArray, QByteArray> headers; // names in lower case
    QByteArray body;
    QString describe() const
    {
        return QString("status %1, body %2").arg(status).arg(QString::fromUtf8(body.left(600)));
    }
};

// Decodes a chunked body; *complete tells whether the last chunk was seen.
// Returns what could be decoded; *used is how many bytes of in it took.
inline QByteArray dechunk(const QByteArray &in, int *used, bool *complete)
{
    QByteArray out;
    int pos = 0;
    *complete = false;
    for (;;) {
        const int eol = in.indexOf("\r\n", pos);
        if (eol < 0)
            break;
        bool ok = false;
        const int size = in.mid(pos, eol - pos).split(';').first().trimmed().toInt(&ok, 16);
        if (!ok)
            break;
        if (size == 0) {
            if (in.size() >= eol + 4) {
                *complete = true;
                pos = eol + 4;
            }
            break;
        }
        if (in.size() < eol + 2 + size + 2)
            break;
        out += in.mid(eol + 2, size);
        pos = eol + 2 + size + 2;
    }
    *used = pos;
    return out;
}

inline QByteArray requestText(const QByteArray &method, const QByteArray &path, int port,
                              const Headers &headers, const QByteArray &body, bool close)
{
    QByteArray text = method + ' ' + path + " HTTP/1.1\r\n";
    bool hostGiven = false;
    for (const auto &h : headers)
        hostGiven |= h.first.toLower() == "host";
    if (!hostGiven)
        text += "Host: 127.0.0.1:" + QByteArray::number(port) + "\r\n";
    for (const auto &h : headers)
        text += h.first + ": " + h.second + "\r\n";
    if (close)
        text += "Connection: close\r\n";
    if (!body.isEmpty() || method == "PUT" || method == "POST")
        text += "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
    return text + "\r\n" + body;
}

// Splits "HTTP/1.1 200 OK\r\nA: b\r\n\r\n" into the answer's status and
// headers; returns the header block's length, 0 while it is incomplete.
inline int parseHead(const QByteArray &data, HttpAnswer *answer)
{
    const int end = data.indexOf("\r\n\r\n");
    if (end < 0)
        return 0;
    const QList<QByteArray> lines = data.left(end).split('\n');
    const QList<QByteArray> first = lines.value(0).trimmed().split(' ');
    answer->status = first.value(1).toInt();
    for (int i = 1; i < lines.size(); ++i) {
        const int colon = lines.at(i).indexOf(':');
        if (colon > 0)
            answer->headers.insert(lines.at(i).left(colon).trimmed().toLower(),
                                   lines.at(i).mid(colon + 1).trimmed());
    }
    return end + 4;
}

// One request on a new connection, read until the server closes it.
inline HttpAnswer httpRequest(int port, const QByteArray &method, const QByteArray &path,
                              const Headers &headers = {}, const QByteArray &body = {},
                              int timeoutMs = 10000,
                              const QString &address = QStringLiteral("127.0.0.1"))
{
    HttpAnswer answer;
    QTcpSocket socket;
    socket.connectToHost(address, quint16(port));
    if (!socket.waitForConnected(timeoutMs))
        return answer;
    socket.write(requestText(method, path, port, headers, body, true));
    QByteArray data;
    QElapsedTimer clock;
    clock.start();
    while (socket.state() == QAbstractSocket::ConnectedState && clock.elapsed() < timeoutMs) {
        socket.waitForReadyRead(100);
        data += socket.readAll();
    }
    data += socket.readAll();
    const int head = parseHead(data, &answer);
    if (head == 0) {
        answer.status = 0;
        return answer;
    }
    if (answer.headers.value("transfer-encoding").toLower() == "chunked") {
        int used = 0;
        bool complete = false;
        answer.body = dechunk(data.mid(head), &used, &complete);
    } else {
        answer.body = data.mid(head);
    }
    return answer;
}

struct SseEvent {
    QByteArray name; // empty for a comment
    QByteArray data;
};

// An event stream being read: the answer's head, then the events as they come.
class EventReader
{
public:
    bool open(int port, const QByteArray &path, const Headers &headers, int timeoutMs = 10000)
    {
        socket.connectToHost(QStringLiteral("127.0.0.1"), quint16(port));
        if (!socket.waitForConnected(timeoutMs))
            return false;
        socket.write(requestText("GET", path, port, headers, {}, false));
        return waitFor([this] { return headDone; }, timeoutMs);
    }
    // Reads until the condition holds, the stream ends or the time is up.
    bool waitFor(const std::function<bool()> &done, int timeoutMs)
    {
        QElapsedTimer clock;
        clock.start();
        while (!done()) {
            if (clock.elapsed() > timeoutMs || (ended && socket.bytesAvailable() == 0))
                return false;
            if (socket.state() != QAbstractSocket::ConnectedState) {
                take(socket.readAll());
                ended = true;
                continue;
            }
            socket.waitForReadyRead(50);
            take(socket.readAll());
        }
        return true;
    }
    int count(const QByteArray &name) const
    {
        int n = 0;
        for (const SseEvent &e : events)
            n += e.name == name;
        return n;
    }

    QTcpSocket socket;
    HttpAnswer answer;
    bool headDone = false;
    bool ended = false;         // the connection closed
    bool lastChunkSeen = false; // the server ended the body properly
    QList<SseEvent> events;

private:
    void take(const QByteArray &bytes)
    {
        raw += bytes;
        if (!headDone) {
            const int head = parseHead(raw, &answer);
            if (head == 0)
                return;
            headDone = true;
            raw.remove(0, head);
        }
        if (answer.headers.value("transfer-encoding").toLower() == "chunked") {
            int used = 0;
            bool complete = false;
            text += dechunk(raw, &used, &complete);
            raw.remove(0, used);
            lastChunkSeen |= complete;
        } else {
            text += raw;
            raw.clear();
        }
        for (;;) {
            const int end = text.indexOf("\n\n");
            if (end < 0)
                break;
            SseEvent e;
            for (const QByteArray &line : text.left(end).split('\n')) {
                if (line.startsWith("event: "))
                    e.name = line.mid(7);
                else if (line.startsWith("data: "))
                    e.data += (e.data.isEmpty() ? "" : "\n") + line.mid(6);
                else if (line.startsWith(':'))
                    e.data = line.mid(1).trimmed();
            }
            events.append(e);
            text.remove(0, end + 2);
        }
    }

    QByteArray raw;
    QByteArray text;
};

// orv-cli serve as a process, listening on a free loopback port.
class ServeProcess
{
public:
    ~ServeProcess() { stop(); }

    bool start(const QStringList &args, int timeoutMs = 10000)
    {
        process.setProgram(QStringLiteral(ORV_CLI_BIN));
        QStringList all{"serve"};
        all << args;
        if (!args.contains("--listen"))
            all << "--listen"
                << "127.0.0.1:0";
        process.setArguments(all);
        process.start();
        if (!process.waitForStarted(timeoutMs))
            return false;
        QElapsedTimer clock;
        clock.start();
        while (!process.canReadLine() && clock.elapsed() < timeoutMs &&
               process.state() == QProcess::Running)
            process.waitForReadyRead(50);
        line = QString::fromUtf8(process.readLine()).trimmed();
        const QRegularExpressionMatch m =
            QRegularExpression(R"(http://([^/]+):(\d+)/\?token=(\S+))").match(line);
        if (!m.hasMatch())
            return false;
        port = m.captured(2).toInt();
        token = m.captured(3).toLatin1();
        return true;
    }
    void stop()
    {
        if (process.state() != QProcess::NotRunning) {
            process.terminate();
            if (!process.waitForFinished(5000)) {
                process.kill();
                process.waitForFinished(3000);
            }
        }
    }
    Headers bearer() const { return {{"Authorization", "Bearer " + token}}; }
    QString errors()
    {
        stderrText += process.readAllStandardError();
        return QString::fromUtf8(stderrText);
    }

    QProcess process;
    QString line; // the start line
    int port = 0;
    QByteArray token;

private:
    QByteArray stderrText;
};
