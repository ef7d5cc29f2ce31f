#pragma once

#include "sim/show/Timeline.h"

#include <QByteArray>
#include <QString>

namespace sim {

/// Where the drawing area begins and how wide it is, in the picture's pixels.
constexpr double svgPlotLeft = 200.0;
constexpr double svgPlotWidth = 980.0;

/// The timeline as a picture, UTF-8 text of an SVG file. Lanes with sounds show their envelopes from -60 to 0 dBFS on
/// top of one another, the others a bar for each span; the view's stretch fills the width of the drawing area.
QByteArray timelineSvg(const Timeline &timeline, const QString &heading);

} // namespace sim
