#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QSet>
#include <QString>
#include <QVariantMap>

/// How the server's user lists become the records that the Web UI reads. Pure.
///
/// Whatever form the server gives a value, a record holds integers, texts (empty when missing) and booleans: 1, "1" and
/// "true" are true. A key that the server spells in two ways is taken from the snake-case one when the entry has it.
namespace UserRecords {

/// Number of the entry's account: its "id" when it has one, else its "user_id".
int userId(const QVariantMap &user);
QString callsign(const QVariantMap &user);
bool isTransmitting(const QVariantMap &user);

QJsonArray onlineUsers(const QList<QVariantMap> &users);
QJsonArray roomUsers(const QList<QVariantMap> &users);
/// The administrator's directory; who is in mutedIds is muted, whatever the server's record says.
QJsonArray directory(const QList<QVariantMap> &users, const QSet<int> &mutedIds);

/// Sets "is_muted" in the first record of that "user_id". False when there is none.
bool markMuted(QJsonArray &records, int userId, bool muted);

/// Stores the gateway's name, place and contacts from its own entry; what is empty there leaves the configured value.
void storeGatewayInfo(QJsonObject &config, const QVariantMap &user);

} // namespace UserRecords
