#include "ActiveTimers.h"
#include "ControlServer.h"
#include "SignalJournal.h"

#include <QtTest>

#include <arpa/inet.h>
#include <linux/filter.h>
#include <memory>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

using std::chrono::milliseconds;

namespace {

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

} // namespace

class TestTcpClientLink : public QObject {
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
    void canBeConnectedAgainFromDisconnected();
    void worksOffAFloodBesideEverythingElse();
    void forgetsWhatALostLinkStillHadToSay();
    void saysQuitWhenItIsDestroyed();
    void quitsOnlyWhenConnected();
};

void TestTcpClientLink::connects() {
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

void TestTcpClientLink::leavesALinkThatIsUpOrOnItsWayAlone() {
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

void TestTcpClientLink::reportsARefusedConnection() {
    TcpClient client;
    SignalJournal journal(&client);
    QSignalSpy errors(&client, &TcpClient::errorOccurred);
    QTcpSocket closed; // it has the port but does not listen there
    QVERIFY(closed.bind(QHostAddress::LocalHost));
    const quint16 port = closed.localPort();
    client.connectToServer(QStringLiteral("127.0.0.1"), port);
    QTRY_COMPARE(errors.count(), 1);
    QCOMPARE(journal.take(),
             QStringList{QStringLiteral("debug [TCP] Connecting to \"127.0.0.1\" : %1").arg(port)} +
                 entries({"warning [TCP] Error: \"Connection refused\"", "errorOccurred(Connection refused)"}));
    QCOMPARE(client.socketState(), QAbstractSocket::UnconnectedState);
    QCOMPARE(activeTimers(client), 0);
}

void TestTcpClientLink::reportsAHostThatCannotBeResolved() {
    TcpClient client;
    QSignalSpy errors(&client, &TcpClient::errorOccurred);
    QSignalSpy disconnections(&client, &TcpClient::disconnected);
    QTest::ignoreMessage(QtWarningMsg, "[TCP] Error: \"Host not found\"");
    client.connectToServer(QStringLiteral("no such host.invalid"), 8080);
    QTRY_COMPARE_WITH_TIMEOUT(errors.count(), 1, 20000);
    QCOMPARE(client.socketState(), QAbstractSocket::UnconnectedState);
    QCOMPARE(disconnections.count(), 0);
}

void TestTcpClientLink::givesUpAnAttemptThatGetsNoAnswer() {
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

void TestTcpClientLink::reportsALostLink() {
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

void TestTcpClientLink::noticesAPeerThatHasSilentlyGone() {
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

void TestTcpClientLink::asksTheKernelToWatchThePeer() {
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

void TestTcpClientLink::canBeConnectedAgainFromDisconnected() {
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

/// A hundred replies in one read, each of which takes a listener as long as a file on a slow disk does.
void TestTcpClientLink::worksOffAFloodBesideEverythingElse() {
    ControlServer server;
    TcpClient client;
    QVERIFY(server.accept(client));
    QStringList handled;
    QList<int> handledAtTicks;
    connect(&client, &TcpClient::roomListReceived, [&](const QStringList &rooms) {
        handled += rooms;
        QThread::msleep(5);
    });
    QTimer everythingElse;
    connect(&everythingElse, &QTimer::timeout, [&] { handledAtTicks += handled.size(); });
    everythingElse.start(0);
    QByteArray flood;
    QStringList sent;
    for (int i = 0; i < 100; ++i) {
        sent += QString::number(i);
        flood += "ROOMS|" + QByteArray::number(i) + "\r\n";
    }
    server.say(flood);
    QTRY_COMPARE(handled, sent);
    for (int i = 1; i < handledAtTicks.size(); ++i)
        QVERIFY(handledAtTicks[i] - handledAtTicks[i - 1] <= 1);
    QCOMPARE(server.heard(client), QByteArray());
}

void TestTcpClientLink::forgetsWhatALostLinkStillHadToSay() {
    ControlServer server;
    TcpClient client;
    QVERIFY(server.accept(client));
    int handled = 0;
    connect(&client, &TcpClient::roomListReceived, [&] {
        ++handled;
        QThread::msleep(5);
        if (handled == 3)
            client.findChild<QTcpSocket *>()->abort();
    });
    server.say(QByteArray("ROOMS|a\r\n").repeated(100) + "ROOMS|half of");
    QTRY_VERIFY(!client.isConnected());
    QVERIFY(server.accept(client));
    QCOMPARE(activeTimers(client), 1); // the heartbeat
    server.say("NOISE\r\n");
    QTRY_COMPARE(client.lastReply(), QStringLiteral("NOISE"));
    QCOMPARE(handled, 3);
}

void TestTcpClientLink::saysQuitWhenItIsDestroyed() {
    ControlServer server;
    auto client = std::make_unique<TcpClient>();
    QVERIFY(server.accept(*client));
    QSignalSpy disconnections(client.get(), &TcpClient::disconnected);
    client.reset();
    QTRY_COMPARE(server.peer()->state(), QAbstractSocket::UnconnectedState);
    QCOMPARE(server.peer()->readAll(), QByteArray("QUIT\r\n"));
    QCOMPARE(disconnections.count(), 0);
}

void TestTcpClientLink::quitsOnlyWhenConnected() {
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

QTEST_GUILESS_MAIN(TestTcpClientLink)
#include "tst_TcpClientLink.moc"
