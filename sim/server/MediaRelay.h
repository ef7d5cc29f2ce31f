#pragma once

#include "sim/server/Switchboard.h"

#include <QByteArray>

#include <functional>
#include <vector>

namespace sim {

/// A datagram and the client it is for.
struct Outgoing {
    Endpoint to;
    QByteArray bytes;
};

/// The media side of the server: ties endpoints to sessions and relays audio between the members of a room. No socket.
class MediaRelay {
public:
    using AudioSink = std::function<void(const QString &callsign, const QByteArray &frame)>;

    /// @param relayed  told of each audio frame that is accepted from a talker
    MediaRelay(Switchboard &board, AudioSink relayed);

    /// What is to be sent because this datagram came in. Audio passes only from the endpoint of a member who is
    /// talking, under his own id; anything else that is no known text is dropped.
    std::vector<Outgoing> receive(const QByteArray &datagram, const Endpoint &from);

private:
    std::vector<Outgoing> pong(const QByteArray &datagram, const Endpoint &from);
    std::vector<Outgoing> registerEndpoint(const QByteArray &datagram, const Endpoint &from);
    std::vector<Outgoing> keepalive(const QByteArray &datagram, const Endpoint &from);
    std::vector<Outgoing> relay(const QByteArray &datagram, const Endpoint &from);

    Switchboard &m_board;
    AudioSink m_relayed;
};

} // namespace sim
