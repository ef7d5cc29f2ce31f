#pragma once

#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <utility>

/// Collects what is logged while it lives, each line as "level text". One at a time.
class LogCapture {
public:
    LogCapture() : m_previous(qInstallMessageHandler(&LogCapture::record)) { lines().clear(); }
    ~LogCapture() { qInstallMessageHandler(m_previous); }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    /// The lines so far, which are then forgotten.
    QStringList take() { return std::exchange(lines(), QStringList()); }
    bool isEmpty() const { return lines().isEmpty(); }

private:
    static QStringList &lines() {
        static QStringList collected;
        return collected;
    }

    static void record(QtMsgType type, const QMessageLogContext &, const QString &text) {
        const char *const levels[] = {"debug", "warning", "critical", "fatal", "info"};
        lines().append(QString::fromLatin1(levels[type]) + QLatin1Char(' ') + text);
    }

    QtMessageHandler m_previous;
};
