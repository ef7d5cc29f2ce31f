#include "sim/show/Prompt.h"

#include "sim/sound/Voices.h"

#include <QJsonDocument>

#include <algorithm>
#include <functional>
#include <optional>
#include <utility>

namespace sim {
namespace {

/// What a word does; a table of them is looked up by the word.
using Choice = std::pair<QLatin1String, std::function<void()>>;

bool choose(const QString &word, const std::vector<Choice> &choices) {
    const auto chosen =
        std::find_if(choices.begin(), choices.end(), [&](const Choice &choice) { return choice.first == word; });
    if (chosen == choices.end())
        return false;
    chosen->second();
    return true;
}

QString gatewayCallsign() {
    return Site::gatewayAccount().callsign;
}

QJsonObject withoutPassword(QJsonObject config) {
    config.insert(QStringLiteral("password"), QStringLiteral("***"));
    return config;
}

} // namespace

struct Prompt::Command {
    QString name;
    QString argument; ///< as the help shows it
    QString effect;
    void (Prompt::*run)(const QString &argument);
};

const std::vector<Prompt::Command> &Prompt::commands() {
    static const std::vector<Command> table{
        {QStringLiteral("radio"), QStringLiteral("WORDS|FILE.wav"),
         QStringLiteral("somebody says it on the radio's frequency"), &Prompt::sayFromRadio},
        {QStringLiteral("room"), QStringLiteral("WORDS|FILE.wav"), QStringLiteral("the member says it in the room"),
         &Prompt::sayFromRoom},
        {QStringLiteral("member"), QStringLiteral("ROOM"),
         QStringLiteral("the member joins that room, also after the server was away"), &Prompt::joinMember},
        {QStringLiteral("squelch"), QStringLiteral("open|close"), QStringLiteral("an empty carrier comes or goes"),
         &Prompt::moveSquelch},
        {QStringLiteral("kick"), QStringLiteral("REASON"), QStringLiteral("the server throws the gateway out"),
         &Prompt::kick},
        {QStringLiteral("mute"), QStringLiteral("on|off"), QStringLiteral("an administrator mutes the gateway"),
         &Prompt::mute},
        {QStringLiteral("move"), QStringLiteral("ROOM"), QStringLiteral("an administrator moves the gateway"),
         &Prompt::move},
        {QStringLiteral("quality"), QStringLiteral("BITRATE RATE MS COMPLEXITY"),
         QStringLiteral("the server announces another audio quality, e.g. 16000 16000 40 5"), &Prompt::announceQuality},
        {QStringLiteral("board"), QStringLiteral("reset|vanish"),
         QStringLiteral("the board restarts, or its cable is pulled"), &Prompt::disturbBoard},
        {QStringLiteral("card"), QStringLiteral("unplug|plug|overrun|underrun"),
         QStringLiteral("what sound cards do to you"), &Prompt::disturbCard},
        {QStringLiteral("server"), QStringLiteral("stop|start|silent|back"),
         QStringLiteral("the server goes and comes; silent: without a word"), &Prompt::disturbServer},
        {QStringLiteral("drop"), QStringLiteral("JSON"), QStringLiteral("a command file, as the Web UI drops it"),
         &Prompt::drop},
        {QStringLiteral("show"), QStringLiteral("config|status|vu|rooms|..."),
         QStringLiteral("config.json, or the state file kivo-....json"), &Prompt::show},
        {QStringLiteral("log"), QStringLiteral("WORDS"),
         QStringLiteral("lines of the gateway's log that contain the words"), &Prompt::showLog},
        {QStringLiteral("status"), QString(), QStringLiteral("how things stand on the site"), &Prompt::showStatus},
        {QStringLiteral("help"), QString(), QStringLiteral("this list"), &Prompt::showHelp},
        {QStringLiteral("quit"), QString(), QStringLiteral("take the site down"), &Prompt::quit},
    };
    return table;
}

Prompt::Prompt(Site &site, Radio &radio, Handset &handset, Display &display, QObject *parent)
    : QObject(parent),
      m_site(site),
      m_radio(radio),
      m_handset(handset),
      m_display(display) {}

void Prompt::execute(const QString &line) {
    const QString name = line.section(QLatin1Char(' '), 0, 0, QString::SectionSkipEmpty);
    const QString argument = line.section(QLatin1Char(' '), 1, -1, QString::SectionSkipEmpty).trimmed();
    if (name.isEmpty())
        return;
    const auto command = std::find_if(commands().begin(), commands().end(),
                                      [&](const Command &candidate) { return candidate.name == name; });
    if (command == commands().end()) {
        complain(QStringLiteral("there is no command \"%1\"; help lists them").arg(name));
        return;
    }
    (this->*command->run)(argument);
}

QString Prompt::help() {
    QString text;
    for (const Command &command : commands()) {
        const QString usage = command.name + QLatin1Char(' ') + command.argument;
        text += QStringLiteral("  %1 %2\n").arg(usage.leftJustified(35), command.effect);
    }
    return text;
}

void Prompt::showHelp(const QString &) {
    m_display.showText(help());
}

void Prompt::showStatus(const QString &) {
    const auto either = [](bool is, const char *yes, const char *no) { return QLatin1String(is ? yes : no); };
    const auto inRoom = [](const QString &room) {
        return room.isEmpty() ? QStringLiteral("in no room") : QStringLiteral("in the room ") + room;
    };
    const VoiceServer &server = m_site.server();
    const QString gateway = gatewayCallsign();
    m_display.showText(
        QStringLiteral("gateway  %1, %2, %3\n"
                       "radio    squelch %4, PTT %5\n"
                       "card     capture %6, playback %7\n"
                       "member   %8, %9\n")
            .arg(either(m_site.daemon().isRunning(), "running", "not running"), inRoom(server.roomOf(gateway)),
                 either(server.isTalking(gateway), "transmitting", "not transmitting"),
                 either(m_radio.isSquelchOpen(), "open", "closed"), either(m_site.board().isKeyed(), "on", "off"),
                 either(m_site.card().isCaptureOpen(), "open", "closed"),
                 either(m_site.card().isPlaybackOpen(), "open", "closed"),
                 inRoom(server.roomOf(Site::memberAccount().callsign)),
                 either(m_handset.member().isSpeaking(), "speaking", "silent")));
}

void Prompt::joinMember(const QString &room) {
    m_handset.join(m_site.server(), room);
}

void Prompt::sayFromRadio(const QString &words) {
    QString problem = QStringLiteral("the radio is still hearing somebody");
    const std::optional<Pcm> pcm = m_radio.isReceiving() ? std::nullopt : sentence(words, radioVoice, &problem);
    if (!pcm) {
        complain(problem);
        return;
    }
    m_radio.receive(*pcm);
}

void Prompt::sayFromRoom(const QString &words) {
    QString problem = QStringLiteral("the member is still speaking");
    const std::optional<Pcm> pcm =
        m_handset.member().isSpeaking() ? std::nullopt : sentence(words, roomVoice, &problem);
    if (!pcm) {
        complain(problem);
        return;
    }
    m_handset.say(*pcm);
}

void Prompt::moveSquelch(const QString &how) {
    if (!choose(how, {{QLatin1String("open"), [this] { m_radio.setSquelch(true); }},
                      {QLatin1String("close"), [this] { m_radio.setSquelch(false); }}})) {
        complain(QStringLiteral("squelch open, or squelch close"));
    }
}

void Prompt::kick(const QString &reason) {
    m_site.server().kick(gatewayCallsign(), reason);
}

void Prompt::mute(const QString &how) {
    const auto muted = [this](bool on) { m_site.server().mute(gatewayCallsign(), on, QStringLiteral("ADMIN")); };
    if (!choose(how, {{QLatin1String("on"), [&] { muted(true); }}, {QLatin1String("off"), [&] { muted(false); }}}))
        complain(QStringLiteral("mute on, or mute off"));
}

void Prompt::move(const QString &room) {
    m_site.server().move(gatewayCallsign(), room);
}

void Prompt::announceQuality(const QString &numbers) {
    const QStringList words = numbers.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    if (words.size() != 4) {
        complain(QStringLiteral("quality BITRATE RATE MS COMPLEXITY"));
        return;
    }
    m_site.server().announceQuality(QStringLiteral("custom"), words[0].toInt(), words[1].toInt(), words[2].toInt(),
                                    words[3].toInt());
}

void Prompt::disturbBoard(const QString &how) {
    if (!choose(how, {{QLatin1String("reset"), [this] { m_site.board().reset(); }},
                      {QLatin1String("vanish"), [this] { m_site.board().vanish(); }}})) {
        complain(QStringLiteral("board reset, or board vanish"));
    }
}

void Prompt::disturbCard(const QString &how) {
    SoundCard &card = m_site.card();
    if (!choose(how, {{QLatin1String("unplug"), [&] { card.unplug(); }},
                      {QLatin1String("plug"), [&] { card.plugIn(); }},
                      {QLatin1String("overrun"), [&] { card.overrun(); }},
                      {QLatin1String("underrun"), [&] { card.underrun(); }}})) {
        complain(QStringLiteral("card unplug, plug, overrun, or underrun"));
    }
}

void Prompt::disturbServer(const QString &how) {
    VoiceServer &server = m_site.server();
    const auto start = [&] {
        if (!server.start())
            complain(QStringLiteral("the server cannot listen on its ports"));
    };
    if (!choose(how, {{QLatin1String("stop"), [&] { server.stop(); }},
                      {QLatin1String("start"), start},
                      {QLatin1String("silent"), [&] { server.setSilent(true); }},
                      {QLatin1String("back"), [&] { server.setSilent(false); }}})) {
        complain(QStringLiteral("server stop, start, silent, or back"));
    }
}

void Prompt::drop(const QString &json) {
    const QString name = QStringLiteral("kivo-cmd-%1.json").arg(++m_dropped, 6, 10, QLatin1Char('0'));
    m_site.dropFile(name, json.toUtf8());
    m_display.showText(QStringLiteral("dropped as %1\n").arg(name));
}

void Prompt::show(const QString &what) {
    const QString file = QStringLiteral("kivo-%1.json").arg(what);
    const QJsonDocument document =
        what == QLatin1String("config") ? QJsonDocument(withoutPassword(m_site.readConfig())) : m_site.readState(file);
    if (document.isEmpty()) {
        complain(QStringLiteral("there is no %1, or nothing in it").arg(file));
        return;
    }
    m_display.showText(QString::fromUtf8(document.toJson()));
}

void Prompt::showLog(const QString &words) {
    for (const QString &line : m_site.daemon().logged(words))
        m_display.showText(line + QLatin1Char('\n'));
}

void Prompt::quit(const QString &) {
    Q_EMIT quitRequested();
}

void Prompt::complain(const QString &problem) {
    m_display.showText(problem + QLatin1Char('\n'));
}

} // namespace sim
