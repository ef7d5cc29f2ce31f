#include "Measured.h"

#include <QElapsedTimer>

using namespace sim;

namespace {

/// What a serial line of 9600 baud carries in an hour, in lines of that many bytes.
double linesPerHourAt9600Baud(int bytes) {
    return 960.0 * 3600.0 / bytes;
}

QByteArray everyByteButTheLineEnd() {
    QByteArray bytes;
    for (int byte = 0; byte < 256; ++byte) {
        if (byte != '\n')
            bytes += char(byte);
    }
    return bytes;
}

} // namespace

/// A board that fails, and what becomes of the transmissions meanwhile.
class TestSiteBoardFaults : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aBoardThatResetsEverySecondEndsEachTransmissionAndIsKeyedForEachTalk();
    void aFloodFromTheBoardDelaysNoRelease_data();
    void aFloodFromTheBoardDelaysNoRelease();
    void aBoardThatAlwaysHasNewsIsObeyedToTheLast();
    void aBoardThatVanishesInTheMidstOfBothTransmissionsEndsTheOneIntoTheRoom();
};

void TestSiteBoardFaults::aBoardThatResetsEverySecondEndsEachTransmissionAndIsKeyedForEachTalk() {
    constexpr int resets = 10;
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    site.board().announceReady();
    QVERIFY(site.waitForLog("[Arduino] Ready"_s, 5000));
    QVERIFY(site.waitForLog("[Appliance] Gateway info saved"_s, 5000));
    const Expense expense(site);
    const int heardBefore = site.board().linesHeard().size();
    double mostSeconds = 0;
    for (int reset = 0; reset < resets; ++reset) {
        // A call from the radio and a talk in the room, both in the midst of which the board starts anew.
        site.board().setSquelch(true);
        QVERIFY(Site::waitFor([&] { return site.server().isTalking(site.gateway()); }, 5000));
        QVERIFY(site.keysFor(*member));
        const std::int64_t resetNs = monotonicNs();
        site.board().reset();
        QVERIFY(Site::waitFor([&] { return !site.server().isTalking(site.gateway()); }, 5000));
        mostSeconds = std::max(mostSeconds, secondsBetween(resetNs, monotonicNs()));
        member->stopTalking();
        QVERIFY(Site::waitFor([&] { return site.board().linesHeard().last() == "PTT:0"; }, 5000));
        letPass(1.0 - secondsBetween(resetNs, monotonicNs()));
    }
    tellMeasured("TX_STOP after a reset, at most", mostSeconds * 1000, "ms");
    expense.tell("board resets every second");
    VERIFY_BETWEEN(mostSeconds, 0.0, 0.5);
    VERIFY_CHEAP(expense);
    QCOMPARE(site.sent("TX_STOP"_s).size(), resets);
    QVERIFY(!site.board().isKeyed());
    QCOMPARE(site.daemon().logged("[Server] Terputus"_s), QStringList());

    // Each time it is told its settings again.
    QVERIFY(Site::waitFor(
        [&] { return site.board().linesHeard().mid(heardBefore).count("CONFIG:PTT_INVERT:0") >= resets; }, 3000));
    QCOMPARE(site.daemon().logged("[Arduino] UNEXPECTED RESET detected!"_s).size(), resets);
    QVERIFY(site.daemon().logged("[Arduino] UNEXPECTED RESET detected!"_s).last().contains("(count: 11 )"_s));
}

void TestSiteBoardFaults::aFloodFromTheBoardDelaysNoRelease_data() {
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("garbage") << everyByteButTheLineEnd() + '\n';
    QTest::newRow("a line without an end") << QByteArray(4096, 'C');
    QTest::newRow("empty lines") << QByteArray(1024, '\n');
    QTest::newRow("answers to nothing") << QByteArray("PONG\r\nPTT_ON\r\nPTT_OFF\r\n");
}

void TestSiteBoardFaults::aFloodFromTheBoardDelaysNoRelease() {
    constexpr int megabytes = 24 / slowness; // 24: seven hours of a serial line of 9600 baud
    QFETCH(QByteArray, bytes);
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    QVERIFY(site.waitForLog("[Appliance] Gateway info saved"_s, 5000));
    QVERIFY(site.keysFor(*member));
    QVERIFY(site.waitForLog("[TX] \"EF2GH\" TX"_s, 2000));
    const Expense expense(site);
    QByteArray megabyte;
    while (megabyte.size() < 1'000'000)
        megabyte += bytes;
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < megabytes; ++i)
        site.board().sendRaw(megabyte);
    const std::int64_t stoppedNs = monotonicNs();
    member->stopTalking();
    QVERIFY(Site::waitFor([&] { return !site.board().isKeyed(); }, 5000));
    const double releaseSeconds = secondsBetween(stoppedNs, site.board().keyings().back().timeNs);
    QVERIFY(Site::waitFor([&] { return site.board().isAllSent(); }, 60000));
    qInfo("measured: %d MB of it taken in %.1f s", megabytes, double(timer.elapsed()) / 1000.0);
    letPass(0.5); // behind a NUL, the rest of what is read at once is lost
    site.board().sendRaw("\nCOS:1\r\n");
    QVERIFY(Site::waitFor([&] { return site.server().isTalking(site.gateway()); }, 5000));
    tellMeasured("PTT released in the midst of it", releaseSeconds * 1000, "ms");
    VERIFY_BETWEEN(releaseSeconds, 0.0, 0.5);
    VERIFY_NO_PEAK(expense);
    // Of all that, the log has the talk's end and the call.
    QVERIFY(site.waitForLog("[TX] \"AB1CD\" TX"_s, 2000));
    QCOMPARE(expense.lines(), 2);
    QCOMPARE(site.daemon().logged("[Server] Terputus"_s), QStringList());
}

/// The lines that mean something, as fast as a line carries them.
void TestSiteBoardFaults::aBoardThatAlwaysHasNewsIsObeyedToTheLast() {
    constexpr int times = 1000;
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    QVERIFY(site.waitForLog("[Appliance] Gateway info saved"_s, 5000));
    QVERIFY(site.keysFor(*member));
    QVERIFY(site.waitForLog("[TX] \"EF2GH\" TX"_s, 2000));
    const int linesOfSquelch = [&] {
        const Expense expense(site);
        for (int i = 0; i < times; ++i)
            site.board().sendRaw("COS:1\r\nCOS:0\r\n");
        Site::waitFor([&] { return site.sent("TX_STOP"_s).size() == times; }, 20000);
        return expense.lines();
    }();
    QCOMPARE(site.sent("TX_START"_s).size(), times);
    QCOMPARE(site.sent("TX_STOP"_s).size(), times);
    QVERIFY(site.waitForStatus("transmitting", false));
    QVERIFY(!site.server().isTalking(site.gateway()));
    QCOMPARE(linesOfSquelch, 2 * times);
    const int linesOfResets = [&] {
        const Expense expense(site);
        for (int i = 0; i < times; ++i)
            site.board().sendRaw("ARDUINO:READY\r\n");
        Site::waitFor([&] { return site.daemon().logged("[Arduino] Config sent"_s).size() >= times; }, 20000);
        return expense.lines();
    }();
    VERIFY_BETWEEN(linesOfResets, 2 * times - 2, 2 * times + 2);
    qInfo("measured: squelch to and fro at 9600 baud: %.0f log lines an hour",
          linesPerHourAt9600Baud(14) * linesOfSquelch / times);
    qInfo("measured: resets without a break at 9600 baud: %.0f log lines an hour",
          linesPerHourAt9600Baud(15) * linesOfResets / times);
    member->stopTalking();
    QVERIFY(Site::waitFor([&] { return !site.board().isKeyed(); }, 2000));
    QCOMPARE(site.daemon().logged("[Server] Terputus"_s), QStringList());
}

void TestSiteBoardFaults::aBoardThatVanishesInTheMidstOfBothTransmissionsEndsTheOneIntoTheRoom() {
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    QVERIFY(site.waitForLog("[Appliance] Gateway info saved"_s, 5000));
    site.board().setSquelch(true);
    member->startTalking();
    QVERIFY(Site::waitFor([&] { return site.board().isKeyed() && site.server().isTalking(site.gateway()); }, 5000));
    QVERIFY(site.waitForLog("[TX] \"EF2GH\" TX"_s, 2000));
    const Expense expense(site);
    const std::int64_t vanishedNs = monotonicNs();
    site.board().vanish();
    QVERIFY(Site::waitFor([&] { return !site.server().isTalking(site.gateway()); }, 5000));
    const double seconds = secondsBetween(vanishedNs, monotonicNs());
    tellMeasured("TX_STOP after the board has vanished", seconds * 1000, "ms");
    VERIFY_BETWEEN(seconds, 0.0, 0.5);
    letPass(3.0);
    expense.tell("board vanished");
    VERIFY_CHEAP(expense);
    QCOMPARE(expense.lines(), 2); // that it is lost, and the end of the transmission
    QVERIFY(site.waitForStatus("transmitting", false));
    QVERIFY(site.waitForStatus("connected", true));
    QCOMPARE(site.sent("TX_"_s), (QStringList{"TX_START \"Lobby\""_s, "TX_STOP \"Lobby\""_s}));
}

SITE_TEST_MAIN(TestSiteBoardFaults)
#include "tst_SiteBoardFaults.moc"
