#include "sim/card/CardFile.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sim {
namespace {

/// Each direction is one byte of the file to lock. Locks of the open file, not of the process: they also part two
/// streams of one process.
struct flock directionLock(Direction direction) {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = direction == Direction::Capture ? 0 : 1;
    lock.l_len = 1;
    return lock;
}

int closeWithError(int fd, int error) {
    close(fd); // nothing was written through it
    errno = error;
    return -1;
}

} // namespace

std::unique_ptr<CardFile> CardFile::create(const std::string &path) {
    // Whoever still maps an older file keeps it, away from the new one.
    unlink(path.c_str());
    int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd >= 0 && ftruncate(fd, off_t(sizeof(CardMemory))) != 0)
        fd = closeWithError(fd, errno);
    // All pages at once: they then count as shared memory in the daemon, not as memory of its own.
    return map(fd, MAP_SHARED | MAP_POPULATE);
}

std::unique_ptr<CardFile> CardFile::open(const std::string &path) {
    int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    struct stat status {};
    if (fd >= 0 && (fstat(fd, &status) != 0 || status.st_size != off_t(sizeof(CardMemory))))
        fd = closeWithError(fd, ENODEV);
    return map(fd, MAP_SHARED);
}

std::unique_ptr<CardFile> CardFile::map(int fd, int flags) {
    if (fd < 0)
        return nullptr;
    void *memory = mmap(nullptr, sizeof(CardMemory), PROT_READ | PROT_WRITE, flags, fd, 0);
    if (memory == MAP_FAILED) {
        closeWithError(fd, errno);
        return nullptr;
    }
    return std::unique_ptr<CardFile>(new CardFile(fd, static_cast<CardMemory *>(memory)));
}

CardFile::~CardFile() {
    // Neither can fail on what map() was given, and nothing could be done about it.
    munmap(m_memory, sizeof(CardMemory));
    close(m_fd);
}

bool CardFile::claim(Direction direction) {
    struct flock lock = directionLock(direction);
    return fcntl(m_fd, F_OFD_SETLK, &lock) == 0;
}

bool CardFile::isClaimed(Direction direction) const {
    struct flock lock = directionLock(direction);
    return fcntl(m_fd, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

std::string cardFilePath(const std::string &folder, long number) {
    return folder + "/card" + std::to_string(number);
}

} // namespace sim
