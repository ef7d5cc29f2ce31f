#include "config/ConfigStore.h"

#include "config/Settings.h"
#include "config/SharedFile.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QJsonDocument>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

constexpr qint64 maxFileBytes = 1 << 20; ///< of a file that is read or written

void warnWithReason(const char *complaint) {
    const int reason = errno;
    qWarning() << complaint << strerror(reason);
}

/// What has been written without following anything planted under the name. A hard link (a backup may make one) is no
/// reason to start without settings, so it is read all the same.
UniqueFd openConfig(const QString &path) {
    return SharedFile::openToRead(path, SharedFile::OtherNames::Allowed);
}

/// Empty for a file of white space, nothing for one that cannot be read or is too big.
std::optional<QByteArray> readTrimmed(const UniqueFd &file) {
    const auto text = SharedFile::readAll(file, maxFileBytes);
    return text ? std::optional<QByteArray>(text->trimmed()) : std::nullopt;
}

std::optional<QJsonObject> parseObject(const QByteArray &text) {
    const QJsonDocument document = QJsonDocument::fromJson(text);
    return document.isObject() ? std::optional<QJsonObject>(document.object()) : std::nullopt;
}

/// The values that loading puts in the place of absent and null ones; another type than these is left as it is.
void insertDefaults(QJsonObject &config) {
    const QJsonObject none;
    const std::pair<QLatin1String, QJsonValue> defaults[] = {
        {QLatin1String("serial_port"), Settings::serialPort(none)},
        {QLatin1String("baudrate"), Settings::baudRate(none)},
        {QLatin1String("ptt_method"), QStringLiteral("arduino")},
        {QLatin1String("cos_logic_high"), Settings::cosLogicHigh(none)},
        {QLatin1String("ptt_invert"), Settings::pttInvert(none)},
        {QLatin1String("cos_pin"), QStringLiteral("COS")},
        {QLatin1String("ptt_pin"), QStringLiteral("RTS")},
        {QLatin1String("auto_login"), true},
        {QLatin1String("agc_enabled"), Settings::agcEnabled(none)},
        {QLatin1String("tot_duration"), Settings::totDurationSeconds(none)},
    };
    for (const auto &[key, value] : defaults) {
        const QJsonValue present = config.value(key);
        if (present.isUndefined() || present.isNull())
            config.insert(key, value);
    }
}

QJsonObject load(const QString &path) {
    const UniqueFd file = openConfig(path);
    if (!file.isValid()) {
        qDebug() << "[Config] No config file, using defaults";
        return {};
    }
    const auto text = readTrimmed(file);
    if (text && text->isEmpty()) {
        qWarning() << "[Config] Config file is empty";
        return {};
    }
    auto config = text ? parseObject(*text) : std::nullopt;
    if (!config) {
        qWarning() << "[Config] Invalid JSON in config file";
        return {};
    }
    insertDefaults(*config);
    return *config;
}

/// The object with what only the file holds added to it.
QJsonObject mergedWithFile(const QString &path, const QJsonObject &object) {
    const UniqueFd file = openConfig(path);
    const auto text = file.isValid() ? readTrimmed(file) : std::nullopt;
    auto merged = text ? parseObject(*text) : std::nullopt;
    if (!merged)
        return object;
    for (auto entry = object.begin(); entry != object.end(); ++entry)
        merged->insert(entry.key(), entry.value());
    return *merged;
}

/// False when somebody else has held the lock all the time. Closing the file releases it.
bool lockWithin(const LockPatience &patience, const UniqueFd &file) {
    for (int attempt = 0; attempt < patience.attempts; ++attempt) {
        if (::flock(file.get(), LOCK_EX | LOCK_NB) == 0)
            return true;
        std::this_thread::sleep_for(patience.pause);
    }
    return false;
}

/// What SharedFile::shareWithWebUi does, telling of each failure.
void handToWebUi(const UniqueFd &file) {
    const auto group = SharedFile::webUiGroup();
    if (!group)
        qWarning() << "[Config] Group www-data not found, skipping chown";
    else if (::fchown(file.get(), 0, *group) != 0)
        warnWithReason("[Config] chown failed:");
    if (::fchmod(file.get(), SharedFile::webUiMode) != 0)
        warnWithReason("[Config] chmod failed:");
}

bool abandon(const QByteArray &temporaryPath, const char *complaint) {
    warnWithReason(complaint);
    ::unlink(temporaryPath.constData()); // one that stays all the same is overwritten by the next save
    return false;
}

bool replaceFile(const QString &path, const QByteArray &json) {
    const QString temporary = path + QStringLiteral(".tmp");
    const QByteArray temporaryPath = QFile::encodeName(temporary);
    const UniqueFd file = SharedFile::openToWrite(temporary);
    if (!file.isValid()) {
        warnWithReason("[Config] Cannot open tmp file:");
        return false;
    }
    // From its first moment in place the Web UI may read it, after a power cut too.
    SharedFile::shareWithWebUi(file);
    // Bytes that did not reach the disk must not take the place of good ones.
    if (!SharedFile::writeAll(file, json) || ::fsync(file.get()) != 0)
        return abandon(temporaryPath, "[Config] Short write to tmp:");
    if (::rename(temporaryPath.constData(), QFile::encodeName(path).constData()) != 0)
        return abandon(temporaryPath, "[Config] rename failed:");
    // Still the same file, now under its final name; the name itself may by now stand for something else.
    handToWebUi(file);
    return true;
}

} // namespace

ConfigStore::ConfigStore(QString directory, LockPatience patience)
    : m_directory(std::move(directory)),
      m_patience(patience) {}

QJsonObject &ConfigStore::object() {
    std::call_once(m_loadedOnce, [this] { m_object = load(configPath()); });
    return m_object;
}

bool ConfigStore::save() {
    return save(object());
}

bool ConfigStore::save(QJsonObject &object) {
    const QString path = configPath();
    const UniqueFd lock = SharedFile::openToLock(m_directory + QStringLiteral("/config.lock"));
    if (!lock.isValid()) {
        warnWithReason("[Config] Cannot open lock file:");
        return false;
    }
    if (!lockWithin(m_patience, lock)) {
        qWarning() << "[Config] Could not acquire lock after 5s";
        return false;
    }
    const QJsonObject merged = mergedWithFile(path, object);
    const QByteArray json = QJsonDocument(merged).toJson(QJsonDocument::Indented);
    if (json.size() > maxFileBytes) {
        qWarning() << "[Config] Configuration too large, not saved";
        return false;
    }
    object = merged; // what the Web UI has added is known from here on, written or not
    if (!replaceFile(path, json))
        return false;
    SharedFile::shareWithWebUi(lock);
    return true;
}

QString ConfigStore::configPath() const {
    // A folder that cannot be made shows when the file is opened, with the system's reason.
    QDir().mkpath(m_directory);
    return m_directory + QStringLiteral("/config.json");
}
