#include "net/ReplyFields.h"
#include "net/ReplyValues.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

namespace {

QString toText(const QVariant &value) {
    return QString::fromUtf8(QJsonDocument::fromVariant(value).toJson(QJsonDocument::Compact));
}

QString toText(const QList<QVariantMap> &maps) {
    QVariantList list;
    for (const QVariantMap &map : maps)
        list.append(map);
    return toText(QVariant(list));
}

ReplyFields fields(const char *line) {
    return ReplyFields(QString::fromUtf8(line));
}

const QString nothing = QStringLiteral("nothing");

} // namespace

class TestReplyValues : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void readsListItems();
    void readsRoomUsers_data();
    void readsRoomUsers();
    void readsOnlineUsers_data();
    void readsOnlineUsers();
    void readsAudioQuality_data();
    void readsAudioQuality();
    void readsJsonObjects_data();
    void readsJsonObjects();
    void readsAJsonObject_data();
    void readsAJsonObject();
    void readsADirectoryOfTenThousandRecords();
};

void TestReplyValues::readsListItems() {
    QCOMPARE(listItems(QStringLiteral("a,b c,,d,")),
             (QStringList{QStringLiteral("a"), QStringLiteral("b c"), QStringLiteral("d")}));
    QCOMPARE(listItems(QString()), QStringList());
}

void TestReplyValues::readsRoomUsers_data() {
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("users");
    const auto row = [](const char *name, const char *line, const char *users) {
        QTest::newRow(name) << QByteArray(line) << QString::fromUtf8(users);
    };
    row("all columns", "USER_LIST|Lobby|1,22|AB1CD,EF2GH|Ana,Budi|RX,TX|1,0|0,1",
        R"([{"approved":true,"callsign":"AB1CD","is_muted":false,"is_transmitting":false,"name":"Ana","user_id":1},)"
        R"({"approved":false,"callsign":"EF2GH","is_muted":true,"is_transmitting":true,"name":"Budi","user_id":22}])");
    row("no muted column", "USER_LIST|Lobby|1|AB1CD|Ana|TX|1",
        R"([{"approved":true,"callsign":"AB1CD","is_muted":false,"is_transmitting":true,"name":"Ana","user_id":1}])");
    row("shorter columns", "USER_LIST|Lobby|1,2|AB1CD||TX|1|",
        R"([{"approved":true,"callsign":"AB1CD","is_muted":false,"is_transmitting":true,"name":"","user_id":1},)"
        R"({"approved":false,"callsign":"","is_muted":false,"is_transmitting":false,"name":"","user_id":2}])");
    row("longer columns", "USER_LIST|Lobby|1|A,B|C,D|RX,TX|1,1|0,1",
        R"([{"approved":true,"callsign":"A","is_muted":false,"is_transmitting":false,"name":"C","user_id":1}])");
    row("other marks are false", "USER_LIST|Lobby|x|A|C|tx|true|yes",
        R"([{"approved":false,"callsign":"A","is_muted":false,"is_transmitting":false,"name":"C","user_id":0}])");
    row("empty columns", "USER_LIST|Lobby|||||", "[]");
    row("six pieces", "USER_LIST|Lobby|1|A|C|TX", "[]");
    row("keyword alone", "USER_LIST", "[]");
}

void TestReplyValues::readsRoomUsers() {
    QFETCH(QByteArray, line);
    QTEST(toText(roomUsers(fields(line))), "users");
}

void TestReplyValues::readsOnlineUsers_data() {
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("users");
    const auto row = [](const char *name, const char *line, const char *users) {
        QTest::newRow(name) << QByteArray(line) << QString::fromUtf8(users);
    };
    row("two", "ONLINE_USERS|1,AB1CD,Ana,Lobby,True;2,EF2GH,Budi,,False",
        R"([{"callsign":"AB1CD","id":1,"is_admin":true,"name":"Ana","room":"Lobby"},)"
        R"({"callsign":"EF2GH","id":2,"is_admin":false,"name":"Budi","room":""}])");
    row("only a capital True is an administrator", "ONLINE_USERS|1,AB1CD,Name,Room,true",
        R"([{"callsign":"AB1CD","id":1,"is_admin":false,"name":"Name","room":"Room"}])");
    row("short and empty records are skipped", "ONLINE_USERS|;1,A,B,C;;2,D,E,F,True,more;",
        R"([{"callsign":"D","id":2,"is_admin":true,"name":"E","room":"F"}])");
    row("empty items count", "ONLINE_USERS|,,,,", R"([{"callsign":"","id":0,"is_admin":false,"name":"","room":""}])");
    row("empty list", "ONLINE_USERS|", "[]");
    row("no list", "ONLINE_USERS", "nothing");
}

void TestReplyValues::readsOnlineUsers() {
    QFETCH(QByteArray, line);
    const auto users = onlineUsers(fields(line));
    QTEST(users ? toText(*users) : nothing, "users");
}

void TestReplyValues::readsAudioQuality_data() {
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("quality");
    QTest::newRow("all") << QByteArray("AUDIO_QUALITY|high|64000|48000|20|8")
                         << QStringLiteral(R"({"bitrate":64000,"complexity":8,"frame_duration":20,"preset":"high",)"
                                           R"("sample_rate":48000})");
    QTest::newRow("no numbers") << QByteArray("AUDIO_QUALITY||x|-1||99999999999|more")
                                << QStringLiteral(R"({"bitrate":0,"complexity":0,"frame_duration":0,"preset":"",)"
                                                  R"("sample_rate":-1})");
    QTest::newRow("five pieces") << QByteArray("AUDIO_QUALITY|high|64000|48000|20") << nothing;
}

void TestReplyValues::readsAudioQuality() {
    QFETCH(QByteArray, line);
    const auto quality = audioQuality(fields(line));
    QTEST(quality ? toText(QVariant(*quality)) : nothing, "quality");
}

void TestReplyValues::readsJsonObjects_data() {
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("objects");
    const auto row = [](const char *name, const char *line, const char *objects) {
        QTest::newRow(name) << QByteArray(line) << QString::fromUtf8(objects);
    };
    row("objects", R"(X|[{"id":7,"a|b":"c|d"},{"ok":true,"none":null}])",
        R"([{"a|b":"c|d","id":7},{"none":null,"ok":true}])");
    row("other elements are skipped", R"(X|[1,"a",[{}],null,{"id":1}])", R"([{"id":1}])");
    row("like the one before", R"(X|[{"a":1,"b":"x"},{"b":"y","a":2}])", R"([{"a":1,"b":"x"},{"a":2,"b":"y"}])");
    row("another last key", R"(X|[{"a":1,"b":2},{"a":3,"c":4}])", R"([{"a":1,"b":2},{"a":3,"c":4}])");
    row("another first key", R"(X|[{"b":1,"c":2},{"a":3,"c":4}])", R"([{"b":1,"c":2},{"a":3,"c":4}])");
    row("fewer, then more keys", R"(X|[{"a":1,"b":2},{"a":3},{},{"a":4,"b":5}])",
        R"([{"a":1,"b":2},{"a":3},{},{"a":4,"b":5}])");
    row("the same key again in one object", R"(X|[{"a":1,"b":2},{"a":3,"a":4,"b":5}])",
        R"([{"a":1,"b":2},{"a":4,"b":5}])");
    row("empty array", "X|[]", "[]");
    row("an object is not an array", "X|{}", "nothing");
    row("no JSON", "X|[{]", "nothing");
    row("text behind the array", "X|[] more", "nothing");
    row("nothing behind the bar", "X|", "nothing");
    row("no bar", "X", "nothing");
    row("not ASCII", "X|[{\"n\":\"\xC3\xA9\"}]", "[{\"n\":\"\xC3\xA9\"}]");
}

void TestReplyValues::readsJsonObjects() {
    QFETCH(QByteArray, line);
    const auto objects = jsonObjects(fields(line));
    QTEST(objects ? toText(*objects) : nothing, "objects");
}

void TestReplyValues::readsAJsonObject_data() {
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("object");
    QTest::newRow("object") << QByteArray(R"(X|{"a":{"b":[1,2]},"c":"|"})")
                            << QStringLiteral(R"({"a":{"b":[1,2]},"c":"|"})");
    QTest::newRow("empty object") << QByteArray("X|{}") << QStringLiteral("{}");
    QTest::newRow("an array is not an object") << QByteArray("X|[]") << nothing;
    QTest::newRow("no JSON") << QByteArray("X|hello") << nothing;
    QTest::newRow("nested deeper than any parser goes")
        << "X|" + QByteArray("{\"a\":").repeated(100000) + QByteArray(100000, '}') << nothing;
    QTest::newRow("no bar") << QByteArray("X") << nothing;
}

void TestReplyValues::readsAJsonObject() {
    QFETCH(QByteArray, line);
    const auto object = jsonObject(fields(line));
    QTEST(object ? toText(QVariant(*object)) : nothing, "object");
}

void TestReplyValues::readsADirectoryOfTenThousandRecords() {
    QJsonArray records;
    for (int id = 1; id <= 10000; ++id) {
        records.append(
            QJsonObject{{QStringLiteral("id"), id}, {QStringLiteral("callsign"), QStringLiteral("C%1").arg(id)}});
    }
    const QByteArray json = QJsonDocument(records).toJson(QJsonDocument::Compact);
    const auto objects = jsonObjects(ReplyFields(QStringLiteral("ADMIN_ALL_USERS|") + QString::fromUtf8(json)));
    QVERIFY(objects);
    QCOMPARE(objects->size(), 10000);
    QCOMPARE(objects->last().value(QStringLiteral("id")).toInt(), 10000);
    QCOMPARE(objects->last().value(QStringLiteral("callsign")).toString(), QStringLiteral("C10000"));
}

QTEST_GUILESS_MAIN(TestReplyValues)
#include "tst_ReplyValues.moc"
