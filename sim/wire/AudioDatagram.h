#pragma once

#include <QByteArray>

#include <optional>

namespace sim {

/// An audio datagram: the talker's id, four bytes, most significant first, and one frame as it stands.
struct AudioDatagram {
    quint32 talkerId = 0;
    QByteArray frame; ///< not empty

    QByteArray bytes() const;
    /// Nothing when the bytes are too few to hold a frame.
    static std::optional<AudioDatagram> fromBytes(const QByteArray &bytes);
};

} // namespace sim
