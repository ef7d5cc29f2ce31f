#include "ActiveTimers.h"
#include "ControlServer.h"
#include "SignalJournal.h"
#include "net/TcpClient.h"

#include <QtTest>

#include <arpa/inet.h>
#include <functional>
#include <linux/filter.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

using std::chrono::milliseconds;

namespace {

using Operation = std::function<void(TcpClient &)>;

int socketOption(const TcpClient &client, int level, int option) {
    int value = -1;
    socklen_t size = sizeof value;
    const auto descriptor = static_cast<int>(client.findChild<QTcpSocket *>()->socketDescriptor());
    return getsockopt(descriptor, level, option, &value, &size) == 0 ? value : -1;
}

/// From now on the kernel drops every segment for this socket unseen, as if the cable had been pulled.
bool pullCable(const QTcpSocket &peer) {
    sock_filter dropAll = BPF_STMT(BPF_RET | BPF_K, 0);
    const sock_fprog program = {1, &dropAll};
    return setsockopt(static_cast<int>(peer.socketDescriptor()), SOL_SOCKET, SO_ATTACH_FILTER, &program,
                      sizeof program) == 0;
}

/// A listening socket that leaves further attempts to connect without any answer: its queue holds one connection, and
/// that place is taken.
class MuteListener {
public:
    MuteListener() : m_listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto *const generic = reinterpret_cast<sockaddr *>(&address);
        m_isUp = bind(m_listener, generic, size) == 0 && listen(m_listener, 0) == 0 &&
                 getsockname(m_listener, generic, &size) == 0;
        m_port = ntohs(address.sin_port);
        m_first.connectToHost(QHostAddress(QHostAddress::LocalHost), m_port);
        m_isUp = m_isUp && m_first.waitForConnected();
    }
    ~MuteListener() { close(m_listener); }
    MuteListener(const MuteListener &) = delete;
    MuteListener &operator=(const MuteListener &) = delete;

    bool isUp() const { return m_isUp; }
    quint16 port() const { return m_port; }

private:
    int m_listener;
    bool m_isUp = false;
    quint16 m_port = 0;
    QTcpSocket m_first;
};

quint16 closedPort() {
    QTcpServer server;
    server.listen(QHostAddress::LocalHost);
    return server.serverPort();
}

} // namespace

Q_DECLARE_METATYPE(Operation)

class TestTcpClient : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void connects();
    void leavesALinkThatIsUpOrOnItsWayAlone();
    void reportsARefusedConnection();
    void reportsAHostThatCannotBeResolved();
    void givesUpAnAttemptThatGetsNoAnswer();
    void reportsALostLink();
    void noticesAPeerThatHasSilentlyGone();
    void asksTheKernelToWatchThePeer();
    void sendsEachCommandInItsWireForm_data();
    void sendsEachCommandInItsWireForm();
    void dropsCommandsWhileDisconnected();
    void keepsOneCommandOnOneLine();
    void neverWritesAudio();
    void pingsOnlyWhileConnected();
    void pingsEveryFiveSeconds();
    void measuresLatencyAgainstTheLatestPing();
    void handlesRepliesInOrderHoweverTheyAreSplit();
    void leavesTheEventLoopItsTurnDuringAFlood();
    void joinsRepliesSentInTwoLines();
    void handsOnAudioBlocks();
    void startsCleanOnANewConnection();
    void sustainsCallsFromItsOwnSignals();
    void canBeConnectedAgainFromDisconnected();
    void saysQuitWhenItIsDestroyed();
    void quitsOnlyWhenConnected();
};

void TestTcpClient::connects() {
    ControlServer server;
    TcpClient client;
    QCOMPARE(client.socketState(), QAbstractSocket::UnconnectedState);
    QVERIFY(!client.isConnected());
    SignalJournal journal(&client);
    QVERIFY(server.accept(client));
    QVERIFY(client.isConnected());
    const QString connecting = QStringLiteral("debug [TCP] Connecting to \"127.0.0.1\" : %1").arg(server.port());
    QCOMPARE(journal.take(), QStringList{connecting} + entries({"debug [TCP] Connected!", "connected()"}));
}

void TestTcpClient::leavesALinkThatIsUpOrOnItsWayAlone() {
    ControlServer server;
    TcpClient client;
    client.connectToServer(QStringLiteral("127.0.0.1"), server.port());
    QVERIFY(client.socketState() != QAbstractSocket::UnconnectedState);
    SignalJournal journal(&client);
    client.connectToServer(QStringLiteral("192.0.2.1"), 9);
    QCOMPARE(journal.take(), QStringList());
    QVERIFY(server.accept(client));
    QCOMPARE(journal.take(), entries({"debug [TCP] Connected!", "connected()"}));
    client.connectToServer(QStringLiteral("192.0.2.1"), 9);
    QCOMPARE(journal.take(), QStringList());
    QVERIFY(client.isConnected());
    QCOMPARE(server.heard(client), QByteArray());
}

void TestTcpClient::reportsARefusedConnection() {
    TcpClient client;
    SignalJournal journal(&client);
    QSignalSpy errors(&client, &TcpClient::errorOccurred);
    const quint16 port = closedPort();
    client.connectToServer(QStringLiteral("127.0.0.1"), port);
    QTRY_COMPARE(errors.count(), 1);
    QCOMPARE(journal.take(),
             QStringList{QStringLiteral("debug [TCP] Connecting to \"127.0.0.1\" : %1").arg(port)} +
                 entries({"warning [TCP] Error: \"Connection refused\"", "errorOccurred(Connection refused)"}));
    QCOMPARE(client.socketState(), QAbstractSocket::UnconnectedState);
    QCOMPARE(activeTimers(client), 0);
}

void TestTcpClient::reportsAHostThatCannotBeResolved() {
    TcpClient client;
    QSignalSpy errors(&client, &TcpClient::errorOccurred);
    QSignalSpy disconnections(&client, &TcpClient::disconnected);
    QTest::ignoreMessage(QtWarningMsg, "[TCP] Error: \"Host not found\"");
    client.connectToServer(QStringLiteral("no such host.invalid"), 8080);
    QTRY_COMPARE_WITH_TIMEOUT(errors.count(), 1, 20000);
    QCOMPARE(client.socketState(), QAbstractSocket::UnconnectedState);
    QCOMPARE(disconnections.count(), 0);
}

void TestTcpClient::givesUpAnAttemptThatGetsNoAnswer() {
    MuteListener listener;
    QVERIFY(listener.isUp());
    TcpClient client(nullptr, steadyEpochMs, {.attempt = milliseconds(200)});
    QSignalSpy errors(&client, &TcpClient::errorOccurred);
    client.connectToServer(QStringLiteral("127.0.0.1"), listener.port());
    SignalJournal journal(&client);
    QTRY_COMPARE(errors.count(), 1);
    QCOMPARE(journal.take(),
             entries({"warning [TCP] Error: \"Connection timed out\"", "errorOccurred(Connection timed out)"}));
    QCOMPARE(client.socketState(), QAbstractSocket::UnconnectedState);

    ControlServer server;
    QVERIFY(server.accept(client)); // the next attempt is free to go
}

void TestTcpClient::reportsALostLink() {
    ControlServer server;
    TcpClient client;
    QVERIFY(server.accept(client));
    SignalJournal journal(&client);
    QSignalSpy disconnections(&client, &TcpClient::disconnected);
    server.peer()->disconnectFromHost();
    QTRY_COMPARE(disconnections.count(), 1);
    QCOMPARE(journal.take(), entries({"warning [TCP] Error: \"The remote host closed the connection\"",
                                      "errorOccurred(The remote host closed the connection)",
                                      "debug [TCP] Disconnected!", "disconnected()"}));
    QCOMPARE(client.socketState(), QAbstractSocket::UnconnectedState);
}

void TestTcpClient::noticesAPeerThatHasSilentlyGone() {
    ControlServer server;
    TcpClient client(nullptr, steadyEpochMs, {.peerSilence = milliseconds(500)});
    QVERIFY(server.accept(client));
    QVERIFY(pullCable(*server.peer()));
    SignalJournal journal(&client);
    QSignalSpy disconnections(&client, &TcpClient::disconnected);
    client.sendPing();
    QTRY_COMPARE(disconnections.count(), 1);
    const QStringList events = journal.take();
    QCOMPARE(events.size(), 4);
    QVERIFY2(events[0].startsWith(QStringLiteral("warning [TCP] Error: ")), qPrintable(events[0]));
    QVERIFY2(events[1].startsWith(QStringLiteral("errorOccurred(")), qPrintable(events[1]));
    QCOMPARE(events.mid(2), entries({"debug [TCP] Disconnected!", "disconnected()"}));
}

void TestTcpClient::asksTheKernelToWatchThePeer() {
    ControlServer server;
    TcpClient client;
    QVERIFY(server.accept(client));
    QCOMPARE(socketOption(client, IPPROTO_TCP, TCP_USER_TIMEOUT), 25000);
    QCOMPARE(socketOption(client, SOL_SOCKET, SO_KEEPALIVE), 1);
    QCOMPARE(socketOption(client, IPPROTO_TCP, TCP_KEEPIDLE), 10);
    QCOMPARE(socketOption(client, IPPROTO_TCP, TCP_KEEPINTVL), 5);
    QCOMPARE(socketOption(client, IPPROTO_TCP, TCP_KEEPCNT), 3);
    QCOMPARE(socketOption(client, IPPROTO_TCP, TCP_NODELAY), 1);
}

void TestTcpClient::sendsEachCommandInItsWireForm_data() {
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<QByteArray>("wire");
    const auto row = [](const char *wire, const Operation &operation) {
        QTest::newRow(wire) << operation << QByteArray(wire) + "\r\n";
    };
    const QString callsign = QStringLiteral("AB1CD");
    const QString roomA = QStringLiteral("Room A");
    row("LOGIN AB1CD pw", [=](TcpClient &c) { c.login(callsign, QStringLiteral("pw"), QString()); });
    row("LOGIN AB1CD pw h1", [=](TcpClient &c) { c.login(callsign, QStringLiteral("pw"), QStringLiteral("h1")); });
    row("LOGIN AB1CD %3 h1", [=](TcpClient &c) { c.login(callsign, QStringLiteral("%3"), QStringLiteral("h1")); });
    row("LOGIN_HWID a b", [](TcpClient &c) { c.loginHwid(QStringLiteral("a"), QStringLiteral("b")); });
    row("JOIN Lobby", [](TcpClient &c) { c.joinRoom(QStringLiteral("Lobby")); });
    row("LEAVE", [](TcpClient &c) { c.leaveRoom(); });
    row("ROOMS", [](TcpClient &c) { c.requestRooms(); });
    row("TX_START \"Room A\"", [=](TcpClient &c) { c.startTransmit(roomA); });
    row("TX_STOP \"Room A\"", [=](TcpClient &c) { c.stopTransmit(roomA); });
    row("TX_STOP \"say \"hi\"\"", [](TcpClient &c) { c.stopTransmit(QStringLiteral("say \"hi\"")); });
    row("PING", [](TcpClient &c) { c.sendPing(); });
    row("QUIT", [](TcpClient &c) { c.quit(); });
    row("ADMIN_GET_ALL_USERS", [](TcpClient &c) { c.requestAllUsers(); });
    row("ONLINE_USERS", [](TcpClient &c) { c.requestOnlineUsers(); });
    row("USER_GET_INFO AB1CD", [=](TcpClient &c) { c.requestUserInfo(callsign); });
    row("ADMIN_APPROVE_USER 7", [](TcpClient &c) { c.approveUser(7); });
    row("ADMIN_UNAPPROVE_USER 7", [](TcpClient &c) { c.unapproveUser(7); });
    row("ADMIN_RESET_HWID 7", [](TcpClient &c) { c.resetHwid(7); });
    row("ADMIN_RESET_HWID AB1CD", [=](TcpClient &c) { c.resetHwid(callsign); });
    row("ADMIN_KICK 7", [](TcpClient &c) { c.kickUser(7); });
    row("ADMIN_MOVE 7 Lobby", [](TcpClient &c) { c.moveUser(7, QStringLiteral("Lobby")); });
    row("ADMIN_MUTE 7 1", [](TcpClient &c) { c.muteUser(7, true); });
    row("ADMIN_MUTE 7 0", [](TcpClient &c) { c.muteUser(7, false); });
    row("WHATEVER \xC3\xA9 \xE2\x80\x94", [](TcpClient &c) { c.sendCommand(QStringLiteral("WHATEVER é —")); });
}

void TestTcpClient::sendsEachCommandInItsWireForm() {
    QFETCH(Operation, operation);
    ControlServer server;
    TcpClient client;
    QVERIFY(server.accept(client));
    operation(client);
    QTEST(server.heard(client), "wire");
}

void TestTcpClient::dropsCommandsWhileDisconnected() {
    ControlServer server;
    TcpClient client;
    SignalJournal journal(&client);
    client.sendCommand(QStringLiteral("ROOMS"));
    client.sendPing();
    client.joinRoom(QStringLiteral("Lobby"));
    client.quit();
    client.connectToServer(QStringLiteral("127.0.0.1"), server.port());
    client.sendCommand(QStringLiteral("ROOMS")); // on its way is not there yet
    journal.take();
    QVERIFY(server.accept(client));
    QCOMPARE(journal.take(), entries({"debug [TCP] Connected!", "connected()"}));
    QCOMPARE(server.heard(client), QByteArray());
}

void TestTcpClient::keepsOneCommandOnOneLine() {
    ControlServer server;
    TcpClient client;
    QVERIFY(server.accept(client));
    client.joinRoom(QStringLiteral("a\r\nADMIN_KICK 1\nb") + QChar(QChar::Null) + QStringLiteral("c"));
    QCOMPARE(server.heard(client), QByteArray("JOIN a  ADMIN_KICK 1 b c\r\n"));
}

void TestTcpClient::neverWritesAudio() {
    ControlServer server;
    TcpClient client;
    QVERIFY(server.accept(client));
    SignalJournal journal(&client);
    client.sendAudio("frame");
    QCOMPARE(journal.take(), entries({"debug [TCP] sendAudio called but TCP audio not supported - drop frame"}));
    QCOMPARE(server.heard(client), QByteArray());
}

void TestTcpClient::pingsOnlyWhileConnected() {
    ControlServer server;
    TcpClient client(nullptr, steadyEpochMs, {.heartbeat = milliseconds(10)});
    QCOMPARE(activeTimers(client), 0);
    QVERIFY(server.accept(client));
    QByteArray heard;
    QVERIFY(QTest::qWaitFor([&] { return (heard += server.peer()->readAll()).size() >= 18; }));
    QVERIFY(heard.startsWith("PING\r\nPING\r\nPING\r\n"));
    server.peer()->disconnectFromHost();
    QTRY_VERIFY(!client.isConnected());
    QCOMPARE(activeTimers(client), 0);
}

void TestTcpClient::pingsEveryFiveSeconds() {
    ControlServer server;
    TcpClient client;
    QVERIFY(server.accept(client));
    QCOMPARE(activeIntervalsMs(client), QList<int>{5000});
}

void TestTcpClient::measuresLatencyAgainstTheLatestPing() {
    qint64 nowMs = 1'700'000'000'000;
    ControlServer server;
    TcpClient client(nullptr, [&nowMs] { return nowMs; });
    QVERIFY(server.accept(client));
    SignalJournal journal(&client);
    client.sendPing();
    nowMs += 30;
    client.sendPing();
    nowMs += 12;
    QCOMPARE(client.lastLatencyMs(), 0.0F);
    server.say("PONG\r\nPONG\r\nROOMS|end\r\n"); // both pings answered; the second answer finds none outstanding
    QTRY_COMPARE(journal.seen().size(), 2);
    QCOMPARE(journal.take(), entries({"pingUpdated(12)", R"(roomListReceived(["end"]))"}));
    QCOMPARE(client.lastLatencyMs(), 12.0F);
    QCOMPARE(server.heard(client), QByteArray("PING\r\nPING\r\n"));
}

void TestTcpClient::handlesRepliesInOrderHoweverTheyAreSplit() {
    const QByteArray stream = "TX_START_OK\r\nAUDIO 9 4\r\n\r\nPO\r\nTX_STOP_OK\nERROR|x\r\n";
    const QStringList events =
        entries({"transmitStarted()", "audioReceived(\r\nPO, 9)", "transmitStopped()", "errorOccurred(x)"});
    ControlServer server;
    TcpClient client;
    QVERIFY(server.accept(client));
    SignalJournal journal(&client);
    server.say(stream);
    QTRY_COMPARE(journal.seen().size(), events.size());
    QCOMPARE(journal.take(), events);
    const auto *const socket = client.findChild<QTcpSocket *>();
    QVERIFY(socket != nullptr);
    QSignalSpy arrivals(socket, &QTcpSocket::readyRead);
    for (int cut = 1; cut < stream.size(); ++cut) {
        arrivals.clear();
        server.say(stream.left(cut));
        QVERIFY(!arrivals.isEmpty() || arrivals.wait());
        server.say(stream.mid(cut));
        QTRY_COMPARE(journal.seen().size(), events.size());
        QCOMPARE(journal.take(), events);
    }
}

void TestTcpClient::leavesTheEventLoopItsTurnDuringAFlood() {
    constexpr int replies = 50000;
    ControlServer server;
    TcpClient client;
    QVERIFY(server.accept(client));
    int handled = 0;
    int handledBefore = 0;
    int mostPerTurn = 0;
    connect(&client, &TcpClient::roomListReceived, this, [&] { ++handled; });
    QTimer turn;
    connect(&turn, &QTimer::timeout, this, [&] {
        mostPerTurn = std::max(mostPerTurn, handled - handledBefore);
        handledBefore = handled;
    });
    turn.start(0);
    QSignalSpy ended(&client, &TcpClient::disconnected);
    server.say(QByteArray("ROOMS|Lobby\r\n").repeated(replies));
    server.peer()->disconnectFromHost();
    QTRY_COMPARE_WITH_TIMEOUT(ended.count(), 1, 20000);
    QCOMPARE(handled, replies); // none was lost with the connection
    // 13 bytes each; two reads may fall between two ticks of the timer.
    QVERIFY2(mostPerTurn <= 2 * 4096 / 13, qPrintable(QString::number(mostPerTurn)));
}

void TestTcpClient::joinsRepliesSentInTwoLines() {
    ControlServer server;
    TcpClient client;
    QVERIFY(server.accept(client));
    SignalJournal journal(&client);
    server.say("USER_PROFILE\r\na|b\r\nUSER_INFO_RESULT\r\n{\"id\":1}\r\nANNOUNCEMENTS\r\n[]\r\n");
    QTRY_COMPARE(journal.seen().size(), 2);
    QCOMPARE(journal.take(), entries({R"(userInfoReceived({"id":1}))", "announcementsListReceived([])"}));
    server.say("USER_PROFILE\r\na|b\r\n");
    QTRY_COMPARE(client.lastReply(), QStringLiteral("USER_PROFILE|a|b"));
}

void TestTcpClient::handsOnAudioBlocks() {
    ControlServer server;
    TcpClient client;
    QVERIFY(server.accept(client));
    SignalJournal journal(&client);
    server.say("AUDIO 5\r\nAUDIO 5 -3\r\nAUDIO 5 x\r\nAUDIO 5 3\r\nabcTX_STOP_OK\r\n");
    QTRY_COMPARE(journal.seen().size(), 2);
    QCOMPARE(journal.take(), entries({"audioReceived(abc, 5)", "transmitStopped()"}));
}

void TestTcpClient::startsCleanOnANewConnection() {
    struct Leftover {
        QByteArray bytes;
        const char *what;
    };
    for (const Leftover &leftover : {Leftover{"USER_PROFILE\r\n", "a waiting half"}, Leftover{"TX_ST", "half a line"},
                                     Leftover{"AUDIO 1 100\r\nabc", "half a block"}}) {
        ControlServer server;
        TcpClient client;
        QVERIFY(server.accept(client));
        client.sendPing();
        QSignalSpy arrivals(client.findChild<QTcpSocket *>(), &QTcpSocket::readyRead);
        server.say(leftover.bytes);
        QVERIFY(arrivals.wait());
        server.peer()->disconnectFromHost();
        QTRY_VERIFY(!client.isConnected());

        QVERIFY(server.accept(client));
        SignalJournal journal(&client);
        server.say("TX_STOP_OK\r\nPONG\r\nERROR|end\r\n");
        QTRY_VERIFY2(journal.count("errorOccurred(end)") == 1, leftover.what);
        QCOMPARE(journal.take(), entries({"transmitStopped()", "errorOccurred(end)"}));
    }
}

void TestTcpClient::sustainsCallsFromItsOwnSignals() {
    ControlServer server;
    TcpClient client;
    QVERIFY(server.accept(client));
    connect(&client, &TcpClient::transmitStarted, &client, [&] {
        client.requestRooms();
        client.connectToServer(QStringLiteral("127.0.0.1"), server.port());
        client.dispatchLine(QStringLiteral("TX_STOP_OK"));
    });
    connect(&client, &TcpClient::kicked, &client, [&] { client.quit(); });
    SignalJournal journal(&client);
    server.say("TX_START_OK\r\nKICKED\r\nERROR|x\r\n");
    QTRY_COMPARE(journal.seen().size(), 5);
    // The journal was connected last, so an inner event comes before the one that caused it.
    QCOMPARE(journal.take(), entries({"transmitStopped()", "transmitStarted()", "kicked(Dikeluarkan oleh admin)",
                                      "errorOccurred(KICKED: Dikeluarkan oleh admin)", "errorOccurred(x)"}));
    QCOMPARE(server.heard(client), QByteArray("ROOMS\r\nQUIT\r\nQUIT\r\n"));
}

void TestTcpClient::canBeConnectedAgainFromDisconnected() {
    ControlServer server;
    TcpClient client;
    QVERIFY(server.accept(client));
    connect(&client, &TcpClient::disconnected, &client,
            [&] { client.connectToServer(QStringLiteral("127.0.0.1"), server.port()); });
    QSignalSpy connections(&client, &TcpClient::connected);
    server.peer()->abort();
    QTRY_COMPARE(connections.count(), 1);
    QVERIFY(client.isConnected());
}

void TestTcpClient::saysQuitWhenItIsDestroyed() {
    ControlServer server;
    auto client = std::make_unique<TcpClient>();
    QVERIFY(server.accept(*client));
    QSignalSpy disconnections(client.get(), &TcpClient::disconnected);
    client.reset();
    QTRY_COMPARE(server.peer()->state(), QAbstractSocket::UnconnectedState);
    QCOMPARE(server.peer()->readAll(), QByteArray("QUIT\r\n"));
    QCOMPARE(disconnections.count(), 0);
}

void TestTcpClient::quitsOnlyWhenConnected() {
    ControlServer server;
    TcpClient client;
    QVERIFY(server.accept(client));
    client.quit();
    QCOMPARE(server.heard(client), QByteArray("QUIT\r\n"));
    QCOMPARE(activeTimers(client), 0);
    server.peer()->disconnectFromHost();
    QTRY_VERIFY(!client.isConnected());
    client.quit();
    QVERIFY(server.accept(client));
    QCOMPARE(server.heard(client), QByteArray());
}

QTEST_GUILESS_MAIN(TestTcpClient)
#include "tst_TcpClient.moc"
