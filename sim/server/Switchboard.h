#pragma once

#include "sim/server/Accounts.h"
#include "sim/server/Rooms.h"

#include <QHostAddress>
#include <QString>

#include <functional>
#include <map>
#include <optional>
#include <vector>

namespace sim {

/// Where a client's media datagrams come from.
struct Endpoint {
    QHostAddress address;
    quint16 port = 0; ///< 0: not registered

    bool operator==(const Endpoint &other) const { return port == other.port && address == other.address; }
};

/// One control connection.
struct Session {
    int id = 0;
    Account *account = nullptr; ///< null before login
    QString room;
    QString token; ///< ties the media endpoint to this session
    bool talking = false;
    Endpoint media;
};

/// Codec parameters that the server dictates to its clients.
struct Quality {
    QString preset;
    int bitrate = 0;
    int sampleRate = 0;
    int frameDurationMs = 0;
    int complexity = 0;
};

/// What the switchboard has to say; every function must be set.
struct SwitchboardOutputs {
    std::function<void(int session, const QString &line)> line;
    /// Close the connection after what was sent; the session is gone already. No callsign: never logged in.
    std::function<void(int session, const QString &callsign)> hangUp;
    std::function<void(const QString &callsign)> loggedIn;
    std::function<void(const QString &callsign, const QString &room)> joined;
    std::function<void(const QString &callsign, const QString &room)> left;
    std::function<void(const QString &callsign, bool talking)> talkingChanged;
};

/// Who is on the server, in which room, and who talks; tells everybody concerned about each change. No socket, no
/// clock: connections are numbers, what is to be sent goes out through the outputs.
class Switchboard {
public:
    explicit Switchboard(SwitchboardOutputs outputs);

    Accounts &accounts() { return m_accounts; }
    Rooms &rooms() { return m_rooms; }

    void open(int id);
    /// The connection is gone: its member leaves its room. Returns the callsign, empty before login.
    QString close(int id);

    Session *byId(int id);
    Session *byCallsign(const QString &callsign);
    Session *byAccount(int accountId);
    Session *byToken(const QString &token);
    Session *byEndpoint(const Endpoint &endpoint);
    std::vector<const Session *> everybody() const; ///< who is logged in
    std::vector<const Session *> members(const QString &room) const;

    void send(const Session &session, const QString &line) const;
    /// Logs the session in with a fresh token; an older session of the same account is hung up.
    void login(Session &session, Account &account);
    /// Puts the session into the room and out of the one it was in; the announcement reaches it before the first list.
    void place(Session &session, const Room &room, const QString &announcement);
    void takeOut(Session &session);
    void move(Session &session, const Room &room, const QString &byWhom);
    void setTalking(Session &session, bool talking);
    void mute(Account &account, bool muted, const QString &byWhom);
    /// The session is gone afterwards.
    void kick(Session &session, const QString &reason);
    /// The session is gone afterwards.
    void hangUp(Session &session);
    /// Renames a room; its members are moved along.
    void renameRoom(Room &room, const QString &newName, const QString &byWhom);
    /// Tells everybody, and whoever logs in later.
    void announce(const Quality &quality);
    /// Sends every member of the room its user list.
    void sendUserLists(const QString &room) const;

private:
    template <typename Wanted>
    Session *find(Wanted wanted);

    SwitchboardOutputs m_outputs;
    Accounts m_accounts;
    Rooms m_rooms;
    std::map<int, Session> m_sessions;
    std::optional<Quality> m_quality;
};

} // namespace sim
