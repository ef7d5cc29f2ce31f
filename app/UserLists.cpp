#include "app/UserLists.h"

#include "app/Gateway.h"
#include "app/RadioTraffic.h"
#include "app/UserRecords.h"
#include "app/WebUiFile.h"
#include "config/SharedFile.h"

#include <QDebug>

#include <algorithm>

namespace {

/// A directory of ten thousand accounts is a third of this; what somebody else puts under the name is not read without
/// end.
constexpr qint64 largestListBytes = 16 << 20; // 16 MiB

QStringList callsignsOf(const QList<QVariantMap> &users) {
    QStringList callsigns;
    for (const QVariantMap &user : users)
        callsigns.append(UserRecords::callsign(user));
    callsigns.removeDuplicates();
    return callsigns;
}

void logMissing(const QStringList &callsigns, const QStringList &from, const char *event) {
    const QSet<QString> present(from.cbegin(), from.cend());
    for (const QString &callsign : callsigns) {
        if (!present.contains(callsign))
            qInfo() << "[Room]" << callsign << event;
    }
}

std::optional<QString> talkerIn(const QList<QVariantMap> &users) {
    const auto talker = std::find_if(users.cbegin(), users.cend(), UserRecords::isTransmitting);
    return talker == users.cend() ? std::nullopt : std::optional(UserRecords::callsign(*talker));
}

void patchMuteMark(const QString &path, int userId, bool muted) {
    const UniqueFd file = SharedFile::openToRead(path);
    const auto bytes = file.isValid() ? SharedFile::readAll(file, largestListBytes) : std::nullopt;
    if (!bytes)
        return;
    const QJsonDocument document = QJsonDocument::fromJson(*bytes);
    QJsonArray records = document.array();
    if (document.isArray() && UserRecords::markMuted(records, userId, muted))
        writeWebUiJson(path, records);
}

} // namespace

UserLists::UserLists(Gateway &gateway, RadioTraffic &traffic)
    : m_gateway(gateway),
      m_traffic(traffic),
      m_roomUsersFile(gateway.exchangeFile("kivo-userlist.json")),
      m_directoryFile(gateway.exchangeFile("kivo-admin-users.json")) {}

void UserLists::onRoomUsers(const QList<QVariantMap> &users) {
    m_gateway.session.usersInRoom = users.size();
    logComingsAndGoings(users);
    m_traffic.followTalker(talkerIn(users));
    writeWebUiJson(m_roomUsersFile, UserRecords::roomUsers(users));
}

void UserLists::onOnlineUsers(const QList<QVariantMap> &users) {
    m_gateway.session.usersOnline = users.size();
    writeWebUiJson(m_gateway.exchangeFile("kivo-online-users.json"), UserRecords::onlineUsers(users));
}

void UserLists::onAllUsers(const QList<QVariantMap> &users) {
    writeWebUiJson(m_directoryFile, UserRecords::directory(users, m_mutedIds));
    storeOwnRecord(users);
}

void UserLists::onUserInfo(const QVariantMap &info) {
    UserRecords::storeGatewayInfo(m_gateway.config.object(), info);
    if (m_gateway.config.save())
        qInfo() << "[Appliance] Gateway info saved to config.json";
}

void UserLists::onAdminMuted(bool muted, const QString &administrator) {
    const int ownId = m_gateway.userId();
    if (ownId <= 0)
        return;
    qInfo() << "[Admin]" << (muted ? "Gateway ini di-mute oleh admin:" : "Gateway ini di-unmute oleh admin:")
            << administrator;
    m_gateway.session.adminMuted = muted;
    markMuted(ownId, muted);
}

void UserLists::onAdminMuteStatus(int userId, bool muted) {
    qInfo() << "[Admin]" << QStringLiteral("user %1").arg(userId) << (muted ? "di-mute" : "unmute");
    markMuted(userId, muted);
}

void UserLists::logComingsAndGoings(const QList<QVariantMap> &users) {
    const QStringList callsigns = callsignsOf(users);
    logMissing(callsigns, m_roomCallsigns, "join");
    logMissing(m_roomCallsigns, callsigns, "left");
    m_roomCallsigns = callsigns;
}

void UserLists::storeOwnRecord(const QList<QVariantMap> &users) {
    const int ownId = m_gateway.userId();
    const auto own = std::find_if(users.cbegin(), users.cend(),
                                  [ownId](const QVariantMap &user) { return UserRecords::userId(user) == ownId; });
    if (ownId <= 0 || own == users.cend())
        return;
    UserRecords::storeGatewayInfo(m_gateway.config.object(), *own);
    if (m_gateway.config.save())
        qInfo() << "[Appliance] Gateway info saved to config.json (admin)";
}

void UserLists::markMuted(int userId, bool muted) {
    if (muted)
        m_mutedIds.insert(userId);
    else
        m_mutedIds.remove(userId);
    patchMuteMark(m_roomUsersFile, userId, muted);
    patchMuteMark(m_directoryFile, userId, muted);
}
