#include "Loopback.h"

#include "Promise.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

quint32 Loopback::address(int neighbour) {
    constexpr quint32 net = 127U << 24U;
    constexpr quint32 half = 1U << 23U; // process numbers stay below it, and common addresses beside it
    return net | half | (neighbour == 0 ? 0 : half >> 1U) | static_cast<quint32>(::getpid());
}

int Loopback::boundSocket(int type, int neighbour, quint16 port) {
    const int fd = ::socket(AF_INET, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_in own = {};
    own.sin_family = AF_INET;
    own.sin_port = htons(port);
    own.sin_addr.s_addr = htonl(address(neighbour));
    promise(fd >= 0 && ::bind(fd, reinterpret_cast<sockaddr *>(&own), sizeof own) == 0, "set-up: socket");
    return fd;
}

quint16 Loopback::portOf(int socket) {
    sockaddr_in own = {};
    socklen_t length = sizeof own;
    promise(::getsockname(socket, reinterpret_cast<sockaddr *>(&own), &length) == 0, "set-up: port");
    return ntohs(own.sin_port);
}
