#include "sim/show/Witness.h"

#include "sim/MonotonicClock.h"

namespace sim {
namespace {

const auto radioName = QStringLiteral("radio");
const auto boardName = QStringLiteral("board");
const auto serverName = QStringLiteral("server");
const auto gatewayName = QStringLiteral("gateway");

/// The daemon's log holds more than a spectator wants: its debug lines stay in the log.
bool isWorthTelling(const LogLine &line) {
    return line.level != QLatin1String("debug") && line.text.startsWith(QLatin1Char('['));
}

} // namespace

QString lanes::radioToRoom() {
    return QStringLiteral("Radio → room");
}
QString lanes::squelch() {
    return QStringLiteral("COS (squelch open)");
}
QString lanes::gatewayTalks() {
    return QStringLiteral("Gateway transmits");
}
QString lanes::roomToRadio() {
    return QStringLiteral("Room → radio");
}
QString lanes::memberTalks() {
    return QStringLiteral("Member transmits");
}
QString lanes::ptt() {
    return QStringLiteral("PTT (radio keyed)");
}

Witness::Witness(Site &site, Radio &radio, Display &display, Timeline &timeline, QObject *parent)
    : QObject(parent),
      m_display(display),
      m_timeline(timeline) {
    for (const QString &lane : {lanes::radioToRoom(), lanes::squelch(), lanes::gatewayTalks(), lanes::roomToRadio(),
                                lanes::memberTalks(), lanes::ptt()}) {
        m_timeline.addLane(lane);
    }
    watchRadio(radio, site.board());
    watchServer(site.server());
    watchDaemon(site.daemon());
}

void Witness::watchRadio(Radio &radio, Board &board) {
    connect(&radio, &Radio::squelchChanged, this, [this](bool open) {
        m_timeline.setState(lanes::squelch(), open, monotonicNs());
        m_display.showEvent(radioName,
                            open ? QStringLiteral("squelch opens: COS:1") : QStringLiteral("squelch closes: COS:0"));
    });
    connect(&board, &Board::pttChanged, this, [this](bool keyed) {
        m_timeline.setState(lanes::ptt(), keyed, monotonicNs());
        m_display.showEvent(boardName,
                            keyed ? QStringLiteral("PTT on: the radio transmits") : QStringLiteral("PTT off"));
    });
}

void Witness::watchServer(VoiceServer &server) {
    connect(&server, &VoiceServer::loggedIn, this, [this](const QString &callsign) {
        m_display.showEvent(serverName, callsign + QStringLiteral(" logs in"));
    });
    connect(&server, &VoiceServer::joined, this, [this](const QString &callsign, const QString &room) {
        m_display.showEvent(serverName, QStringLiteral("%1 joins the room %2").arg(callsign, room));
    });
    connect(&server, &VoiceServer::left, this, [this](const QString &callsign, const QString &room) {
        m_display.showEvent(serverName, QStringLiteral("%1 leaves the room %2").arg(callsign, room));
    });
    connect(&server, &VoiceServer::talkingChanged, this, &Witness::onTalkingChanged);
    connect(&server, &VoiceServer::audioRelayed, this, &Witness::onAudioRelayed);
}

void Witness::watchDaemon(Daemon &daemon) {
    connect(&daemon, &Daemon::logLine, this, &Witness::onLogLine);
    connect(&daemon, &Daemon::ended, this,
            [this] { m_display.showEvent(gatewayName, QStringLiteral("the process has ended")); });
}

void Witness::onTalkingChanged(const QString &callsign, bool talking) {
    const bool isGateway = callsign == Site::gatewayAccount().callsign;
    m_timeline.setState(isGateway ? lanes::gatewayTalks() : lanes::memberTalks(), talking, monotonicNs());
    const Talk talk = m_talks.take(callsign);
    if (talking) {
        m_display.showEvent(serverName, callsign + QStringLiteral(" starts to transmit: TX_START"));
    } else {
        m_display.showEvent(serverName, QStringLiteral("%1 stops: TX_STOP, after %2 frames of %3 bytes on average")
                                            .arg(callsign)
                                            .arg(talk.frames)
                                            .arg(talk.frames > 0 ? talk.bytes / talk.frames : 0));
    }
}

void Witness::onAudioRelayed(const QString &callsign, const QByteArray &frame) {
    Talk &talk = m_talks[callsign];
    talk.bytes += frame.size();
    if (++talk.frames == 1) {
        m_display.showEvent(serverName,
                            QStringLiteral("first audio frame of %1: %2 sealed bytes").arg(callsign).arg(frame.size()));
    }
}

void Witness::onLogLine(const LogLine &line) {
    if (isWorthTelling(line))
        m_display.showEvent(gatewayName, line.text);
}

} // namespace sim
