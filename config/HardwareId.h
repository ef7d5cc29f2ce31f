#pragma once

#include <QString>

/// The stable identity of this box: 32 lower-case hex digits derived from host name, network address, machine
/// identifier, product type and kernel version. No side effects, not cached.
QString computeHardwareId();
