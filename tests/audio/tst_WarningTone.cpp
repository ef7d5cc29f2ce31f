#include "audio/Resampler.h"
#include "audio/WarningTone.h"

#include <QTemporaryDir>
#include <QtEndian>
#include <QtTest>

#include <algorithm>
#include <cmath>
#include <sys/stat.h>
#include <vector>

namespace {

using Samples = std::vector<qint16>;

QStringList loggedLines;

void keepLine(QtMsgType type, const QMessageLogContext &, const QString &text) {
    const QString level = type == QtInfoMsg      ? QStringLiteral("info ")
                          : type == QtWarningMsg ? QStringLiteral("warning ")
                                                 : QStringLiteral("other ");
    loggedLines += level + text;
}

template <class Integer>
QByteArray littleEndian(Integer value) {
    QByteArray bytes(sizeof(Integer), '\0');
    qToLittleEndian(value, bytes.data());
    return bytes;
}

QByteArray bytesOf(const Samples &samples) {
    QByteArray bytes;
    for (const qint16 sample : samples)
        bytes += littleEndian(sample);
    return bytes;
}

Samples samplesOf(const QByteArray &bytes) {
    Samples samples(bytes.size() / 2);
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = qFromLittleEndian<qint16>(bytes.constData() + 2 * i);
    return samples;
}

struct Wav {
    QByteArray riff = QByteArrayLiteral("RIFF");
    QByteArray wave = QByteArrayLiteral("WAVE");
    quint16 coding = 1;
    quint16 channels = 1;
    quint32 rateHz = 48000;
    quint16 bits = 16;
    QByteArray otherChunks;
    QByteArray dataTag = QByteArrayLiteral("data");
    qint64 dataSize = -1; ///< as claimed; -1 is the truth
    QByteArray data;

    QByteArray file() const {
        const auto size = static_cast<quint32>(dataSize < 0 ? data.size() : dataSize);
        const QByteArray format = littleEndian(coding) + littleEndian(channels) + littleEndian(rateHz) +
                                  littleEndian<quint32>(rateHz * channels * 2) + littleEndian<quint16>(channels * 2) +
                                  littleEndian(bits);
        return riff + littleEndian<quint32>(36 + data.size()) + wave + QByteArrayLiteral("fmt ") +
               littleEndian<quint32>(16) + format + otherChunks + dataTag + littleEndian(size) + data;
    }
};

Wav wavOf(const Samples &samples, int rateHz = 48000, int channels = 1) {
    Wav wav;
    wav.rateHz = rateHz;
    wav.channels = static_cast<quint16>(channels);
    wav.data = bytesOf(samples);
    return wav;
}

const Samples steps{0, 1, -1, 100, -100, 8191, -8191, 8192, -8192, 32767, -32768, 5};
const Samples stepsBoosted{0, 4, -4, 400, -400, 32764, -32764, 32767, -32767, 32767, -32767, 20};

} // namespace

class TestWarningTone : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup() { qInstallMessageHandler(nullptr); }

    void playsAFileFourTimesAsLoud();
    void fitsTheDevicesChannels_data();
    void fitsTheDevicesChannels();
    void fitsTheDevicesRateThenItsChannels();
    void resamplesAStereoFileAsOneStream();
    void findsTheSamplesBehindOtherChunks();
    void ignoresWhatFollowsTheSamples();

    void rejectsAFile_data();
    void rejectsAFile();
    void rejectsWhatIsNoFile_data();
    void rejectsWhatIsNoFile();
    void rejectsAnEndlessFile();
    void rejectsARateThatWouldFillTheMemory();
    void survivesStrangeHeaders_data();
    void survivesStrangeHeaders();

    void syntheticToneLastsThreeBeepsAndTwoGaps_data();
    void syntheticToneLastsThreeBeepsAndTwoGaps();
    void syntheticToneBeepsThreeTimesAlike();
    void syntheticToneRisesAndFallsWithinTenMilliseconds();
    void syntheticToneIsA880HzSineAtNinetyPercent();
    void syntheticToneFillsBothChannels();
    void noSyntheticToneWithoutRoomForASample();

private:
    QString write(const QByteArray &content);
    std::optional<WavTone> load(const Wav &wav, int deviceRateHz = 48000, int channels = 1);

    QTemporaryDir m_folder;
    QString m_path = m_folder.filePath(QStringLiteral("tot_warning.wav"));
    Resampler m_resampler;
};

void TestWarningTone::init() {
    QFile::remove(m_path);
    loggedLines.clear();
    qInstallMessageHandler(keepLine);
}

QString TestWarningTone::write(const QByteArray &content) {
    QFile file(m_path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write the tone file");
    return m_path;
}

std::optional<WavTone> TestWarningTone::load(const Wav &wav, int deviceRateHz, int channels) {
    return warningToneFromWav(write(wav.file()), deviceRateHz, channels, m_resampler);
}

void TestWarningTone::playsAFileFourTimesAsLoud() {
    const auto tone = load(wavOf(steps));
    QVERIFY(tone);
    QCOMPARE(samplesOf(tone->samples), stepsBoosted);
    QCOMPARE(tone->rateHz, 48000);
    QCOMPARE(tone->channels, 1);
    QCOMPARE(loggedLines, QStringList());
}

void TestWarningTone::fitsTheDevicesChannels_data() {
    QTest::addColumn<int>("fileChannels");
    QTest::addColumn<int>("deviceChannels");
    QTest::addColumn<Samples>("samples");
    QTest::addColumn<Samples>("expected");
    QTest::newRow("mono on stereo") << 1 << 2 << Samples{10, -20, 30} << Samples{40, 40, -80, -80, 120, 120};
    QTest::newRow("stereo on mono") << 2 << 1 << Samples{10, 20, -10, -21, 32767, 32767, -1, 0}
                                    << Samples{60, -60, 32767, 0};
    QTest::newRow("stereo on stereo") << 2 << 2 << Samples{10, 20, -10, -20} << Samples{40, 80, -40, -80};
    QTest::newRow("half a pair left over") << 2 << 1 << Samples{10, 20, 30} << Samples{60};
    QTest::newRow("seven channels") << 7 << 2 << Samples{1, 2, 3, 4, 5, 6, 7} << Samples{4, 8, 12, 16, 20, 24, 28};
    QTest::newRow("no channels") << 0 << 1 << Samples{1, 2} << Samples{4, 8};
}

void TestWarningTone::fitsTheDevicesChannels() {
    QFETCH(int, fileChannels);
    QFETCH(int, deviceChannels);
    QFETCH(Samples, samples);
    QFETCH(Samples, expected);
    const auto tone = load(wavOf(samples, 48000, fileChannels), 48000, deviceChannels);
    QVERIFY(tone);
    QCOMPARE(samplesOf(tone->samples), expected);
    QCOMPARE(tone->channels, fileChannels);
}

void TestWarningTone::fitsTheDevicesRateThenItsChannels() {
    // Half a second at a steady level: at the new rate it is as long, as steady, twice in every frame, four times as
    // loud.
    const auto tone = load(wavOf(Samples(22050, 1000), 44100, 1), 48000, 2);
    QVERIFY(tone);
    const Samples samples = samplesOf(tone->samples);
    QCOMPARE(samples.size(), std::size_t{48000});
    for (std::size_t i = 0; i < samples.size(); i += 2) {
        QVERIFY(samples[i] == 4000 || samples[i] == 3996); // 1000, or the cut fraction of 999.99...
        QCOMPARE(samples[i], samples[i + 1]);
    }
    QCOMPARE(tone->rateHz, 44100);
    QCOMPARE(loggedLines, QStringList(QStringLiteral("info [TOT] WAV resampled 44100 -> 48000")));
}

void TestWarningTone::resamplesAStereoFileAsOneStream() {
    Samples interleaved;
    for (int i = 0; i < 2000; ++i)
        interleaved.push_back(static_cast<qint16>(i % 2 == 0 ? 4000 : -2000));
    Samples expected;
    Resampler().convert(interleaved, 24000, 48000, expected);
    for (qint16 &sample : expected)
        sample = static_cast<qint16>(std::clamp(4 * sample, -32767, 32767));

    const auto tone = load(wavOf(interleaved, 24000, 2), 48000, 2);
    QVERIFY(tone);
    QCOMPARE(samplesOf(tone->samples), expected);
}

void TestWarningTone::findsTheSamplesBehindOtherChunks() {
    Wav wav = wavOf(steps);
    wav.otherChunks = QByteArrayLiteral("LIST") + littleEndian<quint32>(9) + QByteArrayLiteral("some text");
    const auto tone = load(wav);
    QVERIFY(tone);
    QCOMPARE(samplesOf(tone->samples), stepsBoosted);
}

void TestWarningTone::ignoresWhatFollowsTheSamples() {
    Wav wav = wavOf(steps);
    wav.dataSize = 4;
    const auto tone = load(wav);
    QVERIFY(tone);
    QCOMPARE(samplesOf(tone->samples), (Samples{0, 4}));
}

void TestWarningTone::rejectsAFile_data() {
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("line");
    const auto tooSmall = QStringLiteral("warning [TOT] File WAV terlalu kecil: %1");
    const auto unsupported = QStringLiteral("warning [TOT] Format WAV tidak didukung (harus PCM 16-bit): %1 %2");
    const auto noSamples = QStringLiteral("warning [TOT] WAV data chunk tidak valid di %1");

    QTest::newRow("empty") << QByteArray() << tooSmall.arg(0);
    QTest::newRow("header alone, 44 bytes") << Wav().file() << tooSmall.arg(44);
    Wav wav = wavOf(steps);
    wav.riff = "RIFX";
    QTest::newRow("no RIFF") << wav.file() << unsupported.arg(1).arg(16);
    wav = wavOf(steps);
    wav.wave = "AVI ";
    QTest::newRow("no WAVE") << wav.file() << unsupported.arg(1).arg(16);
    wav = wavOf(steps);
    wav.coding = 3;
    wav.bits = 32;
    QTest::newRow("float") << wav.file() << unsupported.arg(3).arg(32);
    wav = wavOf(steps);
    wav.coding = 0xFFFE;
    QTest::newRow("extensible") << wav.file() << unsupported.arg(65534).arg(16);
    wav = wavOf(steps);
    wav.bits = 8;
    QTest::newRow("8 bits") << wav.file() << unsupported.arg(1).arg(8);
    wav = wavOf(steps);
    wav.dataTag = "DATA";
    QTest::newRow("no samples") << wav.file() << noSamples.arg(wav.file().size() - 8);
    wav = wavOf(steps);
    wav.dataSize = 0;
    QTest::newRow("no bytes of samples") << wav.file() << noSamples.arg(44);
    wav.dataSize = wav.data.size() + 1;
    QTest::newRow("samples past the end") << wav.file() << noSamples.arg(44);
    wav.dataSize = 0xFFFFFFFF;
    QTest::newRow("size beyond any int") << wav.file() << noSamples.arg(44);
    wav = Wav();
    wav.otherChunks = "JUNKJUNK";
    QTest::newRow("tag at the very end") << wav.file() << noSamples.arg(wav.file().size() - 8);
    QTest::newRow("noise") << QByteArray(1000, 'x') << unsupported.arg(0x7878).arg(0x7878);
}

void TestWarningTone::rejectsAFile() {
    QFETCH(QByteArray, content);
    QFETCH(QString, line);
    QVERIFY(!warningToneFromWav(write(content), 48000, 1, m_resampler));
    QCOMPARE(loggedLines, QStringList(line));
}

void TestWarningTone::rejectsWhatIsNoFile_data() {
    QTest::addColumn<QString>("kind");
    for (const char *kind : {"missing", "folder", "pipe", "device"})
        QTest::newRow(kind) << QString::fromLatin1(kind);
}

void TestWarningTone::rejectsWhatIsNoFile() {
    QFETCH(QString, kind);
    QTemporaryDir folder;
    QString path = folder.filePath(QStringLiteral("tone.wav"));
    if (kind == QStringLiteral("folder"))
        path = folder.path();
    if (kind == QStringLiteral("device"))
        path = QStringLiteral("/dev/zero");
    if (kind == QStringLiteral("pipe"))
        QCOMPARE(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);
    QVERIFY(!warningToneFromWav(path, 48000, 1, m_resampler));
    QCOMPARE(loggedLines,
             QStringList(QStringLiteral("info [TOT] File WAV tidak ditemukan, pakai tone sintetis: \"%1\"").arg(path)));
}

void TestWarningTone::rejectsAnEndlessFile() {
    write(wavOf(steps).file());
    constexpr qint64 size = 3'000'000'000; // a sparse one
    QVERIFY(QFile::resize(m_path, size));
    QVERIFY(!warningToneFromWav(m_path, 48000, 1, m_resampler));
    QCOMPARE(loggedLines, QStringList(QStringLiteral("warning [TOT] File WAV terlalu besar: %1").arg(size)));
}

void TestWarningTone::rejectsARateThatWouldFillTheMemory() {
    QVERIFY(!load(wavOf(Samples(1000, 1), 1)));
    QCOMPARE(loggedLines, QStringList(QStringLiteral("warning [TOT] File WAV terlalu besar: 96000000")));
}

void TestWarningTone::survivesStrangeHeaders_data() {
    QTest::addColumn<quint32>("rateHz");
    QTest::addColumn<int>("bytes");
    QTest::addColumn<int>("deviceRateHz");
    QTest::addColumn<int>("expectedBytes");
    QTest::newRow("no rate") << 0U << 24 << 48000 << 24;
    QTest::newRow("rate beyond any int") << 4'000'000'000U << 24 << 48000 << 24;
    QTest::newRow("no device rate") << 48000U << 24 << 0 << 24;
    QTest::newRow("an odd number of bytes") << 48000U << 25 << 48000 << 24;
    QTest::newRow("half a sample") << 48000U << 1 << 48000 << 0;
    QTest::newRow("half a sample at another rate") << 8000U << 1 << 48000 << 0;
}

void TestWarningTone::survivesStrangeHeaders() {
    QFETCH(quint32, rateHz);
    QFETCH(int, bytes);
    QFETCH(int, deviceRateHz);
    QFETCH(int, expectedBytes);
    Wav wav;
    wav.rateHz = rateHz;
    wav.data = QByteArray(bytes, '\1');
    const auto tone = load(wav, deviceRateHz);
    QVERIFY(tone);
    QCOMPARE(tone->samples.size(), expectedBytes);
}

void TestWarningTone::syntheticToneLastsThreeBeepsAndTwoGaps_data() {
    QTest::addColumn<int>("rateHz");
    QTest::addColumn<int>("beep");
    QTest::addColumn<int>("gap");
    QTest::newRow("48000") << 48000 << 7200 << 4800;
    QTest::newRow("44100") << 44100 << 6615 << 4410;
    QTest::newRow("8000") << 8000 << 1200 << 800;
    QTest::newRow("11025, fractions cut") << 11025 << 1653 << 1102;
}

void TestWarningTone::syntheticToneLastsThreeBeepsAndTwoGaps() {
    QFETCH(int, rateHz);
    QFETCH(int, beep);
    QFETCH(int, gap);
    const Samples tone = samplesOf(syntheticWarningTone(rateHz, 1));
    QCOMPARE(tone.size(), std::size_t(3 * beep + 2 * gap));
    for (const int start : {beep, 2 * beep + gap})
        QVERIFY(std::all_of(tone.begin() + start, tone.begin() + start + gap, [](qint16 s) { return s == 0; }));
    for (const int start : {0, beep + gap, 2 * (beep + gap)})
        QVERIFY(*std::max_element(tone.begin() + start, tone.begin() + start + beep) > 28000);
}

void TestWarningTone::syntheticToneBeepsThreeTimesAlike() {
    const Samples tone = samplesOf(syntheticWarningTone(48000, 1));
    const Samples first(tone.begin(), tone.begin() + 7200);
    QCOMPARE(Samples(tone.begin() + 12000, tone.begin() + 19200), first);
    QCOMPARE(Samples(tone.begin() + 24000, tone.end()), first);
}

void TestWarningTone::syntheticToneRisesAndFallsWithinTenMilliseconds() {
    const Samples tone = samplesOf(syntheticWarningTone(48000, 1));
    // By hand: sin(i * 5529.203 / 48000) * 29490.3, times i / 480 or (7200 - i) / 480, cut toward zero.
    QCOMPARE(tone[0], qint16{0});
    QCOMPARE(tone[1], qint16{7});
    QCOMPARE(tone[100], qint16{-5320});
    QCOMPARE(tone[240], qint16{8666});
    QCOMPARE(tone[6721], qint16{28848});
    QCOMPARE(tone[6960], qint16{-8666});
    QCOMPARE(tone[7100], qint16{5320});
    QCOMPARE(tone[7199], qint16{-7});
    const auto [lowest, highest] = std::minmax_element(tone.begin(), tone.begin() + 7200);
    QVERIFY(*highest <= 29490 && *highest >= 29400); // 0.9 * 32767; one of the samples comes close to the crest
    QVERIFY(*lowest >= -29490 && *lowest <= -29400);
}

void TestWarningTone::syntheticToneIsA880HzSineAtNinetyPercent() {
    // By hand from the formula: sin(i * 5529.203 / 48000) * 29490.3, cut toward zero.
    const Samples tone = samplesOf(syntheticWarningTone(48000, 1));
    const auto at = [](int i) { return int(std::sin(i * 0.11519172916666667) * 29490.3); };
    for (const int i : {480, 1000, 3600, 5555, 6719})
        QVERIFY(std::abs(tone[i] - at(i)) <= 1);
    int crossings = 0;
    for (int i = 1; i < 7200; ++i)
        crossings += (tone[i - 1] < 0) != (tone[i] < 0);
    QVERIFY(std::abs(crossings - 264) <= 1); // 150 ms of 880 Hz are 132 periods
}

void TestWarningTone::syntheticToneFillsBothChannels() {
    const Samples mono = samplesOf(syntheticWarningTone(48000, 1));
    const Samples stereo = samplesOf(syntheticWarningTone(48000, 2));
    QCOMPARE(stereo.size(), 2 * mono.size());
    for (std::size_t i = 0; i < mono.size(); ++i)
        QVERIFY(stereo[2 * i] == mono[i] && stereo[2 * i + 1] == mono[i]);
}

void TestWarningTone::noSyntheticToneWithoutRoomForASample() {
    QCOMPARE(syntheticWarningTone(0, 1).size(), 0);
    QCOMPARE(syntheticWarningTone(-48000, 1).size(), 0);
    QCOMPARE(syntheticWarningTone(6, 1).size(), 0); // 6 * 150 = 900
    QVERIFY(!syntheticWarningTone(7, 1).isEmpty()); // 7 * 150 = 1050
}

QTEST_APPLESS_MAIN(TestWarningTone)
#include "tst_WarningTone.moc"
