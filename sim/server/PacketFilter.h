#pragma once

#include <QtGlobal>

namespace sim {

/// Makes the kernel drop every packet that comes in for this socket, or take them again. To the other side a socket
/// that drops looks like a pulled cable: no answer, no reset. False with a warning when the kernel refuses.
bool dropIncoming(qintptr socket, bool drop);

} // namespace sim
