#pragma once

#include "Scene.h"

/// Both ways at once, for some seconds in which nothing else happens.
struct Duplex {
    bool radioHeard = false; ///< in the room
    bool roomHeard = false;  ///< on the air
    int overruns = 0;        ///< of capture
    int underruns = 0;       ///< of playback, between the first and the last sound
    double longestGapMs = 0; ///< on the air
    bool machineKeptPace = false;

    bool isWhole() const { return radioHeard && roomHeard; }
    bool isClean() const { return isWhole() && overruns == 0 && underruns == 0 && longestGapMs <= gapLimitMs; }
    static constexpr double gapLimitMs = 2.0;
};

/// The first time that was clean, or that is the gateway's own since the machine kept pace; else the last of several.
Duplex talkBothWays(Scene &scene, int seconds);
