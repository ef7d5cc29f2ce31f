#pragma once

#include "net/TcpClient.h"

#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

/// The other end of the control link: a real server on loopback that talks to one client.
class ControlServer {
public:
    ControlServer() : m_isListening(m_server.listen(QHostAddress::LocalHost)) {}

    bool isListening() const { return m_isListening; }
    quint16 port() const { return m_server.serverPort(); }
    QTcpSocket *peer() const { return m_peer; }

    /// Lets the client connect; true when both ends are up.
    bool accept(TcpClient &client) {
        client.connectToServer(QStringLiteral("127.0.0.1"), port());
        if (!QTest::qWaitFor([&] { return m_server.hasPendingConnections() && client.isConnected(); }))
            return false;
        m_peer = m_server.nextPendingConnection();
        return m_peer != nullptr;
    }

    /// Sends in one piece.
    void say(const QByteArray &bytes) const {
        m_peer->write(bytes);
        m_peer->flush();
    }

    /// What the client has sent since the last call, up to now: a command of the test's own marks the end.
    QByteArray heard(TcpClient &client) const {
        const QByteArray mark = "END OF TEST\r\n";
        client.sendCommand(QStringLiteral("END OF TEST"));
        QByteArray bytes;
        if (!QTest::qWaitFor([&] { return (bytes += m_peer->readAll()).endsWith(mark); }))
            return "the client does not answer any more";
        bytes.chop(mark.size());
        return bytes;
    }

private:
    QTcpServer m_server;
    bool m_isListening;
    QTcpSocket *m_peer = nullptr; ///< owned by the server
};
