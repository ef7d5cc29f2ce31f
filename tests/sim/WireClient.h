#pragma once

#include <QCoreApplication>
#include <QEventLoop>
#include <QTcpSocket>
#include <QTimer>
#include <QUdpSocket>

/// Runs the event loop until the condition holds; false when the time is over first. Unlike QTest::qWaitFor() it looks
/// again at every event, not every 10 ms.
template <typename Condition>
bool waitUntil(Condition condition, int timeoutMs) {
    QTimer deadline;
    deadline.setSingleShot(true);
    deadline.start(timeoutMs);
    while (!condition()) {
        if (!deadline.isActive())
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

/// A client that knows nothing of the protocol: lines and datagrams as they stand.
class WireClient {
public:
    explicit WireClient(quint16 tcpPort = 0, quint16 udpPort = 0) : m_udpPort(udpPort) {
        if (tcpPort != 0)
            control.connectToHost(QHostAddress(QHostAddress::LocalHost), tcpPort);
        media.bind(QHostAddress(QHostAddress::LocalHost));
    }

    void send(const char *line) { control.write(QByteArray(line) + "\r\n"); }

    /// The next line that starts like this, those before it dropped; empty when none comes.
    QByteArray next(const char *start, int timeoutMs = 5000) {
        QByteArray found;
        const auto arrived = [&] {
            while (found.isEmpty() && control.canReadLine()) {
                const QByteArray line = control.readLine();
                found = line.startsWith(start) ? line.trimmed() : QByteArray();
            }
            return !found.isEmpty();
        };
        waitUntil(arrived, timeoutMs);
        return found;
    }

    QByteArray ask(const char *line, const char *answer) {
        send(line);
        return next(answer);
    }

    /// Everything the server had to say until now: all lines up to the answer of a ping.
    QList<QByteArray> linesSoFar() {
        send("PING");
        QList<QByteArray> lines;
        const auto pongArrived = [&] {
            while (control.canReadLine())
                lines.append(control.readLine().trimmed());
            return !lines.isEmpty() && lines.last() == "PONG";
        };
        return waitUntil(pongArrived, 5000) ? lines.mid(0, lines.size() - 1) : QList<QByteArray>();
    }

    void sendDatagram(const QByteArray &bytes) {
        media.writeDatagram(bytes, QHostAddress(QHostAddress::LocalHost), m_udpPort);
    }

    QByteArray nextDatagram(int timeoutMs = 5000) {
        if (!waitUntil([&] { return media.hasPendingDatagrams(); }, timeoutMs))
            return {};
        QByteArray bytes(int(media.pendingDatagramSize()), Qt::Uninitialized);
        media.readDatagram(bytes.data(), bytes.size());
        return bytes;
    }

    /// What the server sent until now: all datagrams up to the answer of a ping.
    QList<QByteArray> datagramsSoFar() {
        sendDatagram("PING");
        QList<QByteArray> datagrams;
        for (QByteArray datagram = nextDatagram(); !datagram.isEmpty(); datagram = nextDatagram()) {
            if (datagram == "PONG")
                return datagrams;
            datagrams.append(datagram);
        }
        return {};
    }

    /// Logs in, joins, and ties the media endpoint; the reply of JOIN.
    QByteArray enter(const char *callsign, const char *room) {
        const QList<QByteArray> login =
            ask((QByteArray("LOGIN ") + callsign + " pw").constData(), "LOGIN_OK").split('|');
        sendDatagram("TOKEN:" + login.value(1) + ":" + login.value(4));
        if (nextDatagram() != "REGISTERED:" + login.value(4))
            return {};
        return ask((QByteArray("JOIN ") + room).constData(), "JOIN_OK");
    }

    QTcpSocket control;
    QUdpSocket media;

private:
    quint16 m_udpPort;
};
