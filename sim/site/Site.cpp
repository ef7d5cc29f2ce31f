#include "sim/site/Site.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>

namespace sim {
namespace {

using namespace std::chrono_literals;

/// How often a condition is looked at when no event comes.
constexpr auto lookInterval = 5ms;

QString configFile() {
    return sitePaths().appliance + QStringLiteral("/config/config.json");
}

QString exchangeFile(const QString &fileName) {
    return sitePaths().appliance + QStringLiteral("/tmp/") + fileName;
}

/// The folder of the cards, with the appliance's folders empty; no way on when this is not the private site.
QString newBox() {
    const SitePaths paths = sitePaths();
    if (!QFileInfo(paths.cards).isDir())
        qFatal("no private site here; nothing was touched");
    for (const QFileInfo &folder : QDir(paths.appliance).entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        for (const QFileInfo &entry :
             QDir(folder.filePath())
                 .entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot)) {
            const bool isFolder = entry.isDir() && !entry.isSymLink();
            const bool isGone = isFolder ? QDir(entry.filePath()).removeRecursively() : QFile::remove(entry.filePath());
            if (!isGone)
                qFatal("cannot remove %s", qPrintable(entry.filePath()));
        }
    }
    return paths.cards;
}

/// A file that is written in place is looked at again while it is but half there.
QJsonDocument readJson(const QString &path) {
    constexpr int looks = 4;
    QJsonDocument document;
    for (int look = 0; look < looks && document.isNull(); ++look) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            break;
        document = QJsonDocument::fromJson(file.readAll());
        if (document.isNull())
            std::this_thread::sleep_for(5ms);
    }
    return document;
}

/// Under a hidden name first, so that nobody meets half of it.
void writeWhole(const QString &path, const QByteArray &bytes) {
    const QFileInfo target(path);
    const QString hidden = target.path() + QStringLiteral("/.being-written");
    QFile file(hidden);
    const bool written = file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush();
    if (!written || ::rename(QFile::encodeName(hidden).constData(), QFile::encodeName(path).constData()) != 0)
        qFatal("cannot write %s", qPrintable(path));
}

QByteArray randomKey() {
    QByteArray key(32, Qt::Uninitialized);
    std::generate(key.begin(), key.end(), [] { return char(QRandomGenerator::system()->bounded(256)); });
    return key;
}

} // namespace

Site::Site(const QStringList &daemonProgram, const CardOptions &cardOptions)
    : m_card(newBox(), 0, cardOptions),
      m_board(sitePaths().devpts),
      m_daemon(daemonProgram.isEmpty() ? Daemon::defaultProgram() : daemonProgram) {
    m_daemon.setEnvironment(QStringLiteral("ALSA_CONFIG_PATH"), SoundCard::writeAlsaConfig(sitePaths().cards));
    for (const QString &room : {QStringLiteral("Lobby"), QStringLiteral("Hilltop")})
        m_server.addRoom(room, randomKey());
    for (const Account &account : {gatewayAccount(), memberAccount(), adminAccount()})
        m_server.addAccount(account);
}

Account Site::gatewayAccount() {
    Account account;
    account.id = 42;
    account.callsign = QStringLiteral("AB1CD");
    account.password = QStringLiteral("gateway");
    account.name = QStringLiteral("The gateway");
    return account;
}

Account Site::memberAccount() {
    Account account;
    account.id = 200;
    account.callsign = QStringLiteral("EF2GH");
    account.password = QStringLiteral("member");
    account.name = QStringLiteral("A member");
    return account;
}

Account Site::adminAccount() {
    Account account;
    account.id = 1;
    account.callsign = QStringLiteral("XY9ZA");
    account.password = QStringLiteral("admin");
    account.name = QStringLiteral("An administrator");
    account.isAdmin = true;
    return account;
}

void Site::writeConfig(const QJsonObject &over, const QStringList &without) {
    QJsonObject config = {
        {QStringLiteral("callsign"), gatewayAccount().callsign},
        {QStringLiteral("password"), gatewayAccount().password},
        {QStringLiteral("server_address"), QStringLiteral("127.0.0.1")},
        {QStringLiteral("server_port"), 8080},
        {QStringLiteral("audio_input"), QStringLiteral("hw:0,0")},
        {QStringLiteral("serial_port"), m_board.portName()},
        {QStringLiteral("mic_gain"), 100},
        {QStringLiteral("speaker_gain"), 100},
    };
    for (auto key = over.begin(); key != over.end(); ++key)
        config.insert(key.key(), key.value());
    for (const QString &key : without)
        config.remove(key);
    writeWhole(configFile(), QJsonDocument(config).toJson());
}

QJsonObject Site::readConfig() const {
    return readJson(configFile()).object();
}

QJsonDocument Site::readState(const QString &fileName) const {
    return readJson(exchangeFile(fileName));
}

void Site::dropFile(const QString &fileName, const QByteArray &bytes) {
    writeWhole(exchangeFile(fileName), bytes);
}

bool Site::waitFor(const std::function<bool()> &condition, int timeoutMs) {
    const QDeadlineTimer deadline(timeoutMs);
    QTimer look;
    look.start(lookInterval);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

bool Site::waitForLog(const QString &words, int timeoutMs) {
    return waitFor([this, &words] { return !m_daemon.logged(words).isEmpty(); }, timeoutMs);
}

bool Site::bringUp(int timeoutMs) {
    // The daemon's own word for both: it learns of its room a moment after the server has put it there.
    const QString mediaReady = QStringLiteral("[UDP] Siap");
    const QString roomJoined = QStringLiteral("[Room] Bergabung ke room:");
    const int alreadyReady = m_daemon.logged(mediaReady).size();
    const int alreadyJoined = m_daemon.logged(roomJoined).size();
    if (!QFile::exists(configFile()))
        writeConfig();
    return m_server.start() && m_daemon.start() &&
           waitFor(
               [&] {
                   return m_daemon.logged(roomJoined).size() > alreadyJoined &&
                          m_daemon.logged(mediaReady).size() > alreadyReady;
               },
               timeoutMs);
}

} // namespace sim
