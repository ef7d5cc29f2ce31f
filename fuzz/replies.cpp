#include "Fuzz.h"
#include "Pieces.h"
#include "Promise.h"
#include "SignalCounter.h"
#include "Surroundings.h"
#include "app/UserRecords.h"
#include "net/ReplyFramer.h"
#include "net/ReplyJoiner.h"
#include "net/TcpClient.h"

#include <vector>

namespace {

using Units = std::vector<ReplyUnit>;

Units unitsOf(const QByteArray &stream, Pieces pieces) {
    Units units;
    ReplyFramer framer;
    for (int fed = 0; fed < stream.size();) {
        const int size = pieces.next(stream.size() - fed);
        framer.append(stream.mid(fed, size));
        fed += size;
        while (const auto unit = framer.next())
            units.push_back(*unit);
    }
    promise(framer.bytesWorked() <= 3 * qint64{stream.size()}, "the framer's work stays linear");
    return units;
}

bool areSame(const ReplyUnit &a, const ReplyUnit &b) {
    const auto *audioA = std::get_if<AudioBlock>(&a);
    const auto *audioB = std::get_if<AudioBlock>(&b);
    if (audioA == nullptr || audioB == nullptr)
        return audioA == audioB && std::get<QString>(a) == std::get<QString>(b);
    return audioA->userId == audioB->userId && audioA->payload == audioB->payload;
}

void checkSame(const Units &whole, const Units &pieced) {
    bool same = whole.size() == pieced.size();
    for (std::size_t i = 0; same && i < whole.size(); ++i)
        same = areSame(whole[i], pieced[i]);
    promise(same, "how a stream is cut does not change what is in it");
}

void checkRecords(const QList<QVariantMap> &users) {
    promise(UserRecords::onlineUsers(users).size() == users.size(), "each user online has a record");
    promise(UserRecords::roomUsers(users).size() == users.size(), "each user in the room has a record");
    promise(UserRecords::directory(users, {1, 2}).size() == users.size(), "each account has a record");
}

void dispatch(const Units &units) {
    TcpClient client;
    const SignalCounter signalCounter(client);
    for (const auto signal : {&TcpClient::onlineUsersReceived, &TcpClient::roomUsersReceived,
                              &TcpClient::allUsersReceived, &TcpClient::pendingUsersReceived})
        QObject::connect(&client, signal, checkRecords);
    QJsonObject config;
    QObject::connect(&client, &TcpClient::userInfoReceived,
                     [&config](const QVariantMap &info) { UserRecords::storeGatewayInfo(config, info); });
    ReplyJoiner joiner;
    for (const ReplyUnit &unit : units) {
        const auto *line = std::get_if<QString>(&unit);
        const auto reply = line != nullptr ? joiner.add(*line) : std::nullopt;
        if (reply)
            client.dispatchLine(*reply);
    }
    constexpr std::size_t mostSignalsPerReply = 2;
    promise(static_cast<std::size_t>(signalCounter.count()) <= mostSignalsPerReply * units.size(),
            "a reply raises its signals only");
}

} // namespace

/// The server's stream through the framer and the dispatcher, without anything around them. The first byte tells how
/// the stream is cut into pieces.
void fuzz(const QByteArray &input) {
    const QByteArray stream = input.mid(1);
    const Units whole = unitsOf(stream, Pieces(0));
    checkSame(whole, unitsOf(stream, Pieces(firstByte(input))));
    dispatch(whole);
}
