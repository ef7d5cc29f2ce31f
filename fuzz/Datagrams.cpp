#include "Datagrams.h"

#include "Loopback.h"

#include <QHostAddress>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

Datagrams::Datagrams(int neighbour, quint16 port)
    : m_socket(Loopback::boundSocket(SOCK_DGRAM, neighbour, port)),
      m_port(Loopback::portOf(m_socket)) {}

Datagrams::~Datagrams() {
    (void)::close(m_socket); // nothing was written that matters
}

QString Datagrams::address(int neighbour) {
    return QHostAddress(Loopback::address(neighbour)).toString();
}

QList<QByteArray> Datagrams::heard() {
    QList<QByteArray> datagrams;
    static char bytes[65536];
    sockaddr_in speaker = {};
    for (;;) {
        socklen_t length = sizeof speaker;
        const ssize_t size =
            ::recvfrom(m_socket, bytes, sizeof bytes, 0, reinterpret_cast<sockaddr *>(&speaker), &length);
        if (size < 0)
            return datagrams;
        m_peerPort = ntohs(speaker.sin_port);
        datagrams.append(QByteArray(bytes, static_cast<int>(size)));
    }
}

void Datagrams::send(const QByteArray &datagram, quint16 to) {
    sockaddr_in peer = {};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(to);
    peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    // Where nobody listens (any more), the datagram is lost.
    (void)::sendto(m_socket, datagram.constData(), static_cast<size_t>(datagram.size()), 0,
                   reinterpret_cast<const sockaddr *>(&peer), sizeof peer);
}
