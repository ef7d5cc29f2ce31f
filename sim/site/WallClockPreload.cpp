// Loaded into a daemon ahead of the C library: its time of day is off by as much as sim::WallClock says.

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

std::int64_t *mapOffset() {
    static std::int64_t none = 0;
    const char *path = std::getenv("KIVO_WALL_CLOCK");
    const int fd = path != nullptr ? open(path, O_RDWR | O_CLOEXEC) : -1;
    if (fd < 0)
        return &none;
    void *memory = mmap(nullptr, sizeof none, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd); // the mapping stays
    return memory == MAP_FAILED ? &none : static_cast<std::int64_t *>(memory);
}

time_t offset() {
    static std::int64_t *const mapped = mapOffset();
    return time_t(std::atomic_ref(*mapped).load());
}

} // namespace

#pragma GCC visibility push(default)
extern "C" {

int clock_gettime(clockid_t clock, timespec *time) noexcept {
    const int result = int(syscall(SYS_clock_gettime, clock, time));
    if (result == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE))
        time->tv_sec += offset();
    return result;
}

int gettimeofday(timeval *time, void *zone) noexcept {
    const int result = int(syscall(SYS_gettimeofday, time, zone));
    if (result == 0)
        time->tv_sec += offset();
    return result;
}

time_t time(time_t *out) noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now); // cannot fail on this clock
    if (out != nullptr)
        *out = now.tv_sec;
    return now.tv_sec;
}

} // extern "C"
#pragma GCC visibility pop
