#include "sim/server/ControlLink.h"

#include "sim/server/PacketFilter.h"

#include <utility>

namespace sim {

namespace {

/// No command is this long; a client that sends it is not one of ours.
constexpr qint64 longestLine = 16 << 10;

} // namespace

ControlLink::ControlLink(QTcpSocket *socket, QObject *parent) : QObject(parent), m_socket(socket) {
    m_socket->setParent(this);
    m_socket->setReadBufferSize(longestLine);
    m_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    connect(m_socket, &QTcpSocket::readyRead, this, &ControlLink::readLines);
    connect(m_socket, &QTcpSocket::disconnected, this, &ControlLink::closed);
}

void ControlLink::setSilent(bool silent) {
    m_silent = silent;
    dropIncoming(m_socket->socketDescriptor(), silent);
    if (!silent)
        m_socket->write(std::exchange(m_held, QByteArray()));
}

void ControlLink::send(const QByteArray &bytes) {
    if (m_silent) {
        m_held += bytes;
        return;
    }
    if (!m_socket->isOpen()) {
        return; // the client has gone a moment ago
    }
    m_socket->write(bytes);
    m_socket->flush();
}

void ControlLink::hangUp() {
    disconnect(m_socket, nullptr, this, nullptr);
    disconnect(this, nullptr, nullptr, nullptr);
    connect(m_socket, &QTcpSocket::disconnected, this, &QObject::deleteLater);
    m_socket->disconnectFromHost();
    if (m_socket->state() == QAbstractSocket::UnconnectedState)
        deleteLater();
}

void ControlLink::readLines() {
    while (m_socket->canReadLine()) {
        QByteArray line = m_socket->readLine();
        line.chop(line.endsWith("\r\n") ? 2 : 1);
        Q_EMIT lineReceived(QString::fromUtf8(line));
    }
    if (m_socket->bytesAvailable() >= longestLine)
        m_socket->abort();
}

} // namespace sim
