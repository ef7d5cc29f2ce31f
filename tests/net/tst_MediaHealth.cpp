#include "net/MediaHealth.h"

#include <QtTest>

Q_DECLARE_METATYPE(MediaHealth)

class TestMediaHealth : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void judges_data();
    void judges();
};

void TestMediaHealth::judges_data() {
    QTest::addColumn<qint64>("silentMs");
    QTest::addColumn<bool>("wasHeard");
    QTest::addColumn<bool>("socketBad");
    QTest::addColumn<MediaHealth>("health");
    QTest::newRow("just heard") << qint64{0} << true << false << MediaHealth::Good;
    QTest::newRow("20 s") << qint64{20000} << true << false << MediaHealth::Good;
    QTest::newRow("over 20 s") << qint64{20001} << true << false << MediaHealth::Quiet;
    QTest::newRow("90 s") << qint64{90000} << true << false << MediaHealth::Quiet;
    QTest::newRow("over 90 s") << qint64{90001} << true << false << MediaHealth::Failed;
    QTest::newRow("socket bad, just heard") << qint64{0} << true << true << MediaHealth::Failed;
    QTest::newRow("never heard") << qint64{0} << false << false << MediaHealth::Good;
    QTest::newRow("never heard, socket bad") << qint64{0} << false << true << MediaHealth::Failed;
}

void TestMediaHealth::judges() {
    QFETCH(qint64, silentMs);
    QFETCH(bool, wasHeard);
    QFETCH(bool, socketBad);
    constexpr qint64 nowMs = 1'700'000'000'000;
    QTEST(judgeMediaHealth(nowMs, wasHeard ? nowMs - silentMs : 0, socketBad), "health");
}

QTEST_GUILESS_MAIN(TestMediaHealth)
#include "tst_MediaHealth.moc"
