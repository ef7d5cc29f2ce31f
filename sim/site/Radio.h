#pragma once

#include "sim/card/SoundCard.h"
#include "sim/site/Board.h"
#include "sim/sound/Pcm.h"
#include "sim/sound/RunningLevel.h"

#include <QObject>
#include <QTimer>

#include <cstdint>
#include <vector>

namespace sim {

/// What goes on the air of a sound that began at that time: all of it that passed while PTT was on, silence otherwise.
/// PTT is off before the first keying.
Pcm whileKeyed(Pcm pcm, std::int64_t startNs, const std::vector<Board::Keying> &keyings);

/// The transceiver behind the board and the sound card. The card's capture jack is on its receiver's audio output, its
/// playback jack on the transmitter's microphone input; the board sees its squelch and drives its PTT.
class Radio : public QObject {
    Q_OBJECT

public:
    /// Both must outlive the radio.
    Radio(Board &board, SoundCard &card, QObject *parent = nullptr);

    void setSquelch(bool open);
    bool isSquelchOpen() const { return m_isSquelchOpen; }

    /// Somebody calls on the radio's frequency: the squelch opens, the sound is received a moment later, and the
    /// squelch closes behind it. Not to be called during an earlier call. Returns when the sound begins, in
    /// CLOCK_MONOTONIC ns.
    std::int64_t receive(const Pcm &pcm);
    bool isReceiving() const { return m_endOfCall.isActive(); }

    /// What was on the air between two times.
    Pcm transmitted(std::int64_t fromNs, std::int64_t toNs) const;

    double receivedDbfs() const;    ///< at this moment
    double transmittedDbfs() const; ///< over the last tenth of a second

Q_SIGNALS:
    void squelchChanged(bool open);
    void callEnded();

private:
    void endCall();

    Board &m_board;
    SoundCard &m_card;
    QTimer m_endOfCall;
    RunningLevel m_received;
    bool m_isSquelchOpen = false;
};

} // namespace sim
