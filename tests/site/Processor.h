#pragma once

#include "TestSite.h"

/// Processor time that a process has had so far, in seconds.
inline double processorSeconds(qint64 processId) {
    QFile statistics(QStringLiteral("/proc/%1/schedstat").arg(processId));
    if (!statistics.open(QIODevice::ReadOnly))
        return 0.0;
    return statistics.readAll().split(' ').first().toDouble() / 1e9;
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

/// Ratio of its load to that of before: nothing spins. What is left of very little by chance is not held against it.
#define VERIFY_NOT_BUSIER(site, idleLoad)                                                                              \
    do {                                                                                                               \
        const double load = processorLoad(site);                                                                       \
        VERIFY_BETWEEN(idleLoad, 0.0005, 0.2);                                                                         \
        VERIFY_BETWEEN(load / idleLoad, 0.0, 2.0);                                                                     \
    } while (false)
