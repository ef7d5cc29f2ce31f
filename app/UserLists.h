#pragma once

#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QVariantMap>

class RadioTraffic;
struct Gateway;

/// What the server tells about its users: kept in files for the Web UI, followed for talkers, and searched for this
/// gateway's own record and mutes.
class UserLists : public QObject {
    Q_OBJECT

public:
    UserLists(Gateway &gateway, RadioTraffic &traffic);

    void onRoomUsers(const QList<QVariantMap> &users);
    void onOnlineUsers(const QList<QVariantMap> &users);
    void onAllUsers(const QList<QVariantMap> &users);
    /// This gateway's own profile.
    void onUserInfo(const QVariantMap &info);
    /// An administrator has muted or unmuted this gateway.
    void onAdminMuted(bool muted, const QString &administrator);
    /// An administrator has muted or unmuted somebody.
    void onAdminMuteStatus(int userId, bool muted);

private:
    void logComingsAndGoings(const QList<QVariantMap> &users);
    void storeOwnRecord(const QList<QVariantMap> &users);
    void markMuted(int userId, bool muted);

    Gateway &m_gateway;
    RadioTraffic &m_traffic;
    const QString m_roomUsersFile;
    const QString m_directoryFile;
    QStringList m_roomCallsigns;
    QSet<int> m_mutedIds;
};
