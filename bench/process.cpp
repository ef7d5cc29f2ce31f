// What the whole daemon costs on the simulated site: the processor time that it has per second of audio, against that
// of bench-bare, which does the bare job on a card of its own with the same sound and the same packets, paced as the
// daemon is; how often it wakes up; how much memory it holds.
//
//   bench-process [SECONDS [RUNS]]     30 and 3 unless given
//
// Daemon and reference run in turn; a figure is the median over the runs.

#include "Figures.h"
#include "Shaping.h"
#include "sim/MonotonicClock.h"
#include "sim/member/RoomMember.h"
#include "sim/site/Site.h"
#include "sim/wire/SealedFrame.h"

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QTimer>
#include <QUdpSocket>

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <optional>
#include <vector>

using namespace sim;

namespace {

constexpr quint16 sinkPort = 9101;         // the site has a loopback of its own
constexpr quint16 barePort = sinkPort + 1; // where the reference receives
constexpr int settleMs = 2000;
constexpr int timeoutMs = 20000;
constexpr double framesPerSecond = 50.0;
constexpr double leastShareOfFrames = 0.95;
constexpr int mostAttempts = 5; // a machine that stands still for a moment spoils one

QByteArray key() {
    return QByteArray(32, 'k');
}

// What a process has used so far

QByteArray contentOf(const QString &path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// The number behind a label of /proc, in whatever unit is given there.
double numberAfter(const QByteArray &text, const QByteArray &label) {
    const int begin = text.indexOf(label);
    return begin < 0 ? 0.0
                     : text.mid(begin + label.size(), 30).trimmed().split('\n').first().split(' ').first().toDouble();
}

struct Usage {
    double processorMs = 0.0;
    double wakeUps = 0.0;

    Usage &operator+=(const Usage &other) {
        processorMs += other.processorMs;
        wakeUps += other.wakeUps;
        return *this;
    }
};

/// Of all threads.
Usage usageOf(qint64 processId) {
    Usage usage;
    const QDir tasks(QStringLiteral("/proc/%1/task").arg(processId));
    for (const QString &task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QString folder = tasks.filePath(task);
        const double onProcessorNs = contentOf(folder + QStringLiteral("/schedstat")).split(' ').first().toDouble();
        const double sleeps = numberAfter(contentOf(folder + QStringLiteral("/status")), "\nvoluntary_ctxt_switches:");
        usage += {onProcessorNs / 1e6, sleeps};
    }
    return usage;
}

/// What a process alone holds and has written to. The memory of the simulated card is left out: on a real one it is
/// the kernel's.
double privateDirtyMb(qint64 processId) {
    double kilobytes = 0.0;
    bool isCard = false;
    for (const QByteArray &line : contentOf(QStringLiteral("/proc/%1/smaps").arg(processId)).split('\n')) {
        if (line.contains('-') && !line.startsWith(' ') && line.indexOf('-') < line.indexOf(' '))
            isCard = line.contains(sitePaths().cards.toUtf8());
        if (!isCard && line.startsWith("Private_Dirty:"))
            kilobytes += numberAfter(line, "Private_Dirty:");
    }
    return kilobytes / 1024.0;
}

void live(int ms) {
    QEventLoop loop;
    QTimer::singleShot(ms, Qt::PreciseTimer, &loop, &QEventLoop::quit);
    loop.exec();
}

// What is said

Pcm lasting(int seconds, const std::vector<Frame> &frames) {
    Pcm pcm;
    for (std::size_t i = 0; i < std::size_t(seconds) * std::size_t(framesPerSecond); ++i) {
        const Frame &frame = frames[i % frames.size()];
        pcm.samples.insert(pcm.samples.end(), frame.begin(), frame.end());
    }
    return pcm;
}

std::vector<QByteArray> packetsOfVoice() {
    VoiceEncoder encoder;
    std::vector<QByteArray> packets;
    for (const Frame &frame : voice())
        packets.push_back(encoder.encode(frame));
    return packets;
}

/// Hands out the packets of the voice over and over, one each 20 ms by the clock.
class Talker {
public:
    Talker(const std::vector<QByteArray> &packets, std::function<void(const QByteArray &)> send) {
        m_timer.setTimerType(Qt::PreciseTimer);
        QObject::connect(&m_timer, &QTimer::timeout, [this, &packets, send = std::move(send)] {
            for (const std::int64_t due = (monotonicNs() - m_beginNs) / voiceFrameNs; m_sent < due; ++m_sent)
                send(packets[std::size_t(m_sent) % packets.size()]);
        });
        m_timer.start(voiceFrameMs);
    }

private:
    static constexpr std::int64_t voiceFrameNs = voiceFrameMs * 1'000'000LL;

    QTimer m_timer;
    std::int64_t m_beginNs = monotonicNs();
    std::int64_t m_sent = 0;
};

// What is measured

struct State {
    const char *name;
    const char *job; ///< of the reference; null: it has none
    bool transmits;
    bool receives;
    double limit; ///< at most this times the reference
};

constexpr State states[] = {
    {"idle in a room", nullptr, false, false, 0.0},
    {"transmitting", "transmit", true, false, 1.15},
    {"receiving", "receive", false, true, 1.30},
    {"both", "both", true, true, 1.30},
};
constexpr std::size_t idle = 0;
constexpr std::size_t transmitting = 1;

constexpr double limitOfIdle = 0.5; // of transmitting
constexpr double limitOfWakeUps = 170.0;
constexpr double limitOfPrivateDirtyMb = 1.5;
constexpr double limitOfGrowthMb = 0.05; // a dozen pages

/// Per second.
struct Cost {
    double processorMs = 0.0;
    double wakeUps = 0.0;
};

class Measurement {
public:
    explicit Measurement(int seconds) : m_seconds(seconds) {
        QObject::connect(&m_site.server(), &VoiceServer::audioRelayed, [this](const QString &callsign) {
            m_framesSent += callsign == Site::gatewayAccount().callsign ? 1 : 0;
        });
        QObject::connect(&m_sink, &QUdpSocket::readyRead, [this] {
            for (char byte = 0; m_sink.hasPendingDatagrams(); ++m_framesSent)
                m_sink.readDatagram(&byte, 1);
        });
    }

    bool bringUp() {
        m_site.server().setRoomKey(QStringLiteral("Lobby"), key());
        m_site.writeConfig(settings());
        if (!m_sink.bind(QHostAddress(QHostAddress::LocalHost), sinkPort) || !m_site.bringUp(timeoutMs) ||
            !m_site.waitForLog(QStringLiteral("[Arduino] Config sent"), timeoutMs))
            return false;
        const Account account = Site::memberAccount();
        m_member.connectToServer(QStringLiteral("127.0.0.1"), m_site.server().tcpPort(), m_site.server().udpPort(),
                                 account.callsign, account.password, QStringLiteral("Lobby"));
        return Site::waitFor([this] { return m_member.isReady(); }, timeoutMs);
    }

    /// Nothing when it has not done its job all the time.
    std::optional<Cost> daemon(const State &state) {
        if (state.transmits) {
            m_site.card().feed(m_voice);
            m_site.board().setSquelch(true);
        }
        std::optional<Talker> talker;
        if (state.receives) {
            m_member.startTalking();
            talker.emplace(m_packets, [this](const QByteArray &packet) { m_member.sendFrame(packet); });
        }
        const auto cost = measure(state, m_site.card(), m_site.daemon().processId());
        m_site.board().setSquelch(false);
        m_site.card().clearFeed();
        if (state.receives)
            m_member.stopTalking();
        m_member.forgetHeard();
        m_privateDirtyMb.push_back(privateDirtyMb(m_site.daemon().processId()));
        return cost;
    }

    /// The same of the reference.
    std::optional<Cost> bare(const State &state) {
        QProcess process;
        if (state.transmits)
            m_bareCard.feed(m_shapedVoice);
        start(process, state.job);
        std::optional<Talker> talker;
        if (state.receives) {
            // The datagrams of before it listens would only be refused.
            Site::waitFor([this] { return m_bareCard.isPlaybackOpen(); }, timeoutMs);
            talker.emplace(m_packets, [this](const QByteArray &packet) {
                m_sink.writeDatagram(QByteArray(4, '\0') + sealed(packet, key()), QHostAddress(QHostAddress::LocalHost),
                                     barePort);
            });
        }
        const auto cost = measure(state, m_bareCard, process.processId());
        process.kill();
        process.waitForFinished();
        m_bareCard.clearFeed();
        return cost;
    }

    /// After each state of the daemon.
    const std::vector<double> &privateDirty() const { return m_privateDirtyMb; }

private:
    static QJsonObject settings() {
        using namespace Shaping;
        return {{QStringLiteral("mic_gain"), gainPercent},    {QStringLiteral("speaker_gain"), gainPercent},
                {QStringLiteral("agc_enabled"), true},        {QStringLiteral("tot_duration"), 180},
                {QStringLiteral("tx_bass"), txTone.bass},     {QStringLiteral("tx_mid"), txTone.mid},
                {QStringLiteral("tx_treble"), txTone.treble}, {QStringLiteral("rx_bass"), rxTone.bass},
                {QStringLiteral("rx_mid"), rxTone.mid},       {QStringLiteral("rx_treble"), rxTone.treble}};
    }

    static void start(QProcess &process, const char *job) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("ALSA_CONFIG_PATH"), SoundCard::writeAlsaConfig(sitePaths().cards));
        process.setProcessEnvironment(environment);
        process.setProcessChannelMode(QProcess::ForwardedChannels);
        process.start(QStringLiteral(KIVO_BENCH_BARE_FILE), {QString::fromLatin1(job), QStringLiteral("hw:1,0"),
                                                             QString::number(sinkPort), QString::fromLatin1(key())});
        process.waitForStarted();
    }

    std::optional<Cost> measure(const State &state, const SoundCard &card, qint64 processId) {
        live(settleMs);
        const Usage before = usageOf(processId);
        const int sentBefore = m_framesSent;
        const std::int64_t playedBefore = card.framesPlayed();
        const std::int64_t beginNs = monotonicNs();
        live(m_seconds * 1000);
        const double seconds = double(monotonicNs() - beginNs) / 1e9;
        const Usage after = usageOf(processId);
        const double sent = (m_framesSent - sentBefore) / (seconds * framesPerSecond);
        const double played = double(card.framesPlayed() - playedBefore) / (seconds * rateHz);
        if (!isAll(sent, state.transmits) || !isAll(played, state.receives)) {
            std::fprintf(stderr, "%s: %.3f of the frames sent, %.3f played\n", state.name, sent, played);
            return {};
        }
        return Cost{(after.processorMs - before.processorMs) / seconds, (after.wakeUps - before.wakeUps) / seconds};
    }

    static bool isAll(double share, bool expected) { return expected ? share >= leastShareOfFrames : share == 0.0; }

    int m_seconds;
    Site m_site;
    SoundCard m_bareCard{sitePaths().cards, 1};
    RoomMember m_member;
    QUdpSocket m_sink; ///< where the reference transmits to
    int m_framesSent = 0;
    const Pcm m_voice = lasting(m_seconds + 10, voice());
    const Pcm m_shapedVoice = lasting(m_seconds + 10, Shaping::shapedVoice()); ///< what the daemon makes of it
    const std::vector<QByteArray> m_packets = packetsOfVoice();
    std::vector<double> m_privateDirtyMb;
};

// What is told of it

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? -1.0 : values[values.size() / 2];
}

/// What was measured of one state, run by run.
struct Runs {
    std::vector<double> daemonMs, wakeUps, bareMs;
};

std::vector<double> ratios(const std::vector<double> &values, const std::vector<double> &references) {
    std::vector<double> result;
    for (std::size_t i = 0; i < std::min(values.size(), references.size()); ++i)
        result.push_back(values[i] / references[i]);
    return result;
}

/// Tells the result on stderr, since the table comes only at the end.
std::optional<Cost> attempt(const State &state, const char *who, const std::function<std::optional<Cost>()> &measure) {
    std::optional<Cost> cost;
    for (int i = 0; i < mostAttempts && !cost; ++i)
        cost = measure();
    if (cost)
        std::fprintf(stderr, "%s, %s: %.2f ms/s, %.1f wake-ups/s\n", state.name, who, cost->processorMs, cost->wakeUps);
    return cost;
}

/// False when somebody has not done the job.
bool run(Measurement &measurement, const State &state, Runs &runs) {
    const auto daemon = attempt(state, "daemon", [&] { return measurement.daemon(state); });
    if (!daemon)
        return false;
    runs.daemonMs.push_back(daemon->processorMs);
    runs.wakeUps.push_back(daemon->wakeUps);
    if (!state.job)
        return true;
    const auto bare = attempt(state, "bare job", [&] { return measurement.bare(state); });
    if (!bare)
        return false;
    runs.bareMs.push_back(bare->processorMs);
    return true;
}

bool printRatio(const QByteArray &what, const std::vector<double> &values, const std::vector<double> &references,
                double limit) {
    char detail[96];
    std::snprintf(detail, sizeof detail, "%.2f ms/s against %.2f ms/s", median(values), median(references));
    return printFigure(what.constData(), median(ratios(values, references)), limit, detail);
}

bool printProcessor(const std::array<Runs, std::size(states)> &runs) {
    bool kept = true;
    for (std::size_t i = 0; i < std::size(states); ++i) {
        if (states[i].job)
            kept &= printRatio(QByteArray("process ") + states[i].name + "; the bare job", runs[i].daemonMs,
                               runs[i].bareMs, states[i].limit);
    }
    kept &= printRatio("process idle in a room; transmitting", runs[idle].daemonMs, runs[transmitting].daemonMs,
                       limitOfIdle);
    return printFigure("wake-ups per second, idle in a room", median(runs[idle].wakeUps), limitOfWakeUps, "1/s") &&
           kept;
}

/// What the first run has touched is warm; from then on memory stays as it is.
bool printMemory(const std::vector<double> &privateDirty) {
    const double growth = privateDirty.back() - privateDirty.at(std::size(states) - 1);
    const double most = *std::max_element(privateDirty.begin(), privateDirty.end());
    const bool kept = printFigure("memory, private dirty, at its most", most, limitOfPrivateDirtyMb, "MB");
    return printFigure("memory, growth after the first run", std::max(growth, 0.0), limitOfGrowthMb, "MB") && kept;
}

int argument(const QStringList &arguments, int position, int otherwise) {
    const int number = arguments.value(position).toInt();
    return number > 0 ? number : otherwise;
}

} // namespace

int main(int argc, char **argv) {
    if (!enterPrivateSite())
        return 2;
    const QCoreApplication application(argc, argv);
    const int seconds = argument(application.arguments(), 1, 30);
    const int runCount = argument(application.arguments(), 2, 3);
    Measurement measurement(seconds);
    if (!measurement.bringUp()) {
        std::fprintf(stderr, "the daemon does not get into its room\n");
        return 2;
    }
    std::array<Runs, std::size(states)> runs;
    for (int i = 0; i < runCount; ++i) {
        for (std::size_t state = 0; state < std::size(states); ++state) {
            if (!run(measurement, states[state], runs[state]))
                return 2;
        }
    }
    const bool kept = printProcessor(runs);
    return printMemory(measurement.privateDirty()) && kept ? 0 : 1;
}
