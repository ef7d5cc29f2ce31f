#pragma once

#include "net/UdpAudio.h"

#include <QHostAddress>
#include <QUdpSocket>
#include <QtTest>

#include <chrono>

/// The media server: a socket on loopback that hears one link.
class MediaServer {
public:
    explicit MediaServer(const QHostAddress &address = QHostAddress(QHostAddress::LocalHost)) {
        m_isBound = m_socket.bind(address);
    }

    bool isBound() const { return m_isBound; }
    quint16 port() const { return m_socket.localPort(); }

    /// The next datagram of the link, or nothing within the deadline.
    QByteArray hear() {
        if (!QTest::qWaitFor([this] { return m_socket.hasPendingDatagrams(); }))
            return {};
        QByteArray datagram(static_cast<int>(m_socket.pendingDatagramSize()), '\0');
        m_socket.readDatagram(datagram.data(), datagram.size(), nullptr, &m_linkPort);
        return datagram;
    }

    bool hearsNothing() const { return !m_socket.hasPendingDatagrams(); }

    void say(const QByteArray &datagram, quint16 linkPort = 0) {
        m_socket.writeDatagram(datagram, QHostAddress(QHostAddress::LocalHost), linkPort != 0 ? linkPort : m_linkPort);
    }

    quint16 linkPort() const { return m_linkPort; }

private:
    QUdpSocket m_socket;
    bool m_isBound = false;
    quint16 m_linkPort = 0;
};

inline const QString host = QStringLiteral("127.0.0.1");
inline const QString token = QStringLiteral("secret-token");

/// Intervals that never pass within a test.
inline constexpr UdpTimings patient = {std::chrono::hours(1), std::chrono::hours(1), std::chrono::hours(1)};

inline QByteArray frameFrom(int speaker, const QByteArray &frame) {
    return QByteArray::fromHex(QByteArray::number(speaker, 16).rightJustified(8, '0')) + frame;
}

/// Takes the link through its handshake; true when it is ready.
inline bool makeReady(UdpAudio &link, MediaServer &server) {
    link.enableUdp(host, server.port(), token);
    if (server.hear() != "PING")
        return false;
    server.say("PONG");
    if (!server.hear().startsWith("TOKEN:"))
        return false;
    server.say("OK");
    return QTest::qWaitFor([&link] { return link.isReady(); });
}
