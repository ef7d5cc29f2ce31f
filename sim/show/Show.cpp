#include "sim/show/Show.h"

#include "sim/show/TimelineSvg.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>

#include <unistd.h>

namespace sim {
namespace {

constexpr auto invitation = R"(
The site stays up. Commands:

%1
For example:

  room Is anybody listening on the hilltop?
  drop {"action":"mute_mic"}
  show status

From another shell, as a Web UI does it; watch muted_mic, and then room:

  site='%2'
  cd='cd /opt/kivo-appliance/tmp'
  $site sh -c "$cd; ls -l; cat kivo-status.json"
  $site sh -c "$cd; echo '{\"action\":\"unmute_mic\"}' >new; mv new kivo-cmd-1.json"
  $site sh -c "$cd; echo '{\"action\":\"leave\"}' >new; mv new kivo-cmd-2.json"
  $site sh -c "$cd; sleep 3; cat kivo-status.json kivo-userlist.json kivo-vu.json"

)";

constexpr int readyTimeoutMs = 20000;
constexpr int meterPeriodMs = 100;
constexpr int logLinesOnFailure = 30;

bool writeFile(const QString &path, const QByteArray &bytes) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush();
}

} // namespace

Show::Show(const Options &options)
    : m_options(options),
      m_timeline(monotonicNs()),
      m_site(options.daemon),
      m_radio(m_site.board(), m_site.card()),
      m_handset(m_member),
      m_witness(m_site, m_radio, m_display, m_timeline),
      m_prompt(m_site, m_radio, m_handset, m_display) {
    QObject::connect(&m_meterTimer, &QTimer::timeout, [this] { showMeters(); });
    QObject::connect(&m_prompt, &Prompt::quitRequested, [] { QCoreApplication::quit(); });
}

bool Show::bringUp() {
    m_display.showText(
        QStringLiteral("A simulated site: voice server on 127.0.0.1, sound card hw:0,0, radio board on %1.\n"
                       "The gateway is the real program, unmodified.\n\n")
            .arg(m_site.board().portName()));
    // The board is told its settings 2 s after its port was opened; before that nobody would key a radio.
    if (!m_site.bringUp(readyTimeoutMs) ||
        !m_site.waitForLog(QStringLiteral("[Arduino] Config sent"), readyTimeoutMs)) {
        return fail(QStringLiteral("the gateway does not get into its room"));
    }
    m_handset.join(m_site.server(), m_site.server().roomOf(Site::gatewayAccount().callsign));
    if (!Site::waitFor([this] { return m_member.isReady(); }, readyTimeoutMs))
        return fail(QStringLiteral("the member does not get into the room"));
    return true;
}

bool Show::fail(const QString &what) {
    m_display.showText(QStringLiteral("\nThe show is off: %1. The end of the gateway's log:\n").arg(what));
    const QStringList log = m_site.daemon().logged(QString());
    for (const QString &line : log.mid(qMax(0, log.size() - logLinesOnFailure)))
        m_display.showText(QStringLiteral("  %1\n").arg(line));
    return false;
}

void Show::play(const Pcm &fromRadio, const Pcm &fromRoom) {
    m_demonstration.emplace(m_radio, m_handset, m_timeline);
    QObject::connect(&*m_demonstration, &Demonstration::finished, [this] { onPlayed(); });
    m_meterTimer.start(meterPeriodMs);
    m_demonstration->start(fromRadio, fromRoom);
}

void Show::showMeters() {
    if (m_radio.isReceiving()) {
        m_display.showMeters({{QStringLiteral("radio hears"), m_radio.receivedDbfs()},
                              {QStringLiteral("room hears"), m_handset.heardDbfs()}});
    } else if (m_member.isSpeaking() || m_site.board().isKeyed()) {
        m_display.showMeters({{QStringLiteral("room says"), m_handset.saidDbfs()},
                              {QStringLiteral("on the air"), m_radio.transmittedDbfs()}});
    } else {
        m_display.showMeters({});
    }
}

void Show::onPlayed() {
    m_display.showMeters({});
    m_display.showText(QLatin1Char('\n') + reportTable(m_demonstration->passages()) + QLatin1Char('\n'));
    writeResults();
    if (m_options.stay)
        openPrompt();
    else
        QCoreApplication::quit();
}

void Show::writeResults() {
    const QDir folder(m_options.outFolder);
    const QString heading = QStringLiteral("A voice crosses the gateway both ways");
    const bool wroteAll =
        folder.mkpath(QStringLiteral(".")) &&
        writeWav(folder.filePath(QStringLiteral("radio-to-room.wav")), m_demonstration->heardInRoom().pcm) &&
        writeWav(folder.filePath(QStringLiteral("room-to-radio.wav")), m_demonstration->heardOnAir().pcm) &&
        writeFile(folder.filePath(QStringLiteral("timeline.svg")), timelineSvg(m_timeline, heading));
    m_display.showText((wroteAll ? QStringLiteral("What was heard, and a picture of what happened: %1/\n"
                                                  "  radio-to-room.wav  room-to-radio.wav  timeline.svg\n")
                                 : QStringLiteral("Not all recordings could be written to %1/\n"))
                           .arg(folder.path()));
}

void Show::openPrompt() {
    m_display.showText(QString::fromUtf8(invitation).arg(Prompt::help(), m_options.lookInside));
    m_input.emplace(STDIN_FILENO);
    QObject::connect(&*m_input, &InputLines::line, [this](const QString &line) { m_prompt.execute(line); });
    QObject::connect(&*m_input, &InputLines::ended, [] {
        // Ctrl-D at a terminal. Elsewhere nobody may have been there to type: then the site stays until it is told to
        // end.
        if (Display::isTerminal())
            QCoreApplication::quit();
    });
}

} // namespace sim
