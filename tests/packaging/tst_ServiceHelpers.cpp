#include "TestSite.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <csignal>

using namespace sim;

namespace {

/// Stands in for systemctl: answers as told, and takes down what it is asked to do.
class FakeServiceManager {
public:
    FakeServiceManager() {
        QFile program(m_folder.filePath("systemctl"_s));
        if (!program.open(QIODevice::WriteOnly) || program.write(script().toUtf8()) < 0)
            qFatal("no fake service manager");
        program.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    /// One run of the service; an empty one: it is not running.
    void setRun(const QString &invocation) { answer("run"_s, invocation); }
    void setMainProcess(qint64 id) { answer("pid"_s, QString::number(id)); }

    /// Everything beyond questions.
    QStringList orders() const {
        QFile file(m_folder.filePath("orders"_s));
        return file.open(QIODevice::ReadOnly)
                   ? QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts)
                   : QStringList();
    }

    /// Runs a helper to its end, within 10 s; -1 when it does not end.
    int run(const QString &helper, const QStringList &arguments = {}, const QString &mainPid = {}) const {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("PATH"_s, m_folder.path() + QLatin1Char(':') + environment.value("PATH"_s));
        environment.insert("RUNTIME_DIRECTORY"_s, m_folder.path());
        environment.insert("MAINPID"_s, mainPid);
        process.setProcessEnvironment(environment);
        process.start(QStringLiteral(KIVO_HELPERS) + helper, arguments);
        return Site::waitFor([&] { return process.state() == QProcess::NotRunning; }, 10000) ? process.exitCode() : -1;
    }

private:
    QString script() const {
        return QStringLiteral("#!/bin/sh\n"
                              "case $* in\n"
                              "*InvocationID*) cat %1/run ;;\n"
                              "*MainPID*) cat %1/pid ;;\n"
                              "*is-active*) [ -s %1/run ] ;;\n"
                              "*) echo \"$*\" >>%1/orders ;;\n"
                              "esac\n")
            .arg(m_folder.path());
    }

    void answer(const QString &name, const QString &text) {
        QFile file(m_folder.filePath(name));
        if (!file.open(QIODevice::WriteOnly) || file.write(text.toUtf8()) < 0)
            qFatal("no answer");
    }

    QTemporaryDir m_folder;
};

const QString statusFile = "/opt/kivo-appliance/tmp/kivo-status.json"_s;

void writeStatus() {
    QFile file(statusFile);
    if (!file.open(QIODevice::WriteOnly) || file.write("{}") < 0)
        qFatal("no status file");
}

const QStringList restarted = {"--no-block restart kivo-appliance.service"_s};
const QStringList takenUp = {"--no-block try-restart kivo-appliance.service"_s};

} // namespace

/// The scripts that the service manager runs beside the daemon.
class TestServiceHelpers : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void stoppingEndsBothTransmissionsBeforeTheDaemonIsKilled();
    void stoppingAStuckDaemonWaitsTwoSecondsAndLeavesNothingBehind();
    void stoppingADaemonThatHasEndedAsksNothing();

    void aStatusThatStandsStillForThreeChecksRestartsTheDaemonOnce();
    void aStatusThatIsMissingForThreeChecksDoesTheSame();
    void aStatusThatIsRewrittenKeepsTheDaemon();
    void anotherRunOfTheServiceIsGivenItsOwnTime();
    void aServiceThatIsNotRunningIsLeftAlone();

    void aDeviceThatTheDaemonHoldsIsNoReasonToRestartIt();
    void aDeviceThatTheDaemonDoesNotHoldRestartsIt();
    void withoutADaemonNothingIsRestarted();
};

void TestServiceHelpers::stoppingEndsBothTransmissionsBeforeTheDaemonIsKilled() {
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    member->startTalking();
    site.board().setSquelch(true);
    QVERIFY(Site::waitFor([&] { return site.board().isKeyed() && site.server().isTalking(site.gateway()); }, 5000));

    const FakeServiceManager manager;
    QCOMPARE(manager.run("end-transmission"_s, {}, QString::number(site.daemon().processId())), 0);
    QVERIFY(Site::waitFor([&] { return !site.board().isKeyed(); }, 3000));
    QVERIFY(Site::waitFor([&] { return !site.server().isTalking(site.gateway()); }, 3000));
    QVERIFY(site.daemon().isRunning());
}

void TestServiceHelpers::stoppingAStuckDaemonWaitsTwoSecondsAndLeavesNothingBehind() {
    TestSite site;
    QVERIFY(site.bringUp());
    const auto process = pid_t(site.daemon().processId());
    QCOMPARE(::kill(process, SIGSTOP), 0);
    const FakeServiceManager manager;
    const std::int64_t askedNs = monotonicNs();
    QCOMPARE(manager.run("end-transmission"_s, {}, QString::number(process)), 0);
    VERIFY_BETWEEN(secondsBetween(askedNs, monotonicNs()), 2.0, 4.0);
    QCOMPARE(QDir("/opt/kivo-appliance/tmp"_s).entryList({"*end-transmission*"_s}), QStringList());
    site.daemon().kill();
}

void TestServiceHelpers::stoppingADaemonThatHasEndedAsksNothing() {
    const TestSite site;
    const FakeServiceManager manager;
    QCOMPARE(manager.run("end-transmission"_s), 0);
    QCOMPARE(QDir("/opt/kivo-appliance/tmp"_s).entryList(QDir::Files), QStringList());
}

void TestServiceHelpers::aStatusThatStandsStillForThreeChecksRestartsTheDaemonOnce() {
    const TestSite site;
    FakeServiceManager manager;
    manager.setRun("first"_s);
    writeStatus();
    for (int check = 0; check < 3; ++check)
        QCOMPARE(manager.run("check-liveness"_s), 0);
    QCOMPARE(manager.orders(), QStringList());
    QCOMPARE(manager.run("check-liveness"_s), 0);
    QCOMPARE(manager.orders(), restarted);
    QCOMPARE(manager.run("check-liveness"_s), 0);
    QCOMPARE(manager.orders(), restarted);
}

void TestServiceHelpers::aStatusThatIsMissingForThreeChecksDoesTheSame() {
    const TestSite site;
    FakeServiceManager manager;
    manager.setRun("first"_s);
    for (int check = 0; check < 4; ++check)
        QCOMPARE(manager.run("check-liveness"_s), 0);
    QCOMPARE(manager.orders(), restarted);
}

void TestServiceHelpers::aStatusThatIsRewrittenKeepsTheDaemon() {
    const TestSite site;
    FakeServiceManager manager;
    manager.setRun("first"_s);
    for (int check = 0; check < 8; ++check) {
        if (check % 3 == 0)
            writeStatus();
        QCOMPARE(manager.run("check-liveness"_s), 0);
    }
    QCOMPARE(manager.orders(), QStringList());
}

void TestServiceHelpers::anotherRunOfTheServiceIsGivenItsOwnTime() {
    const TestSite site;
    FakeServiceManager manager;
    for (const QString &run : {"first"_s, "second"_s}) {
        manager.setRun(run);
        for (int check = 0; check < 3; ++check)
            QCOMPARE(manager.run("check-liveness"_s), 0);
    }
    QCOMPARE(manager.orders(), QStringList());
}

void TestServiceHelpers::aServiceThatIsNotRunningIsLeftAlone() {
    const TestSite site;
    FakeServiceManager manager;
    manager.setRun({});
    for (int check = 0; check < 5; ++check)
        QCOMPARE(manager.run("check-liveness"_s), 0);
    QCOMPARE(manager.orders(), QStringList());
}

void TestServiceHelpers::aDeviceThatTheDaemonHoldsIsNoReasonToRestartIt() {
    QProcess holder;
    holder.setStandardInputFile("/dev/full"_s);
    holder.start("sleep"_s, {"60"_s});
    QVERIFY(holder.waitForStarted());
    FakeServiceManager manager;
    manager.setMainProcess(holder.processId());
    QCOMPARE(manager.run("take-up-device"_s, {"full"_s}), 0);
    QCOMPARE(manager.orders(), QStringList());
    holder.kill();
    QVERIFY(holder.waitForFinished());
}

void TestServiceHelpers::aDeviceThatTheDaemonDoesNotHoldRestartsIt() {
    QProcess holder;
    holder.start("sleep"_s, {"60"_s});
    QVERIFY(holder.waitForStarted());
    FakeServiceManager manager;
    manager.setMainProcess(holder.processId());
    QCOMPARE(manager.run("take-up-device"_s, {"full"_s}), 0);
    QCOMPARE(manager.orders(), takenUp);
    QCOMPARE(manager.run("take-up-device"_s, {"card9"_s}), 0);
    QCOMPARE(manager.orders(), takenUp + takenUp);
    holder.kill();
    QVERIFY(holder.waitForFinished());
}

void TestServiceHelpers::withoutADaemonNothingIsRestarted() {
    FakeServiceManager manager;
    manager.setMainProcess(0);
    QCOMPARE(manager.run("take-up-device"_s, {"full"_s}), 0);
    QCOMPARE(manager.orders(), QStringList());
}

SITE_TEST_MAIN(TestServiceHelpers)
#include "tst_ServiceHelpers.moc"
