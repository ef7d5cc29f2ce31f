#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <optional>

class ReplyFields;

/// What the structured replies carry, as the signals hand it on. Pure functions, linear in the length of the reply;
/// "nothing" means that the reply is malformed and raises no signal.

/// Items of a "," list; empty items are dropped.
QStringList listItems(const QString &field);

/// Members of a room from the parallel columns of "USER_LIST", one map per item of the id column: "user_id" (int),
/// "callsign", "name" (texts), "is_transmitting", "approved", "is_muted" (bools). What a shorter column lacks is empty
/// or false. No members when there are fewer than 7 pieces.
QList<QVariantMap> roomUsers(const ReplyFields &reply);

/// Users on the server from the ";" records of "ONLINE_USERS": "id" (int), "callsign", "name", "room" (texts),
/// "is_admin" (bool). Records with fewer than 5 items are skipped; nothing when field 1 is missing.
std::optional<QList<QVariantMap>> onlineUsers(const ReplyFields &reply);

/// "preset" (text), "bitrate" (bit/s), "sample_rate" (Hz), "frame_duration" (ms), "complexity" (ints) as announced,
/// unchecked; nothing when one is missing.
std::optional<QVariantMap> audioQuality(const ReplyFields &reply);

/// The JSON object behind the reply's first bar.
std::optional<QVariantMap> jsonObject(const ReplyFields &reply);

/// The objects in the JSON array behind the reply's first bar; elements of another kind are skipped.
std::optional<QList<QVariantMap>> jsonObjects(const ReplyFields &reply);
