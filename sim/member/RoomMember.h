#pragma once

#include "sim/member/Speech.h"
#include "sim/sound/Pcm.h"
#include "sim/wire/OpusVoice.h"

#include <QByteArray>
#include <QHostAddress>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTcpSocket>
#include <QTimer>
#include <QUdpSocket>

#include <map>
#include <optional>
#include <vector>

namespace sim {

/// A member of a room: logs in to the voice server over the wire, speaks PCM into the room and records what it hears.
/// Codec and sealing are its own calls of libopus and libsodium.
///
/// It follows the server where that moves it, but does not come back by itself once the connection is lost.
class RoomMember : public QObject {
    Q_OBJECT

public:
    explicit RoomMember(QObject *parent = nullptr);
    ~RoomMember() override;

    /// @param host  an address, not a name
    void connectToServer(const QString &host, quint16 tcpPort, quint16 udpPort, const QString &callsign,
                         const QString &password, const QString &room);
    void disconnectFromServer();
    bool isReady() const; ///< logged in, in its room, media confirmed
    QString room() const;
    int userId() const; ///< 0 before login
    /// Callsigns of the last user list, in its order; those marked as talking.
    QStringList members() const;
    QStringList talkers() const;

    /// Speaks PCM of any rate, paced by the clock, between TX_START and TX_STOP. finishedSpeaking() at the end, also
    /// when the server refuses. What is being said is cut off.
    void speak(const Pcm &pcm);
    bool isSpeaking() const;
    void startTalking();                          ///< TX_START without audio
    void stopTalking();                           ///< TX_STOP; cuts off what is being said
    void sendFrame(const QByteArray &opusPacket); ///< one packet, sealed with the room's key
    void sendLine(const QString &line);           ///< any control command

    /// One received frame.
    struct Heard {
        qint64 timeNs = 0; ///< CLOCK_MONOTONIC at arrival
        int talkerId = 0;
        int packetBytes = 0; ///< of the frame as it came, seal included
        bool opened = false; ///< false: did not open with the room's key
        std::vector<qint16> samples;
    };
    const std::vector<Heard> &heard() const;
    /// What that talker said as one stretch of 48 kHz PCM: frames in order of arrival, nothing for lost ones.
    Pcm heardFrom(int talkerId) const;
    void forgetHeard();

Q_SIGNALS:
    void ready();
    void frameHeard(int talkerId, int level); ///< level 0..100 as a meter shows it
    void finishedSpeaking();
    void lineReceived(QString line);

private:
    struct Reply {
        const char *keyword;
        void (RoomMember::*take)(const QStringList &fields);
    };
    static const Reply replies[];

    void logIn();
    void forgetSession();
    void readLines();
    void takeLine(const QString &line);
    void takeLogin(const QStringList &fields);
    void takeJoin(const QStringList &fields);
    void takeMove(const QStringList &fields);
    void takeUserList(const QStringList &fields);
    void takeTalkOk(const QStringList &fields);
    void takeTalkRefusal(const QStringList &fields);
    void enterRoom(const QString &room, const QString &keyText);

    void startMedia();
    void sendHandshake();
    void readDatagrams();
    void takeDatagram(const QByteArray &datagram);
    void hear(quint32 talkerId, const QByteArray &frame);
    void sendDatagram(const QByteArray &datagram);
    void announceReady();

    void speakDueFrames();
    void finishSpeaking();

    enum class Media { Off, AwaitingPong, AwaitingConfirmation, Ready };

    QTcpSocket m_control;
    QUdpSocket m_media;
    QTimer m_handshakeTimer; ///< repeats what was not answered
    QTimer m_speechTimer;
    QHostAddress m_serverAddress;
    quint16 m_serverMediaPort = 0;
    QString m_callsign, m_password, m_wantedRoom;

    QString m_token;
    int m_userId = 0;
    QString m_room;
    QByteArray m_roomKey; ///< empty: in clear
    Media m_mediaStep = Media::Off;
    bool m_readyAnnounced = false;
    QStringList m_members, m_talkers;

    std::optional<Speech> m_speech;

    std::map<quint32, VoiceDecoder> m_decoders; ///< by talker
    std::vector<Heard> m_heard;
};

} // namespace sim
