#include "sim/show/TimelineSvg.h"

#include <QXmlStreamWriter>

#include <algorithm>
#include <array>
#include <cmath>
#include <initializer_list>
#include <utility>

namespace sim {
namespace {

constexpr double pictureWidth = 1220.0;
constexpr double headingHeight = 78.0;
constexpr double soundHeight = 130.0;
constexpr double stateHeight = 30.0;
constexpr double laneGap = 14.0;
constexpr double axisHeight = 52.0;
constexpr double floorDbfs = -60.0;
constexpr double frameSeconds = 0.02;

const std::array traceColours{QLatin1String("#aebac6"), QLatin1String("#1769aa")};
const std::array stateColours{QLatin1String("#2e8b57"), QLatin1String("#d9822b"), QLatin1String("#7a5ea8"),
                              QLatin1String("#c23b4b")};

const auto styleSheet =
    QLatin1String("text{font-family:'Helvetica Neue',Arial,'DejaVu Sans',sans-serif;font-size:13px;fill:#333f4a}"
                  ".heading{font-size:19px;font-weight:bold}.small{font-size:11px;fill:#66727d}"
                  ".frame{fill:none;stroke:#d5dce2}.grid{stroke:#d5dce2}");

using Attributes = std::initializer_list<std::pair<const char *, QString>>;

QString number(double value) {
    return QString::number(value, 'f', 2);
}

class Painter {
public:
    Painter(const Timeline &timeline, QByteArray *svg) : m_timeline(timeline), m_xml(svg) {}
    void draw(const QString &heading);

private:
    void attributes(const Attributes &values);
    void element(const char *name, const Attributes &values);
    void text(double x, double y, const QString &words, const Attributes &values = {});
    void line(double x1, double y1, double x2, double y2);
    void drawHeading(const QString &heading);
    void drawLegend();
    void drawLanes();
    void drawSoundLane(const Timeline::Lane &lane);
    void drawLevelScale();
    void drawTrace(const Timeline::Trace &trace, std::size_t index);
    void drawStateLane(const Timeline::Lane &lane);
    void drawSpan(const Timeline::Span &span, const QString &colour);
    void drawTimeAxis(double bottom);
    double xAt(double seconds) const;
    double yAt(double dbfs) const;
    static double heightOf(const Timeline::Lane &lane) { return lane.traces.empty() ? stateHeight : soundHeight; }

    const Timeline &m_timeline;
    QXmlStreamWriter m_xml;
    double m_top = headingHeight; ///< of the lane being drawn
    std::size_t m_statesDrawn = 0;
};

void Painter::attributes(const Attributes &values) {
    for (const auto &[key, value] : values)
        m_xml.writeAttribute(QLatin1String(key), value);
}

void Painter::element(const char *name, const Attributes &values) {
    m_xml.writeEmptyElement(QLatin1String(name));
    attributes(values);
}

void Painter::text(double x, double y, const QString &words, const Attributes &values) {
    m_xml.writeStartElement(QStringLiteral("text"));
    attributes({{"x", number(x)}, {"y", number(y)}});
    attributes(values);
    m_xml.writeCharacters(words);
    m_xml.writeEndElement();
}

void Painter::line(double x1, double y1, double x2, double y2) {
    element("line", {{"x1", number(x1)},
                     {"y1", number(y1)},
                     {"x2", number(x2)},
                     {"y2", number(y2)},
                     {"class", QStringLiteral("grid")}});
}

double Painter::xAt(double seconds) const {
    const Timeline::Span view = m_timeline.view();
    const double share = (seconds - view.from) / std::max(view.to - view.from, 1e-3);
    return svgPlotLeft + svgPlotWidth * std::clamp(share, 0.0, 1.0);
}

double Painter::yAt(double dbfs) const {
    return m_top + soundHeight * std::clamp(dbfs / floorDbfs, 0.0, 1.0);
}

void Painter::draw(const QString &heading) {
    double bottom = headingHeight;
    for (const Timeline::Lane &lane : m_timeline.lanes())
        bottom += heightOf(lane) + laneGap;
    m_xml.setAutoFormatting(true);
    m_xml.writeStartElement(QStringLiteral("svg"));
    m_xml.writeDefaultNamespace(QStringLiteral("http://www.w3.org/2000/svg"));
    attributes({{"viewBox", QStringLiteral("0 0 %1 %2").arg(number(pictureWidth), number(bottom + axisHeight))}});
    m_xml.writeTextElement(QStringLiteral("style"), styleSheet);
    element("rect",
            {{"width", QStringLiteral("100%")}, {"height", QStringLiteral("100%")}, {"fill", QStringLiteral("#fff")}});
    drawHeading(heading);
    drawTimeAxis(bottom - laneGap);
    drawLanes();
    m_xml.writeEndElement();
}

void Painter::drawHeading(const QString &heading) {
    text(24, 34, heading, {{"class", QStringLiteral("heading")}});
    drawLegend();
}

void Painter::drawLegend() {
    const std::array names{QStringLiteral("as said"), QStringLiteral("as heard at the other end")};
    double x = svgPlotLeft;
    for (std::size_t i = 0; i < names.size(); ++i) {
        element("rect", {{"x", number(x)},
                         {"y", QStringLiteral("50")},
                         {"width", QStringLiteral("14")},
                         {"height", QStringLiteral("12")},
                         {"fill", traceColours[i]},
                         {"fill-opacity", i == 0 ? QStringLiteral("1") : QStringLiteral("0.6")}});
        text(x + 20, 60.5, names[i]);
        x += 100;
    }
}

void Painter::drawLanes() {
    for (const Timeline::Lane &lane : m_timeline.lanes()) {
        const double height = heightOf(lane);
        element("rect", {{"x", number(svgPlotLeft)},
                         {"y", number(m_top)},
                         {"width", number(svgPlotWidth)},
                         {"height", number(height)},
                         {"class", QStringLiteral("frame")}});
        text(24, m_top + (lane.traces.empty() ? height / 2 + 4.5 : 16), lane.title);
        lane.traces.empty() ? drawStateLane(lane) : drawSoundLane(lane);
        m_top += height + laneGap;
    }
}

void Painter::drawSoundLane(const Timeline::Lane &lane) {
    drawLevelScale();
    for (std::size_t i = 0; i < lane.traces.size(); ++i)
        drawTrace(lane.traces[i], i);
}

void Painter::drawLevelScale() {
    for (const double dbfs : {0.0, -20.0, -40.0, -60.0}) {
        line(svgPlotLeft, yAt(dbfs), svgPlotLeft + svgPlotWidth, yAt(dbfs));
        const QString unit = dbfs == 0.0 ? QStringLiteral(" dBFS") : QString();
        text(svgPlotLeft - 8, yAt(dbfs) + 4, QString::number(dbfs, 'f', 0) + unit,
             {{"class", QStringLiteral("small")}, {"text-anchor", QStringLiteral("end")}});
    }
}

void Painter::drawTrace(const Timeline::Trace &trace, std::size_t index) {
    QString path = QStringLiteral("M%1 %2").arg(number(xAt(trace.from)), number(yAt(floorDbfs)));
    double seconds = trace.from;
    for (const double dbfs : trace.envelopeDbfs) {
        path += QStringLiteral("L%1 %2").arg(number(xAt(seconds + frameSeconds / 2)), number(yAt(dbfs)));
        seconds += frameSeconds;
    }
    path += QStringLiteral("L%1 %2Z").arg(number(xAt(seconds)), number(yAt(floorDbfs)));
    element("path", {{"d", path},
                     {"fill", traceColours[index % traceColours.size()]},
                     {"fill-opacity", index == 0 ? QStringLiteral("1") : QStringLiteral("0.6")}});
}

void Painter::drawStateLane(const Timeline::Lane &lane) {
    const QString colour = stateColours[m_statesDrawn++ % stateColours.size()];
    for (const Timeline::Span &span : lane.spans)
        drawSpan(span, colour);
}

void Painter::drawSpan(const Timeline::Span &span, const QString &colour) {
    const double left = xAt(span.from);
    const double right = xAt(span.to);
    element("rect", {{"x", number(left)},
                     {"y", number(m_top + 4)},
                     {"width", number(right - left)},
                     {"height", number(stateHeight - 8)},
                     {"rx", QStringLiteral("3")},
                     {"fill", colour}});
    const QString duration = QStringLiteral("%1 s").arg(span.to - span.from, 0, 'f', 2);
    if (right - left > 50.0) {
        text((left + right) / 2, m_top + stateHeight / 2 + 4, duration,
             {{"text-anchor", QStringLiteral("middle")}, {"style", QStringLiteral("fill:#fff;font-size:11px")}});
    }
}

/// Whole seconds, so far apart that no more than 20 fit.
double tickStep(double seconds) {
    for (const double step : {1.0, 2.0, 5.0, 10.0, 30.0}) {
        if (seconds / step <= 20.0)
            return step;
    }
    return 60.0;
}

void Painter::drawTimeAxis(double bottom) {
    const Timeline::Span view = m_timeline.view();
    const double step = tickStep(view.to - view.from);
    for (int tick = int(std::ceil(view.from / step)); tick * step <= view.to; ++tick) {
        const double seconds = tick * step;
        line(xAt(seconds), headingHeight, xAt(seconds), bottom + 6);
        text(xAt(seconds), bottom + 21, QString::number(seconds, 'f', 0),
             {{"class", QStringLiteral("small")}, {"text-anchor", QStringLiteral("middle")}});
    }
    text(svgPlotLeft + svgPlotWidth / 2, bottom + 42, QStringLiteral("seconds since the site was started"),
         {{"text-anchor", QStringLiteral("middle")}});
}

} // namespace

QByteArray timelineSvg(const Timeline &timeline, const QString &heading) {
    QByteArray svg;
    Painter(timeline, &svg).draw(heading);
    return svg;
}

} // namespace sim
