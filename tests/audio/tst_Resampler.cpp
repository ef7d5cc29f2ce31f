#include "audio/Resampler.h"

#include <QtTest>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <random>
#include <vector>

namespace {

using Samples = std::vector<qint16>;

constexpr double pi = std::numbers::pi;
constexpr std::array<int, 6> rates{8000, 12000, 16000, 24000, 44100, 48000};

double sinc(double x) {
    return std::sin(pi * x) / (pi * x);
}

double weightAt(double d) {
    if (d == 0.0)
        return 1.0;
    return std::abs(d) >= 4.0 ? 0.0 : sinc(d) * sinc(d / 4.0);
}

// The formula as it stands, every weight computed where it is used.
Samples directly(const Samples &in, int fromRate, int toRate) {
    const double ratio = double(toRate) / double(fromRate);
    Samples out(std::lround(double(in.size()) * ratio));
    for (std::size_t n = 0; n < out.size(); ++n) {
        const double p = double(n) / ratio;
        const double base = std::floor(p);
        double sum = 0.0;
        double weights = 0.0;
        for (int k = -3; k <= 4; ++k) {
            const long index = long(base) + k;
            if (index < 0 || index >= long(in.size()))
                continue;
            const double weight = weightAt(p - base - k);
            sum += weight * in[index];
            weights += weight;
        }
        out[n] = static_cast<qint16>(std::clamp(weights > 1e-10 ? sum / weights : 0.0, -32768.0, 32767.0));
    }
    return out;
}

Samples converted(Resampler &resampler, const Samples &in, int fromRate, int toRate) {
    Samples out;
    resampler.convert(in, fromRate, toRate, out);
    return out;
}

Samples converted(const Samples &in, int fromRate, int toRate) {
    Resampler resampler;
    return converted(resampler, in, fromRate, toRate);
}

Samples noise(std::size_t size, unsigned seed = 11) {
    std::mt19937 generator(seed);
    std::uniform_int_distribution<int> value(-32768, 32767);
    Samples samples(size);
    std::generate(samples.begin(), samples.end(), [&] { return static_cast<qint16>(value(generator)); });
    return samples;
}

Samples fullScaleSquare(std::size_t size) {
    Samples samples(size);
    for (std::size_t i = 0; i < size; ++i)
        samples[i] = i / 5 % 2 == 0 ? 32767 : -32768;
    return samples;
}

Samples sine(double amplitude, double frequencyHz, int rateHz, int samples) {
    Samples frame(samples);
    for (int n = 0; n < samples; ++n)
        frame[n] = static_cast<qint16>(std::lround(amplitude * std::sin(2.0 * pi * frequencyHz * n / rateHz)));
    return frame;
}

QByteArray bytesOf(const Samples &samples) {
    return {reinterpret_cast<const char *>(samples.data()), static_cast<int>(samples.size() * 2)};
}

// The same on every platform, unlike the standard distributions.
Samples unevenSamples(std::size_t size) {
    Samples samples(size);
    quint32 state = 1;
    for (qint16 &sample : samples) {
        state = state * 1664525U + 1013904223U;
        sample = static_cast<qint16>(state >> 16U);
    }
    return samples;
}

// FNV-1a, low byte first.
void mix(quint32 &hash, const Samples &samples) {
    for (const qint16 sample : samples) {
        hash = (hash ^ (static_cast<quint16>(sample) & 0xFFU)) * 16777619U;
        hash = (hash ^ (static_cast<quint16>(sample) >> 8U)) * 16777619U;
    }
}

void addRatePairs() {
    QTest::addColumn<int>("fromRate");
    QTest::addColumn<int>("toRate");
    for (const int from : rates) {
        for (const int to : rates)
            QTest::addRow("%d to %d", from, to) << from << to;
    }
}

} // namespace

class TestResampler : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void givesTheFormulasSamples_data() { addRatePairs(); }
    void givesTheFormulasSamples();
    void givesTheFormulasSamplesForEveryFrameLength_data() { addRatePairs(); }
    void givesTheFormulasSamplesForEveryFrameLength();
    void givesTheFormulasSamplesForLongInput();
    void givesTheSameWhateverCameBefore();
    void bytesAndSamplesAgree();
    void keepsASineWhatItWas_data();
    void keepsASineWhatItWas();
    void outputLengthIsRounded_data();
    void outputLengthIsRounded();
    void leavesTheInputAsItIs_data();
    void leavesTheInputAsItIs();
    void leavesAnOddLastByteAloneWhenNothingIsConverted();
    void replacesWhatTheOutputHeld();
    void survivesAbsurdRates();
    void givesTheSameSamplesOnEveryProcessor();
};

void TestResampler::givesTheFormulasSamples() {
    QFETCH(int, fromRate);
    QFETCH(int, toRate);
    const std::size_t frame = fromRate / 50;
    Resampler resampler; // one for all: the second frame is made with the first one's weights
    for (const Samples &in : {noise(frame), noise(frame, 12), fullScaleSquare(frame), Samples(frame, 1000),
                              Samples(frame, -32768), Samples(frame, 0), sine(32767.0, 997.0, fromRate, int(frame))})
        QCOMPARE(converted(resampler, in, fromRate, toRate), fromRate == toRate ? in : directly(in, fromRate, toRate));
}

void TestResampler::givesTheFormulasSamplesForEveryFrameLength() {
    QFETCH(int, fromRate);
    QFETCH(int, toRate);
    if (fromRate == toRate)
        return;
    for (const int size : {4, 5, 6, 7, 8, 9, 10, 15, fromRate / 400, fromRate / 25, fromRate * 3 / 25})
        QCOMPARE(converted(noise(size), fromRate, toRate), directly(noise(size), fromRate, toRate));
}

void TestResampler::givesTheFormulasSamplesForLongInput() {
    const Samples seconds = noise(100'001);
    QCOMPARE(converted(seconds, 44100, 48000), directly(seconds, 44100, 48000));
    QCOMPARE(converted(seconds, 48000, 11025), directly(seconds, 48000, 11025));
    QCOMPARE(converted(noise(5), 1, 20'000), directly(noise(5), 1, 20'000));
}

void TestResampler::givesTheSameWhateverCameBefore() {
    Resampler resampler;
    const auto agrees = [&](int size, int fromRate, int toRate) {
        return converted(resampler, noise(size), fromRate, toRate) == directly(noise(size), fromRate, toRate);
    };
    for (const int toRate : {44100, 8000, 47999, 96000}) {
        for (const int size : {960, 480, 160, 961, 960, 961}) // another length at the same rates
            QVERIFY(agrees(size, 48000, toRate));
    }
    for (const int fromRate : {48000, 24000, 48000}) // the same length at other rates
        QVERIFY(agrees(960, fromRate, 44100));
}

void TestResampler::bytesAndSamplesAgree() {
    Resampler resampler;
    const Samples in = noise(960);
    const QByteArray expected = bytesOf(directly(in, 48000, 44100));
    QCOMPARE(resampler.convert(bytesOf(in), 48000, 44100), expected);
    QCOMPARE(resampler.convert(bytesOf(in) + 'x', 48000, 44100), expected);
}

// A band-limited signal at the new rate is the same curve read at other points. What the eight taps lose grows with the
// frequency's share of the lower rate.
void TestResampler::keepsASineWhatItWas_data() {
    QTest::addColumn<int>("fromRate");
    QTest::addColumn<int>("toRate");
    QTest::addColumn<double>("share");
    QTest::addColumn<double>("leastDb");
    for (const int from : rates) {
        for (const int to : rates) {
            if (from == to)
                continue;
            QTest::addRow("%d to %d, low", from, to) << from << to << 0.02 << 55.0;
            QTest::addRow("%d to %d, middle", from, to) << from << to << 0.1 << 40.0;
            QTest::addRow("%d to %d, high", from, to) << from << to << 0.25 << 30.0;
        }
    }
}

void TestResampler::keepsASineWhatItWas() {
    QFETCH(int, fromRate);
    QFETCH(int, toRate);
    QFETCH(double, share);
    QFETCH(double, leastDb);
    const double frequencyHz = share * std::min(fromRate, toRate);
    const Samples out = converted(sine(30000.0, frequencyHz, fromRate, fromRate / 10), fromRate, toRate);
    double signal = 0.0;
    double error = 0.0;
    const std::size_t edge = 10UL * toRate / fromRate + 10;
    for (std::size_t n = edge; n + edge < out.size(); ++n) {
        const double ideal = 30000.0 * std::sin(2.0 * pi * frequencyHz * double(n) / toRate);
        signal += ideal * ideal;
        error += (ideal - out[n]) * (ideal - out[n]);
    }
    const double db = 10.0 * std::log10(signal / error);
    QVERIFY2(db > leastDb, qPrintable(QStringLiteral("%1 dB").arg(db)));
}

void TestResampler::outputLengthIsRounded_data() {
    QTest::addColumn<int>("samples");
    QTest::addColumn<int>("fromRate");
    QTest::addColumn<int>("toRate");
    QTest::addColumn<int>("expected");
    QTest::newRow("a frame to 44100") << 960 << 48000 << 44100 << 882;
    QTest::newRow("a frame from 44100") << 882 << 44100 << 48000 << 960;
    QTest::newRow("half rounds up") << 3 << 2 << 1 << 2;
    QTest::newRow("above half") << 7 << 48000 << 12000 << 2;
    QTest::newRow("below half") << 9 << 48000 << 12000 << 2;
    QTest::newRow("just one") << 2 << 48000 << 12000 << 1;
    QTest::newRow("six for one") << 160 << 8000 << 48000 << 960;
}

void TestResampler::outputLengthIsRounded() {
    QFETCH(int, samples);
    QFETCH(int, fromRate);
    QFETCH(int, toRate);
    QFETCH(int, expected);
    QCOMPARE(int(converted(noise(samples), fromRate, toRate).size()), expected);
    QCOMPARE(Resampler::outputSamples(samples, fromRate, toRate), qint64{expected});
}

void TestResampler::leavesTheInputAsItIs_data() {
    QTest::addColumn<int>("samples");
    QTest::addColumn<int>("fromRate");
    QTest::addColumn<int>("toRate");
    QTest::newRow("equal rates") << 960 << 48000 << 48000;
    QTest::newRow("no source rate") << 960 << 0 << 48000;
    QTest::newRow("negative source rate") << 960 << -8000 << 48000;
    QTest::newRow("no target rate") << 960 << 48000 << 0;
    QTest::newRow("negative target rate") << 960 << 48000 << -1;
    QTest::newRow("nothing") << 0 << 48000 << 44100;
    QTest::newRow("one sample") << 1 << 48000 << 44100;
    QTest::newRow("output shorter than half a sample") << 2 << 48000 << 8000;
    QTest::newRow("output beyond all bounds") << 960 << 1 << std::numeric_limits<int>::max();
}

void TestResampler::leavesTheInputAsItIs() {
    QFETCH(int, samples);
    QFETCH(int, fromRate);
    QFETCH(int, toRate);
    const Samples in = noise(samples);
    QCOMPARE(converted(in, fromRate, toRate), in);
    Resampler resampler;
    QCOMPARE(resampler.convert(bytesOf(in), fromRate, toRate), bytesOf(in));
}

void TestResampler::leavesAnOddLastByteAloneWhenNothingIsConverted() {
    Resampler resampler;
    const QByteArray odd(961, 'x');
    QCOMPARE(resampler.convert(odd, 48000, 48000), odd);
    QCOMPARE(resampler.convert(QByteArray(3, 'x'), 48000, 44100), QByteArray(3, 'x'));
}

void TestResampler::replacesWhatTheOutputHeld() {
    Resampler resampler;
    Samples out(5000, 77);
    resampler.convert(noise(960), 48000, 44100, out);
    QCOMPARE(out, directly(noise(960), 48000, 44100));
    resampler.convert(noise(960), 48000, 48000, out);
    QCOMPARE(out, noise(960));
}

void TestResampler::survivesAbsurdRates() {
    const int highest = std::numeric_limits<int>::max();
    QCOMPARE(converted(noise(960), highest, 1), noise(960)); // less than half a sample
    QCOMPARE(int(converted(noise(960), highest - 1, highest).size()), 960);
    QCOMPARE(converted(noise(2), 1, 48000), directly(noise(2), 1, 48000));
}

// A steady level sits exactly where the fraction is cut off, so that the last bit of any weight shows in the samples.
// The expected value is FNV-1a over all samples, computed by another program in another language from the formula, on
// x86-64.
void TestResampler::givesTheSameSamplesOnEveryProcessor() {
#ifdef __x86_64__
    if (!__builtin_cpu_supports("fma"))
        QSKIP("the C library's sine differs in the last bit on processors without FMA");
#endif
    quint32 hash = 2166136261U;
    for (const int from : rates) {
        for (const int to : rates) {
            if (from == to)
                continue;
            mix(hash, converted(Samples(from / 50, 1000), from, to));
            mix(hash, converted(unevenSamples(from / 50), from, to));
        }
    }
    QCOMPARE(hash, 0xC1265CC3U);
}

QTEST_APPLESS_MAIN(TestResampler)
#include "tst_Resampler.moc"
