#pragma once

#include "sim/sound/Pcm.h"

#include <QString>

#include <optional>

namespace sim {

/// Longest sentence that the site speaks.
constexpr double longestSentenceSeconds = 30.0;

/// Silence before the first and after the last word, as a speaker leaves it who presses the key, takes a breath, and
/// lets go a moment after the end. PTT follows the key at once, while the voice lags by what is buffered on its way.
constexpr double pauseBeforeSeconds = 0.4;
constexpr double pauseAfterSeconds = 0.6;
Pcm withPauses(const Pcm &pcm);

/// Who speaks, where no recording does: names of espeak-ng's voices.
constexpr auto radioVoice = "en-gb";
constexpr auto roomVoice = "en-us+f3";

/// Something to say, at 48 kHz: the WAV file when the words name one, else a synthetic voice (espeak-ng) saying them.
/// Without a result, *problem says why, for the user to read.
std::optional<Pcm> sentence(const QString &words, const char *voice, QString *problem);

} // namespace sim
