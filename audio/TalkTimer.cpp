#include "audio/TalkTimer.h"

bool TalkTimer::packet(quint32 userId, qint64 nowMs) {
    constexpr qint64 pauseMs = 500;
    const bool isNew = userId != m_talker || m_expired || nowMs - m_lastPacketMs >= pauseMs;
    m_lastPacketMs = nowMs;
    if (isNew) {
        m_expired = false;
        m_talker = userId;
    }
    return isNew;
}
