#include "sim/show/Timeline.h"

#include <QTest>

using namespace sim;

namespace {

constexpr std::int64_t second = 1'000'000'000;
constexpr std::int64_t zero = 7 * second;

const auto ptt = QStringLiteral("PTT");
const auto squelch = QStringLiteral("COS");

} // namespace

class TestTimeline : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aStateLastsFromOnToOff();
    void repeatedStatesChangeNothing();
    void offBeforeAnyOnIsNoSpan();
    void aStateStillOnLastsToTheEndOfTheView();
    void lanesKeepTheOrderOfTheirFirstMention();
    void aSoundIsKeptAsItsEnvelope();
};

void TestTimeline::aStateLastsFromOnToOff() {
    Timeline timeline(zero);
    timeline.setState(ptt, true, zero + second);
    timeline.setState(ptt, false, zero + 5 * second / 2);
    timeline.setState(ptt, true, zero + 3 * second);
    timeline.setState(ptt, false, zero + 4 * second);
    const auto &spans = timeline.lanes().at(0).spans;
    QCOMPARE(spans.size(), std::size_t(2));
    QCOMPARE(spans[0].from, 1.0);
    QCOMPARE(spans[0].to, 2.5);
    QCOMPARE(spans[1].from, 3.0);
    QCOMPARE(spans[1].to, 4.0);
}

void TestTimeline::repeatedStatesChangeNothing() {
    Timeline timeline(zero);
    timeline.setState(ptt, true, zero + second);
    timeline.setState(ptt, true, zero + 2 * second);
    timeline.setState(ptt, false, zero + 3 * second);
    timeline.setState(ptt, false, zero + 4 * second);
    const auto &spans = timeline.lanes().at(0).spans;
    QCOMPARE(spans.size(), std::size_t(1));
    QCOMPARE(spans[0].from, 1.0);
    QCOMPARE(spans[0].to, 3.0);
}

void TestTimeline::offBeforeAnyOnIsNoSpan() {
    Timeline timeline(zero);
    timeline.setState(ptt, false, zero);
    QVERIFY(timeline.lanes().at(0).spans.empty());
}

void TestTimeline::aStateStillOnLastsToTheEndOfTheView() {
    Timeline timeline(zero);
    timeline.setState(ptt, true, zero + second);
    timeline.setView(zero, zero + 9 * second);
    QCOMPARE(timeline.lanes().at(0).spans.at(0).to, 9.0);
}

void TestTimeline::lanesKeepTheOrderOfTheirFirstMention() {
    Timeline timeline(zero);
    timeline.addLane(squelch);
    timeline.addLane(ptt);
    timeline.setState(squelch, true, zero);
    QCOMPARE(timeline.lanes().size(), std::size_t(2));
    QCOMPARE(timeline.lanes()[0].title, squelch);
    QCOMPARE(timeline.lanes()[1].title, ptt);
}

void TestTimeline::aSoundIsKeptAsItsEnvelope() {
    Timeline timeline(zero);
    Pcm pcm{1000, std::vector<std::int16_t>(20, 0)};
    pcm.samples.insert(pcm.samples.end(), 20, -32768);
    timeline.addSound(squelch, QStringLiteral("said"), zero + second / 2, pcm);
    const Timeline::Trace &trace = timeline.lanes().at(0).traces.at(0);
    QCOMPARE(trace.name, QStringLiteral("said"));
    QCOMPARE(trace.from, 0.5);
    QCOMPARE(trace.envelopeDbfs, (std::vector<double>{-120.0, 0.0}));
}

QTEST_APPLESS_MAIN(TestTimeline)
#include "tst_Timeline.moc"
