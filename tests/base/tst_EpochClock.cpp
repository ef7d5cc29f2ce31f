#include "base/EpochClock.h"

#include <QDateTime>
#include <QTest>

class TestEpochClock : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void startsFromTheWallClock() {
        const qint64 before = QDateTime::currentMSecsSinceEpoch();
        const qint64 now = steadyEpochMs();
        const qint64 after = QDateTime::currentMSecsSinceEpoch();
        QVERIFY2(now >= before - 1 && now <= after + 1, "a step of the wall clock during this test?");
    }

    void neverGoesBack() {
        qint64 last = steadyEpochMs();
        for (int i = 0; i < 100'000; ++i) {
            const qint64 now = steadyEpochMs();
            QVERIFY(now >= last);
            last = now;
        }
    }

    void countsRealTime() {
        const qint64 start = steadyEpochMs();
        QTRY_VERIFY_WITH_TIMEOUT(steadyEpochMs() >= start + 50, 5000);
    }
};

QTEST_APPLESS_MAIN(TestEpochClock)
#include "tst_EpochClock.moc"
