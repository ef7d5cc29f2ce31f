#include "audio/DueTicks.h"

void DueTicks::start(qint64 nowMs, int intervalMs) {
    m_startMs = nowMs;
    m_intervalMs = intervalMs;
    m_taken = 0;
}

int DueTicks::take(qint64 nowMs) {
    // Rounded, since a tick may be seen a little before or after its time.
    const qint64 soFar = (nowMs - m_startMs + m_intervalMs / 2) / m_intervalMs;
    const qint64 due = soFar - m_taken;
    if (due < 0 || due > mostDue) {
        start(nowMs, m_intervalMs);
        return 1;
    }
    m_taken += due > 1 ? due : 1;
    return due > 1 ? int(due) : 1;
}
