#pragma once

#include <QString>
#include <QVector>

/// The stable identity of this box: 32 lower-case hex digits derived from host name, network address, machine
/// identifier, product type and kernel version. No side effects, not cached.
QString computeHardwareId();

/// What the identity is derived from; each may be empty.
struct HardwareTraits {
    QString hostName;
    QString networkAddress;
    QString machineId;
    QString productType;
    QString kernelVersion;
};

/// The first 16 bytes, in hex, of the SHA-256 of the five texts joined by "|" in UTF-8.
QString hardwareIdOf(const HardwareTraits &traits);

/// A network interface as far as the identity is concerned.
struct InterfaceTraits {
    bool isUp = false;
    bool isRunning = false;
    bool isLoopBack = false;
    QString hardwareAddress; ///< "AA:BB:CC:DD:EE:FF", or empty
};

/// Hardware address of the first interface that is up, running, not the loop-back and has one; all zeros without any.
QString primaryNetworkAddress(const QVector<InterfaceTraits> &interfaces);

/// The trimmed text of the first of the files that can be opened and is not blank; the fallback without any.
QString machineIdentifier(const QStringList &paths, const QString &fallback);
