#include "sim/sound/Voices.h"

#include "sim/sound/AudioAnalysis.h"

#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

namespace sim {
namespace {

constexpr int rateHz = 48000;
constexpr double shortestSentenceSeconds = 0.1;
constexpr double quietestSentenceDbfs = -60.0;
constexpr int synthesisTimeoutMs = 10000;
const auto wordsPerMinute = QStringLiteral("150");

QString problemWith(const std::optional<Pcm> &pcm, bool isFile) {
    if (!pcm) {
        return isFile ? QStringLiteral("cannot be read as a WAV file of 16-bit PCM, mono or stereo")
                      : QStringLiteral("cannot be spoken: espeak-ng is missing or fails");
    }
    if (pcm->seconds() < shortestSentenceSeconds || pcm->seconds() > longestSentenceSeconds)
        return QStringLiteral("takes %1 s; say something of 0.1 to 30 s").arg(pcm->seconds(), 0, 'f', 2);
    if (rmsDbfs(pcm->samples) < quietestSentenceDbfs)
        return QStringLiteral("is silence");
    return {};
}

std::optional<Pcm> synthesised(const QString &words, const char *voice) {
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("words.wav"));
    QProcess espeak;
    espeak.start(QStringLiteral("espeak-ng"),
                 {QStringLiteral("-v"), QLatin1String(voice), QStringLiteral("-s"), wordsPerMinute,
                  QStringLiteral("-w"), path, QStringLiteral("--"), words});
    return espeak.waitForFinished(synthesisTimeoutMs) && espeak.exitCode() == 0 ? readWav(path) : std::nullopt;
}

} // namespace

Pcm withPauses(const Pcm &pcm) {
    const auto samplesIn = [&](double seconds) { return std::size_t(seconds * pcm.rateHz); };
    Pcm padded{pcm.rateHz, std::vector<std::int16_t>(samplesIn(pauseBeforeSeconds))};
    padded.samples.insert(padded.samples.end(), pcm.samples.begin(), pcm.samples.end());
    padded.samples.resize(padded.samples.size() + samplesIn(pauseAfterSeconds));
    return padded;
}

std::optional<Pcm> sentence(const QString &words, const char *voice, QString *problem) {
    const bool isFile = words.endsWith(QLatin1String(".wav"), Qt::CaseInsensitive) || QFileInfo(words).isFile();
    const std::optional<Pcm> pcm = isFile ? readWav(words) : synthesised(words, voice);
    const QString trouble = problemWith(pcm, isFile);
    if (!trouble.isEmpty()) {
        *problem = QStringLiteral("\"%1\" %2").arg(words, trouble);
        return std::nullopt;
    }
    return atRate(*pcm, rateHz);
}

} // namespace sim
