#include "Measured.h"
#include "sim/sound/Pcm.h"
#include "sim/wire/OpusVoice.h"

using namespace sim;

/// How many lines each occurrence of something that a server or a talker can repeat without end is worth.
class TestSiteLogLines : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup() { m_site->showLogOfFailure(); }
    void aReplyIsWorthSoManyLines_data();
    void aReplyIsWorthSoManyLines();
    void aDatagramIsWorthSoManyLines_data();
    void aDatagramIsWorthSoManyLines();
    void cleanupTestCase() { m_site.reset(); }

private:
    void verifyLines(const Expense &expense, int events, double linesEach);

    std::unique_ptr<TestSite> m_site;
};

/// In a room in clear, with a time-out.
void TestSiteLogLines::initTestCase() {
    m_site = std::make_unique<TestSite>();
    m_site->writeConfig({{"tot_duration"_s, 60}});
    m_site->server().setRoomKey("Lobby"_s, {});
    QVERIFY(m_site->bringUp());
    QVERIFY(m_site->waitForLog("[Arduino] Config sent"_s, 5000));
}

void TestSiteLogLines::aReplyIsWorthSoManyLines_data() {
    QTest::addColumn<QByteArray>("replies");
    QTest::addColumn<double>("lines");
    const auto list = [](const char *callsign, const char *state) {
        return QByteArray("USER_LIST|Lobby|42,9|AB1CD,") + callsign + "|a,b|RX," + state + "|1,1|0,0\r\n";
    };
    QTest::newRow("an unknown reply") << QByteArray("NOISE|1\r\n") << 1.0;
    QTest::newRow("a refusal") << QByteArray("LOGIN_FAILED|sibuk\r\n") << 1.0;
    QTest::newRow("a talk") << list("CC3DD", "TX") + list("CC3DD", "RX") << 2.0;
    QTest::newRow("another member in the list") << list("ZZ9ZZ", "RX") + list("YY8YY", "RX") << 4.0;
    QTest::newRow("the same list") << list("YY8YY", "RX") << 0.0;
    QTest::newRow("the room again") << QByteArray("JOIN_OK|Lobby\r\n") << 2.0;
    QTest::newRow("a room list") << QByteArray("ROOMS|Lobby,Hilltop\r\n") << 0.0;
    QTest::newRow("an error") << QByteArray("ERROR|sibuk\r\n") << 0.0;
    QTest::newRow("a profile") << QByteArray("USER_INFO|{\"callsign\":\"AB1CD\"}\r\n") << 1.0;
    QTest::newRow("another quality") << QByteArray(
                                            "AUDIO_QUALITY|a|24000|16000|20|5\r\nAUDIO_QUALITY|b|32000|48000|20|5\r\n")
                                     << 4.0;
    QTest::newRow("a mute") << QByteArray("MUTED|1|XY9ZA\r\nMUTED|0|XY9ZA\r\n") << 2.0;
}

void TestSiteLogLines::aReplyIsWorthSoManyLines() {
    QFETCH(QByteArray, replies);
    QFETCH(double, lines);
    constexpr int count = 200;
    m_site->server().sendRaw(TestSite::gateway(), replies); // the first may bring something more
    letPass(0.3);
    const Expense expense(*m_site);
    m_site->server().sendRaw(TestSite::gateway(), replies.repeated(count));
    verifyLines(expense, count, lines);
}

void TestSiteLogLines::aDatagramIsWorthSoManyLines_data() {
    QTest::addColumn<QByteArray>("packet");
    QTest::addColumn<int>("talkers"); // by turns
    QTest::addColumn<double>("lines");
    const QByteArray voice = VoiceEncoder().encode(tone(700, -10, 0.02).samples);
    QTest::newRow("of one talker") << voice << 1 << 0.0;
    QTest::newRow("of two talkers at once") << voice << 2 << 1.0;
    QTest::newRow("that is no sound") << QByteArray(10, '\xff') << 1 << 1.0;
    QTest::newRow("of a new talker") << voice << 1000 << 2.0;
    QTest::newRow("too short for a packet") << voice.left(9) << 1 << 0.0;
}

void TestSiteLogLines::aDatagramIsWorthSoManyLines() {
    QFETCH(QByteArray, packet);
    QFETCH(int, talkers);
    QFETCH(double, lines);
    constexpr int count = 200;
    static quint32 firstId = 1000;
    const auto send = [&](int i) {
        m_site->server().sendAudioTo(TestSite::gateway(), firstId + quint32(i % talkers), packet);
        letPass(0.002);
    };
    firstId += 1000;
    send(0);
    send(1);
    letPass(0.2);
    const Expense expense(*m_site);
    for (int i = 2; i < 2 + count; ++i)
        send(i);
    verifyLines(expense, count, lines);
}

/// Beside those of the routine: a priming of the queue, once.
void TestSiteLogLines::verifyLines(const Expense &expense, int events, double linesEach) {
    Site::waitFor([&] { return expense.lines() >= int(linesEach * events); }, 5000);
    letPass(0.5);
    tellMeasured("log lines for each", double(expense.lines()) / events, "lines");
    VERIFY_BETWEEN(expense.lines() - linesEach * events, 0, 4);
}

SITE_TEST_MAIN(TestSiteLogLines)
#include "tst_SiteLogLines.moc"
