#include "WireServer.h"
#include "sim/server/VoiceServer.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>

using namespace sim;

class TestVoiceServer : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_server = std::make_unique<WireServer>(); }
    void cleanup() { m_server.reset(); }

    void greetsWhoConnects();
    void leavesTheRoomWhenTheConnectionEnds();
    void quitClosesTheConnection();
    void dropsAClientThatSendsNoLineEnd();
    void saysNothingWhileSilentAndHeals();
    void acceptsNobodyWhileSilent();
    void ignoresChosenCommands();
    void losesChosenDatagrams();
    void delaysReplies();
    void altersRepliesOnTheirWay();
    void altersRepliesToOneClientAlone();
    void altersDatagramsOnTheirWay();
    void startsAgainAfterStop();
    void saysWhenAPortIsTaken();

private:
    std::unique_ptr<WireServer> m_server;
};

void TestVoiceServer::greetsWhoConnects() {
    const auto wire = m_server->client();
    QVERIFY(QTest::qWaitFor([&] { return wire->control.canReadLine(); }));
    QCOMPARE(wire->control.readLine(), QByteArray("ROIP SERVER READY\r\n"));
}

void TestVoiceServer::leavesTheRoomWhenTheConnectionEnds() {
    auto wire = m_server->inLobby("AB1CD");
    wire->ask("TX_START \"Lobby\"", "TX_START_OK");
    QSignalSpy gone(m_server.get(), &VoiceServer::clientDisconnected);
    QSignalSpy left(m_server.get(), &VoiceServer::left);
    QSignalSpy talking(m_server.get(), &VoiceServer::talkingChanged);
    wire->control.abort();
    QVERIFY(gone.wait());
    QCOMPARE(left.count(), 1);
    QCOMPARE(talking.count(), 1);
    QVERIFY(!m_server->isLoggedIn(QStringLiteral("AB1CD")));
}

void TestVoiceServer::quitClosesTheConnection() {
    const auto wire = m_server->inLobby("AB1CD");
    wire->send("QUIT");
    QTRY_COMPARE(wire->control.state(), QAbstractSocket::UnconnectedState);
}

void TestVoiceServer::dropsAClientThatSendsNoLineEnd() {
    const auto wire = m_server->client();
    wire->control.write(QByteArray(2 << 20, 'x'));
    QTRY_COMPARE(wire->control.state(), QAbstractSocket::UnconnectedState);
}

void TestVoiceServer::saysNothingWhileSilentAndHeals() {
    const auto wire = m_server->inLobby("AB1CD");
    wire->linesSoFar();
    m_server->setSilent(true);
    wire->send("PING");
    wire->sendDatagram("PING");
    m_server->sendRaw(QStringLiteral("AB1CD"), "HELLO\r\n");
    QCOMPARE(wire->next("", 300), QByteArray());
    QCOMPARE(wire->nextDatagram(0), QByteArray());
    QCOMPARE(wire->control.state(), QAbstractSocket::ConnectedState);
    m_server->setSilent(false);
    QCOMPARE(wire->next(""), QByteArray("HELLO"));
    QCOMPARE(wire->next("PONG", 10000), QByteArray("PONG")); // the kernel sends the lost ping again
    wire->sendDatagram("PING");
    QCOMPARE(wire->nextDatagram(), QByteArray("PONG"));
}

void TestVoiceServer::acceptsNobodyWhileSilent() {
    m_server->setSilent(true);
    const auto wire = m_server->client();
    QVERIFY(!wire->control.waitForConnected(300));
    QCOMPARE(wire->control.state(), QAbstractSocket::UnconnectedState); // given up, not refused
    QCOMPARE(wire->control.error(), QAbstractSocket::SocketTimeoutError);
    m_server->setSilent(false);
    QCOMPARE(m_server->client()->next("ROIP"), QByteArray("ROIP SERVER READY"));
}

void TestVoiceServer::ignoresChosenCommands() {
    const auto wire = m_server->inLobby("AB1CD");
    QSignalSpy lines(m_server.get(), &VoiceServer::lineReceived);
    m_server->setIgnored([](const QString &line) { return line.startsWith(QLatin1String("TX_START")); });
    wire->send("TX_START \"Lobby\"");
    QVERIFY(!wire->linesSoFar().join('\n').contains("TX_START"));
    QVERIFY(!m_server->isTalking(QStringLiteral("AB1CD")));
    QCOMPARE(lines.at(0).at(0).toString(), QStringLiteral("AB1CD"));
    QCOMPARE(lines.at(0).at(1).toString(), QStringLiteral("TX_START \"Lobby\""));
    m_server->setIgnored({});
    QCOMPARE(wire->ask("TX_START \"Lobby\"", "TX_START"), QByteArray("TX_START_OK"));
}

void TestVoiceServer::losesChosenDatagrams() {
    const auto wire = m_server->inLobby("AB1CD");
    m_server->setMediaLoss([](const QByteArray &datagram) { return datagram == "KEEPALIVE_OK"; });
    wire->sendDatagram("KEEPALIVE");
    QCOMPARE(wire->datagramsSoFar(), QList<QByteArray>());
    m_server->setMediaLoss({});
    wire->sendDatagram("KEEPALIVE");
    QCOMPARE(wire->datagramsSoFar(), QList<QByteArray>{"KEEPALIVE_OK"});
}

void TestVoiceServer::delaysReplies() {
    const auto wire = m_server->inLobby("AB1CD");
    wire->linesSoFar();
    m_server->setReplyDelay(100);
    QElapsedTimer sinceSent;
    sinceSent.start();
    wire->send("ROOMS");
    wire->send("PING");
    QCOMPARE(wire->next(""), QByteArray("ROOMS|Lobby,Big Hall"));
    QVERIFY2(sinceSent.elapsed() >= 99, qPrintable(QString::number(sinceSent.elapsed())));
    QCOMPARE(wire->next(""), QByteArray("PONG"));
}

void TestVoiceServer::altersRepliesOnTheirWay() {
    const auto wire = m_server->inLobby("AB1CD");
    wire->linesSoFar();
    m_server->setReplyPath([](const QByteArray &line) { return QList<QByteArray>{line, line.left(2), line.mid(2)}; });
    QCOMPARE(wire->ask("ROOMS", ""), QByteArray("ROOMS|Lobby,Big Hall"));
    QCOMPARE(wire->next(""), QByteArray("ROOMS|Lobby,Big Hall"));
}

void TestVoiceServer::altersRepliesToOneClientAlone() {
    const auto wire = m_server->inLobby("AB1CD");
    const auto other = m_server->inLobby("EF2GH");
    wire->linesSoFar();
    other->linesSoFar();
    m_server->setReplyPath(
        [](const QByteArray &line) {
            return QList<QByteArray>{line, line};
        },
        QStringLiteral("EF2GH"));
    wire->send("ROOMS");
    other->send("ROOMS");
    QCOMPARE(wire->linesSoFar().count("ROOMS|Lobby,Big Hall"), 1);
    QCOMPARE(other->linesSoFar().count("ROOMS|Lobby,Big Hall"), 2);
}

void TestVoiceServer::altersDatagramsOnTheirWay() {
    const auto wire = m_server->inLobby("AB1CD");
    QByteArray waiting;
    m_server->setMediaPath([&waiting](const QByteArray &datagram) {
        QList<QByteArray> pieces;
        if (!waiting.isEmpty())
            pieces = {datagram, waiting};
        waiting = pieces.isEmpty() ? datagram : QByteArray();
        return pieces;
    });
    m_server->sendAudioTo(QStringLiteral("AB1CD"), 8, "first");
    m_server->sendAudioTo(QStringLiteral("AB1CD"), 8, "second");
    QVERIFY(wire->nextDatagram().endsWith("second"));
    QVERIFY(wire->nextDatagram().endsWith("first"));
}

void TestVoiceServer::startsAgainAfterStop() {
    const auto wire = m_server->inLobby("AB1CD");
    const quint16 tcpPort = m_server->tcpPort();
    const quint16 udpPort = m_server->udpPort();
    QSignalSpy gone(m_server.get(), &VoiceServer::clientDisconnected);
    m_server->stop();
    QCOMPARE(gone.count(), 1);
    QTRY_COMPARE(wire->control.state(), QAbstractSocket::UnconnectedState);
    WireClient refused(tcpPort);
    QTRY_COMPARE(refused.control.error(), QAbstractSocket::ConnectionRefusedError);
    QVERIFY(m_server->start(tcpPort, udpPort));
    QCOMPARE(m_server->client()->enter("AB1CD", "Lobby"), "JOIN_OK|Lobby|" + lobbyKey.toBase64());
}

void TestVoiceServer::saysWhenAPortIsTaken() {
    VoiceServer other;
    QVERIFY(!other.start(m_server->tcpPort(), 0));
    QVERIFY(!other.start(0, m_server->udpPort()));
    QVERIFY(other.start(0, 0));
}

QTEST_GUILESS_MAIN(TestVoiceServer)
#include "tst_VoiceServer.moc"
