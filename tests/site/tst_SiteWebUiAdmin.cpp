#include "TestSite.h"

#include <QJsonArray>

using namespace sim;

namespace {

constexpr int waitingId = 300; // an account that waits for approval

/// A list file's record of that user; empty when there is none.
QJsonObject recordOf(const Site &site, const char *file, int userId) {
    const QJsonArray records = site.readState(QLatin1String(file)).array();
    const auto record = std::find_if(records.begin(), records.end(), [userId](const QJsonValue &each) {
        return each.toObject().value("user_id"_s).toInt() == userId;
    });
    return record == records.end() ? QJsonObject() : (*record).toObject();
}

/// A site whose gateway is an administrator.
class AdminSite : public TestSite {
public:
    static QString callsign() { return adminAccount().callsign; }

    bool bringUpAdmin() {
        Account waiting;
        waiting.id = waitingId;
        waiting.callsign = "QQ3QQ"_s;
        waiting.name = "One who waits"_s;
        waiting.approved = false;
        server().addAccount(waiting);
        writeConfig({{"callsign"_s, callsign()}, {"password"_s, adminAccount().password}});
        return server().start() && daemon().start() &&
               waitFor([&] { return !server().roomOf(callsign()).isEmpty(); }, 15000) &&
               waitFor([&] { return !directoryRecord(waitingId).isEmpty(); }, 5000);
    }

    void command(const QJsonObject &object) {
        dropFile(QStringLiteral("kivo-cmd-%1.json").arg(++m_commands, 4, 10, QLatin1Char('0')),
                 QJsonDocument(object).toJson());
    }
    QJsonObject roomRecord(int userId) const { return recordOf(*this, "kivo-userlist.json", userId); }
    QJsonObject onlineRecord(int userId) const { return recordOf(*this, "kivo-online-users.json", userId); }
    QJsonObject directoryRecord(int userId) const { return recordOf(*this, "kivo-admin-users.json", userId); }

    /// Until both lists that carry it say so.
    bool waitForMuteMark(int userId, bool muted) {
        return waitFor(
            [&] {
                return roomRecord(userId).value("is_muted"_s) == QJsonValue(muted) &&
                       directoryRecord(userId).value("is_muted"_s) == QJsonValue(muted);
            },
            5000);
    }

private:
    int m_commands = 0;
};

} // namespace

/// An administrator at work through command files, and what he sees of it in the state files.
class TestSiteWebUiAdmin : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void anAdministratorSeesWhatHeHasDoneToUsers();
    void anAdministratorSeesWhatHeHasDoneToRooms();
    void aMuteOfThisGatewayIsMarkedEverywhere();
};

void TestSiteWebUiAdmin::anAdministratorSeesWhatHeHasDoneToUsers() {
    const int memberId = Site::memberAccount().id;
    AdminSite site;
    QVERIFY(site.bringUpAdmin());
    const auto member = site.memberIn("Lobby"_s);
    QVERIFY(member);

    QCOMPARE(site.directoryRecord(waitingId).value("approved"_s), QJsonValue(false));
    site.command({{"action"_s, "admin_approve"_s}, {"user_id"_s, waitingId}});
    QVERIFY(site.waitForSent("ADMIN_APPROVE_USER 300"_s, 2000));
    site.command({{"action"_s, "admin_refresh"_s}});
    QVERIFY(
        Site::waitFor([&] { return site.directoryRecord(waitingId).value("approved"_s) == QJsonValue(true); }, 5000));

    QVERIFY(site.waitForMuteMark(memberId, false));
    site.command({{"action"_s, "admin_mute"_s}, {"user_id"_s, memberId}});
    QVERIFY(site.waitForMuteMark(memberId, true));
    QVERIFY(site.waitForLine("info"_s, "[Admin] \"user 200\" di-mute"_s, 1000));
    site.command({{"action"_s, "admin_refresh"_s}});
    QVERIFY(site.waitForMuteMark(memberId, true));
    site.command({{"action"_s, "admin_unmute"_s}, {"user_id"_s, memberId}});
    QVERIFY(site.waitForMuteMark(memberId, false));
    QVERIFY(site.waitForLine("info"_s, "[Admin] \"user 200\" unmute"_s, 1000));

    site.command({{"action"_s, "admin_move"_s}, {"user_id"_s, memberId}, {"room"_s, "  Hilltop "_s}});
    QVERIFY(site.waitForLine("info"_s, "[Admin] Pindah \"user 200\" ke room: \"Hilltop\""_s, 2000));
    QVERIFY(Site::waitFor([&] { return site.roomRecord(memberId).isEmpty(); }, 5000));
    QVERIFY(Site::waitFor([&] { return member->room() == "Hilltop"_s; }, 1000));
    QVERIFY(site.waitForStatus("users_in_room", 1));
    QVERIFY(Site::waitFor([&] { return site.onlineRecord(memberId).value("room"_s) == "Hilltop"_s; }, 12000));
    QVERIFY(site.waitForStatus("users", 2));

    site.command({{"action"_s, "admin_update_user"_s},
                  {"user_id"_s, memberId},
                  {"name"_s, "Nama \"Baru\""_s},
                  {"responsible_callsign"_s, "EF2GI"_s},
                  {"gateway_name"_s, "Bukit"_s},
                  {"frequency"_s, "145.500"_s},
                  {"approved"_s, 1}});
    site.command({{"action"_s, "admin_refresh"_s}});
    QVERIFY(Site::waitFor([&] { return site.directoryRecord(memberId).value("gateway_name"_s) == "Bukit"_s; }, 5000));
    const QJsonObject updated = site.directoryRecord(memberId);
    QCOMPARE(updated.value("responsible_name"_s), QJsonValue("Nama \"Baru\""_s));
    QCOMPARE(updated.value("responsible_callsign"_s), QJsonValue("EF2GI"_s));
    QCOMPARE(updated.value("frequency"_s), QJsonValue("145.500"_s));
    QCOMPARE(updated.value("status"_s), QJsonValue("active"_s));
    QCOMPARE(updated.value("approved"_s), QJsonValue(true));

    site.command({{"action"_s, "admin_kick"_s}, {"user_id"_s, memberId}});
    QVERIFY(Site::waitFor([&] { return !site.server().isLoggedIn(Site::memberAccount().callsign); }, 5000));
    QVERIFY(Site::waitFor([&] { return site.onlineRecord(memberId).isEmpty(); }, 12000));
    QVERIFY(site.waitForStatus("users", 1));
}

void TestSiteWebUiAdmin::anAdministratorSeesWhatHeHasDoneToRooms() {
    AdminSite site;
    QVERIFY(site.bringUpAdmin());
    const auto rooms = [&] { return site.readState("kivo-rooms.json"_s).array(); };
    site.command({{"action"_s, "admin_edit_room"_s}, {"old"_s, "Lobby"_s}, {"new"_s, "Ruang Utama"_s}});
    QVERIFY(site.waitForLine("info"_s, "[Admin] Rename room: \"Lobby\" → \"Ruang Utama\""_s, 2000));
    QVERIFY(site.waitForStatus("room", "Ruang Utama"_s)); // who was inside is taken along
    site.command({{"action"_s, "admin_create_room"_s}, {"name"_s, "Darurat"_s}, {"max"_s, 3}});
    site.command({{"action"_s, "admin_delete_room"_s}, {"name"_s, "Hilltop"_s}});
    site.command({{"action"_s, "admin_set_room_order"_s}, {"order"_s, "Darurat,Ruang Utama"_s}});
    QVERIFY(Site::waitFor([&] { return rooms() == QJsonArray({"Darurat"_s, "Ruang Utama"_s}); }, 12000));
    QCOMPARE(site.sent("ADMIN_CREATE_ROOM"_s), QStringList{"ADMIN_CREATE_ROOM \"Darurat\" 3"_s});

    site.command({{"action"_s, "admin_set_audio_quality"_s}, {"preset"_s, "high"_s}});
    const auto quality = [&] { return site.readState("kivo-server-info.json"_s).object(); };
    QVERIFY(Site::waitFor([&] { return quality().value("preset"_s) == "high"_s; }, 5000));
    QCOMPARE(quality().value("bitrate"_s), QJsonValue(64000));
    QVERIFY(site.waitForLog("[Audio] Quality change → SR: 48000 BR: 64000 fd: 20 ms"_s, 1000));
}

void TestSiteWebUiAdmin::aMuteOfThisGatewayIsMarkedEverywhere() {
    const int ownId = Site::adminAccount().id;
    AdminSite site;
    QVERIFY(site.bringUpAdmin());
    QVERIFY(site.waitForMuteMark(ownId, false));
    site.server().mute(site.callsign(), true, "BOSS1"_s);
    QVERIFY(site.waitForLine("info"_s, "[Admin] Gateway ini di-mute oleh admin: \"BOSS1\""_s, 5000));
    QVERIFY(site.waitForMuteMark(ownId, true));
    QVERIFY(site.waitForStatus("admin_muted", true));
    site.server().mute(site.callsign(), false, "BOSS2"_s);
    QVERIFY(site.waitForLine("info"_s, "[Admin] Gateway ini di-unmute oleh admin: \"BOSS2\""_s, 5000));
    QVERIFY(site.waitForMuteMark(ownId, false));
    QVERIFY(site.waitForStatus("admin_muted", false));
}

SITE_TEST_MAIN(TestSiteWebUiAdmin)
#include "tst_SiteWebUiAdmin.moc"
