#include "sim/sound/Pcm.h"

#include <QByteArray>
#include <QFile>
#include <QSaveFile>
#include <QtEndian>

namespace sim {

namespace {

constexpr qint64 largestFile = 256LL << 20;
constexpr int riffHeaderBytes = 12;
constexpr int chunkHeaderBytes = 8;
constexpr int formatBytes = 16;
constexpr int sampleBytes = 2;

struct Format {
    int tag = 0;
    int channels = 0;
    int rateHz = 0;
    int bitsPerSample = 0;

    bool isReadable() const {
        return isPcm() && (channels == 1 || channels == 2) && bitsPerSample == 16 && rateHz >= 4000 && rateHz <= 384000;
    }

private:
    bool isPcm() const {
        constexpr int pcm = 1;
        constexpr int extensible = 0xFFFE;
        return tag == pcm || tag == extensible;
    }
};

int number16(const QByteArray &bytes, int at) {
    return qFromLittleEndian<quint16>(bytes.constData() + at);
}

qint64 number32(const QByteArray &bytes, qint64 at) {
    return qFromLittleEndian<quint32>(bytes.constData() + at);
}

/// The content of the first chunk of that name, as far as the file goes.
std::optional<QByteArray> chunk(const QByteArray &file, const char *name) {
    qint64 at = riffHeaderBytes;
    while (at + chunkHeaderBytes <= file.size()) {
        const qint64 size = number32(file, at + 4);
        if (file.mid(int(at), 4) == name)
            return file.mid(int(at) + chunkHeaderBytes, int(qMin(size, file.size() - at - chunkHeaderBytes)));
        at += chunkHeaderBytes + size + size % 2; // chunks begin at even places
    }
    return std::nullopt;
}

Format readFormat(const QByteArray &chunk) {
    if (chunk.size() < formatBytes)
        return {};
    return {number16(chunk, 0), number16(chunk, 2), int(number32(chunk, 4)), number16(chunk, 14)};
}

std::int16_t sampleAt(const QByteArray &data, qint64 index) {
    return qFromLittleEndian<qint16>(data.constData() + index * sampleBytes);
}

std::vector<std::int16_t> monoSamples(const QByteArray &data, int channels) {
    std::vector<std::int16_t> samples(std::size_t(data.size() / (sampleBytes * channels)));
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const qint64 first = qint64(i) * channels;
        samples[i] = std::int16_t((sampleAt(data, first) + sampleAt(data, first + channels - 1)) / 2);
    }
    return samples;
}

void append16(QByteArray &bytes, int number) {
    char place[2];
    qToLittleEndian(quint16(number), place);
    bytes.append(place, sizeof place);
}

void append32(QByteArray &bytes, qint64 number) {
    char place[4];
    qToLittleEndian(quint32(number), place);
    bytes.append(place, sizeof place);
}

QByteArray header(const Pcm &pcm, qint64 dataBytes) {
    QByteArray bytes("RIFF");
    append32(bytes, riffHeaderBytes - 8 + chunkHeaderBytes + formatBytes + chunkHeaderBytes + dataBytes);
    bytes += "WAVEfmt ";
    append32(bytes, formatBytes);
    append16(bytes, 1); // PCM
    append16(bytes, 1); // mono
    append32(bytes, pcm.rateHz);
    append32(bytes, qint64(pcm.rateHz) * sampleBytes);
    append16(bytes, sampleBytes);
    append16(bytes, sampleBytes * 8);
    bytes += "data";
    append32(bytes, dataBytes);
    return bytes;
}

} // namespace

std::optional<Pcm> readWav(const QString &path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() > largestFile)
        return std::nullopt;
    const QByteArray bytes = file.read(largestFile);
    const Format format = readFormat(chunk(bytes, "fmt ").value_or(QByteArray()));
    const std::optional<QByteArray> data = chunk(bytes, "data");
    if (!bytes.startsWith("RIFF") || bytes.mid(8, 4) != "WAVE" || !format.isReadable() || !data)
        return std::nullopt;
    return Pcm{format.rateHz, monoSamples(*data, format.channels)};
}

bool writeWav(const QString &path, const Pcm &pcm) {
    QByteArray data;
    for (const std::int16_t sample : pcm.samples)
        append16(data, sample);
    QSaveFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(header(pcm, data.size()) + data) >= 0 && file.commit();
}

} // namespace sim
