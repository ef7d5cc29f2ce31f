#include "../support/LogCapture.h"
#include "TestGateway.h"
#include "app/LoginTrigger.h"

#include <sys/stat.h>
#include <unistd.h>

namespace {

const QByteArray login = R"({"action": "login", "callsign": "ab1cd", "password": "hush-hush"})";

QStringList acceptance(const QStringList &more = {}) {
    return QStringList{"debug [Appliance] Login trigger: \"AB1CD\""_s,
                       "debug [Appliance] Credentials saved to config"_s} +
           more;
}

struct TestTrigger : TestGateway {
    explicit TestTrigger(const QJsonObject &config = {{"hwid"_s, "h1"_s}}) : TestGateway(config) {}

    void drop(const QByteArray &content) const { TestRoot::write(root.paths().loginTriggerFile(), content); }
    bool isThere() const { return QFile::exists(root.paths().loginTriggerFile()); }
    QByteArray nativeName() const { return QFile::encodeName(root.paths().loginTriggerFile()); }

    LoginTrigger trigger{gateway};
};

/// What is logged beside the link's own lines.
QStringList own(const QStringList &lines) {
    return QStringList(lines).filter("[Appliance]"_s);
}

} // namespace

class TestLoginTrigger : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void withoutAFileNothingHappens() {
        TestTrigger test;
        LogCapture log;
        test.trigger.check();
        QCOMPARE(log.take(), QStringList());
    }

    void credentialsAreStoredInCapitalsAndUsedAtOnceOnALinkThatIsUp() {
        TestTrigger test;
        test.connectLink();
        test.gateway.session.loginBlocked = true;
        test.drop(login);
        LogCapture log;
        test.trigger.check();
        QCOMPARE(own(log.take()), acceptance());
        QCOMPARE(test.wire(), QList<QByteArray>{"LOGIN AB1CD hush-hush h1\r\n"});
        const QJsonObject config = test.root.configOnDisk();
        QCOMPARE(config.value("callsign"_s), QJsonValue("AB1CD"_s));
        QCOMPARE(config.value("password"_s), QJsonValue("hush-hush"_s));
        QCOMPARE(config.value("setup_completed"_s), QJsonValue(true));
        QVERIFY(!test.gateway.session.loginBlocked);
        QVERIFY(!test.isThere());
    }

    void theCurrentRoomIsKeptForTheNextLogin() {
        TestTrigger test;
        test.connectLink();
        test.gateway.session.currentRoom = "Hill"_s;
        test.drop(login);
        LogCapture log;
        test.trigger.check();
        QCOMPARE(own(log.take()),
                 acceptance({"debug [Appliance] Saving current room for rejoin after re-login: \"Hill\""_s}));
        QCOMPARE(test.gateway.session.rejoinRoom, "Hill"_s);
        QCOMPARE(test.gateway.session.currentRoom, "Hill"_s);
    }

    void aFirstTimeBoxIsConnected() {
        TestTrigger test(QJsonObject{});
        test.drop(login);
        LogCapture log;
        test.trigger.check();
        QCOMPARE(own(log.take()), acceptance());
        QTRY_VERIFY(test.link.isConnected());
        QCOMPARE(test.root.configOnDisk().value("hwid"_s).toString().size(), 32);
        QCOMPARE(test.wire(), QList<QByteArray>());
    }

    void anAttemptUnderWayIsLeftToItself() {
        TestTrigger test;
        test.gateway.connectToServer();
        QVERIFY(test.link.socketState() != QAbstractSocket::UnconnectedState);
        test.drop(login);
        LogCapture log;
        test.trigger.check();
        QCOMPARE(own(log.take()),
                 acceptance({"debug [Appliance] Already connecting — login will proceed after connected"_s}));
        QCOMPARE(test.root.configOnDisk().value("callsign"_s), QJsonValue("AB1CD"_s));
        QTRY_VERIFY(test.link.isConnected() && test.server.hasClient());
        QCOMPARE(test.wire(), QList<QByteArray>());
    }

    void withoutALinkCredentialsAreOnlyStored() {
        TestTrigger test;
        test.gateway.link = nullptr;
        test.drop(login);
        LogCapture log;
        test.trigger.check();
        QCOMPARE(own(log.take()), acceptance());
        QCOMPARE(test.root.configOnDisk().value("callsign"_s), QJsonValue("AB1CD"_s));
    }

    void whatIsNoLoginIsDeletedSilently_data() {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("no JSON") << QByteArray("{");
        QTest::newRow("array") << QByteArray("[" + login + "]");
        QTest::newRow("other action") << QByteArray(R"({"action": "Login", "callsign": "a", "password": "b"})");
        QTest::newRow("no action") << QByteArray(R"({"callsign": "a", "password": "b"})");
        QTest::newRow("no callsign") << QByteArray(R"({"action": "login", "password": "b"})");
        QTest::newRow("empty password") << QByteArray(R"({"action": "login", "callsign": "a", "password": ""})");
        QTest::newRow("password of another type")
            << QByteArray(R"({"action": "login", "callsign": "a", "password": 1})");
        QTest::newRow("over 1 MiB") << QByteArray(login + QByteArray(1024 * 1024, ' '));
    }
    void whatIsNoLoginIsDeletedSilently() {
        QFETCH(QByteArray, content);
        TestTrigger test;
        test.connectLink();
        test.gateway.session.loginBlocked = true;
        test.drop(content);
        LogCapture log;
        test.trigger.check();
        QCOMPARE(log.take(), QStringList());
        QCOMPARE(test.wire(), QList<QByteArray>());
        QVERIFY(!test.isThere());
        QVERIFY(test.gateway.session.loginBlocked);
        QVERIFY(!test.gateway.config.object().contains("callsign"_s));
    }

    void whatCannotBeReadIsComplainedAboutUntilItCan() {
        TestTrigger test;
        const QString victim = test.root.path("victim");
        TestRoot::write(victim, login);
        QCOMPARE(::symlink(QFile::encodeName(victim).constData(), test.nativeName().constData()), 0);
        LogCapture log;
        test.trigger.check();
        test.trigger.check();
        const QString complaint = "warning [Appliance] Cannot read login trigger: Too many levels of symbolic links"_s;
        QCOMPARE(log.take(), (QStringList{complaint, complaint}));
        QCOMPARE(TestRoot::read(victim), login);
        QCOMPARE(::unlink(test.nativeName().constData()), 0);
        test.drop(login);
        test.gateway.link = nullptr;
        test.trigger.check();
        QCOMPARE(own(log.take()), acceptance());
    }

    void nothingPlantedIsReadOrWaitedFor_data() {
        QTest::addColumn<bool>("fifo");
        QTest::newRow("FIFO") << true;
        QTest::newRow("hard link") << false;
    }
    void nothingPlantedIsReadOrWaitedFor() {
        QFETCH(bool, fifo);
        TestTrigger test;
        const QString victim = test.root.path("victim");
        TestRoot::write(victim, login);
        const int result = fifo ? ::mkfifo(test.nativeName().constData(), 0666)
                                : ::link(QFile::encodeName(victim).constData(), test.nativeName().constData());
        QCOMPARE(result, 0);
        LogCapture log;
        test.trigger.check();
        const QStringList lines = log.take();
        QCOMPARE(lines.size(), 1);
        QVERIFY(lines.first().startsWith("warning [Appliance] Cannot read login trigger: "_s));
        QVERIFY(!test.gateway.config.object().contains("callsign"_s));
    }

    void thePasswordIsNeverLogged() {
        TestTrigger test;
        test.connectLink();
        test.drop(login);
        LogCapture log;
        test.trigger.check();
        QCOMPARE(test.wire().size(), 1);
        QVERIFY(!log.take().join(QLatin1Char('\n')).contains("hush"_s));
    }
};

QTEST_GUILESS_MAIN(TestLoginTrigger)
#include "tst_LoginTrigger.moc"
