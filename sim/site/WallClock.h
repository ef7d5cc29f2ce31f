#pragma once

#include <QString>

#include <cstdint>

namespace sim {

class Daemon;

/// The time of day as a daemon sees it, to be set while it runs, as a small computer's is once it has found a time
/// server. Clocks that only count on stay what they are. It works through a library that is loaded ahead of the C
/// library and answers for its time of day.
class WallClock {
public:
    /// @param folder  where the file lives that tells the library by how much it is off
    explicit WallClock(const QString &folder);
    ~WallClock();
    WallClock(const WallClock &) = delete;
    WallClock &operator=(const WallClock &) = delete;

    bool isThere() const { return m_offset != nullptr; }
    /// From the daemon's next start on.
    void installIn(Daemon &daemon) const;
    /// By how much the daemon's clock is ahead of the machine's, from now on; negative: behind.
    void setOffset(std::int64_t seconds);

private:
    const QString m_path;
    std::int64_t *m_offset = nullptr; ///< mapped
};

} // namespace sim
