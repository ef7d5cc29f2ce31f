#include "../support/CountedAllocations.h"
#include "EngineOnCard.h"
#include "Talker.h"

#include <QTest>

#include <cstdlib>
#include <new>

class TestAudioAllocations : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void countsWhatIsAllocated();
    void sendsAFrameWithFewAllocations_data();
    void sendsAFrameWithFewAllocations();
    void receivesAFrameWithFewAllocations_data();
    void receivesAFrameWithFewAllocations();
};

#if KIVO_COUNTS_ALLOCATIONS

namespace {

void useEveryStage(AudioEngine &engine) {
    engine.setMicGain(80);
    engine.setSpeakerGain(80);
    engine.setAgcEnabled(true);
    engine.setTotDuration(180);
    engine.setTxTone(3, -2, 4);
    engine.setRxTone(3, -2, 4);
    engine.setEncryptionKey(QByteArray(32, 'k').toBase64());
}

} // namespace

void TestAudioAllocations::initTestCase() {}

void TestAudioAllocations::countsWhatIsAllocated() {
    void *volatile blocks[3] = {}; // volatile, or the compiler leaves the pairs out
    const long count = allocationsOf([&] {
        blocks[0] = ::operator new(100);
        blocks[1] = std::malloc(100);
        blocks[2] = std::realloc(nullptr, 100);
    });
    ::operator delete(blocks[0]);
    std::free(blocks[1]);
    std::free(blocks[2]);
    QCOMPARE(count, 3L);
}

void TestAudioAllocations::sendsAFrameWithFewAllocations_data() {
    QTest::addColumn<int>("minChannels");
    QTest::newRow("mono") << 1;
    QTest::newRow("stereo only") << 2;
}

void TestAudioAllocations::sendsAFrameWithFewAllocations() {
    QFETCH(int, minChannels);
    EngineOnCard site({.minChannels = minChannels});
    useEveryStage(site.engine);
    site.sent.reserve(10000);
    QVERIFY(site.engine.openCapture());
    site.card.feed(sim::tone(1000, -10, 3));
    QTRY_VERIFY(site.sent.size() > 5);
    site.timer("capturePoll")->stop();
    long worst = 0;
    for (size_t frame = 0; frame < 50; ++frame) {
        const size_t sentBefore = site.sent.size();
        const auto sendsOne = [&] {
            worst = std::max(worst, allocationsOf([&] { site.engine.onInputReadyRead(); }));
            return site.sent.size() > sentBefore;
        };
        QVERIFY(QTest::qWaitFor(sendsOne, 1000));
    }
    QVERIFY2(worst <= 3, qPrintable(QString::number(worst)));
}

void TestAudioAllocations::receivesAFrameWithFewAllocations_data() {
    QTest::addColumn<int>("rateHz");
    QTest::addColumn<int>("minChannels");
    QTest::newRow("48000 Hz mono") << 48000 << 1;
    QTest::newRow("stereo only") << 48000 << 2;
    QTest::newRow("44100 Hz") << 44100 << 1;
}

void TestAudioAllocations::receivesAFrameWithFewAllocations() {
    QFETCH(int, rateHz);
    QFETCH(int, minChannels);
    EngineOnCard site({.rateHz = rateHz, .minChannels = minChannels});
    useEveryStage(site.engine);
    QVERIFY(site.engine.openPlayback());
    site.timer("output")->stop();
    long worst = 0;
    int frame = 0;
    for (const QByteArray &packet : Talker().say(sim::tone(1000, -10, 1))) {
        const QByteArray sealed = site.engine.sealFrame(packet);
        const long count = allocationsOf([&] {
            site.engine.onAudioReceivedFrom(sealed, 42);
            site.engine.onOutputBufferTimer();
        });
        if (++frame > 15) { // buffers have found their size
            worst = std::max(worst, count);
        }
    }
    QCOMPARE(frame, 50);
    QVERIFY2(worst <= 3, qPrintable(QString::number(worst)));
}

#else

void TestAudioAllocations::initTestCase() {
    QSKIP("the address sanitizer has a heap of its own");
}
void TestAudioAllocations::countsWhatIsAllocated() {}
void TestAudioAllocations::sendsAFrameWithFewAllocations_data() {}
void TestAudioAllocations::sendsAFrameWithFewAllocations() {}
void TestAudioAllocations::receivesAFrameWithFewAllocations_data() {}
void TestAudioAllocations::receivesAFrameWithFewAllocations() {}

#endif

QTEST_GUILESS_MAIN(TestAudioAllocations)
#include "tst_AudioAllocations.moc"
