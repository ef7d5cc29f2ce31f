#include "Hilltop.h"

#include "Promise.h"
#include "Surroundings.h"
#include "config/SharedFile.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <array>
#include <filesystem>

using namespace std::chrono_literals;

namespace {

/// What one run may take in all: enough for every wait of the gateway, a few times.
constexpr std::chrono::milliseconds longestRun = 60s;
constexpr int largestBoardPiece = 512;

/// What the gateway writes again and again is written less often than in truth: it costs time and teaches nothing new.
constexpr TimerPeriods periods = {.levels = 5000ms, .status = 5000ms};

void writeFile(const QString &path, const QByteArray &bytes) {
    QFile file(path);
    promise(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size(), "set-up: file");
}

QByteArray readFile(const QString &path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void emptyFolder(const QString &path) {
    const std::filesystem::path folder = QFile::encodeName(path).toStdString();
    std::filesystem::create_directories(folder);
    for (const auto &file : std::filesystem::directory_iterator(folder))
        std::filesystem::remove(file);
}

bool isKnownCommand(const QByteArray &word) {
    static constexpr std::array words{"LOGIN",
                                      "LOGIN_HWID",
                                      "JOIN",
                                      "LEAVE",
                                      "ROOMS",
                                      "TX_START",
                                      "TX_STOP",
                                      "PING",
                                      "QUIT",
                                      "ONLINE_USERS",
                                      "USER_GET_INFO",
                                      "ADMIN_GET_ALL_USERS",
                                      "ADMIN_PENDING",
                                      "ADMIN_APPROVE_USER",
                                      "ADMIN_UNAPPROVE_USER",
                                      "ADMIN_RESET_HWID",
                                      "ADMIN_KICK",
                                      "ADMIN_MOVE",
                                      "ADMIN_MUTE",
                                      "ADMIN_DELETE_USER",
                                      "ADMIN_RESET_PASSWORD",
                                      "ADMIN_UPDATE_USER",
                                      "ADMIN_CREATE_ROOM",
                                      "ADMIN_DELETE_ROOM",
                                      "ADMIN_EDIT_ROOM",
                                      "ADMIN_SET_ROOM_ORDER",
                                      "ADMIN_SET_AUDIO_QUALITY"};
    return std::find(words.begin(), words.end(), word) != words.end();
}

void checkCommand(const QByteArray &line) {
    promise(line.endsWith('\r'), "a command ends with CR LF");
    const QByteArray text = line.chopped(1);
    promise(!text.contains('\r') && !text.contains('\0'), "nothing inside a command ends it");
    promise(isKnownCommand(text.split(' ').first()), "only commands are sent");
}

} // namespace

Hilltop::Hilltop(std::uint8_t cutting)
    : m_time(Surroundings::instance().time()),
      m_pieces(cutting),
      m_timeLeft(longestRun) {
    m_paths.root = Surroundings::instance().folder();
    emptyFolder(m_paths.configDir());
    emptyFolder(m_paths.exchangeDir());
    writeConfig();
    m_appliance.emplace(
        m_paths, [](const QString &) { return false; }, SessionDelays(), periods);
    m_appliance->start();
    m_time.pass(500ms);
    m_server.awaitConnection();
    pass(0ms);
    promise(m_server.isConnected(), "the gateway connects");
}

void Hilltop::writeConfig() {
    const QJsonObject config = {
        {QStringLiteral("server_address"), m_server.address()}, {QStringLiteral("server_port"), m_server.port()},
        {QStringLiteral("serial_port"), m_board.portName()},    {QStringLiteral("audio_input"), QStringLiteral("none")},
        {QStringLiteral("callsign"), QStringLiteral("ab1cd")},  {QStringLiteral("password"), QStringLiteral("secret")},
        {QStringLiteral("hwid"), QStringLiteral("h1")},         {QStringLiteral("last_room"), QStringLiteral("Hill")}};
    writeFile(m_paths.configDir() + QStringLiteral("/config.json"), QJsonDocument(config).toJson());
}

void Hilltop::enterRoom() {
    say("LOGIN_OK|token|AB1CD|true|42\r\n");
    pass(1000ms);
    say("JOIN_OK|Hill\r\n");
    pass(500ms);
}

void Hilltop::play(const Step &step) {
    constexpr std::array spans{20ms, 100ms, 500ms, 1000ms, 1500ms, 2000ms, 5000ms, 10000ms};
    switch (step.what) {
    case 's':
        say(step.bytes);
        break;
    case 'e':
        makeServer(&Server::hangUp);
        pass(5000ms);
        say(step.bytes);
        break;
    case 'r':
        makeServer(&Server::reset);
        pass(5000ms);
        say(step.bytes);
        break;
    case 'm':
        m_server.sendDatagram(step.bytes);
        m_time.settle();
        break;
    case 'b':
        boardSays(step.bytes);
        break;
    case 'x':
        m_board.vanish();
        m_time.settle();
        break;
    case 'c':
        dropCommand(step.bytes);
        break;
    case 'l':
        dropTrigger(step.bytes);
        break;
    case 't':
        if (!step.bytes.isEmpty())
            pass(spans[static_cast<std::size_t>(step.bytes[0]) % spans.size()]);
        say(step.bytes.mid(1));
        break;
    default:
        break;
    }
    checkCommandsSent();
    if (m_speakerMuted)
        promise(!m_board.isKeyed(), "a muted speaker keys no transmitter");
}

void Hilltop::finish() {
    makeServer(&Server::reset);
    checkStatus();
    promise(!m_board.isKeyed(), "the transmitter is released when the link is lost");
    m_appliance.reset();
    m_time.settle();
    promise(!m_board.isKeyed(), "the transmitter is released at the end");
}

void Hilltop::say(const QByteArray &bytes) {
    for (int said = 0; said < bytes.size();) {
        const int size = m_pieces.next(bytes.size() - said);
        m_server.say({bytes.constData() + said, static_cast<std::size_t>(size)});
        if (m_server.isHeard())
            m_time.awaitInput();
        m_time.settle();
        said += size;
    }
    m_server.accept();
}

void Hilltop::makeServer(void (Server::*action)()) {
    const bool isHeard = m_server.isHeard();
    (m_server.*action)();
    if (isHeard)
        m_time.awaitInput();
    m_time.settle();
}

/// In pieces that the line takes without waiting for a reader.
void Hilltop::boardSays(const QByteArray &bytes) {
    for (int said = 0; said < bytes.size(); said += largestBoardPiece) {
        m_board.say(bytes.mid(said, largestBoardPiece));
        m_time.settle();
    }
}

void Hilltop::dropCommand(const QByteArray &json) {
    const QString name = QStringLiteral("/kivo-cmd-%1.json").arg(++m_commandFiles);
    const QString path = m_paths.exchangeDir() + name;
    writeFile(path, json);
    pass(periods.commands);
    const QString action = QJsonDocument::fromJson(json).object().value(QStringLiteral("action")).toString();
    if (QFile::exists(path)) // no time left to look for it
        return;
    if (action == QLatin1String("tx_stop_emergency"))
        promise(!m_board.isKeyed(), "the emergency stop releases the transmitter");
    if (action == QLatin1String("mute_spk"))
        m_speakerMuted = true;
    if (action == QLatin1String("unmute_spk"))
        m_speakerMuted = false;
}

void Hilltop::dropTrigger(const QByteArray &json) {
    writeFile(m_paths.loginTriggerFile(), json);
    pass(periods.loginTrigger);
}

/// Ends without effect when the run has taken its time.
void Hilltop::pass(ms span) {
    if (span > m_timeLeft)
        return;
    m_timeLeft -= span;
    m_time.pass(span);
    m_server.accept();
    m_time.settle();
}

void Hilltop::checkCommandsSent() {
    m_commandsHeard += m_server.heard();
    int start = 0;
    for (int end = m_commandsHeard.indexOf('\n'); end >= 0; end = m_commandsHeard.indexOf('\n', start)) {
        checkCommand(m_commandsHeard.mid(start, end - start));
        start = end + 1;
    }
    m_commandsHeard.remove(0, start);
}

void Hilltop::checkStatus() {
    const QJsonObject status = jsonIn(m_paths.statusFile());
    promise(!status.value(QStringLiteral("connected")).toBool(true), "the status tells that the link is lost");
    promise(!status.value(QStringLiteral("transmitting")).toBool(true), "nothing is sent without a link");
    promise(status.value(QStringLiteral("room")).toString(QStringLiteral("?")).isEmpty(), "no room without a link");
    const QJsonObject config = jsonIn(m_paths.configDir() + QStringLiteral("/config.json"));
    promise(config.value(QStringLiteral("hwid")) == QLatin1String("h1"), "settings that nobody changes stay");
}

QJsonObject Hilltop::jsonIn(const QString &path) const {
    const QJsonDocument document = QJsonDocument::fromJson(readFile(path));
    promise(document.isObject(), "every file holds an object");
    return document.object();
}
