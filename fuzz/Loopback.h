#pragma once

#include <QtGlobal>

/// Sockets on loopback addresses that are derived from the process number, so that fuzzers that run side by side never
/// meet.
namespace Loopback {

/// IPv4, host byte order.
/// @param neighbour  0 or 1: two addresses of this process
quint32 address(int neighbour = 0);
/// A bound socket that never waits. @param type  SOCK_STREAM or SOCK_DGRAM; @param port  0 for any
int boundSocket(int type, int neighbour, quint16 port);
quint16 portOf(int socket);

} // namespace Loopback
