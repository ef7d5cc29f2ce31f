#pragma once

#include <QByteArray>

#include <string_view>

/// What the media server says to the link itself.
enum class ControlReply {
    None, ///< not a control reply: an audio datagram, or nothing of ours
    Pong,
    Registered, ///< token accepted; a number of the server's own follows, of no use here
    Confirmed,  ///< token accepted
    KeepAliveOk,
};

/// Size of the user id in front of each frame, in bytes.
constexpr int frameHeaderSize = 4;

/// Tells control replies from audio: by the datagram's text up to the first zero byte, white space around it ignored.
/// An audio datagram seldom looks like one, since its id begins with a zero byte for ids below 2^24. Allocates nothing.
ControlReply controlReply(std::string_view datagram);

/// The speaker's id in front of a frame, 32-bit big-endian. The datagram holds at least frameHeaderSize bytes.
int speakerId(std::string_view datagram);

/// Makes the datagram "id, frame" in place, reusing its memory as long as frames are of like size.
void buildAudioDatagram(QByteArray &datagram, int userId, const QByteArray &frame);
