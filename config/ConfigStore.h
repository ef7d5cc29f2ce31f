#pragma once

#include <QJsonObject>
#include <QString>

#include <chrono>
#include <mutex>

/// How long a save waits for whoever holds the lock.
struct LockPatience {
    int attempts = 500;
    std::chrono::milliseconds pause{10}; ///< after each failed attempt
};

/// The appliance's settings: one JSON object in memory, loaded on first access, saved under a lock by merging it into
/// what the Web UI has written meanwhile.
///
/// On disk, in the given folder: "config.json", and beside it "config.lock", which every writer locks with flock(), and
/// "config.json.tmp". Readers see the old or the new file whole, after a power cut too. Failures are logged, none is
/// fatal. A file over 1 MiB counts as one that is not JSON.
class ConfigStore {
public:
    explicit ConfigStore(QString directory, LockPatience patience = {});

    /// The one object; loaded on the first call. Changes reach the disk only through save().
    QJsonObject &object();
    /// Saves object(). True on success: object() is then what was written; it also has what the Web UI has added where
    /// only the writing failed. Nothing over 1 MiB is written. Blocks for up to 5 s on the lock.
    bool save();
    /// Same for any object of the caller's.
    bool save(QJsonObject &object);
    /// Path of config.json; creates the folder when it is missing.
    QString configPath() const;

private:
    const QString m_directory;
    const LockPatience m_patience;
    std::once_flag m_loadedOnce;
    QJsonObject m_object;
};
