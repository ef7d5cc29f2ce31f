#include "audio/ToneControl.h"

#include <QtTest>

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <limits>
#include <numbers>
#include <random>
#include <utility>
#include <vector>

namespace {

using Frame = std::vector<qint16>;
using Complex = std::complex<double>;

constexpr double pi = std::numbers::pi;

enum class Band { Low, Middle, High };

struct Corner {
    double frequencyHz;
    double q;
};

Corner cornerOf(Band band) {
    if (band == Band::Middle)
        return {1000.0, 0.9};
    return {band == Band::Low ? 150.0 : 3000.0, std::numbers::sqrt2 / 2.0}; // shelf slope 1
}

// The cookbook's analogue prototypes, reached through the bilinear transform: no coefficient in sight.
double expectedDb(Band band, double gainDb, double frequencyHz, int rateHz) {
    const double a = std::pow(10.0, gainDb / 40.0);
    const double cornerHz = cornerOf(band).frequencyHz;
    const double q = cornerOf(band).q;
    const Complex s(0.0, std::tan(pi * frequencyHz / rateHz) / std::tan(pi * cornerHz / rateHz));
    const Complex slope = std::sqrt(a) / q * s;
    const auto response = [&]() -> Complex {
        switch (band) {
        case Band::Low:
            return a * (s * s + slope + a) / (a * s * s + slope + 1.0);
        case Band::Middle:
            return (s * s + s * a / q + 1.0) / (s * s + s / (a * q) + 1.0);
        default:
            return a * (a * s * s + slope + 1.0) / (s * s + slope + a);
        }
    };
    return 20.0 * std::log10(std::abs(response()));
}

Biquad designed(Band band, float gainDb, int rateHz) {
    const Corner corner = cornerOf(band);
    const auto frequencyHz = static_cast<float>(corner.frequencyHz);
    if (band == Band::Middle)
        return peaking(gainDb, frequencyHz, static_cast<float>(corner.q), rateHz);
    return band == Band::Low ? lowShelf(gainDb, frequencyHz, rateHz) : highShelf(gainDb, frequencyHz, rateHz);
}

// One section written out, term by term.
class Section {
public:
    explicit Section(const Biquad &biquad) : m_c(biquad) {}

    float process(float x) {
        const float y = m_c.b0 * x + m_c.b1 * m_x1 + m_c.b2 * m_x2 - m_c.a1 * m_y1 - m_c.a2 * m_y2;
        m_x2 = std::exchange(m_x1, x);
        m_y2 = std::exchange(m_y1, y);
        return y;
    }

private:
    Biquad m_c;
    float m_x1 = 0.0F, m_x2 = 0.0F, m_y1 = 0.0F, m_y2 = 0.0F;
};

// From a quarter of a second of the impulse response.
double measuredDb(const Biquad &biquad, double frequencyHz, int rateHz) {
    Section filter(biquad);
    Complex sum;
    for (int n = 0; n < rateHz / 4; ++n) {
        const double sample = filter.process(n == 0 ? 1.0F : 0.0F);
        sum += sample * std::polar(1.0, -2.0 * pi * frequencyHz * n / rateHz);
    }
    return 20.0 * std::log10(std::abs(sum));
}

Frame sine(double amplitude, double frequencyHz, int rateHz, int samples) {
    Frame frame(samples);
    for (int n = 0; n < samples; ++n)
        frame[n] = static_cast<qint16>(std::lround(amplitude * std::sin(2.0 * pi * frequencyHz * n / rateHz)));
    return frame;
}

Frame noise(int samples, int amplitude = 12000) {
    std::mt19937 generator(7);
    std::uniform_int_distribution<int> value(-amplitude, amplitude);
    Frame frame(samples);
    std::generate(frame.begin(), frame.end(), [&] { return static_cast<qint16>(value(generator)); });
    return frame;
}

ToneControl toneControl(float bass, float mid, float treble, int rateHz) {
    ToneControl control;
    control.set(bass, mid, treble, rateHz);
    return control;
}

Frame processed(ToneControl &control, Frame frame) {
    control.process(frame);
    return frame;
}

// Amplitude of the component at a frequency, over the second half of the frame, when filters have settled.
double amplitudeAt(const Frame &frame, double frequencyHz, int rateHz) {
    Complex sum;
    const std::size_t half = frame.size() / 2;
    for (std::size_t n = half; n < frame.size(); ++n)
        sum += double(frame[n]) * std::polar(1.0, -2.0 * pi * frequencyHz * double(n) / rateHz);
    return 2.0 * std::abs(sum) / double(frame.size() - half);
}

// The cookbook's coefficients written out once more, and one section after the other.
class WrittenOut {
public:
    WrittenOut(float bass, float mid, float treble, int rateHz)
        : m_sections{shelf(bass, 150.0F, rateHz, 1.0F), peak(mid, rateHz), shelf(treble, 3000.0F, rateHz, -1.0F)} {}

    Frame process(Frame frame) {
        for (qint16 &sample : frame) {
            float value = sample;
            for (Section &section : m_sections)
                value = section.process(value);
            sample = static_cast<qint16>(std::clamp(value, -32767.0F, 32767.0F));
        }
        return frame;
    }

private:
    static Section divided(float b0, float b1, float b2, float a0, float a1, float a2) {
        return Section({b0 / a0, b1 / a0, b2 / a0, a1 / a0, a2 / a0});
    }

    // The high shelf is the low shelf with the cosine's and the odd terms' signs turned.
    static Section shelf(float gainDb, float f0, int rateHz, float sign) {
        const float a = powf(10.0F, gainDb / 40.0F);
        const float w0 = 2.0F * float(pi) * f0 / float(rateHz);
        const float c = sign * cosf(w0);
        const float t = 2.0F * sqrtf(a) * (sinf(w0) / 2.0F * sqrtf(2.0F));
        return divided(a * ((a + 1.0F) - (a - 1.0F) * c + t), sign * 2.0F * a * ((a - 1.0F) - (a + 1.0F) * c),
                       a * ((a + 1.0F) - (a - 1.0F) * c - t), (a + 1.0F) + (a - 1.0F) * c + t,
                       sign * -2.0F * ((a - 1.0F) + (a + 1.0F) * c), (a + 1.0F) + (a - 1.0F) * c - t);
    }

    static Section peak(float gainDb, int rateHz) {
        const float a = powf(10.0F, gainDb / 40.0F);
        const float w0 = 2.0F * float(pi) * 1000.0F / float(rateHz);
        const float alpha = sinf(w0) / (2.0F * 0.9F);
        return divided(1.0F + alpha * a, -2.0F * cosf(w0), 1.0F - alpha * a, 1.0F + alpha / a, -2.0F * cosf(w0),
                       1.0F - alpha / a);
    }

    std::array<Section, 3> m_sections;
};

} // namespace

class TestToneControl : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aNewCascadePassesEverythingThrough();
    void filtersFollowTheCookbook_data();
    void filtersFollowTheCookbook();
    void isFlatUntilSet();
    void settingsAreHeldWithinTwelveDb_data();
    void settingsAreHeldWithinTwelveDb();
    void aFlatControlLeavesEverySampleAsItIs();
    void shapesSpeechFrequencies_data();
    void shapesSpeechFrequencies();
    void bandsAtZeroPassThroughBesideABandThatIsNot();
    void samplesAreThoseOfTheWrittenSums_data();
    void samplesAreThoseOfTheWrittenSums();
    void framesJoinWithoutASeam();
    void settingClearsTheFilterStates();
    void clampsBothEndsAlike();
    void survivesAbsurdRates_data();
    void survivesAbsurdRates();
    void decaysIntoSilenceAndAnswersAsEverAfterwards();
    void takesAnEmptyFrame();
};

void TestToneControl::aNewCascadePassesEverythingThrough() {
    BiquadCascade cascade;
    Frame frame = noise(960);
    cascade.process(frame);
    QCOMPARE(frame, noise(960));
}

void TestToneControl::filtersFollowTheCookbook_data() {
    QTest::addColumn<int>("band");
    QTest::addColumn<float>("gainDb");
    QTest::addColumn<int>("rateHz");
    const char *names[] = {"low shelf", "peak", "high shelf"};
    for (const int band : {0, 1, 2}) {
        for (const float gainDb : {-12.0F, -7.5F, -3.0F, 0.0F, 0.5F, 3.0F, 6.0F, 12.0F}) {
            for (const int rateHz : {8000, 16000, 44100, 48000})
                QTest::addRow("%s %g dB at %d Hz", names[band], double(gainDb), rateHz) << band << gainDb << rateHz;
        }
    }
}

void TestToneControl::filtersFollowTheCookbook() {
    QFETCH(int, band);
    QFETCH(float, gainDb);
    QFETCH(int, rateHz);
    const auto which = static_cast<Band>(band);
    const Biquad filter = designed(which, gainDb, rateHz);
    for (const double hz : {30.0, 80.0, 150.0, 220.0, 400.0, 700.0, 1000.0, 1400.0, 2000.0, 2600.0, 3000.0, 3600.0}) {
        const double difference = measuredDb(filter, hz, rateHz) - expectedDb(which, gainDb, hz, rateHz);
        // Single precision shows where the frequency is small against the rate.
        QVERIFY2(std::abs(difference) < 0.01, qPrintable(QStringLiteral("%1 dB off at %2 Hz").arg(difference).arg(hz)));
    }
}

void TestToneControl::isFlatUntilSet() {
    QVERIFY(ToneControl().isFlat());
    QVERIFY(toneControl(0.0F, 0.0F, 0.0F, 48000).isFlat());
    QVERIFY(!toneControl(3.0F, 0.0F, 0.0F, 48000).isFlat());
    QVERIFY(!toneControl(0.0F, 0.1F, 0.0F, 48000).isFlat());
    QVERIFY(!toneControl(0.0F, 0.0F, -0.1F, 48000).isFlat());
}

void TestToneControl::settingsAreHeldWithinTwelveDb_data() {
    QTest::addColumn<float>("given");
    QTest::addColumn<float>("held");
    QTest::newRow("above") << 20.0F << 12.0F;
    QTest::newRow("below") << -30.0F << -12.0F;
    QTest::newRow("within") << 5.0F << 5.0F;
    QTest::newRow("upper end") << 12.0F << 12.0F;
    QTest::newRow("lower end") << -12.0F << -12.0F;
    QTest::newRow("infinite") << std::numeric_limits<float>::infinity() << 12.0F;
    QTest::newRow("no number") << std::numeric_limits<float>::quiet_NaN() << 0.0F;
}

void TestToneControl::settingsAreHeldWithinTwelveDb() {
    QFETCH(float, given);
    QFETCH(float, held);
    const ToneControl control = toneControl(given, given, given, 48000);
    QCOMPARE(control.bass(), held);
    QCOMPARE(control.mid(), held);
    QCOMPARE(control.treble(), held);
}

void TestToneControl::aFlatControlLeavesEverySampleAsItIs() {
    ToneControl control = toneControl(0.0F, 0.0F, 0.0F, 48000);
    const Frame frame{-32768, -32767, -1, 0, 1, 32767};
    QCOMPARE(processed(control, frame), frame);
}

void TestToneControl::shapesSpeechFrequencies_data() {
    QTest::addColumn<float>("bass");
    QTest::addColumn<float>("mid");
    QTest::addColumn<float>("treble");
    QTest::newRow("bass up") << 12.0F << 0.0F << 0.0F;
    QTest::newRow("bass down") << -12.0F << 0.0F << 0.0F;
    QTest::newRow("mid up") << 0.0F << 9.0F << 0.0F;
    QTest::newRow("treble down") << 0.0F << 0.0F << -6.0F;
    QTest::newRow("all") << 4.0F << -5.0F << 6.0F;
}

void TestToneControl::shapesSpeechFrequencies() {
    QFETCH(float, bass);
    QFETCH(float, mid);
    QFETCH(float, treble);
    constexpr int rateHz = 48000;
    for (const double hz : {50.0, 150.0, 500.0, 1000.0, 3000.0, 8000.0}) {
        ToneControl control = toneControl(bass, mid, treble, rateHz);
        const Frame output = processed(control, sine(4000.0, hz, rateHz, rateHz));
        const double gainDb = 20.0 * std::log10(amplitudeAt(output, hz, rateHz) / 4000.0);
        const double expected = expectedDb(Band::Low, bass, hz, rateHz) + expectedDb(Band::Middle, mid, hz, rateHz) +
                                expectedDb(Band::High, treble, hz, rateHz);
        QVERIFY2(std::abs(gainDb - expected) < 0.02, qPrintable(QStringLiteral("%1 at %2 Hz").arg(gainDb).arg(hz)));
    }
}

void TestToneControl::bandsAtZeroPassThroughBesideABandThatIsNot() {
    ToneControl control = toneControl(3.0F, 0.0F, 0.0F, 48000);
    const Frame input = noise(4800);
    const Frame output = processed(control, input);
    Section bassAlone(lowShelf(3.0F, 150.0F, 48000));
    for (std::size_t n = 0; n < input.size(); ++n)
        QVERIFY(std::abs(bassAlone.process(input[n]) - float(output[n])) < 1.1F); // rounding, then the cut fraction
}

void TestToneControl::samplesAreThoseOfTheWrittenSums_data() {
    QTest::addColumn<float>("bass");
    QTest::addColumn<float>("mid");
    QTest::addColumn<float>("treble");
    QTest::addColumn<int>("rateHz");
    QTest::newRow("bass alone") << 3.0F << 0.0F << 0.0F << 48000;
    QTest::newRow("mid alone") << 0.0F << -4.5F << 0.0F << 44100;
    QTest::newRow("treble alone") << 0.0F << 0.0F << 7.0F << 16000;
    QTest::newRow("all up") << 12.0F << 12.0F << 12.0F << 48000;
    QTest::newRow("all down") << -12.0F << -12.0F << -12.0F << 8000;
    QTest::newRow("mixed") << 2.5F << -3.0F << 6.0F << 44100;
}

void TestToneControl::samplesAreThoseOfTheWrittenSums() {
    QFETCH(float, bass);
    QFETCH(float, mid);
    QFETCH(float, treble);
    QFETCH(int, rateHz);
    ToneControl control = toneControl(bass, mid, treble, rateHz);
    WrittenOut written(bass, mid, treble, rateHz);
    for (const Frame &frame : {noise(960), noise(960, 32767), sine(30000.0, 440.0, rateHz, 4800)})
        QCOMPARE(processed(control, frame), written.process(frame));
    for (const int size : {1, 2, 3, 4, 5, 6, 7, 1, 0, 2, 960})
        QCOMPARE(processed(control, noise(size)), written.process(noise(size)));
}

void TestToneControl::framesJoinWithoutASeam() {
    ToneControl whole = toneControl(6.0F, -3.0F, 4.0F, 48000);
    ToneControl pieces = whole;
    const Frame input = noise(1920);
    const Frame expected = processed(whole, input);
    Frame joined;
    for (auto piece = input.begin(); piece != input.end(); piece += 480) {
        const Frame output = processed(pieces, Frame(piece, piece + 480));
        joined.insert(joined.end(), output.begin(), output.end());
    }
    QCOMPARE(joined, expected);
}

void TestToneControl::settingClearsTheFilterStates() {
    ToneControl used = toneControl(12.0F, 0.0F, 0.0F, 48000);
    processed(used, noise(960));
    used.set(6.0F, 1.0F, 2.0F, 48000);
    ToneControl fresh = toneControl(6.0F, 1.0F, 2.0F, 48000);
    QCOMPARE(processed(used, noise(960)), processed(fresh, noise(960)));
}

void TestToneControl::clampsBothEndsAlike() {
    ToneControl control = toneControl(12.0F, 0.0F, 0.0F, 48000);
    const Frame output = processed(control, sine(32767.0, 50.0, 48000, 9600));
    QCOMPARE(*std::max_element(output.begin(), output.end()), qint16{32767});
    QCOMPARE(*std::min_element(output.begin(), output.end()), qint16{-32767});
}

void TestToneControl::survivesAbsurdRates_data() {
    QTest::addColumn<int>("rateHz");
    QTest::newRow("none") << 0;
    QTest::newRow("negative") << -48000;
    QTest::newRow("one") << 1;
    QTest::newRow("treble corner at half the rate") << 6000;
    QTest::newRow("lowest") << 8000;
    QTest::newRow("highest") << std::numeric_limits<int>::max();
}

void TestToneControl::survivesAbsurdRates() {
    QFETCH(int, rateHz);
    ToneControl control = toneControl(12.0F, -12.0F, 12.0F, rateHz);
    for (int i = 0; i < 50; ++i)
        processed(control, noise(960));
    Frame tail;
    for (int i = 0; i < 50; ++i)
        tail = processed(control, Frame(960, 0));
    if (rateHz <= 8000)
        QCOMPARE(tail, Frame(960, 0));
    control.set(3.0F, 0.0F, 0.0F, 48000);
    ToneControl fresh = toneControl(3.0F, 0.0F, 0.0F, 48000);
    QCOMPARE(processed(control, noise(960)), processed(fresh, noise(960)));
}

void TestToneControl::decaysIntoSilenceAndAnswersAsEverAfterwards() {
    ToneControl control = toneControl(-9.0F, 5.0F, 3.0F, 48000);
    WrittenOut written(-9.0F, 5.0F, 3.0F, 48000);
    for (const int silentFrames : {1, 2, 5, 20, 100, 1}) {
        QCOMPARE(processed(control, noise(960)), written.process(noise(960)));
        for (int i = 0; i < silentFrames; ++i)
            QCOMPARE(processed(control, Frame(960, 0)), written.process(Frame(960, 0)));
    }
    for (int pause = 0; pause < 2000; ++pause) { // cut into the decay at every depth
        QCOMPARE(processed(control, noise(96)), written.process(noise(96)));
        QCOMPARE(processed(control, Frame(pause, 0)), written.process(Frame(pause, 0)));
    }
}

void TestToneControl::takesAnEmptyFrame() {
    ToneControl control = toneControl(3.0F, 0.0F, 0.0F, 48000);
    QVERIFY(processed(control, {}).empty());
}

QTEST_APPLESS_MAIN(TestToneControl)
#include "tst_ToneControl.moc"
