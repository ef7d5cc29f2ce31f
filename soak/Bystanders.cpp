#include "Bystanders.h"

#include "sim/MonotonicClock.h"

#include <algorithm>

namespace {

constexpr int placeCount = 4;
constexpr int firstId = 201;
constexpr std::size_t mostHeard = 3000; // a minute
constexpr std::int64_t patienceNs = 4'000'000'000;

sim::Account accountOf(int number) {
    sim::Account account;
    account.id = firstId + number;
    account.callsign = QStringLiteral("M%1XYZ").arg(number);
    account.password = QStringLiteral("member");
    account.name = QStringLiteral("Member %1").arg(number);
    return account;
}

} // namespace

Bystanders::Bystanders(sim::VoiceServer &server) : m_server(server) {
    for (int number = 0; number < placeCount; ++number) {
        m_server.addAccount(accountOf(number));
        m_places.push_back({accountOf(number), QStringLiteral("Lobby"), nullptr, 0});
    }
}

sim::RoomMember *Bystanders::ready(int index) const {
    sim::RoomMember *member = m_places[std::size_t(index)].member.get();
    return member && member->isReady() ? member : nullptr;
}

bool Bystanders::areAllReady() const {
    return std::all_of(m_places.begin(), m_places.end(),
                       [](const Place &place) { return place.member && place.member->isReady(); });
}

bool Bystanders::isAnyTalkingIn(const QString &room) const {
    return std::any_of(m_places.begin(), m_places.end(), [&](const Place &place) {
        return m_server.isTalking(place.account.callsign) && m_server.roomOf(place.account.callsign) == room;
    });
}

void Bystanders::hush() {
    for (int index = 0; index < count(); ++index) {
        if (sim::RoomMember *member = ready(index))
            member->stopTalking();
    }
}

void Bystanders::sendTo(int index, const QString &room) {
    m_places[std::size_t(index)].room = room;
    if (sim::RoomMember *member = ready(index))
        member->sendLine(QStringLiteral("JOIN ") + room);
}

void Bystanders::leave(int index) {
    Place &place = m_places[std::size_t(index)];
    place.member.reset();
    place.triedNs = sim::monotonicNs();
}

void Bystanders::lookAfter() {
    for (Place &place : m_places) {
        if (place.member && place.member->heard().size() > mostHeard)
            place.member->forgetHeard();
        const bool isReady = place.member && place.member->isReady();
        if (!isReady && sim::monotonicNs() - place.triedNs > patienceNs)
            comeBack(place);
    }
}

/// As somebody new: an old connection may hang in the air.
void Bystanders::comeBack(Place &place) {
    place.triedNs = sim::monotonicNs();
    place.member = std::make_unique<sim::RoomMember>();
    place.member->connectToServer(QStringLiteral("127.0.0.1"), 8080, 8082, place.account.callsign,
                                  place.account.password, place.room);
}
