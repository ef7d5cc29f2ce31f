#include "sim/show/Display.h"

#include <QTest>

class TestDisplay : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void meterBarIsLinearInDecibels_data();
    void meterBarIsLinearInDecibels();
};

void TestDisplay::meterBarIsLinearInDecibels_data() {
    QTest::addColumn<double>("dbfs");
    QTest::addColumn<QString>("bar");
    QTest::newRow("silence") << -120.0 << QStringLiteral("......");
    QTest::newRow("bottom") << -60.0 << QStringLiteral("......");
    QTest::newRow("a sixth") << -50.0 << QStringLiteral("#.....");
    QTest::newRow("half") << -30.0 << QStringLiteral("###...");
    QTest::newRow("full") << 0.0 << QStringLiteral("######");
    QTest::newRow("beyond") << 3.0 << QStringLiteral("######");
}

void TestDisplay::meterBarIsLinearInDecibels() {
    QFETCH(double, dbfs);
    QFETCH(QString, bar);
    QCOMPARE(sim::meterBar(dbfs, 6), bar);
}

QTEST_APPLESS_MAIN(TestDisplay)
#include "tst_Display.moc"
