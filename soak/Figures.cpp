#include "Figures.h"

#include "sim/site/Site.h"

#include <QDir>
#include <QFile>

#include <unistd.h>

namespace {

QByteArray contentOf(const QString &path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString inProc(qint64 processId, const QString &name) {
    return QStringLiteral("/proc/%1/%2").arg(processId).arg(name);
}

/// The number behind a label at the beginning of a line; 0 when there is none.
double numberBehind(const QByteArray &line, const char *label) {
    return line.startsWith(label) ? line.mid(int(qstrlen(label))).trimmed().split(' ').first().toDouble() : 0.0;
}

bool beginsMapping(const QByteArray &line) {
    const int dash = line.indexOf('-');
    return dash > 0 && dash < line.indexOf(' ');
}

void addMemory(Figures &figures, qint64 processId) {
    const QByteArray cards = sim::sitePaths().cards.toUtf8();
    bool isCard = false;
    for (const QByteArray &line : contentOf(inProc(processId, QStringLiteral("smaps"))).split('\n')) {
        if (beginsMapping(line))
            isCard = line.contains(cards);
        if (isCard)
            continue;
        figures.residentMb += numberBehind(line, "Rss:") / 1024.0;
        figures.privateDirtyMb += numberBehind(line, "Private_Dirty:") / 1024.0;
    }
}

void addDescriptors(Figures &figures, qint64 processId) {
    const QDir folder(inProc(processId, QStringLiteral("fd")));
    for (const QString &name : folder.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)) {
        ++figures.descriptors;
        char target[64] = {};
        const ssize_t length =
            ::readlink(QFile::encodeName(folder.filePath(name)).constData(), target, sizeof target - 1);
        figures.timers += length > 0 && QByteArray(target).contains("[timerfd]") ? 1 : 0;
    }
}

void addThreads(Figures &figures, qint64 processId) {
    const QDir tasks(inProc(processId, QStringLiteral("task")));
    for (const QString &task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        ++figures.threads;
        for (const QByteArray &line : contentOf(tasks.filePath(task) + QStringLiteral("/status")).split('\n'))
            figures.wakeUps += numberBehind(line, "voluntary_ctxt_switches:");
    }
}

} // namespace

Figures figuresOf(qint64 processId) {
    Figures figures;
    addMemory(figures, processId);
    addDescriptors(figures, processId);
    addThreads(figures, processId);
    return figures;
}

Schedule scheduleOf(qint64 processId) {
    const QList<QByteArray> sums = contentOf(inProc(processId, QStringLiteral("schedstat"))).split(' ');
    return {sums.value(0).toLongLong(), sums.value(1).toLongLong()};
}
