// The engine's two paths, all stages on, against the bare library calls on the same frames. One pass is five seconds.

#include "Figures.h"
#include "Shaping.h"
#include "Station.h"

#include <QCoreApplication>

#include <array>
#include <benchmark/benchmark.h>
#include <opus.h>
#include <sodium.h>

namespace {

constexpr unsigned otherRateHz = 44100;

using OpusBuffer = std::array<unsigned char, 4000>;
using Nonce = std::array<unsigned char, crypto_secretbox_NONCEBYTES>;

const unsigned char *bytesOf(const QByteArray &array) {
    return reinterpret_cast<const unsigned char *>(array.constData());
}

void engineTransmits(benchmark::State &state) {
    const auto engine = Station::engine(rateHz);
    if (!engine) {
        state.SkipWithError("no engine");
        return;
    }
    qint64 bytes = 0;
    QObject::connect(engine.get(), &AudioEngine::audioEncoded,
                     [&bytes](const QByteArray &data) { bytes += data.size(); });
    const std::size_t frames = voice().size();
    while (state.KeepRunning()) {
        for (std::size_t i = 0; i < frames; ++i)
            engine->onInputReadyRead();
    }
    if (bytes == 0)
        state.SkipWithError("nothing was sent");
}
BENCHMARK(engineTransmits);

void bareTransmits(benchmark::State &state) {
    const std::vector<Frame> frames = Shaping::shapedVoice();
    const QByteArray key = Station::key();
    int error = OPUS_OK;
    OpusEncoder *encoder = opus_encoder_create(rateHz, 1, OPUS_APPLICATION_VOIP, &error);
    if (!encoder) {
        state.SkipWithError("no encoder");
        return;
    }
    opus_encoder_ctl(encoder, OPUS_SET_BITRATE(Station::bitrate));
    opus_encoder_ctl(encoder, OPUS_SET_COMPLEXITY(Station::complexity));
    OpusBuffer packet{};
    OpusBuffer sealed{};
    const Nonce nonce{};
    while (state.KeepRunning()) {
        for (const Frame &frame : frames) {
            const int size = opus_encode(encoder, frame.data(), frameSamples, packet.data(), packet.size() - 16);
            crypto_secretbox_easy(sealed.data(), packet.data(), size, nonce.data(), bytesOf(key));
            benchmark::DoNotOptimize(sealed.data());
            benchmark::ClobberMemory();
        }
    }
    opus_encoder_destroy(encoder);
}
BENCHMARK(bareTransmits);

// The queue is emptied as it is filled, at the cost of the receiving side.
void engineReceives(benchmark::State &state, unsigned deviceRateHz) {
    const auto engine = Station::engine(deviceRateHz);
    const std::vector<QByteArray> packets = Station::sealedVoice();
    if (!engine || packets.empty()) {
        state.SkipWithError("no engine");
        return;
    }
    while (state.KeepRunning()) {
        for (const QByteArray &packet : packets) {
            engine->onAudioReceivedFrom(packet, Station::talker);
            engine->onOutputBufferTimer();
        }
    }
    if (engine->outputLevel() == 0)
        state.SkipWithError("nothing was heard");
}

void engineReceivesAt48000(benchmark::State &state) {
    engineReceives(state, rateHz);
}
BENCHMARK(engineReceivesAt48000);

void engineReceivesAt44100(benchmark::State &state) {
    engineReceives(state, otherRateHz);
}
BENCHMARK(engineReceivesAt44100);

void bareReceives(benchmark::State &state) {
    const std::vector<QByteArray> packets = Station::sealedVoice();
    const QByteArray key = Station::key();
    int error = OPUS_OK;
    OpusDecoder *decoder = opus_decoder_create(rateHz, 1, &error);
    if (!decoder || packets.empty()) {
        state.SkipWithError("no decoder");
        return;
    }
    OpusBuffer opened{};
    std::array<std::int16_t, frameSamples> samples{};
    while (state.KeepRunning()) {
        for (const QByteArray &packet : packets) {
            const auto sealedSize = static_cast<unsigned>(packet.size()) - crypto_secretbox_NONCEBYTES;
            if (crypto_secretbox_open_easy(opened.data(), bytesOf(packet) + crypto_secretbox_NONCEBYTES, sealedSize,
                                           bytesOf(packet), bytesOf(key)) != 0)
                state.SkipWithError("not authentic");
            const auto size = static_cast<opus_int32>(sealedSize - crypto_secretbox_MACBYTES);
            if (opus_decode(decoder, opened.data(), size, samples.data(), frameSamples, 0) != frameSamples)
                state.SkipWithError("not decoded");
            benchmark::DoNotOptimize(samples.data());
            benchmark::ClobberMemory();
        }
    }
    opus_decoder_destroy(decoder);
}
BENCHMARK(bareReceives);

constexpr std::array figures{
    Figure{"transmit path; opus_encode and secretbox alone", "engineTransmits", "bareTransmits", 1.10},
    Figure{"receive path, 48000 Hz; secretbox and opus_decode alone", "engineReceivesAt48000", "bareReceives", 1.35},
    Figure{"receive path, 44100 Hz; secretbox and opus_decode alone", "engineReceivesAt44100", "bareReceives", 1.60},
};

} // namespace

int main(int argc, char **argv) {
    const QCoreApplication application(argc, argv);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    return runFigures(argc, argv, figures);
}
