#include "TestSite.h"

#include <QProcess>

using namespace sim;

namespace {

/// The helper, run to its end; -1 when it does not end or crashes.
int release() {
    QProcess helper;
    helper.start(QStringLiteral(KIVO_RELEASE_PTT), QStringList());
    const bool ended = Site::waitFor([&] { return helper.state() == QProcess::NotRunning; }, 10000);
    return ended && helper.exitStatus() == QProcess::NormalExit ? helper.exitCode() : -1;
}

} // namespace

/// The helper that the service runs after any end of the daemon.
class TestReleasePtt : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aDaemonThatIsKilledWhileKeyedLeavesNoTransmitterOn();
    void anInvertedBoardThatTheOpeningRestartsIsToldItsPolarityBeforeTheLastRelease();
    void withoutABoardThereIsNothingToRelease();
    void aBoardThatIsGoneIsAFailure();
};

void TestReleasePtt::aDaemonThatIsKilledWhileKeyedLeavesNoTransmitterOn() {
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    QVERIFY(site.keysFor(*member));

    site.daemon().kill();
    QVERIFY(site.board().isKeyed());
    const std::int64_t killedNs = monotonicNs();
    QCOMPARE(release(), 0);
    const std::int64_t endedNs = monotonicNs();
    QVERIFY(Site::waitFor([&] { return !site.board().isKeyed(); }, 1000));
    const std::int64_t releasedNs = site.board().keyings().back().timeNs;
    VERIFY_BETWEEN(secondsBetween(killedNs, releasedNs), 0.0, 3.0);
    VERIFY_BETWEEN(secondsBetween(releasedNs, endedNs), 1.0, 10.0); // not only when the board is told again
}

void TestReleasePtt::anInvertedBoardThatTheOpeningRestartsIsToldItsPolarityBeforeTheLastRelease() {
    TestSite site;
    site.writeConfig({{"ptt_invert"_s, true}, {"cos_logic_high"_s, false}});
    QCOMPARE(release(), 0);
    QVERIFY(Site::waitFor([&] { return site.board().linesHeard().size() >= 4; }, 1000));
    QCOMPARE(site.board().linesHeard(),
             (QList<QByteArray>{"PTT:0", "CONFIG:COS_HIGH:0", "CONFIG:PTT_INVERT:1", "PTT:0"}));
}

void TestReleasePtt::withoutABoardThereIsNothingToRelease() {
    TestSite site;
    site.writeConfig({{"serial_port"_s, QString()}});
    QCOMPARE(release(), 0);
    QCOMPARE(site.board().linesHeard(), QList<QByteArray>());
}

void TestReleasePtt::aBoardThatIsGoneIsAFailure() {
    TestSite site;
    site.writeConfig({{"serial_port"_s, "/dev/kivo-no-such-board"_s}});
    QCOMPARE(release(), 1);
}

SITE_TEST_MAIN(TestReleasePtt)
#include "tst_ReleasePtt.moc"
