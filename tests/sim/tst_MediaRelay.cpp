#include "WireServer.h"
#include "sim/server/MediaRelay.h"

#include <QSignalSpy>
#include <QTest>

using namespace sim;

namespace {

/// id 7 as the header of an audio datagram
const QByteArray header7("\0\0\0\7", 4);

} // namespace

class TestMediaRelay : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_server = std::make_unique<WireServer>(); }
    void cleanup() { m_server.reset(); }

    void registersMediaEndpoints_data();
    void registersMediaEndpoints();
    void relaysATalkerToTheOthersOfItsRoomOnly();
    void relaysNothingThatIsNotATalkersOwn_data();
    void relaysNothingThatIsNotATalkersOwn();
    void sendsAudioAsIfFromAnyTalker();

private:
    std::unique_ptr<WireServer> m_server;
};

void TestMediaRelay::registersMediaEndpoints_data() {
    QTest::addColumn<QByteArray>("suffix");
    QTest::addColumn<QByteArray>("answer");
    QTest::newRow("with id") << QByteArray(":7") << QByteArray("REGISTERED:7");
    QTest::newRow("without id") << QByteArray() << QByteArray("OK");
    QTest::newRow("with another's id") << QByteArray(":8") << QByteArray();
    QTest::newRow("wrong token") << QByteArray("0:7") << QByteArray();
}

void TestMediaRelay::registersMediaEndpoints() {
    QFETCH(QByteArray, suffix);
    QFETCH(QByteArray, answer);
    const auto wire = m_server->client();
    const QByteArray token = wire->ask("LOGIN AB1CD pw", "LOGIN_OK").split('|').value(1);
    wire->sendDatagram("KEEPALIVE"); // nobody knows this endpoint yet
    wire->sendDatagram("TOKEN:" + token + suffix);
    wire->sendDatagram("KEEPALIVE");
    const QList<QByteArray> registered{answer, "KEEPALIVE_OK"};
    QCOMPARE(wire->datagramsSoFar(), answer.isEmpty() ? QList<QByteArray>() : registered);
}

void TestMediaRelay::relaysATalkerToTheOthersOfItsRoomOnly() {
    const auto talker = m_server->inLobby("AB1CD");
    const auto listener = m_server->inLobby("EF2GH");
    const auto elsewhere = m_server->client();
    QVERIFY(!elsewhere->enter("ADMIN", "Big Hall").isEmpty());
    QSignalSpy relayed(m_server.get(), &VoiceServer::audioRelayed);
    talker->ask("TX_START \"Lobby\"", "TX_START_OK");
    talker->sendDatagram(header7 + "frame");
    QCOMPARE(listener->nextDatagram(), header7 + "frame");
    QCOMPARE(talker->datagramsSoFar(), QList<QByteArray>());
    QCOMPARE(elsewhere->datagramsSoFar(), QList<QByteArray>());
    QCOMPARE(relayed.count(), 1);
    QCOMPARE(relayed.at(0).at(0).toString(), QStringLiteral("AB1CD"));
    QCOMPARE(relayed.at(0).at(1).toByteArray(), QByteArray("frame"));
}

void TestMediaRelay::relaysNothingThatIsNotATalkersOwn_data() {
    QTest::addColumn<bool>("talking");
    QTest::addColumn<bool>("fromElsewhere");
    QTest::addColumn<QByteArray>("datagram");
    QTest::newRow("not talking") << false << false << header7 + "frame";
    QTest::newRow("another's id") << true << false << QByteArray("\0\0\0\10frame", 9);
    QTest::newRow("no frame") << true << false << header7;
    QTest::newRow("three bytes") << true << false << QByteArray("\0\0\7", 3);
    QTest::newRow("unknown endpoint") << true << true << header7 + "frame";
}

void TestMediaRelay::relaysNothingThatIsNotATalkersOwn() {
    QFETCH(bool, talking);
    QFETCH(bool, fromElsewhere);
    QFETCH(QByteArray, datagram);
    const auto talker = m_server->inLobby("AB1CD");
    const auto listener = m_server->inLobby("EF2GH");
    const auto stranger = m_server->client();
    if (talking)
        talker->ask("TX_START \"Lobby\"", "TX_START_OK");
    QSignalSpy received(m_server.get(), &VoiceServer::datagramReceived);
    (fromElsewhere ? stranger : talker)->sendDatagram(datagram);
    QVERIFY(received.wait());
    QCOMPARE(listener->datagramsSoFar(), QList<QByteArray>());
}

void TestMediaRelay::sendsAudioAsIfFromAnyTalker() {
    const auto wire = m_server->inLobby("AB1CD");
    m_server->sendAudioTo(QStringLiteral("AB1CD"), 0xFFFFFFFF, "frame");
    QCOMPARE(wire->nextDatagram(), QByteArray("\xFF\xFF\xFF\xFF"
                                              "frame"));
}

QTEST_GUILESS_MAIN(TestMediaRelay)
#include "tst_MediaRelay.moc"
