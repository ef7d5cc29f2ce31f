#pragma once

#include "Literals.h"
#include "config/AppliancePaths.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

/// The appliance's folder in a temporary place.
class TestRoot {
public:
    explicit TestRoot(const QJsonObject &config = {}) {
        QDir().mkpath(paths().configDir());
        QDir().mkpath(paths().exchangeDir());
        if (!config.isEmpty())
            write(configFile(), QJsonDocument(config).toJson());
    }

    AppliancePaths paths() const {
        AppliancePaths result;
        result.root = m_folder.path();
        return result;
    }

    QString configFile() const { return paths().configDir() + "/config.json"_s; }
    QString exchangeFile(const char *name) const {
        return paths().exchangeDir() + QLatin1Char('/') + QLatin1String(name);
    }
    QString path(const char *name) const { return m_folder.filePath(QLatin1String(name)); }

    QJsonObject configOnDisk() const { return QJsonDocument::fromJson(read(configFile())).object(); }
    QJsonDocument exchanged(const char *name) const { return QJsonDocument::fromJson(read(exchangeFile(name))); }

    static QByteArray read(const QString &path) {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    static void write(const QString &path, const QByteArray &bytes) {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
            qFatal("cannot write a test file");
    }

private:
    QTemporaryDir m_folder;
};
