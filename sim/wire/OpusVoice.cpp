#include "sim/wire/OpusVoice.h"

#include <opus.h>

namespace sim {

namespace {

constexpr int longestPacketBytes = 1500;
constexpr int longestPacketSamples = voiceRateHz / 1000 * 120;

const unsigned char *bytesOf(const QByteArray &packet) {
    return reinterpret_cast<const unsigned char *>(packet.constData());
}

} // namespace

// Creating can only fail for want of memory, setting within its range not at all.
VoiceEncoder::VoiceEncoder() : m_encoder(opus_encoder_create(voiceRateHz, 1, OPUS_APPLICATION_VOIP, nullptr)) {
    opus_encoder_ctl(m_encoder.get(), OPUS_SET_BITRATE(32000));
    opus_encoder_ctl(m_encoder.get(), OPUS_SET_COMPLEXITY(5));
}

void VoiceEncoder::Destroy::operator()(OpusEncoder *encoder) const {
    opus_encoder_destroy(encoder);
}

QByteArray VoiceEncoder::encode(std::span<const std::int16_t> frame) {
    QByteArray packet(longestPacketBytes, Qt::Uninitialized);
    const int size = opus_encode(m_encoder.get(), frame.data(), int(frame.size()),
                                 reinterpret_cast<unsigned char *>(packet.data()), packet.size());
    packet.truncate(qMax(0, size));
    return packet;
}

VoiceDecoder::VoiceDecoder() : m_decoder(opus_decoder_create(voiceRateHz, 1, nullptr)) {}

void VoiceDecoder::Destroy::operator()(OpusDecoder *decoder) const {
    opus_decoder_destroy(decoder);
}

std::vector<std::int16_t> VoiceDecoder::decode(const QByteArray &packet) {
    std::vector<std::int16_t> samples(longestPacketSamples);
    const int count =
        opus_decode(m_decoder.get(), bytesOf(packet), packet.size(), samples.data(), longestPacketSamples, 0);
    samples.resize(std::size_t(qMax(0, count)));
    return samples;
}

} // namespace sim
