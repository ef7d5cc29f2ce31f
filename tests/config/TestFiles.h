#pragma once

#include <QFile>
#include <QString>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

/// Files as a test sees them from outside. A step that fails ends the test program.
namespace TestFiles {

inline QByteArray contentOf(const QString &path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(cannot be read)");
}

inline void write(const QString &path, const QByteArray &bytes) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.flush())
        qFatal("write %s: %s", qPrintable(path), qPrintable(file.errorString()));
}

/// Of the name itself, not of what a link points to.
inline struct stat statusOf(const QString &path) {
    struct stat status = {};
    if (::lstat(QFile::encodeName(path).constData(), &status) != 0)
        qFatal("lstat %s: %s", qPrintable(path), strerror(errno));
    return status;
}

inline mode_t modeOf(const QString &path) {
    return statusOf(path).st_mode & 07777u;
}

/// Puts a "link" or a "hard link" to the victim, a "fifo" or a "folder" under the name.
inline void plant(const QString &obstacle, const QString &name, const QString &victim) {
    const QByteArray planted = QFile::encodeName(name);
    const QByteArray target = QFile::encodeName(victim);
    int result = -1;
    if (obstacle == QLatin1String("link"))
        result = ::symlink(target.constData(), planted.constData());
    else if (obstacle == QLatin1String("hard link"))
        result = ::link(target.constData(), planted.constData());
    else if (obstacle == QLatin1String("fifo"))
        result = ::mkfifo(planted.constData(), 0666);
    else if (obstacle == QLatin1String("folder"))
        result = ::mkdir(planted.constData(), 0777);
    if (result != 0)
        qFatal("plant %s: %s", qPrintable(obstacle), strerror(errno));
}

} // namespace TestFiles
