#pragma once

#include <QObject>
#include <QTimer>

#include <algorithm>

/// Number of running timers anywhere beneath an object.
inline int activeTimers(const QObject &owner) {
    const auto timers = owner.findChildren<QTimer *>();
    return static_cast<int>(
        std::count_if(timers.begin(), timers.end(), [](const QTimer *timer) { return timer->isActive(); }));
}
