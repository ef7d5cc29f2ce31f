#include "sim/site/CallTracer.h"

#include <cerrno>
#include <csignal>
#include <sys/ptrace.h>
#include <sys/uio.h>
#include <sys/wait.h>

namespace sim {
namespace {

constexpr int callStop = SIGTRAP | 0x80;
constexpr int signalMask = 0xff;

template <class Value>
void *asPointer(Value value) {
    return reinterpret_cast<void *>(std::uintptr_t(value));
}

} // namespace

CallTracer::CallTracer(pid_t process) : m_process(process) {
    m_isAttached = ptrace(PTRACE_SEIZE, m_process, nullptr, asPointer(PTRACE_O_TRACESYSGOOD)) == 0 &&
                   ptrace(PTRACE_INTERRUPT, m_process, nullptr, nullptr) == 0 && waitForStop();
}

CallTracer::~CallTracer() {
    if (m_isAttached) {
        ptrace(PTRACE_DETACH, m_process, nullptr, asPointer(m_signal)); // ended already is as good
    }
}

/// Without taking note of its end, which is whoever started it's to learn.
bool CallTracer::waitForStop() {
    siginfo_t info{};
    int result = 0;
    do {
        result = waitid(P_PID, id_t(m_process), &info, WSTOPPED | __WALL);
    } while (result != 0 && errno == EINTR);
    m_stop = info.si_status;
    return result == 0;
}

/// To its next stop at a call, on either side of it.
bool CallTracer::goToStop() {
    do {
        if (ptrace(PTRACE_SYSCALL, m_process, nullptr, asPointer(m_signal)) != 0 || !waitForStop())
            return false;
        const bool isEvent = m_stop > signalMask;
        m_signal = isEvent || m_stop == callStop ? 0 : m_stop;
    } while (m_stop != callStop);
    return true;
}

std::optional<SystemCall> CallTracer::next() {
    while (goToStop()) {
        __ptrace_syscall_info info{};
        if (ptrace(PTRACE_GET_SYSCALL_INFO, m_process, asPointer(sizeof info), &info) <= 0)
            return std::nullopt;
        if (info.op == PTRACE_SYSCALL_INFO_EXIT) {
            m_result = info.exit.rval;
        } else if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
            SystemCall call;
            call.number = info.entry.nr;
            for (std::size_t i = 0; i < call.arguments.size(); ++i)
                call.arguments[i] = info.entry.args[i];
            return call;
        }
    }
    return std::nullopt;
}

std::string CallTracer::textAt(std::uint64_t address) const {
    // Byte by byte: what follows a short text may not be readable.
    std::string text;
    for (char byte = 0; text.size() < 4096; text += byte) {
        const iovec here = {&byte, 1};
        const iovec there = {asPointer(address + text.size()), 1};
        if (process_vm_readv(m_process, &here, 1, &there, 1, 0) != 1 || byte == 0)
            break;
    }
    return text;
}

} // namespace sim
