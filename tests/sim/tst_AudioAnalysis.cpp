#include "sim/sound/AudioAnalysis.h"

#include <QTest>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numbers>
#include <random>

using namespace sim;

namespace {

constexpr int rateHz = 48000;

/// A sine of that peak amplitude (32768 is full scale), written down from its formula.
Pcm sine(double hz, double amplitude, int count, int rate = rateHz) {
    Pcm pcm{rate, {}};
    for (int i = 0; i < count; ++i)
        pcm.samples.push_back(std::int16_t(std::lround(amplitude * std::sin(2 * std::numbers::pi * hz * i / rate))));
    return pcm;
}

Pcm noise(unsigned seed, double seconds, int amplitude = 8000) {
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> sample(-amplitude, amplitude);
    Pcm pcm{rateHz, std::vector<std::int16_t>(std::size_t(seconds * rateHz))};
    std::generate(pcm.samples.begin(), pcm.samples.end(), [&] { return std::int16_t(sample(random)); });
    return pcm;
}

Pcm delayed(const Pcm &pcm, int samples) {
    Pcm later = pcm;
    later.samples.insert(later.samples.begin(), std::size_t(samples), 0);
    return later;
}

Pcm scaled(Pcm pcm, double factor) {
    for (std::int16_t &sample : pcm.samples)
        sample = std::int16_t(std::lround(sample * factor));
    return pcm;
}

void silence(Pcm &pcm, int fromMs, int toMs) {
    std::fill(pcm.samples.begin() + fromMs * rateHz / 1000, pcm.samples.begin() + toMs * rateHz / 1000,
              std::int16_t(0));
}

void verifyNear(double actual, double expected, double tolerance) {
    QVERIFY2(std::abs(actual - expected) <= tolerance, qPrintable(QString::number(actual)));
}

} // namespace

class TestAudioAnalysis : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void levelOfKnownWaves_data();
    void levelOfKnownWaves();
    void envelopeHasOneLevelPerStretch();
    void sliceIsClippedToTheSound();
    void toneFrequencyIsFound_data();
    void toneFrequencyIsFound();
    void toneLevelIsThePeakOfTheSineAlone();
    void toneShareOfAMixture();
    void toneShareFallsWhenAFrameIsLeftOut();
    void gapIsTheLongestQuietRun();
    void comparisonFindsDelayAndLevel_data();
    void comparisonFindsDelayAndLevel();
    void somethingElseIsNotSimilar();
    void nothingHeardIsNotSimilarAndAllLost();
    void missingFramesAreCounted();
    void aSkippedFrameCostsLittleSimilarity();
    void halfASentenceIsHalfSimilar();
    void noiseOnTopLowersTheSimilarity();
};

void TestAudioAnalysis::levelOfKnownWaves_data() {
    QTest::addColumn<std::vector<std::int16_t>>("samples");
    QTest::addColumn<double>("dbfs");
    QTest::newRow("nothing") << std::vector<std::int16_t>{} << -120.0;
    QTest::newRow("silence") << std::vector<std::int16_t>(100, 0) << -120.0;
    QTest::newRow("full-scale square") << std::vector<std::int16_t>(100, -32768) << 0.0;
    QTest::newRow("half-scale square") << std::vector<std::int16_t>(100, 16384) << -6.0206;
    QTest::newRow("3, 4, 0, 0: rms 2.5 of 32768") << std::vector<std::int16_t>{3, 4, 0, 0} << -82.3502;
    QTest::newRow("full-scale sine") << sine(1000, 32767, 48000).samples << -3.0105;
}

void TestAudioAnalysis::levelOfKnownWaves() {
    QFETCH(std::vector<std::int16_t>, samples);
    QFETCH(double, dbfs);
    verifyNear(rmsDbfs(samples), dbfs, 0.001);
}

void TestAudioAnalysis::envelopeHasOneLevelPerStretch() {
    Pcm pcm{1000, std::vector<std::int16_t>(20, 0)};
    pcm.samples.insert(pcm.samples.end(), 20, 3277);  // a tenth of full scale
    pcm.samples.insert(pcm.samples.end(), 19, 32767); // one sample short of a stretch
    const std::vector<double> envelope = envelopeDbfs(pcm);
    QCOMPARE(envelope.size(), std::size_t(2));
    QCOMPARE(envelope[0], -120.0);
    verifyNear(envelope[1], -20.0, 0.01);
}

void TestAudioAnalysis::sliceIsClippedToTheSound() {
    const Pcm pcm{10, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9}};
    QCOMPARE(slice(pcm, 0.2, 0.5).samples, (std::vector<std::int16_t>{2, 3, 4}));
    QCOMPARE(slice(pcm, 0.8, 5.0).samples, (std::vector<std::int16_t>{8, 9}));
    QCOMPARE(slice(pcm, -1.0, 0.1).samples, (std::vector<std::int16_t>{0}));
    QVERIFY(slice(pcm, 2.0, 3.0).samples.empty());
    QVERIFY(slice(pcm, 0.5, 0.2).samples.empty());
}

void TestAudioAnalysis::toneFrequencyIsFound_data() {
    QTest::addColumn<double>("hz");
    QTest::addColumn<int>("rate");
    QTest::newRow("middle of the band") << 1000.0 << 48000;
    QTest::newRow("between two bins") << 440.3 << 48000;
    QTest::newRow("low") << 67.0 << 48000;
    QTest::newRow("high") << 15000.0 << 48000;
    QTest::newRow("other rate") << 1234.5 << 44100;
}

void TestAudioAnalysis::toneFrequencyIsFound() {
    QFETCH(double, hz);
    QFETCH(int, rate);
    verifyNear(toneHz(sine(hz, 10000, rate, rate)), hz, 0.1);
}

void TestAudioAnalysis::toneLevelIsThePeakOfTheSineAlone() {
    Pcm pcm = sine(1000, 16384, rateHz);
    verifyNear(toneLevelDbfs(pcm, 1000), -6.02, 0.01);
    const Pcm louder = sine(3000, 16000, rateHz);
    for (std::size_t i = 0; i < pcm.samples.size(); ++i)
        pcm.samples[i] = std::int16_t(pcm.samples[i] + louder.samples[i]);
    verifyNear(toneLevelDbfs(pcm, 1000), -6.02, 0.01);
    QVERIFY(toneLevelDbfs(pcm, 2000) < -80.0);
}

void TestAudioAnalysis::toneShareOfAMixture() {
    verifyNear(toneShare(sine(1000, 10000, rateHz), 1000), 1.0, 1e-6);
    Pcm mixture = sine(1000, 10000, rateHz);
    const Pcm other = sine(1700, 5000, rateHz); // half the amplitude, a quarter of the power
    for (std::size_t i = 0; i < mixture.samples.size(); ++i)
        mixture.samples[i] = std::int16_t(mixture.samples[i] + other.samples[i]);
    verifyNear(toneShare(mixture, 1000), 0.8, 0.001);
    verifyNear(toneShare(mixture, 1700), 0.2, 0.001);
    QCOMPARE(toneShare(Pcm{}, 1000), 0.0);
}

void TestAudioAnalysis::toneShareFallsWhenAFrameIsLeftOut() {
    // 20 ms are 20.5 periods of 1025 Hz: the two halves end up in opposite phase and cancel each other.
    Pcm pcm = sine(1025, 10000, rateHz + 960);
    pcm.samples.erase(pcm.samples.begin() + rateHz / 2, pcm.samples.begin() + rateHz / 2 + 960);
    QVERIFY(toneShare(pcm, 1025) < 0.001);
}

void TestAudioAnalysis::gapIsTheLongestQuietRun() {
    Pcm pcm = sine(1000, 10000, rateHz);
    // The sine itself is below -40 dBFS (328 of 32768) for 2 asin(0.0328) / (2 pi 1000 Hz) = 10 us, not one whole
    // sample.
    verifyNear(longestGapMs(pcm, -40.0), 0.02, 0.03);
    silence(pcm, 200, 220);
    silence(pcm, 500, 505);
    verifyNear(longestGapMs(pcm, -40.0), 20.0, 0.1);
    QCOMPARE(longestGapMs(Pcm{8000, std::vector<std::int16_t>(800, 0)}, -40.0), 100.0);
}

void TestAudioAnalysis::comparisonFindsDelayAndLevel_data() {
    QTest::addColumn<int>("delaySamples");
    QTest::addColumn<double>("factor");
    QTest::addColumn<double>("db");
    QTest::newRow("at once, same level") << 0 << 1.0 << 0.0;
    QTest::newRow("100 ms, half") << 4800 << 0.5 << -6.02;
    QTest::newRow("1.5 s, a tenth") << 72000 << 0.1 << -20.0;
    QTest::newRow("one sample") << 1 << 1.0 << 0.0;
}

void TestAudioAnalysis::comparisonFindsDelayAndLevel() {
    QFETCH(int, delaySamples);
    QFETCH(double, factor);
    QFETCH(double, db);
    const Pcm said = noise(1, 2.0);
    const Comparison found = compare(said, delayed(scaled(said, factor), delaySamples), 2000);
    QCOMPARE(found.delayMs, delaySamples / 48.0);
    verifyNear(found.similarity, 1.0, 0.001);
    QCOMPARE(found.lossPercent, 0.0);
    verifyNear(found.heardDbfs - found.saidDbfs, db, 0.02);
    // Uniform noise of amplitude 8000 has an rms of 8000 / sqrt(3).
    verifyNear(found.saidDbfs, -17.02, 0.1);
}

void TestAudioAnalysis::somethingElseIsNotSimilar() {
    QVERIFY(compare(noise(1, 2.0), noise(2, 2.0), 1000).similarity < 0.1);
}

void TestAudioAnalysis::nothingHeardIsNotSimilarAndAllLost() {
    for (const Pcm &heard : {Pcm{}, Pcm{rateHz, std::vector<std::int16_t>(rateHz, 0)}}) {
        const Comparison found = compare(noise(1, 1.0), heard, 500);
        QCOMPARE(found.similarity, 0.0);
        QCOMPARE(found.lossPercent, 100.0);
        QCOMPARE(found.heardDbfs, -120.0);
    }
    QCOMPARE(compare(Pcm{}, noise(1, 1.0), 500).similarity, 0.0);
}

void TestAudioAnalysis::missingFramesAreCounted() {
    const Pcm said = noise(3, 2.0); // 100 frames
    Pcm heard = said;
    silence(heard, 400, 440);
    silence(heard, 1000, 1060);
    const Comparison found = compare(said, delayed(heard, 2400), 500);
    QCOMPARE(found.lossPercent, 5.0);
    // 2 of the 25 frames of the first half second are gone, 3 of the third: (sqrt(23/25) + 1 + sqrt(22/25) + 1) / 4.
    // less.
    verifyNear(found.similarity, 0.974, 0.005);
}

void TestAudioAnalysis::aSkippedFrameCostsLittleSimilarity() {
    const Pcm said = noise(4, 4.0);
    Pcm heard = said;
    heard.samples.erase(heard.samples.begin() + rateHz, heard.samples.begin() + rateHz + 960);
    // Of the half second around the cut a part no longer fits; the seven other pieces fit entirely.
    QVERIFY(compare(said, heard, 500).similarity > 0.9);
}

void TestAudioAnalysis::halfASentenceIsHalfSimilar() {
    const Pcm said = noise(5, 2.0);
    const Comparison found = compare(said, slice(said, 0.0, 1.0), 500);
    verifyNear(found.similarity, 0.5, 0.02);
    QCOMPARE(found.lossPercent, 50.0);
}

void TestAudioAnalysis::noiseOnTopLowersTheSimilarity() {
    const Pcm said = noise(6, 2.0);
    const Pcm other = noise(7, 2.0);
    Pcm heard = said;
    for (std::size_t i = 0; i < heard.samples.size(); ++i)
        heard.samples[i] = std::int16_t(heard.samples[i] + other.samples[i]);
    // As much noise as signal: 1 / sqrt(2).
    verifyNear(compare(said, heard, 500).similarity, 0.707, 0.02);
}

QTEST_APPLESS_MAIN(TestAudioAnalysis)
#include "tst_AudioAnalysis.moc"
