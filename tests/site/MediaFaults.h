#pragma once

#include "Hearing.h"
#include "Measured.h"

#include <QRandomGenerator>

#include <optional>

/// What becomes of some of the datagrams on their way.
enum class MediaFault { Lost, Twice, OutOfOrder, Late };
Q_DECLARE_METATYPE(MediaFault)

/// The server's way to the gateway, on which that happens to a share of the audio. The same share of the same sequence
/// every time.
class RoughPath {
public:
    RoughPath(sim::VoiceServer &server, MediaFault fault, int percent)
        : m_server(server),
          m_fault(fault),
          m_percent(percent) {
        server.setMediaPath([this](const QByteArray &datagram) { return pass(datagram); });
    }
    ~RoughPath() { m_server.setMediaPath({}); }
    RoughPath(const RoughPath &) = delete;
    RoughPath &operator=(const RoughPath &) = delete;

    /// How many audio datagrams left at the far end.
    int arrived() const { return m_arrived; }

private:
    struct Held {
        std::int64_t dueNs = 0;
        QByteArray datagram;
    };

    QList<QByteArray> pass(const QByteArray &datagram) {
        if (!datagram.startsWith('\0')) // a text; the ids of those who talk here are small
            return {datagram};
        QList<QByteArray> pieces = struck() ? strike(datagram) : QList<QByteArray>{datagram};
        pieces += overdue();
        m_arrived += pieces.size();
        return pieces;
    }
    bool struck() { return int(m_random.bounded(100)) < m_percent; }
    QList<QByteArray> strike(const QByteArray &datagram) {
        constexpr std::int64_t lateNs = 200'000'000;
        switch (m_fault) {
        case MediaFault::Lost:
            return {};
        case MediaFault::Twice:
            return {datagram, datagram};
        case MediaFault::OutOfOrder:
            m_held.append({sim::monotonicNs() + 1, datagram}); // behind the next one
            return {};
        case MediaFault::Late:
            m_held.append({sim::monotonicNs() + lateNs, datagram});
            return {};
        }
        return {};
    }
    QList<QByteArray> overdue() {
        QList<QByteArray> due;
        while (!m_held.isEmpty() && m_held.first().dueNs < sim::monotonicNs())
            due.append(m_held.takeFirst().datagram);
        return due;
    }

    sim::VoiceServer &m_server;
    const MediaFault m_fault;
    const int m_percent;
    QRandomGenerator m_random{1};
    QList<Held> m_held;
    int m_arrived = 0;
};

/// How a talk came through.
struct Reception {
    int arrived = 0;         ///< datagrams
    double heardSeconds = 0; ///< of the tone, on the air
    double lastHeard = 0;    ///< seconds after the talk's end
    double release = 0;      ///< seconds from the talk's end
};

constexpr double talkHertz = 713; // a broken number of waves per frame

/// The member's talk over that path, until well after its end.
inline Reception receive(TestSite &site, sim::RoomMember &member, const RoughPath &path, double seconds) {
    constexpr double piece = 0.01;
    std::int64_t endNs = 0;
    const auto connection = QObject::connect(
        &site.server(), &sim::VoiceServer::talkingChanged, &site.server(),
        [&](const QString &, bool talking) { endNs = talking ? 0 : sim::monotonicNs(); }, Qt::DirectConnection);
    const std::int64_t beginNs = sim::monotonicNs();
    const int arrivedBefore = path.arrived();
    member.speak(sim::tone(talkHertz, -10, seconds));
    TestSite::waitFor([&] { return site.board().isKeyed(); }, 5000);
    TestSite::waitFor([&] { return endNs != 0 && !site.board().isKeyed(); }, int(seconds * 1000) + 5000);
    const std::int64_t releasedNs = site.board().keyings().back().timeNs;
    letPass(1.0);
    QObject::disconnect(connection);

    Reception reception{path.arrived() - arrivedBefore, 0, 0, secondsBetween(endNs, releasedNs)};
    const sim::Pcm onAir = site.card().played(beginNs, sim::monotonicNs());
    for (double at = 0; at + piece <= onAir.seconds(); at += piece) {
        if (sim::toneLevelDbfs(sim::slice(onAir, at, at + piece), talkHertz) < -25)
            continue;
        reception.heardSeconds += piece;
        reception.lastHeard = at + piece - secondsBetween(beginNs, endNs);
    }
    return reception;
}

/// The four faults at each of the shares, with the share of the sound that must come through.
inline void addMediaFaults(const std::vector<int> &percentages) {
    QTest::addColumn<MediaFault>("fault");
    QTest::addColumn<int>("percent");
    const std::pair<const char *, MediaFault> faults[] = {{"lost", MediaFault::Lost},
                                                          {"twice", MediaFault::Twice},
                                                          {"out of order", MediaFault::OutOfOrder},
                                                          {"200 ms late", MediaFault::Late}};
    for (const auto &[name, fault] : faults) {
        for (const int percent : percentages)
            QTest::addRow("%d %% %s", percent, name) << fault << percent;
    }
}

/// Whatever the way does: what arrives is played, soon, at no expense; and the transmitter is released with the list.
inline void verifyTheTalkComesThrough(TestSite &site, sim::RoomMember &member, MediaFault fault, int percent,
                                      double seconds) {
    const auto talk = [&] {
        const RoughPath path(site.server(), fault, percent);
        return receive(site, member, path, seconds);
    };
    const Expense expense(site);
    const Reception reception = undisturbed(site, talk);
    const double whole = std::min(reception.arrived * 0.02, seconds);
    qInfo("measured: %d datagrams arrived, %.1f %% of the sound in them heard, the last of it %.0f ms after the end, "
          "released %.1f ms after the end",
          reception.arrived, reception.heardSeconds / whole * 100, reception.lastHeard * 1e3, reception.release * 1e3);
    expense.tell("a rough way");
    VERIFY_BETWEEN(reception.heardSeconds / whole, 0.8, 1.25);
    // A card that has run empty begins again at five periods. Of half the datagrams, what does not get there any more
    // at the end of a talk is the last 0.2 s of it, beside what got lost.
    VERIFY_BETWEEN(reception.lastHeard, -0.5, 0.8);
    VERIFY_BETWEEN(reception.release, 0.0, 0.5);
    VERIFY_CHEAP(expense);
}
