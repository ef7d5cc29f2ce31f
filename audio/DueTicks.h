#pragma once

#include <QtGlobal>

/// Counts the ticks of a repeating timer against a clock. A timer leaves out what falls due while the loop is held up;
/// this tells how many there should have been. Pure: the caller has the clock.
class DueTicks {
public:
    /// @param intervalMs  1 or more
    void start(qint64 nowMs, int intervalMs);
    /// To be asked at each tick: how many are due with it, itself included, so at least 1. A stall of more than mostDue
    /// intervals, or a clock that has jumped, begins a new count.
    int take(qint64 nowMs);

    static constexpr int mostDue = 10;

private:
    qint64 m_startMs = 0;
    int m_intervalMs = 20;
    qint64 m_taken = 0; ///< since the start
};
