#pragma once

#include "Processor.h"

/// A figure that the test has measured, for whoever reads the test's output.
inline void tellMeasured(const char *what, double value, const char *unit) {
    qInfo("measured: %s: %.3f %s", what, value, unit);
}

/// What a stretch of time costs the daemon: log lines, processor, memory.
class Expense {
public:
    explicit Expense(sim::Site &site) : m_site(site) {}

    double seconds() const { return secondsBetween(m_beginNs, sim::monotonicNs()); }
    int lines() const { return m_site.daemon().log().size() - m_linesBefore; }
    double linesPerHour() const { return lines() * 3600.0 / seconds(); }
    /// Of one processor.
    double load() const { return (processorSeconds(m_site.daemon().processId()) - m_processorBefore) / seconds(); }
    /// By how much its own memory has grown, without what it shares with the simulated card.
    int kilobytes() const { return ownKilobytes(m_site.daemon().processId()) - m_kilobytesBefore; }

    /// By how much the most memory it ever had has grown; with what it shares with the card, a few MB a minute.
    int peakMegabytes() const { return mostMegabytesOf(m_site.daemon()) - m_peakMegabytesBefore; }

    void tell(const char *fault) const {
        qInfo("measured: %s: %.0f log lines an hour, %.2f %% of a processor, %d kB more, over %.1f s", fault,
              linesPerHour(), load() * 100.0, kilobytes(), seconds());
    }

private:
    static int ownKilobytes(qint64 processId) {
        QFile status(QStringLiteral("/proc/%1/status").arg(processId));
        const QByteArray all = status.open(QIODevice::ReadOnly) ? status.readAll() : QByteArray();
        return all.mid(all.indexOf("RssAnon:") + 8).trimmed().split(' ').first().toInt();
    }

    sim::Site &m_site;
    const std::int64_t m_beginNs = sim::monotonicNs();
    const int m_linesBefore = m_site.daemon().log().size();
    const double m_processorBefore = processorSeconds(m_site.daemon().processId());
    const int m_peakMegabytesBefore = mostMegabytesOf(m_site.daemon());
    const int m_kilobytesBefore = ownKilobytes(m_site.daemon().processId());
};

/// For that long, whatever happens.
inline void letPass(double seconds) {
    const std::int64_t beginNs = sim::monotonicNs();
    sim::Site::waitFor([&] { return secondsBetween(beginNs, sim::monotonicNs()) >= seconds; },
                       int(seconds * 1000) + 5000);
}

/// Little of a processor and no memory to speak of. A sanitizer takes its own share of both, and of the time.
#ifdef __SANITIZE_ADDRESS__
constexpr int slowness = 6;
#define VERIFY_CHEAP(expense) VERIFY_BETWEEN((expense).load(), 0.0001, 0.5)
#define VERIFY_NO_PEAK(expense) Q_UNUSED(expense)
#define VERIFY_MEMORY(expense, most)                                                                                   \
    do {                                                                                                               \
        Q_UNUSED((expense));                                                                                           \
        Q_UNUSED((most));                                                                                              \
    } while (false)
#else
constexpr int slowness = 1;
#define VERIFY_CHEAP(expense)                                                                                          \
    do {                                                                                                               \
        VERIFY_BETWEEN((expense).load(), 0.0001, 0.15);                                                                \
        VERIFY_BETWEEN((expense).kilobytes(), -4096, 1024);                                                            \
    } while (false)
/// Not for a moment either.
#define VERIFY_NO_PEAK(expense) VERIFY_BETWEEN((expense).peakMegabytes(), 0, 12)
/// At most so many kB more than before.
#define VERIFY_MEMORY(expense, most) VERIFY_BETWEEN((expense).kilobytes(), -65536, most)
#endif

/// That both transmissions begin and end as ever, whatever is wrong elsewhere, and that the control link has stayed up.
inline void verifyBothWaysFollow(TestSite &site, sim::RoomMember &member) {
    for (const bool on : {true, false}) {
        const std::int64_t fromNs = sim::monotonicNs();
        site.board().setSquelch(on);
        QVERIFY(sim::Site::waitFor([&] { return site.server().isTalking(TestSite::gateway()) == on; }, 5000));
        on ? member.startTalking() : member.stopTalking();
        QVERIFY(sim::Site::waitFor([&] { return site.board().isKeyed() == on; }, 5000));
        VERIFY_BETWEEN(secondsBetween(fromNs, sim::monotonicNs()), 0.0, 0.5);
    }
    QCOMPARE(site.daemon().logged("[Server] Terputus"_s), QStringList());
}
