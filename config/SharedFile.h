#pragma once

#include <QByteArray>
#include <QString>

#include <optional>
#include <sys/types.h>

/// Owns a file descriptor; -1 is none.
class UniqueFd {
public:
    explicit UniqueFd(int fd = -1) : m_fd(fd) {}
    UniqueFd(UniqueFd &&other) noexcept;
    UniqueFd &operator=(UniqueFd &&other) noexcept;
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;
    ~UniqueFd();

    int get() const { return m_fd; }
    bool isValid() const { return m_fd >= 0; }

private:
    int m_fd;
};

/// Files in folders that another user can write. Whatever stands under a name there (a link, a FIFO, a device, a
/// folder, a hard link to a file elsewhere), these never follow it, never block on it and never change it: a file is
/// opened first, checked through its descriptor, and only then read, written or given away through the same descriptor.
/// Only removeObstacle() goes by the name: at worst it removes what has just been put there, which its owner could do.
///
/// Failure: an invalid descriptor or an empty optional, with errno telling why.
namespace SharedFile {

/// Mode of every file that the Web UI may read and write.
constexpr mode_t webUiMode = 0664;

/// Whether a file is accepted that has further names (hard links).
enum class OtherNames { Refused, Allowed };

/// A regular file to read from.
UniqueFd openToRead(const QString &path, OtherNames otherNames = OtherNames::Refused);

/// A regular file with no other name to write to, created with the mode when it is missing, emptied otherwise.
UniqueFd openToWrite(const QString &path, mode_t mode = webUiMode);

/// A regular file to take a lock on, neither emptied nor written; created with the mode when it is missing. It may have
/// other names (a backup may make one): a lock changes nothing in it.
UniqueFd openToLock(const QString &path, mode_t mode = webUiMode);

/// Takes the name away from what is no file of ours: anything but a regular file with no other name, an empty folder
/// included. What it stood for is left as it is. False when there is no such thing, or it stays.
bool removeObstacle(const QString &path);

/// Everything in the file; nothing (EFBIG) when it holds more than limit bytes, which is found out without reading
/// them.
std::optional<QByteArray> readAll(const UniqueFd &file, qint64 limit);

/// All bytes or false.
bool writeAll(const UniqueFd &file, const QByteArray &bytes);

/// Gives the file to root and the Web UI's group, with webUiMode; not one with other names, whose file that may be.
/// Failures are passed over.
void shareWithWebUi(const UniqueFd &file);

/// Group id of "www-data", looked up once per process; nothing when the system has no such group.
std::optional<gid_t> webUiGroup();

} // namespace SharedFile
