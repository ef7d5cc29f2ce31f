#pragma once

#include <QtGlobal>

#include <cstdint>

/// What the kernel tells about a process.
struct Figures {
    // Without the memory of the simulated card, which on a real one is the kernel's.
    double residentMb = 0.0;
    double privateDirtyMb = 0.0;
    int descriptors = 0;
    int timers = 0; ///< timer descriptors; timers of an event loop are no more than the time-out of its poll
    int threads = 0;
    double wakeUps = 0.0; ///< so far, of all threads
};
Figures figuresOf(qint64 processId);

/// What the kernel counts of a process's main thread, so far.
struct Schedule {
    std::int64_t ranNs = 0;
    std::int64_t waitedNs = 0; ///< ready to run, but without a processor; counted when it gets one
};
Schedule scheduleOf(qint64 processId);
