#include "sim/MonotonicClock.h"
#include "sim/site/Board.h"
#include "sim/site/Site.h"

#include <QSignalSpy>
#include <QtTest>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

using namespace sim;

namespace {

/// The daemon's end of the serial line.
class Port {
public:
    explicit Port(const Board &board)
        : m_fd(open(QFile::encodeName(board.portName()).constData(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {}
    ~Port() { close(); }
    Port(const Port &) = delete;
    Port &operator=(const Port &) = delete;

    int fd() const { return m_fd; }
    void close() {
        if (m_fd >= 0) {
            ::close(m_fd);
            m_fd = -1;
        }
    }
    bool write(const QByteArray &bytes) {
        return ::write(m_fd, bytes.constData(), std::size_t(bytes.size())) == bytes.size();
    }
    /// Everything that has arrived.
    const QByteArray &received() {
        std::array<char, 4096> bytes{};
        for (ssize_t count = 1; count > 0;) {
            count = read(m_fd, bytes.data(), bytes.size());
            m_received.append(bytes.data(), int(std::max<ssize_t>(count, 0)));
        }
        return m_received;
    }

private:
    int m_fd;
    QByteArray m_received;
};

} // namespace

class TestBoard : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void itsPortIsARawLine();
    void squelchIsToldToWhoeverHasThePortOpen();
    void whatIsSaidToNobodyIsLost();
    void linesAreHeardWholeHoweverTheyArrive();
    void pingIsAnswered();
    void keyingIsRecordedWithItsTimeAndEchoed();
    void aRepeatedRequestIsEchoedButNoChange();
    void otherLinesAreOnlyHeard();
    void aResetDropsPttAndAnnounces();
    void aClosedPortIsNoticedAndOpensAgain();
    void aClosedPortCostsNothing();
    void manyBytesArriveInOrder();
    void aVanishedBoardHangsUp();
    void aBoardMayVanishFromWithinItsOwnSignal();
    void withoutADevptsThereIsNoBoard();
};

void TestBoard::itsPortIsARawLine() {
    const Board board(sim::sitePaths().devpts);
    QVERIFY(board.isThere());
    const Port port(board);
    QVERIFY(port.fd() >= 0);
    termios settings{};
    QCOMPARE(tcgetattr(port.fd(), &settings), 0);
    QCOMPARE(settings.c_lflag & tcflag_t(ECHO | ICANON | ISIG), tcflag_t(0));
    QCOMPARE(settings.c_oflag & tcflag_t(OPOST), tcflag_t(0));
    QCOMPARE(settings.c_iflag & tcflag_t(ICRNL | IXON), tcflag_t(0));
}

void TestBoard::squelchIsToldToWhoeverHasThePortOpen() {
    Board board(sim::sitePaths().devpts);
    Port port(board);
    board.announceReady();
    board.setSquelch(true);
    board.setSquelch(false);
    QTRY_COMPARE(port.received(), QByteArray("ARDUINO:READY\r\nCOS:1\r\nCOS:0\r\n"));
}

void TestBoard::whatIsSaidToNobodyIsLost() {
    Board board(sim::sitePaths().devpts);
    board.setSquelch(true);
    Port port(board);
    board.setSquelch(false);
    QTRY_COMPARE(port.received(), QByteArray("COS:0\r\n"));
}

void TestBoard::linesAreHeardWholeHoweverTheyArrive() {
    const Board board(sim::sitePaths().devpts);
    QSignalSpy heard(&board, &Board::lineHeard);
    Port port(board);
    QVERIFY(port.write("CONFIG:COS_HI"));
    QTRY_VERIFY(board.isPortOpen());
    QVERIFY(port.write("GH:1\nCONFIG:PTT_INVERT:0\nPI"));
    QTRY_COMPARE(heard.count(), 2);
    QVERIFY(port.write("NG\n"));
    QTRY_COMPARE(board.linesHeard(), (QList<QByteArray>{"CONFIG:COS_HIGH:1", "CONFIG:PTT_INVERT:0", "PING"}));
    QCOMPARE(heard.count(), 3);
}

void TestBoard::pingIsAnswered() {
    const Board board(sim::sitePaths().devpts);
    Port port(board);
    QVERIFY(port.write("PING\n"));
    QTRY_COMPARE(port.received(), QByteArray("PONG\r\n"));
}

void TestBoard::keyingIsRecordedWithItsTimeAndEchoed() {
    const Board board(sim::sitePaths().devpts);
    Port port(board);
    const qint64 before = monotonicNs();
    QVERIFY(port.write("PTT:1\n"));
    QTRY_VERIFY(board.isKeyed());
    const qint64 between = monotonicNs();
    QVERIFY(port.write("PTT:0\n"));
    QTRY_VERIFY(!board.isKeyed());
    QTRY_COMPARE(port.received(), QByteArray("PTT_ON\r\nPTT_OFF\r\n"));
    const std::vector<Board::Keying> &keyings = board.keyings();
    QCOMPARE(keyings.size(), std::size_t(2));
    QVERIFY(keyings[0].keyed && keyings[0].timeNs >= before && keyings[0].timeNs <= between);
    QVERIFY(!keyings[1].keyed && keyings[1].timeNs >= between && keyings[1].timeNs <= monotonicNs());
}

void TestBoard::aRepeatedRequestIsEchoedButNoChange() {
    const Board board(sim::sitePaths().devpts);
    QSignalSpy changes(&board, &Board::pttChanged);
    Port port(board);
    QVERIFY(port.write("PTT:1\nPTT:1\n"));
    QTRY_COMPARE(port.received(), QByteArray("PTT_ON\r\nPTT_ON\r\n"));
    QCOMPARE(changes.count(), 1);
    QCOMPARE(board.keyings().size(), std::size_t(1));
}

void TestBoard::otherLinesAreOnlyHeard() {
    const Board board(sim::sitePaths().devpts);
    Port port(board);
    QVERIFY(port.write("ptt:1\nPTT:2\nPTT:1 now\nPING\n"));
    QTRY_COMPARE(board.linesHeard().size(), 4);
    QVERIFY(!board.isKeyed());
    QTRY_COMPARE(port.received(), QByteArray("PONG\r\n"));
}

void TestBoard::aResetDropsPttAndAnnounces() {
    Board board(sim::sitePaths().devpts);
    Port port(board);
    QVERIFY(port.write("PTT:1\n"));
    QTRY_VERIFY(board.isKeyed());
    board.reset();
    QVERIFY(!board.isKeyed());
    QCOMPARE(board.keyings().size(), std::size_t(2));
    QTRY_VERIFY(port.received().endsWith("ARDUINO:READY\r\n"));
}

void TestBoard::aClosedPortIsNoticedAndOpensAgain() {
    Board board(sim::sitePaths().devpts);
    QSignalSpy opened(&board, &Board::portOpened);
    QSignalSpy closed(&board, &Board::portClosed);
    QVERIFY(!board.isPortOpen());
    Port first(board);
    QTRY_COMPARE(opened.count(), 1);
    QVERIFY(first.write("PTT:1\n"));
    QCOMPARE(ioctl(first.fd(), TIOCEXCL), 0);
    first.close();
    QTRY_COMPARE(closed.count(), 1);
    // Nobody told the board to let go: it still keys.
    QVERIFY(board.isKeyed());
    board.setSquelch(true);
    Port second(board);
    QTRY_COMPARE(opened.count(), 2);
    QVERIFY(second.write("PTT:0\n"));
    QTRY_VERIFY(!board.isKeyed());
    QTRY_COMPARE(second.received(), QByteArray("PTT_OFF\r\n"));
}

void TestBoard::aClosedPortCostsNothing() {
    Board board(sim::sitePaths().devpts);
    Port port(board);
    QTRY_VERIFY(board.isPortOpen());
    port.close();
    QTRY_VERIFY(!board.isPortOpen());
    int rounds = 0;
    QTimer end;
    end.setSingleShot(true);
    end.start(100);
    while (end.isActive()) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        ++rounds;
    }
    // A notifier left on would turn thousands of times.
    QVERIFY2(rounds < 20, qPrintable(QString::number(rounds)));
}

void TestBoard::manyBytesArriveInOrder() {
    Board board(sim::sitePaths().devpts);
    Port port(board);
    QByteArray bytes;
    for (int i = 0; i < 20000; ++i)
        bytes += QByteArray::number(i) + '\n';
    board.sendRaw(bytes);
    QTRY_COMPARE(port.received().size(), bytes.size());
    QVERIFY(port.received() == bytes);
}

void TestBoard::aVanishedBoardHangsUp() {
    Board board(sim::sitePaths().devpts);
    const Port port(board);
    QTRY_VERIFY(board.isPortOpen());
    board.vanish();
    QVERIFY(!board.isThere());
    QVERIFY(!board.isPortOpen());
    pollfd status = {port.fd(), POLLIN, 0};
    QCOMPARE(poll(&status, 1, 5000), 1);
    QVERIFY((status.revents & POLLHUP) != 0);
    QVERIFY(access(QFile::encodeName(board.portName()).constData(), F_OK) != 0);
    board.setSquelch(true);
    board.vanish();
}

void TestBoard::aBoardMayVanishFromWithinItsOwnSignal() {
    Board board(sim::sitePaths().devpts);
    Port port(board);
    connect(&board, &Board::pttChanged, &board, [&board] { board.vanish(); });
    QVERIFY(port.write("PTT:1\nPTT:0\n"));
    QTRY_VERIFY(!board.isThere());
    QCOMPARE(board.linesHeard(), QList<QByteArray>{"PTT:1"});
}

void TestBoard::withoutADevptsThereIsNoBoard() {
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^no pseudo-terminal in \"/nowhere\"")));
    Board board(QStringLiteral("/nowhere"));
    QVERIFY(!board.isThere());
    board.setSquelch(true);
}

int main(int argc, char **argv) {
    if (!sim::enterPrivateSite())
        return 1;
    QCoreApplication app(argc, argv);
    TestBoard test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_Board.moc"
