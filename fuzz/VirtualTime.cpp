#include "VirtualTime.h"

#include "Promise.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <algorithm>
#include <cerrno>
#include <limits>

void VirtualTime::settle() {
    constexpr int mostRounds = 100000;
    int rounds = 0;
    while (processEvents(QEventLoop::AllEvents))
        promise(++rounds < mostRounds, "the event loop comes to rest");
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

void VirtualTime::awaitInput() const {
    constexpr int patienceMs = 500;
    std::vector<pollfd> listening = sockets();
    std::erase_if(listening, [](const pollfd &socket) { return socket.events != POLLIN; });
    if (listening.empty())
        return;
    while (::poll(listening.data(), listening.size(), patienceMs) < 0 && errno == EINTR) {
        // The fuzzing library's own clock: waited on.
    }
}

void VirtualTime::pass(ms span) {
    const qint64 untilMs = m_nowMs + span.count();
    settle();
    while (nextDueMs() <= untilMs) {
        m_nowMs = std::max(m_nowMs, nextDueMs());
        settle();
    }
    m_nowMs = untilMs;
}

bool VirtualTime::processEvents(QEventLoop::ProcessEventsFlags) {
    QCoreApplication::sendPostedEvents();
    const bool served = serveSockets();
    return fireTimers() || served;
}

bool VirtualTime::hasPendingEvents() {
    return nextDueMs() <= m_nowMs;
}

void VirtualTime::registerSocketNotifier(QSocketNotifier *notifier) {
    m_notifiers.push_back(notifier);
}

void VirtualTime::unregisterSocketNotifier(QSocketNotifier *notifier) {
    m_notifiers.erase(std::remove(m_notifiers.begin(), m_notifiers.end(), notifier), m_notifiers.end());
}

void VirtualTime::registerTimer(int id, int interval, Qt::TimerType type, QObject *object) {
    m_timers[id] = {object, type, interval, m_nowMs + interval};
}

bool VirtualTime::unregisterTimer(int id) {
    return m_timers.erase(id) > 0;
}

bool VirtualTime::unregisterTimers(QObject *object) {
    return std::erase_if(m_timers, [object](const auto &entry) { return entry.second.object == object; }) > 0;
}

QList<QAbstractEventDispatcher::TimerInfo> VirtualTime::registeredTimers(QObject *object) const {
    QList<TimerInfo> timers;
    for (const auto &[id, timer] : m_timers) {
        if (timer.object == object)
            timers.append({id, timer.interval, timer.type});
    }
    return timers;
}

int VirtualTime::remainingTime(int id) {
    const auto timer = m_timers.find(id);
    return timer == m_timers.end() ? -1 : static_cast<int>(std::max<qint64>(timer->second.dueMs - m_nowMs, 0));
}

std::vector<pollfd> VirtualTime::sockets() const {
    std::vector<pollfd> sockets;
    for (const QSocketNotifier *notifier : m_notifiers) {
        const bool reads = notifier->type() == QSocketNotifier::Read;
        sockets.push_back({static_cast<int>(notifier->socket()), static_cast<short>(reads ? POLLIN : POLLOUT), 0});
    }
    return sockets;
}

bool VirtualTime::serveSockets() {
    std::vector<pollfd> polled = sockets();
    if (::poll(polled.data(), polled.size(), 0) <= 0)
        return false;
    const std::vector<QSocketNotifier *> notifiers = m_notifiers;
    for (std::size_t i = 0; i < polled.size(); ++i) {
        // Serving one may have taken another away.
        const bool isThere = std::find(m_notifiers.begin(), m_notifiers.end(), notifiers[i]) != m_notifiers.end();
        if (polled[i].revents != 0 && isThere) {
            QEvent ready(QEvent::SockAct);
            QCoreApplication::sendEvent(notifiers[i], &ready);
        }
    }
    return true;
}

bool VirtualTime::fireTimers() {
    std::vector<int> due;
    for (const auto &[id, timer] : m_timers) {
        if (timer.dueMs <= m_nowMs)
            due.push_back(id);
    }
    for (const int id : due) {
        const auto timer = m_timers.find(id);
        if (timer == m_timers.end())
            continue;
        timer->second.dueMs = m_nowMs + timer->second.interval;
        QTimerEvent event(id);
        QCoreApplication::sendEvent(timer->second.object, &event);
    }
    return !due.empty();
}

qint64 VirtualTime::nextDueMs() const {
    qint64 dueMs = std::numeric_limits<qint64>::max();
    for (const auto &entry : m_timers)
        dueMs = std::min(dueMs, entry.second.dueMs);
    return dueMs;
}
