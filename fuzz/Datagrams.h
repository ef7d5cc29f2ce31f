#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

/// An end of a media link: a UDP socket on a loopback address that no other process uses.
class Datagrams {
public:
    /// @param neighbour  0 for the process's own address; others are different addresses
    /// @param port       0 for any
    Datagrams(int neighbour, quint16 port);
    ~Datagrams();
    Datagrams(const Datagrams &) = delete;
    Datagrams &operator=(const Datagrams &) = delete;

    static QString address(int neighbour);
    quint16 port() const { return m_port; }

    /// What has come since the last call.
    QList<QByteArray> heard();
    /// Port of whoever was heard last; 0 before.
    quint16 peerPort() const { return m_peerPort; }
    /// To a port of the machine.
    void send(const QByteArray &datagram, quint16 to);

private:
    int m_socket;
    quint16 m_port;
    quint16 m_peerPort = 0;
};
