#include "Station.h"

#include "Shaping.h"
#include "audio/FrameCipher.h"
#include "audio/Gain.h"
#include "audio/OpusCodec.h"
#include "audio/ToneControl.h"

QByteArray Station::key() {
    return QByteArray(32, 'k');
}

std::unique_ptr<AudioEngine> Station::engine(unsigned playbackRateHz) {
    MemoryCard::load(voice());
    MemoryCard::setPlaybackRate(playbackRateHz);
    auto engine = std::make_unique<AudioEngine>();
    const auto device = QString::fromLatin1(MemoryCard::deviceName);
    engine->setDevices(device, device);
    if (!engine->initialize(rateHz, 1, bitrate, complexity, frameMs) || !engine->openPlayback() ||
        !engine->openCapture())
        return nullptr;
    engine->setEncryptionKey(key().toBase64());
    engine->setMicGain(Shaping::gainPercent);
    engine->setSpeakerGain(Shaping::gainPercent);
    engine->setAgcEnabled(true);
    engine->setTxTone(Shaping::txTone.bass, Shaping::txTone.mid, Shaping::txTone.treble);
    engine->setRxTone(Shaping::rxTone.bass, Shaping::rxTone.mid, Shaping::rxTone.treble);
    engine->setTotDuration(180);
    return engine;
}

std::vector<QByteArray> Station::sealedVoice() {
    FrameCipher cipher;
    cipher.setKey(key().toBase64());
    VoiceEncoder encoder;
    std::vector<QByteArray> packets;
    if (!encoder.create(rateHz, 1, bitrate, complexity))
        return packets;
    for (const Frame &frame : voice())
        packets.push_back(cipher.seal(encoder.encode(frame)));
    return packets;
}
