#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <memory>

namespace sim {

/// One line of the daemon's log.
struct LogLine {
    std::int64_t timeNs = 0; ///< CLOCK_MONOTONIC at arrival
    std::int64_t saidNs = 0; ///< and when it was said, to the next millisecond
    QString level;           ///< "debug", "info", "warning"
    QString text;
};

/// The real binary as a child process, its log taken down line by line. It runs in a process group of its own, without
/// LANG, and never outlives the site. What a sanitizer has to say of it ends the program.
class Daemon : public QObject {
    Q_OBJECT

public:
    /// @param program  path of kivo-appliance; an emulator may stand in front of it
    explicit Daemon(const QStringList &program, QObject *parent = nullptr);
    ~Daemon() override; ///< kills it, or ends it orderly where it is built for that

    /// What the build made; or what KIVO_APPLIANCE_PROGRAM says, words parted by blanks.
    static QStringList defaultProgram();

    void setEnvironment(const QString &name, const QString &value);
    /// Starts it, again after it has ended. False when there is no such program.
    bool start();
    void kill(); ///< SIGKILL to its process group, and waits
    bool isRunning() const;
    qint64 processId() const; ///< 0 when it does not run

    /// Everything it ever said, over restarts too, since forgetLog().
    const QList<LogLine> &log() const { return m_log; }
    /// Texts of the log that contain the words.
    QStringList logged(const QString &words) const;
    void forgetLog() { m_log.clear(); }

Q_SIGNALS:
    void logLine(sim::LogLine line);
    void ended();

private:
    class Process;

    void end();
    void readLog();
    void onEnded();
    void failOnReport() const;
    void takeDown(const QByteArray &line);

    QStringList m_program;
    QProcessEnvironment m_environment;
    std::unique_ptr<Process> m_process;
    QByteArray m_unread; ///< not yet a whole line
    QList<LogLine> m_log;
};

} // namespace sim
