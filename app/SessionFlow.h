#pragma once

#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>
#include <functional>

class RadioTraffic;
class StateFiles;
struct Gateway;

/// How long the session waits before it acts; a test hands in shorter waits.
struct SessionDelays {
    using ms = std::chrono::milliseconds;

    ms firstConnection{500};
    ms reconnection{5000};
    /// After the login.
    ms join{1000};
    ms roomsAfterJoin{1500};
    ms roomsInRoom{500};
    ms profile{2000};
    /// After a join.
    ms onlineUsers{500};
};

/// Keeps the gateway logged in and in a room: connects, logs in, joins, and comes back after whatever ended the link.
class SessionFlow : public QObject {
    Q_OBJECT

public:
    SessionFlow(Gateway &gateway, StateFiles &files, RadioTraffic &traffic, const SessionDelays &delays = {});

    /// Connects to the server a moment from now.
    void scheduleFirstConnection();
    /// Asks for what the Web UI shows; repeated by a timer.
    void refresh();
    void ping();

    void onConnected();
    void onDisconnected();
    void onLinkError();
    void onLoginResult(bool success, const QString &message);
    void onJoinRoomResult(bool success, const QString &room);
    void onLeaveRoomResult(bool success, const QString &room);
    void onRoomKey(const QString &key);

private:
    void connectIfIdle();
    void reconnect();
    void login();
    void loginSucceeded();
    void loginFailed(const QString &message);
    void enableMedia();
    void chooseRoom();
    void joinLater(const QString &room);
    void forgetReceivedAudio();
    void after(std::chrono::milliseconds delay, std::function<void()> action);

    Gateway &m_gateway;
    StateFiles &m_files;
    RadioTraffic &m_traffic;
    const SessionDelays m_delays;
    QTimer m_reconnection;
};
