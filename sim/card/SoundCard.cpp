#include "sim/card/SoundCard.h"

#include "sim/card/CardFile.h"

#include <QFile>
#include <QSaveFile>
#include <QtGlobal>

#include <algorithm>
#include <cmath>

namespace sim {
namespace {

/// Whatever is fed now passes a little later, so that it is in place before the card gets there.
constexpr std::int64_t feedLeadNs = 20'000'000;
/// How far ahead the site may write: the ring less what a capture buffer may still have to be read.
constexpr std::int64_t feedAheadSeconds = 80;

QString cardPlugin() {
    const QString chosen = qEnvironmentVariable("KIVO_CARD_PLUGIN");
    return chosen.isEmpty() ? QStringLiteral(KIVO_CARD_PLUGIN_FILE) : chosen;
}

/// Complete in itself, so that a machine needs nothing but the ALSA library.
QByteArray alsaConfig(const QString &folder) {
    return QStringLiteral("pcm_type.kivosim {\n"
                          "    lib \"%1\"\n"
                          "}\n"
                          "pcm.hw {\n"
                          "    @args [ CARD DEV ]\n"
                          "    @args.CARD { type integer default 0 }\n"
                          "    @args.DEV { type integer default 0 }\n"
                          "    type kivosim\n"
                          "    folder \"%2\"\n"
                          "    card $CARD\n"
                          "    device $DEV\n"
                          "}\n"
                          "pcm.default {\n"
                          "    type kivosim\n"
                          "    folder \"%2\"\n"
                          "    card 0\n"
                          "}\n")
        .arg(cardPlugin(), folder)
        .toUtf8();
}

std::int32_t ppb(double ppm) {
    return std::int32_t(std::lround(ppm * 1000.0));
}

} // namespace

struct SoundCard::Shared {
    std::string path;
    std::unique_ptr<CardFile> file;
    std::int64_t feedEnd = 0; ///< air index behind the last frame fed

    CardMemory &memory() const { return file->memory(); }
    std::int64_t rateHz() const { return memory().rateHz.load(); }
};

SoundCard::SoundCard(const QString &folder, int number, const CardOptions &options)
    : m_shared(std::make_unique<Shared>()) {
    m_shared->path = cardFilePath(folder.toStdString(), number);
    m_shared->file = CardFile::create(m_shared->path);
    if (!m_shared->file)
        qFatal("cannot make %s: %s", m_shared->path.c_str(), qPrintable(qt_error_string()));
    CardMemory &memory = m_shared->memory();
    memory.rateHz = std::uint32_t(options.rateHz);
    memory.minChannels = std::uint32_t(options.minChannels);
    memory.maxChannels = std::uint32_t(options.maxChannels);
    memory.capture.clockErrorPpb = ppb(options.capturePpm);
    memory.playback.clockErrorPpb = ppb(options.playbackPpm);
    memory.present = 1;
}

SoundCard::~SoundCard() {
    unplug();
    QFile::remove(QString::fromStdString(m_shared->path)); // nothing is left to do when somebody was faster
}

std::int64_t SoundCard::feed(const Pcm &pcm) {
    const std::int64_t rateHz = m_shared->rateHz();
    const std::int64_t now = monotonicNs();
    const std::int64_t start = std::max(airIndex(now + feedLeadNs, rateHz), m_shared->feedEnd);
    const std::int64_t room = std::max<std::int64_t>(airIndex(now, rateHz) + feedAheadSeconds * rateHz - start, 0);
    const Pcm converted = atRate(pcm, int(rateHz));
    const std::int64_t count = std::min(room, std::int64_t(converted.samples.size()));
    for (std::int64_t i = 0; i < count; ++i)
        m_shared->memory().heard.put(start + i, converted.samples[std::size_t(i)]);
    m_shared->feedEnd = start + count;
    return airTimeNs(start, rateHz);
}

void SoundCard::clearFeed() {
    for (std::int64_t i = airIndex(monotonicNs(), m_shared->rateHz()); i < m_shared->feedEnd; ++i)
        m_shared->memory().heard.put(i, 0);
    m_shared->feedEnd = 0;
}

Pcm SoundCard::played(std::int64_t fromNs, std::int64_t toNs) const {
    const std::int64_t rateHz = m_shared->rateHz();
    const std::int64_t end = airIndex(toNs, rateHz);
    Pcm pcm;
    pcm.rateHz = int(rateHz);
    pcm.samples.reserve(std::size_t(std::max<std::int64_t>(end - airIndex(fromNs, rateHz), 0)));
    for (std::int64_t i = airIndex(fromNs, rateHz); i < end; ++i)
        pcm.samples.push_back(m_shared->memory().played.at(i));
    return pcm;
}

std::int64_t SoundCard::framesCaptured() const {
    return m_shared->memory().capture.frames.load();
}

std::int64_t SoundCard::framesPlayed() const {
    return m_shared->memory().playback.frames.load();
}

int SoundCard::captureXruns() const {
    return int(m_shared->memory().capture.xruns.load());
}

int SoundCard::playbackXruns() const {
    return int(m_shared->memory().playback.xruns.load());
}

bool SoundCard::isCaptureOpen() const {
    return m_shared->file->isClaimed(Direction::Capture);
}

bool SoundCard::isPlaybackOpen() const {
    return m_shared->file->isClaimed(Direction::Playback);
}

void SoundCard::setPresent(bool present) {
    m_shared->memory().present = present ? 1 : 0;
}

void SoundCard::setBusy(bool busy) {
    m_shared->memory().busy = busy ? 1 : 0;
}

void SoundCard::unplug() {
    setPresent(false);
    m_shared->memory().unplugs.fetch_add(1);
}

void SoundCard::plugIn() {
    setPresent(true);
}

void SoundCard::setRate(int rateHz) {
    clearFeed();
    m_shared->memory().rateHz = std::uint32_t(rateHz);
}

void SoundCard::setChannels(int min, int max) {
    m_shared->memory().minChannels = std::uint32_t(min);
    m_shared->memory().maxChannels = std::uint32_t(max);
}

void SoundCard::overrun() {
    m_shared->memory().capture.xrunsOrdered.fetch_add(1);
}

void SoundCard::underrun() {
    m_shared->memory().playback.xrunsOrdered.fetch_add(1);
}

void SoundCard::stall(bool stalled) {
    m_shared->memory().stalled = stalled ? 1 : 0;
}

void SoundCard::refuseCaptureStarts(bool refuse) {
    m_shared->memory().capture.refusedStarts = refuse ? 1 : 0;
}

void SoundCard::failPlaybackWrites(bool fail) {
    m_shared->memory().failingWrites = fail ? 1 : 0;
}

QString SoundCard::writeAlsaConfig(const QString &folder) {
    QString path = folder + QStringLiteral("/asound.conf");
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(alsaConfig(folder)) < 0 || !file.commit())
        return {};
    return path;
}

bool SoundCard::installAlsaConfig(const QString &folder) {
    const QString path = writeAlsaConfig(folder);
    return !path.isEmpty() && qputenv("ALSA_CONFIG_PATH", path.toLocal8Bit());
}

} // namespace sim
