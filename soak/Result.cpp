#include "Result.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr double growthLimitMb = 0.5;
constexpr double wakeUpsLimit = 170.0; // a hundred for capture, fifty for playback, few for all the rest

QString number(double value, int decimals = 1) {
    return QString::number(value, 'f', decimals);
}

template <class Get>
QString course(const std::vector<Rest> &rests, Get get, int decimals) {
    QStringList values;
    for (const Rest &rest : rests)
        values.append(number(double(get(rest)), decimals));
    return values.join(QLatin1Char(' '));
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0.0 : values[values.size() / 2];
}

} // namespace

Result::Result(Scene &scene, std::vector<Rest> rests, Figures most, double seconds)
    : m_scene(scene),
      m_rests(std::move(rests)),
      m_most(most),
      m_seconds(seconds) {}

bool Result::print() {
    std::printf("\n| what | measured | limit | kept |\n|---|---|---|---|\n");
    printMemory();
    printCounts();
    printLoop();
    printCard();
    printDelays();
    printDuplex();
    printLog();
    printEvents();
    const QStringList &broken = m_scene.journal().brokenPromises();
    row(QStringLiteral("broken promises"), QString::number(broken.size()), QStringLiteral("0"), broken.isEmpty());
    std::fflush(stdout);
    return m_kept;
}

void Result::row(const QString &what, const QString &value, const QString &limit, bool kept) {
    m_kept = m_kept && kept;
    std::printf("| %s | %s | %s | %s |\n", qPrintable(what), qPrintable(value), qPrintable(limit),
                limit.isEmpty() ? ""
                : kept          ? "yes"
                                : "NO");
}

void Result::printMemory() {
    const struct {
        const char *name;
        double Figures::*value;
    } kinds[] = {{"resident memory, MB", &Figures::residentMb}, {"private dirty memory, MB", &Figures::privateDirtyMb}};
    for (const auto &kind : kinds) {
        const double growth = m_rests.back().figures.*kind.value - m_rests[1].figures.*kind.value;
        row(QStringLiteral("%1, from rest to rest").arg(QLatin1String(kind.name)),
            course(
                m_rests, [&](const Rest &rest) { return rest.figures.*kind.value; }, 2));
        row(QStringLiteral("%1, at its most").arg(QLatin1String(kind.name)), number(m_most.*kind.value, 2));
        row(QStringLiteral("%1, growth since the second rest").arg(QLatin1String(kind.name)), number(growth, 2),
            number(growthLimitMb, 2), growth <= growthLimitMb);
    }
}

void Result::printCounts() {
    const struct {
        const char *name;
        int Figures::*value;
    } kinds[] = {{"open descriptors", &Figures::descriptors},
                 {"of these timers", &Figures::timers},
                 {"threads", &Figures::threads}};
    for (const auto &kind : kinds) {
        const int begin = m_rests.front().figures.*kind.value;
        const int end = m_rests.back().figures.*kind.value;
        row(QLatin1String(kind.name) + QStringLiteral(", from rest to rest"),
            course(
                m_rests, [&](const Rest &rest) { return rest.figures.*kind.value; }, 0),
            QStringLiteral("the same"), begin == end);
    }
    row(QStringLiteral("wake-ups per second at rest (timers of the loop)"),
        course(
            m_rests, [](const Rest &rest) { return rest.wakeUpsPerSecond; }, 1),
        number(wakeUpsLimit), m_rests.back().wakeUpsPerSecond <= wakeUpsLimit);
}

void Result::printLoop() {
    row(QStringLiteral("looks at the loop"), QString::number(m_scene.loop().rewrites()));
    const struct {
        const char *name;
        Promises::HoldUp reason;
    } kinds[] = {{"longest stall of the loop", Promises::Unmeant},
                 {"longest stall while the warning tone is written", Promises::Tone},
                 {"longest stall while the card plays out before a change of quality", Promises::PlayingOut}};
    for (const auto &kind : kinds) {
        const Promises::Delay longest = m_scene.promises().longestStall(kind.reason);
        const double limit = Promises::stallLimitMs(kind.reason);
        row(QLatin1String(kind.name) + QStringLiteral(", ms: in all, without the machine's part"),
            number(longest.ms) + QStringLiteral(", ") + number(longest.ownMs), number(limit, 0),
            longest.ownMs <= limit);
    }
}

void Result::printCard() {
    sim::SoundCard &card = m_scene.card();
    row(QStringLiteral("playback underruns of the card, ordered ones and the ends of talks included"),
        QString::number(card.playbackXruns()));
    row(QStringLiteral("capture overruns of the card, ordered ones included"), QString::number(card.captureXruns()));
}

void Result::printDelays() {
    const struct {
        const char *name;
        Promises::Measure measure;
    } kinds[] = {{"transmitter released after the last talker", Promises::ReleaseByList},
                 {"transmitter released after the loss of the link", Promises::ReleaseByLinkLoss},
                 {"squelch to transmission into the room", Promises::Transmit},
                 {"back after a cut or a kick", Promises::BackFromCut},
                 {"back after a silence", Promises::BackFromSilence}};
    for (const auto &kind : kinds) {
        std::vector<double> all, own;
        for (const Promises::Delay &delay : m_scene.promises().delays(kind.measure)) {
            all.push_back(delay.ms);
            own.push_back(delay.ownMs);
        }
        all.push_back(0);
        own.push_back(0);
        const double most = *std::max_element(own.begin(), own.end());
        const double limit = Promises::limitMs(kind.measure);
        row(QLatin1String(kind.name) + QStringLiteral(", ms: times, median, most, most without the machine's part"),
            QStringLiteral("%1, %2, %3, %4")
                .arg(all.size() - 1)
                .arg(number(median(all)), number(*std::max_element(all.begin(), all.end())), number(most)),
            number(limit, 0), most <= limit);
    }
}

/// A rest in which the machine never kept pace and nothing was clean says nothing about the gateway.
void Result::printDuplex() {
    const auto isKept = [](const Rest &rest) { return rest.duplex.isClean() || !rest.duplex.machineKeptPace; };
    const bool kept = std::all_of(m_rests.begin(), m_rests.end(), isKept);
    row(QStringLiteral("both ways at rest: late playback ticks (underruns)"),
        course(
            m_rests, [](const Rest &rest) { return rest.duplex.underruns; }, 0),
        QStringLiteral("0"), kept);
    row(QStringLiteral("both ways at rest: overruns of capture"),
        course(
            m_rests, [](const Rest &rest) { return rest.duplex.overruns; }, 0),
        QStringLiteral("0"), kept);
    row(QStringLiteral("both ways at rest: longest gap on the air, ms"),
        course(
            m_rests, [](const Rest &rest) { return rest.duplex.longestGapMs; }, 1),
        number(Duplex::gapLimitMs), kept);
    row(QStringLiteral("both ways at rest: the machine kept pace"),
        course(
            m_rests, [](const Rest &rest) { return rest.duplex.machineKeptPace ? 1 : 0; }, 0));
}

void Result::printLog() {
    for (const auto &[level, lines] : m_scene.journal().linesByLevel())
        row(QStringLiteral("log lines per hour, ") + level, number(lines * 3600 / m_seconds, 0));
}

void Result::printEvents() {
    for (const auto &[kind, times] : m_scene.journal().events())
        row(QStringLiteral("event: ") + kind, QString::number(times));
}
