#include "sim/site/Daemon.h"

#include "sim/MonotonicClock.h"

#include <QDebug>
#include <QProcess>
#include <QRegularExpression>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <sys/prctl.h>
#include <unistd.h>

namespace sim {
namespace {

constexpr int startTimeoutMs = 10000;
constexpr int endTimeoutMs = 10000;
constexpr bool endsOrderly = KIVO_ORDERLY_END;
/// Of a program in which a sanitizer has found something; the gateway has no use for it.
constexpr int reportExitCode = 99;

QProcessEnvironment environmentOfAService() {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char *name : {"LANG", "LANGUAGE", "LC_ALL", "LC_CTYPE", "LC_MESSAGES"})
        environment.remove(QLatin1String(name));
    environment.insert(QStringLiteral("QT_MESSAGE_PATTERN"), QStringLiteral("%{type} @%{time boot}@ %{message}"));
    for (const char *name : {"ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS"}) {
        const QString sanitizer = QLatin1String(name);
        environment.insert(sanitizer,
                           environment.value(sanitizer) + QStringLiteral(":exitcode=%1").arg(reportExitCode));
    }
    return environment;
}

/// Takes the stamp off the text: milliseconds since the start of the machine, in seconds, the upper bits cut off. What
/// has none is from now.
std::int64_t takeStamp(QString &text, std::int64_t nowNs) {
    static const QRegularExpression stamp(QStringLiteral("^@ *(\\d+)\\.(\\d{3})@ "));
    const QRegularExpressionMatch match = stamp.match(text);
    if (!match.hasMatch())
        return nowNs;
    const std::int64_t nowMs = nowNs / 1'000'000;
    text.remove(0, match.capturedLength());
    const auto stampMs = quint32(match.captured(1).toULongLong() * 1000 + match.captured(2).toULongLong());
    const quint32 ageMs = quint32(nowMs) - stampMs;
    return (nowMs - ageMs + 1) * 1'000'000;
}

} // namespace

class Daemon::Process : public QProcess {
protected:
    void setupChildProcess() override {
        // Neither can fail here; and if they did, the daemon would still run.
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
    }
};

Daemon::Daemon(const QStringList &program, QObject *parent)
    : QObject(parent),
      m_program(program),
      m_environment(environmentOfAService()),
      m_process(std::make_unique<Process>()) {
    m_process->setStandardInputFile(QProcess::nullDevice());
    m_process->setStandardOutputFile(QProcess::nullDevice());
    connect(m_process.get(), &QProcess::readyReadStandardError, this, &Daemon::readLog);
    connect(m_process.get(), QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this, &Daemon::onEnded);
}

Daemon::~Daemon() {
    blockSignals(true);
    end();
    m_process->disconnect(this);
}

QStringList Daemon::defaultProgram() {
    const QString chosen = qEnvironmentVariable("KIVO_APPLIANCE_PROGRAM");
    return chosen.isEmpty() ? QStringList{QStringLiteral(KIVO_APPLIANCE_FILE)}
                            : chosen.split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

void Daemon::setEnvironment(const QString &name, const QString &value) {
    m_environment.insert(name, value);
}

bool Daemon::start() {
    m_unread.clear();
    m_process->setProcessEnvironment(m_environment);
    m_process->start(m_program.value(0), m_program.mid(1));
    const bool started = m_process->waitForStarted(startTimeoutMs);
    if (!started)
        qWarning() << "cannot start" << m_program << m_process->errorString();
    return started;
}

void Daemon::kill() {
    if (isRunning()) {
        ::kill(pid_t(-m_process->processId()), SIGKILL); // gone already is as good
        m_process->waitForFinished(endTimeoutMs);
    }
}

void Daemon::end() {
    if (endsOrderly && isRunning()) {
        ::kill(pid_t(-m_process->processId()), SIGTERM); // gone already is as good
        m_process->waitForFinished(endTimeoutMs);
    }
    kill();
}

void Daemon::onEnded() {
    readLog();
    failOnReport();
    Q_EMIT ended();
}

/// What has no level is not the gateway's own.
void Daemon::failOnReport() const {
    if (m_process->exitStatus() != QProcess::NormalExit || m_process->exitCode() != reportExitCode)
        return;
    for (const LogLine &line : m_log) {
        if (line.level.isEmpty())
            std::fprintf(stderr, "daemon: %s\n", qPrintable(line.text));
    }
    qFatal("a sanitizer has found something in the daemon");
}

bool Daemon::isRunning() const {
    return m_process->state() == QProcess::Running;
}

qint64 Daemon::processId() const {
    return m_process->processId();
}

QStringList Daemon::logged(const QString &words) const {
    QStringList texts;
    for (const LogLine &line : m_log) {
        if (line.text.contains(words))
            texts.append(line.text);
    }
    return texts;
}

void Daemon::readLog() {
    m_unread += m_process->readAllStandardError();
    for (int end = m_unread.indexOf('\n'); end >= 0; end = m_unread.indexOf('\n')) {
        const QByteArray line = m_unread.left(end);
        m_unread.remove(0, end + 1);
        takeDown(line);
    }
}

void Daemon::takeDown(const QByteArray &line) {
    static const QStringList levels = {QStringLiteral("debug"), QStringLiteral("info"), QStringLiteral("warning"),
                                       QStringLiteral("critical"), QStringLiteral("fatal")};
    QString text = QString::fromUtf8(line);
    QString level = text.section(QLatin1Char(' '), 0, 0);
    if (levels.contains(level))
        text.remove(0, level.size() + 1);
    else
        level.clear();
    const std::int64_t timeNs = monotonicNs();
    const std::int64_t saidNs = takeStamp(text, timeNs);
    m_log.append({timeNs, saidNs, level, text});
    Q_EMIT logLine(LogLine(m_log.constLast()));
}

} // namespace sim
