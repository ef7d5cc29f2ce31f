#pragma once

#include <QtGlobal>

/// Tells where one transmission from the network ends and the next begins.
///
/// Only the rules: the caller runs the clock and the timers, and starts them anew on every new transmission.
class TalkTimer {
public:
    /// Takes note of a packet; true when a new transmission begins with it, and the limit counts from it. That is when
    /// the talker changes, after half a second without a packet, and on the next packet of a talker whose time was
    /// over: that mute lasts no longer, it is the dropped PTT that ends the transmission.
    bool packet(quint32 userId, qint64 nowMs);
    /// For that long nobody looked whether packets came: no pause of the talker's.
    void heldUp(qint64 ms) { m_lastPacketMs += ms; }
    /// The current talker's time is over.
    void expire() { m_expired = true; }
    /// User id of the transmission being timed; 0 before the first.
    quint32 talker() const { return m_talker; }

private:
    quint32 m_talker = 0;
    bool m_expired = false;
    qint64 m_lastPacketMs = 0;
};
