#pragma once

#include "base/EpochClock.h"

#include <QByteArray>
#include <QObject>
#include <QString>

/// The media link: handshake, keep-alive, health check and audio datagrams over UDP.
///
/// Lives on the event-loop thread. Look-ups never block. Datagrams from another address than the server's are dropped.
class UdpAudio : public QObject {
    Q_OBJECT

public:
    explicit UdpAudio(QObject *parent = nullptr, EpochClock clock = steadyEpochMs);
    ~UdpAudio() override;

    /// This account's numeric id, put in front of every frame; 0 when unknown. Set before enableUdp().
    void setUserId(int userId);
    /// Starts the link anew: clears ready, abandons a look-up or handshake under way. The token is never logged.
    void enableUdp(const QString &host, quint16 port, const QString &token);
    bool isReady() const;
    /// Sends one frame as one datagram; dropped while not ready.
    void sendAudio(const QByteArray &frame);
    void resendToken();

Q_SIGNALS:
    void udpReady();
    void udpFailed();
    void audioReceived(QByteArray data);
    void audioReceivedFrom(int userId, QByteArray data);
};
