#include "Server.h"

#include "Loopback.h"
#include "Promise.h"

#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr quint16 mediaPort = 8082;

template <class Value>
void setOption(int fd, int level, int option, const Value &value) {
    promise(::setsockopt(fd, level, option, &value, sizeof value) == 0, "set-up: socket option");
}

/// What is said arrives at once, and the end is one at once: a close in order would keep the port busy for a minute.
void setUpLink(int fd) {
    setOption(fd, IPPROTO_TCP, TCP_NODELAY, 1);
    setOption(fd, SOL_SOCKET, SO_LINGER, linger{1, 0});
}

} // namespace

Server::Server()
    : m_listener(Loopback::boundSocket(SOCK_STREAM, 0, 0)),
      m_port(Loopback::portOf(m_listener)),
      m_media(0, mediaPort) {
    promise(::listen(m_listener, 1) == 0, "set-up: listen");
}

Server::~Server() {
    closeLink();
    (void)::close(m_listener); // nothing was written that matters
}

void Server::awaitConnection() const {
    constexpr int patienceMs = 5000;
    pollfd listener = {m_listener, POLLIN, 0};
    while (::poll(&listener, 1, patienceMs) < 0 && errno == EINTR) {
        // The fuzzing library's own clock: waited on.
    }
}

bool Server::isHeard() const {
    pollfd link = {m_link, POLLRDHUP, 0};
    return isConnected() && ::poll(&link, 1, 0) == 0;
}

void Server::accept() {
    const int fd = ::accept4(m_listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0)
        return;
    closeLink();
    m_link = fd;
    setUpLink(m_link);
}

void Server::say(std::string_view bytes) {
    // A link that has gone takes nothing, and its end is noticed elsewhere.
    if (isConnected())
        (void)::send(m_link, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

void Server::hangUp() {
    if (isConnected())
        (void)::shutdown(m_link, SHUT_WR); // fails where the other side was faster
}

void Server::reset() {
    closeLink();
}

QByteArray Server::heard() {
    QByteArray bytes;
    char chunk[4096];
    for (;;) {
        const ssize_t count = isConnected() ? ::recv(m_link, chunk, sizeof chunk, 0) : 0;
        if (count <= 0)
            return bytes;
        bytes.append(chunk, static_cast<int>(count));
    }
}

void Server::sendDatagram(const QByteArray &datagram) {
    m_media.heard();
    m_media.send(datagram, m_media.peerPort());
}

void Server::closeLink() {
    if (isConnected())
        (void)::close(std::exchange(m_link, -1)); // nothing was written that matters
}
