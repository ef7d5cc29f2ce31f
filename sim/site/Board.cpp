#include "sim/site/Board.h"

#include "sim/MonotonicClock.h"

#include <QDebug>
#include <QFile>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace sim {
namespace {

/// No echo, no translation: a line of bytes.
bool makeRaw(int slave) {
    termios settings{};
    if (tcgetattr(slave, &settings) != 0)
        return false;
    cfmakeraw(&settings);
    return tcsetattr(slave, TCSANOW, &settings) == 0;
}

/// Not at once: it may be the one that has just called.
void discard(QSocketNotifier *&notifier) {
    if (notifier != nullptr) {
        notifier->setEnabled(false);
        notifier->deleteLater();
        notifier = nullptr;
    }
}

void closeDescriptor(int &fd) {
    if (fd >= 0) {
        close(fd); // whatever it says, it is gone
        fd = -1;
    }
}

} // namespace

Board::Board(const QString &devpts, QObject *parent) : QObject(parent) {
    if (!makePort(devpts)) {
        qWarning() << "no pseudo-terminal in" << devpts << std::strerror(errno);
        vanish();
        return;
    }
    watch(m_master, m_readable, QSocketNotifier::Read, &Board::onReadable);
    watch(m_master, m_writable, QSocketNotifier::Write, &Board::onWritable);
    watch(m_openings, m_opened, QSocketNotifier::Read, &Board::lookWhoIsThere);
}

Board::~Board() {
    vanish();
}

bool Board::makePort(const QString &devpts) {
    m_master = open(QFile::encodeName(devpts + QStringLiteral("/ptmx")).constData(),
                    O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    const int unlocked = 0;
    int number = 0;
    if (m_master < 0 || ioctl(m_master, TIOCSPTLCK, &unlocked) != 0 || ioctl(m_master, TIOCGPTN, &number) != 0)
        return false;
    m_portName = devpts + QLatin1Char('/') + QString::number(number);
    const QByteArray path = QFile::encodeName(m_portName);
    m_slave = open(path.constData(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    m_openings = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    return m_slave >= 0 && makeRaw(m_slave) && m_openings >= 0 &&
           inotify_add_watch(m_openings, path.constData(), IN_OPEN | IN_CLOSE) >= 0;
}

void Board::watch(int fd, QSocketNotifier *&notifier, QSocketNotifier::Type type, void (Board::*handler)()) {
    notifier = new QSocketNotifier(fd, type, this);
    connect(notifier, &QSocketNotifier::activated, this, handler);
}

void Board::announceReady() {
    sendRaw("ARDUINO:READY\r\n");
}

void Board::setSquelch(bool open) {
    sendRaw(open ? "COS:1\r\n" : "COS:0\r\n");
}

void Board::reset() {
    setKeyed(false);
    m_received.clear();
    m_unsent.clear();
    announceReady();
}

void Board::sendRaw(const QByteArray &bytes) {
    lookWhoIsThere();
    if (m_isPortOpen) {
        m_unsent += bytes;
        onWritable();
    }
}

void Board::vanish() {
    discard(m_readable);
    discard(m_writable);
    discard(m_opened);
    closeDescriptor(m_openings);
    closeDescriptor(m_slave);
    closeDescriptor(m_master);
    m_received.clear();
    setPortOpen(false);
}

void Board::onWritable() {
    const ssize_t count = write(m_master, m_unsent.constData(), std::size_t(m_unsent.size()));
    if (count > 0) {
        m_unsent.remove(0, int(count));
    } else if (count < 0 && errno != EAGAIN) {
        m_unsent.clear(); // a line that takes nothing has lost it
    }
    m_writable->setEnabled(!m_unsent.isEmpty());
}

void Board::onReadable() {
    lookWhoIsThere();
    std::array<char, 4096> bytes{};
    const ssize_t count = read(m_master, bytes.data(), bytes.size());
    if (count <= 0) {
        return; // woken for nothing: the line never ends while its other end is kept open
    }
    m_received.append(bytes.data(), int(count));
    for (int end = m_received.indexOf('\n'); end >= 0; end = m_received.indexOf('\n')) {
        const QByteArray line = m_received.left(end).trimmed();
        m_received.remove(0, end + 1);
        obey(line);
    }
}

void Board::lookWhoIsThere() {
    // Events of one watched file carry no name: all have the same length.
    std::array<inotify_event, 64> events{};
    for (ssize_t bytes = 1; bytes > 0;) {
        bytes = read(m_openings, events.data(), sizeof events);
        for (std::size_t i = 0; bytes > 0 && i < std::size_t(bytes) / sizeof(inotify_event); ++i) {
            // Never below none: the kernel tells equal events that follow one another as one.
            m_openCount = std::max(0, m_openCount + ((events[i].mask & IN_OPEN) != 0 ? 1 : -1));
            setPortOpen(m_openCount > 0);
        }
    }
}

void Board::setPortOpen(bool open) {
    if (open == m_isPortOpen)
        return;
    m_isPortOpen = open;
    m_unsent.clear();
    if (open) {
        Q_EMIT portOpened();
        return;
    }
    if (isThere()) {
        // As when the last user closes a real port: what was not read is lost, and it is nobody's own any more. Should
        // either fail, the next user notices.
        tcflush(m_slave, TCIFLUSH);
        ioctl(m_slave, TIOCNXCL);
    }
    Q_EMIT portClosed();
}

void Board::obey(const QByteArray &line) {
    m_linesHeard.append(line);
    Q_EMIT lineHeard(line);
    if (line == "PING") {
        sendRaw("PONG\r\n");
    } else if (line == "PTT:1" || line == "PTT:0") {
        setKeyed(line == "PTT:1");
        sendRaw(m_isKeyed ? "PTT_ON\r\n" : "PTT_OFF\r\n");
    }
}

void Board::setKeyed(bool keyed) {
    if (keyed != m_isKeyed) {
        m_isKeyed = keyed;
        m_keyings.push_back({monotonicNs(), keyed});
        Q_EMIT pttChanged(keyed);
    }
}

} // namespace sim
