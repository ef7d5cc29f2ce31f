#include "base/EpochClock.h"

#include <chrono>

qint64 steadyEpochMs() {
    using namespace std::chrono;
    static const auto steadyStart = steady_clock::now();
    static const qint64 wallStartMs = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    return wallStartMs + duration_cast<milliseconds>(steady_clock::now() - steadyStart).count();
}
