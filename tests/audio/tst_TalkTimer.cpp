#include "audio/TalkTimer.h"

#include <QtTest>

namespace {

constexpr qint64 start = 1'700'000'000'000;

} // namespace

class TestTalkTimer : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void isIdleAtFirst();
    void firstPacketOfAnyTalkerIsNew();
    void aStreamOfPacketsIsOneTransmission();
    void aPauseOfHalfASecondEndsATransmission_data();
    void aPauseOfHalfASecondEndsATransmission();
    void pausesAreCountedFromTheLastPacket();
    void alternatingTalkersStartOverOnEverySwitch();
    void theNextPacketAfterExpiryStartsOver();
    void expiryHoldsUntilTheNextPacket();
    void anotherTalkerStartsOverAfterExpiry();
};

void TestTalkTimer::isIdleAtFirst() {
    const TalkTimer timer;
    QCOMPARE(timer.talker(), 0U);
    QVERIFY(!timer.isExpired());
}

void TestTalkTimer::firstPacketOfAnyTalkerIsNew() {
    TalkTimer known;
    QVERIFY(known.packet(42, start).newTransmission);
    QCOMPARE(known.talker(), 42U);

    // An unknown talker bears the number of the idle timer; it is the long time since "no packet" that makes it new.
    TalkTimer unknown;
    QVERIFY(unknown.packet(0, start).newTransmission);
    QCOMPARE(unknown.talker(), 0U);
}

void TestTalkTimer::aStreamOfPacketsIsOneTransmission() {
    TalkTimer timer;
    QVERIFY(timer.packet(42, start).newTransmission);
    for (qint64 ms = 20; ms <= 60'000; ms += 20)
        QVERIFY(!timer.packet(42, start + ms).newTransmission);
}

void TestTalkTimer::aPauseOfHalfASecondEndsATransmission_data() {
    QTest::addColumn<qint64>("pauseMs");
    QTest::addColumn<bool>("isNew");
    QTest::newRow("none") << qint64{0} << false;
    QTest::newRow("one frame") << qint64{20} << false;
    QTest::newRow("just short") << qint64{499} << false;
    QTest::newRow("half a second") << qint64{500} << true;
    QTest::newRow("a minute") << qint64{60'000} << true;
}

void TestTalkTimer::aPauseOfHalfASecondEndsATransmission() {
    QFETCH(qint64, pauseMs);
    QFETCH(bool, isNew);
    TalkTimer timer;
    timer.packet(42, start);
    QCOMPARE(timer.packet(42, start + pauseMs).newTransmission, isNew);
}

void TestTalkTimer::pausesAreCountedFromTheLastPacket() {
    TalkTimer timer;
    timer.packet(42, start);
    QVERIFY(!timer.packet(42, start + 400).newTransmission);
    QVERIFY(!timer.packet(42, start + 800).newTransmission);
    QVERIFY(timer.packet(42, start + 1300).newTransmission);
    QVERIFY(!timer.packet(42, start + 1799).newTransmission);
}

void TestTalkTimer::alternatingTalkersStartOverOnEverySwitch() {
    TalkTimer timer;
    for (qint64 ms = 0; ms < 400; ms += 20) {
        const quint32 talker = ms % 40 == 0 ? 42 : 7;
        QVERIFY(timer.packet(talker, start + ms).newTransmission);
        QCOMPARE(timer.talker(), talker);
    }
}

void TestTalkTimer::theNextPacketAfterExpiryStartsOver() {
    TalkTimer timer;
    timer.packet(42, start);
    timer.packet(42, start + 20);
    timer.expire();
    QVERIFY(timer.packet(42, start + 40).newTransmission);
    QVERIFY(!timer.isExpired());
    QCOMPARE(timer.talker(), 42U);
    QVERIFY(!timer.packet(42, start + 60).newTransmission);
}

void TestTalkTimer::expiryHoldsUntilTheNextPacket() {
    TalkTimer timer;
    timer.packet(42, start);
    QVERIFY(!timer.isExpired());
    timer.expire();
    QVERIFY(timer.isExpired());
    QCOMPARE(timer.talker(), 42U);
}

void TestTalkTimer::anotherTalkerStartsOverAfterExpiry() {
    TalkTimer timer;
    timer.packet(42, start);
    timer.expire();
    QVERIFY(timer.packet(7, start + 20).newTransmission);
    QVERIFY(!timer.isExpired());
    QCOMPARE(timer.talker(), 7U);
}

QTEST_APPLESS_MAIN(TestTalkTimer)
#include "tst_TalkTimer.moc"
