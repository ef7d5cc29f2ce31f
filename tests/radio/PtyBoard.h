#pragma once

#include <QByteArray>
#include <QString>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

/// The other end of a serial line: stands for the board, on a pty. Outlives whoever opens the device.
class PtyBoard {
public:
    PtyBoard() : m_fd(::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {
        char name[64] = {};
        if (m_fd < 0 || ::grantpt(m_fd) != 0 || ::unlockpt(m_fd) != 0 || ::ptsname_r(m_fd, name, sizeof name) != 0)
            qFatal("pty: %s", strerror(errno));
        m_device = QString::fromLocal8Bit(name);
        m_deviceFd = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (m_deviceFd < 0)
            qFatal("%s: %s", name, strerror(errno));
    }
    ~PtyBoard() {
        vanish();
        ::close(m_deviceFd);
    }
    PtyBoard(const PtyBoard &) = delete;
    PtyBoard &operator=(const PtyBoard &) = delete;

    /// Path of the serial device.
    QString device() const { return m_device; }

    void say(const QByteArray &bytes) {
        if (::write(m_fd, bytes.constData(), size_t(bytes.size())) != bytes.size())
            qFatal("write to the pty: %s", strerror(errno));
    }

    /// Everything that has been received up to now.
    QByteArray heard() {
        char chunk[4096];
        for (ssize_t count = 0; (count = ::read(m_fd, chunk, sizeof chunk)) > 0;)
            m_heard.append(chunk, static_cast<int>(count));
        return m_heard;
    }

    /// Waits for bytes without a turn of the event loop; false when none come within 5 s.
    bool hasBytes() const {
        pollfd line = {m_fd, POLLIN, 0};
        return ::poll(&line, 1, 5000) == 1 && (line.revents & POLLIN);
    }

    /// Is pulled out.
    void vanish() {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = -1;
    }

private:
    int m_fd;
    int m_deviceFd = -1; ///< keeps the device's name from another program until the port's lock on it is gone
    QString m_device;
    QByteArray m_heard;
};
