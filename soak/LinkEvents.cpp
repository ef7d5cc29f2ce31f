#include "Events.h"

#include <limits>

using namespace sim;

namespace {

Told kick(Scene &scene, QRandomGenerator &) {
    if (!scene.promises().isSessionUp())
        return {};
    scene.promises().isDisturbed();
    scene.server().kick(Scene::gateway(), QStringLiteral("soak"));
    return QString();
}

Told restart(Scene &scene, QRandomGenerator &random) {
    const int ms = random.bounded(2) == 0 ? 0 : random.bounded(1, 12000);
    if (!scene.isServerReachable())
        return {};
    scene.stopServer();
    scene.later(ms, [&scene] { scene.startServer(); });
    return secondsText(ms);
}

Told silence(Scene &scene, int ms) {
    if (!scene.promises().isSessionUp())
        return {};
    scene.setServerSilent(true);
    scene.later(ms, [&scene] { scene.setServerSilent(false); });
    return secondsText(ms);
}

Told shortSilence(Scene &scene, QRandomGenerator &random) {
    return silence(scene, random.bounded(200, 8000));
}

/// Long enough for the gateway to give the link up, or nearly so.
Told longSilence(Scene &scene, QRandomGenerator &random) {
    return silence(scene, random.bounded(25000, 50000));
}

bool isAudio(const QByteArray &datagram) {
    return datagram.startsWith('\0'); // of the talker's id; the texts begin with a letter
}

/// A random generator that outlives the event.
auto dice(QRandomGenerator &random) {
    return std::make_shared<QRandomGenerator>(random.generate());
}

Told mediaGetLost(Scene &scene, QRandomGenerator &random) {
    const int percent = random.bounded(1, 60);
    const int ms = random.bounded(1000, 10000);
    scene.server().setMediaLoss([percent, thrown = dice(random)](const QByteArray &datagram) {
        return isAudio(datagram) && thrown->bounded(100) < percent;
    });
    scene.later(ms, [&scene] { scene.server().setMediaLoss({}); });
    return QStringLiteral("%1 % for %2").arg(percent).arg(secondsText(ms));
}

/// Twice, or only after the next one.
QList<QByteArray> shuffled(const QByteArray &datagram, QRandomGenerator &thrown, QByteArray &held) {
    QList<QByteArray> pieces;
    const int number = thrown.bounded(4);
    if (number == 0 && held.isEmpty() && isAudio(datagram)) {
        held = datagram;
        return pieces;
    }
    pieces << datagram;
    if (number == 1)
        pieces << datagram;
    if (!held.isEmpty())
        pieces << std::exchange(held, {});
    return pieces;
}

Told mediaAreShuffled(Scene &scene, QRandomGenerator &random) {
    const int ms = random.bounded(1000, 10000);
    scene.server().setMediaPath([thrown = dice(random), held = std::make_shared<QByteArray>()](
                                    const QByteArray &datagram) { return shuffled(datagram, *thrown, *held); });
    scene.later(ms, [&scene] { scene.server().setMediaPath({}); });
    return secondsText(ms);
}

Told repliesAreCut(Scene &scene, QRandomGenerator &random) {
    const int ms = random.bounded(1000, 20000);
    scene.server().setReplyPath([thrown = dice(random)](const QByteArray &line) {
        const int cut = thrown->bounded(line.size());
        return QList<QByteArray>{line.left(cut), line.mid(cut)};
    });
    scene.later(ms, [&scene] { scene.server().setReplyPath({}); });
    return secondsText(ms);
}

Told senselessReplies(Scene &scene, QRandomGenerator &random) {
    static const QByteArray lines[] = {"USER_LIST\r\n",
                                       "USER_LIST|Lobby|1,2,3||,,,|TX,TX\r\n",
                                       "JOIN_OK\r\n",
                                       "MOVED|||\r\n",
                                       "|||||\r\n",
                                       "AUDIO 7 4\r\nab",
                                       "LOGIN_FAILED|lain\r\n",
                                       "ANNOUNCEMENTS ",
                                       "\xff\xfe\r\n"};
    QByteArray line = lines[random.bounded(int(std::size(lines)))];
    if (!scene.promises().isSessionUp())
        return {};
    // A list of nobody knows whom, or a room without a name: the gateway takes the server's word for it until it logs
    // in again.
    scene.promises().isDisturbed();
    scene.server().sendRaw(Scene::gateway(), line);
    scene.server().kick(Scene::gateway(), QStringLiteral("soak"));
    return QString::fromLatin1(line.toPercentEncoding(" |,"));
}

Told quality(Scene &scene, QRandomGenerator &) {
    if (!scene.promises().isSessionUp() || !scene.isCardIn())
        return {};
    scene.announceNextQuality();
    return QString();
}

Told senselessQuality(Scene &scene, QRandomGenerator &random) {
    constexpr int least = std::numeric_limits<int>::min();
    constexpr int most = std::numeric_limits<int>::max();
    constexpr int numbers[] = {0, -1, 1, 20, 44100, 48000, least, most};
    const auto any = [&] { return numbers[random.bounded(int(std::size(numbers)))]; };
    const int values[] = {any(), any(), any(), any()};
    const int ms = random.bounded(100, 3000);
    if (!scene.promises().isSessionUp() || !scene.isCardIn())
        return {};
    scene.announceQuality(QStringLiteral("aneh"), values[0], values[1], values[2], values[3]);
    scene.later(ms, [&scene] {
        if (scene.isCardIn()) // else it comes with the card
            scene.announceNextQuality();
    });
    return QStringLiteral("%1 bit/s, %2 Hz, %3 ms, %4").arg(values[0]).arg(values[1]).arg(values[2]).arg(values[3]);
}

constexpr Event events[] = {
    {"the gateway is kicked", 4, kick},
    {"the server restarts", 5, restart},
    {"the server is silent for a moment", 5, shortSilence},
    {"the server is silent for half a minute", 1, longSilence},
    {"media get lost", 14, mediaGetLost},
    {"media come twice or out of order", 10, mediaAreShuffled},
    {"replies come in pieces", 8, repliesAreCut},
    {"senseless replies, and a kick", 3, senselessReplies},
    {"another quality", 12, quality},
    {"a senseless quality", 6, senselessQuality},
};

} // namespace

std::span<const Event> linkEvents() {
    return events;
}
