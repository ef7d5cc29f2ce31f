#include "sim/show/Demonstration.h"

#include "sim/MonotonicClock.h"
#include "sim/show/Witness.h"
#include "sim/site/Site.h"

#include <QTimer>

#include <algorithm>
#include <chrono>

namespace sim {
namespace {

using namespace std::chrono_literals;

/// What is on its way when a sentence ends has arrived by then.
constexpr std::chrono::milliseconds settling = 800ms;

constexpr double maxDelayMs = 2000.0;
constexpr std::int64_t viewLeadNs = 500'000'000;

} // namespace

Demonstration::Demonstration(Radio &radio, Handset &handset, Timeline &timeline, QObject *parent)
    : QObject(parent),
      m_radio(radio),
      m_handset(handset),
      m_timeline(timeline) {}

void Demonstration::start(const Pcm &fromRadio, const Pcm &fromRoom) {
    m_saidOnRadio.pcm = fromRadio;
    m_saidInRoom.pcm = fromRoom;
    m_startNs = monotonicNs();
    speakFromRadio();
}

bool Demonstration::everybodyWasHeard() const {
    return m_passages.size() == 2 &&
           std::all_of(m_passages.begin(), m_passages.end(), [](const Passage &passage) { return passage.wasHeard(); });
}

void Demonstration::speakFromRadio() {
    m_handset.member().forgetHeard();
    connect(&m_radio, &Radio::callEnded, this, [this] {
        disconnect(&m_radio, nullptr, this, nullptr);
        QTimer::singleShot(settling, this, &Demonstration::listenInRoom);
    });
    m_saidOnRadio.startNs = m_radio.receive(m_saidOnRadio.pcm);
}

void Demonstration::listenInRoom() {
    const int gatewayId = Site::gatewayAccount().id;
    const auto &frames = m_handset.member().heard();
    const auto first = std::find_if(frames.begin(), frames.end(), [gatewayId](const RoomMember::Heard &frame) {
        return frame.talkerId == gatewayId;
    });
    m_heardInRoom = {m_handset.member().heardFrom(gatewayId),
                     first != frames.end() ? first->timeNs : m_saidOnRadio.startNs};
    speakFromRoom();
}

void Demonstration::speakFromRoom() {
    connect(&m_handset.member(), &RoomMember::finishedSpeaking, this, [this] {
        disconnect(&m_handset.member(), nullptr, this, nullptr);
        QTimer::singleShot(settling, this, &Demonstration::listenOnAir);
    });
    m_saidInRoom.startNs = m_handset.say(m_saidInRoom.pcm);
}

void Demonstration::listenOnAir() {
    const std::int64_t now = monotonicNs();
    m_heardOnAir = {m_radio.transmitted(m_saidInRoom.startNs, now), m_saidInRoom.startNs};
    // Only now: judging takes its time, and server and member share this thread.
    judge(lanes::radioToRoom(), m_saidOnRadio, m_heardInRoom);
    judge(lanes::roomToRadio(), m_saidInRoom, m_heardOnAir);
    m_timeline.setView(m_startNs - viewLeadNs, now);
    Q_EMIT finished();
}

void Demonstration::judge(const QString &lane, const Recording &said, const Recording &heard) {
    Comparison found = compare(said.pcm, heard.pcm, maxDelayMs);
    found.delayMs += double(heard.startNs - said.startNs) * 1e-6;
    m_passages.push_back({lane, found});
    m_timeline.addSound(lane, QStringLiteral("said"), said.startNs, said.pcm);
    m_timeline.addSound(lane, QStringLiteral("heard"), heard.startNs, heard.pcm);
}

} // namespace sim
