#include "LoopWatch.h"

#include "Figures.h"
#include "sim/MonotonicClock.h"

#include <algorithm>
#include <array>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::int64_t periodNs = 200'000'000;
constexpr std::int64_t worthNotingNs = 100'000'000;
constexpr int lookMs = 5;
constexpr std::int64_t lookNs = 1'000'000LL * lookMs;

int watchOf(const QByteArray &file) {
    const int events = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (events < 0 || inotify_add_watch(events, file.constData(), IN_CLOSE_WRITE) < 0)
        qFatal("cannot watch %s", file.constData());
    return events;
}

bool hasEvents(int events) {
    std::array<char, 4096> bytes{};
    return read(events, bytes.data(), bytes.size()) > 0;
}

} // namespace

LoopWatch::LoopWatch(const QByteArray &file, qint64 processId)
    : m_processId(processId),
      m_events(watchOf(file)),
      m_lastSeen(now()),
      m_ranNs(scheduleOf(processId).ranNs),
      m_thread([this] { run(); }) {}

LoopWatch::~LoopWatch() {
    m_ends = true;
    m_thread.join();
    close(m_events); // nothing was written to it
}

LoopWatch::Moment LoopWatch::now() const {
    return {sim::monotonicNs(), scheduleOf(m_processId).waitedNs + m_lateNs};
}

LoopWatch::Moment LoopWatch::lastSeen() const {
    const std::lock_guard lock(m_mutex);
    return m_lastSeen;
}

std::vector<LoopWatch::Stall> LoopWatch::takeStalls() {
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_stalls, {});
}

void LoopWatch::run() {
    for (std::int64_t lastNs = sim::monotonicNs(); !m_ends;) {
        pollfd watched = {m_events, POLLIN, 0};
        poll(&watched, 1, lookMs); // whatever it says: the clock and the events tell
        const std::int64_t nowNs = sim::monotonicNs();
        m_lateNs += std::max<std::int64_t>(nowNs - lastNs - 2 * lookNs, 0);
        lastNs = nowNs;
        if (hasEvents(m_events))
            note(nowNs);
    }
}

void LoopWatch::note(std::int64_t nowNs) {
    ++m_rewrites;
    const Schedule schedule = scheduleOf(m_processId);
    const Moment seen = {nowNs, schedule.waitedNs + m_lateNs};
    const std::lock_guard lock(m_mutex);
    const std::int64_t lateNs = seen.timeNs - m_lastSeen.timeNs - periodNs;
    const std::int64_t ownNs = lateNs - (seen.machineNs - m_lastSeen.machineNs);
    if (lateNs > worthNotingNs) {
        m_stalls.push_back({seen.timeNs, double(lateNs) / 1e6, double(std::max<std::int64_t>(ownNs, 0)) / 1e6,
                            double(schedule.ranNs - m_ranNs) / 1e6});
    }
    m_lastSeen = seen;
    m_ranNs = schedule.ranNs;
}
