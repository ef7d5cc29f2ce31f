#include "Literals.h"
#include "app/UserRecords.h"

#include <QJsonDocument>
#include <QtTest>

namespace {

QVariantMap userFrom(const char *json) {
    return QJsonDocument::fromJson(json).object().toVariantMap();
}

} // namespace

class TestUserRecords : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void anOnlineUserHasTheseKeysAndNoOthers() {
        const QJsonArray records = UserRecords::onlineUsers(
            {userFrom(R"({"id": 7, "callsign": "AB1CD", "name": "Ann", "room": "Lobby", "is_admin": true, "x": 1})")});
        QCOMPARE(records, QJsonArray({QJsonObject{{"user_id"_s, 7},
                                                  {"callsign"_s, "AB1CD"_s},
                                                  {"name"_s, "Ann"_s},
                                                  {"room"_s, "Lobby"_s},
                                                  {"is_admin"_s, true}}}));
    }

    void aRoomUserHasTheseKeysAndNoOthers() {
        const QJsonArray records = UserRecords::roomUsers({userFrom(
            R"({"user_id": 7, "callsign": "AB1CD", "name": "Ann", "is_transmitting": true, "approved": "1", "is_muted": 0})")});
        QCOMPARE(records, QJsonArray({QJsonObject{{"user_id"_s, 7},
                                                  {"callsign"_s, "AB1CD"_s},
                                                  {"name"_s, "Ann"_s},
                                                  {"is_transmitting"_s, true},
                                                  {"approved"_s, true},
                                                  {"is_muted"_s, false}}}));
    }

    void aDirectoryRecordIsWholeEvenForAnEmptyEntry() {
        QCOMPARE(UserRecords::directory({QVariantMap()}, {}), QJsonArray({QJsonObject{{"user_id"_s, 0},
                                                                                      {"callsign"_s, ""_s},
                                                                                      {"gateway_name"_s, ""_s},
                                                                                      {"frequency"_s, ""_s},
                                                                                      {"location"_s, ""_s},
                                                                                      {"email"_s, ""_s},
                                                                                      {"whatsapp"_s, ""_s},
                                                                                      {"responsible_name"_s, ""_s},
                                                                                      {"responsible_callsign"_s, ""_s},
                                                                                      {"status"_s, "active"_s},
                                                                                      {"approved"_s, false},
                                                                                      {"is_admin"_s, false},
                                                                                      {"is_muted"_s, false},
                                                                                      {"registered_hwid"_s, ""_s}}}));
    }

    void aDirectoryRecordTakesEveryKeyOfTheEntry() {
        const QJsonObject entry = QJsonDocument::fromJson(R"({"user_id": 3, "callsign": "AB1CD", "gateway_name": "Hill",
            "frequency": "145.5", "location": "North", "email": "a@b", "whatsapp": "62812", "responsible_name": "Ann",
            "responsible_callsign": "XY2", "status": "suspended", "approved": true, "is_admin": true, "is_muted": true,
            "registered_hwid": "h1"})")
                                      .object();
        QCOMPARE(UserRecords::directory({entry.toVariantMap()}, {}), QJsonArray({entry}));
    }

    void eitherSpellingIsReadAndSnakeCaseWins_data() {
        QTest::addColumn<QByteArray>("entry");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QJsonValue>("expected");

        const auto row = [](const char *name, const char *entry, const char *key, const QJsonValue &expected) {
            QTest::newRow(name) << QByteArray(entry) << QString::fromLatin1(key) << expected;
        };
        row("callSign", R"({"callSign": "A"})", "callsign", "A"_s);
        row("callsign before callSign", R"({"callSign": "A", "callsign": "B"})", "callsign", "B"_s);
        row("gatewayName", R"({"gatewayName": "A"})", "gateway_name", "A"_s);
        row("gateway_name before gatewayName", R"({"gatewayName": "A", "gateway_name": "B"})", "gateway_name", "B"_s);
        row("isAdmin", R"({"isAdmin": 1})", "is_admin", true);
        row("is_admin before isAdmin", R"({"isAdmin": 1, "is_admin": 0})", "is_admin", false);
        row("is_approved", R"({"is_approved": "1"})", "approved", true);
        row("approved before is_approved", R"({"is_approved": 1, "approved": false})", "approved", false);
        row("id", R"({"id": 4})", "user_id", 4);
        row("id before user_id", R"({"id": 4, "user_id": 9})", "user_id", 4);
        row("number as text", R"({"user_id": "12"})", "user_id", 12);
        row("number out of range", R"({"user_id": 1e300})", "user_id", 0);
    }
    void eitherSpellingIsReadAndSnakeCaseWins() {
        QFETCH(QByteArray, entry);
        QFETCH(QString, key);
        const QJsonArray records = UserRecords::directory({userFrom(entry.constData())}, {});
        QTEST(records.first().toObject().value(key), "expected");
    }

    void whateverMeansTrueIsTrue_data() {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<bool>("expected");

        QTest::newRow("true") << QVariant(true) << true;
        QTest::newRow("false") << QVariant(false) << false;
        QTest::newRow("1") << QVariant(1) << true;
        QTest::newRow("1.0") << QVariant(1.0) << true;
        QTest::newRow("0") << QVariant(0) << false;
        QTest::newRow("text 1") << QVariant("1"_s) << true;
        QTest::newRow("text true") << QVariant("true"_s) << true;
        QTest::newRow("text True") << QVariant("True"_s) << true;
        QTest::newRow("text 0") << QVariant("0"_s) << false;
        QTest::newRow("text false") << QVariant("false"_s) << false;
        QTest::newRow("empty text") << QVariant(""_s) << false;
        QTest::newRow("null") << QVariant::fromValue(nullptr) << false;
        QTest::newRow("missing") << QVariant() << false;
    }
    void whateverMeansTrueIsTrue() {
        QFETCH(QVariant, value);
        const QJsonArray records = UserRecords::directory({{{"is_muted"_s, value}}}, {});
        QCOMPARE(records.first()[QLatin1String("is_muted")].isBool(), true);
        QTEST(records.first()[QLatin1String("is_muted")].toBool(), "expected");
    }

    void aMutedIdOverridesTheServersRecord() {
        const QJsonArray records =
            UserRecords::directory({{{"id"_s, 1}, {"is_muted"_s, false}}, {{"id"_s, 2}, {"is_muted"_s, true}}}, {1});
        QCOMPARE(records.at(0)[QLatin1String("is_muted")].toBool(), true);
        QCOMPARE(records.at(1)[QLatin1String("is_muted")].toBool(), true);
    }

    void onlyTheFirstRecordOfAnIdIsMarked() {
        QJsonArray records{QJsonObject{{"user_id"_s, 1}}, QJsonObject{{"user_id"_s, 2}},
                           QJsonObject{{"user_id"_s, 2}, {"is_muted"_s, false}}};
        QVERIFY(UserRecords::markMuted(records, 2, true));
        QCOMPARE(records,
                 QJsonArray({QJsonObject{{"user_id"_s, 1}}, QJsonObject{{"user_id"_s, 2}, {"is_muted"_s, true}},
                             QJsonObject{{"user_id"_s, 2}, {"is_muted"_s, false}}}));
    }

    void anUnknownIdIsNotMarked() {
        QJsonArray records{QJsonObject{{"user_id"_s, 1}}};
        const QJsonArray before = records;
        QVERIFY(!UserRecords::markMuted(records, 2, true));
        QCOMPARE(records, before);
    }

    void gatewayInfoKeepsWhatTheServerLeavesEmpty() {
        QJsonObject config{{"gateway_name"_s, "Old"_s}, {"frequency"_s, "145.0"_s}, {"email"_s, "old@x"_s}};
        UserRecords::storeGatewayInfo(config, userFrom(R"({"gateway_name": "New", "frequency": "", "location": "Hill",
            "responsible_name": "Ann", "responsible_callsign": "XY2", "whatsapp": "62812", "callsign": "ZZ9"})"));
        QCOMPARE(config, (QJsonObject{{"gateway_name"_s, "New"_s},
                                      {"frequency"_s, "145.0"_s},
                                      {"location"_s, "Hill"_s},
                                      {"responsible_name"_s, "Ann"_s},
                                      {"responsible_callsign"_s, "XY2"_s},
                                      {"email"_s, "old@x"_s},
                                      {"whatsapp"_s, "62812"_s}}));
    }

    void gatewayInfoKeepsNoEndlessText() {
        QJsonObject config;
        UserRecords::storeGatewayInfo(config, {{"gateway_name"_s, QString(1001, QLatin1Char('x'))},
                                               {"location"_s, QString(1000, QLatin1Char('y'))}});
        QCOMPARE(config, (QJsonObject{{"location"_s, QString(1000, QLatin1Char('y'))}}));
    }
};

QTEST_APPLESS_MAIN(TestUserRecords)
#include "tst_UserRecords.moc"
