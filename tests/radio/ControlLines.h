#pragma once

#include <QList>

#include <cerrno>
#include <cstdarg>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

/// The modem-control lines of a real serial device, which a pty lacks: while it lives, the requests of this program
/// that concern them are answered here. One at a time. To be included once in a program.
class ControlLines {
public:
    /// @param error  errno of every request that sets a line; 0 for lines that can be set
    explicit ControlLines(int error) : m_error(error) { current() = this; }
    ~ControlLines() { current() = nullptr; }
    ControlLines(const ControlLines &) = delete;
    ControlLines &operator=(const ControlLines &) = delete;

    /// TIOCM_ bits of the lines that have been asked to go low, in order.
    QList<int> lowered() const { return m_lowered; }

    static ControlLines *&current() {
        static ControlLines *lines = nullptr;
        return lines;
    }

    static bool concernsThem(unsigned long request) {
        return request == TIOCMGET || request == TIOCMSET || request == TIOCMBIS || request == TIOCMBIC;
    }

    int answer(unsigned long request, int *bits) {
        if (request == TIOCMGET) {
            *bits = TIOCM_DTR | TIOCM_RTS;
            return 0;
        }
        if (request == TIOCMBIC)
            m_lowered.append(*bits);
        errno = m_error;
        return m_error == 0 ? 0 : -1;
    }

private:
    int m_error;
    QList<int> m_lowered;
};

/// Stands before the C library's function of the name.
extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    if (ControlLines::current() && ControlLines::concernsThem(request))
        return ControlLines::current()->answer(request, static_cast<int *>(argument));
    return static_cast<int>(::syscall(SYS_ioctl, fd, request, argument));
}
