#pragma once

#include "base/EpochClock.h"
#include "net/ReplyFramer.h"
#include "net/ReplyJoiner.h"

#include <QAbstractSocket>
#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QVariantMap>

#include <chrono>
#include <optional>

class QTcpSocket;

/// The control link's intervals; tests hand in shorter ones.
struct TcpTimings {
    std::chrono::milliseconds heartbeat{5000};
    /// How long an attempt to connect may take, name resolution included.
    std::chrono::milliseconds attempt{30000};
    /// How long the peer may be silently gone before the link ends with an error.
    std::chrono::milliseconds peerSilence{25000};
};

/// The control link: one TCP connection to the voice server, text commands out, replies in as signals.
///
/// Lives on the event-loop thread. Never reconnects by itself; a command given while the link is down is dropped
/// silently. Text from outside is made safe for the line protocol when it is sent: a CR, LF or NUL becomes a blank.
/// A failed attempt raises errorOccurred() only, a lost link errorOccurred() and then disconnected(); a peer that has
/// silently gone is noticed within about half a minute, as is an attempt that gets no answer. A slot may call back into
/// the client, but must not delete it.
class TcpClient : public QObject {
    Q_OBJECT

public:
    explicit TcpClient(QObject *parent = nullptr, EpochClock clock = steadyEpochMs, TcpTimings timings = {});
    /// Says "QUIT" when connected, then closes the socket.
    ~TcpClient() override;

    /// Starts to connect and returns at once; the outcome is connected() or errorOccurred(). A link that is up or on
    /// its way is left alone. The host name is resolved without blocking the loop.
    void connectToServer(const QString &host, quint16 port);
    bool isConnected() const;
    /// State of the socket; QAbstractSocket::UnconnectedState before the first connection.
    QAbstractSocket::SocketState socketState() const;

    /// Sends one line, CR LF appended, UTF-8, in one write. Dropped silently while not connected.
    void sendCommand(const QString &line);
    void sendPing();
    /// Asks the server to end the session and stops the heartbeat; the server closes the connection.
    void quit();
    /// The control link carries no audio towards the server: the frame is dropped.
    void sendAudio(const QByteArray &data);

    /// With an empty hardware id the command goes without it.
    void login(const QString &callsign, const QString &password, const QString &hwid);
    /// The protocol's other login, by the hardware id; not used by the gateway.
    void loginHwid(const QString &a, const QString &b);
    void joinRoom(const QString &room);
    void leaveRoom();
    void requestRooms();
    void startTransmit(const QString &room);
    void stopTransmit(const QString &room);
    void requestAllUsers();
    void requestOnlineUsers();
    void requestUserInfo(const QString &callsign);
    void approveUser(int id);
    void unapproveUser(int id);
    void resetHwid(int id);
    /// Same command with the account's callsign, as the administrators' page asks for it.
    void resetHwid(const QString &callsign);
    void kickUser(int id);
    void moveUser(int id, const QString &room);
    void muteUser(int id, bool muted);

    /// Account data of the last "LOGIN_OK": 0, false and empty before it.
    int userId() const;
    bool isAdmin() const;
    /// The session token that the media link presents to the server.
    QString loginText() const;

    /// Last measured round trip in milliseconds; 0 before the first.
    float lastLatencyMs() const;
    /// Last reply line, the heartbeat's answer and the server's greeting excepted.
    QString lastReply() const;

    /// Handles one complete reply line.
    void dispatchLine(const QString &line);

Q_SIGNALS:
    void connected();
    void disconnected();
    void loginResult(bool success, QString message);
    void registerResult(bool success, QString message);
    void roomListReceived(QStringList rooms);
    void roomUsersReceived(QList<QVariantMap> users);
    void onlineUsersReceived(QList<QVariantMap> users);
    void allUsersReceived(QList<QVariantMap> users);
    void userInfoReceived(QVariantMap info);
    void joinRoomResult(bool success, QString room);
    void leaveRoomResult(bool success, QString room);
    void transmitStarted();
    void transmitStopped();
    void transmitFailed(QString reason);
    void audioReceived(QByteArray data, int userId);
    void pingUpdated(float latencyMs);
    void serverInfoReceived(QVariantMap info);
    void audioQualityReceived(QVariantMap quality);
    void sessionKeyReceived(QString key);
    void roomKeyReceived(QString key);
    void gatewayInfoReceived(QVariantMap info);
    void hwidReset(QString callsign);
    void errorOccurred(QString error);
    void kicked(QString message);
    void banned(QString message);
    void adminMuted(bool muted, QString message);
    void adminMuteStatusChanged(int userId, bool muted);
    void userPasswordChanged(bool success, QString message);
    void userProfileReceived(QVariantMap profile);
    void adminNotification(QString type, QString message);
    void pendingUsersReceived(QList<QVariantMap> users);
    void announcementReceived(QVariantMap announcement);
    void announcementsListReceived(QList<QVariantMap> list);

private Q_SLOTS:
    void onConnected();
    void onDisconnected();
    void onReadyRead();
    void onError(QAbstractSocket::SocketError code);
    void onHeartbeat();

private:
    class Replies;

    void onAttemptTimeout();
    void takeTurn();
    std::optional<ReplyUnit> firstUnit();
    void handleUnit(const ReplyUnit &unit);
    void onPong();
    void reportError(const QString &text);

    EpochClock m_clock;
    TcpTimings m_timings;
    QTcpSocket *m_socket; ///< child
    QTimer m_heartbeat;
    QTimer m_attemptTimer;
    QTimer m_nextTurn; ///< runs while replies wait that one turn had no time for
    ReplyFramer m_framer;
    ReplyJoiner m_joiner;
    bool m_connected = false;
    qint64 m_pingSentMs = 0; ///< 0 when no answer is awaited
    float m_lastLatencyMs = 0;
    QString m_lastReply;
    QString m_loginText;
    QString m_lastJoinedRoom;
    int m_userId = 0;
    bool m_isAdmin = false;
};
