#include "sim/MonotonicClock.h"
#include "sim/site/Daemon.h"

#include <QSignalSpy>
#include <QtTest>

#include <csignal>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace sim;

namespace {

/// A shell script in the daemon's place.
QStringList script(const char *text) {
    return {QStringLiteral("/bin/sh"), QStringLiteral("-c"), QString::fromUtf8(text)};
}

/// Not even dead and unburied.
bool isAlive(pid_t process) {
    QFile state(QStringLiteral("/proc/%1/stat").arg(process));
    return state.open(QIODevice::ReadOnly) && !state.readAll().contains(") Z ");
}

} // namespace

class TestDaemon : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void theLogIsTakenDownWithItsLevels();
    void aLineIsWholeHoweverItArrives();
    void wordsAreFoundInTheLog();
    void itRunsWithoutALocaleAndWithWhatItIsGiven();
    void aStampedLineIsFromWhenItWasSaid();
    void itIsKilledWithItsChildren();
    void itCanBeStartedAgain();
    void aProgramThatIsNotThereDoesNotStart();
    void theProgramCanBeChosen();
    void whatASanitizerFindsInItEndsTheProgram_data();
    void whatASanitizerFindsInItEndsTheProgram();
};

void TestDaemon::theLogIsTakenDownWithItsLevels() {
    Daemon daemon(script("printf 'debug [TX] a\\ninfo b — c\\nwarning  d\\nALSA lib pcm.c: e\\n' >&2"));
    QSignalSpy ended(&daemon, &Daemon::ended);
    QVERIFY(daemon.start());
    QVERIFY(ended.count() == 1 || ended.wait());
    const QList<LogLine> &log = daemon.log();
    QCOMPARE(log.size(), 4);
    QCOMPARE(log[0].level, QStringLiteral("debug"));
    QCOMPARE(log[0].text, QStringLiteral("[TX] a"));
    QCOMPARE(log[1].level, QStringLiteral("info"));
    QCOMPARE(log[1].text, QStringLiteral("b — c"));
    QCOMPARE(log[2].level, QStringLiteral("warning"));
    QCOMPARE(log[2].text, QStringLiteral(" d"));
    QCOMPARE(log[3].level, QString());
    QCOMPARE(log[3].text, QStringLiteral("ALSA lib pcm.c: e"));
    QVERIFY(log[0].timeNs > 0 && log[0].timeNs <= log[3].timeNs);
}

void TestDaemon::aLineIsWholeHoweverItArrives() {
    Daemon daemon(script("printf 'info half' >&2; sleep 0.05; printf ' and half\\ninfo no end' >&2; sleep 100"));
    QVERIFY(daemon.start());
    QTRY_COMPARE(daemon.log().size(), 1);
    QCOMPARE(daemon.log()[0].text, QStringLiteral("half and half"));
}

void TestDaemon::wordsAreFoundInTheLog() {
    Daemon daemon(script("printf 'info one two\\nwarning two three\\n' >&2"));
    QVERIFY(daemon.start());
    QTRY_COMPARE(daemon.log().size(), 2);
    QCOMPARE(daemon.logged(QStringLiteral("one")), QStringList{QStringLiteral("one two")});
    QCOMPARE(daemon.logged(QStringLiteral("two")).size(), 2);
    QCOMPARE(daemon.logged(QStringLiteral("four")).size(), 0);
    daemon.forgetLog();
    QCOMPARE(daemon.logged(QStringLiteral("two")).size(), 0);
}

void TestDaemon::itRunsWithoutALocaleAndWithWhatItIsGiven() {
    qputenv("LANG", "id_ID.UTF-8");
    qputenv("LC_ALL", "id_ID.UTF-8");
    Daemon daemon(script("echo \"info <$LANG> <$LC_ALL> <$QT_MESSAGE_PATTERN> <$GIVEN>\" >&2"));
    daemon.setEnvironment(QStringLiteral("GIVEN"), QStringLiteral("this"));
    QVERIFY(daemon.start());
    QTRY_COMPARE(daemon.log().size(), 1);
    QCOMPARE(daemon.log()[0].text, QStringLiteral("<> <> <%{type} @%{time boot}@ %{message}> <this>"));
}

void TestDaemon::aStampedLineIsFromWhenItWasSaid() {
    const std::int64_t nowMs = monotonicNs() / 1'000'000;
    const quint32 saidMs = quint32(nowMs) - 700; // as the stamp counts, which is in 32 bits
    const QString stamp = QStringLiteral("%1.%2").arg(saidMs / 1000, 6).arg(saidMs % 1000, 3, 10, QLatin1Char('0'));
    Daemon daemon(script(QStringLiteral("echo 'info @%1@ a text @ with signs' >&2").arg(stamp).toUtf8().constData()));
    QVERIFY(daemon.start());
    QTRY_COMPARE(daemon.log().size(), 1);
    QCOMPARE(daemon.log()[0].level, QStringLiteral("info"));
    QCOMPARE(daemon.log()[0].text, QStringLiteral("a text @ with signs"));
    QCOMPARE(daemon.log()[0].saidNs / 1'000'000, nowMs - 700 + 1);
}

void TestDaemon::itIsKilledWithItsChildren() {
    Daemon daemon(script("sleep 100 & echo \"info $!\" >&2; wait"));
    QVERIFY(daemon.start());
    QTRY_COMPARE(daemon.log().size(), 1);
    const auto child = pid_t(daemon.log()[0].text.toInt());
    QVERIFY(isAlive(child));
    QVERIFY(daemon.isRunning());
    QVERIFY(daemon.processId() > 0);
    daemon.kill();
    QVERIFY(!daemon.isRunning());
    QCOMPARE(daemon.processId(), Q_INT64_C(0));
    QTRY_VERIFY(!isAlive(child));
}

void TestDaemon::itCanBeStartedAgain() {
    Daemon daemon(script("echo \"info up\" >&2; sleep 100"));
    QSignalSpy ended(&daemon, &Daemon::ended);
    QVERIFY(daemon.start());
    QTRY_COMPARE(daemon.log().size(), 1);
    daemon.kill();
    QCOMPARE(ended.count(), 1);
    QVERIFY(daemon.start());
    QTRY_COMPARE(daemon.log().size(), 2);
    QVERIFY(daemon.isRunning());
}

void TestDaemon::aProgramThatIsNotThereDoesNotStart() {
    Daemon daemon({QStringLiteral("/nowhere/program")});
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^cannot start .*/nowhere/program")));
    QVERIFY(!daemon.start());
    QVERIFY(!daemon.isRunning());
}

void TestDaemon::whatASanitizerFindsInItEndsTheProgram_data() {
    QTest::addColumn<QStringList>("program");
    QTest::addColumn<bool>("survived");
    QTest::newRow("an ordinary end") << script("exit 0") << true;
    QTest::newRow("another failure") << script("exit 1") << true;
    QTest::newRow("a report") << script("[ \"${ASAN_OPTIONS##*:}\" = exitcode=99 ] && exit 99") << false;
}

void TestDaemon::whatASanitizerFindsInItEndsTheProgram() {
    QFETCH(QStringList, program);
    QFETCH(bool, survived);
    const pid_t child = fork();
    QVERIFY(child >= 0);
    if (child == 0) {
        close(STDERR_FILENO);
        close(STDOUT_FILENO);
        std::signal(SIGABRT, SIG_DFL);
        Daemon daemon(program);
        QSignalSpy ended(&daemon, &Daemon::ended);
        _exit(daemon.start() && (ended.count() == 1 || ended.wait()) ? 0 : 1);
    }
    int status = 0;
    QCOMPARE(waitpid(child, &status, 0), child);
    QCOMPARE(WIFEXITED(status) && WEXITSTATUS(status) == 0, survived);
    QCOMPARE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT, !survived);
}

void TestDaemon::theProgramCanBeChosen() {
    qunsetenv("KIVO_APPLIANCE_PROGRAM");
    QCOMPARE(Daemon::defaultProgram().size(), 1);
    QVERIFY(Daemon::defaultProgram()[0].endsWith(QStringLiteral("/kivo-appliance")));
    qputenv("KIVO_APPLIANCE_PROGRAM", "emulator  -L /arm /arm/kivo-appliance");
    QCOMPARE(Daemon::defaultProgram(), (QStringList{QStringLiteral("emulator"), QStringLiteral("-L"),
                                                    QStringLiteral("/arm"), QStringLiteral("/arm/kivo-appliance")}));
    qunsetenv("KIVO_APPLIANCE_PROGRAM");
}

QTEST_GUILESS_MAIN(TestDaemon)
#include "tst_Daemon.moc"
