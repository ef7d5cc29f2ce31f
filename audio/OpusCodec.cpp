#include "audio/OpusCodec.h"

#include "audio/Channels.h"

#include <QDebug>

#include <algorithm>

namespace {
constexpr std::array opusRates{8000, 12000, 16000, 24000, 48000};
} // namespace

int opusRateFor(int rateHz) {
    const auto rate = std::lower_bound(opusRates.begin(), opusRates.end(), rateHz);
    return rate == opusRates.end() ? opusRates.back() : *rate;
}

void opusInit() {
    static bool said = false;
    if (!said) {
        qInfo() << "[Opus] Linux mode - using system libopus";
        said = true;
    }
}

bool VoiceEncoder::create(int rateHz, int channels, int bitrate, int complexity) {
    int error = OPUS_OK;
    m_encoder.reset(opus_encoder_create(rateHz, channels, OPUS_APPLICATION_VOIP, &error));
    if (error != OPUS_OK) {
        m_encoder.reset();
        return false;
    }
    m_channels = channels;
    // The numbers are the server's; one that Opus refuses leaves the encoder at its own choice.
    opus_encoder_ctl(m_encoder.get(), OPUS_SET_BITRATE(bitrate));
    opus_encoder_ctl(m_encoder.get(), OPUS_SET_COMPLEXITY(complexity));
    return true;
}

void VoiceEncoder::reset() {
    if (m_encoder)
        opus_encoder_ctl(m_encoder.get(), OPUS_RESET_STATE); // Cannot fail.
}

std::span<const unsigned char> VoiceEncoder::encode(std::span<const qint16> mono) {
    if (!m_encoder || mono.empty())
        return {};
    const auto frame = fitChannels(mono, 1, m_channels, m_interleaved);
    const int size =
        opus_encode(m_encoder.get(), frame.data(), int(mono.size()), m_packet.data(), opus_int32(m_packet.size()));
    return std::span<const unsigned char>(m_packet).first(size_t(std::max(size, 0)));
}

bool VoiceDecoder::create(int rateHz, int channels) {
    int error = OPUS_OK;
    m_decoder.reset(opus_decoder_create(rateHz, channels, &error));
    m_channels = channels;
    return error == OPUS_OK;
}

int VoiceDecoder::decode(std::span<const unsigned char> packet, int maxFrameSamples, std::vector<qint16> &mono) {
    mono.resize(size_t(maxFrameSamples) * size_t(m_channels));
    const int frames =
        opus_decode(m_decoder.get(), packet.data(), opus_int32(packet.size()), mono.data(), maxFrameSamples, 0);
    if (frames < 0)
        return frames;
    mono.resize(size_t(frames) * size_t(m_channels));
    mono.resize(mixToMono(mono, m_channels).size());
    return 0;
}

bool TalkerDecoders::rebuild(int rateHz, int channels) {
    m_talkers.clear();
    m_rateHz = rateHz;
    m_channels = channels;
    return m_default.create(rateHz, channels);
}

VoiceDecoder *TalkerDecoders::of(quint32 userId) {
    const auto known = m_talkers.find(userId);
    if (known != m_talkers.end())
        return &known->second;
    VoiceDecoder decoder;
    if (!decoder.create(m_rateHz, m_channels)) {
        qWarning() << "[Audio] Decoder create failed userId" << userId << "SR" << m_rateHz;
        return nullptr;
    }
    VoiceDecoder &talker = m_talkers.emplace(userId, std::move(decoder)).first->second;
    qInfo() << "[Audio] Decoder created userId:" << userId << "SR:" << m_rateHz << "| total:" << int(m_talkers.size());
    return &talker;
}
