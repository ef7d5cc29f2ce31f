#pragma once

#include <QByteArray>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

/// Watches the daemon's event loop from outside, on a thread of its own: five times a second the loop rewrites the file
/// of the levels, and the time between two rewrites is how long it was held up. What the machine had to do with it, the
/// daemon waiting for a processor or this thread coming late, is told apart.
class LoopWatch {
public:
    /// @param file  the level file; it must be there
    LoopWatch(const QByteArray &file, qint64 processId);
    ~LoopWatch();
    LoopWatch(const LoopWatch &) = delete;
    LoopWatch &operator=(const LoopWatch &) = delete;

    struct Stall {
        std::int64_t timeNs = 0; ///< CLOCK_MONOTONIC of its end
        double lateMs = 0.0;     ///< by which the rewrite came later than it should
        double ownMs = 0.0;      ///< of which the machine had no part in
        double ranMs = 0.0;      ///< what the daemon was given of a processor meanwhile
    };
    /// Everything that was later than a tenth of a second, since the last call.
    std::vector<Stall> takeStalls();
    struct Moment {
        std::int64_t timeNs = 0;    ///< CLOCK_MONOTONIC
        std::int64_t machineNs = 0; ///< how long the machine had kept the daemon or this watch waiting by then
    };
    Moment now() const;
    /// When the loop was last seen at work. What it has waited since then is not known yet.
    Moment lastSeen() const;
    int rewrites() const { return m_rewrites; }

private:
    void run();
    void note(std::int64_t nowNs);

    const qint64 m_processId;
    int m_events = -1;
    std::atomic<std::int64_t> m_lateNs{0}; ///< of this thread, so far
    std::atomic<int> m_rewrites{0};
    std::atomic<bool> m_ends{false};
    mutable std::mutex m_mutex; ///< guards the next three
    Moment m_lastSeen;
    std::int64_t m_ranNs = 0; ///< by then
    std::vector<Stall> m_stalls;
    std::thread m_thread; ///< last: it uses all the others
};
