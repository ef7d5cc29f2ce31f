#include "../support/LogCapture.h"
#include "TestGateway.h"
#include "app/UserLists.h"

#include <unistd.h>

namespace {

QVariantMap roomUser(int id, const char *callsign, bool transmitting = false) {
    return {{"user_id"_s, id}, {"callsign"_s, QString::fromLatin1(callsign)}, {"is_transmitting"_s, transmitting}};
}

QJsonValue muteMark(const TestRoot &root, const char *file, int index) {
    return root.exchanged(file).array().at(index).toObject().value("is_muted"_s);
}

} // namespace

class TestUserLists : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void comingsAreLoggedInListOrderThenGoings() {
        TestGateway test;
        UserLists lists(test.gateway, test.traffic);
        LogCapture log;
        lists.onRoomUsers({roomUser(1, "AA1"), roomUser(2, "BB2")});
        QCOMPARE(log.take(), (QStringList{"info [Room] \"AA1\" join"_s, "info [Room] \"BB2\" join"_s}));
        lists.onRoomUsers({roomUser(4, "DD4"), roomUser(2, "BB2"), roomUser(3, "CC3")});
        QCOMPARE(log.take(), (QStringList{"info [Room] \"DD4\" join"_s, "info [Room] \"CC3\" join"_s,
                                          "info [Room] \"AA1\" left"_s}));
        lists.onRoomUsers({roomUser(4, "DD4"), roomUser(2, "BB2"), roomUser(3, "CC3")});
        QCOMPARE(log.take(), QStringList());
        lists.onRoomUsers({});
        QCOMPARE(log.take(), (QStringList{"info [Room] \"DD4\" left"_s, "info [Room] \"BB2\" left"_s,
                                          "info [Room] \"CC3\" left"_s}));
    }

    void theRoomListIsCountedAndWritten() {
        TestGateway test;
        UserLists lists(test.gateway, test.traffic);
        lists.onRoomUsers({roomUser(1, "AA1", true), roomUser(2, "BB2")});
        QCOMPARE(test.gateway.session.usersInRoom, 2);
        const QJsonArray written = test.root.exchanged("kivo-userlist.json").array();
        QCOMPARE(written.size(), 2);
        QCOMPARE(written.at(0).toObject().value("is_transmitting"_s), QJsonValue(true));
        QVERIFY(TestRoot::read(test.root.exchangeFile("kivo-userlist.json")).startsWith("[\n    {\n"));
    }

    void theFirstTalkerOfTheListIsFollowed() {
        TestGateway test;
        test.openBoard();
        UserLists lists(test.gateway, test.traffic);
        LogCapture log;
        lists.onRoomUsers({roomUser(1, "AA1"), roomUser(2, "BB2", true), roomUser(3, "CC3", true)});
        QCOMPARE(log.take().last(), "info [TX] \"BB2\" TX"_s);
        QVERIFY(test.board.isTold("PTT:1\n"));
        lists.onRoomUsers({roomUser(1, "AA1"), roomUser(3, "CC3", true)});
        QCOMPARE(log.take(), QStringList("info [Room] \"BB2\" left"_s));
        lists.onRoomUsers({roomUser(1, "AA1"), roomUser(3, "CC3")});
        QCOMPARE(log.take(), QStringList("info [TX] \"BB2\" RX"_s));
        QVERIFY(test.board.isTold("PTT:0\n"));
    }

    void theOnlineListIsCountedAndWritten() {
        TestGateway test;
        UserLists lists(test.gateway, test.traffic);
        lists.onOnlineUsers({{{"id"_s, 5}, {"callsign"_s, "AA1"_s}, {"room"_s, "Lobby"_s}}});
        QCOMPARE(test.gateway.session.usersOnline, 1);
        QCOMPARE(test.root.exchanged("kivo-online-users.json").array().at(0).toObject().value("user_id"_s),
                 QJsonValue(5));
    }

    void theGatewaysOwnProfileIsStored() {
        TestGateway test({{"location"_s, "Hill"_s}});
        UserLists lists(test.gateway, test.traffic);
        LogCapture log;
        lists.onUserInfo({{"gateway_name"_s, "Gate"_s}, {"location"_s, ""_s}, {"frequency"_s, 145.5}});
        QVERIFY(log.take().contains("info [Appliance] Gateway info saved to config.json"_s));
        QCOMPARE(test.root.configOnDisk().value("gateway_name"_s), QJsonValue("Gate"_s));
        QCOMPARE(test.root.configOnDisk().value("location"_s), QJsonValue("Hill"_s));
        QCOMPARE(test.root.configOnDisk().value("frequency"_s), QJsonValue("145.5"_s));
    }

    void theGatewaysOwnRecordInTheDirectoryIsStored() {
        TestGateway test;
        test.logIn(42, true);
        UserLists lists(test.gateway, test.traffic);
        LogCapture log;
        lists.onAllUsers({{{"id"_s, 41}, {"gatewayName"_s, "Other"_s}}, {{"id"_s, 42}, {"gatewayName"_s, "Mine"_s}}});
        QVERIFY(log.take().contains("info [Appliance] Gateway info saved to config.json (admin)"_s));
        QCOMPARE(test.root.configOnDisk().value("gateway_name"_s), QJsonValue("Mine"_s));
        QCOMPARE(test.root.exchanged("kivo-admin-users.json").array().size(), 2);
    }

    void aDirectoryWithoutTheGatewayStoresNothing() {
        TestGateway test;
        UserLists lists(test.gateway, test.traffic);
        LogCapture log;
        lists.onAllUsers({{{"callsign"_s, "no id"_s}, {"gateway_name"_s, "Other"_s}}});
        QCOMPARE(log.take(), QStringList());
        QVERIFY(!test.root.configOnDisk().contains("gateway_name"_s));
    }

    void aMuteOfAnybodyIsMarkedInBothLists() {
        TestGateway test;
        UserLists lists(test.gateway, test.traffic);
        lists.onRoomUsers({roomUser(1, "AA1"), roomUser(2, "BB2")});
        lists.onAllUsers({{{"id"_s, 1}}, {{"id"_s, 2}}});
        LogCapture log;
        lists.onAdminMuteStatus(2, true);
        QCOMPARE(log.take(), QStringList("info [Admin] \"user 2\" di-mute"_s));
        QCOMPARE(muteMark(test.root, "kivo-userlist.json", 0), QJsonValue(false));
        QCOMPARE(muteMark(test.root, "kivo-userlist.json", 1), QJsonValue(true));
        QCOMPARE(muteMark(test.root, "kivo-admin-users.json", 1), QJsonValue(true));
        lists.onAllUsers({{{"id"_s, 1}}, {{"id"_s, 2}}});
        QCOMPARE(muteMark(test.root, "kivo-admin-users.json", 1), QJsonValue(true));

        lists.onAdminMuteStatus(2, false);
        QCOMPARE(log.take(), QStringList("info [Admin] \"user 2\" unmute"_s));
        QCOMPARE(muteMark(test.root, "kivo-userlist.json", 1), QJsonValue(false));
        lists.onAllUsers({{{"id"_s, 2}, {"is_muted"_s, true}}});
        QCOMPARE(muteMark(test.root, "kivo-admin-users.json", 0), QJsonValue(true));
    }

    void aMuteOfThisGatewayIsShownInItsStatus() {
        TestGateway test;
        test.logIn(42, false);
        UserLists lists(test.gateway, test.traffic);
        lists.onRoomUsers({roomUser(42, "AB1CD")});
        LogCapture log;
        lists.onAdminMuted(true, "Boss"_s);
        QCOMPARE(log.take(), QStringList("info [Admin] Gateway ini di-mute oleh admin: \"Boss\""_s));
        QVERIFY(test.gateway.session.adminMuted);
        QCOMPARE(muteMark(test.root, "kivo-userlist.json", 0), QJsonValue(true));
        lists.onAdminMuted(false, "Boss"_s);
        QCOMPARE(log.take(), QStringList("info [Admin] Gateway ini di-unmute oleh admin: \"Boss\""_s));
        QVERIFY(!test.gateway.session.adminMuted);
        QCOMPARE(muteMark(test.root, "kivo-userlist.json", 0), QJsonValue(false));
    }

    void aMuteBeforeAnyLoginIsIgnored() {
        TestGateway test;
        UserLists lists(test.gateway, test.traffic);
        LogCapture log;
        lists.onAdminMuted(true, "Boss"_s);
        QCOMPARE(log.take(), QStringList());
        QVERIFY(!test.gateway.session.adminMuted);
    }

    void aListWithoutTheUserIsLeftAsItIs_data() {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("other users") << QByteArray("[ {\"user_id\":1} ]");
        QTest::newRow("object") << QByteArray("{\"user_id\": 2}");
        QTest::newRow("no JSON") << QByteArray("[{\"user_id\": 2},");
        QTest::newRow("empty") << QByteArray();
    }
    void aListWithoutTheUserIsLeftAsItIs() {
        QFETCH(QByteArray, content);
        TestGateway test;
        UserLists lists(test.gateway, test.traffic);
        TestRoot::write(test.root.exchangeFile("kivo-userlist.json"), content);
        lists.onAdminMuteStatus(2, true);
        QCOMPARE(TestRoot::read(test.root.exchangeFile("kivo-userlist.json")), content);
        QVERIFY(!QFile::exists(test.root.exchangeFile("kivo-admin-users.json")));
    }

    void aMuteMarkIsNeverSetElsewhere() {
        TestGateway test;
        UserLists lists(test.gateway, test.traffic);
        const QString victim = test.root.path("victim");
        TestRoot::write(victim, "[{\"user_id\":2}]");
        QCOMPARE(::symlink(QFile::encodeName(victim).constData(),
                           QFile::encodeName(test.root.exchangeFile("kivo-userlist.json")).constData()),
                 0);
        QCOMPARE(::link(QFile::encodeName(victim).constData(),
                        QFile::encodeName(test.root.exchangeFile("kivo-admin-users.json")).constData()),
                 0);
        lists.onAdminMuteStatus(2, true);
        QCOMPARE(TestRoot::read(victim), QByteArray("[{\"user_id\":2}]"));
    }
};

QTEST_GUILESS_MAIN(TestUserLists)
#include "tst_UserLists.moc"
