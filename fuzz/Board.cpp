#include "Board.h"

#include "Promise.h"

#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

constexpr int patienceMs = 5000;

void waitForBytes(int fd) {
    pollfd line = {fd, POLLIN, 0};
    int ready = ::poll(&line, 1, patienceMs);
    while (ready < 0 && errno == EINTR) // the fuzzing library's own clock
        ready = ::poll(&line, 1, patienceMs);
    promise(ready == 1, "set-up: the pseudo-terminal hands on what was written");
}

int bytesWaiting(int fd) {
    int count = 0;
    promise(::ioctl(fd, FIONREAD, &count) == 0, "set-up: the pseudo-terminal tells what waits");
    return count;
}

} // namespace

/// Another may still hold the lock of the name: a process that has just given the pseudo-terminal back, or one with a
/// set of pseudo-terminals of its own, as in a container.
Board::Board() {
    constexpr int mostAttempts = 16;
    std::vector<std::pair<int, int>> passedOver;
    open();
    for (int attempt = 1; isLockedElsewhere() && attempt < mostAttempts; ++attempt) {
        passedOver.emplace_back(m_master, m_slave);
        open();
    }
    for (const auto &[master, slave] : passedOver) {
        (void)::close(master); // nothing was written
        (void)::close(slave);
    }
}

Board::~Board() {
    close();
}

void Board::open() {
    termios raw = {};
    cfmakeraw(&raw);
    char name[64] = {};
    promise(::openpty(&m_master, &m_slave, name, &raw, nullptr) == 0, "set-up: pseudo-terminal");
    m_portName = QString::fromLocal8Bit(name);
}

bool Board::isLockedElsewhere() const {
    const QString name = m_portName.mid(static_cast<int>(qstrlen("/dev/"))).replace(QLatin1Char('/'), QLatin1Char('_'));
    return QFile::exists(QStringLiteral("/var/lock/LCK..") + name);
}

void Board::close() {
    // Nothing was written that matters.
    if (m_slave >= 0)
        (void)::close(m_slave);
    if (m_master >= 0)
        (void)::close(m_master);
    m_slave = m_master = -1;
}

void Board::say(const QByteArray &bytes) {
    if (!isThere() || bytes.isEmpty())
        return;
    const int before = bytesWaiting(m_slave);
    promise(::write(m_master, bytes.constData(), static_cast<size_t>(bytes.size())) == bytes.size(), "set-up: say");
    while (bytesWaiting(m_slave) < before + bytes.size())
        waitForBytes(m_slave);
}

void Board::vanish() {
    close();
}

/// A mark sent after it tells when all of it has come through.
QByteArray Board::heard() {
    constexpr char mark = '\x06';
    if (!isThere())
        return {};
    promise(::write(m_slave, &mark, 1) == 1, "set-up: mark");
    while (!m_unread.endsWith(mark)) {
        waitForBytes(m_master);
        char bytes[512];
        const ssize_t count = ::read(m_master, bytes, sizeof bytes);
        promise(count > 0, "set-up: hear");
        m_unread.append(bytes, static_cast<int>(count));
    }
    m_unread.chop(1);
    return std::exchange(m_unread, QByteArray());
}

bool Board::isKeyed() {
    const QByteArray told = heard();
    const int on = told.lastIndexOf("PTT:1\n");
    const int off = told.lastIndexOf("PTT:0\n");
    if (on >= 0 || off >= 0)
        m_keyed = on > off;
    return m_keyed;
}
