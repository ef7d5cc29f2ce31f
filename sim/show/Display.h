#pragma once

#include <QString>

#include <cstdint>
#include <vector>

namespace sim {

/// A level as a bar of that many characters, from -60 dBFS (empty) to 0 dBFS (full).
QString meterBar(double dbfs, int width);

/// What the user sees of the site: a line for each event, and levels. On a terminal the levels stand in one line at the
/// bottom that is renewed in place; elsewhere they become a line of their own twice a second.
class Display {
public:
    struct Meter {
        QString name;
        double dbfs = 0.0;
    };

    /// @param zeroNs  CLOCK_MONOTONIC from which the time stamps count
    explicit Display(std::int64_t zeroNs) : m_zeroNs(zeroNs) {}

    static bool isTerminal(); ///< somebody sits there, rather than a file or another program

    /// @param who  the part of the site that did it
    void showEvent(const QString &who, const QString &what);
    /// Nothing to measure takes the meters away.
    void showMeters(const std::vector<Meter> &meters);
    /// Text without a time stamp, as it stands.
    void showText(const QString &text);

private:
    void print(const QString &text);
    QString stamp() const;

    std::int64_t m_zeroNs;
    std::int64_t m_lastMeterLineNs = 0;
    QString m_meterLine; ///< now standing at the bottom of the terminal
};

} // namespace sim
