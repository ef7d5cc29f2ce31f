#include "sim/site/WallClock.h"

#include "sim/site/Daemon.h"

#include <QDebug>
#include <QFile>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace sim {

WallClock::WallClock(const QString &folder) : m_path(folder + QStringLiteral("/wallclock")) {
    const int fd = open(QFile::encodeName(m_path).constData(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    void *memory = MAP_FAILED;
    if (fd >= 0 && ftruncate(fd, sizeof *m_offset) == 0)
        memory = mmap(nullptr, sizeof *m_offset, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (memory == MAP_FAILED)
        qWarning() << "no clock in" << m_path << std::strerror(errno);
    else
        m_offset = static_cast<std::int64_t *>(memory);
    if (fd >= 0) {
        close(fd); // the mapping stays
    }
}

WallClock::~WallClock() {
    if (isThere()) {
        munmap(m_offset, sizeof *m_offset); // cannot fail on what mmap has given
    }
}

void WallClock::installIn(Daemon &daemon) const {
    daemon.setEnvironment(QStringLiteral("LD_PRELOAD"), QStringLiteral(KIVO_WALL_CLOCK_FILE));
    daemon.setEnvironment(QStringLiteral("KIVO_WALL_CLOCK"), m_path);
    // The address sanitizer's own library wants to be the first.
    const QString sanitizer = qEnvironmentVariable("ASAN_OPTIONS");
    daemon.setEnvironment(QStringLiteral("ASAN_OPTIONS"), sanitizer + QStringLiteral(":verify_asan_link_order=0"));
}

void WallClock::setOffset(std::int64_t seconds) {
    std::atomic_ref(*m_offset).store(seconds);
}

} // namespace sim
