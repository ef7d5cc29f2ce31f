#include "Rest.h"

#include "sim/MonotonicClock.h"

#include <cstdio>

using namespace sim;

namespace {

constexpr int patienceMs = 60000;
constexpr int talkSeconds = 8;
constexpr int quietMs = 10000;

void live(int ms) {
    Site::waitFor([] { return false; }, ms);
}

void settle(Scene &scene) {
    for (const char *command : {
             R"({"action":"unmute_mic"})",
             R"({"action":"unmute_spk"})",
             R"({"action":"set_mic_gain","value":100})",
             R"({"action":"set_spk_gain","value":100})",
             R"({"action":"set_agc","enabled":false})",
             R"({"action":"set_tot","value":0})",
             R"({"action":"set_tx_tone"})",
             R"({"action":"set_rx_tone"})",
             R"({"action":"set_ptt_config"})",
         })
        scene.command(command);
    for (int index = 0; index < scene.members().count(); ++index)
        scene.members().sendTo(index, QStringLiteral("Lobby"));
}

bool isQuiet(Scene &scene) {
    return scene.promises().isSessionUp() && scene.members().areAllReady() && scene.isCardIn() &&
           !scene.site().board().isKeyed() && !scene.server().isTalking(Scene::gateway());
}

bool bringTogether(Scene &scene) {
    const auto isSo = [&] { return isQuiet(scene); };
    if (!Site::waitFor(isSo, patienceMs))
        return false;
    settle(scene);
    if (scene.server().roomOf(Scene::gateway()) != QLatin1String("Lobby"))
        scene.server().move(Scene::gateway(), QStringLiteral("Lobby"));
    // By way of another one, so that the usual one is a change whatever the gateway has.
    scene.announceNextQuality();
    live(1000);
    scene.announceUsualQuality();
    live(4000); // playback that was given up comes back after three seconds
    return Site::waitFor([&] { return isSo() && scene.isCardOpen(); }, patienceMs);
}

double wakeUpsPerSecond(qint64 processId) {
    const Figures before = figuresOf(processId);
    const std::int64_t beginNs = monotonicNs();
    live(quietMs);
    const double seconds = double(monotonicNs() - beginNs) / 1e9;
    return (figuresOf(processId).wakeUps - before.wakeUps) / seconds;
}

} // namespace

Rest comeToRest(Scene &scene) {
    scene.journal().event(QStringLiteral("rest"));
    scene.heal();
    Rest rest;
    if (!bringTogether(scene))
        scene.journal().broken(QStringLiteral("everything comes to rest"));
    rest.duplex = talkBothWays(scene, talkSeconds);
    if (!rest.duplex.isWhole())
        scene.journal().broken(QStringLiteral("both ways are heard at rest"));
    const qint64 processId = scene.site().daemon().processId();
    rest.wakeUpsPerSecond = wakeUpsPerSecond(processId);
    rest.figures = figuresOf(processId);
    std::fprintf(stderr, "rest after %.0f s: %.2f MB private dirty, %d broken promises\n", scene.journal().seconds(),
                 rest.figures.privateDirtyMb, int(scene.journal().brokenPromises().size()));
    return rest;
}

void loseBoard(Scene &scene) {
    RoomMember *member = scene.members().ready(0);
    if (member)
        member->startTalking();
    const bool wasKeyed = Site::waitFor([&] { return scene.site().board().isKeyed(); }, 5000);
    scene.stopLooking();
    scene.site().board().vanish();
    const bool isNoticed = scene.site().waitForLog(QStringLiteral("[Arduino] Serial port lost:"), 5000);
    live(quietMs);
    scene.promises().lookAtLoop();
    if (!wasKeyed || !isNoticed || !scene.site().daemon().isRunning() || !scene.promises().isSessionUp())
        scene.journal().broken(QStringLiteral("the gateway goes on without its board"));
}
