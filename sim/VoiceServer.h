#pragma once

#include <QByteArray>
#include <QHash>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTcpServer>
#include <QUdpSocket>

#include <functional>

namespace sim {

struct Account {
    int id = 0;
    QString callsign;
    QString password;
    QString name;
    bool isAdmin = false;
    bool approved = true;
    /// When not empty, only this hardware id may log in.
    QString hwid;
    /// Gateway profile as the server's JSON records carry it.
    QString gatewayName, frequency, location, email, whatsapp, responsibleName, responsibleCallsign;
};

/// The voice network's server as the appliance sees it from the other end of the wire: control protocol over TCP, media
/// over UDP, many clients, rooms with keys. Written from the wire up; shares no code with the appliance.
class VoiceServer : public QObject {
    Q_OBJECT

public:
    explicit VoiceServer(QObject *parent = nullptr);
    ~VoiceServer() override;

    void addAccount(const Account &account);
    /// A room and its key (32 raw bytes; empty: audio in clear).
    void addRoom(const QString &name, const QByteArray &key);
    void setRoomKey(const QString &name, const QByteArray &key);

    /// Listens for control on tcpPort and for media on udpPort of 127.0.0.1. False when a port is taken.
    bool start(quint16 tcpPort = 8080, quint16 udpPort = 8082);
    /// Drops every connection and stops listening, as a server that is shut down.
    void stop();

    // What a server can do to its clients. `callsign` names a logged-in client.
    void kick(const QString &callsign, const QString &reason);
    void mute(const QString &callsign, bool muted, const QString &byWhom);
    void move(const QString &callsign, const QString &room);
    void announceQuality(const QString &preset, int bitrate, int sampleRate, int frameDurationMs, int complexity);
    /// Sends the bytes as they stand on the control connection(s) of that callsign ("" for all).
    void sendRaw(const QString &callsign, const QByteArray &bytes);
    /// Marks a member as talking or not in the room lists, as if the server had heard its TX_START or TX_STOP.
    void setTalking(const QString &callsign, bool talking);
    /// Sends an audio datagram to the client as if from that talker.
    void sendAudioTo(const QString &callsign, quint32 talkerId, const QByteArray &frame);

    bool isLoggedIn(const QString &callsign) const;
    bool isTalking(const QString &callsign) const;
    QString roomOf(const QString &callsign) const;

    // Faults.
    /// Incoming control and media packets are dropped by the kernel without a trace: no answer, no reset. A cable pulled.
    void setSilent(bool silent);
    /// Control commands for which this returns true are not answered.
    void setIgnored(std::function<bool(const QString &line)> ignored);
    /// Media datagrams (both ways) for which this returns true are lost.
    void setMediaLoss(std::function<bool(const QByteArray &datagram)> lost);

Q_SIGNALS:
    /// Every control line that a client sent, as received (without CR LF); callsign empty before its login.
    void lineReceived(QString callsign, QString line);
    void clientConnected();
    void clientDisconnected(QString callsign);
    void loggedIn(QString callsign);
    void joined(QString callsign, QString room);
    void left(QString callsign, QString room);
    void talkingChanged(QString callsign, bool talking);
    /// Every UDP datagram received from a client, control texts included.
    void datagramReceived(QByteArray datagram);
    /// An audio datagram of a known member, before it is relayed.
    void audioRelayed(QString callsign, QByteArray frame);
};

} // namespace sim
