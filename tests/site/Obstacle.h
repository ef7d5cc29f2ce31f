#pragma once

#include "TestSite.h"

#include <QTemporaryDir>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

inline mode_t modeOf(const QString &path) {
    struct stat status = {};
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_mode & 07777 : 0;
}

/// A file outside the exchange folder that nobody may touch.
class Victim {
public:
    explicit Victim(const QByteArray &content) {
        QFile::remove(path()); // what an earlier test has left
        QFile file(path());
        if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
            qFatal("no victim");
        file.close();
        // Read longer ago than written: the next reading shows.
        const timespec times[] = {{1'600'000'000, 0}, {1'700'000'000, 0}};
        if (::chmod(encodedPath().constData(), 0640) != 0 ||
            ::utimensat(AT_FDCWD, encodedPath().constData(), times, 0) != 0)
            qFatal("no victim");
    }
    ~Victim() { QFile::remove(path()); }
    Victim(const Victim &) = delete;
    Victim &operator=(const Victim &) = delete;

    static QString path() { return sim::sitePaths().appliance + "/sounds/victim"_s; }
    static QByteArray encodedPath() { return QFile::encodeName(path()); }

    /// All that tells whether it was read, written or given away; to be taken before the content is looked at.
    struct Marks {
        std::vector<std::int64_t> values;
        bool operator==(const Marks &other) const { return values == other.values; }
    };
    static Marks marks() {
        struct stat status = {};
        if (::stat(encodedPath().constData(), &status) != 0)
            return {};
        return {{std::int64_t(status.st_ino), status.st_mode, status.st_uid, status.st_gid, status.st_size,
                 status.st_atim.tv_sec, status.st_atim.tv_nsec, status.st_mtim.tv_sec, status.st_mtim.tv_nsec}};
    }
    static QByteArray content() {
        QFile file(path());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
};

/// A place for device files of the test's own; only root can have one.
class DeviceFolder {
public:
    DeviceFolder() {
        m_isMounted = ::mount("tmpfs", encoded().constData(), "tmpfs", MS_NOSUID, "mode=755") == 0;
        m_hasDevice = m_isMounted && ::mknod(device().constData(), S_IFCHR | 0600, makedev(1, 5)) == 0 && opens();
    }
    ~DeviceFolder() {
        if (m_isMounted)
            ::umount2(encoded().constData(), MNT_DETACH); // the namespace ends soon
    }
    DeviceFolder(const DeviceFolder &) = delete;
    DeviceFolder &operator=(const DeviceFolder &) = delete;

    bool hasDevice() const { return m_hasDevice; }
    /// One that reads as endless noughts and swallows what is written.
    QByteArray device() const { return encoded() + "/zero"; }

private:
    QByteArray encoded() const { return QFile::encodeName(m_folder.path()); }
    bool opens() const {
        const int fd = ::open(device().constData(), O_RDWR | O_CLOEXEC);
        return fd >= 0 && ::close(fd) == 0;
    }

    QTemporaryDir m_folder;
    bool m_isMounted = false;
    bool m_hasDevice = false;
};

/// Something other than a file of its own under a name in the exchange folder, for as long as this lives.
class Obstacle {
public:
    enum Kind { Link, LinkToNowhere, HardLink, Fifo, Folder, Device };

    /// Takes the place of what is there.
    Obstacle(Kind kind, const QString &path, const Victim &, const DeviceFolder &devices) : m_kind(kind), m_path(path) {
        QFile::remove(path);
        m_isThere = plant(QFile::encodeName(path), devices);
        m_planted = look();
    }
    ~Obstacle() {
        const QByteArray path = QFile::encodeName(m_path);
        if (m_fifo >= 0)
            ::close(m_fifo);
        if (m_kind == Device && m_isThere)
            ::umount2(path.constData(), MNT_DETACH);
        if (::remove(path.constData()) != 0 && errno != ENOENT)
            qWarning() << "cannot remove" << m_path << std::strerror(errno);
    }
    Obstacle(const Obstacle &) = delete;
    Obstacle &operator=(const Obstacle &) = delete;

    static QString nowhere() { return sim::sitePaths().appliance + "/sounds/nowhere"_s; }

    bool isThere() const { return m_isThere; }
    const QString &path() const { return m_path; }
    /// Neither replaced nor changed, and nothing passed through it.
    bool isUntouched() const {
        const struct stat now = look();
        const bool same = now.st_ino == m_planted.st_ino && now.st_mode == m_planted.st_mode &&
                          now.st_uid == m_planted.st_uid && now.st_gid == m_planted.st_gid;
        return same && (m_kind != Fifo || bytesInFifo() == fifoContent().size());
    }

private:
    bool plant(const QByteArray &path, const DeviceFolder &devices) {
        const QByteArray victim = Victim::encodedPath();
        switch (m_kind) {
        case Link:
            return ::symlink(victim.constData(), path.constData()) == 0;
        case LinkToNowhere:
            return ::symlink(QFile::encodeName(nowhere()).constData(), path.constData()) == 0;
        case HardLink:
            return ::link(victim.constData(), path.constData()) == 0;
        case Fifo:
            return ::mkfifo(path.constData(), 0666) == 0 && fillFifo(path);
        case Folder:
            return ::mkdir(path.constData(), 0700) == 0;
        case Device:
            return devices.hasDevice() && ::mknod(path.constData(), S_IFREG | 0644, 0) == 0 &&
                   ::mount(devices.device().constData(), path.constData(), nullptr, MS_BIND, nullptr) == 0;
        }
        return false;
    }

    /// Held open at both ends, with something in it: neither reading nor writing would wait.
    bool fillFifo(const QByteArray &path) {
        m_fifo = ::open(path.constData(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        return m_fifo >= 0 && ::write(m_fifo, fifoContent().constData(), fifoContent().size()) == fifoContent().size();
    }
    static QByteArray fifoContent() { return Victim::content(); }
    int bytesInFifo() const {
        int count = -1;
        return ::ioctl(m_fifo, FIONREAD, &count) == 0 ? count : -1;
    }
    struct stat look() const {
        struct stat status = {};
        if (::lstat(QFile::encodeName(m_path).constData(), &status) != 0)
            status.st_ino = 0;
        return status;
    }

    const Kind m_kind;
    const QString m_path;
    int m_fifo = -1;
    bool m_isThere = false;
    struct stat m_planted = {};
};

Q_DECLARE_METATYPE(Obstacle::Kind)
