#pragma once

#include "WireClient.h"
#include "sim/server/VoiceServer.h"

#include <QTest>

#include <memory>

const QByteArray lobbyKey(32, 'L');
const QByteArray hallKey(32, 'H');

inline sim::Account wireAccount(int id, const char *callsign) {
    sim::Account account;
    account.id = id;
    account.callsign = QLatin1String(callsign);
    account.password = QStringLiteral("pw");
    account.name = QStringLiteral("Name ") + QString::number(id);
    return account;
}

/// A running server with the rooms "Lobby" and "Big Hall" and five accounts of password "pw": the administrator ADMIN
/// (1), AB1CD (7), EF2GH (8), BOUND (9) who needs the device h1, and WAITS (10) who is not approved yet.
class WireServer : public sim::VoiceServer {
public:
    WireServer() {
        sim::Account admin = wireAccount(1, "ADMIN");
        admin.isAdmin = true;
        sim::Account bound = wireAccount(9, "BOUND");
        bound.hwid = QStringLiteral("h1");
        sim::Account waiting = wireAccount(10, "WAITS");
        waiting.approved = false;
        for (const sim::Account &known : {admin, wireAccount(7, "AB1CD"), wireAccount(8, "EF2GH"), bound, waiting})
            addAccount(known);
        addRoom(QStringLiteral("Lobby"), lobbyKey);
        addRoom(QStringLiteral("Big Hall"), hallKey);
        if (!start(0, 0))
            QTest::qFail("the server does not start", __FILE__, __LINE__);
    }

    std::unique_ptr<WireClient> client() const { return std::make_unique<WireClient>(tcpPort(), udpPort()); }

    /// A client in the lobby with its media endpoint registered.
    std::unique_ptr<WireClient> inLobby(const char *callsign) const {
        auto member = client();
        if (member->enter(callsign, "Lobby").isEmpty())
            QTest::qFail("a client does not get into the lobby", __FILE__, __LINE__);
        return member;
    }
};
