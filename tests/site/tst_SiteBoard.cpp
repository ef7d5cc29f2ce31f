#include "Processor.h"

using namespace sim;

namespace {

const QString lost = "[Arduino] Serial port lost:"_s;

} // namespace

/// The board at the other end of the serial line.
class TestSiteBoard : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void theBoardIsConfiguredAndAskedForLife();
    void aResetWhileTheSquelchIsOpenEndsTheTransmission();
    void aResetWithTheSquelchClosedOnlyBringsTheSettingsAgain();
    void aBoardThatVanishesWhileTheSquelchIsOpenEndsTheTransmission();
    void aBoardThatVanishesWhileKeyedLeavesTheRestAtWork();
    void nonsenseFromTheBoardOpensNoSquelch();
    void theEmergencyStopReleasesTheTransmitter();
};

void TestSiteBoard::theBoardIsConfiguredAndAskedForLife() {
    TestSite site;
    site.writeConfig({{"cos_logic_high"_s, false}, {"ptt_invert"_s, true}});
    QVERIFY(site.daemon().start());
    QVERIFY(Site::waitFor([&] { return site.board().linesHeard().contains("PING"); }, 15000));
    QCOMPARE(site.board().linesHeard(), (QList<QByteArray>{"CONFIG:COS_HIGH:0", "CONFIG:PTT_INVERT:1", "PING"}));
    QVERIFY(site.waitForLine("info"_s, "[Arduino] Config sent - COS_HIGH: false PTT_INVERT: true"_s, 1000));
    const std::int64_t openedNs = site.timeLogged("[Arduino] Connected to"_s);
    VERIFY_BETWEEN(secondsBetween(openedNs, site.timeLogged("[Arduino] Config sent"_s)), 1.85, 3.0); // a coarse timer
    VERIFY_BETWEEN(secondsBetween(openedNs, monotonicNs()), 4.5, 7.0);
}

void TestSiteBoard::aResetWhileTheSquelchIsOpenEndsTheTransmission() {
    TestSite site;
    QVERIFY(site.bringUp());
    site.board().announceReady();
    QVERIFY(site.waitForLine("info"_s, "[Arduino] Ready"_s, 5000));
    QVERIFY(site.waitForLog("[Arduino] Config sent"_s, 5000));
    site.board().setSquelch(true);
    QVERIFY(Site::waitFor([&] { return site.server().isTalking(site.gateway()); }, 5000));

    const int heard = site.board().linesHeard().size();
    site.board().reset();
    QVERIFY(Site::waitFor([&] { return !site.server().isTalking(site.gateway()); }, 5000));
    QCOMPARE(site.sent("TX_"_s), (QStringList{"TX_START \"Lobby\""_s, "TX_STOP \"Lobby\""_s}));
    const QString warning = "[Arduino] UNEXPECTED RESET detected! (count: 2 ) — re-sending config"_s;
    QVERIFY(site.waitForLine("warning"_s, warning, 1000));
    QVERIFY(site.waitForStatus("transmitting", false));
    QVERIFY(Site::waitFor([&] { return site.board().linesHeard().mid(heard).contains("CONFIG:PTT_INVERT:0"); }, 5000));
    QVERIFY(site.board().linesHeard().mid(heard).contains("CONFIG:COS_HIGH:1"));
    const QString sent = "[Arduino] Config sent"_s;
    QVERIFY(Site::waitFor([&] { return site.daemon().logged(sent).size() == 2; }, 1000));
    const std::int64_t resetNs = site.timeLogged(warning);
    VERIFY_BETWEEN(secondsBetween(resetNs, site.timeLogged(sent, resetNs)), 0.45, 1.2);

    site.board().setSquelch(true);
    QVERIFY(Site::waitFor([&] { return site.server().isTalking(site.gateway()); }, 5000));
}

void TestSiteBoard::aResetWithTheSquelchClosedOnlyBringsTheSettingsAgain() {
    TestSite site;
    QVERIFY(site.bringUp());
    site.board().announceReady();
    QVERIFY(site.waitForLog("[Arduino] Config sent"_s, 5000));
    for (int count = 2; count <= 3; ++count) {
        site.board().reset();
        QVERIFY(Site::waitFor([&] { return site.daemon().logged("[Arduino] Config sent"_s).size() == count; }, 5000));
        QCOMPARE(site.countLines("warning"_s, QStringLiteral("[Arduino] UNEXPECTED RESET detected! (count: %1 ) — "
                                                             "re-sending config")
                                                  .arg(count)),
                 1);
    }
    QCOMPARE(site.sent("TX_"_s), QStringList());
}

void TestSiteBoard::aBoardThatVanishesWhileTheSquelchIsOpenEndsTheTransmission() {
    TestSite site;
    QVERIFY(site.bringUp());
    site.board().setSquelch(true);
    QVERIFY(Site::waitFor([&] { return site.server().isTalking(site.gateway()); }, 5000));
    site.board().setSquelch(false);
    QVERIFY(Site::waitFor([&] { return !site.server().isTalking(site.gateway()); }, 5000));
    const double idle = processorLoad(site);
    site.board().setSquelch(true);
    QVERIFY(Site::waitFor([&] { return site.server().isTalking(site.gateway()); }, 5000));

    const QString port = site.board().portName();
    site.board().vanish();
    QVERIFY(Site::waitFor([&] { return !site.server().isTalking(site.gateway()); }, 2000));
    QCOMPARE(site.sent("TX_"_s).last(), "TX_STOP \"Lobby\""_s);
    QVERIFY(site.waitForLine("warning"_s, lost + " \""_s + port + "\" — radio interface closed"_s, 1000));
    QVERIFY(site.waitForStatus("transmitting", false));
    VERIFY_NOT_BUSIER(site, idle);
    QCOMPARE(site.daemon().logged(lost).size(), 1);
    QVERIFY(site.waitForStatus("connected", true));
}

void TestSiteBoard::aBoardThatVanishesWhileKeyedLeavesTheRestAtWork() {
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    const double idle = processorLoad(site);
    QVERIFY(site.keysFor(*member));
    site.board().vanish();
    QVERIFY(site.waitForLog(lost, 2000));
    VERIFY_NOT_BUSIER(site, idle);
    member->stopTalking();
    member->startTalking();
    site.server().move(site.gateway(), "Hilltop"_s);
    QVERIFY(site.waitForStatus("room", "Hilltop"_s));
    QCOMPARE(site.daemon().logged(lost).size(), 1);
    QVERIFY(site.daemon().isRunning());
}

void TestSiteBoard::nonsenseFromTheBoardOpensNoSquelch() {
    TestSite site;
    QVERIFY(site.bringUp());
    QByteArray everyByte;
    for (int byte = 0; byte < 256; ++byte)
        everyByte += char(byte);
    const QList<QByteArray> nonsense = {
        everyByte + '\n', "cos:1\r\n",       "COS:1 x\r\n",    "COS:\n",
        "COS:11\n",       "xCOS:1\r\n",      "COS:1",          " more\n",
        "\n\r\n\n",       "PTT:1\r\nPING\n", "ARDUINO:READ\n", QByteArray(200'000, 'C') + '\n',
    };
    for (const QByteArray &bytes : nonsense)
        site.board().sendRaw(bytes);
    // All of that has been read when this one is answered, and nothing was made of it.
    site.board().announceReady();
    QVERIFY(site.waitForLine("info"_s, "[Arduino] Ready"_s, 10000));
    QCOMPARE(site.sent("TX_"_s), QStringList());

    site.board().sendRaw("CO");
    site.board().sendRaw("S:1\r");
    site.board().sendRaw("\n");
    QVERIFY(Site::waitFor([&] { return site.server().isTalking(site.gateway()); }, 5000));
    site.board().sendRaw("  COS:0 \t\r\n");
    QVERIFY(Site::waitFor([&] { return !site.server().isTalking(site.gateway()); }, 5000));
    QCOMPARE(site.sent("TX_"_s).size(), 2);
}

void TestSiteBoard::theEmergencyStopReleasesTheTransmitter() {
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    QVERIFY(site.keysFor(*member));
    site.dropFile("kivo-cmd-stop.json"_s, R"({"action":"tx_stop_emergency"})");
    QVERIFY(Site::waitFor([&] { return !site.board().isKeyed(); }, 2000));
    QCOMPARE(site.board().linesHeard().last(), QByteArray("PTT:0"));
    QVERIFY(site.waitForLine("info"_s, "[TX] Emergency TX_STOP — siap shutdown"_s, 1000));
    QCOMPARE(site.daemon().logged("EMERGENCY"_s), QStringList()); // nothing was being transmitted into the room
    QCOMPARE(site.sent("TX_"_s), QStringList());
}

SITE_TEST_MAIN(TestSiteBoard)
#include "tst_SiteBoard.moc"
