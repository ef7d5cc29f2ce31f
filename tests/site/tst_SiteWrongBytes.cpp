#include "TestSite.h"
#include "sim/sound/AudioAnalysis.h"

using namespace sim;

namespace {

constexpr qint64 mebibyte = 1 << 20;

/// Some milliseconds, on a machine that has nothing else to do.
constexpr int promptlyMs = 2000;

/// Resident memory of a process.
qint64 memoryOf(qint64 processId) {
    QFile file(QStringLiteral("/proc/%1/status").arg(processId));
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : file.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong() * 1024;
    }
    return -1;
}

} // namespace

/// A server that is broken, or somebody else's.
class TestSiteWrongBytes : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void noBytesKeepTheGatewayFromItsSquelch_data();
    void noBytesKeepTheGatewayFromItsSquelch();
    void aFloodOfDatagramsKeepsTheGatewayFromNothing();
};

void TestSiteWrongBytes::noBytesKeepTheGatewayFromItsSquelch_data() {
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("repliesGoOn"); // whether what comes behind them is still understood
    const auto repeated = [](const char *reply) { return QByteArray(reply).repeated(100000); };
    QTest::newRow("10 MB without a line end") << QByteArray(10 * mebibyte, 'x') << false;
    QTest::newRow("a line of 10 MB") << QByteArray(10 * mebibyte, 'x') + "\r\n" << true;
    QTest::newRow("audio of 2 GB") << QByteArray("AUDIO 7 2147483647\r\n") + QByteArray(1 * mebibyte, 'x') << false;
    QTest::newRow("audio of more than there are bytes") << QByteArray("AUDIO 7 99999999999999999999\r\n") << true;
    QTest::newRow("audio of less than nothing") << QByteArray("AUDIO 7 -1\r\nAUDIO x\r\nAUDIO \r\n") << true;
    QTest::newRow("100,000 unknown replies") << repeated("NOISE|1|2\r\n") << true;
    QTest::newRow("100,000 empty lines") << repeated("\r\n") << true;
    QTest::newRow("100,000 room lists") << repeated("ROOMS|Lobby,Hilltop\r\n") << true;
    QTest::newRow("100,000 user lists") << repeated("USER_LIST|Lobby|42,9|AB1CD,ZZ9ZZ|a,b|RX,RX|1,1|0,0\r\n") << true;
    QTest::newRow("100,000 answers to nothing") << repeated("PONG\r\n") << true;
    QTest::newRow("no text at all") << QByteArray("\xff\xfe\x00\x01|\x80\n\0\0\0\n|||||\n\xc3\r\n", 20) << true;
    QTest::newRow("replies cut short")
        << QByteArray("LOGIN_FAILED\nUSER_LIST\nUSER_LIST|Lobby|1,2,3|A||TX,TX\nONLINE_USERS|;;,;1,2\nAUDIO_QUALITY|x\n"
                      "USER_INFO_RESULT|{\"a\nADMIN_ALL_USERS|[1,{},null]\nSERVER_INFO|\nANNOUNCEMENTS|{}\nMUTED\n"
                      "ADMIN_MUTE_OK\nMUTED|0\n")
        << true;
}

void TestSiteWrongBytes::noBytesKeepTheGatewayFromItsSquelch() {
    QFETCH(QByteArray, bytes);
    QFETCH(bool, repliesGoOn);
    TestSite site;
    QVERIFY(site.bringUp());
    const qint64 memoryBefore = memoryOf(site.daemon().processId());
    site.server().sendRaw(site.gateway(), bytes);
    site.board().setSquelch(true);
    QVERIFY(Site::waitFor([&] { return site.server().isTalking(site.gateway()); }, promptlyMs));
    site.board().setSquelch(false);
    QVERIFY(Site::waitFor([&] { return !site.server().isTalking(site.gateway()); }, promptlyMs));
    QCOMPARE(site.sent("TX_"_s), (QStringList{"TX_START \"Lobby\""_s, "TX_STOP \"Lobby\""_s}));
    QCOMPARE(site.daemon().logged("[Server] Terputus"_s), QStringList());
    const qint64 growth = memoryOf(site.daemon().processId()) - memoryBefore;
    QVERIFY(memoryBefore > 0 && growth < 100 * mebibyte);

    if (repliesGoOn) {
        site.server().move(site.gateway(), "Hilltop"_s);
        QVERIFY(site.waitForLine("info"_s, "[Room] Bergabung ke room: \"Hilltop\""_s, 60000)); // behind the flood
        return;
    }
    // What was begun and never finished is forgotten with its connection.
    const std::int64_t cutNs = monotonicNs();
    site.server().stop();
    QVERIFY(site.server().start());
    QVERIFY(site.waitUntilBack("Lobby"_s, cutNs, 20000));
    QVERIFY(site.waitForStatus("room", "Lobby"_s));
}

void TestSiteWrongBytes::aFloodOfDatagramsKeepsTheGatewayFromNothing() {
    TestSite site;
    QVERIFY(site.bringUp());
    QTimer flood;
    quint32 count = 0;
    QObject::connect(&flood, &QTimer::timeout, &flood, [&] {
        for (int i = 0; i < 100; ++i, ++count)
            site.server().sendAudioTo(site.gateway(), count, QByteArray(1 + int(count % 200), char(count)));
    });
    flood.start(5);
    QVERIFY(Site::waitFor([&] { return count > 20000; }, 20000));
    site.board().setSquelch(true);
    QVERIFY(Site::waitFor([&] { return site.server().isTalking(site.gateway()); }, 5000));
    flood.stop();
    QVERIFY(memoryOf(site.daemon().processId()) < 200 * mebibyte);
    site.board().setSquelch(false);
    QVERIFY(Site::waitFor([&] { return !site.server().isTalking(site.gateway()); }, 10000));
    const auto member = site.memberIn("Lobby"_s);
    QVERIFY(member);
    const std::int64_t fromNs = monotonicNs();
    member->speak(tone(700, -10, 1.0));
    QVERIFY(Site::waitFor([&] { return toneLevelDbfs(site.card().played(fromNs, monotonicNs()), 700) > -30; }, 5000));
}

SITE_TEST_MAIN(TestSiteWrongBytes)
#include "tst_SiteWrongBytes.moc"
