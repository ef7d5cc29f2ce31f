#include "app/LogOutput.h"

#include <QByteArray>
#include <QMessageLogContext>
#include <QString>
#include <QtGlobal>

#include <unistd.h>

namespace {

void writeToStandardError(const QByteArray &line) {
    for (int written = 0; written < line.size();) {
        const ssize_t count = TEMP_FAILURE_RETRY(
            ::write(STDERR_FILENO, line.constData() + written, static_cast<size_t>(line.size() - written)));
        if (count <= 0)
            return; // nobody is left to tell
        written += static_cast<int>(count);
    }
}

void logLine(QtMsgType level, const QMessageLogContext &context, const QString &message) {
    const QString line = qFormatLogMessage(level, context, message);
    if (!line.isNull())
        writeToStandardError(line.toUtf8() + '\n');
}

} // namespace

void installLogOutput() {
    qInstallMessageHandler(logLine);
}
