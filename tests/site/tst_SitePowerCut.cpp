#include "Obstacle.h"
#include "TestSite.h"
#include "sim/site/CallTracer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/syscall.h>

using namespace sim;

namespace {

const std::string folder = "/opt/kivo-appliance/config/";
const std::string configFile = folder + "config.json", newFile = folder + "config.json.tmp",
                  lockFile = folder + "config.lock";

/// A call of a save, with what it is about.
struct Call {
    std::uint64_t number = 0;
    std::string path;      ///< of what is opened, or of the file behind the descriptor
    std::string otherPath; ///< to which it is renamed
    std::uint64_t flags = 0;
    std::uint64_t bytes = 0;
    std::int64_t result = 0;
};

bool isRename(const Call &call) {
#ifdef SYS_rename
    if (call.number == SYS_rename)
        return true;
#endif
    return call.number == SYS_renameat || call.number == SYS_renameat2;
}

/// Follows a save of a process that it leads, and knows the descriptors that the save opens.
class SaveFollower {
public:
    explicit SaveFollower(CallTracer &tracer) : m_tracer(tracer) {}

    /// To the save's first call, the opening of the lock; it is not made yet.
    bool findBeginning() {
        do {
            m_next = m_tracer.next();
        } while (m_next && !(m_next->number == SYS_openat && pathOf(1) == lockFile));
        return m_next.has_value();
    }
    /// Has the next call made. Nothing when the save is over: the lock has been closed.
    std::optional<Call> step() {
        if (m_isOver || !m_next)
            return std::nullopt;
        Call call = describe();
        m_next = m_tracer.next();
        call.result = m_tracer.result();
        keepTrack(call);
        return call;
    }

private:
    std::string pathOf(std::size_t argument) const { return m_tracer.textAt(m_next->arguments[argument]); }

    Call describe() const {
        Call call;
        call.number = m_next->number;
        const auto &arguments = m_next->arguments;
        if (call.number == SYS_openat) {
            call.path = pathOf(1);
            call.flags = arguments[2];
        } else if (isRename(call)) {
            const bool isAt = call.number == SYS_renameat || call.number == SYS_renameat2;
            call.path = pathOf(isAt ? 1 : 0);
            call.otherPath = pathOf(isAt ? 3 : 1);
        } else {
            call.path = m_paths.value(int(arguments[0]));
            call.bytes = arguments[2];
        }
        return call;
    }
    void keepTrack(const Call &call) {
        if (call.number == SYS_openat && call.result >= 0)
            m_paths.insert(int(call.result), call.path);
        m_isOver = call.number == SYS_close && call.path == lockFile;
    }

    CallTracer &m_tracer;
    std::optional<SystemCall> m_next;
    QMap<int, std::string> m_paths;
    bool m_isOver = false;
};

QByteArray contentOf(const std::string &path) {
    QFile file(QString::fromStdString(path));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

int indexOf(const std::vector<Call> &calls, const std::function<bool(const Call &)> &isIt) {
    const auto found = std::find_if(calls.begin(), calls.end(), isIt);
    return found == calls.end() ? -1 : int(found - calls.begin());
}

} // namespace

/// The power fails in the midst of a save, at each point at which it may.
class TestSitePowerCut : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void theNewFileIsOnTheDiskBeforeItTakesTheOldOnesPlace();
    void betweenAnyTwoCallsTheOldOrTheNewFileIsWhole();
    void cleanupTestCase() { m_site.reset(); }

private:
    bool start();
    void orderSave(int tot);

    std::unique_ptr<TestSite> m_site;
    std::vector<Call> m_calls; ///< of a whole save, in order
};

void TestSitePowerCut::initTestCase() {
    m_site = std::make_unique<TestSite>();
    m_site->writeConfig({{"server_address"_s, QString()}, {"tot_duration"_s, 180}, {"theme"_s, "dark"_s}});
}

/// With what the last save has left; it must be as good a start as any.
bool TestSitePowerCut::start() {
    m_site->daemon().forgetLog();
    return m_site->daemon().start() && m_site->waitForLog("berjalan"_s, 5000);
}

void TestSitePowerCut::orderSave(int tot) {
    m_site->dropFile("kivo-cmd-1.json"_s, R"({"action":"set_tot","value":)" + QByteArray::number(tot) + '}');
}

void TestSitePowerCut::theNewFileIsOnTheDiskBeforeItTakesTheOldOnesPlace() {
    QVERIFY(start());
    {
        CallTracer tracer(pid_t(m_site->daemon().processId()));
        if (!tracer.isAttached())
            QSKIP(std::strerror(errno));
        orderSave(60);
        SaveFollower save(tracer);
        QVERIFY(save.findBeginning());
        while (const auto call = save.step())
            m_calls.push_back(*call);
    }
    m_site->daemon().kill();
    QCOMPARE(m_site->readConfig().value("tot_duration"_s), QJsonValue(60));

    const int locked = indexOf(m_calls, [](const Call &c) { return c.number == SYS_flock && c.path == lockFile; });
    const int opened = indexOf(m_calls, [](const Call &c) { return c.number == SYS_openat && c.path == newFile; });
    const int written = indexOf(m_calls, [](const Call &c) { return c.number == SYS_write && c.path == newFile; });
    const int synced = indexOf(m_calls, [](const Call &c) { return c.number == SYS_fsync && c.path == newFile; });
    const int renamed = indexOf(m_calls, isRename);
    QVERIFY(0 < locked && locked < opened && opened < written && written < synced && synced < renamed);
    QCOMPARE(m_calls[std::size_t(written)].result, std::int64_t(contentOf(configFile).size())); // in one call
    QCOMPARE(m_calls[std::size_t(synced)].result, std::int64_t(0));
    QCOMPARE(m_calls[std::size_t(renamed)].path, newFile);
    QCOMPARE(m_calls[std::size_t(renamed)].otherPath, configFile);
    // Nothing is written between the two, and the file of that name is never opened to be written.
    for (std::size_t i = 0; i < m_calls.size(); ++i) {
        const Call &call = m_calls[i];
        QVERIFY(call.number != SYS_write || int(i) == written);
        QVERIFY(call.number != SYS_openat || call.path != configFile || (call.flags & O_ACCMODE) == O_RDONLY);
    }
    qInfo("measured: a save is %d system calls; the new file is written by number %d, on the disk with number %d, in "
          "place with number %d",
          int(m_calls.size()), written + 1, synced + 1, renamed + 1);
}

void TestSitePowerCut::betweenAnyTwoCallsTheOldOrTheNewFileIsWhole() {
    if (m_calls.empty())
        QSKIP("no save was followed");
    const int renamed = indexOf(m_calls, isRename);
    int oldFiles = 0, newFiles = 0;
    for (int made = 0; made <= int(m_calls.size()); ++made) {
        const QJsonObject before = m_site->readConfig();
        const int tot = before.value("tot_duration"_s).toInt() == 60 ? 90 : 60;
        QJsonObject after = before;
        after.insert("tot_duration"_s, tot);
        QVERIFY(start());
        QCOMPARE(m_site->daemon().logged("[Config]"_s), QStringList());
        {
            CallTracer tracer(pid_t(m_site->daemon().processId()));
            QVERIFY(tracer.isAttached());
            orderSave(tot);
            SaveFollower save(tracer);
            QVERIFY(save.findBeginning());
            for (int call = 0; call < made; ++call)
                QVERIFY(save.step().has_value());
            m_site->daemon().kill();
        }
        QCOMPARE(modeOf(QString::fromStdString(configFile)) & 0664u, mode_t(0664)); // the Web UI's at any time
        const QJsonObject left = m_site->readConfig();
        QVERIFY2(left == (made > renamed ? after : before), qPrintable(QStringLiteral("after %1 calls").arg(made)));
        ++(made > renamed ? newFiles : oldFiles);
    }
    qInfo("measured: %d cuts left the old file, %d the new one, each whole", oldFiles, newFiles);
    // And the last one left is as good as ever.
    QVERIFY(start());
    QVERIFY(m_site->waitForLog("[Arduino] Connected to \""_s + m_site->board().portName() + u'"', 2000));
    orderSave(120);
    QVERIFY(Site::waitFor([&] { return m_site->readConfig().value("tot_duration"_s) == 120; }, 5000));
    QCOMPARE(m_site->readConfig().value("theme"_s), QJsonValue("dark"_s));
}

SITE_TEST_MAIN(TestSitePowerCut)
#include "tst_SitePowerCut.moc"
