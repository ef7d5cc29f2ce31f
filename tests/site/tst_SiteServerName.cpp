#include "Measured.h"

using namespace sim;

namespace {

void giveName(const QByteArray &name) {
    QFile hosts(sitePaths().hostsFile);
    if (!hosts.open(QIODevice::Append) || hosts.write("127.0.0.1 " + name + "\n") < 0)
        qFatal("cannot add a host");
}

} // namespace

/// The server is known by its name.
class TestSiteServerName : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aNameIsResolvedForBothLinks();
    void aNameThatDoesNotResolveIsTriedUntilItDoes();
};

void TestSiteServerName::aNameIsResolvedForBothLinks() {
    TestSite site;
    giveName("voice.darvi.example");
    site.writeConfig({{"server_address"_s, "voice.darvi.example"_s}});
    QVERIFY(site.bringUp());
    QVERIFY(site.logsOnce("debug"_s, "[TCP] Connecting to \"voice.darvi.example\" : 8080"_s));
    QVERIFY(site.logsOnce("debug"_s, "[UDP]   host: \"voice.darvi.example\""_s));
    QVERIFY(site.logsOnce("debug"_s, "[UDP] Resolved to: \"127.0.0.1\""_s));
}

void TestSiteServerName::aNameThatDoesNotResolveIsTriedUntilItDoes() {
    TestSite site;
    site.writeConfig({{"server_address"_s, "late.darvi.example"_s}});
    QVERIFY(site.server().start());
    QVERIFY(site.daemon().start());
    QVERIFY(site.waitForLine("warning"_s, "[TCP] Error: \"Host not found\""_s, 20000));
    // Looking up does not hold up the loop: the levels are written five times a second all the while.
    QVERIFY(Site::waitFor([&] { return !site.readState("kivo-vu.json"_s).isNull(); }, 2000));
    const Expense expense(site);
    QVERIFY(Site::waitFor([&] { return site.daemon().logged("\"Host not found\""_s).size() >= 2; }, 20000));
    expense.tell("a name that does not resolve");
    VERIFY_CHEAP(expense);
    const QList<LogLine> log = site.daemon().log();
    std::vector<std::int64_t> attempts, failures;
    for (const LogLine &line : log) {
        if (line.text.contains("[TCP] Connecting"_s))
            attempts.push_back(line.saidNs);
        if (line.text.contains("Host not found"_s))
            failures.push_back(line.saidNs);
    }
    QVERIFY(attempts.size() >= 2);
    VERIFY_BETWEEN(secondsBetween(failures[0], attempts[1]), 4.5, 8.0);
    giveName("late.darvi.example");
    const std::int64_t healedNs = monotonicNs();
    QVERIFY(site.waitUntilBack("Lobby"_s, healedNs, 15000));
    tellMeasured("back in its room", secondsBetween(healedNs, monotonicNs()), "s after the name was there");
    VERIFY_BETWEEN(secondsBetween(healedNs, site.timeLogged("[TCP] Connected!"_s)), 0, 8.0);
}

SITE_TEST_MAIN(TestSiteServerName)
#include "tst_SiteServerName.moc"
