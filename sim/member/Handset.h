#pragma once

#include "sim/member/RoomMember.h"
#include "sim/server/VoiceServer.h"
#include "sim/sound/RunningLevel.h"

#include <cstdint>

namespace sim {

/// What the member of the room holds in its hand: a key to talk, and the levels on both sides.
class Handset {
public:
    /// The member must outlive its handset.
    explicit Handset(RoomMember &member) : m_member(member) {}

    /// Connects to the site's server, again if need be, and joins the room; RoomMember::ready() tells when it is there.
    void join(const VoiceServer &server, const QString &room);

    /// Presses the key, says it a moment later, and lets go. Not while the member is speaking. 48 kHz. Returns when the
    /// sound begins, in CLOCK_MONOTONIC ns.
    std::int64_t say(const Pcm &pcm);
    RoomMember &member() { return m_member; }

    double saidDbfs() const;  ///< at this moment
    double heardDbfs() const; ///< at this moment

private:
    RoomMember &m_member;
    RunningLevel m_said;
};

} // namespace sim
