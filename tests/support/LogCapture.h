#pragma once

#include <QMutex>
#include <QMutexLocker>
#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <utility>

/// Collects what is logged while it lives, from all threads, each line as "level text". One at a time.
class LogCapture {
public:
    LogCapture() : m_previous(qInstallMessageHandler(&LogCapture::record)) { take(); }
    ~LogCapture() { qInstallMessageHandler(m_previous); }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    /// The lines so far, which are then forgotten.
    QStringList take() {
        const QMutexLocker locker(&mutex());
        return std::exchange(collected(), QStringList());
    }

    /// The lines so far.
    QStringList lines() const {
        const QMutexLocker locker(&mutex());
        return collected();
    }

private:
    static QMutex &mutex() {
        static QMutex one;
        return one;
    }

    static QStringList &collected() {
        static QStringList lines;
        return lines;
    }

    static void record(QtMsgType type, const QMessageLogContext &, const QString &text) {
        const char *const levels[] = {"debug", "warning", "critical", "fatal", "info"};
        const QMutexLocker locker(&mutex());
        collected().append(QString::fromLatin1(levels[type]) + QLatin1Char(' ') + text);
    }

    QtMessageHandler m_previous;
};
