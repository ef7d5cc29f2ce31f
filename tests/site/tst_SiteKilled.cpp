#include "Measured.h"

#include <QDir>

#include <unistd.h>

using namespace sim;

namespace {

const QString lockFolder = "/var/lock"_s;

QStringList serialLocks() {
    return QDir(lockFolder).entryList({"LCK*"_s}, QDir::Files);
}

QByteArray contentOf(const QString &path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

/// The daemon is killed hard, in the midst of everything, and started again as the service does.
class TestSiteKilled : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aKilledDaemonComesBackThroughTheLockItLeft();
    void aLockWhoseProcessIsAnotherProgramByNowIsNoObstacle();
    void aTalkThatGoesOnMeanwhileIsReleasedAtItsEnd();
};

void TestSiteKilled::aKilledDaemonComesBackThroughTheLockItLeft() {
    TestSite site;
    QVERIFY(site.bringUp());
    site.server().move(site.gateway(), "Hilltop"_s);
    QVERIFY(Site::waitFor([&] { return site.readConfig().value("last_room"_s) == "Hilltop"_s; }, 5000));
    for (int turn = 1; turn <= 3; ++turn) {
        site.board().setSquelch(true);
        QVERIFY(Site::waitFor([&] { return site.server().isTalking(site.gateway()); }, 5000));
        site.daemon().kill();
        QVERIFY(Site::waitFor([&] { return !site.server().isTalking(site.gateway()); }, 2000));
        QVERIFY(Site::waitFor([&] { return !site.board().isPortOpen(); }, 2000));
        QCOMPARE(serialLocks().size(), 1); // left behind

        const std::int64_t startedNs = monotonicNs();
        QVERIFY(site.daemon().start());
        QVERIFY(site.waitUntilBack("Hilltop"_s, startedNs));
        const double portSeconds = secondsBetween(startedNs, site.timeLogged("[Arduino] Connected to"_s, startedNs));
        const double roomSeconds = secondsBetween(startedNs, monotonicNs());
        tellMeasured("serial port open after a start", portSeconds, "s");
        tellMeasured("in its room, with media, after a start", roomSeconds, "s");
        VERIFY_BETWEEN(portSeconds, 0.0, 2.0);
        VERIFY_BETWEEN(roomSeconds, 0.0, 6.0);
        QVERIFY(site.card().isCaptureOpen() && site.card().isPlaybackOpen());
        site.board().setSquelch(false);
    }
    QCOMPARE(site.daemon().logged("[Arduino] Failed to open port"_s), QStringList());
    QCOMPARE(site.daemon().logged("[Config]"_s), QStringList());
}

void TestSiteKilled::aLockWhoseProcessIsAnotherProgramByNowIsNoObstacle() {
    TestSite site;
    QVERIFY(site.bringUp());
    QCOMPARE(serialLocks().size(), 1);
    const QString lock = lockFolder + u'/' + serialLocks().first();
    QList<QByteArray> lines = contentOf(lock).split('\n');
    QCOMPARE(lines.first().trimmed().toLongLong(), site.daemon().processId());
    site.daemon().kill();
    // After a restart of the machine, or of very many programs, the number is this test's.
    lines.first() = QByteArray::number(qlonglong(getpid()));
    QFile file(lock);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(lines.join('\n')) > 0 && file.flush());
    site.daemon().forgetLog();
    QVERIFY(site.daemon().start());
    QVERIFY(site.waitForLog("[Arduino] Connected to"_s, 5000));
    QCOMPARE(site.daemon().logged("[Arduino] Failed"_s), QStringList());
}

void TestSiteKilled::aTalkThatGoesOnMeanwhileIsReleasedAtItsEnd() {
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    QVERIFY(site.keysFor(*member));
    site.daemon().kill();
    const std::int64_t startedNs = monotonicNs();
    QVERIFY(site.daemon().start());
    QVERIFY(site.waitUntilBack("Lobby"_s, startedNs));
    QVERIFY(Site::waitFor([&] { return site.timeLogged("[TX] \"EF2GH\" TX"_s, startedNs) > 0; }, 5000));
    const std::int64_t stoppedNs = monotonicNs();
    member->stopTalking();
    QVERIFY(Site::waitFor([&] { return !site.board().isKeyed(); }, 2000));
    tellMeasured("PTT released after the talk has ended",
                 secondsBetween(stoppedNs, site.board().keyings().back().timeNs) * 1000, "ms");
}

SITE_TEST_MAIN(TestSiteKilled)
#include "tst_SiteKilled.moc"
