#include "net/ReplyValues.h"

#include "net/ReplyFields.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

bool isOne(const QString &text) {
    return text == QLatin1String("1");
}

QVariantMap onlineUser(const QStringList &items) {
    return {{QStringLiteral("id"), items[0].toInt()},
            {QStringLiteral("callsign"), items[1]},
            {QStringLiteral("name"), items[2]},
            {QStringLiteral("room"), items[3]},
            {QStringLiteral("is_admin"), items[4] == QLatin1String("True")}};
}

QJsonDocument jsonDocument(const ReplyFields &reply) {
    return QJsonDocument::fromJson(reply.rest(1).toUtf8());
}

/// Puts the object's values under the map's keys; false, with some of them replaced, where the keys are not the same.
bool replaceValues(QVariantMap &map, const QJsonObject &object) {
    if (map.size() != object.size())
        return false;
    for (auto entry = map.begin(); entry != map.end(); ++entry) {
        const auto member = object.constFind(entry.key());
        if (member == object.constEnd())
            return false;
        entry.value() = member.value().toVariant();
    }
    return true;
}

} // namespace

QStringList listItems(const QString &field) {
    return field.split(QLatin1Char(','), Qt::SkipEmptyParts);
}

QList<QVariantMap> roomUsers(const ReplyFields &reply) {
    QList<QVariantMap> users;
    if (reply.count() < 7)
        return users;
    const QStringList ids = listItems(reply.value(2));
    const QStringList callsigns = listItems(reply.value(3));
    const QStringList names = listItems(reply.value(4));
    const QStringList transmitStates = listItems(reply.value(5));
    const QStringList approvedFlags = listItems(reply.value(6));
    const QStringList mutedFlags = listItems(reply.value(7));
    users.reserve(ids.size());
    for (int i = 0; i < ids.size(); ++i) {
        users.append({{QStringLiteral("user_id"), ids[i].toInt()},
                      {QStringLiteral("callsign"), callsigns.value(i)},
                      {QStringLiteral("name"), names.value(i)},
                      {QStringLiteral("is_transmitting"), transmitStates.value(i) == QLatin1String("TX")},
                      {QStringLiteral("approved"), isOne(approvedFlags.value(i))},
                      {QStringLiteral("is_muted"), isOne(mutedFlags.value(i))}});
    }
    return users;
}

std::optional<QList<QVariantMap>> onlineUsers(const ReplyFields &reply) {
    if (reply.count() < 2)
        return std::nullopt;
    QList<QVariantMap> users;
    const QStringList records = reply.value(1).split(QLatin1Char(';'), Qt::SkipEmptyParts);
    for (const QString &record : records) {
        const QStringList items = record.split(QLatin1Char(','));
        if (items.size() >= 5)
            users.append(onlineUser(items));
    }
    return users;
}

std::optional<QVariantMap> audioQuality(const ReplyFields &reply) {
    if (reply.count() <= 5)
        return std::nullopt;
    return QVariantMap{{QStringLiteral("preset"), reply.value(1)},
                       {QStringLiteral("bitrate"), reply.number(2)},
                       {QStringLiteral("sample_rate"), reply.number(3)},
                       {QStringLiteral("frame_duration"), reply.number(4)},
                       {QStringLiteral("complexity"), reply.number(5)}};
}

std::optional<QVariantMap> jsonObject(const ReplyFields &reply) {
    const QJsonDocument document = jsonDocument(reply);
    if (!document.isObject())
        return std::nullopt;
    return document.object().toVariantMap();
}

std::optional<QList<QVariantMap>> jsonObjects(const ReplyFields &reply) {
    const QJsonDocument document = jsonDocument(reply);
    if (!document.isArray())
        return std::nullopt;
    QList<QVariantMap> objects;
    const QJsonArray elements = document.array();
    objects.reserve(elements.size());
    // Mostly the keys are those of the object before. A copy of its map shares them, which costs less than making them.
    QVariantMap map;
    for (const QJsonValue &element : elements) {
        if (!element.isObject())
            continue;
        const QJsonObject object = element.toObject();
        if (!replaceValues(map, object))
            map = object.toVariantMap();
        objects.append(map);
    }
    return objects;
}
