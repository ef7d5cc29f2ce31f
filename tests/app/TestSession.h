#pragma once

#include "../support/LogCapture.h"
#include "QuickDelays.h"
#include "TestGateway.h"

/// The gateway with its session, connected as start-up connects it.
struct TestSession : TestGateway {
    explicit TestSession(const QJsonObject &config = {}, const SessionDelays &delays = quick)
        : TestGateway(config),
          flow(gateway, files, traffic, delays) {
        QObject::connect(&link, &TcpClient::connected, &flow, &SessionFlow::onConnected);
        QObject::connect(&link, &TcpClient::disconnected, &flow, &SessionFlow::onDisconnected);
        QObject::connect(&link, &TcpClient::errorOccurred, &flow, &SessionFlow::onLinkError);
        QObject::connect(&link, &TcpClient::loginResult, &flow, &SessionFlow::onLoginResult);
        QObject::connect(&link, &TcpClient::joinRoomResult, &flow, &SessionFlow::onJoinRoomResult);
        QObject::connect(&link, &TcpClient::leaveRoomResult, &flow, &SessionFlow::onLeaveRoomResult);
        QObject::connect(&link, &TcpClient::roomKeyReceived, &flow, &SessionFlow::onRoomKey);
    }

    void start() {
        flow.scheduleFirstConnection();
        QTRY_VERIFY(gateway.session.connected && server.hasClient());
    }

    bool isStatus(const char *key, const QJsonValue &value) const {
        return root.exchanged("kivo-status.json").object().value(QLatin1String(key)) == value;
    }

    SessionFlow flow;
};

inline QJsonObject account(QJsonObject more = {}) {
    more.insert("callsign"_s, "ab1cd"_s);
    more.insert("password"_s, "secret"_s);
    more.insert("hwid"_s, "h1"_s);
    return more;
}

/// What the session itself has logged.
inline QStringList own(const QStringList &lines) {
    QStringList kept;
    for (const QString &line : lines) {
        if (!line.contains("[TCP]"_s) && !line.contains("[UDP]"_s) && !line.contains("[Config]"_s))
            kept.append(line);
    }
    return kept;
}
