#include "app/LogOutput.h"

#include <QByteArray>
#include <QMessageLogContext>
#include <QString>
#include <QtGlobal>

#include <sys/stat.h>
#include <unistd.h>

namespace {

/// In characters. What somebody sends us may end up in a line, however long it is; writing a line of megabytes would
/// hold up the loop, and the journal cuts it into pieces.
constexpr int longestMessage = 4096;

void writeToStandardError(const QByteArray &line) {
    for (int written = 0; written < line.size();) {
        const ssize_t count = TEMP_FAILURE_RETRY(
            ::write(STDERR_FILENO, line.constData() + written, static_cast<size_t>(line.size() - written)));
        if (count <= 0)
            return; // nobody is left to tell
        written += static_cast<int>(count);
    }
}

/// Whether standard error leads to the journal; as its makers would have it asked, by device and inode in the
/// environment.
bool goesToJournal() {
    struct stat status = {};
    if (::fstat(STDERR_FILENO, &status) != 0)
        return false;
    const QByteArray here =
        QByteArray::number(qulonglong(status.st_dev)) + ':' + QByteArray::number(qulonglong(status.st_ino));
    return qgetenv("JOURNAL_STREAM") == here;
}

/// The level as the journal reads it off the beginning of a line, in syslog's numbers.
const char *journalPrefix(QtMsgType level) {
    switch (level) {
    case QtDebugMsg:
        return "<7>";
    case QtInfoMsg:
        return "<6>";
    case QtWarningMsg:
        return "<4>";
    case QtCriticalMsg:
        return "<3>";
    case QtFatalMsg:
        break;
    }
    return "<2>";
}

void logLine(const char *prefix, QtMsgType level, const QMessageLogContext &context, const QString &message) {
    const QString line = qFormatLogMessage(level, context, message.left(longestMessage));
    if (!line.isNull())
        writeToStandardError(prefix + line.toUtf8() + '\n');
}

void logPlain(QtMsgType level, const QMessageLogContext &context, const QString &message) {
    logLine("", level, context, message);
}

void logForJournal(QtMsgType level, const QMessageLogContext &context, const QString &message) {
    logLine(journalPrefix(level), level, context, message);
}

} // namespace

void installLogOutput() {
    qInstallMessageHandler(goesToJournal() ? logForJournal : logPlain);
}
