#include "sim/server/Switchboard.h"

#include "sim/server/ServerReplies.h"

#include <utility>

namespace sim {

Switchboard::Switchboard(SwitchboardOutputs outputs) : m_outputs(std::move(outputs)) {}

void Switchboard::open(int id) {
    m_sessions[id].id = id;
}

QString Switchboard::close(int id) {
    Session *session = byId(id);
    if (!session)
        return {};
    takeOut(*session);
    QString callsign = session->account ? session->account->callsign : QString();
    m_sessions.erase(id);
    return callsign;
}

template <typename Wanted>
Session *Switchboard::find(Wanted wanted) {
    for (auto &[id, session] : m_sessions) {
        if (session.account && wanted(session))
            return &session;
    }
    return nullptr;
}

Session *Switchboard::byId(int id) {
    const auto it = m_sessions.find(id);
    return it == m_sessions.end() ? nullptr : &it->second;
}

Session *Switchboard::byCallsign(const QString &callsign) {
    return find([&](const Session &session) { return session.account->callsign == callsign; });
}

Session *Switchboard::byAccount(int accountId) {
    return find([&](const Session &session) { return session.account->id == accountId; });
}

Session *Switchboard::byToken(const QString &token) {
    return find([&](const Session &session) { return session.token == token; });
}

Session *Switchboard::byEndpoint(const Endpoint &endpoint) {
    return find([&](const Session &session) { return session.media == endpoint; });
}

std::vector<const Session *> Switchboard::everybody() const {
    std::vector<const Session *> everybody;
    for (const auto &[id, session] : m_sessions) {
        if (session.account)
            everybody.push_back(&session);
    }
    return everybody;
}

std::vector<const Session *> Switchboard::members(const QString &room) const {
    std::vector<const Session *> members = everybody();
    std::erase_if(members, [&](const Session *session) { return session->room != room; });
    return members;
}

void Switchboard::send(const Session &session, const QString &line) const {
    m_outputs.line(session.id, line);
}

void Switchboard::login(Session &session, Account &account) {
    Session *older = byAccount(account.id);
    if (older && older != &session)
        hangUp(*older);
    if (session.account != &account)
        takeOut(session);
    session.account = &account;
    session.token = QString::fromLatin1(randomKey().toHex());
    session.media = {};
    send(session, loginOkReply(account, session.token));
    if (m_quality)
        send(session, qualityReply(*m_quality));
    m_outputs.loggedIn(account.callsign);
}

void Switchboard::place(Session &session, const Room &room, const QString &announcement) {
    takeOut(session);
    session.room = room.name;
    send(session, announcement);
    m_outputs.joined(session.account->callsign, session.room);
    sendUserLists(session.room);
}

void Switchboard::takeOut(Session &session) {
    if (session.room.isEmpty())
        return;
    const QString room = std::exchange(session.room, QString());
    const QString callsign = session.account->callsign;
    if (std::exchange(session.talking, false))
        m_outputs.talkingChanged(callsign, false);
    m_outputs.left(callsign, room);
    sendUserLists(room);
}

void Switchboard::move(Session &session, const Room &room, const QString &byWhom) {
    place(session, room, movedReply(room, byWhom));
}

void Switchboard::setTalking(Session &session, bool talking) {
    if (session.room.isEmpty() || session.talking == talking)
        return;
    session.talking = talking;
    m_outputs.talkingChanged(session.account->callsign, talking);
    sendUserLists(session.room);
}

void Switchboard::mute(Account &account, bool muted, const QString &byWhom) {
    account.muted = muted;
    Session *session = byAccount(account.id);
    if (!session)
        return;
    send(*session, mutedReply(muted, byWhom));
    if (muted)
        setTalking(*session, false);
    sendUserLists(session->room);
}

void Switchboard::kick(Session &session, const QString &reason) {
    send(session, kickedReply(reason));
    hangUp(session);
}

void Switchboard::hangUp(Session &session) {
    const int id = session.id;
    const QString callsign = close(id);
    m_outputs.hangUp(id, callsign);
}

void Switchboard::renameRoom(Room &room, const QString &newName, const QString &byWhom) {
    const std::vector<const Session *> inside = members(room.name);
    room.name = newName;
    for (const Session *member : inside)
        move(*byId(member->id), room, byWhom);
}

void Switchboard::announce(const Quality &quality) {
    m_quality = quality;
    for (const Session *session : everybody())
        send(*session, qualityReply(quality));
}

void Switchboard::sendUserLists(const QString &room) const {
    if (room.isEmpty())
        return;
    const std::vector<const Session *> inside = members(room);
    for (const Session *member : inside)
        send(*member, userListReply(room, inside, *member));
}

} // namespace sim
