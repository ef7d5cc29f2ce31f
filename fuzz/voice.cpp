#include "Card.h"
#include "Fuzz.h"
#include "Promise.h"
#include "Script.h"
#include "SignalCounter.h"
#include "Surroundings.h"
#include "audio/AudioEngine.h"

#include <QtEndian>

#include <algorithm>
#include <array>
#include <optional>

using namespace std::chrono_literals;

namespace {

constexpr int mostPacketBytes = 4000;
constexpr int sealBytes = 40;

/// The sound of the gateway on a card of memory:
///
///   p  a packet comes from the talker of the first byte, s  it comes sealed with the room's key
///   k  the room's key is set, or another one from the bytes
///   q  the quality changes: rate, bit rate, complexity, frame duration, 32 bits each
///   r  the next opening grants another rate and number of channels, w  writes fail
///   o  the devices are opened or closed by bits, m  muting, gain control and wanted frames change by bits
///   g  gains and tones change    c  the buffers are cleared, d  the decoders made anew
///   n  the talker's time is up soon: the warning sounds
///   t  time passes, in steps of 20 ms
class Sound {
public:
    Sound() {
        Card::grant(48000, 1);
        Card::forget();
        const auto device = QString::fromLatin1(Card::deviceName);
        m_engine.setDevices(device, device);
        promise(m_engine.initialize(48000, 1, 32000, 5, 20), "the codec can be had");
        promise(m_engine.openPlayback() && m_engine.openCapture(), "the devices open");
        m_cipher.setKey(roomKey());
        QObject::connect(&m_engine, &AudioEngine::audioEncoded, [this](const QByteArray &packet) { check(packet); });
    }

    void play(const Step &step) {
        perform(step);
        m_time.settle();
        promise(isLevel(m_engine.inputLevel()) && isLevel(m_engine.outputLevel()), "a level is 0 to 100");
        constexpr int longestChunk = 192000 * 120 / 1000;
        constexpr int longestStart = 192000 / 2; // the silence that fills a device's buffer
        promise(Card::largestWrite() <= std::max(longestChunk, longestStart),
                "no write is longer than a device's buffer");
    }

    /// What has been queued plays out within ten chunks, and then nothing more.
    void finish() {
        m_engine.stopCapture();
        m_engine.setSpkMuted(false);
        m_time.pass(100ms); // a reopening that is under way
        Card::forget();
        m_engine.openPlayback();
        callOffWarning();
        Card::forget();
        m_time.pass(20 * 120ms);
        promise(Card::writes() <= 10, "no more than ten chunks wait for the device");
        m_engine.stopPlayback();
    }

private:
    static QByteArray roomKey() { return QByteArray(32, 'k').toBase64(); }
    static bool isLevel(int level) { return level >= 0 && level <= 100; }
    static int byteOf(const QByteArray &bytes, int i) {
        return i < bytes.size() ? static_cast<std::uint8_t>(bytes[i]) : 0;
    }
    static float toneOf(const QByteArray &bytes, int i) {
        return static_cast<float>(static_cast<std::int8_t>(byteOf(bytes, i)));
    }
    static int numberOf(const QByteArray &bytes, int i) {
        const QByteArray number = bytes.mid(4 * i, 4).leftJustified(4, '\0');
        return qFromLittleEndian<qint32>(number.constData());
    }

    /// A new talker without a limit; what he says is nothing that could be played.
    void callOffWarning() {
        constexpr quint32 newTalker = 1000;
        m_engine.setTotDuration(0);
        m_engine.onAudioReceivedFrom(QByteArray(sealBytes, '\xff'), newTalker);
    }

    void perform(const Step &step) {
        const int bits = byteOf(step.bytes, 0);
        switch (step.what) {
        case 'p':
            m_engine.onAudioReceivedFrom(step.bytes.mid(1), static_cast<quint32>(bits));
            break;
        case 's':
            receiveSealed(step.bytes.mid(1), static_cast<quint32>(bits));
            break;
        case 'k':
            m_isRoomKey = step.bytes.isEmpty();
            m_engine.setEncryptionKey(m_isRoomKey ? roomKey() : step.bytes);
            break;
        case 'q':
            changeQuality(step.bytes);
            break;
        case 'r':
            grant(bits);
            break;
        case 'w':
            Card::failWrites(bits);
            break;
        case 'o':
            openOrClose(bits);
            break;
        case 'm':
            m_engine.setMicMuted((bits & 1) != 0);
            m_engine.setSpkMuted((bits & 2) != 0);
            m_engine.setAgcEnabled((bits & 4) != 0);
            m_engine.setFramesWanted((bits & 8) != 0);
            break;
        case 'g':
            shape(step.bytes);
            break;
        case 'c':
            m_engine.clearBuffers();
            break;
        case 'd':
            m_engine.resetDecoders();
            break;
        case 'n':
            m_engine.setTotDuration(bits);
            m_engine.onTotWarning();
            break;
        case 't':
            pass(bits);
            break;
        default:
            break;
        }
    }

    void receiveSealed(const QByteArray &packet, quint32 talker) {
        const auto *bytes = reinterpret_cast<const unsigned char *>(packet.constData());
        const QByteArray frame = m_cipher.seal({bytes, static_cast<std::size_t>(packet.size())});
        promise(packet.isEmpty() || m_cipher.open(frame) == packet, "what was sealed opens");
        m_engine.onAudioReceivedFrom(frame, talker);
    }

    void changeQuality(const QByteArray &numbers) {
        m_engine.changeQuality(numberOf(numbers, 0), numberOf(numbers, 1), numberOf(numbers, 2), numberOf(numbers, 3));
    }

    static void grant(int bits) {
        constexpr std::array rates{8000U, 16000U, 44100U, 48000U, 96000U, 192000U, 12000U, 24000U};
        Card::grant(rates[static_cast<std::size_t>(bits) % rates.size()],
                    1U + (static_cast<unsigned>(bits) >> 3U) % 8U);
    }

    void openOrClose(int bits) {
        if ((bits & 1) != 0)
            m_engine.openPlayback();
        else
            m_engine.stopPlayback();
        if ((bits & 2) != 0)
            m_engine.openCapture();
        else
            m_engine.stopCapture();
    }

    void shape(const QByteArray &bytes) {
        m_engine.setMicGain(std::min(byteOf(bytes, 0), 200));
        m_engine.setSpeakerGain(std::min(byteOf(bytes, 1), 200));
        m_engine.setTxTone(toneOf(bytes, 2), toneOf(bytes, 3), toneOf(bytes, 4));
        m_engine.setRxTone(toneOf(bytes, 5), toneOf(bytes, 6), toneOf(bytes, 7));
    }

    /// Ends without effect when the run has taken its time: encoding is dear.
    void pass(int steps) {
        constexpr int mostSteps = 10;
        const int taken = std::min(steps % 32, m_stepsLeft);
        m_stepsLeft -= taken;
        m_time.pass(20ms * std::min(taken, mostSteps));
    }

    void check(const QByteArray &packet) {
        promise(!packet.isEmpty() && packet.size() <= mostPacketBytes + sealBytes, "a packet fits into a datagram");
        if (m_isRoomKey)
            promise(!m_cipher.open(packet).isEmpty(), "what is sent opens with the room's key");
    }

    VirtualTime &m_time = Surroundings::instance().time();
    AudioEngine m_engine{Surroundings::instance().file("none.wav"), nullptr, [this] { return m_time.nowMs(); }};
    SignalCounter m_signals{m_engine};
    FrameCipher m_cipher;
    bool m_isRoomKey = false;
    int m_stepsLeft = 16;
};

} // namespace

/// Packets from the media link, sealed and not, at whatever quality the server announces. The first byte tells the
/// talker of the first packet.
void fuzz(const QByteArray &input) {
    Sound sound;
    for (const Step &step : scriptOf(input, 'p'))
        sound.play(step);
    sound.finish();
}
