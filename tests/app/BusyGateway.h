#pragma once

#include "../support/LogCapture.h"
#include "TestGateway.h"
#include "app/WebUiActions.h"

using Lines = QList<QByteArray>;

inline QJsonObject parse(const QByteArray &json) {
    QJsonObject object = QJsonDocument::fromJson(json).object();
    if (object.isEmpty())
        qFatal("the test's own JSON is wrong");
    return object;
}

inline const QJsonObject startingSettings = {
    {"callsign"_s, "ab1cd"_s}, {"gateway_name"_s, "Gate"_s}, {"hwid"_s, "h1"_s}};

/// Connected, logged in as administrator 42, in room "Hill", with an open board.
struct BusyGateway : TestGateway {
    BusyGateway() : TestGateway(startingSettings) {
        openBoard();
        connectLink();
        logIn(42, true);
        gateway.session.currentRoom = "Hill"_s;
        gateway.config.save();
        wire();
    }

    void run(const QByteArray &json) { runWebUiCommand(gateway, files, parse(json)); }

    /// These lines and nothing after them: the next to arrive is a keep-alive.
    bool boardIsToldOnly(const QByteArray &lines) {
        radio.checkHealth();
        return board.isTold(lines + "PING\n");
    }
};
