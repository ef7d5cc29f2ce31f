#pragma once

#include "sim/server/Switchboard.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

#include <vector>

namespace sim {

// Reply lines of the control protocol, without their line end. Texts from outside lose the characters that separate
// fields, items and lines.

QString loginOkReply(const Account &account, const QString &token);
QString joinOkReply(const Room &room);
QString movedReply(const Room &room, const QString &byWhom);
QString mutedReply(bool muted, const QString &byWhom);
QString kickedReply(const QString &reason);
QString roomsReply(const QStringList &rooms);
QString qualityReply(const Quality &quality);
/// The list of a room as one of its members gets it: it never marks the member itself as talking.
QString userListReply(const QString &room, const std::vector<const Session *> &members, const Session &reader);
QString onlineUsersReply(const std::vector<const Session *> &everybody);
QString jsonReply(const char *keyword, const QJsonArray &array);
QString jsonReply(const char *keyword, const QJsonObject &object);
/// The keyword and its fields.
QString fieldsReply(const char *keyword, const QStringList &fields);

} // namespace sim
