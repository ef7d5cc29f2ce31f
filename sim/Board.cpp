#include "sim/Board.h"

#include "sim/MonotonicClock.h"

#include <QDebug>
#include <QFile>

#include <array>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace sim {
namespace {

using namespace std::chrono_literals;

/// How often a port that nobody has open is looked at. The kernel tells of a closed pseudo-terminal without end, but
/// never when it is opened again.
constexpr auto openingInterval = 5ms;

/// No echo, no translation: a line of bytes. The settings belong to the slave's end, whoever opens it.
bool makeRaw(int master) {
    termios settings{};
    if (tcgetattr(master, &settings) != 0) {
        return false;
    }
    cfmakeraw(&settings);
    return tcsetattr(master, TCSANOW, &settings) == 0;
}

/// Opens and closes the port once: only then does the kernel report it as closed.
bool openOnce(const QByteArray &portName) {
    const int slave = open(portName.constData(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    return slave >= 0 && close(slave) == 0;
}

/// Not at once: it may be the one that has just called.
void discard(QSocketNotifier *&notifier) {
    if (notifier != nullptr) {
        notifier->setEnabled(false);
        notifier->deleteLater();
        notifier = nullptr;
    }
}

} // namespace

Board::Board(const QString &devpts, QObject *parent) : QObject(parent) {
    connect(&m_openingTimer, &QTimer::timeout, this, &Board::lookForOpening);
    if (!makePort(devpts)) {
        qWarning() << "no pseudo-terminal in" << devpts << qt_error_string();
        vanish();
        return;
    }
    m_readable = new QSocketNotifier(m_master, QSocketNotifier::Read, this);
    m_writable = new QSocketNotifier(m_master, QSocketNotifier::Write, this);
    connect(m_readable, &QSocketNotifier::activated, this, &Board::onReadable);
    connect(m_writable, &QSocketNotifier::activated, this, &Board::onWritable);
    waitForOpening();
}

Board::~Board() {
    vanish();
}

bool Board::makePort(const QString &devpts) {
    const QByteArray folder = QFile::encodeName(devpts);
    m_master = open((folder + "/ptmx").constData(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    const int unlocked = 0;
    int number = 0;
    if (m_master < 0 || ioctl(m_master, TIOCSPTLCK, &unlocked) != 0 || ioctl(m_master, TIOCGPTN, &number) != 0) {
        return false;
    }
    m_portName = devpts + QLatin1Char('/') + QString::number(number);
    return makeRaw(m_master) && openOnce(QFile::encodeName(m_portName));
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
    lookForOpening();
    if (m_isPortOpen) {
        m_unsent += bytes;
        onWritable();
    }
}

void Board::vanish() {
    m_openingTimer.stop();
    discard(m_readable);
    discard(m_writable);
    if (m_master >= 0) {
        close(m_master); // whatever it says, the device is gone
        m_master = -1;
    }
    setPortOpen(false);
}

void Board::onWritable() {
    const ssize_t count = write(m_master, m_unsent.constData(), std::size_t(m_unsent.size()));
    if (count > 0) {
        m_unsent.remove(0, int(count));
    }
    // An error is the port's closing, which reading meets too.
    m_writable->setEnabled(count >= 0 || errno == EAGAIN ? !m_unsent.isEmpty() : false);
}

void Board::onReadable() {
    std::array<char, 4096> bytes{};
    const ssize_t count = read(m_master, bytes.data(), bytes.size());
    if (count > 0) {
        m_received.append(bytes.data(), int(count));
    } else if (count == 0 || errno != EAGAIN) {
        waitForOpening();
        return;
    }
    for (int end = m_received.indexOf('\n'); end >= 0; end = m_received.indexOf('\n')) {
        const QByteArray line = m_received.left(end).trimmed();
        m_received.remove(0, end + 1);
        obey(line);
    }
}

void Board::waitForOpening() {
    m_readable->setEnabled(false);
    m_writable->setEnabled(false);
    m_openingTimer.start(openingInterval);
    setPortOpen(false);
}

void Board::lookForOpening() {
    pollfd port = {m_master, POLLIN, 0};
    if (m_isPortOpen || !isThere() || poll(&port, 1, 0) < 0 || (port.revents & POLLHUP) != 0) {
        return;
    }
    m_openingTimer.stop();
    m_readable->setEnabled(true);
    setPortOpen(true);
}

void Board::setPortOpen(bool open) {
    if (open == m_isPortOpen) {
        return;
    }
    m_isPortOpen = open;
    m_received.clear();
    m_unsent.clear();
    if (open) {
        Q_EMIT portOpened();
    } else {
        Q_EMIT portClosed();
    }
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
