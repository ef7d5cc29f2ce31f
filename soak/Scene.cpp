#include "Scene.h"

#include "sim/MonotonicClock.h"

#include <chrono>
#include <cmath>
#include <iterator>
#include <utility>

using namespace sim;

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds tickInterval = 50ms;
constexpr double pi = 3.14159265358979323846;

/// A tone with overtones, its strength rising and falling as syllables do.
Pcm syllables(double seconds) {
    Pcm pcm = tone(220, -18, seconds);
    const Pcm overtone = tone(1330, -24, seconds);
    for (std::size_t i = 0; i < pcm.samples.size(); ++i) {
        const double strength = 0.55 + 0.45 * std::sin(2 * pi * 4 * double(i) / pcm.rateHz);
        pcm.samples[i] = std::int16_t(std::lround((pcm.samples[i] + overtone.samples[i]) * strength));
    }
    return pcm;
}

struct Quality {
    const char *preset;
    int bitrate, rateHz, frameMs, complexity;
};
constexpr Quality qualities[] = {
    {"standard", 32000, 48000, 20, 5}, {"hemat", 16000, 16000, 20, 3},  {"panjang", 24000, 24000, 40, 5},
    {"sempit", 12000, 8000, 60, 2},    {"tinggi", 64000, 48000, 20, 8}, {"sedang", 16000, 12000, 20, 4},
};
constexpr int usualQuality = 0;

} // namespace

Scene::Scene(Site &site, Journal &journal)
    : m_site(site),
      m_journal(journal),
      m_voice(syllables(20)),
      m_members(site.server()),
      m_loop(QFile::encodeName(sitePaths().appliance + QStringLiteral("/tmp/kivo-vu.json")), site.daemon().processId()),
      m_promises(site, m_members, m_loop, journal) {
    announceUsualQuality();
    QObject::connect(&m_tick, &QTimer::timeout, [this] {
        m_promises.look();
        m_members.lookAfter();
        m_site.daemon().forgetLog();
    });
    m_tick.start(tickInterval);
}

void Scene::setSquelch(bool open) {
    m_squelchOpen = open;
    m_site.board().setSquelch(open);
    m_promises.squelchIs(open);
}

void Scene::stopServer() {
    m_serverUp = false;
    m_promises.serverIs(false);
    server().stop();
}

void Scene::startServer() {
    if (m_serverUp)
        return;
    m_serverUp = server().start();
    if (!m_serverUp)
        qFatal("the server cannot start again");
    m_promises.serverIs(true);
}

void Scene::setServerSilent(bool silent) {
    if (m_silent == silent)
        return;
    m_silent = silent;
    if (silent)
        m_promises.serverIsSilent(true);
    server().setSilent(silent);
    if (!silent)
        m_promises.serverIsSilent(false);
}

void Scene::pullCard() {
    m_cardIn = false;
    card().unplug();
}

void Scene::setCardRefusing(bool refusing) {
    card().failPlaybackWrites(refusing);
    if (std::exchange(m_refusing, refusing) && !refusing)
        announceNextQuality();
}

bool Scene::isCardSettled() const {
    constexpr std::int64_t changeNs = 3'000'000'000; // with the playing out, on a busy machine
    return isCardIn() && isCardOpen() && monotonicNs() - m_qualityNs > changeNs;
}

/// A card that was pulled is opened again with the next change of quality.
void Scene::plugCardIn() {
    if (m_cardIn)
        return;
    if (!m_promises.isSessionUp()) {
        later(1000, [this] { plugCardIn(); }); // the gateway must hear of both qualities
        return;
    }
    card().plugIn();
    m_cardIn = true;
    announceNextQuality();
}

void Scene::resetBoard() {
    m_squelchOpen = false; // it has forgotten
    m_promises.boardResets();
}

void Scene::muteSpeaker(bool muted) {
    m_promises.speakerIsMuted(muted);
    command(muted ? R"({"action":"mute_spk"})" : R"({"action":"unmute_spk"})");
}

/// Only who is there can be muted, or allowed to talk again.
void Scene::muteGateway(bool muted) {
    if (!muted && !server().isLoggedIn(gateway())) {
        later(500, [this] { muteGateway(false); });
        return;
    }
    m_promises.gatewayIsMuted(muted);
    server().mute(gateway(), muted, QStringLiteral("XY9ZA"));
}

void Scene::command(const QByteArray &json) {
    m_site.dropFile(QStringLiteral("kivo-cmd-%1.json").arg(++m_commands, 8, 10, QLatin1Char('0')), json);
}

void Scene::announceNextQuality() {
    announce((m_quality + 1) % int(std::size(qualities)));
}

void Scene::announceUsualQuality() {
    announce(usualQuality);
}

void Scene::announce(int quality) {
    m_quality = quality;
    const Quality &chosen = qualities[quality];
    announceQuality(QLatin1String(chosen.preset), chosen.bitrate, chosen.rateHz, chosen.frameMs, chosen.complexity);
}

void Scene::announceQuality(const QString &preset, int bitrate, int rateHz, int frameMs, int complexity) {
    m_qualityNs = monotonicNs();
    server().announceQuality(preset, bitrate, rateHz, frameMs, complexity);
}

void Scene::later(int ms, std::function<void()> action) {
    QTimer::singleShot(ms, Qt::PreciseTimer, m_future.get(), std::move(action));
}

void Scene::heal() {
    m_future = std::make_unique<QObject>();
    setServerSilent(false);
    startServer();
    server().setMediaLoss({});
    server().setMediaPath({});
    server().setReplyPath({});
    setCardRefusing(false);
    plugCardIn();
    muteGateway(false);
    muteSpeaker(false);
    setSquelch(false);
    card().clearFeed();
    m_members.hush();
}
