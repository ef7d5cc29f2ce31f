#include "sim/wire/SealedFrame.h"

#include <sodium.h>

namespace sim {

namespace {

constexpr int nonceBytes = crypto_secretbox_NONCEBYTES;
constexpr int overheadBytes = nonceBytes + crypto_secretbox_MACBYTES;

const unsigned char *bytesOf(const QByteArray &bytes) {
    return reinterpret_cast<const unsigned char *>(bytes.constData());
}

unsigned char *bytesOf(QByteArray &bytes) {
    return reinterpret_cast<unsigned char *>(bytes.data());
}

bool isKey(const QByteArray &key) {
    return key.size() == int(crypto_secretbox_KEYBYTES);
}

} // namespace

QByteArray sealed(const QByteArray &packet, const QByteArray &key) {
    if (!isKey(key))
        return packet;
    QByteArray frame(packet.size() + overheadBytes, Qt::Uninitialized);
    unsigned char *nonce = bytesOf(frame);
    randombytes_buf(nonce, nonceBytes);
    // Cannot fail: the only limit is the length of the message.
    crypto_secretbox_easy(nonce + nonceBytes, bytesOf(packet), std::size_t(packet.size()), nonce, bytesOf(key));
    return frame;
}

std::optional<QByteArray> opened(const QByteArray &frame, const QByteArray &key) {
    if (!isKey(key))
        return frame;
    if (frame.size() < overheadBytes)
        return std::nullopt;
    QByteArray packet(frame.size() - overheadBytes, Qt::Uninitialized);
    const unsigned char *nonce = bytesOf(frame);
    const int result = crypto_secretbox_open_easy(bytesOf(packet), nonce + nonceBytes,
                                                  std::size_t(frame.size() - nonceBytes), nonce, bytesOf(key));
    return result == 0 ? std::optional(packet) : std::nullopt;
}

} // namespace sim
