#pragma once

#include <QtGlobal>

#include <array>
#include <memory>
#include <opus.h>
#include <span>
#include <unordered_map>
#include <vector>

/// The longest frame that Opus knows.
constexpr int longestOpusFrameMs = 120;

/// A rate that Opus runs at: the rate itself where it is one, else the next higher one, at most 48000.
int opusRateFor(int rateHz);

/// Says once per process which codec library is in use; the counterpart of cryptoInit().
void opusInit();

/// Turns mono frames into Opus packets, tuned for speech.
class VoiceEncoder {
public:
    /// Replaces the encoder by a fresh one; false, and none, when Opus refuses the rate or the channels. A bit rate or
    /// complexity that Opus refuses leaves it at Opus's own choice.
    bool create(int rateHz, int channels, int bitrate, int complexity);
    /// As fresh as after create(), at the same settings.
    void reset();
    /// The packet, valid until the next call; empty when there is no encoder or Opus knows no frame of that length.
    std::span<const unsigned char> encode(std::span<const qint16> mono);

private:
    struct Destroyer {
        void operator()(OpusEncoder *encoder) const { opus_encoder_destroy(encoder); }
    };
    std::unique_ptr<OpusEncoder, Destroyer> m_encoder;
    int m_channels = 1;
    std::vector<qint16> m_interleaved;
    std::array<unsigned char, 4000> m_packet{};
};

/// Turns one talker's Opus packets into mono samples.
class VoiceDecoder {
public:
    /// Replaces the decoder by a fresh one; false, and none, when Opus refuses the rate or the channels.
    bool create(int rateHz, int channels);
    /// Decodes one packet of at most maxFrameSamples per channel. Returns 0, or a negative Opus error.
    int decode(std::span<const unsigned char> packet, int maxFrameSamples, std::vector<qint16> &mono);

private:
    struct Destroyer {
        void operator()(OpusDecoder *decoder) const { opus_decoder_destroy(decoder); }
    };
    std::unique_ptr<OpusDecoder, Destroyer> m_decoder;
    int m_channels = 1;
};

/// A decoder per talker, so that interleaved packets of two talkers do not disturb each other, beside a default one
/// that stands for the stream's format. Talkers are not forgotten before the next rebuild.
class TalkerDecoders {
public:
    /// Forgets every talker and makes the default decoder anew; false when there cannot be one at this rate.
    bool rebuild(int rateHz, int channels);
    /// The talker's decoder, made at his first packet; null, with a warning, when it cannot be made.
    VoiceDecoder *of(quint32 userId);

private:
    VoiceDecoder m_default;
    std::unordered_map<quint32, VoiceDecoder> m_talkers;
    int m_rateHz = 48000;
    int m_channels = 1;
};
