#pragma once

#include "sim/Pcm.h"

#include <QByteArray>
#include <QObject>
#include <QString>

namespace sim {

/// A member of a room: logs in to the voice server over the wire, speaks PCM into the room and records what it hears.
/// Codec and sealing are its own calls of libopus and libsodium.
class RoomMember : public QObject {
    Q_OBJECT

public:
    explicit RoomMember(QObject *parent = nullptr);
    ~RoomMember() override;

    void connectToServer(const QString &host, quint16 tcpPort, quint16 udpPort, const QString &callsign,
                         const QString &password, const QString &room);
    bool isReady() const; ///< logged in, in its room, media confirmed
    QString room() const;

    /// Speaks 48 kHz mono PCM, paced by the clock, between TX_START and TX_STOP. finishedSpeaking() at the end.
    void speak(const Pcm &pcm);
    bool isSpeaking() const;
    void startTalking(); ///< TX_START without audio
    void stopTalking();
    void sendFrame(const QByteArray &opusPacket); ///< one packet, sealed with the room's key

    /// One received frame.
    struct Heard {
        qint64 timeNs = 0; ///< CLOCK_MONOTONIC at arrival
        int talkerId = 0;
        int packetBytes = 0;
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
};

} // namespace sim
