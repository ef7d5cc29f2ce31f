#pragma once

#include "../support/LogCapture.h"
#include "TestFiles.h"
#include "config/ConfigStore.h"

#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <grp.h>
#include <memory>
#include <unistd.h>

inline constexpr LockPatience impatient = {3, std::chrono::milliseconds(1)};

inline QString text(const char *utf8) {
    return QString::fromUtf8(utf8);
}

/// Fixture: each test has a folder for the configuration, and a log of its own.
class StoreBench : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() {
        m_folder = std::make_unique<QTemporaryDir>();
        QVERIFY(m_folder->isValid());
        m_log = std::make_unique<LogCapture>();
    }

    void cleanup() { m_log.reset(); }

protected:
    QString at(const char *name) const { return m_folder->filePath(QString::fromLatin1(name)); }
    QString config() const { return at("config.json"); }
    ConfigStore store(LockPatience patience = impatient) const { return ConfigStore(m_folder->path(), patience); }

    /// What a successful save has to say about the owner here: nothing for root on a system with the Web UI's group.
    QStringList giveAwayWarnings() const {
        const group *webUi = ::getgrnam("www-data");
        if (!webUi)
            return {text("warning [Config] Group www-data not found, skipping chown")};
        TestFiles::write(at("scratch"), "");
        if (::chown(QFile::encodeName(at("scratch")).constData(), 0, webUi->gr_gid) == 0)
            return {};
        return {text("warning [Config] chown failed: ") + text(strerror(errno))};
    }

    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<LogCapture> m_log;
};
