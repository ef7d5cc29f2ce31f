#include "Hearing.h"

#include "sim/MonotonicClock.h"
#include "sim/sound/AudioAnalysis.h"

#include <algorithm>
#include <cmath>

using namespace sim;

namespace {

constexpr double radioHz = 1013, roomHz = 713; // broken numbers of waves per frame
constexpr double saidDbfs = -10, leastDbfs = -16;
constexpr int mostAttempts = 4;
constexpr std::int64_t paceNs = 250'000'000; // a thousand times a moment of waiting

bool isTone(const Pcm &sound, double hz) {
    return sound.seconds() > 0.5 && std::abs(toneHz(sound) - hz) < 0.01 * hz && toneLevelDbfs(sound, hz) > leastDbfs;
}

Pcm middle(const Pcm &sound) {
    return slice(sound, 0.5, sound.seconds() - 0.5);
}

Duplex attempt(Scene &scene, RoomMember &member, int seconds) {
    Duplex duplex;
    member.forgetHeard();
    scene.card().clearFeed();
    scene.card().feed(tone(radioHz, saidDbfs, seconds + 2));
    scene.setSquelch(true);
    member.speak(tone(roomHz, saidDbfs, seconds));
    Site::waitFor([&] { return scene.site().board().isKeyed(); }, 3000);
    Site::waitFor([] { return false; }, 500); // until the sound has come
    const std::int64_t beginNs = monotonicNs();
    const int overruns = scene.card().captureXruns();
    const int underruns = scene.card().playbackXruns();
    Site::waitFor([&] { return !member.isSpeaking(); }, (seconds - 1) * 1000);
    duplex.overruns = scene.card().captureXruns() - overruns;
    duplex.underruns = scene.card().playbackXruns() - underruns;
    const Pcm onAir = scene.card().played(beginNs, monotonicNs());
    duplex.longestGapMs = longestGapMs(onAir, saidDbfs - 10);
    duplex.roomHeard = isTone(middle(onAir), roomHz);
    duplex.radioHeard = isTone(middle(member.heardFrom(Site::gatewayAccount().id)), radioHz);
    scene.setSquelch(false);
    Site::waitFor([&] { return !member.isSpeaking() && !scene.site().board().isKeyed(); }, 5000);
    scene.card().clearFeed();
    return duplex;
}

} // namespace

Duplex talkBothWays(Scene &scene, int seconds) {
    Duplex duplex;
    for (int made = 0; made < mostAttempts && !duplex.isClean() && !duplex.machineKeptPace; ++made) {
        RoomMember *member = scene.members().ready(0);
        if (!member)
            return {};
        const std::int64_t machineNs = scene.loop().now().machineNs;
        duplex = attempt(scene, *member, seconds);
        duplex.machineKeptPace = scene.loop().now().machineNs - machineNs < paceNs;
    }
    return duplex;
}
