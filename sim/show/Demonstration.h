#pragma once

#include "sim/member/Handset.h"
#include "sim/show/Report.h"
#include "sim/show/Timeline.h"
#include "sim/site/Radio.h"

#include <QObject>

#include <cstdint>
#include <vector>

namespace sim {

/// One sentence from the radio into the room, then one from the room to the radio, and what became of each.
class Demonstration : public QObject {
    Q_OBJECT

public:
    /// A sound and when it began, in CLOCK_MONOTONIC ns.
    struct Recording {
        Pcm pcm;
        std::int64_t startNs = 0;
    };

    /// What is said must be 48 kHz. Radio, handset and timeline must outlive the demonstration; the gateway's user id
    /// is the one its frames carry.
    Demonstration(Radio &radio, Handset &handset, Timeline &timeline, QObject *parent = nullptr);

    void start(const Pcm &fromRadio, const Pcm &fromRoom);

    // After the end.
    const std::vector<Passage> &passages() const { return m_passages; }
    const Recording &heardInRoom() const { return m_heardInRoom; }
    const Recording &heardOnAir() const { return m_heardOnAir; }
    bool everybodyWasHeard() const;

Q_SIGNALS:
    void finished();

private:
    void speakFromRadio();
    void listenInRoom();
    void speakFromRoom();
    void listenOnAir();
    void judge(const QString &lane, const Recording &said, const Recording &heard);

    Radio &m_radio;
    Handset &m_handset;
    Timeline &m_timeline;
    std::int64_t m_startNs = 0;
    Recording m_saidOnRadio;
    Recording m_saidInRoom;
    Recording m_heardInRoom;
    Recording m_heardOnAir;
    std::vector<Passage> m_passages;
};

} // namespace sim
