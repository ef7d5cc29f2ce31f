#include "Events.h"
#include "sim/sound/AudioAnalysis.h"

using namespace sim;

namespace {

Told speak(Scene &scene, int index, int ms) {
    RoomMember *member = scene.members().ready(index);
    if (!member || member->isSpeaking())
        return {};
    Pcm words = scene.voice();
    while (words.seconds() * 1000 < ms)
        words.samples.insert(words.samples.end(), scene.voice().samples.begin(), scene.voice().samples.end());
    member->speak(slice(words, 0, ms / 1000.0));
    return QStringLiteral("M%1 for %2").arg(index).arg(secondsText(ms));
}

Told memberTalks(Scene &scene, QRandomGenerator &random) {
    const int index = random.bounded(scene.members().count());
    return speak(scene, index, random.bounded(100, 12000));
}

/// Longer than the shortest talk time that can be set.
Told memberTalksLong(Scene &scene, QRandomGenerator &random) {
    return speak(scene, random.bounded(scene.members().count()), random.bounded(62000, 75000));
}

Told everybodyTalks(Scene &scene, QRandomGenerator &random) {
    int count = 0;
    for (int index = 0; index < scene.members().count(); ++index)
        count += speak(scene, index, random.bounded(500, 6000)) ? 1 : 0;
    return QString::number(count);
}

Told memberIsInterrupted(Scene &scene, QRandomGenerator &random) {
    const int index = random.bounded(scene.members().count());
    RoomMember *member = scene.members().ready(index);
    if (!member || !member->isSpeaking())
        return {};
    member->stopTalking();
    return QStringLiteral("M%1").arg(index);
}

/// Key pressed and let go, without a word.
Told memberKeysOnly(Scene &scene, QRandomGenerator &random) {
    RoomMember *member = scene.members().ready(random.bounded(scene.members().count()));
    if (!member || member->isSpeaking())
        return {};
    for (int times = random.bounded(1, 6); times > 0; --times) {
        member->startTalking();
        member->stopTalking();
    }
    return QString();
}

Told memberLeaves(Scene &scene, QRandomGenerator &random) {
    const int index = random.bounded(scene.members().count());
    if (!scene.members().ready(index) || !scene.isServerReachable())
        return {};
    scene.members().leave(index);
    return QStringLiteral("M%1").arg(index);
}

QString anyRoom(QRandomGenerator &random) {
    return random.bounded(4) == 0 ? QStringLiteral("Hilltop") : QStringLiteral("Lobby");
}

Told memberMoves(Scene &scene, QRandomGenerator &random) {
    const int index = random.bounded(scene.members().count());
    const QString room = anyRoom(random);
    scene.members().sendTo(index, room);
    return QStringLiteral("M%1 to %2").arg(index).arg(room);
}

Told gatewayIsMoved(Scene &scene, QRandomGenerator &random) {
    const QString room = anyRoom(random);
    if (!scene.promises().isSessionUp())
        return {};
    scene.server().move(Scene::gateway(), room);
    scene.promises().isDisturbed();
    return room;
}

Told squelchOpens(Scene &scene, QRandomGenerator &random) {
    const int ms = random.bounded(50, 9000);
    if (scene.isSquelchOpen())
        return {};
    scene.card().clearFeed();
    scene.card().feed(slice(scene.voice(), 0, ms / 1000.0 + 0.5));
    scene.setSquelch(true);
    scene.later(ms, [&scene] { scene.setSquelch(false); });
    return secondsText(ms);
}

Told squelchChatters(Scene &scene, QRandomGenerator &random) {
    const int times = random.bounded(2, 30);
    for (int time = 0; time < times; ++time) {
        scene.setSquelch(true);
        scene.setSquelch(false);
    }
    return QString::number(times);
}

Told gatewayIsMuted(Scene &scene, QRandomGenerator &random) {
    const int ms = random.bounded(500, 6000);
    if (!scene.promises().isSessionUp())
        return {};
    scene.muteGateway(true);
    scene.later(ms, [&scene] { scene.muteGateway(false); });
    return secondsText(ms);
}

constexpr Event events[] = {
    {"a member talks", 120, memberTalks},
    {"a member talks for more than a minute", 2, memberTalksLong},
    {"everybody talks at once", 8, everybodyTalks},
    {"a member is interrupted", 24, memberIsInterrupted},
    {"a member presses the key and says nothing", 10, memberKeysOnly},
    {"a member leaves, perhaps while talking", 10, memberLeaves},
    {"a member changes rooms", 14, memberMoves},
    {"the gateway is moved", 10, gatewayIsMoved},
    {"the squelch opens", 90, squelchOpens},
    {"the squelch chatters", 8, squelchChatters},
    {"the gateway is muted", 6, gatewayIsMuted},
};

} // namespace

std::span<const Event> talkEvents() {
    return events;
}
