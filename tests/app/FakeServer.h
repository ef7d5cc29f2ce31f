#pragma once

#include <QByteArray>
#include <QList>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

#include <chrono>

/// A voice server that says only what a test tells it to, and keeps what it hears.
class FakeServer : public QTcpServer {
public:
    FakeServer() {
        listen(QHostAddress::LocalHost);
        connect(this, &QTcpServer::newConnection, this, &FakeServer::accept);
    }

    bool hasClient() const { return m_client != nullptr; }

    void say(const QByteArray &line) {
        m_client->write(line + "\r\n");
        m_client->flush();
    }

    /// Refuses connections. The port is kept from programs that take any free one, and can be listened at again.
    void goAway() {
        const quint16 port = serverPort();
        close();
        m_portKeeper.bind(QHostAddress::LocalHost, port, QAbstractSocket::ReuseAddressHint);
    }

    void hangUp() { m_client->disconnectFromHost(); }

    /// What was heard since the last call, up to and without the given command, for which it waits.
    QList<QByteArray> heardBefore(const QByteArray &command) {
        if (!QTest::qWaitFor([&] { return m_lines.contains(command + "\r\n"); }))
            return {"(never heard " + command + ")"};
        QList<QByteArray> lines;
        while (m_lines.first() != command + "\r\n")
            lines.append(m_lines.takeFirst());
        m_lines.removeFirst();
        return lines;
    }

    bool hears(const QByteArray &command, std::chrono::milliseconds patience = std::chrono::seconds(5)) {
        return QTest::qWaitFor([&] { return hasHeard(command); }, static_cast<int>(patience.count()));
    }

    bool hasHeard(const QByteArray &command) const { return m_lines.contains(command + "\r\n"); }

    void forget() { m_lines.clear(); }

private:
    void accept() {
        m_client = nextPendingConnection();
        connect(m_client, &QTcpSocket::readyRead, this, &FakeServer::read);
        connect(m_client, &QTcpSocket::disconnected, this, [this, client = m_client] {
            if (m_client == client)
                m_client = nullptr;
        });
    }

    void read() {
        while (m_client && m_client->canReadLine())
            m_lines.append(m_client->readLine());
    }

    QTcpSocket m_portKeeper;
    QTcpSocket *m_client = nullptr;
    QList<QByteArray> m_lines;
};
