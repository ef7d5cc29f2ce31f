#include "net/MediaDatagram.h"

#include <QtEndian>

#include <algorithm>

namespace {

std::string_view leadingText(std::string_view datagram) {
    constexpr std::string_view whiteSpace = " \t\n\v\f\r";
    const std::string_view text = datagram.substr(0, datagram.find('\0'));
    const std::size_t begin = text.find_first_not_of(whiteSpace);
    if (begin == std::string_view::npos)
        return {};
    return text.substr(begin, text.find_last_not_of(whiteSpace) + 1 - begin);
}

} // namespace

ControlReply controlReply(std::string_view datagram) {
    const std::string_view text = leadingText(datagram);
    if (text == "PONG")
        return ControlReply::Pong;
    if (text.starts_with("REGISTERED:"))
        return ControlReply::Registered;
    if (text == "OK" || text == "TOKEN_OK")
        return ControlReply::Confirmed;
    if (text == "KEEPALIVE_OK")
        return ControlReply::KeepAliveOk;
    return ControlReply::None;
}

int speakerId(std::string_view datagram) {
    return qFromBigEndian<qint32>(datagram.data());
}

void buildAudioDatagram(QByteArray &datagram, int userId, const QByteArray &frame) {
    // In one step: what shrinks below half of its memory gives it back.
    datagram.resize(frameHeaderSize + frame.size());
    qToBigEndian<qint32>(userId, datagram.data());
    std::copy(frame.begin(), frame.end(), datagram.begin() + frameHeaderSize);
}
