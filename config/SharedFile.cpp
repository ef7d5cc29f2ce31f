#include "config/SharedFile.h"

#include <QFile>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

UniqueFd::UniqueFd(UniqueFd &&other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}

UniqueFd &UniqueFd::operator=(UniqueFd &&other) noexcept {
    std::swap(m_fd, other.m_fd);
    return *this;
}

UniqueFd::~UniqueFd() {
    // Nothing is left to do about a failure here: whoever must know that the bytes are safe has called fsync.
    if (isValid())
        ::close(m_fd);
}

namespace {

/// O_NONBLOCK keeps a FIFO from holding up the opening; it means nothing to a regular file.
constexpr int guardedFlags = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

/// Why the opened file must not be touched, as an errno; 0 when it may.
int objectionTo(int fd, SharedFile::OtherNames otherNames) {
    struct stat status = {};
    if (::fstat(fd, &status) != 0)
        return errno;
    if (!S_ISREG(status.st_mode))
        return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return status.st_nlink > 1 && otherNames == SharedFile::OtherNames::Refused ? EMLINK : 0;
}

UniqueFd openGuarded(const QString &path, int flags, mode_t mode, SharedFile::OtherNames otherNames) {
    UniqueFd file(::open(QFile::encodeName(path).constData(), flags | guardedFlags, mode));
    if (!file.isValid())
        return file;
    const int objection = objectionTo(file.get(), otherNames);
    if (objection == 0)
        return file;
    file = UniqueFd();
    errno = objection;
    return file;
}

} // namespace

UniqueFd SharedFile::openToRead(const QString &path, OtherNames otherNames) {
    return openGuarded(path, O_RDONLY, 0, otherNames);
}

UniqueFd SharedFile::openToWrite(const QString &path, mode_t mode) {
    // Emptied only now that the file is known to be ours: O_TRUNC would have emptied a hard-linked victim already.
    UniqueFd file = openGuarded(path, O_WRONLY | O_CREAT, mode, OtherNames::Refused);
    if (file.isValid() && ::ftruncate(file.get(), 0) != 0)
        return UniqueFd();
    return file;
}

UniqueFd SharedFile::openToLock(const QString &path, mode_t mode) {
    return openGuarded(path, O_RDWR | O_CREAT, mode, OtherNames::Allowed);
}

bool SharedFile::removeObstacle(const QString &path) {
    const QByteArray name = QFile::encodeName(path);
    struct stat status = {};
    if (::lstat(name.constData(), &status) != 0 || (S_ISREG(status.st_mode) && status.st_nlink == 1))
        return false;
    return ::remove(name.constData()) == 0;
}

std::optional<QByteArray> SharedFile::readAll(const UniqueFd &file, qint64 limit) {
    struct stat status = {};
    if (::fstat(file.get(), &status) != 0)
        return std::nullopt;
    QByteArray bytes;
    qint64 size = status.st_size;
    while (size <= limit) { // looked at again after each chunk: the file may grow while it is read
        char chunk[16 * 1024];
        const ssize_t count = ::read(file.get(), chunk, sizeof chunk);
        if (count < 0)
            return std::nullopt;
        if (count == 0)
            return bytes;
        bytes.append(chunk, static_cast<int>(count));
        size = bytes.size();
    }
    errno = EFBIG;
    return std::nullopt;
}

bool SharedFile::writeAll(const UniqueFd &file, const QByteArray &bytes) {
    for (qsizetype written = 0; written < bytes.size();) {
        const ssize_t count = ::write(file.get(), bytes.constData() + written, size_t(bytes.size() - written));
        if (count < 0)
            return false;
        written += count;
    }
    return true;
}

void SharedFile::shareWithWebUi(const UniqueFd &file) {
    if (objectionTo(file.get(), OtherNames::Refused) != 0)
        return;
    // A daemon that is not root cannot give the file away, and has nobody to tell; the mode still helps the group.
    if (const auto group = webUiGroup())
        (void)!::fchown(file.get(), 0, *group);
    (void)::fchmod(file.get(), webUiMode);
}

std::optional<gid_t> SharedFile::webUiGroup() {
    static const std::optional<gid_t> group = []() -> std::optional<gid_t> {
        const struct group *entry = ::getgrnam("www-data");
        return entry ? std::optional<gid_t>(entry->gr_gid) : std::nullopt;
    }();
    return group;
}
