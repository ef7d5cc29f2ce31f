#include "Station.h"

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
    engine->setMicGain(micGainPercent);
    engine->setSpeakerGain(micGainPercent);
    engine->setAgcEnabled(true);
    engine->setTxTone(txTone.bass, txTone.mid, txTone.treble);
    engine->setRxTone(rxTone.bass, rxTone.mid, rxTone.treble);
    engine->setTotDuration(180);
    return engine;
}

std::vector<Frame> Station::shapedVoice() {
    ToneControl tone;
    tone.set(txTone.bass, txTone.mid, txTone.treble, rateHz);
    std::vector<Frame> frames = voice();
    for (Frame &frame : frames) {
        applyGain(frame, micGainPercent, -32767);
        tone.process(frame);
    }
    return frames;
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
