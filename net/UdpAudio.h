#pragma once

#include "base/EpochClock.h"

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>
#include <optional>

class QHostInfo;
class QUdpSocket;

/// The media link's intervals; tests hand in shorter ones.
struct UdpTimings {
    std::chrono::milliseconds handshakeStep{3000};
    std::chrono::milliseconds healthCheck{30000};
    std::chrono::milliseconds reinitDelay{200};
};

/// The media link: handshake, keep-alive, health check and audio datagrams over UDP (IPv4).
///
/// Lives on the event-loop thread. Look-ups never block. Datagrams from another address than the server's are dropped
/// and do not count as a sign of life. After udpFailed() nothing is sent again by itself; a late answer of the server
/// still completes the handshake. A slot may call back into the link, but must not delete it.
class UdpAudio : public QObject {
    Q_OBJECT

public:
    explicit UdpAudio(QObject *parent = nullptr, EpochClock clock = steadyEpochMs, UdpTimings timings = {});
    ~UdpAudio() override;

    /// This account's numeric id, put in front of every frame; 0 when unknown. Set before enableUdp().
    void setUserId(int userId);
    /// Starts the link anew: clears ready, abandons a look-up or handshake under way, and forgets when the server was
    /// last heard, so that the health check judges the new socket by its own traffic. A host that cannot be resolved or
    /// a socket that cannot be bound leaves the link idle with a log line only. The token is never logged.
    void enableUdp(const QString &host, quint16 port, const QString &token);
    bool isReady() const;
    /// Sends one frame as one datagram; dropped while not ready.
    void sendAudio(const QByteArray &frame);
    /// Presents the token once more; does nothing while the link is idle.
    void resendToken();

    /// Audio frames received, and datagrams of any kind handed to the network, since the object was made.
    qint64 framesReceived() const;
    qint64 datagramsSent() const;
    /// Calls of sendAudio() in the life of the process, dropped frames included.
    static qint64 sendAudioCalls();

Q_SIGNALS:
    void udpReady();
    void udpFailed();
    void audioReceived(QByteArray data);
    void audioReceivedFrom(int userId, QByteArray data);

private Q_SLOTS:
    void onReadyRead();
    void onHandshakeTimeout();
    void onHealthCheck();

private:
    enum class Step { AwaitPong = 0, AwaitConfirmation = 1, Done = 2 };

    void onReinitialize();
    void goIdle();
    void startLookup(const QString &host);
    void onLookedUp(const QHostInfo &info);
    void start(const QString &host, const QList<QHostAddress> &addresses);
    bool bindSocket();
    void discardSocket();
    void enterStep(Step step, const QByteArray &text);
    void sendDatagram(const QByteArray &datagram);
    bool takeDatagram();
    void handleDatagram();
    void handleAudio();
    void onPong();
    void becomeReady();

    EpochClock m_clock;
    UdpTimings m_timings;
    QUdpSocket *m_socket = nullptr; ///< child; none while idle
    QTimer m_handshakeTimer;
    QTimer m_healthTimer;
    QTimer m_reinitTimer;
    std::optional<int> m_lookupId; ///< the look-up under way
    QHostAddress m_serverAddress;  ///< null while idle
    quint16 m_serverPort = 0;
    QString m_token;
    int m_userId = 0;
    Step m_step = Step::AwaitPong;
    bool m_ready = false;
    qint64 m_lastReceivedMs = 0; ///< 0 when the server has not been heard
    qint64 m_framesReceived = 0;
    qint64 m_datagramsSent = 0;
    QByteArray m_received; ///< reused for every datagram
    QByteArray m_outgoing; ///< reused for every frame
};
