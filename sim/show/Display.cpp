#include "sim/show/Display.h"

#include "sim/MonotonicClock.h"

#include <QByteArray>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <unistd.h>

namespace sim {
namespace {

constexpr double floorDbfs = -60.0;
constexpr int barWidth = 12;
constexpr std::int64_t meterLinePeriodNs = 500'000'000;

QString meterText(const Display::Meter &meter) {
    const QString level =
        meter.dbfs > floorDbfs ? QStringLiteral("%1 dB").arg(meter.dbfs, 0, 'f', 0) : QStringLiteral("-");
    return QStringLiteral("%1 [%2] %3").arg(meter.name, meterBar(meter.dbfs, barWidth), level.rightJustified(6));
}

} // namespace

QString meterBar(double dbfs, int width) {
    const int filled = std::clamp(int(std::lround(width * (1.0 - dbfs / floorDbfs))), 0, width);
    return QString(filled, QLatin1Char('#')) + QString(width - filled, QLatin1Char('.'));
}

bool Display::isTerminal() {
    return isatty(STDOUT_FILENO) == 1;
}

void Display::showEvent(const QString &who, const QString &what) {
    print(QStringLiteral("%1  %2  %3\n").arg(stamp(), who.leftJustified(7), what));
}

void Display::showMeters(const std::vector<Meter> &meters) {
    QString line;
    for (const Meter &meter : meters)
        line += (line.isEmpty() ? QString() : QStringLiteral("   ")) + meterText(meter);
    if (isTerminal()) {
        // With nothing to show and nothing to take away, what the user may be typing there stays.
        const bool isNews = !line.isEmpty() || !m_meterLine.isEmpty();
        m_meterLine = line.isEmpty() ? line : QStringLiteral("%1  %2").arg(stamp(), line);
        if (isNews)
            print(QString());
    } else if (const std::int64_t now = monotonicNs();
               !line.isEmpty() && now - m_lastMeterLineNs >= meterLinePeriodNs) {
        m_lastMeterLineNs = now;
        showEvent(QStringLiteral("level"), line);
    }
}

void Display::showText(const QString &text) {
    print(text);
}

void Display::print(const QString &text) {
    // UTF-8 whatever the locale. A write that fails (output closed) must not end the site: nothing to do about it here.
    const QString eraseLine = isTerminal() ? QStringLiteral("\r\x1b[K") : QString();
    std::fputs((eraseLine + text + m_meterLine).toUtf8().constData(), stdout);
    std::fflush(stdout);
}

QString Display::stamp() const {
    return QStringLiteral("%1").arg(double(monotonicNs() - m_zeroNs) * 1e-9, 8, 'f', 3);
}

} // namespace sim
