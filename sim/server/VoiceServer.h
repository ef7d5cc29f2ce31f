#pragma once

#include "sim/server/Account.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QTcpServer>
#include <QUdpSocket>

#include <functional>
#include <memory>

namespace sim {

class ControlLink;
class MediaRelay;
class Switchboard;
struct Outgoing;
struct Session;

/// The voice network's server as the appliance sees it from the other end of the wire: control protocol over TCP, media
/// over UDP, many clients, rooms with keys. Written from the wire up; shares no code with the appliance.
///
/// Everything runs on the thread's event loop. Accounts and rooms outlive stop(); sessions do not.
class VoiceServer : public QObject {
    Q_OBJECT

public:
    explicit VoiceServer(QObject *parent = nullptr);
    ~VoiceServer() override;

    void addAccount(const Account &account);
    /// A room and its key (32 raw bytes; empty: audio in clear).
    void addRoom(const QString &name, const QByteArray &key);
    /// For those who join from now on; who is in the room is not told and keeps the key it has.
    void setRoomKey(const QString &name, const QByteArray &key);

    /// Listens for control on tcpPort and for media on udpPort of 127.0.0.1; port 0 takes any free one. False when a
    /// port is taken.
    bool start(quint16 tcpPort = 8080, quint16 udpPort = 8082);
    /// Drops every connection and stops listening, as a server that is shut down.
    void stop();
    quint16 tcpPort() const;
    quint16 udpPort() const;

    // What a server can do to its clients. `callsign` names a logged-in client; nothing happens when it names none.
    void kick(const QString &callsign, const QString &reason);
    void mute(const QString &callsign, bool muted, const QString &byWhom);
    void move(const QString &callsign, const QString &room);
    /// The numbers go out as they stand, however senseless. Clients that log in later are told too.
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

    // Faults. They last until they are taken back, over stop() and start() too.
    /// Incoming control and media packets are dropped by the kernel without a trace: no answer, no reset. A cable
    /// pulled. Control lines to clients wait until it is plugged again; media are lost.
    void setSilent(bool silent);
    /// Control commands for which this returns true are not answered.
    void setIgnored(std::function<bool(const QString &line)> ignored);
    /// Media datagrams (both ways) for which this returns true are lost.
    void setMediaLoss(std::function<bool(const QByteArray &datagram)> lost);
    /// Every reply line leaves this much later, in order.
    void setReplyDelay(int delayMs);
    /// What becomes of something on its way to a client: the pieces that are sent in its place, one by one. The same
    /// twice is a duplicate; nothing now and two the next time is a change of order; a reply can be cut anywhere.
    using Path = std::function<QList<QByteArray>(const QByteArray &)>;
    /// For reply lines, with their line end. With a callsign only for those to that client, from its login on.
    void setReplyPath(Path path, const QString &callsign = {});
    void setMediaPath(Path path); ///< for datagrams

Q_SIGNALS:
    /// Every control line that a client sent, as received (without CR LF); callsign empty before its login.
    void lineReceived(QString callsign, QString line);
    void clientConnected();
    /// Callsign empty: never logged in.
    void clientDisconnected(QString callsign);
    void loggedIn(QString callsign);
    void joined(QString callsign, QString room);
    void left(QString callsign, QString room);
    void talkingChanged(QString callsign, bool talking);
    /// Every UDP datagram received from a client, control texts and those that are then lost included.
    void datagramReceived(QByteArray datagram);
    /// An audio datagram of a known member, before it is relayed.
    void audioRelayed(QString callsign, QByteArray frame);

private:
    std::unique_ptr<Switchboard> makeSwitchboard();
    void acceptClients();
    void takeLine(int id, const QString &line);
    void sendLine(int id, const QString &line);
    void sendPieces(int id, const QByteArray &line);
    bool hasReplyPath(int id) const;
    void hangUp(int id, const QString &callsign);
    void onClosed(int id);
    void readDatagrams();
    void sendDatagram(const Outgoing &datagram);
    Session *session(const QString &callsign) const;

    QTcpServer m_listener;
    QUdpSocket m_media;
    std::unique_ptr<Switchboard> m_board;
    std::unique_ptr<MediaRelay> m_relay;
    QHash<int, ControlLink *> m_links;
    int m_lastId = 0;

    bool m_silent = false;
    int m_replyDelayMs = 0;
    std::function<bool(const QString &)> m_ignored;
    std::function<bool(const QByteArray &)> m_lost;
    Path m_replyPath;
    QString m_replyPathCallsign; ///< empty: everybody's
    Path m_mediaPath;
};

} // namespace sim
