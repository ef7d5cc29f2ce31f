#pragma once

#include <QByteArray>

#include <optional>

namespace sim {

/// 24 random bytes (the nonce) and the secretbox of the packet. With an empty key the packet passes as it stands.
/// @param key  32 raw bytes or empty
QByteArray sealed(const QByteArray &packet, const QByteArray &key);

/// Nothing when the frame does not open with this key.
std::optional<QByteArray> opened(const QByteArray &frame, const QByteArray &key);

} // namespace sim
