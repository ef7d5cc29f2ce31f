#include "Measured.h"

using namespace sim;

namespace {

constexpr int mebibyte = 1 << 20;

QByteArray listWith(const char *memberState) {
    return QByteArray("USER_LIST|Lobby|42,200|AB1CD,EF2GH|a,b|RX,") + memberState + "|1,1|0,0\r\n";
}

} // namespace

/// A member keys the radio when too much comes from the server.
class TestSiteReplyFlood : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void theRadioIsReleasedBehindAFlood_data();
    void theRadioIsReleasedBehindAFlood();
    void whatIsNeverFinishedIsGoneWithItsLink_data();
    void whatIsNeverFinishedIsGoneWithItsLink();

private:
    void verifyNothingIsLeft(const Expense &expense, int kilobytes);

    std::unique_ptr<TestSite> m_site;
    std::unique_ptr<RoomMember> m_member;
};

void TestSiteReplyFlood::init() {
    m_site = std::make_unique<TestSite>();
    m_member = m_site->bringUpWithMember();
    QVERIFY(m_member);
    QVERIFY(m_site->keysFor(*m_member));
}

void TestSiteReplyFlood::cleanup() {
    m_member.reset();
    m_site.reset();
}

void TestSiteReplyFlood::theRadioIsReleasedBehindAFlood_data() {
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<double>("seconds"); // that it may take
    QTest::addColumn<int>("kilobytes");  // that it may leave behind
    QTest::addColumn<int>("keyings");    // of the radio, the last one its release
    constexpr int count = 100'000;
    // The list is written to a file each time.
    QTest::newRow("100,000 lists of a talk that goes on") << listWith("TX").repeated(count) << 60.0 << 8192 << 2;
    QTest::newRow("10,000 lists of a talk that comes and goes")
        << (listWith("TX") + listWith("RX")).repeated(count / 20) << 5.0 << 8192 << count / 10;
    QTest::newRow("1000 joins, each of which saves the configuration")
        << QByteArray("JOIN_OK|Lobby\r\n").repeated(1000) << 20.0 << 8192 << 2;
    QTest::newRow("100,000 unknown replies") << QByteArray("NOISE|1|2\r\n").repeated(count) << 6.0 << 8192 << 2;
    QTest::newRow("100,000 refusals") << QByteArray("LOGIN_FAILED|sibuk\r\n").repeated(count) << 6.0 << 8192 << 2;
    QTest::newRow("100,000 empty audio blocks") << QByteArray("AUDIO 7 0\r\n").repeated(count) << 4.0 << 8192 << 2;
    QTest::newRow("a line of 10 MB") << QByteArray(10 * mebibyte, 'x') + "\r\n" << 4.0 << 64 * 1024 << 2;
    QTest::newRow("audio of 10 MB") << QByteArray("AUDIO 7 10485760\r\n") + QByteArray(10 * mebibyte, 'x') << 4.0
                                    << 64 * 1024 << 2;
}

void TestSiteReplyFlood::theRadioIsReleasedBehindAFlood() {
    QFETCH(QByteArray, bytes);
    QFETCH(double, seconds);
    QFETCH(int, kilobytes);
    QFETCH(int, keyings);
    const Board &board = m_site->board();
    const Expense expense(*m_site);
    m_site->server().sendRaw(TestSite::gateway(), bytes);
    const std::int64_t endNs = monotonicNs();
    m_site->server().setTalking(TestSite::memberAccount().callsign, false);
    QVERIFY(Site::waitFor([&] { return int(board.keyings().size()) >= keyings && !board.isKeyed(); },
                          slowness * int(seconds * 1000)));
    tellMeasured("transmitter released", secondsBetween(endNs, board.keyings().back().timeNs) * 1e3,
                 "ms after the flood was sent");
    QVERIFY(m_site->waitForLine("info"_s, "[TX] \"EF2GH\" RX"_s, 5000)); // the log is read to here
    verifyNothingIsLeft(expense, kilobytes);
    QCOMPARE(int(board.keyings().size()), keyings);
    QCOMPARE(m_site->daemon().logged("[Server] Terputus"_s), QStringList());
}

void TestSiteReplyFlood::whatIsNeverFinishedIsGoneWithItsLink_data() {
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("10 MB without a line end") << QByteArray(10 * mebibyte, 'x');
    QTest::newRow("audio of 2 GB") << QByteArray("AUDIO 7 2147483647\r\n") + QByteArray(10 * mebibyte, 'x');
}

/// The list that would release the radio is taken for part of it.
void TestSiteReplyFlood::whatIsNeverFinishedIsGoneWithItsLink() {
    QFETCH(QByteArray, bytes);
    const Expense expense(*m_site);
    m_site->server().sendRaw(TestSite::gateway(), bytes);
    m_site->board().setSquelch(true);
    QVERIFY(m_site->waitForSent("TX_START"_s, 2000));
    m_site->board().setSquelch(false);
    QVERIFY(m_site->waitForSent("TX_STOP"_s, 2000));
    const std::int64_t cutNs = monotonicNs();
    m_site->server().stop();
    QVERIFY(Site::waitFor([&] { return !m_site->board().isKeyed(); }, 2000));
    tellMeasured("transmitter released", secondsBetween(cutNs, m_site->board().keyings().back().timeNs) * 1e3,
                 "ms after the link was cut");
    QVERIFY(m_site->server().start());
    QVERIFY(m_site->waitUntilBack("Lobby"_s, cutNs, 20000));
    verifyNothingIsLeft(expense, 4096);
    QCOMPARE(int(m_site->board().keyings().size()), 2);
}

void TestSiteReplyFlood::verifyNothingIsLeft(const Expense &expense, int kilobytes) {
    expense.tell("while it came");
    VERIFY_MEMORY(expense, kilobytes);
    const double load = processorLoad(*m_site);
    tellMeasured("processor afterwards", load * 100, "%");
    VERIFY_BETWEEN(load, 0.0005, 0.2);
}

SITE_TEST_MAIN(TestSiteReplyFlood)
#include "tst_SiteReplyFlood.moc"
