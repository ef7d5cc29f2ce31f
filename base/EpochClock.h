#pragma once

#include <QtGlobal>

#include <functional>

/// A source of milliseconds since the epoch, handed to whoever needs the time so that a test can hand in another.
using EpochClock = std::function<qint64()>;

/// Milliseconds since the epoch that never step: the wall clock at the first call of the process plus what a monotonic
/// clock has counted since. Small computers boot with a wrong time and correct it later by years; differences of these
/// values stay right all the same. Thread-safe.
qint64 steadyEpochMs();
