#include "net/DeadPeerDetection.h"

#include <algorithm>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace {

bool setOption(int socketDescriptor, int level, int option, int value) {
    return setsockopt(socketDescriptor, level, option, &value, sizeof value) == 0;
}

} // namespace

bool detectDeadPeer(int socketDescriptor, std::chrono::milliseconds silence) {
    // A probe every fifth of the span, the first after two fifths: three chances to be answered.
    constexpr int probes = 3;
    const int interval = std::max(1, static_cast<int>(std::chrono::floor<std::chrono::seconds>(silence / 5).count()));
    return setOption(socketDescriptor, SOL_SOCKET, SO_KEEPALIVE, 1) &&
           setOption(socketDescriptor, IPPROTO_TCP, TCP_KEEPIDLE, 2 * interval) &&
           setOption(socketDescriptor, IPPROTO_TCP, TCP_KEEPINTVL, interval) &&
           setOption(socketDescriptor, IPPROTO_TCP, TCP_KEEPCNT, probes) &&
           setOption(socketDescriptor, IPPROTO_TCP, TCP_USER_TIMEOUT, static_cast<int>(silence.count()));
}
