#include "sim/site/Radio.h"

#include "sim/MonotonicClock.h"
#include "sim/sound/Voices.h"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace sim {
namespace {

constexpr std::int64_t meterWindowNs = 100'000'000;

} // namespace

Pcm whileKeyed(Pcm pcm, std::int64_t startNs, const std::vector<Board::Keying> &keyings) {
    const auto sampleAt = [&](std::int64_t timeNs) {
        const double index = double(timeNs - startNs) * 1e-9 * pcm.rateHz;
        return std::ptrdiff_t(std::clamp(index, 0.0, double(pcm.samples.size())));
    };
    const auto silence = [&](std::ptrdiff_t from, std::ptrdiff_t to) {
        std::fill(pcm.samples.begin() + from, pcm.samples.begin() + to, std::int16_t(0));
    };
    std::ptrdiff_t unkeyedSince = 0;
    bool keyed = false;
    for (const Board::Keying &keying : keyings) {
        if (keying.keyed && !keyed)
            silence(unkeyedSince, sampleAt(keying.timeNs));
        else if (keyed && !keying.keyed)
            unkeyedSince = sampleAt(keying.timeNs);
        keyed = keying.keyed;
    }
    if (!keyed)
        silence(unkeyedSince, std::ptrdiff_t(pcm.samples.size()));
    return pcm;
}

Radio::Radio(Board &board, SoundCard &card, QObject *parent) : QObject(parent), m_board(board), m_card(card) {
    m_endOfCall.setSingleShot(true);
    m_endOfCall.setTimerType(Qt::PreciseTimer);
    connect(&m_endOfCall, &QTimer::timeout, this, &Radio::endCall);
}

void Radio::setSquelch(bool open) {
    m_isSquelchOpen = open;
    m_board.setSquelch(open);
    Q_EMIT squelchChanged(open);
}

std::int64_t Radio::receive(const Pcm &pcm) {
    const Pcm call = withPauses(pcm);
    setSquelch(true);
    const std::int64_t startNs = m_card.feed(call) + std::int64_t(pauseBeforeSeconds * 1e9);
    m_received.start(pcm, startNs);
    m_endOfCall.start(std::chrono::milliseconds(std::lround(call.seconds() * 1000.0)));
    return startNs;
}

Pcm Radio::transmitted(std::int64_t fromNs, std::int64_t toNs) const {
    return whileKeyed(m_card.played(fromNs, toNs), fromNs, m_board.keyings());
}

double Radio::receivedDbfs() const {
    return m_received.dbfsAt(monotonicNs());
}

double Radio::transmittedDbfs() const {
    const std::int64_t now = monotonicNs();
    return rmsDbfs(transmitted(now - meterWindowNs, now).samples);
}

void Radio::endCall() {
    setSquelch(false);
    Q_EMIT callEnded();
}

} // namespace sim
