#pragma once

#include "sim/site/Daemon.h"

#include <QFile>
#include <QString>

#include <map>

/// What happened when, line by line in a file, so that a failure can be retraced: events, the daemon's log, promises
/// that were not kept. Counts all three.
class Journal {
public:
    /// isOpen() tells whether the file could be made.
    explicit Journal(const QString &path);
    bool isOpen() const { return m_file.isOpen(); }
    QString path() const { return m_file.fileName(); }
    double seconds() const; ///< since it was opened

    /// @param kind  counted; a fixed text
    void event(const QString &kind, const QString &details = {});
    void daemonSaid(const sim::LogLine &line);
    void broken(const QString &promise);

    const std::map<QString, int> &events() const { return m_events; }
    const std::map<QString, int> &linesByLevel() const { return m_lines; }
    const QStringList &brokenPromises() const { return m_broken; }

private:
    void write(const char *who, const QString &text);

    QFile m_file;
    std::int64_t m_beginNs;
    std::map<QString, int> m_events;
    std::map<QString, int> m_lines;
    QStringList m_broken;
};
