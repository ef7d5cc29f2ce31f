#include "sim/server/ServerReplies.h"

#include <QJsonDocument>

#include <functional>

namespace sim {

namespace {

QString without(QString text, const char *separators) {
    for (const char *separator = separators; *separator; ++separator)
        text.replace(QLatin1Char(*separator), QLatin1Char(' '));
    return text;
}

QString field(const QString &text) {
    return without(text, "|\r\n");
}
QString item(const QString &text) {
    return without(text, "|\r\n,;");
}
QString flag(bool on) {
    return on ? QStringLiteral("1") : QStringLiteral("0");
}
QString keyText(const Room &room) {
    return QString::fromLatin1(room.key.toBase64());
}

/// A client drops the empty items of a column and would then mix up its rows, so no name is empty.
QString nameOf(const Account &account) {
    return item(account.name.isEmpty() ? account.callsign : account.name);
}

QString column(const std::vector<const Session *> &members, const std::function<QString(const Session &)> &cell) {
    QStringList cells;
    for (const Session *member : members)
        cells.append(cell(*member));
    return cells.join(QLatin1Char(','));
}

QString withDocument(const char *keyword, const QJsonDocument &document) {
    return QLatin1String(keyword) + QLatin1Char('|') + QString::fromUtf8(document.toJson(QJsonDocument::Compact));
}

} // namespace

QString fieldsReply(const char *keyword, const QStringList &fields) {
    QStringList pieces{QLatin1String(keyword)};
    for (const QString &text : fields)
        pieces.append(field(text));
    return pieces.join(QLatin1Char('|'));
}

QString loginOkReply(const Account &account, const QString &token) {
    const QString sessionKey = QString::fromLatin1(randomKey().toBase64());
    return fieldsReply("LOGIN_OK",
                       {token, account.callsign, account.isAdmin ? QStringLiteral("true") : QStringLiteral("false"),
                        QString::number(account.id), account.name, flag(account.approved), account.gatewayName,
                        account.frequency, account.location, account.email, account.whatsapp, account.responsibleName,
                        account.responsibleCallsign, account.status, sessionKey});
}

QString joinOkReply(const Room &room) {
    return fieldsReply("JOIN_OK", {room.name, keyText(room)});
}

QString movedReply(const Room &room, const QString &byWhom) {
    return fieldsReply("MOVED", {room.name, byWhom, keyText(room)});
}

QString mutedReply(bool muted, const QString &byWhom) {
    return fieldsReply("MUTED", {flag(muted), byWhom});
}

QString kickedReply(const QString &reason) {
    return fieldsReply("KICKED", {reason});
}

QString roomsReply(const QStringList &rooms) {
    QStringList names;
    for (const QString &room : rooms)
        names.append(item(room));
    return fieldsReply("ROOMS", {names.join(QLatin1Char(','))});
}

QString qualityReply(const Quality &quality) {
    return fieldsReply("AUDIO_QUALITY",
                       {quality.preset, QString::number(quality.bitrate), QString::number(quality.sampleRate),
                        QString::number(quality.frameDurationMs), QString::number(quality.complexity)});
}

QString userListReply(const QString &room, const std::vector<const Session *> &members, const Session &reader) {
    const auto transmitState = [&](const Session &member) {
        return member.talking && &member != &reader ? QStringLiteral("TX") : QStringLiteral("RX");
    };
    return fieldsReply(
        "USER_LIST",
        {room, column(members, [](const Session &member) { return QString::number(member.account->id); }),
         column(members, [](const Session &member) { return item(member.account->callsign); }),
         column(members, [](const Session &member) { return nameOf(*member.account); }), column(members, transmitState),
         column(members, [](const Session &member) { return flag(member.account->approved); }),
         column(members, [](const Session &member) { return flag(member.account->muted); })});
}

QString onlineUsersReply(const std::vector<const Session *> &everybody) {
    QStringList records;
    for (const Session *session : everybody) {
        const Account &account = *session->account;
        const QStringList items{QString::number(account.id), item(account.callsign), nameOf(account),
                                item(session->room),
                                account.isAdmin ? QStringLiteral("True") : QStringLiteral("False")};
        records.append(items.join(QLatin1Char(',')));
    }
    return fieldsReply("ONLINE_USERS", {records.join(QLatin1Char(';'))});
}

QString jsonReply(const char *keyword, const QJsonArray &array) {
    return withDocument(keyword, QJsonDocument(array));
}

QString jsonReply(const char *keyword, const QJsonObject &object) {
    return withDocument(keyword, QJsonDocument(object));
}

} // namespace sim
