#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>

namespace sim {

/// A system call that a process is about to make.
struct SystemCall {
    std::uint64_t number = 0; ///< SYS_...
    std::array<std::uint64_t, 6> arguments{};
};

/// Leads a process of one thread from system call to system call, as a debugger does, so that it can be ended between
/// any two of them. A child of this process, or anybody's when this one is root.
class CallTracer {
public:
    /// Stops the process. isAttached() tells whether the system lets us; else errno says why.
    explicit CallTracer(pid_t process);
    /// Lets it run on its own.
    ~CallTracer();
    CallTracer(const CallTracer &) = delete;
    CallTracer &operator=(const CallTracer &) = delete;

    bool isAttached() const { return m_isAttached; }
    /// Lets it make the call it stands before, and stops it before the next. Nothing when it has ended.
    std::optional<SystemCall> next();
    /// What the call before the present one has returned, negative errors included.
    std::int64_t result() const { return m_result; }
    /// A text in the process's memory; empty when there is none.
    std::string textAt(std::uint64_t address) const;

private:
    bool waitForStop();
    bool goToStop();

    const pid_t m_process;
    bool m_isAttached = false;
    int m_stop = 0;   ///< signal it stopped with, and the ptrace event above it
    int m_signal = 0; ///< to be delivered when it goes on
    std::int64_t m_result = 0;
};

} // namespace sim
