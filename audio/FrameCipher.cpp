#include "audio/FrameCipher.h"

#include <QDebug>

#include <sodium.h>

namespace {

constexpr int keySize = crypto_secretbox_KEYBYTES;
constexpr int nonceSize = crypto_secretbox_NONCEBYTES;
constexpr int overhead = nonceSize + crypto_secretbox_MACBYTES;

const unsigned char *bytesOf(const QByteArray &array) {
    return reinterpret_cast<const unsigned char *>(array.constData());
}

unsigned char *bytesOf(QByteArray &array) {
    return reinterpret_cast<unsigned char *>(array.data());
}

QByteArray uninitialised(int size) {
    return {size, Qt::Uninitialized};
}

} // namespace

CryptoBinding &cryptoBinding() {
    static CryptoBinding binding{sodium_init, randombytes_buf, crypto_secretbox_easy, crypto_secretbox_open_easy};
    return binding;
}

bool cryptoInit() {
    CryptoBinding &binding = cryptoBinding();
    if (binding.ready)
        return true;
    if (binding.sodiumInit() < 0) {
        qWarning() << "[Sodium] Init failed!";
        return false;
    }
    binding.ready = true;
    qInfo() << "[Sodium] Linux mode - using system libsodium";
    return true;
}

void FrameCipher::setKey(const QByteArray &keyBase64) {
    const QByteArray key = QByteArray::fromBase64(keyBase64);
    m_on = key.size() == keySize;
    if (m_on) {
        m_key = key;
        m_ready = m_ready || cryptoInit();
    }
}

QByteArray FrameCipher::seal(std::span<const unsigned char> packet) const {
    if (!m_ready || m_key.isEmpty())
        return {reinterpret_cast<const char *>(packet.data()), int(packet.size())};
    QByteArray frame = uninitialised(int(packet.size()) + overhead);
    unsigned char *nonce = bytesOf(frame);
    cryptoBinding().randomBytes(nonce, nonceSize);
    // Cannot fail: it refuses only messages far longer than any packet.
    cryptoBinding().secretboxEasy(nonce + nonceSize, packet.data(), packet.size(), nonce, bytesOf(m_key));
    return frame;
}

QByteArray FrameCipher::open(const QByteArray &frame) const {
    if (!m_ready || m_key.size() != keySize)
        return frame;
    if (frame.size() <= overhead) // Equal would be an empty packet: nothing to decode either.
        return {};
    QByteArray packet = uninitialised(frame.size() - overhead);
    const unsigned char *nonce = bytesOf(frame);
    const int result = cryptoBinding().secretboxOpenEasy(bytesOf(packet), nonce + nonceSize, frame.size() - nonceSize,
                                                         nonce, bytesOf(m_key));
    return result == 0 ? packet : QByteArray();
}
