#include "Hearing.h"
#include "Measured.h"

#include <QDir>

#include <atomic>
#include <thread>

using namespace sim;

namespace {

constexpr int floodSize = 10'000 / slowness;

QString folder() {
    return sitePaths().appliance + "/tmp"_s;
}

QString inFolder(const QString &name) {
    return folder() + QLatin1Char('/') + name;
}

/// Where files are made complete before they get the name by which they are found.
QString prepared(int number) {
    return sitePaths().appliance + QStringLiteral("/sounds/%1").arg(number);
}

/// In the order of the numbers.
QString commandFile(int number) {
    return inFolder(QStringLiteral("kivo-cmd-%1.json").arg(number, 5, 10, QLatin1Char('0')));
}

QStringList commandFiles() {
    return QDir(folder()).entryList({"kivo-cmd-*.json"_s});
}

void prepareCommands() {
    for (int i = 0; i < floodSize; ++i) {
        QFile file(prepared(i));
        if (!file.open(QIODevice::WriteOnly) || file.write(R"({"action":"no_such_action","room":"Lobby"})") < 0)
            qFatal("cannot prepare a command");
    }
}

void dropPreparedCommands() {
    for (int i = 0; i < floodSize; ++i) {
        if (!QFile::rename(prepared(i), commandFile(i)))
            qWarning("cannot drop a command");
    }
}

/// Does it without holding up this program's own talking and listening.
void inBackground(void (*work)()) {
    std::atomic<bool> isDone = false;
    std::thread worker([&] {
        work();
        isDone = true;
    });
    Site::waitFor([&] { return isDone.load(); }, 60000);
    worker.join();
}

} // namespace

/// What is too much, too big or no command at all.
class TestSiteWebUiFlood : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init() { m_site->forgetSent(); }
    void cleanupTestCase() { m_site.reset(); }

    void aFileOfAbsurdSizeIsDeletedUnread_data();
    void aFileOfAbsurdSizeIsDeletedUnread();
    void badCommandsAreDeletedAndCauseNothing();
    void commandsRunInTheOrderOfTheirNames();
    void tenThousandCommandsCostNoSound();

private:
    bool finishScan();

    std::unique_ptr<TestSite> m_site;
};

void TestSiteWebUiFlood::initTestCase() {
    const Account admin = Site::adminAccount();
    m_site = std::make_unique<TestSite>();
    m_site->writeConfig({{"callsign"_s, admin.callsign}, {"password"_s, admin.password}});
    QVERIFY(m_site->server().start());
    QVERIFY(m_site->daemon().start());
    QVERIFY(Site::waitFor([&] { return m_site->server().roomOf(admin.callsign) == "Lobby"_s; }, 15000));
    QVERIFY(m_site->waitForLog("[UDP] Siap"_s, 5000));
}

/// A command that is there later than everything else has been carried out.
bool TestSiteWebUiFlood::finishScan() {
    const int before = m_site->sent("ADMIN_PENDING"_s).size();
    m_site->dropFile("kivo-cmd-zzz.json"_s, R"({"action":"admin_pending"})");
    return m_site->waitForSent("ADMIN_PENDING"_s, 5000, before + 1);
}

void TestSiteWebUiFlood::aFileOfAbsurdSizeIsDeletedUnread_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("begin");
    QTest::addColumn<QString>("line"); // that it must or must not lead to
    QTest::addColumn<qint64>("size");
    QTest::addColumn<bool>("isObeyed");
    const QByteArray join = R"({"action":"join","room":"Lobby"})";
    const QByteArray login = R"({"action":"login","callsign":"XY9ZA","password":"admin"})";
    QTest::newRow("a command of 1 MiB") << "kivo-cmd-1.json"_s << join << "JOIN"_s << qint64(1 << 20) << true;
    QTest::newRow("a command beyond") << "kivo-cmd-1.json"_s << join << "JOIN"_s << qint64(1 << 20) + 1 << false;
    QTest::newRow("a login beyond") << "login-cred.json"_s << login << "LOGIN"_s << qint64(1 << 20) + 1 << false;
    QTest::newRow("a command of 8 GiB") << "kivo-cmd-1.json"_s << join << "JOIN"_s << (qint64(8) << 30) << false;
    QTest::newRow("a login of 8 GiB") << "login-cred.json"_s << login << "LOGIN"_s << (qint64(8) << 30) << false;
}

void TestSiteWebUiFlood::aFileOfAbsurdSizeIsDeletedUnread() {
    QFETCH(QString, name);
    QFETCH(QByteArray, begin);
    QFETCH(QString, line);
    QFETCH(qint64, size);
    QFETCH(bool, isObeyed);
    constexpr qint64 paddedSize = 4 << 20;
    const int megabytes = mostMegabytesOf(m_site->daemon());
    {
        QFile file(folder() + "/.hidden"_s);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(begin);
        if (size < paddedSize)
            file.write(QByteArray(int(size) - begin.size(), ' ')); // still a good command
        else
            QVERIFY(file.resize(size)); // a hole
        QVERIFY(file.rename(inFolder(name)));
    }
    QVERIFY(Site::waitFor([&] { return !QFile::exists(inFolder(name)); }, 5000));
    if (isObeyed)
        QVERIFY(m_site->waitForSent(line, 2000));
    QVERIFY(finishScan());
    QCOMPARE(m_site->sent(line).size(), isObeyed ? 1 : 0);
    VERIFY_BETWEEN(mostMegabytesOf(m_site->daemon()), 1, megabytes + 8);
}

void TestSiteWebUiFlood::badCommandsAreDeletedAndCauseNothing() {
    const QList<QByteArray> contents = {
        "",
        "[]",
        "[{\"action\":\"leave\"}]",
        "\"leave\"",
        "leave",
        "{\"action\":\"leave\"",
        "{\"action\":\"Leave\"}",
        "{\"action\":[\"leave\"]}",
        "{\"action\":\"leave\"} more",
        QByteArray(100'000, '['),
        "{\"action\":\"admin_kick\",\"user_id\":-1}",
        "{\"action\":\"admin_kick\",\"user_id\":\"200\"}",
    };
    const int logged = m_site->daemon().log().size();
    for (int i = 0; i < contents.size(); ++i)
        m_site->dropFile(QStringLiteral("kivo-cmd-0%1.json").arg(i), contents.at(i));
    m_site->dropFile("not-a-command.json"_s, R"({"action":"leave"})");
    m_site->dropFile("kivo-cmd-z.txt"_s, R"({"action":"leave"})");
    QVERIFY(Site::waitFor([] { return commandFiles().isEmpty(); }, 5000));
    QVERIFY(finishScan());
    QCOMPARE(m_site->sent("LEAVE"_s) + m_site->sent("ADMIN_KICK"_s), QStringList());
    QVERIFY(QFile::exists(inFolder("not-a-command.json"_s)) && QFile::exists(inFolder("kivo-cmd-z.txt"_s)));
    for (const LogLine &line : m_site->daemon().log().mid(logged))
        QVERIFY2(line.level != "warning"_s, qPrintable(line.text));
}

void TestSiteWebUiFlood::commandsRunInTheOrderOfTheirNames() {
    QVERIFY(finishScan()); // so that all three are there before the next
    for (const QString &name : {"c"_s, "a"_s, "b"_s})
        m_site->dropFile("kivo-cmd-"_s + name + ".json"_s,
                         R"({"action":"admin_set_room_order","order":")" + name.toUtf8() + R"("})");
    QVERIFY(m_site->waitForSent("ADMIN_SET_ROOM_ORDER"_s, 5000, 3));
    QCOMPARE(m_site->sent("ADMIN_SET_ROOM_ORDER"_s),
             (QStringList{"ADMIN_SET_ROOM_ORDER a"_s, "ADMIN_SET_ROOM_ORDER b"_s, "ADMIN_SET_ROOM_ORDER c"_s}));
}

/// Both ways at once, while somebody fills the folder.
void TestSiteWebUiFlood::tenThousandCommandsCostNoSound() {
    constexpr double radioHertz = 1013, roomHertz = 713; // broken numbers of waves per frame
    const auto member = m_site->memberIn("Lobby"_s);
    QVERIFY(member);
    const QString last = commandFile(floodSize - 1); // by name and by time
    struct Heard {
        Pcm inRoom, onAir;
        bool isOver = false;
    };
    const auto duringAFlood = [&] {
        Heard both;
        const std::int64_t fromNs = monotonicNs();
        member->forgetHeard();
        inBackground(dropPreparedCommands);
        const Expense expense(*m_site);
        both.isOver = Site::waitFor([&] { return !QFile::exists(last); }, 30000);
        expense.tell("flood of commands");
        both.onAir = m_site->card().played(fromNs, monotonicNs());
        both.inRoom = member->heardFrom(Site::adminAccount().id);
        return both;
    };
    m_site->board().setSquelch(true);
    const Heard heard = undisturbed(*m_site, duringAFlood, [&] {
        inBackground(prepareCommands);
        m_site->card().clearFeed();
        m_site->card().feed(tone(radioHertz, -10, 70));
        member->speak(tone(roomHertz, -10, 70));
        const std::int64_t fromNs = monotonicNs();
        Site::waitFor([&] { return secondsBetween(fromNs, monotonicNs()) > 1.0; }, 2000); // back to the usual pace
    });
    QVERIFY(heard.isOver);
    QCOMPARE(commandFiles(), QStringList());
    VERIFY_TONE(heard.inRoom, radioHertz, -10);
    VERIFY_TONE(heard.onAir, roomHertz, -10);
}

SITE_TEST_MAIN(TestSiteWebUiFlood)
#include "tst_SiteWebUiFlood.moc"
