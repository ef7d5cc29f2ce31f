#include "audio/AutomaticGain.h"

#include <QtTest>

#include <cmath>
#include <vector>

namespace {

using Frame = std::vector<qint16>;

// A square wave: its rms is its amplitude, exactly.
Frame squareWave(int amplitude) {
    Frame frame(960);
    for (std::size_t i = 0; i < frame.size(); ++i)
        frame[i] = static_cast<qint16>(i % 2 == 0 ? amplitude : -amplitude);
    return frame;
}

Frame processed(AutomaticGain &agc, int amplitude) {
    Frame frame = squareWave(amplitude);
    agc.process(frame);
    return frame;
}

// Brings the factor to 10 - 9 * 0.98^frames.
void lift(AutomaticGain &agc, int frames) {
    for (int i = 0; i < frames; ++i)
        processed(agc, 500);
}

bool isNear(float gain, double expected) {
    if (std::abs(gain - expected) <= 1e-6 * expected)
        return true;
    qWarning() << "gain" << gain << "expected" << expected;
    return false;
}

} // namespace

class TestAutomaticGain : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void startsAtUnity();
    void risesByTwoPercentOfTheGap();
    void fallsByThirtyPercentOfTheGap();
    void scalesWithTheNewGainAndCutsTheFraction();
    void reachesItsTargetFromBelow();
    void leavesAQuietFrameAsItIs_data();
    void leavesAQuietFrameAsItIs();
    void driftsToTheCeilingOnAFaintTalker();
    void staysWithinTheCeiling();
    void comesDownFromTheCeiling();
    void clampsLoudSamplesAtBothEnds();
    void keepsItsGainFromFrameToFrame();
    void resetGoesBackToUnity();
    void takesAnEmptyFrame();
};

void TestAutomaticGain::startsAtUnity() {
    QCOMPARE(AutomaticGain().gain(), 1.0F);
}

void TestAutomaticGain::risesByTwoPercentOfTheGap() {
    AutomaticGain agc; // rms 1000: wanted 8.192
    processed(agc, 1000);
    QVERIFY(isNear(agc.gain(), 1.14384)); // 0.98 * 1 + 0.02 * 8.192
    processed(agc, 1000);
    QVERIFY(isNear(agc.gain(), 1.2848032)); // 0.98 * 1.14384 + 0.16384
    processed(agc, 1000);
    QVERIFY(isNear(agc.gain(), 1.422947136));
}

void TestAutomaticGain::fallsByThirtyPercentOfTheGap() {
    AutomaticGain agc; // rms 16384: wanted 0.5
    processed(agc, 16384);
    QVERIFY(isNear(agc.gain(), 0.85)); // 0.7 * 1 + 0.3 * 0.5
    processed(agc, 16384);
    QVERIFY(isNear(agc.gain(), 0.745));
    processed(agc, 16384);
    QVERIFY(isNear(agc.gain(), 0.6715));
}

void TestAutomaticGain::scalesWithTheNewGainAndCutsTheFraction() {
    AutomaticGain agc;
    const Frame louder = processed(agc, 1000); // 1143.84
    QCOMPARE(louder[0], qint16{1143});
    QCOMPARE(louder[1], qint16{-1143});

    agc.reset();
    const Frame softer = processed(agc, 16001); // wanted 0.511968..., gain 0.85359...: 13658.3
    QCOMPARE(softer[0], qint16{13658});
    QCOMPARE(softer[1], qint16{-13658});
}

void TestAutomaticGain::reachesItsTargetFromBelow() {
    AutomaticGain agc;
    Frame frame;
    for (int i = 0; i < 1000; ++i)
        frame = processed(agc, 1000);
    QVERIFY(std::abs(agc.gain() - 8.192F) < 1e-3F);
    QVERIFY(std::abs(frame[0] - 8192) <= 1);
}

void TestAutomaticGain::leavesAQuietFrameAsItIs_data() {
    QTest::addColumn<int>("amplitude");
    QTest::addColumn<bool>("isLeft");
    QTest::newRow("silence") << 0 << true;
    QTest::newRow("rms 20") << 20 << true;
    QTest::newRow("rms 32, just below -60 dBFS") << 32 << true;
    QTest::newRow("rms 33, just above -60 dBFS") << 33 << false;
}

void TestAutomaticGain::leavesAQuietFrameAsItIs() {
    QFETCH(int, amplitude);
    QFETCH(bool, isLeft);
    AutomaticGain agc;
    lift(agc, 40);
    const float before = agc.gain();
    QVERIFY(before > 5.0F);
    const Frame frame = processed(agc, amplitude);
    QCOMPARE(agc.gain() == before, isLeft);
    QCOMPARE(frame == squareWave(amplitude), isLeft);
}

void TestAutomaticGain::driftsToTheCeilingOnAFaintTalker() {
    AutomaticGain agc; // rms 500: wanted 16.4, beyond the ceiling
    processed(agc, 500);
    QVERIFY(isNear(agc.gain(), 1.18)); // 0.98 * 1 + 0.2
    processed(agc, 500);
    QVERIFY(isNear(agc.gain(), 1.3564));
    lift(agc, 98);
    QVERIFY(std::abs(agc.gain() - (10.0 - 9.0 * std::pow(0.98, 100))) < 1e-4);
}

void TestAutomaticGain::staysWithinTheCeiling() {
    AutomaticGain agc;
    for (int i = 0; i < 5000; ++i) {
        processed(agc, 40);
        QVERIFY(agc.gain() <= 10.0F);
    }
    QVERIFY(agc.gain() > 9.999F);
}

void TestAutomaticGain::comesDownFromTheCeiling() {
    AutomaticGain agc;
    lift(agc, 5000);
    processed(agc, 8192);                         // wanted 1
    QVERIFY(std::abs(agc.gain() - 7.3F) < 1e-3F); // 0.7 * 10 + 0.3
    processed(agc, 8192);
    QVERIFY(std::abs(agc.gain() - 5.41F) < 1e-3F);
}

void TestAutomaticGain::clampsLoudSamplesAtBothEnds() {
    AutomaticGain agc;
    lift(agc, 5000);
    const Frame frame = processed(agc, 8192); // by 7.3
    QCOMPARE(frame[0], qint16{32767});
    QCOMPARE(frame[1], qint16{-32768});
}

void TestAutomaticGain::keepsItsGainFromFrameToFrame() {
    AutomaticGain agc;
    processed(agc, 1000);
    processed(agc, 0); // a pause does not move it
    processed(agc, 1000);
    QVERIFY(isNear(agc.gain(), 1.2848032));
}

void TestAutomaticGain::resetGoesBackToUnity() {
    AutomaticGain agc;
    lift(agc, 10);
    agc.reset();
    QCOMPARE(agc.gain(), 1.0F);
}

void TestAutomaticGain::takesAnEmptyFrame() {
    AutomaticGain agc;
    agc.process({});
    QCOMPARE(agc.gain(), 1.0F);
}

QTEST_APPLESS_MAIN(TestAutomaticGain)
#include "tst_AutomaticGain.moc"
