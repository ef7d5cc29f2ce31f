#pragma once

#include <chrono>

/// Makes the kernel give up on a TCP peer that has silently gone (cable pulled, power lost), so that the socket reports
/// an error at most about `silence` after the last sign of life.
///
/// Two means, since neither covers both cases: unacknowledged data are bounded by the user timeout, an idle link is
/// probed by keep-alive. With a user timeout set, it also decides when unanswered probes end the link; the probe count
/// is set to the same span for kernels that go by it. Keep-alive counts in whole seconds, at least 1.
/// @return false when the kernel refused an option; errno tells why.
bool detectDeadPeer(int socketDescriptor, std::chrono::milliseconds silence);
