#pragma once

#include <QObject>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <functional>

namespace sim {

/// One line of the daemon's log.
struct LogLine {
    std::int64_t timeNs = 0; ///< CLOCK_MONOTONIC at arrival
    QString level;           ///< "debug", "info", "warning"
    QString text;
};

/// The real binary as a child process, its log taken down line by line.
class Daemon : public QObject {
    Q_OBJECT

public:
    /// @param program  path of kivo-appliance; an emulator may stand in front of it
    explicit Daemon(const QStringList &program, QObject *parent = nullptr);
    ~Daemon() override; ///< kills it

    void setEnvironment(const QString &name, const QString &value);
    void start();
    void kill(); ///< SIGKILL, and waits
    bool isRunning() const;
    qint64 processId() const;

    const QList<LogLine> &log() const;
    /// Texts of the log that contain the words.
    QStringList logged(const QString &words) const;

Q_SIGNALS:
    void logLine(sim::LogLine line);
    void ended();
};

} // namespace sim
