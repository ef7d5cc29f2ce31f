#include "sim/show/Report.h"

#include <QTest>

using namespace sim;

class TestReport : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aSentenceIsHeardFromTheThresholdOn_data();
    void aSentenceIsHeardFromTheThresholdOn();
    void aHeardSentenceShowsItsFigures();
    void anUnheardSentenceShowsNoDelayAndNoLoss();
};

void TestReport::aSentenceIsHeardFromTheThresholdOn_data() {
    QTest::addColumn<double>("similarity");
    QTest::addColumn<bool>("heard");
    QTest::newRow("nothing") << 0.0 << false;
    QTest::newRow("just below") << 0.699 << false;
    QTest::newRow("just there") << 0.7 << true;
    QTest::newRow("the same") << 1.0 << true;
}

void TestReport::aSentenceIsHeardFromTheThresholdOn() {
    QFETCH(double, similarity);
    QFETCH(bool, heard);
    Passage passage;
    passage.comparison.similarity = similarity;
    QCOMPARE(passage.wasHeard(), heard);
}

void TestReport::aHeardSentenceShowsItsFigures() {
    const QString table = reportTable({{QStringLiteral("radio to room"), {61.4, 0.956, 1.25, -20.06, -22.0}}});
    const QStringList lines = table.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 2);
    QCOMPARE(lines[0].simplified(), QStringLiteral("direction heard delay level said level heard loss similarity"));
    QCOMPARE(lines[1].simplified(), QStringLiteral("radio to room yes 61 ms -20.1 dBFS -22.0 dBFS 1.3 % 0.96"));
    QCOMPARE(lines[0].size(), lines[1].size());
}

void TestReport::anUnheardSentenceShowsNoDelayAndNoLoss() {
    const QString table = reportTable({{QStringLiteral("room to radio"), {61.4, 0.31, 4.0, -20.1, -22.0}}});
    QCOMPARE(table.section(QLatin1Char('\n'), 1, 1).simplified(),
             QStringLiteral("room to radio NO - -20.1 dBFS - - 0.31"));
}

QTEST_APPLESS_MAIN(TestReport)
#include "tst_Report.moc"
