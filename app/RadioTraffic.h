#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

#include <optional>

class StateFiles;
struct Gateway;

/// What crosses the gateway: the radio's squelch becomes a transmission into the room, a talker in the room keys the
/// radio.
class RadioTraffic : public QObject {
    Q_OBJECT

public:
    RadioTraffic(Gateway &gateway, StateFiles &files);

    /// The radio's squelch opened or closed.
    void onCosChanged(bool active);
    void onFrameEncoded(const QByteArray &frame);
    /// The link heard somebody in the room.
    void onFrameReceived(int userId, const QByteArray &frame);
    /// The talker has talked too long: the radio is released, whatever happens in the room.
    void onTotExpired();

    /// A room was joined: starts the transmission that was waiting for one.
    void startPendingTransmission();
    /// Keys the radio while somebody in the room talks; nothing means that nobody does.
    void followTalker(const std::optional<QString> &talker);
    /// Nobody is going to tell when the talker ends: the room or the link to it is gone.
    void forgetTalker();

private:
    void keyRadioFor(const QString &talker);
    void releaseRadio();
    QString callsign();

    Gateway &m_gateway;
    StateFiles &m_files;
};
