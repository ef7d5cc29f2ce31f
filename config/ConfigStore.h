#pragma once

#include <QJsonObject>
#include <QString>

/// The appliance's settings: one JSON object in memory, loaded on first access, saved under a lock by merging it into
/// what the Web UI has written meanwhile.
class ConfigStore {
public:
    explicit ConfigStore(QString directory);

    /// The one object; loaded on the first call. Changes reach the disk only through save().
    QJsonObject &object();
    /// Saves object(). True on success: object() is then what was written. Blocks for up to 5 s on the lock.
    bool save();
    /// Same for any object of the caller's.
    bool save(QJsonObject &object);
    /// Path of config.json; creates the folder when it is missing.
    QString configPath() const;
};
