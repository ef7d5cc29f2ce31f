#pragma once

#include <QByteArray>

#include <cstddef>
#include <span>

/// The crypto library's functions, reached through one table so that a test can put others in their place.
struct CryptoBinding {
    int (*sodiumInit)() = nullptr;
    void (*randomBytes)(void *buffer, size_t size) = nullptr;
    int (*secretboxEasy)(unsigned char *sealed, const unsigned char *message, unsigned long long messageSize,
                         const unsigned char *nonce, const unsigned char *key) = nullptr;
    int (*secretboxOpenEasy)(unsigned char *message, const unsigned char *sealed, unsigned long long sealedSize,
                             const unsigned char *nonce, const unsigned char *key) = nullptr;
    bool ready = false;
};

/// The one binding of the process, filled with libsodium's functions.
CryptoBinding &cryptoBinding();

/// Initialises the library behind cryptoBinding() once; true when it is ready.
bool cryptoInit();

/// Seals and opens frames with a room's key (XSalsa20-Poly1305, libsodium's secretbox).
///
/// A sealed frame is 24 fresh random bytes (the nonce), a 16-byte tag, and as many ciphertext bytes as the packet has.
class FrameCipher {
public:
    /// Base64 of 32 bytes switches encryption on. Any other length switches it off and leaves the old key lying unused.
    void setKey(const QByteArray &keyBase64);
    bool isOn() const { return m_on; }

    /// Returns the packet unchanged while there is no usable library or no key yet.
    QByteArray seal(std::span<const unsigned char> packet) const;
    /// Empty when the frame is too short or not authentic; unchanged while there is no usable library or no key yet.
    QByteArray open(const QByteArray &frame) const;

private:
    QByteArray m_key;
    bool m_on = false;
    bool m_ready = false;
};
