#include "app/UserRecords.h"

#include "config/Settings.h"

#include <iterator>

namespace {

QJsonValue integer(const QVariant &value) {
    const QJsonValue json = QJsonValue::fromVariant(value);
    return json.isString() ? json.toString().toInt() : json.toInt();
}

QJsonValue text(const QVariant &value) {
    return value.toString();
}

QJsonValue status(const QVariant &value) {
    const QString given = value.toString();
    return given.isEmpty() ? QStringLiteral("active") : given;
}

QJsonValue flag(const QVariant &value) {
    if (value.type() == QVariant::Bool)
        return value.toBool();
    const QString given = value.toString();
    return given == QLatin1String("1") || given.compare(QLatin1String("true"), Qt::CaseInsensitive) == 0;
}

/// One key of a record: how it is read, and the keys of the server's entry to look at, the preferred one first.
struct Field {
    const char *key;
    QJsonValue (*read)(const QVariant &);
    const char *source;
    const char *otherSource;
};

constexpr Field same(const char *key, QJsonValue (*read)(const QVariant &)) {
    return {key, read, key, key};
}

constexpr Field idField = {"user_id", integer, "id", "user_id"};
constexpr Field callsignField = {"callsign", text, "callsign", "callSign"};

constexpr Field onlineFields[] = {
    idField, callsignField, same("name", text), same("room", text), same("is_admin", flag),
};

constexpr Field roomFields[] = {
    idField,
    callsignField,
    same("name", text),
    same("is_transmitting", flag),
    same("approved", flag),
    same("is_muted", flag),
};

constexpr Field directoryFields[] = {
    idField,
    callsignField,
    {"gateway_name", text, "gateway_name", "gatewayName"},
    same("frequency", text),
    same("location", text),
    same("email", text),
    same("whatsapp", text),
    same("responsible_name", text),
    same("responsible_callsign", text),
    same("status", status),
    {"approved", flag, "approved", "is_approved"},
    {"is_admin", flag, "is_admin", "isAdmin"},
    same("is_muted", flag),
    same("registered_hwid", text),
};

struct ProfileField {
    const char *source;
    const char *otherSource;
    void (*store)(QJsonObject &, const QString &);
};

constexpr ProfileField profileFields[] = {
    {"gateway_name", "gatewayName", Settings::setGatewayName},
    {"frequency", "frequency", Settings::setFrequency},
    {"location", "location", Settings::setLocation},
    {"responsible_name", "responsible_name", Settings::setResponsibleName},
    {"responsible_callsign", "responsible_callsign", Settings::setResponsibleCallsign},
    {"email", "email", Settings::setEmail},
    {"whatsapp", "whatsapp", Settings::setWhatsapp},
};

QVariant pick(const QVariantMap &user, const char *source, const char *otherSource) {
    const auto found = user.constFind(QLatin1String(source));
    return found != user.constEnd() ? *found : user.value(QLatin1String(otherSource));
}

QJsonValue valueOf(const QVariantMap &user, const Field &field) {
    return field.read(pick(user, field.source, field.otherSource));
}

template <std::size_t N>
QJsonObject record(const QVariantMap &user, const Field (&fields)[N]) {
    QJsonObject result;
    for (const Field &field : fields)
        result.insert(QLatin1String(field.key), valueOf(user, field));
    return result;
}

template <std::size_t N>
QJsonArray records(const QList<QVariantMap> &users, const Field (&fields)[N]) {
    QJsonArray result;
    for (const QVariantMap &user : users)
        result.append(record(user, fields));
    return result;
}

} // namespace

int UserRecords::userId(const QVariantMap &user) {
    return valueOf(user, idField).toInt();
}

QString UserRecords::callsign(const QVariantMap &user) {
    return valueOf(user, callsignField).toString();
}

bool UserRecords::isTransmitting(const QVariantMap &user) {
    return flag(user.value(QStringLiteral("is_transmitting"))).toBool();
}

QJsonArray UserRecords::onlineUsers(const QList<QVariantMap> &users) {
    return records(users, onlineFields);
}

QJsonArray UserRecords::roomUsers(const QList<QVariantMap> &users) {
    return records(users, roomFields);
}

QJsonArray UserRecords::directory(const QList<QVariantMap> &users, const QSet<int> &mutedIds) {
    QJsonArray result;
    for (const QVariantMap &user : users) {
        QJsonObject entry = record(user, directoryFields);
        if (mutedIds.contains(userId(user)))
            entry.insert(QStringLiteral("is_muted"), true);
        result.append(entry);
    }
    return result;
}

bool UserRecords::markMuted(QJsonArray &records, int userId, bool muted) {
    for (auto &&element : records) {
        QJsonObject user = element.toObject();
        if (user.value(QStringLiteral("user_id")).toInt() != userId)
            continue;
        user.insert(QStringLiteral("is_muted"), muted);
        element = user;
        return true;
    }
    return false;
}

void UserRecords::storeGatewayInfo(QJsonObject &config, const QVariantMap &user) {
    for (const ProfileField &field : profileFields) {
        const QString given = pick(user, field.source, field.otherSource).toString();
        if (!given.isEmpty() && given.size() <= Settings::longestServerText)
            field.store(config, given);
    }
}
