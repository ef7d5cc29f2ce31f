#include "audio/DueTicks.h"

#include <QTest>

#include <vector>

class TestDueTicks : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void tellsWhatIsDue_data();
    void tellsWhatIsDue();
    void keepsToTheClockHoweverLateItsTicksAre();
};

using Numbers = std::vector<int>;
Q_DECLARE_METATYPE(Numbers)

void TestDueTicks::tellsWhatIsDue_data() {
    QTest::addColumn<int>("intervalMs");
    QTest::addColumn<Numbers>("atMs"); // since the start
    QTest::addColumn<Numbers>("due");
    QTest::newRow("on time") << 20 << Numbers{20, 40, 60} << Numbers{1, 1, 1};
    QTest::newRow("a little early and late") << 20 << Numbers{19, 43, 59, 88, 100} << Numbers{1, 1, 1, 1, 1};
    QTest::newRow("one left out") << 20 << Numbers{20, 61, 80} << Numbers{1, 2, 1};
    QTest::newRow("three left out") << 20 << Numbers{20, 100, 120} << Numbers{1, 4, 1};
    QTest::newRow("the timer in a new phase behind a stall") << 20 << Numbers{20, 75, 95, 115} << Numbers{1, 3, 1, 1};
    QTest::newRow("as many as are made up for") << 20 << Numbers{200, 220} << Numbers{10, 1};
    QTest::newRow("more than that") << 20 << Numbers{230, 250, 270} << Numbers{1, 1, 1};
    QTest::newRow("the clock jumps ahead") << 20 << Numbers{20, 100'000'000, 100'000'020} << Numbers{1, 1, 1};
    QTest::newRow("the clock jumps back") << 20 << Numbers{20, -100'000'000, -99'999'980} << Numbers{1, 1, 1};
    QTest::newRow("a clock that stands still") << 20 << Numbers{0, 0, 0, 0} << Numbers{1, 1, 1, 1};
    QTest::newRow("long frames") << 120 << Numbers{120, 380, 480} << Numbers{1, 2, 1};
    QTest::newRow("the shortest") << 1 << Numbers{1, 2, 7} << Numbers{1, 1, 5};
}

void TestDueTicks::tellsWhatIsDue() {
    QFETCH(int, intervalMs);
    QFETCH(Numbers, atMs);
    QFETCH(Numbers, due);
    constexpr qint64 startMs = 1'700'000'000'000;
    DueTicks ticks;
    ticks.start(startMs, intervalMs);
    Numbers taken;
    for (const int ms : atMs)
        taken.push_back(ticks.take(startMs + ms));
    QCOMPARE(taken, due);
}

/// A tick every 21 ms, for an hour.
void TestDueTicks::keepsToTheClockHoweverLateItsTicksAre() {
    DueTicks ticks;
    ticks.start(0, 20);
    qint64 taken = 0;
    for (qint64 nowMs = 21; nowMs <= 3'600'000; nowMs += 21)
        taken += ticks.take(nowMs);
    QVERIFY(qAbs(taken - 180'000) <= 1);
}

QTEST_APPLESS_MAIN(TestDueTicks)
#include "tst_DueTicks.moc"
