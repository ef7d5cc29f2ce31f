#pragma once

#include <QList>
#include <QObject>
#include <QTimer>

#include <algorithm>

/// Intervals of the running timers anywhere beneath an object, shortest first.
inline QList<int> activeIntervalsMs(const QObject &owner) {
    const auto timers = owner.findChildren<QTimer *>();
    QList<int> intervals;
    for (const QTimer *timer : timers) {
        if (timer->isActive())
            intervals.append(timer->interval());
    }
    std::sort(intervals.begin(), intervals.end());
    return intervals;
}

/// Number of running timers anywhere beneath an object.
inline int activeTimers(const QObject &owner) {
    return activeIntervalsMs(owner).size();
}
