#include "sim/show/TimelineSvg.h"

#include <QTest>
#include <QXmlStreamReader>

using namespace sim;

namespace {

constexpr std::int64_t second = 1'000'000'000;

struct Element {
    QString name;
    QXmlStreamAttributes attributes;
    QString text;

    double number(const char *key) const { return attributes.value(QLatin1String(key)).toDouble(); }
};

/// Every element of the picture, in order; empty when it is not well-formed.
QList<Element> elementsOf(const QByteArray &svg) {
    QXmlStreamReader xml(svg);
    QList<Element> elements;
    while (!xml.atEnd()) {
        if (xml.readNext() == QXmlStreamReader::StartElement)
            elements.append({xml.name().toString(), xml.attributes(), {}});
        else if (xml.isCharacters() && !elements.isEmpty())
            elements.last().text += xml.text().toString().trimmed();
    }
    return xml.hasError() ? QList<Element>() : elements;
}

QList<Element> named(const QList<Element> &elements, const char *name) {
    QList<Element> found;
    for (const Element &element : elements) {
        if (element.name == QLatin1String(name))
            found.append(element);
    }
    return found;
}

/// The bars of spans are the only rounded rectangles.
QList<Element> spanBars(const QByteArray &svg) {
    QList<Element> found;
    for (const Element &element : named(elementsOf(svg), "rect")) {
        if (element.attributes.hasAttribute(QStringLiteral("rx")))
            found.append(element);
    }
    return found;
}

QStringList textsOf(const QByteArray &svg) {
    QStringList texts;
    for (const Element &element : named(elementsOf(svg), "text"))
        texts.append(element.text);
    return texts;
}

} // namespace

class TestTimelineSvg : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aSpanIsABarAtItsTime();
    void aSpanOutsideTheViewIsCutOff();
    void louderIsHigher();
    void everyLaneHasItsTitleAndTheAxisItsSeconds();
    void namesAreEscaped();
};

void TestTimelineSvg::aSpanIsABarAtItsTime() {
    Timeline timeline(0);
    timeline.setState(QStringLiteral("PTT"), true, 3 * second);
    timeline.setState(QStringLiteral("PTT"), false, 4 * second);
    timeline.setView(2 * second, 12 * second);
    const QList<Element> bars = spanBars(timelineSvg(timeline, {}));
    QCOMPARE(bars.size(), 1);
    // One of the ten seconds in view has gone by when the span begins, and it lasts one: 98 of 980 pixels each.
    QCOMPARE(bars[0].number("x"), svgPlotLeft + 98.0);
    QCOMPARE(bars[0].number("width"), 98.0);
}

void TestTimelineSvg::aSpanOutsideTheViewIsCutOff() {
    Timeline timeline(0);
    timeline.setState(QStringLiteral("PTT"), true, second);
    timeline.setState(QStringLiteral("PTT"), false, 20 * second);
    timeline.setView(2 * second, 12 * second);
    const QList<Element> bars = spanBars(timelineSvg(timeline, {}));
    QCOMPARE(bars.size(), 1);
    QCOMPARE(bars[0].number("x"), svgPlotLeft);
    QCOMPARE(bars[0].number("width"), svgPlotWidth);
}

void TestTimelineSvg::louderIsHigher() {
    Timeline timeline(0);
    // 20 ms each of full scale (0 dBFS), of 32 / 32768 (just below -60 dBFS) and of 1036 / 32768 (-30 dBFS).
    Pcm pcm{1000, std::vector<std::int16_t>(20, -32768)};
    pcm.samples.insert(pcm.samples.end(), 20, 32);
    pcm.samples.insert(pcm.samples.end(), 20, 1036);
    timeline.addSound(QStringLiteral("sound"), QStringLiteral("said"), 0, pcm);
    timeline.setView(0, second);
    const QList<Element> paths = named(elementsOf(timelineSvg(timeline, {})), "path");
    QCOMPARE(paths.size(), 1);
    QStringList points = paths[0].attributes.value(QStringLiteral("d")).toString().split(QLatin1Char('L'));
    QCOMPARE(points.size(), 5); // from the base line, three levels, back to the base line
    const auto yOf = [&](int index) {
        return points[index].remove(QLatin1Char('Z')).section(QLatin1Char(' '), 1).toDouble();
    };
    const double base = yOf(0);
    const double height = base - yOf(1);
    QVERIFY(height > 50.0);
    QVERIFY(qAbs(base - yOf(2)) < 0.1);
    QVERIFY(qAbs(base - yOf(3) - height / 2) < 0.1);
    QCOMPARE(yOf(4), base);
}

void TestTimelineSvg::everyLaneHasItsTitleAndTheAxisItsSeconds() {
    Timeline timeline(0);
    timeline.addLane(QStringLiteral("COS"));
    timeline.addLane(QStringLiteral("PTT"));
    timeline.setView(5 * second / 2, 11 * second / 2);
    const QStringList texts = textsOf(timelineSvg(timeline, QStringLiteral("a heading")));
    for (const char *expected : {"a heading", "COS", "PTT", "3", "4", "5"})
        QVERIFY2(texts.contains(QLatin1String(expected)), expected);
    QVERIFY(!texts.contains(QStringLiteral("2")));
    QVERIFY(!texts.contains(QStringLiteral("6")));
}

void TestTimelineSvg::namesAreEscaped() {
    Timeline timeline(0);
    timeline.addLane(QStringLiteral("<a & b>"));
    timeline.setView(0, second);
    QVERIFY(textsOf(timelineSvg(timeline, {})).contains(QStringLiteral("<a & b>")));
}

QTEST_APPLESS_MAIN(TestTimelineSvg)
#include "tst_TimelineSvg.moc"
