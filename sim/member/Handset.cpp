#include "sim/member/Handset.h"

#include "sim/MonotonicClock.h"
#include "sim/site/Site.h"
#include "sim/sound/Voices.h"

namespace sim {

void Handset::join(const VoiceServer &server, const QString &room) {
    const Account account = Site::memberAccount();
    m_member.disconnectFromServer();
    m_member.connectToServer(QStringLiteral("127.0.0.1"), server.tcpPort(), server.udpPort(), account.callsign,
                             account.password, room);
}

std::int64_t Handset::say(const Pcm &pcm) {
    const std::int64_t startNs = monotonicNs() + std::int64_t(pauseBeforeSeconds * 1e9);
    m_said.start(pcm, startNs);
    m_member.speak(withPauses(pcm));
    return startNs;
}

double Handset::saidDbfs() const {
    return m_said.dbfsAt(monotonicNs());
}

double Handset::heardDbfs() const {
    constexpr std::int64_t freshNs = 100'000'000;
    const auto &frames = m_member.heard();
    const bool isFresh = !frames.empty() && monotonicNs() - frames.back().timeNs < freshNs;
    return isFresh ? rmsDbfs(frames.back().samples) : silenceDbfs;
}

} // namespace sim
