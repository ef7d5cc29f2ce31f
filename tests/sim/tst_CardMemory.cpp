#include "sim/card/CardMemory.h"

#include <QtTest>

#include <memory>

using namespace sim;

class TestCardMemory : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void framesAreNumberedByTheirTime_data();
    void framesAreNumberedByTheirTime();
    void aFrameIsFoundAtTheTimeItPasses_data();
    void aFrameIsFoundAtTheTimeItPasses();
    void whatWasPutIsFound();
    void whatWasPutOneLapAgoIsSilence();
};

void TestCardMemory::framesAreNumberedByTheirTime_data() {
    QTest::addColumn<qint64>("timeNs");
    QTest::addColumn<qint64>("rateHz");
    QTest::addColumn<qint64>("index");
    QTest::newRow("beginning") << Q_INT64_C(0) << Q_INT64_C(48000) << Q_INT64_C(0);
    QTest::newRow("just before the first frame ends") << Q_INT64_C(20833) << Q_INT64_C(48000) << Q_INT64_C(0);
    QTest::newRow("just after") << Q_INT64_C(20834) << Q_INT64_C(48000) << Q_INT64_C(1);
    QTest::newRow("a second and a half") << Q_INT64_C(1500000000) << Q_INT64_C(44100) << Q_INT64_C(66150);
    // 365 days: time * rate would not fit into 64 bits.
    QTest::newRow("a year up") << Q_INT64_C(31536000000000000) << Q_INT64_C(48000) << Q_INT64_C(1513728000000);
}

void TestCardMemory::framesAreNumberedByTheirTime() {
    QFETCH(qint64, timeNs);
    QFETCH(qint64, rateHz);
    QTEST(qint64(airIndex(timeNs, rateHz)), "index");
}

void TestCardMemory::aFrameIsFoundAtTheTimeItPasses_data() {
    QTest::addColumn<qint64>("rateHz");
    QTest::newRow("48000") << Q_INT64_C(48000);
    QTest::newRow("44100") << Q_INT64_C(44100);
}

void TestCardMemory::aFrameIsFoundAtTheTimeItPasses() {
    QFETCH(qint64, rateHz);
    for (qint64 index = 1'000'000'000'000; index < 1'000'000'050'000; ++index) {
        const qint64 timeNs = airTimeNs(index, rateHz);
        QCOMPARE(qint64(airIndex(timeNs, rateHz)), index);
        QCOMPARE(qint64(airIndex(timeNs - 1, rateHz)), index - 1);
    }
}

void TestCardMemory::whatWasPutIsFound() {
    const auto ring = std::make_unique<AirRing>();
    for (int sample = -32768; sample <= 32767; ++sample)
        ring->put(sample + 123'456'789, std::int16_t(sample));
    for (int sample = -32768; sample <= 32767; ++sample)
        QCOMPARE(int(ring->at(sample + 123'456'789)), sample);
}

void TestCardMemory::whatWasPutOneLapAgoIsSilence() {
    const auto ring = std::make_unique<AirRing>();
    ring->put(5000, 1234);
    QCOMPARE(int(ring->at(5000 + AirRing::frames)), 0);
    ring->put(5000 + AirRing::frames, -7);
    QCOMPARE(int(ring->at(5000 + AirRing::frames)), -7);
    QCOMPARE(int(ring->at(5000)), 0);
}

QTEST_APPLESS_MAIN(TestCardMemory)
#include "tst_CardMemory.moc"
