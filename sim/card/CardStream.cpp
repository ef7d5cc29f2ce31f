#include "sim/card/CardStream.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <poll.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace sim {
namespace {

constexpr unsigned bytesPerSample = 2;
constexpr unsigned minPeriodFrames = 64;
constexpr unsigned maxPeriodFrames = 8192;
constexpr unsigned maxPeriods = 1024;
constexpr std::int64_t billion = 1'000'000'000;

CardStream &streamOf(snd_pcm_ioplug_t *io) {
    return *static_cast<CardStream *>(io->private_data);
}

int close(snd_pcm_ioplug_t *io) {
    delete &streamOf(io);
    return 0;
}

int pollEvents(snd_pcm_ioplug_t *io, pollfd *, unsigned int, unsigned short *events) {
    *events = streamOf(io).readyEvents();
    return 0;
}

snd_pcm_ioplug_callback_t makeCallbacks() {
    snd_pcm_ioplug_callback_t callbacks{};
    callbacks.prepare = [](snd_pcm_ioplug_t *io) { return streamOf(io).prepare(); };
    callbacks.start = [](snd_pcm_ioplug_t *io) { return streamOf(io).start(); };
    callbacks.stop = [](snd_pcm_ioplug_t *io) { return streamOf(io).stop(); };
    callbacks.pointer = [](snd_pcm_ioplug_t *io) { return streamOf(io).position(); };
    callbacks.transfer = [](snd_pcm_ioplug_t *io, const snd_pcm_channel_area_t *areas, snd_pcm_uframes_t offset,
                            snd_pcm_uframes_t count) { return streamOf(io).transfer(areas, offset, count); };
    callbacks.hw_params = [](snd_pcm_ioplug_t *io, snd_pcm_hw_params_t *) {
        return streamOf(io).takeHardwareParameters();
    };
    callbacks.sw_params = [](snd_pcm_ioplug_t *io, snd_pcm_sw_params_t *params) {
        return streamOf(io).takeSoftwareParameters(params);
    };
    callbacks.poll_revents = pollEvents;
    callbacks.close = close;
    return callbacks;
}

/// Interleaved frames within ALSA's description of a buffer.
std::int16_t *samplesAt(const snd_pcm_channel_area_t *areas, snd_pcm_uframes_t offset) {
    auto *bytes = static_cast<char *>(areas->addr) + (areas->first + offset * areas->step) / 8;
    return reinterpret_cast<std::int16_t *>(bytes);
}

} // namespace

int CardStream::open(snd_pcm_t **pcm, const std::string &folder, long card, const char *name, snd_pcm_stream_t stream,
                     int mode) {
    std::unique_ptr<CardFile> file = CardFile::open(cardFilePath(folder, card));
    if (!file)
        return -errno;
    if (file->memory().present.load() == 0)
        return -ENODEV;
    const Direction direction = stream == SND_PCM_STREAM_PLAYBACK ? Direction::Playback : Direction::Capture;
    if (file->memory().busy.load() != 0 || !file->claim(direction))
        return -EBUSY;
    std::unique_ptr<CardStream> opened(new CardStream(std::move(file), stream));
    if (const int error = opened->attach(name, stream, mode); error < 0)
        return error;
    // From here on closing the handle deletes the stream.
    CardStream *owned = opened.release();
    if (const int error = owned->constrain(); error < 0) {
        snd_pcm_ioplug_delete(&owned->m_io); // the first error is the one to tell
        return error;
    }
    *pcm = owned->m_io.pcm;
    return 0;
}

CardStream::CardStream(std::unique_ptr<CardFile> file, snd_pcm_stream_t stream)
    : m_file(std::move(file)),
      m_card(m_file->memory()),
      m_side(stream == SND_PCM_STREAM_PLAYBACK ? m_card.playback : m_card.capture),
      m_timer(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)),
      m_unplugsAtOpen(m_card.unplugs.load()) {}

CardStream::~CardStream() {
    halt();
    if (m_timer >= 0) {
        ::close(m_timer); // a timer has nothing to lose
    }
}

int CardStream::attach(const char *name, snd_pcm_stream_t stream, int mode) {
    static const snd_pcm_ioplug_callback_t callbacks = makeCallbacks();
    if (m_timer < 0)
        return -errno;
    m_io.version = SND_PCM_IOPLUG_VERSION;
    m_io.name = "Simulated sound card";
    m_io.flags = SND_PCM_IOPLUG_FLAG_MONOTONIC | SND_PCM_IOPLUG_FLAG_BOUNDARY_WA;
    m_io.callback = &callbacks;
    m_io.private_data = this;
    m_io.poll_fd = m_timer;
    m_io.poll_events = POLLIN;
    return snd_pcm_ioplug_create(&m_io, name, stream, mode);
}

/// What a common USB sound device can do, at one rate.
int CardStream::constrain() {
    static constexpr std::array<unsigned, 1> accesses = {SND_PCM_ACCESS_RW_INTERLEAVED};
    static constexpr std::array<unsigned, 1> formats = {SND_PCM_FORMAT_S16_LE};
    struct Range {
        int parameter;
        unsigned min, max;
    };
    const unsigned rate = m_card.rateHz.load();
    const unsigned minFrameBytes = bytesPerSample * m_card.minChannels.load();
    const unsigned maxFrameBytes = bytesPerSample * m_card.maxChannels.load();
    const std::array<Range, 5> ranges = {{
        {SND_PCM_IOPLUG_HW_CHANNELS, m_card.minChannels.load(), m_card.maxChannels.load()},
        {SND_PCM_IOPLUG_HW_RATE, rate, rate},
        {SND_PCM_IOPLUG_HW_PERIOD_BYTES, minPeriodFrames * minFrameBytes, maxPeriodFrames * maxFrameBytes},
        {SND_PCM_IOPLUG_HW_BUFFER_BYTES, 2 * minPeriodFrames * minFrameBytes, rate * maxFrameBytes},
        {SND_PCM_IOPLUG_HW_PERIODS, 2, maxPeriods},
    }};
    int error = snd_pcm_ioplug_set_param_list(&m_io, SND_PCM_IOPLUG_HW_ACCESS, accesses.size(), accesses.data());
    if (error >= 0)
        error = snd_pcm_ioplug_set_param_list(&m_io, SND_PCM_IOPLUG_HW_FORMAT, formats.size(), formats.data());
    for (auto range = ranges.begin(); error >= 0 && range != ranges.end(); ++range)
        error = snd_pcm_ioplug_set_param_minmax(&m_io, range->parameter, range->min, range->max);
    return error;
}

int CardStream::takeHardwareParameters() {
    m_waiting.reserve(m_io.buffer_size);
    m_stopThreshold = m_io.buffer_size;
    return 0;
}

int CardStream::takeSoftwareParameters(snd_pcm_sw_params_t *params) {
    const int error = snd_pcm_sw_params_get_stop_threshold(params, &m_stopThreshold);
    return error < 0 ? error : snd_pcm_sw_params_get_avail_min(params, &m_availMin);
}

int CardStream::prepare() {
    halt();
    if (isUnplugged())
        return -ENODEV;
    if (cannotWrite())
        return -EIO;
    m_position = 0;
    m_placed = 0;
    m_waiting.clear();
    return 0;
}

int CardStream::start() {
    if (isUnplugged())
        return -ENODEV;
    if (m_side.refusedStarts.load() != 0)
        return -EIO;
    m_xrunsOrderedAtStart = m_side.xrunsOrdered.load();
    m_clockErrorPpb = m_side.clockErrorPpb.load();
    m_startIndex = airNow();
    m_running = true;
    putOnAir();
    armTimer();
    return 0;
}

int CardStream::stop() {
    halt();
    return 0;
}

snd_pcm_sframes_t CardStream::position() {
    if (isUnplugged()) {
        halt();
        // An error from here would be taken for an overrun, again and again.
        snd_pcm_ioplug_set_state(&m_io, SND_PCM_STATE_DISCONNECTED); // cannot fail
    }
    if (!m_running)
        return m_position;
    m_position = currentPosition();
    if (hasRunOut(m_position)) {
        halt();
        if (m_io.state != SND_PCM_STATE_DRAINING)
            m_side.xruns.fetch_add(1);
        return -EPIPE;
    }
    return m_position;
}

std::int64_t CardStream::currentPosition() const {
    return isMoving() ? frameAt(airNow() - m_startIndex) : m_position;
}

snd_pcm_uframes_t CardStream::available(std::int64_t position) const {
    return snd_pcm_ioplug_avail(&m_io, snd_pcm_uframes_t(position), m_io.appl_ptr);
}

bool CardStream::hasRunOut(std::int64_t position) const {
    const bool draining = m_io.state == SND_PCM_STATE_DRAINING;
    return available(position) >= (draining ? m_io.buffer_size : m_stopThreshold) || isXrunOrdered();
}

snd_pcm_sframes_t CardStream::transfer(const snd_pcm_channel_area_t *areas, snd_pcm_uframes_t offset,
                                       snd_pcm_uframes_t count) {
    if (isUnplugged())
        return -ENODEV;
    if (cannotWrite())
        return -EIO;
    std::int16_t *samples = samplesAt(areas, offset);
    if (isPlayback())
        play(samples, std::int64_t(count));
    else
        capture(samples, std::int64_t(count));
    m_side.frames.fetch_add(std::int64_t(count));
    return snd_pcm_sframes_t(count);
}

/// Where a frame of the stream lies on the air, in frames of the exact clock since the start.
std::int64_t CardStream::airOffset(std::int64_t frame) const {
    return frame - frame * m_clockErrorPpb / (billion + m_clockErrorPpb);
}

/// The frame of the stream that a card with this clock has reached by then.
std::int64_t CardStream::frameAt(std::int64_t airOffset) const {
    return airOffset + airOffset * m_clockErrorPpb / billion;
}

void CardStream::capture(std::int16_t *frames, std::int64_t count) const {
    const auto first = std::int64_t(m_io.appl_ptr);
    const std::int64_t firstAir = airOffset(first);
    const bool evenly = airOffset(first + count) - firstAir == count;
    for (std::int64_t i = 0; i < count; ++i) {
        const std::int64_t air = evenly ? firstAir + i : airOffset(first + i);
        frames = std::fill_n(frames, m_io.channels, m_card.heard.at(m_startIndex + air));
    }
}

void CardStream::play(const std::int16_t *frames, std::int64_t count) {
    const std::int64_t channels = m_io.channels;
    for (std::int64_t i = 0; i < count; ++i) {
        const int both = frames[i * channels] + frames[i * channels + channels - 1];
        m_waiting.push_back(std::int16_t(both / 2));
    }
    if (m_running)
        putOnAir();
}

void CardStream::putOnAir() {
    const auto count = std::int64_t(m_waiting.size());
    const std::int64_t firstAir = airOffset(m_placed);
    const std::int64_t endAir = airOffset(m_placed + count);
    const bool evenly = endAir - firstAir == count;
    for (std::int64_t air = firstAir; air < endAir; ++air) {
        const std::int64_t frame =
            evenly ? air - firstAir : std::clamp<std::int64_t>(frameAt(air) - m_placed, 0, count - 1);
        m_card.played.put(m_startIndex + air, m_waiting[std::size_t(frame)]);
    }
    m_placed += count;
    m_waiting.clear();
}

/// The card stops at once; what has not passed the jack yet never will.
void CardStream::halt() {
    if (!m_running)
        return;
    m_running = false;
    for (std::int64_t index = airNow(); isPlayback() && index < m_startIndex + airOffset(m_placed); ++index)
        m_card.played.put(index, 0);
    // Whoever waits for this stream comes and finds out.
    const itimerspec atOnce = {{0, 0}, {0, 1}};
    timerfd_settime(m_timer, 0, &atOnce, nullptr); // cannot fail on a valid timer
}

/// Once per period, just after the position has reached its end. The kernel arms a periodic timer again when it is
/// read: a daemon that never waits is never disturbed by it.
void CardStream::armTimer() {
    const std::int64_t realRate = m_io.rate + m_io.rate * m_clockErrorPpb / billion;
    const std::int64_t periodNs = std::int64_t(m_io.period_size) * nsPerSecond / realRate + 1;
    const std::int64_t firstNs = airTimeNs(m_startIndex, m_io.rate) + periodNs + nsPerSecond / realRate;
    const itimerspec times = {{time_t(periodNs / nsPerSecond), long(periodNs % nsPerSecond)},
                              {time_t(firstNs / nsPerSecond), long(firstNs % nsPerSecond)}};
    timerfd_settime(m_timer, TFD_TIMER_ABSTIME, &times, nullptr); // cannot fail on a valid timer and time
}

/// Asked when the timer has ended a wait. It stays expired, and every wait fails at once, while the stream is broken.
unsigned short CardStream::readyEvents() {
    if (m_io.state != SND_PCM_STATE_PREPARED && m_io.state != SND_PCM_STATE_RUNNING &&
        m_io.state != SND_PCM_STATE_DRAINING) {
        return POLLERR;
    }
    std::uint64_t expirations = 0;
    if (read(m_timer, &expirations, sizeof expirations) < 0 && errno != EAGAIN)
        return POLLERR;
    // Trouble that position() has not met yet counts as ready, so that it is asked.
    const bool ready = isUnplugged() || isXrunOrdered() || available(currentPosition()) >= m_availMin;
    return ready ? (isPlayback() ? POLLOUT : POLLIN) : 0;
}

} // namespace sim
