#include "Promise.h"
#include "Surroundings.h"
#include "audio/Resampler.h"
#include "audio/WarningTone.h"

#include <QFile>

#include <array>
#include <cstdint>

/// The warning tone's file. The first byte tells the playback device's rate and channels.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    constexpr std::array rates{8000, 44100, 48000, 192000};
    constexpr qsizetype mostBytes = 2 * 16 * 1024 * 1024; // of a file, doubled for the second channel
    if (size == 0)
        return 0;
    QFile file(Surroundings::instance().file("tone.wav"));
    promise(file.open(QIODevice::WriteOnly) &&
                file.write(reinterpret_cast<const char *>(data + 1), static_cast<qint64>(size - 1)) >= 0,
            "set-up: file");
    file.close();
    const int rateHz = rates[data[0] & 3U];
    const int channels = (data[0] & 4U) != 0 ? 2 : 1;
    Resampler resampler;
    const auto tone = warningToneFromWav(file.fileName(), rateHz, channels, resampler);
    if (!tone)
        return 0;
    promise(tone->samples.size() <= mostBytes, "a tone stays within its size");
    promise(tone->samples.size() % 2 == 0, "a tone is made of whole samples");
    promise(tone->channels != 1 || tone->samples.size() % (2 * channels) == 0, "a tone is made of whole frames");
    return 0;
}
