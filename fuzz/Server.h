#pragma once

#include "Datagrams.h"

#include <QByteArray>
#include <QString>

#include <string_view>

/// The voice server's end of the control and the media link, on a loopback address that no other process uses.
class Server {
public:
    Server();
    ~Server();
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    static QString address() { return Datagrams::address(0); }
    quint16 port() const { return m_port; }

    /// Waits, in real time, for a connection.
    void awaitConnection() const;
    /// Takes the connection that waits, if one does.
    void accept();
    bool isConnected() const { return m_link >= 0; }
    /// Whether there is somebody at the other end.
    bool isHeard() const;
    void say(std::string_view bytes);
    /// Ends the connection in order, or at once as a server that has crashed.
    void hangUp();
    void reset();
    /// What it was told over the control link since the last call.
    QByteArray heard();
    /// Over the media link to whoever has spoken last there; what was said is forgotten.
    void sendDatagram(const QByteArray &datagram);

private:
    void closeLink();

    int m_listener;
    quint16 m_port;
    int m_link = -1;
    Datagrams m_media;
};
