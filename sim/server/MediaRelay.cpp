#include "sim/server/MediaRelay.h"

#include "sim/wire/AudioDatagram.h"

#include <utility>

namespace sim {

MediaRelay::MediaRelay(Switchboard &board, AudioSink relayed) : m_board(board), m_relayed(std::move(relayed)) {}

std::vector<Outgoing> MediaRelay::receive(const QByteArray &datagram, const Endpoint &from) {
    struct Text {
        const char *start;
        std::vector<Outgoing> (MediaRelay::*answer)(const QByteArray &, const Endpoint &);
    };
    static constexpr Text texts[] = {
        {"PING", &MediaRelay::pong},
        {"TOKEN:", &MediaRelay::registerEndpoint},
        {"KEEPALIVE", &MediaRelay::keepalive},
    };
    for (const Text &text : texts) {
        if (datagram.startsWith(text.start))
            return (this->*text.answer)(datagram, from);
    }
    return relay(datagram, from);
}

std::vector<Outgoing> MediaRelay::pong(const QByteArray &, const Endpoint &from) {
    return {{from, "PONG"}};
}

std::vector<Outgoing> MediaRelay::registerEndpoint(const QByteArray &datagram, const Endpoint &from) {
    const QList<QByteArray> pieces = datagram.split(':');
    Session *session = m_board.byToken(QString::fromUtf8(pieces.value(1)));
    const bool hasId = pieces.size() > 2;
    if (!session || (hasId && pieces.at(2).toInt() != session->account->id))
        return {};
    if (Session *former = m_board.byEndpoint(from))
        former->media = {};
    session->media = from;
    return {{from, hasId ? "REGISTERED:" + pieces.at(2) : QByteArray("OK")}};
}

std::vector<Outgoing> MediaRelay::keepalive(const QByteArray &, const Endpoint &from) {
    if (!m_board.byEndpoint(from))
        return {};
    return {{from, "KEEPALIVE_OK"}};
}

std::vector<Outgoing> MediaRelay::relay(const QByteArray &datagram, const Endpoint &from) {
    const Session *talker = m_board.byEndpoint(from);
    const std::optional<AudioDatagram> audio = AudioDatagram::fromBytes(datagram);
    if (!audio || !talker || !talker->talking || audio->talkerId != quint32(talker->account->id))
        return {};
    m_relayed(talker->account->callsign, audio->frame);
    std::vector<Outgoing> copies;
    for (const Session *member : m_board.members(talker->room)) {
        if (member != talker && member->media.port != 0)
            copies.push_back({member->media, datagram});
    }
    return copies;
}

} // namespace sim
