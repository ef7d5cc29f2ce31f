#pragma once

#include <QtGlobal>

/// Tells where one transmission from the network ends and the next begins, and whether the talker's time is over.
///
/// Only the rules: the caller runs the clock and the timers, and starts them anew on every new transmission.
class TalkTimer {
public:
    struct Verdict {
        /// The limit counts from this packet.
        bool newTransmission;
    };

    /// Takes note of a packet. A transmission is new when the talker changes, after half a second without a packet, and
    /// on the next packet of a talker whose time was over: that mute lasts no longer, it is the dropped PTT that ends
    /// the transmission.
    Verdict packet(quint32 userId, qint64 nowMs);
    /// The current talker's time is over.
    void expire() { m_expired = true; }
    bool isExpired() const { return m_expired; }
    /// User id of the transmission being timed; 0 before the first.
    quint32 talker() const { return m_talker; }

private:
    quint32 m_talker = 0;
    bool m_expired = false;
    qint64 m_lastPacketMs = 0;
};
