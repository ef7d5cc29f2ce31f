#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QTcpSocket>

namespace sim {

/// One client's control connection, seen from the server.
class ControlLink : public QObject {
    Q_OBJECT

public:
    /// Takes ownership of the connected socket.
    ControlLink(QTcpSocket *socket, QObject *parent);

    /// While silent nothing comes in, and what is sent waits until the link is heard again.
    void setSilent(bool silent);
    void send(const QByteArray &bytes);
    /// Closes once everything is sent. The object goes by itself; it signals nothing more.
    void hangUp();

Q_SIGNALS:
    void lineReceived(QString line);
    void closed();

private:
    void readLines();

    QTcpSocket *m_socket;
    QByteArray m_held;
    bool m_silent = false;
};

} // namespace sim
