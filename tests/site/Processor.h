#pragma once

#include "TestSite.h"

#include <unistd.h>

/// One of the kernel's two sums for a process, in ns: 0, of the time it ran; 1, of the time it waited for a processor.
inline std::int64_t scheduleSum(qint64 processId, int which) {
    QFile statistics(QStringLiteral("/proc/%1/schedstat").arg(processId));
    return statistics.open(QIODevice::ReadOnly) ? statistics.readAll().split(' ').value(which).toLongLong() : 0;
}
inline double processorSeconds(qint64 processId) {
    return double(scheduleSum(processId, 0)) / 1e9;
}
inline std::int64_t waitedNs(qint64 processId) {
    return scheduleSum(processId, 1);
}

/// For how long all processors together have been taken away from this machine, in ns, if it is a virtual one: a
/// program that stands still by that counts as running.
inline std::int64_t stolenNs() {
    QFile statistics("/proc/stat"_s);
    if (!statistics.open(QIODevice::ReadOnly))
        return 0;
    constexpr int stolen = 8; // "cpu", user, nice, system, idle, iowait, irq, softirq, steal
    const QByteArray allProcessors = statistics.readLine().simplified();
    return allProcessors.split(' ').value(stolen).toLongLong() * (1'000'000'000 / sysconf(_SC_CLK_TCK));
}

/// Share of a processor that the daemon has over the next two seconds; 0 when it does not run.
inline double processorLoad(sim::Site &site) {
    const qint64 process = site.daemon().processId();
    const double before = processorSeconds(process);
    const std::int64_t beginNs = sim::monotonicNs();
    sim::Site::waitFor([&] { return secondsBetween(beginNs, sim::monotonicNs()) >= 2.0; }, 3000);
    return (processorSeconds(process) - before) / secondsBetween(beginNs, sim::monotonicNs());
}

/// The most memory the daemon ever had, in MB.
inline int mostMegabytesOf(const sim::Daemon &daemon) {
    QFile status(QStringLiteral("/proc/%1/status").arg(daemon.processId()));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toInt() / 1024;
    }
    return 0;
}

/// Nothing spins. Twice of very little is not held against it.
#define VERIFY_NOT_BUSIER(site, idleLoad)                                                                              \
    do {                                                                                                               \
        const double load = processorLoad(site);                                                                       \
        VERIFY_BETWEEN(idleLoad, 0.0005, 0.2);                                                                         \
        VERIFY_BETWEEN(load, 0.0, std::max(2.0 * idleLoad, 0.05));                                                     \
    } while (false)
