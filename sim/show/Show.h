#pragma once

#include "sim/MonotonicClock.h"
#include "sim/member/Handset.h"
#include "sim/show/Demonstration.h"
#include "sim/show/Display.h"
#include "sim/show/InputLines.h"
#include "sim/show/Prompt.h"
#include "sim/show/Timeline.h"
#include "sim/show/Witness.h"
#include "sim/site/Radio.h"
#include "sim/site/Site.h"

#include <QStringList>
#include <QTimer>

#include <optional>

namespace sim {

/// What ./run shows: the site with the gateway on it, a member in its room, and the user as spectator.
class Show {
public:
    struct Options {
        QStringList daemon; ///< program of the gateway; empty: what the build made
        QString outFolder;
        bool stay = false;  ///< a prompt afterwards
        QString lookInside; ///< command line in front of one that another shell runs inside the site
    };

    explicit Show(const Options &options);

    /// Everybody on the site, connected and in the room. Tells the user what is missing when it fails.
    bool bringUp();
    /// Says both sentences (48 kHz), shows and writes what came of them. Ends the application's event loop afterwards,
    /// or, with a prompt, when the user asks for it.
    void play(const Pcm &fromRadio, const Pcm &fromRoom);
    bool everybodyWasHeard() const { return m_demonstration && m_demonstration->everybodyWasHeard(); }

private:
    bool fail(const QString &what);
    void showMeters();
    void onPlayed();
    void writeResults();
    void openPrompt();

    Options m_options;
    Display m_display{monotonicNs()};
    Timeline m_timeline;
    Site m_site;
    Radio m_radio;
    RoomMember m_member;
    Handset m_handset;
    Witness m_witness;
    Prompt m_prompt;
    QTimer m_meterTimer;
    std::optional<Demonstration> m_demonstration;
    std::optional<InputLines> m_input;
};

} // namespace sim
