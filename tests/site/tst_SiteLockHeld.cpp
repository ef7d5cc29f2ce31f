#include "Measured.h"

#include <sys/file.h>

using namespace sim;

namespace {

/// The Web UI's side of the lock.
class ForeignLock {
public:
    ForeignLock() : m_file(sitePaths().appliance + "/config/config.lock"_s) {
        isHeld = m_file.open(QIODevice::ReadWrite) && flock(m_file.handle(), LOCK_EX | LOCK_NB) == 0;
    }
    bool isHeld = false;

private:
    QFile m_file;
};

} // namespace

/// Somebody takes the configuration's lock and never gives it back.
class TestSiteLockHeld : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void noReleaseIsHeldUpForLongerThanTheWaitOfOneSave();
};

void TestSiteLockHeld::noReleaseIsHeldUpForLongerThanTheWaitOfOneSave() {
    TestSite site;
    site.writeConfig();
    const ForeignLock lock; // for all that follows
    QVERIFY(lock.isHeld);
    const std::int64_t startedNs = monotonicNs();
    QVERIFY(site.bringUp(45000));
    tellMeasured("in its room, with media, after a start", secondsBetween(startedNs, monotonicNs()), "s");
    const auto member = site.memberIn("Lobby"_s);
    QVERIFY(member);
    const QString gaveUp = "[Config] Could not acquire lock after 5s"_s;
    QVERIFY(Site::waitFor([&] { return site.daemon().logged(gaveUp).size() == 4; }, 30000)); // those of a login
    QCOMPARE(site.daemon().logged("[Server] Terputus"_s), QStringList());
    verifyBothWaysFollow(site, *member);
    if (QTest::currentTestFailed())
        return;

    // Both transmissions end while a save has just begun to wait.
    site.board().setSquelch(true);
    member->startTalking();
    QVERIFY(Site::waitFor([&] { return site.board().isKeyed() && site.server().isTalking(site.gateway()); }, 5000));
    const Expense expense(site);
    const QString command = sitePaths().appliance + "/tmp/kivo-cmd-1.json"_s;
    site.dropFile("kivo-cmd-1.json"_s, R"({"action":"set_tot","value":60})");
    QVERIFY(Site::waitFor([&] { return !QFile::exists(command); }, 2000));
    const std::int64_t endedNs = monotonicNs();
    site.board().setSquelch(false);
    member->stopTalking();
    QVERIFY(Site::waitFor([&] { return !site.board().isKeyed() && !site.server().isTalking(site.gateway()); }, 10000));
    const double seconds = secondsBetween(endedNs, monotonicNs());
    tellMeasured("both released after", seconds, "s");
    VERIFY_BETWEEN(seconds, 0.0, 6.5);
    expense.tell("lock held for ever");
    VERIFY_CHEAP(expense);
    QCOMPARE(site.daemon().logged(gaveUp).size(), 5);
    QVERIFY(site.waitForStatus("connected", true));
    QCOMPARE(site.daemon().logged("[Server] Terputus"_s), QStringList());
}

SITE_TEST_MAIN(TestSiteLockHeld)
#include "tst_SiteLockHeld.moc"
