#include "sim/sound/Pcm.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <cmath>
#include <numbers>

using namespace sim;

namespace {

/// The parts of a WAV file, each as it stands in a good one: 8 kHz, mono, 16 bit, the samples 1 and -2.
struct WavParts {
    QByteArray riff = QByteArray("RIFF\x28\0\0\0WAVE", 12);
    QByteArray format = QByteArray("fmt \x10\0\0\0\1\0\1\0\x40\x1F\0\0\x80\x3E\0\0\2\0\x10\0", 24);
    QByteArray data = QByteArray("data\4\0\0\0\1\0\xFE\xFF", 12);

    QByteArray bytes() const { return riff + format + data; }
    WavParts withFormat(int offset, const QByteArray &bytes) const {
        WavParts changed = *this;
        changed.format.replace(8 + offset, bytes.size(), bytes);
        return changed;
    }
    WavParts withData(const QByteArray &bytes) const {
        WavParts changed = *this;
        changed.data = bytes;
        return changed;
    }
};

using Samples = std::vector<std::int16_t>;

double sineAt(double hz, double amplitude, std::size_t index, int rateHz) {
    return amplitude * std::sin(2.0 * std::numbers::pi * hz * double(index) / rateHz);
}

Pcm sine(double hz, double amplitude, int count, int rateHz) {
    Pcm pcm{rateHz, Samples(std::size_t(count))};
    for (std::size_t i = 0; i < pcm.samples.size(); ++i)
        pcm.samples[i] = std::int16_t(std::lround(sineAt(hz, amplitude, i, rateHz)));
    return pcm;
}

/// Largest distance from zero, the edges left out, where a kernel reaches beyond the sound.
double peakInside(const Pcm &pcm) {
    const std::size_t edge = pcm.samples.size() / 8;
    double peak = 0.0;
    for (std::size_t i = edge; i + edge < pcm.samples.size(); ++i)
        peak = std::max(peak, std::abs(double(pcm.samples[i])));
    return peak;
}

} // namespace

class TestPcm : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void writesWavFilesByteForByte();
    void readsBackWhatItWrote_data();
    void readsBackWhatItWrote();
    void readsWavFiles_data();
    void readsWavFiles();
    void survivesMalformedFiles_data();
    void survivesMalformedFiles();
    void survivesEveryCutOfAGoodFile();
    void findsNoFileWhereThereIsNone();
    void saysWhenItCannotWrite();

    void resamplesASineToThatSine_data();
    void resamplesASineToThatSine();
    void keepsAConstant();
    void leavesOutWhatTheLowerRateCannotHold();
    void leavesTheSameRateAlone();
    void makesTones_data();
    void makesTones();

private:
    QString write(const QByteArray &bytes);

    QTemporaryDir m_folder;
};

QString TestPcm::write(const QByteArray &bytes) {
    const QString path = m_folder.filePath(QStringLiteral("sound.wav"));
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() ? path : QString();
}

void TestPcm::writesWavFilesByteForByte() {
    const QString path = m_folder.filePath(QStringLiteral("written.wav"));
    QVERIFY(writeWav(path, {8000, {1, -2}}));
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), WavParts().bytes());
}

void TestPcm::readsBackWhatItWrote_data() {
    QTest::addColumn<int>("rateHz");
    QTest::addColumn<Samples>("samples");
    QTest::newRow("extremes") << 48000 << Samples{-32768, 32767, 0, -1, 1};
    QTest::newRow("one sample") << 22050 << Samples{-5};
    QTest::newRow("nothing") << 44100 << Samples{};
}

void TestPcm::readsBackWhatItWrote() {
    QFETCH(int, rateHz);
    QFETCH(Samples, samples);
    const QString path = m_folder.filePath(QStringLiteral("back.wav"));
    QVERIFY(writeWav(path, {rateHz, samples}));
    const std::optional<Pcm> pcm = readWav(path);
    QVERIFY(pcm);
    QCOMPARE(pcm->rateHz, rateHz);
    QCOMPARE(pcm->samples, samples);
}

void TestPcm::readsWavFiles_data() {
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<Samples>("samples");
    const WavParts good;
    const WavParts stereo = good.withFormat(2, QByteArray("\2\0", 2));
    QTest::newRow("mono") << good.bytes() << Samples{1, -2};
    // left 100, right 300; then -32768 on both
    QTest::newRow("stereo is averaged")
        << stereo.withData(QByteArray("data\x08\0\0\0\x64\0\x2C\1\0\x80\0\x80", 16)).bytes() << Samples{200, -32768};
    QTest::newRow("extensible") << good.withFormat(0, QByteArray("\xFE\xFF", 2)).bytes() << Samples{1, -2};
    QTest::newRow("other chunk of odd length before")
        << good.riff + QByteArray("LIST\3\0\0\0abc\0", 12) + good.format + good.data << Samples{1, -2};
    QTest::newRow("stream of unknown length")
        << good.withData(QByteArray("data\xFF\xFF\xFF\xFF\1\0\xFE\xFF", 12)).bytes() << Samples{1, -2};
    QTest::newRow("half a sample at the end")
        << good.withData(QByteArray("data\3\0\0\0\1\0\xFE", 11)).bytes() << Samples{1};
    QTest::newRow("no samples") << good.withData(QByteArray("data\0\0\0\0", 8)).bytes() << Samples{};
}

void TestPcm::readsWavFiles() {
    QFETCH(QByteArray, bytes);
    QFETCH(Samples, samples);
    const std::optional<Pcm> pcm = readWav(write(bytes));
    QVERIFY(pcm);
    QCOMPARE(pcm->rateHz, 8000);
    QCOMPARE(pcm->samples, samples);
}

void TestPcm::survivesMalformedFiles_data() {
    QTest::addColumn<QByteArray>("bytes");
    const WavParts good;
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("text") << QByteArray("not a sound at all, but long enough to be one");
    QTest::newRow("big-endian") << "RIFX" + good.bytes().mid(4);
    QTest::newRow("not WAVE") << good.riff.left(8) + "AVI " + good.format + good.data;
    QTest::newRow("no format") << good.riff + good.data;
    QTest::newRow("no data") << good.riff + good.format;
    QTest::newRow("short format") << good.riff + QByteArray("fmt \4\0\0\0\1\0\1\0", 12) + good.data;
    QTest::newRow("float") << good.withFormat(0, QByteArray("\3\0", 2)).bytes();
    QTest::newRow("no channel") << good.withFormat(2, QByteArray("\0\0", 2)).bytes();
    QTest::newRow("three channels") << good.withFormat(2, QByteArray("\3\0", 2)).bytes();
    QTest::newRow("rate 0") << good.withFormat(4, QByteArray("\0\0\0\0", 4)).bytes();
    QTest::newRow("rate 2^32-1") << good.withFormat(4, QByteArray("\xFF\xFF\xFF\xFF", 4)).bytes();
    QTest::newRow("8 bit") << good.withFormat(14, QByteArray("\x08\0", 2)).bytes();
    QTest::newRow("endless chunk in front")
        << good.riff + QByteArray("LIST\xFF\xFF\xFF\xFF", 8) + good.format + good.data;
}

void TestPcm::survivesMalformedFiles() {
    QFETCH(QByteArray, bytes);
    QVERIFY(!readWav(write(bytes)));
}

void TestPcm::survivesEveryCutOfAGoodFile() {
    const QByteArray good = WavParts().bytes();
    const int dataStart = good.indexOf("data") + 8;
    for (int length = 0; length < good.size(); ++length)
        QCOMPARE(readWav(write(good.left(length))).has_value(), length >= dataStart);
}

void TestPcm::findsNoFileWhereThereIsNone() {
    QVERIFY(!readWav(m_folder.filePath(QStringLiteral("missing.wav"))));
    QVERIFY(!readWav(m_folder.path()));
}

void TestPcm::saysWhenItCannotWrite() {
    QVERIFY(!writeWav(m_folder.filePath(QStringLiteral("no/such/folder/sound.wav")), {8000, {1}}));
}

void TestPcm::resamplesASineToThatSine_data() {
    QTest::addColumn<int>("rateIn");
    QTest::addColumn<int>("rateOut");
    QTest::addColumn<double>("hz");
    for (const auto &[in, out] : {std::pair{48000, 44100},
                                  {44100, 48000},
                                  {22050, 48000},
                                  {8000, 48000},
                                  {48000, 8000},
                                  {16000, 11025},
                                  {47999, 48000}}) {
        for (const double hz : {100.0, 1000.0, 3000.0})
            QTest::addRow("%d to %d, %g Hz", in, out, hz) << in << out << hz;
    }
}

void TestPcm::resamplesASineToThatSine() {
    QFETCH(int, rateIn);
    QFETCH(int, rateOut);
    QFETCH(double, hz);
    const Pcm out = atRate(sine(hz, 20000, rateIn / 8, rateIn), rateOut);
    QCOMPARE(out.rateHz, rateOut);
    QVERIFY(std::abs(out.seconds() - double(rateIn / 8) / rateIn) <= 1.0 / rateOut);
    Pcm error = out;
    for (std::size_t i = 0; i < out.samples.size(); ++i)
        error.samples[i] = std::int16_t(std::lround(out.samples[i] - sineAt(hz, 20000, i, rateOut)));
    QVERIFY2(peakInside(error) <= 20, qPrintable(QString::number(peakInside(error)))); // 60 dB below the sine
}

void TestPcm::keepsAConstant() {
    const Pcm out = atRate({44100, Samples(4410, 1234)}, 48000);
    QCOMPARE(out.samples.size(), std::size_t(4800));
    QVERIFY(std::all_of(out.samples.begin() + 100, out.samples.end() - 100,
                        [](std::int16_t sample) { return sample == 1234; }));
}

void TestPcm::leavesOutWhatTheLowerRateCannotHold() {
    QVERIFY(peakInside(atRate(sine(5000, 20000, 24000, 48000), 8000)) <= 20);
}

void TestPcm::leavesTheSameRateAlone() {
    const Pcm pcm = sine(1000, 20000, 480, 48000);
    QCOMPARE(atRate(pcm, 48000).samples, pcm.samples);
}

void TestPcm::makesTones_data() {
    QTest::addColumn<double>("hz");
    QTest::addColumn<double>("dbfs");
    QTest::addColumn<int>("rateHz");
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("sample");
    QTest::newRow("starts at zero") << 1000.0 << 0.0 << 48000 << 0 << 0;
    QTest::newRow("a quarter on, full scale") << 1000.0 << 0.0 << 48000 << 12 << 32767;
    QTest::newRow("three quarters on") << 1000.0 << 0.0 << 48000 << 36 << -32767;
    QTest::newRow("a twelfth on: one half") << 1000.0 << 0.0 << 48000 << 4 << 16384; // 16383.5, away from zero
    QTest::newRow("20 dB less: a tenth") << 1000.0 << -20.0 << 48000 << 12 << 3277;  // 3276.7
    QTest::newRow("other rate") << 500.0 << 0.0 << 8000 << 4 << 32767;
}

void TestPcm::makesTones() {
    QFETCH(double, hz);
    QFETCH(double, dbfs);
    QFETCH(int, rateHz);
    QFETCH(int, index);
    QFETCH(int, sample);
    const Pcm pcm = tone(hz, dbfs, 0.25, rateHz);
    QCOMPARE(pcm.rateHz, rateHz);
    QCOMPARE(int(pcm.samples.size()), rateHz / 4);
    QVERIFY(std::abs(pcm.samples.at(std::size_t(index)) - sample) <= 1);
}

QTEST_GUILESS_MAIN(TestPcm)
#include "tst_Pcm.moc"
