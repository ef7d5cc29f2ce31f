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
    void whatPassesWhileNobodyLooksIsNoPause();
    void anotherTalkerStartsOverAfterExpiry();
};

void TestTalkTimer::isIdleAtFirst() {
    const TalkTimer timer;
    QCOMPARE(timer.talker(), 0U);
}

void TestTalkTimer::firstPacketOfAnyTalkerIsNew() {
    TalkTimer known;
    QVERIFY(known.packet(42, start));
    QCOMPARE(known.talker(), 42U);

    // An unknown talker bears the number of the idle timer; it is the long time since "no packet" that makes it new.
    TalkTimer unknown;
    QVERIFY(unknown.packet(0, start));
    QCOMPARE(unknown.talker(), 0U);
}

void TestTalkTimer::aStreamOfPacketsIsOneTransmission() {
    TalkTimer timer;
    QVERIFY(timer.packet(42, start));
    for (qint64 ms = 20; ms <= 60'000; ms += 20)
        QVERIFY(!timer.packet(42, start + ms));
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
    QCOMPARE(timer.packet(42, start + pauseMs), isNew);
}

void TestTalkTimer::pausesAreCountedFromTheLastPacket() {
    TalkTimer timer;
    timer.packet(42, start);
    QVERIFY(!timer.packet(42, start + 400));
    QVERIFY(!timer.packet(42, start + 800));
    QVERIFY(timer.packet(42, start + 1300));
    QVERIFY(!timer.packet(42, start + 1799));
}

void TestTalkTimer::alternatingTalkersStartOverOnEverySwitch() {
    TalkTimer timer;
    for (qint64 ms = 0; ms < 400; ms += 20) {
        const quint32 talker = ms % 40 == 0 ? 42 : 7;
        QVERIFY(timer.packet(talker, start + ms));
        QCOMPARE(timer.talker(), talker);
    }
}

void TestTalkTimer::theNextPacketAfterExpiryStartsOver() {
    TalkTimer timer;
    timer.packet(42, start);
    timer.packet(42, start + 20);
    timer.expire();
    QVERIFY(timer.packet(42, start + 40));
    QCOMPARE(timer.talker(), 42U);
    QVERIFY(!timer.packet(42, start + 60));
}

void TestTalkTimer::whatPassesWhileNobodyLooksIsNoPause() {
    TalkTimer timer;
    timer.packet(42, start);
    timer.heldUp(1000);
    QVERIFY(!timer.packet(42, start + 1499));
    timer.heldUp(1000);
    QVERIFY(timer.packet(42, start + 1499 + 1500));
}

void TestTalkTimer::anotherTalkerStartsOverAfterExpiry() {
    TalkTimer timer;
    timer.packet(42, start);
    timer.expire();
    QVERIFY(timer.packet(7, start + 20));
    QCOMPARE(timer.talker(), 7U);
}

QTEST_APPLESS_MAIN(TestTalkTimer)
#include "tst_TalkTimer.moc"
