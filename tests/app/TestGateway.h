#pragma once

#include "FakeBoard.h"
#include "FakeServer.h"
#include "TestRoot.h"
#include "app/Gateway.h"
#include "app/RadioTraffic.h"
#include "app/StateFiles.h"
#include "audio/AudioEngine.h"
#include "net/TcpClient.h"
#include "net/UdpAudio.h"
#include "radio/ArduinoController.h"

using namespace std::chrono_literals;

/// A gateway of real components between a fake server and a fake board, without sound devices. The rules under test are
/// made on top of it.
struct TestGateway {
    explicit TestGateway(const QJsonObject &config = {}) : root(withServer(config)), gateway(root.paths()) {
        gateway.session.serverAddress = "127.0.0.1"_s;
        gateway.link = &link;
        gateway.media = &media;
        gateway.engine = &engine;
        gateway.radio = &radio;
    }

    QJsonObject withServer(QJsonObject config) const {
        config.insert("server_address"_s, "127.0.0.1"_s);
        config.insert("server_port"_s, server.serverPort());
        return config;
    }

    /// Brings the control link up, as far as the session is concerned too.
    void connectLink() {
        gateway.connectToServer();
        QTRY_VERIFY(link.isConnected() && server.hasClient());
        gateway.session.connected = true;
    }

    /// The account that the server would have told about.
    void logIn(int userId, bool admin) {
        link.dispatchLine("LOGIN_OK|token|AB1CD|%1|%2"_s.arg(admin ? "true"_s : "false"_s).arg(userId));
    }

    void openBoard() { QVERIFY(radio.openPort(board.portName(), 9600, true, false)); }

    /// Everything the server has heard until now.
    QList<QByteArray> wire() {
        link.sendCommand("END"_s);
        return link.isConnected() ? server.heardBefore("END") : QList<QByteArray>();
    }

    FakeServer server;
    FakeBoard board;
    TestRoot root;
    Gateway gateway;
    TcpClient link;
    UdpAudio media;
    AudioEngine engine;
    ArduinoController radio{nullptr, {1h, 1h, 1h, 1h}}; ///< says nothing by the clock
    StateFiles files{gateway};
    RadioTraffic traffic{gateway, files};
};
