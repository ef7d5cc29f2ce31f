#include "sim/server/PacketFilter.h"

#include <QDebug>

#include <cerrno>
#include <cstring>
#include <linux/filter.h>
#include <sys/socket.h>

namespace sim {

bool dropIncoming(qintptr socket, bool drop) {
    sock_filter keepNothing[] = {BPF_STMT(BPF_RET | BPF_K, 0)};
    const sock_fprog program{1, keepNothing};
    const int unused = 0;
    const int result = drop ? setsockopt(int(socket), SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program)
                            : setsockopt(int(socket), SOL_SOCKET, SO_DETACH_FILTER, &unused, sizeof unused);
    const bool nothingToDetach = !drop && errno == ENOENT;
    if (result < 0 && !nothingToDetach) {
        qWarning() << "packet filter:" << std::strerror(errno);
        return false;
    }
    return true;
}

} // namespace sim
