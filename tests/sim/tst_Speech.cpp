#include "sim/member/Speech.h"

#include <QTest>

#include <numeric>

using namespace sim;

namespace {

constexpr std::int64_t ms = 1'000'000;

/// How many packets the speech gives at that time.
int packetsAt(Speech &speech, std::int64_t nowNs) {
    int packets = 0;
    while (speech.takeDue(nowNs))
        ++packets;
    return packets;
}

} // namespace

class TestSpeech : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void givesAPacketEveryFrameLength();
    void catchesUpAfterADelayWithoutDrift();
    void endsWhenTheLastFrameHasBeenSaid();
    void fillsTheLastFrame_data();
    void fillsTheLastFrame();
    void speaksAnyRate();
    void codesAtTheAgreedBitRate();
};

void TestSpeech::givesAPacketEveryFrameLength() {
    Speech speech(tone(1000, -6, 0.1));
    QVERIFY(!speech.hasBegun());
    speech.begin(500 * ms);
    QVERIFY(speech.hasBegun());
    QCOMPARE(packetsAt(speech, 500 * ms), 1);
    QCOMPARE(speech.nextNs(), 520 * ms);
    QCOMPARE(packetsAt(speech, 520 * ms - 1), 0);
    QCOMPARE(packetsAt(speech, 520 * ms), 1);
}

void TestSpeech::catchesUpAfterADelayWithoutDrift() {
    Speech speech(tone(1000, -6, 0.2));
    speech.begin(0);
    QCOMPARE(packetsAt(speech, 0), 1);
    QCOMPARE(packetsAt(speech, 79 * ms), 3); // those of 20, 40 and 60 ms
    QCOMPARE(speech.nextNs(), 80 * ms);
}

void TestSpeech::endsWhenTheLastFrameHasBeenSaid() {
    Speech speech(tone(1000, -6, 0.04));
    speech.begin(0);
    QCOMPARE(packetsAt(speech, 20 * ms), 2);
    QVERIFY(!speech.isOver(40 * ms - 1));
    QVERIFY(speech.isOver(40 * ms));
    QCOMPARE(packetsAt(speech, 1000 * ms), 0);
}

void TestSpeech::fillsTheLastFrame_data() {
    QTest::addColumn<int>("samples");
    QTest::addColumn<int>("packets");
    QTest::newRow("nothing") << 0 << 0;
    QTest::newRow("one sample") << 1 << 1;
    QTest::newRow("a frame") << 960 << 1;
    QTest::newRow("a frame and a sample") << 961 << 2;
}

void TestSpeech::fillsTheLastFrame() {
    QFETCH(int, samples);
    QFETCH(int, packets);
    Speech speech(Pcm{48000, std::vector<std::int16_t>(std::size_t(samples), 100)});
    speech.begin(0);
    QCOMPARE(packetsAt(speech, 1000 * ms), packets);
    QVERIFY(speech.isOver(1000 * ms));
}

void TestSpeech::speaksAnyRate() {
    Speech speech(tone(1000, -6, 1.0, 22050));
    speech.begin(0);
    QCOMPARE(packetsAt(speech, 5000 * ms), 50);
}

/// 32 kbit/s are 80 bytes in 20 ms, on average.
void TestSpeech::codesAtTheAgreedBitRate() {
    Speech speech(tone(1000, -6, 2.0));
    speech.begin(0);
    int bytes = 0;
    while (const auto packet = speech.takeDue(5000 * ms))
        bytes += packet->size();
    QVERIFY2(bytes > 100 * 60 && bytes < 100 * 100, qPrintable(QString::number(bytes)));
}

QTEST_APPLESS_MAIN(TestSpeech)
#include "tst_Speech.moc"
