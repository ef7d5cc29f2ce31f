#include "sim/wire/AudioDatagram.h"

#include <QtEndian>

namespace sim {

namespace {

constexpr int headerBytes = 4;

} // namespace

QByteArray AudioDatagram::bytes() const {
    QByteArray header(headerBytes, Qt::Uninitialized);
    qToBigEndian(talkerId, header.data());
    return header + frame;
}

std::optional<AudioDatagram> AudioDatagram::fromBytes(const QByteArray &bytes) {
    if (bytes.size() <= headerBytes)
        return std::nullopt;
    return AudioDatagram{qFromBigEndian<quint32>(bytes.constData()), bytes.mid(headerBytes)};
}

} // namespace sim
