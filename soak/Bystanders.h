#pragma once

#include "sim/member/RoomMember.h"
#include "sim/server/VoiceServer.h"

#include <memory>
#include <vector>

/// The members of the rooms beside the gateway. Whoever loses the server comes back by and by.
class Bystanders {
public:
    explicit Bystanders(sim::VoiceServer &server);

    int count() const { return int(m_places.size()); }
    /// Null while that one is not in a room with media confirmed.
    sim::RoomMember *ready(int index) const;
    bool areAllReady() const;
    /// In that room, as the server sees it.
    bool isAnyTalkingIn(const QString &room) const;
    void hush();
    void sendTo(int index, const QString &room);
    void leave(int index); ///< without a word; back later
    /// To be called now and then: brings back who is away, and forgets what was heard when it becomes much.
    void lookAfter();

private:
    struct Place {
        sim::Account account;
        QString room;
        std::unique_ptr<sim::RoomMember> member;
        std::int64_t triedNs = 0;
    };
    void comeBack(Place &place);

    sim::VoiceServer &m_server;
    std::vector<Place> m_places;
};
