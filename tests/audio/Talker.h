#pragma once

#include "sim/sound/Pcm.h"

#include <QByteArray>

#include <memory>
#include <opus.h>
#include <span>
#include <vector>

/// A station of the room, by its own calls of the codec library: makes packets of what it says, hears what it is sent.
class Talker {
public:
    explicit Talker(int rateHz = 48000, int frameMs = 20)
        : m_rateHz(rateHz),
          m_frame(rateHz * frameMs / 1000),
          m_encoder(opus_encoder_create(rateHz, 1, OPUS_APPLICATION_VOIP, nullptr), opus_encoder_destroy),
          m_decoder(opus_decoder_create(rateHz, 1, nullptr), opus_decoder_destroy) {
        setBitrate(32000, 5);
    }

    /// Settings of the encoder, for a stream that is compared byte by byte.
    void setBitrate(int bitrate, int complexity) {
        opus_encoder_ctl(m_encoder.get(), OPUS_SET_BITRATE(bitrate));
        opus_encoder_ctl(m_encoder.get(), OPUS_SET_COMPLEXITY(complexity));
    }

    QByteArray packet(std::span<const std::int16_t> frame) {
        QByteArray bytes(4000, '\0');
        const int size = opus_encode(m_encoder.get(), frame.data(), int(frame.size()),
                                     reinterpret_cast<unsigned char *>(bytes.data()), bytes.size());
        bytes.resize(std::max(size, 0));
        return bytes;
    }

    std::vector<QByteArray> say(const sim::Pcm &sound) {
        std::vector<QByteArray> packets;
        for (std::size_t i = 0; i + m_frame <= sound.samples.size(); i += m_frame)
            packets.push_back(packet(std::span(sound.samples).subspan(i, m_frame)));
        return packets;
    }

    sim::Pcm hear(const std::vector<QByteArray> &packets) {
        sim::Pcm sound{m_rateHz, {}};
        for (const QByteArray &bytes : packets) {
            std::vector<std::int16_t> frame(5760);
            const int samples = opus_decode(m_decoder.get(), reinterpret_cast<const unsigned char *>(bytes.constData()),
                                            bytes.size(), frame.data(), int(frame.size()), 0);
            frame.resize(std::size_t(std::max(samples, 0)));
            sound.samples.insert(sound.samples.end(), frame.begin(), frame.end());
        }
        return sound;
    }

private:
    int m_rateHz;
    std::size_t m_frame;
    std::unique_ptr<OpusEncoder, void (*)(OpusEncoder *)> m_encoder;
    std::unique_ptr<OpusDecoder, void (*)(OpusDecoder *)> m_decoder;
};

/// One packet of speech at the usual settings.
inline QByteArray speechPacket() {
    static const auto packets = Talker().say(sim::tone(1000, -10, 0.1));
    return packets.back();
}
