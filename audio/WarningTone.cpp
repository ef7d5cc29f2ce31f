#include "audio/WarningTone.h"

#include "audio/Channels.h"
#include "audio/Resampler.h"
#include "audio/Sample.h"

#include <QDebug>
#include <QFile>
#include <QtEndian>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <span>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using Samples = std::vector<qint16>;

constexpr float lowestToneSample = -32767.0F;
// Bounds what a wrong file, or one whose header claims an absurd rate, can cost in memory and time: a minute and a half
// of 48000 Hz stereo, for a tone that is meant to last a second.
constexpr qint64 maxToneBytes = 16LL * 1024 * 1024;
constexpr const char *tooLarge = "[TOT] File WAV terlalu besar:";

struct WavFormat {
    quint16 coding;
    quint16 channels;
    quint32 rateHz;
    quint16 bitsPerSample;
};

template <class Integer>
Integer littleEndianAt(const QByteArray &file, qsizetype offset) {
    return qFromLittleEndian<Integer>(file.constData() + offset);
}

bool hasTag(const QByteArray &file, qsizetype offset, const char (&tag)[5]) {
    return std::memcmp(file.constData() + offset, tag, 4) == 0;
}

// Regular files only, and without waiting: a pipe put in the file's place must not hold up the event loop.
bool openRegularFile(QFile &file) {
    const int fd = ::open(QFile::encodeName(file.fileName()).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0)
        return false;
    struct stat status {};
    if (::fstat(fd, &status) == 0 && S_ISREG(status.st_mode) &&
        file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle))
        return true;
    ::close(fd); // opened for reading, nothing to lose
    return false;
}

std::optional<QByteArray> readWav(const QString &path) {
    QFile file(path);
    if (!openRegularFile(file)) {
        qInfo() << "[TOT] File WAV tidak ditemukan, pakai tone sintetis:" << path;
        return std::nullopt;
    }
    if (file.size() > maxToneBytes) {
        qWarning() << tooLarge << file.size();
        return std::nullopt;
    }
    constexpr int headerBytes = 44;
    QByteArray content = file.readAll();
    if (content.size() <= headerBytes) {
        qWarning() << "[TOT] File WAV terlalu kecil:" << content.size();
        return std::nullopt;
    }
    return content;
}

std::optional<WavFormat> formatOf(const QByteArray &file) {
    const WavFormat format{littleEndianAt<quint16>(file, 20), littleEndianAt<quint16>(file, 22),
                           littleEndianAt<quint32>(file, 24), littleEndianAt<quint16>(file, 34)};
    constexpr quint16 pcm = 1;
    if (hasTag(file, 0, "RIFF") && hasTag(file, 8, "WAVE") && format.coding == pcm && format.bitsPerSample == 16)
        return format;
    qWarning() << "[TOT] Format WAV tidak didukung (harus PCM 16-bit):" << format.coding << format.bitsPerSample;
    return std::nullopt;
}

// A last odd byte is no sample.
Samples toSamples(const char *bytes, qsizetype size) {
    Samples samples(size / sizeof(qint16));
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = qFromLittleEndian<qint16>(bytes + sizeof(qint16) * i);
    return samples;
}

// Looks for the tag wherever it stands: writers put all kinds of chunks before it. The logged offset is where the
// samples would start, or where the search ended.
std::optional<Samples> samplesOf(const QByteArray &file) {
    constexpr int chunkHeaderBytes = 8;
    const int searchEnd = file.size() - chunkHeaderBytes;
    int offset = 12;
    while (offset < searchEnd && !hasTag(file, offset, "data"))
        ++offset;
    qint64 size = 0;
    if (offset < searchEnd) {
        size = littleEndianAt<quint32>(file, offset + 4);
        offset += chunkHeaderBytes;
    }
    if (size < 1 || offset + size > file.size()) {
        qWarning() << "[TOT] WAV data chunk tidak valid di" << offset;
        return std::nullopt;
    }
    return toSamples(file.constData() + offset, size);
}

std::optional<Samples> atDeviceRate(Samples samples, int rateHz, int deviceRateHz, Resampler &resampler) {
    if (rateHz == deviceRateHz)
        return samples;
    const qint64 convertedBytes =
        Resampler::outputSamples(static_cast<qint64>(samples.size()), rateHz, deviceRateHz) * qint64{sizeof(qint16)};
    if (convertedBytes > maxToneBytes) {
        qWarning() << tooLarge << convertedBytes;
        return std::nullopt;
    }
    Samples converted;
    resampler.convert(samples, rateHz, deviceRateHz, converted);
    qInfo() << "[TOT] WAV resampled" << rateHz << "->" << deviceRateHz;
    return converted;
}

QByteArray toBytes(std::span<const qint16> samples) {
    return {reinterpret_cast<const char *>(samples.data()), static_cast<int>(samples.size_bytes())};
}

// Only from one to two and from two to one; a file with other channels is played as it is.
Samples fitToDevice(Samples samples, int from, int to) {
    if (from == 1 && to == 2) {
        Samples both;
        fitChannels(samples, from, to, both);
        return both;
    }
    if (from == 2 && to == 1)
        samples.resize(mixToMono(samples, from).size());
    return samples;
}

void boost(Samples &samples) {
    for (qint16 &sample : samples)
        sample = toSample(static_cast<float>(sample) * wavBoost, lowestToneSample);
}

double beepEnvelope(int i, int length, int ramp) {
    if (i < ramp)
        return static_cast<double>(i) / ramp;
    if (i >= length - ramp)
        return static_cast<double>(length - i) / ramp;
    return 1.0;
}

/// One beep of the synthetic tone, mono.
Samples beep(int rateHz) {
    constexpr double angularFrequency = 5529.203; // 2 pi * 880 Hz
    constexpr double volume = 0.9;
    const int length = rateHz * 150 / 1000;
    const int ramp = rateHz / 100;
    Samples samples(length);
    for (int i = 0; i < length; ++i) {
        const double phase = i * angularFrequency / rateHz;
        const double value = std::sin(phase) * beepEnvelope(i, length, ramp) * volume * 32767.0;
        samples[i] = toSample<double>(value, lowestToneSample);
    }
    return samples;
}

} // namespace

std::optional<WavTone> warningToneFromWav(const QString &path, int deviceRateHz, int channels, Resampler &resampler) {
    const auto file = readWav(path);
    if (!file)
        return std::nullopt;
    const auto format = formatOf(*file);
    if (!format)
        return std::nullopt;
    auto samples = samplesOf(*file);
    if (!samples)
        return std::nullopt;
    const int rateHz = static_cast<int>(std::min<quint32>(format->rateHz, std::numeric_limits<int>::max()));
    samples = atDeviceRate(std::move(*samples), rateHz, deviceRateHz, resampler);
    if (!samples)
        return std::nullopt;
    samples = fitToDevice(std::move(*samples), format->channels, channels);
    boost(*samples);
    return WavTone{toBytes(*samples), rateHz, format->channels};
}

QByteArray syntheticWarningTone(int deviceRateHz, int channels) {
    constexpr int beeps = 3;
    const int beepFrames = deviceRateHz * 150 / 1000;
    if (beepFrames < 1 || channels < 1)
        return {};
    const Samples sound = beep(deviceRateHz);
    Samples tone = sound;
    for (int i = 1; i < beeps; ++i) {
        tone.insert(tone.end(), deviceRateHz / 10, 0);
        tone.insert(tone.end(), sound.begin(), sound.end());
    }
    return toBytes(fitToDevice(std::move(tone), 1, channels));
}
