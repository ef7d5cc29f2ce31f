#pragma once

#include <QAbstractEventDispatcher>

#include <chrono>
#include <map>
#include <poll.h>
#include <vector>

/// The event loop of a fuzzer: sockets are served as ever, but timers go by a time that passes only when told to. Half
/// a minute of reconnecting then costs no more than what happens in it, and happens the same way each time.
class VirtualTime : public QAbstractEventDispatcher {
public:
    using ms = std::chrono::milliseconds;

    /// Milliseconds since the epoch, more or less.
    qint64 nowMs() const { return m_nowMs; }
    /// Lets happen what is due, until nothing is left to do. A loop that does not come to rest is a finding.
    void settle();
    /// Waits, in real time, until there is something to be read: what has been sent is handed on a moment later where
    /// the machine is busy. Does nothing where nobody listens.
    void awaitInput() const;
    /// Lets time pass, everything happening at its moment.
    void pass(ms span);

    bool processEvents(QEventLoop::ProcessEventsFlags flags) override;
    bool hasPendingEvents() override;
    void registerSocketNotifier(QSocketNotifier *notifier) override;
    void unregisterSocketNotifier(QSocketNotifier *notifier) override;
    void registerTimer(int id, int interval, Qt::TimerType type, QObject *object) override;
    bool unregisterTimer(int id) override;
    bool unregisterTimers(QObject *object) override;
    QList<TimerInfo> registeredTimers(QObject *object) const override;
    int remainingTime(int id) override;
    void wakeUp() override {}
    void interrupt() override {}
    void flush() override {}

private:
    struct Timer {
        QObject *object;
        Qt::TimerType type;
        int interval;
        qint64 dueMs;
    };

    std::vector<pollfd> sockets() const;
    bool serveSockets();
    bool fireTimers();
    qint64 nextDueMs() const;

    qint64 m_nowMs = 1'700'000'000'000;
    std::map<int, Timer> m_timers;
    std::vector<QSocketNotifier *> m_notifiers;
};
