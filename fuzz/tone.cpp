#include "Fuzz.h"
#include "Promise.h"
#include "Surroundings.h"
#include "audio/Resampler.h"
#include "audio/WarningTone.h"

#include <QFile>
#include <QtEndian>

#include <array>

namespace {

/// A long tone takes long to convert and teaches nothing new. One beyond all bounds is refused, which must be quick.
bool isTedious(const QByteArray &wav, int deviceRateHz) {
    constexpr int rateOffset = 24;
    constexpr qint64 longSamples = 1 << 18;
    constexpr qint64 mostSamples = 8 * 1024 * 1024;
    if (wav.size() < rateOffset + 4)
        return false;
    const auto rateHz = static_cast<int>(qFromLittleEndian<quint32>(wav.constData() + rateOffset) & 0x7FFFFFFFU);
    const qint64 samples = Resampler::outputSamples(wav.size() / 2, rateHz, deviceRateHz);
    return samples > longSamples && samples <= 2 * mostSamples;
}

void checkTone(const WavTone &tone, int channels) {
    constexpr qsizetype mostBytes = 2 * 16 * 1024 * 1024; // of a file, doubled for the second channel
    promise(tone.samples.size() <= mostBytes, "a tone stays within its size");
    promise(tone.samples.size() % 2 == 0, "a tone is made of whole samples");
    promise(tone.channels != 1 || tone.samples.size() % (2 * channels) == 0, "a tone is made of whole frames");
}

} // namespace

/// The warning tone's file. The first byte tells the playback device's rate and channels.
void fuzz(const QByteArray &input) {
    constexpr std::array rates{8000, 44100, 48000, 192000};
    const int rateHz = rates[firstByte(input) & 3U];
    const int channels = (firstByte(input) & 4U) != 0 ? 2 : 1;
    const QByteArray wav = input.mid(1);
    if (isTedious(wav, rateHz))
        return;
    QFile file(Surroundings::instance().file("tone.wav"));
    promise(file.open(QIODevice::WriteOnly) && file.write(wav) == wav.size(), "set-up: file");
    file.close();
    Resampler resampler;
    const auto tone = warningToneFromWav(file.fileName(), rateHz, channels, resampler);
    if (tone)
        checkTone(*tone, channels);
}
